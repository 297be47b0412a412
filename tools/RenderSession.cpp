#include "tools/RenderSession.h"

#include "effects/framework/AFEffect.h"
#include "effects/framework/EffectFactory.h"
#include "engine/AFRandom.h"
#include "engine/AFUniClient.h"
#include "state/AFMessageSink.h"
#include "tools/MidiFile.h"
#include "tools/PresetImage.h"

#include <strings.h>

#include <cstdio>
#include <cstdlib>

namespace {

RenderHost::Transport transportOf(const RenderOptions& o, int rate) {
    RenderHost::Transport t;
    t.sampleRate = rate;
    t.tempo = o.tempo;
    t.playing = !o.stopped;
    if (o.loop) {
        t.cycle = true;
        t.cycleStart = o.loop->start;
        t.cycleEnd = o.loop->end;
    }
    return t;
}

// Collects the plug-in's messages while a file loads, for the one-line error.
void collect(void* user, const char* text) {
    auto& messages = *static_cast<std::string*>(user);
    std::string line(text);
    const auto first = line.find_first_not_of(" \t\r\n");
    line = first == std::string::npos ? "" : line.substr(first);
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
        line.pop_back();
    if (line.empty()) return;
    messages += (messages.empty() ? "" : "; ") + line;
}

} // namespace

RenderSession::RenderSession(const RenderOptions& o, int rate)
    : options(o), sampleRate(rate), host(transportOf(o, rate)) {}

RenderSession::~RenderSession() = default;

bool RenderSession::start(std::string& error) {
    plugin = std::make_unique<AFUniClient>(&RenderHost::callback, &host);
    // The constructor has seeded the shared generator from the clock; a given seed replaces that.
    if (options.seed) AFRandom::seed(*options.seed);
    plugin->setSampleRate(static_cast<float>(sampleRate));
    plugin->setBlockSize(options.block);
    plugin->resume();
    if (!options.state.empty() && !loadState(error)) return false;
    for (const auto& p : options.presets)
        if (!loadPreset(p, error)) return false;
    if (!options.midi.empty()) {
        MidiFile file;
        if (!file.load(options.midi, options.tempo, error)) return false;
        midi = MidiSchedule(file, sampleRate);
    }
    for (const auto& e : options.effects)
        plugin->setSlotEffect(e.slot, e.typeId);
    for (const auto& o : options.options)
        if (!applyOption(o, error)) return false;
    return automation.resolve(options, *plugin, error);
}

void RenderSession::listParameters() {
    automation.apply(*plugin, 0.0);
    for (int i = 0; i < RenderAutomation::kHostParameters; ++i) {
        char text[kHostTextSize] = {};
        plugin->getParameterName(i, text);
        std::printf("%d\t%s\t%.6f\n", i, text, static_cast<double>(plugin->getParameter(i)));
    }
}

void RenderSession::processBlock(float** inputs, float** outputs, int32_t frames, double seconds) {
    automation.apply(*plugin, seconds);
    AFEvents events = midi.eventsFor(played, frames);
    plugin->processEvents(&events);
    plugin->processReplacing(inputs, outputs, frames);
    host.advance(frames);
    played += frames;
}

void RenderSession::stop() {
    plugin->suspend();
}

std::vector<uint8_t> RenderSession::stateImage() {
    void* data = nullptr;
    const int32_t size = plugin->getChunk(&data, false);
    const auto* bytes = static_cast<const uint8_t*>(data);
    return size > 0 && bytes != nullptr ? std::vector<uint8_t>(bytes, bytes + size) : std::vector<uint8_t>{};
}

bool RenderSession::loadState(std::string& error) {
    PresetImage image;
    if (!image.load(options.state, "--state", error)) return false;
    if (image.kind() != PresetImage::Kind::Global) {
        error =
            "--state '" + options.state + "': an effect preset, not a state image (use --preset FILE@SLOT)";
        return false;
    }
    std::vector<uint8_t> bytes = image.bytes();
    plugin->setChunk(bytes.data(), static_cast<int32_t>(bytes.size()), false);
    return true;
}

bool RenderSession::loadPreset(const RenderOptions::Preset& preset, std::string& error) {
    PresetImage image;
    if (!image.load(preset.path, "--preset", error)) return false;
    const std::string where = "--preset '" + preset.path + "': ";
    if (image.kind() == PresetImage::Kind::Effect && preset.slot < 0) {
        error = where + "an effect preset; give its slot as FILE@SLOT";
        return false;
    }
    if (image.kind() == PresetImage::Kind::Global && preset.slot >= 0) {
        error = where + "a global preset takes no @SLOT";
        return false;
    }
    std::string messages;
    plugin->getMessageSink().setHandler(&collect, &messages);
    const bool loaded = plugin->loadPreset(preset.path, preset.slot, false);
    plugin->getMessageSink().setHandler(nullptr, nullptr);
    if (!loaded) {
        error = where + (messages.empty() ? "the plug-in could not load it" : messages);
        return false;
    }
    return true;
}

bool RenderSession::applyOption(const RenderOptions::OptionChoice& choice, std::string& error) {
    AFEffect* effect = plugin->slotEffect(choice.slot);
    const std::string where =
        "--option " + std::to_string(choice.slot + 1) + ":" + std::to_string(choice.option);
    if (effect == nullptr) {
        error = where + ": slot " + std::to_string(choice.slot + 1) + " holds no effect";
        return false;
    }
    AFWordList words;
    effect->getOptionList(choice.option, words);
    const std::string effectName = EffectFactory::effectName(static_cast<int>(effect->getEffectType()));
    if (words.empty()) {
        error = where + ": " + effectName + " has no option " + std::to_string(choice.option);
        return false;
    }
    int value = -1;
    char* end = nullptr;
    const long n = std::strtol(choice.value.c_str(), &end, 10);
    if (!choice.value.empty() && *end == '\0') {
        value = n >= 0 && n < static_cast<long>(words.size()) ? static_cast<int>(n) : -1;
    } else {
        for (std::size_t i = 0; i < words.size(); ++i)
            if (strcasecmp(words[i].c_str(), choice.value.c_str()) == 0) value = static_cast<int>(i);
    }
    if (value < 0) {
        std::string menu;
        for (std::size_t i = 0; i < words.size(); ++i)
            menu += (i > 0 ? ", " : "") + std::to_string(i) + " \"" + words[i] + "\"";
        error = where + "=" + choice.value + ": " + effectName + " takes " + menu;
        return false;
    }
    plugin->setSlotOption(choice.slot, choice.option, value);
    return true;
}
