#include "modulation/AFStepPatternFile.h"

#include "effects/framework/AFSystemInfo.h"
#include "host/AFPluginTypes.h"
#include "modulation/AFGlideTable.h"
#include "modulation/AFLfo.h"
#include "state/AFChunk.h"
#include "state/AFMessageSink.h"

#include <cstdio>
#include <filesystem>

std::string AFStepPatternFile::folderPath(const std::string& contentPath) {
    return contentPath + kFolderWord + "/";
}

bool AFStepPatternFile::load(const std::string& path, AFGlideTable& table, AFMessageSink* messages) {
    AFChunk chunk;
    chunk.setMessageSink(messages);
    if (!chunk.readFile(path, false)) return false;
    if (chunk.getVersion() > AFChunk::contentVersion()) {
        char text[128];
        std::snprintf(text, sizeof(text), "preset was written with a newer version of %s",
                      AFIdentity::kProduct);
        AFMessageSink::reportTo(messages, text);
        return false;
    }
    table.beforeRead();
    const bool ok = table.read(chunk, false);
    table.afterRead();
    if (ok) table.chunkName(std::filesystem::path(path).stem().string().c_str());
    return ok;
}

bool AFStepPatternFile::save(const std::string& path, AFGlideTable& table, const AFSystemInfo* system,
                             AFMessageSink* messages) {
    AFChunk chunk;
    if (system != nullptr) {
        chunk.setTempo(static_cast<float>(system->bpm));
        chunk.setSampleRate(system->sampleRate);
    }
    table.beforeWrite();
    chunk.rewindToWrite();
    chunk.writeHeader();
    table.write(chunk);
    chunk.allocateCounted();
    chunk.writeHeader();
    table.write(chunk);
    table.afterWrite();
    if (chunk.writeFile(path)) return true;
    std::string text = "saving preset to ";
    text += path;
    text += " failed";
    AFMessageSink::reportTo(messages, text);
    return false;
}

void AFStepPatternFile::applyToLfo(const AFGlideTable& table, AFLfo& lfo) {
    const auto row = static_cast<uint32_t>(table.getValueRow());
    for (int s = 0; s < kStepCount; ++s)
        lfo.setStep(s, table.getValue(row, static_cast<uint32_t>(s) % table.getColumnCount()));
}

void AFStepPatternFile::takeFromLfo(const AFLfo& lfo, AFGlideTable& table) {
    table = AFGlideTable(kStepCount, 1);
    for (int s = 0; s < kStepCount; ++s)
        table.setValue(0, static_cast<uint32_t>(s), lfo.getStep(s));
}
