#pragma once

#include <string>

class AFGlideTable;
class AFLfo;
class AFMessageSink;
class AFSystemInfo;

// Step-sequencer preset files: a chunk holding one glide table, kept in the content folder's "Stepsequencer"
// folder with the extension "AFS". Also moves a pattern between a table and an LFO's 16 steps.
class AFStepPatternFile {
public:
    static constexpr const char* kFolderWord = "Stepsequencer";
    static constexpr const char* kExtension = "AFS";
    static constexpr const char* kSuffix = ".AFS";
    static constexpr int kStepCount = 16;

    // Any thread: the pattern folder inside a content path that ends with a separator.
    static std::string folderPath(const std::string& contentPath);
    // GUI thread. A file that is not a chunk, is newer than this program or holds no readable table leaves
    // the table as it was; the chunk layer reports a wrong header. On success the table gets the file's name.
    // Messages go to `messages`, or to standard error without one.
    static bool load(const std::string& path, AFGlideTable& table, AFMessageSink* messages = nullptr);
    // GUI thread. Tempo and sample rate of the header come from the timing record when given; a failed
    // write reports "saving preset to %s failed".
    static bool save(const std::string& path, AFGlideTable& table, const AFSystemInfo* system,
                     AFMessageSink* messages = nullptr);
    // GUI thread: the table's value row becomes the LFO's steps; a shorter table repeats, glides are dropped
    // because the LFO holds each step.
    static void applyToLfo(const AFGlideTable& table, AFLfo& lfo);
    // GUI thread: the LFO's steps as a fresh 16-step table without glides.
    static void takeFromLfo(const AFLfo& lfo, AFGlideTable& table);
};
