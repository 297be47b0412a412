#include "tools/PresetInspector.h"

#include "effects/framework/AFEffect.h"
#include "effects/framework/EffectFactory.h"
#include "engine/AFMidiBindings.h"
#include "engine/AFUniClient.h"
#include "engine/KnobEngine.h"
#include "host/AFPluginTypes.h"
#include "modulation/AFGlideTable.h"
#include "modulation/AFLfo.h"
#include "modulation/AFStepPatternFile.h"
#include "state/AFChunk.h"
#include "state/AFMessageSink.h"
#include "state/AFStateIO.h"
#include "tools/BoundedFile.h"
#include "tools/JsonValue.h"
#include "tools/ToolClient.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>

namespace {

constexpr const char* kGlobalFlags[6] = {"dynamicSignalFlow", "resetAfterLoad", "offOnTop",
                                         "ccRecallLock",      "threshold",      "midiOut"};

std::string num(double v) {
    if (!std::isfinite(v)) return "null";
    char text[32];
    std::snprintf(text, sizeof(text), "%.9g", v);
    return text;
}

void collect(void* user, const char* text) {
    auto& messages = *static_cast<std::string*>(user);
    if (!messages.empty()) messages += '\n';
    messages += text;
}

// Captures the messages of one sink while it lives.
class MessageCapture {
public:
    MessageCapture(AFMessageSink& sink, std::string& into) : sink(sink) { sink.setHandler(collect, &into); }
    ~MessageCapture() { sink.setHandler(nullptr, nullptr); }
    MessageCapture(const MessageCapture&) = delete;
    MessageCapture& operator=(const MessageCapture&) = delete;

private:
    AFMessageSink& sink;
};

std::string lowerExtension(const std::string& path) {
    std::string ext = std::filesystem::path(path).extension().string();
    for (char& c : ext)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext;
}

bool isFlag(int32_t v) {
    return v == 0 || v == 1;
}

} // namespace

PresetInspector::PresetInspector(std::string filePath) : path(std::move(filePath)) {
    const std::string ext = lowerExtension(path);
    if (ext == ".afm")
        fileKind = Kind::MidiMap;
    else if (ext == ".afo")
        fileKind = Kind::Effect;
    else if (ext == ".afog")
        fileKind = Kind::Global;
    else if (ext == ".dic")
        fileKind = Kind::Dictator;
    else if (ext == ".afs")
        fileKind = Kind::Pattern;
}

bool PresetInspector::failAt(int32_t word, const std::string& what) {
    fault = "word " + std::to_string(word) + ": " + what;
    return false;
}

int32_t PresetInspector::intAt(int32_t word) const {
    return word >= 0 && static_cast<std::size_t>(word) < fileWords.size()
               ? static_cast<int32_t>(fileWords[static_cast<std::size_t>(word)])
               : 0;
}

float PresetInspector::floatAt(int32_t word) const {
    const int32_t bits = intAt(word);
    float value;
    std::memcpy(&value, &bits, sizeof(value));
    return value;
}

bool PresetInspector::loadImage() {
    if (fileKind == Kind::Unknown) {
        fault = "unknown file kind: the name must end in .afo, .afog, .dic, .afm or .AFS";
        return false;
    }
    std::string reason;
    if (!BoundedFile::read(path, bytes, reason)) {
        fault = "cannot read " + path + ": " + reason;
        return false;
    }
    fileWords.assign(bytes.size() / 4, 0u);
    for (std::size_t i = 0; i < fileWords.size(); ++i)
        fileWords[i] = static_cast<uint32_t>(bytes[4 * i]) | static_cast<uint32_t>(bytes[4 * i + 1]) << 8 |
                       static_cast<uint32_t>(bytes[4 * i + 2]) << 16 |
                       static_cast<uint32_t>(bytes[4 * i + 3]) << 24;
    return true;
}

bool PresetInspector::checkHeader() {
    if (!loadImage()) return false;
    if (fileWords.size() < static_cast<std::size_t>(AFChunk::kHeaderWords)) {
        return failAt(static_cast<int32_t>(fileWords.size()), "the file is shorter than its header");
    }
    AFChunk chunk;
    messages.clear();
    {
        AFMessageSink sink;
        MessageCapture capture(sink, messages);
        chunk.setMessageSink(&sink);
        if (!chunk.loadBytes(bytes.data(), bytes.size(), false)) {
            fault = messages;
            return false;
        }
    }
    const auto size = static_cast<int32_t>(chunk.getSizeInWords());
    const auto held = static_cast<int32_t>(fileWords.size());
    if (held < size)
        return failAt(held, "the file ends here, its header says " + std::to_string(size) + " words");
    if (held > size || bytes.size() % 4 != 0)
        return failAt(size,
                      "words left over after the last field (the header says " + std::to_string(size) + ")");
    if (chunk.getVersion() > AFChunk::contentVersion()) {
        fault = std::string(fileKind == Kind::MidiMap ? "midi map" : "preset") +
                " was written with a newer version of " + AFIdentity::kProduct;
        return false;
    }
    return true;
}

bool PresetInspector::loadState(AFUniClient& client, int slot) {
    AFChunk chunk;
    chunk.loadBytes(bytes.data(), bytes.size(), true);
    messages.clear();
    bool ok;
    {
        MessageCapture capture(client.getMessageSink(), messages);
        ok = client.readState(chunk, slot, false);
    }
    if (!messages.empty()) {
        fault = messages;
        return false;
    }
    if (!ok) return failAt(intAt(0), "missing field or terminator: the words end inside a slot record");
    return true;
}

int32_t PresetInspector::slotRecordsEnd(AFUniClient& client, int slots) const {
    AFChunk counter;
    counter.rewindToWrite();
    counter.writeHeader();
    for (int i = 0; i < 4; ++i)
        counter.writeInt(0);
    for (int s = 0; s < slots; ++s)
        client.writeSlotRecord(counter, s);
    return counter.getPosition();
}

bool PresetInspector::checkRecordHeads(AFUniClient& client, int slots) {
    int32_t position = AFChunk::kHeaderWords + 4;
    for (int s = 0; s < slots; ++s) {
        const int32_t version = intAt(position);
        if (version < AFStateIO::kOldestSlotVersion || version > AFStateIO::kSlotVersion)
            return failAt(position, "slot record version " + std::to_string(version) + " outside " +
                                        std::to_string(AFStateIO::kOldestSlotVersion) + ".." +
                                        std::to_string(AFStateIO::kSlotVersion));
        const int32_t type = intAt(position + 1);
        if (!EffectFactory::hasClass(type) || type == 0 || type == 6 || type == 10 || type == 15)
            return failAt(position + 1, "unknown effect type id " + std::to_string(type));
        AFChunk counter;
        counter.rewindToWrite();
        client.writeSlotRecord(counter, s);
        position += counter.getPosition();
    }
    return true;
}

bool PresetInspector::compareWords(const AFChunk& written, int32_t from, int32_t to) {
    for (int32_t i = from; i < to; ++i) {
        const uint32_t mine = fileWords[static_cast<std::size_t>(i)];
        const uint32_t theirs = written.word(static_cast<std::size_t>(i));
        if (mine == theirs) continue;
        const int32_t previous = static_cast<int32_t>(written.word(static_cast<std::size_t>(i - 1)));
        const auto value = static_cast<int32_t>(mine);
        if (previous >= AFStateIO::kOldestSlotVersion && previous <= AFStateIO::kSlotVersion &&
            intAt(i - 1) == previous)
            return failAt(i, "unknown effect type id " + std::to_string(value));
        return failAt(i, "value " + std::to_string(value) + " (" + num(floatAt(i)) +
                             ") is unknown or outside its range; the loader makes it " +
                             std::to_string(static_cast<int32_t>(theirs)));
    }
    return true;
}

bool PresetInspector::checkString(int32_t& position, const char* field) {
    const int32_t size = intAt(0);
    const int32_t length = intAt(position);
    if (position >= size) return failAt(position, std::string("missing ") + field);
    if (length < 0 || length > 4 * (size - position - 1))
        return failAt(position, std::string("the length of the ") + field + " runs past the end");
    position += 1 + (length + 3) / 4;
    return true;
}

bool PresetInspector::checkDictatorRows(int32_t& position) {
    const int32_t size = intAt(0);
    for (int r = 0; r < 8; ++r) {
        for (;;) {
            if (position >= size)
                return failAt(position, "missing terminator " + std::to_string(AFStateIO::kRowEnd) +
                                            " of Dictator row " + std::to_string(r + 1));
            const int32_t node = intAt(position);
            if (node == AFStateIO::kRowEnd) {
                ++position;
                break;
            }
            if (node < 0 || node >= AFDictator::kNodes)
                return failAt(position, "node index " + std::to_string(node) + " outside 0.." +
                                            std::to_string(AFDictator::kNodes - 1));
            const float value = floatAt(position + 1);
            if (position + 1 >= size) return failAt(position + 1, "missing node value");
            if (!(value >= 0.0f && value <= 1.0f))
                return failAt(position + 1, "node value " + num(value) + " outside 0..1");
            position += 2;
        }
    }
    return true;
}

bool PresetInspector::checkGlobalSection(int32_t position) {
    const int32_t size = intAt(0);
    const auto need = [&](int32_t words, const char* what) {
        return position + words <= size ? true
                                        : failAt(size, std::string("the file ends before the ") + what);
    };
    if (!need(6, "global options")) return false;
    for (int i = 0; i < 6; ++i) {
        if (i == 4) {
            const float threshold = floatAt(position + i);
            if (!(threshold >= 0.0f && threshold <= 0.5f))
                return failAt(position + i, "threshold " + num(threshold) + " outside 0..0.5");
        } else if (!isFlag(intAt(position + i))) {
            return failAt(position + i, std::string(kGlobalFlags[i]) + " is " +
                                            std::to_string(intAt(position + i)) + ", not 0 or 1");
        }
    }
    position += 6;
    for (;;) {
        if (position >= size)
            return failAt(position, "missing terminator " + std::to_string(AFStateIO::kBindingsEnd) +
                                        " of the CC bindings");
        const int32_t cc = intAt(position);
        if (cc == AFStateIO::kBindingsEnd) break;
        if (cc < 0 || cc > 127) return failAt(position, "CC " + std::to_string(cc) + " outside 0..127");
        const int32_t parameter = intAt(position + 1);
        if (parameter < 0 || parameter >= AFUniClient::kAmountEnd)
            return failAt(position + 1, "bound parameter " + std::to_string(parameter) + " outside 0.." +
                                            std::to_string(AFUniClient::kAmountEnd - 1));
        position += 2;
    }
    ++position;
    if (!checkDictatorRows(position)) return false;
    if (position >= size || intAt(position) != AFStateIO::kDictatorEnd)
        return failAt(position,
                      "missing terminator " + std::to_string(AFStateIO::kDictatorEnd) + " of the Dictator");
    ++position;
    if (!need(10, "host values")) return false;
    for (int i = 0; i < 10; ++i) {
        const float value = floatAt(position + i);
        if (!(value >= 0.0f && value <= 1.0f))
            return failAt(position + i, "host value " + num(value) + " outside 0..1");
    }
    position += 10;
    if (position >= size || intAt(position) != AFStateIO::kHostValuesEnd)
        return failAt(position, "missing terminator " + std::to_string(AFStateIO::kHostValuesEnd) +
                                    " of the host values");
    ++position;
    if (!checkString(position, "global preset name")) return false;
    if (!need(2, "program and content index")) return false;
    if (intAt(position) < 0)
        return failAt(position, "program " + std::to_string(intAt(position)) + " below 0");
    position += 2;
    if (position < size) return failAt(position, "words left over after the last field");
    return true;
}

bool PresetInspector::checkPattern() {
    AFGlideTable table;
    messages.clear();
    bool ok;
    {
        AFMessageSink sink;
        MessageCapture capture(sink, messages);
        ok = AFStepPatternFile::load(path, table, &sink);
    }
    if (!ok) {
        fault = messages.empty() ? "no readable step table" : messages;
        return false;
    }
    AFChunk written;
    written.rewindToWrite();
    for (int pass = 0; pass < 2; ++pass) {
        if (pass == 1) written.allocateCounted();
        written.writeHeader();
        table.write(written);
    }
    const auto size = intAt(0);
    const auto length = static_cast<int32_t>(written.getSizeInWords());
    if (length > size) return failAt(size, "missing field: the step table ends early");
    if (!compareWords(written, AFChunk::kHeaderWords, length)) return false;
    if (length < size) return failAt(length, "words left over after the last field");
    return true;
}

bool PresetInspector::checkMidiMap() {
    AFMidiBindings map;
    AFChunk chunk;
    chunk.loadBytes(bytes.data(), bytes.size(), true);
    chunk.rewindToRead();
    const int32_t version = intAt(AFChunk::kHeaderWords);
    if (!map.readMapBody(chunk))
        return version > AFMidiBindings::kMapVersion ||
                       intAt(AFChunk::kHeaderWords + 1) != AFMidiBindings::kMapMagic
                   ? failAt(AFChunk::kHeaderWords, "not a MIDI map of a known version")
                   : failAt(intAt(0), "missing field or terminator: the map ends inside a list");
    const int32_t size = intAt(0);
    if (version < AFMidiBindings::kFirstListVersion)
        return chunk.getPosition() < size
                   ? failAt(chunk.getPosition(), "words left over after the last field")
                   : true;
    AFChunk written;
    written.rewindToWrite();
    map.writeMapBody(written);
    written.allocateCounted();
    map.writeMapBody(written);
    const auto length = static_cast<int32_t>(written.getSizeInWords());
    if (!compareWords(written, AFChunk::kHeaderWords, std::min(length, size))) return false;
    if (length > size) return failAt(size, "missing field or terminator: the map ends early");
    if (length < size) return failAt(length, "words left over after the last field");
    return true;
}

std::string PresetInspector::describeMidiMap() {
    AFMidiBindings map;
    AFChunk chunk;
    chunk.loadBytes(bytes.data(), bytes.size(), true);
    chunk.rewindToRead();
    map.readMapBody(chunk);
    const auto list = [](const AFMidiBindings::IndexList& l) {
        std::string out = "[";
        for (int i = 0; i < l.size(); ++i)
            out += (i ? ", " : "") + std::to_string(l[i]);
        return out + "]";
    };
    std::string controllers;
    std::string notes;
    for (int source = 0; source < AFMidiBindings::kSources; ++source) {
        if (map.controllers(source).size() > 0)
            controllers += (controllers.empty() ? "\"" : ", \"") + std::to_string(source) +
                           "\": " + list(map.controllers(source));
        if (map.notes(source).size() > 0)
            notes +=
                (notes.empty() ? "\"" : ", \"") + std::to_string(source) + "\": " + list(map.notes(source));
    }
    std::string aftertouch = "[";
    for (int i = 0; i < map.aftertouch().size(); ++i)
        aftertouch += (i ? ", " : "") + std::to_string(map.aftertouch()[i]);
    return ", \"mapVersion\": " + std::to_string(intAt(AFChunk::kHeaderWords)) + ", \"controllers\": {" +
           controllers + "}, \"notes\": {" + notes + "}, \"aftertouch\": " + aftertouch + "]";
}

bool PresetInspector::check() {
    if (!checkHeader()) return false;
    const int32_t size = intAt(0);
    if (fileKind == Kind::Pattern) return checkPattern();
    if (fileKind == Kind::MidiMap) return checkMidiMap();
    if (fileKind == Kind::Dictator) {
        int32_t position = AFChunk::kHeaderWords;
        if (!checkDictatorRows(position)) return false;
        if (position >= size || intAt(position) != AFStateIO::kHostValuesEnd)
            return failAt(position, "missing terminator " + std::to_string(AFStateIO::kHostValuesEnd) +
                                        " after the rows");
        ++position;
        if (!checkString(position, "Dictator preset name")) return false;
        if (position < size) return failAt(position, "words left over after the last field");
        return true;
    }
    auto client = ToolClient::create();
    if (fileKind == Kind::Effect) {
        if (!loadState(*client, 0)) return false;
        if (!checkRecordHeads(*client, 1)) return false;
        const int32_t end = slotRecordsEnd(*client, 1);
        const int32_t next = intAt(end);
        if (end < size && next >= AFStateIO::kOldestSlotVersion && next <= AFStateIO::kSlotVersion) {
            fileKind = Kind::Global;
            client = ToolClient::create();
        } else {
            AFChunk written;
            client->writeState(written, 0);
            if (end > size) return failAt(size, "missing terminator or field: the slot record ends early");
            if (!compareWords(written, AFChunk::kHeaderWords, end)) return false;
            if (end < size) return failAt(end, "words left over after the last field");
            return true;
        }
    }
    if (!loadState(*client, -1)) return false;
    if (!checkRecordHeads(*client, AFUniClient::kSlots)) return false;
    const int32_t end = slotRecordsEnd(*client, AFUniClient::kSlots);
    if (end > size) return failAt(size, "missing terminator or field: the slot records end early");
    AFChunk written;
    client->writeState(written, -1);
    if (!compareWords(written, AFChunk::kHeaderWords, end)) return false;
    return checkGlobalSection(end);
}

std::string PresetInspector::headerJson() const {
    std::string out = "\"file\": " + JsonValue::quote(path) + ", \"kind\": \"";
    out += fileKind == Kind::Effect     ? "effect preset"
           : fileKind == Kind::Global   ? "global preset"
           : fileKind == Kind::Dictator ? "Dictator preset"
           : fileKind == Kind::MidiMap  ? "MIDI map"
                                        : "step pattern";
    out += "\", \"header\": {\"size\": " + std::to_string(intAt(0)) +
           ", \"version\": " + std::to_string(intAt(1)) + ", \"tempo\": " + num(floatAt(2)) +
           ", \"sampleRate\": " + num(floatAt(3)) + ", \"magic\": " + std::to_string(intAt(4)) + "}";
    return out;
}

std::string PresetInspector::describeSlot(AFUniClient& client, int slot) {
    KnobEngine& engine = client.getSlot(slot);
    AFEffect* effect = engine.getEffect();
    const int type = engine.getEffectType();
    std::string out = "{\"effect\": " + JsonValue::quote(EffectFactory::effectName(type)) +
                      ", \"type\": " + std::to_string(type) +
                      ", \"name\": " + JsonValue::quote(client.getPresetName(slot)) + ", \"parameters\": {";
    for (int r = 0; r < KnobEngine::kParameterCount; ++r) {
        const float value = client.getParameter(AFParameterMap::slotRow(slot, r));
        out += (r ? ", " : "") + JsonValue::quote(KnobEngine::kRowNames[r]) + ": " + num(value);
    }
    out += "}, \"effectParameters\": [";
    std::string options;
    for (int i = 0; i < effect->getParameterCount() && i < 4; ++i) {
        char own[kEffectTextSize] = {};
        effect->getParameterName(i, own);
        out += (i ? ", " : "") + JsonValue::quote(own);
        AFWordList words;
        effect->getOptionList(i, words);
        if (words.empty()) continue;
        const int32_t option = effect->getOption(i);
        const std::string word = option >= 0 && static_cast<std::size_t>(option) < words.size()
                                     ? words[static_cast<std::size_t>(option)]
                                     : "";
        options += (options.empty() ? "" : ", ") + JsonValue::quote(own) +
                   ": {\"value\": " + std::to_string(option) + ", \"word\": " + JsonValue::quote(word) + "}";
    }
    out += "], \"options\": {" + options + "}, \"curves\": [";
    for (int i = 0; i < 5; ++i)
        out += (i ? ", " : "") + std::to_string(engine.getParameterCurve(i));
    out += "], \"modulatorCurves\": [";
    for (int i = 0; i < KnobEngine::kModulatorCount; ++i)
        out += (i ? ", " : "") + std::to_string(engine.getModulatorCurve(i));
    out += "], \"modulation\": {";
    static constexpr const char* kSources[3] = {"lfo", "envelope", "lfo2"};
    for (int source = 0; source < 3; ++source) {
        out += (source ? "], " : "") + JsonValue::quote(kSources[source]) + ": [";
        for (int i = 0; i < 5; ++i)
            out += (i ? ", " : "") + num(client.getModulationAmount(slot, 5 * source + i));
    }
    out += "]}, \"mixLaw\": " + std::to_string(engine.getMixLaw()) +
           ", \"quantise\": " + std::to_string(engine.getQuantiseMode()) +
           ", \"volume\": " + num(client.getParameter(AFParameterMap::fxGain(slot)));
    for (int l = 0; l < 2; ++l) {
        const AFLfo& lfo = *engine.getLfo(l);
        out += l ? ", \"lfo2\": " : ", \"lfo1\": ";
        out += "{\"waveform\": " + std::to_string(lfo.getWaveform()) +
               ", \"quantize\": " + std::to_string(lfo.getQuantizeSteps()) +
               ", \"trigger\": " + std::to_string(lfo.getTriggerMode()) +
               ", \"rateDivide\": " + num(lfo.getRateDivide()) + ", \"steps\": [";
        for (int i = 0; i < AFStepPatternFile::kStepCount; ++i)
            out += (i ? ", " : "") + num(lfo.getStep(i));
        out += "]}";
    }
    return out + "}";
}

std::string PresetInspector::describeRows(int32_t& position) {
    std::string out = "[";
    for (int r = 0; r < 8; ++r) {
        out += r ? ", {" : "{";
        bool first = true;
        while (intAt(position) != AFStateIO::kRowEnd && position < intAt(0)) {
            out += (first ? "\"" : ", \"") + std::to_string(intAt(position)) +
                   "\": " + num(floatAt(position + 1));
            first = false;
            position += 2;
        }
        ++position;
        out += "}";
    }
    return out + "]";
}

std::string PresetInspector::describeGlobalSection(int32_t position) {
    std::string out;
    for (int i = 0; i < 6; ++i)
        out += ", " + JsonValue::quote(kGlobalFlags[i]) + ": " +
               (i == 4 ? num(floatAt(position + i)) : std::to_string(intAt(position + i)));
    position += 6;
    out += ", \"ccBindings\": [";
    bool first = true;
    while (intAt(position) != AFStateIO::kBindingsEnd && position < intAt(0)) {
        out += (first ? "[" : ", [") + std::to_string(intAt(position)) + ", " +
               std::to_string(intAt(position + 1)) + "]";
        first = false;
        position += 2;
    }
    ++position;
    out += "], \"rows\": " + describeRows(position);
    ++position;
    out += ", \"dictator\": " + num(floatAt(position)) + ", \"dryWet\": " + num(floatAt(position + 1)) +
           ", \"controls\": [";
    for (int i = 0; i < AFUniClient::kSlots; ++i)
        out += (i ? ", " : "") + num(floatAt(position + 2 + i));
    position += 11;
    AFChunk chunk;
    chunk.loadBytes(bytes.data(), bytes.size(), true);
    chunk.setPosition(position);
    const std::string name = chunk.readString();
    position = chunk.getPosition();
    out += "], \"name\": " + JsonValue::quote(name) + ", \"program\": " + std::to_string(intAt(position)) +
           ", \"contentIndex\": " + std::to_string(intAt(position + 1));
    return out;
}

std::string PresetInspector::describePattern() {
    AFGlideTable table;
    {
        AFMessageSink sink;
        MessageCapture capture(sink, messages);
        AFStepPatternFile::load(path, table, &sink);
    }
    std::string values;
    std::string glides;
    for (uint32_t c = 0; c < table.getColumnCount(); ++c) {
        values += (c ? ", " : "") + num(table.getValue(0, c));
        glides += std::string(c ? ", " : "") + (table.getGlide(0, c) ? "true" : "false");
    }
    return ", \"columns\": " + std::to_string(table.getColumnCount()) +
           ", \"rows\": " + std::to_string(table.getRowCount()) + ", \"values\": [" + values +
           "], \"glides\": [" + glides + "]";
}

std::string PresetInspector::describe() {
    if (!check() && fault.rfind("word ", 0) != 0) return {};
    std::string out = "{" + headerJson();
    if (!fault.empty()) out += ", \"problem\": " + JsonValue::quote(fault);
    if (fileKind == Kind::Pattern) return out + describePattern() + "}\n";
    if (fileKind == Kind::MidiMap) return out + describeMidiMap() + "}\n";
    if (fileKind == Kind::Dictator) {
        int32_t position = AFChunk::kHeaderWords;
        out += ", \"rows\": " + describeRows(position);
        AFChunk chunk;
        chunk.loadBytes(bytes.data(), bytes.size(), true);
        chunk.setPosition(position + 1);
        return out + ", \"name\": " + JsonValue::quote(chunk.readString()) + "}\n";
    }
    auto client = ToolClient::create();
    const int slots = fileKind == Kind::Global ? AFUniClient::kSlots : 1;
    {
        MessageCapture capture(client->getMessageSink(), messages);
        AFChunk chunk;
        chunk.loadBytes(bytes.data(), bytes.size(), true);
        client->readState(chunk, fileKind == Kind::Global ? -1 : 0, true);
    }
    if (fileKind == Kind::Effect) return out + ", \"slot\": " + describeSlot(*client, 0) + "}\n";
    out += ", \"slots\": [";
    for (int s = 0; s < slots; ++s)
        out += (s ? ", " : "") + describeSlot(*client, s);
    out += "]";
    return out + describeGlobalSection(slotRecordsEnd(*client, slots)) + "}\n";
}
