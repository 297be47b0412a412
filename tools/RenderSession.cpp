#include "tools/RenderSession.h"

#include "effects/framework/AFEffect.h"
#include "effects/framework/EffectFactory.h"
#include "engine/AFRandom.h"
#include "engine/AFUniClient.h"

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
    AFEvents none;
    plugin->processEvents(&none);
    plugin->processReplacing(inputs, outputs, frames);
    host.advance(frames);
}

void RenderSession::stop() {
    plugin->suspend();
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
