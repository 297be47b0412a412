#include "tools/PresetImage.h"

#include "engine/AFUniClient.h"
#include "state/AFChunk.h"
#include "state/AFStateIO.h"
#include "tools/BoundedFile.h"

namespace {

constexpr std::size_t kMaxFileBytes = AFChunk::kMaxWords * 4u;
constexpr int kPrefixWords = 4; // position, plug-in id, state version, magic

} // namespace

bool PresetImage::load(const std::string& path, const std::string& option, std::string& error) {
    const std::string where = option + " '" + path + "': ";
    std::string reason;
    if (!BoundedFile::read(path, image, reason, kMaxFileBytes)) return error = where + reason, false;

    AFChunk chunk;
    if (!chunk.loadBytes(image.data(), image.size(), true) || image.size() < chunk.getSizeInWords() * 4u)
        return error = where + "not an Orvanto state file, or cut short", false;
    if (chunk.getVersion() > AFChunk::contentVersion())
        return error = where + "written by a newer version of Orvanto", false;
    const std::size_t first = AFChunk::kHeaderWords;
    const auto at = [&](std::size_t i) { return static_cast<int32_t>(chunk.word(i)); };
    if (chunk.getSizeInWords() <= AFStateIO::kEmptyWords || at(first + 1) != AFStateIO::kPluginId ||
        at(first + 3) != AFStateIO::kStateMagic)
        return error = where + "not an Orvanto preset or state", false;
    if (at(first + 2) > AFStateIO::kStateVersion)
        return error = where + "written by a newer version of Orvanto", false;

    // Every slot record closes its option list with the end mark and a guard word.
    int records = 0;
    for (std::size_t i = first + kPrefixWords; i + 1 < chunk.getSizeInWords(); ++i)
        if (at(i) == AFStateIO::kOptionsEnd && at(i + 1) == AFStateIO::kGuardWord) ++records;
    if (records == 1) {
        sort = Kind::Effect;
    } else if (records == AFUniClient::kSlots) {
        sort = Kind::Global;
    } else {
        return error = where + "holds " + std::to_string(records) + " slot records, neither 1 nor 8", false;
    }
    return true;
}
