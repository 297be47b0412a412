#include "engine/AFMidiBindings.h"
#include "engine/AFAudioGate.h"
#include "state/AFChunk.h"
#include "state/AFMessageSink.h"

#include <gtest/gtest.h>

#include <atomic>
#include <bit>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

std::vector<std::string>& messages() {
    static std::vector<std::string> captured;
    return captured;
}

void capture(void*, const char* text) {
    messages().emplace_back(text);
}

// Captures the messages of the maps that report to it, for one test.
class MessageCapture {
public:
    MessageCapture() {
        messages().clear();
        sink.setHandler(&capture, nullptr);
    }
    AFMessageSink sink;
};

std::string tempPath(const std::string& name) {
    return (std::filesystem::temp_directory_path() / ("orvanto-midi-" + name)).string();
}

void writeWords(const std::string& path, const std::vector<uint32_t>& words) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    for (const uint32_t w : words) {
        const uint8_t bytes[4] = {static_cast<uint8_t>(w), static_cast<uint8_t>(w >> 8),
                                  static_cast<uint8_t>(w >> 16), static_cast<uint8_t>(w >> 24)};
        out.write(reinterpret_cast<const char*>(bytes), 4);
    }
}

std::vector<uint32_t> readWords(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<uint32_t> words;
    uint8_t b[4];
    while (in.read(reinterpret_cast<char*>(b), 4))
        words.push_back(b[0] | (b[1] << 8) | (b[2] << 16) | (static_cast<uint32_t>(b[3]) << 24));
    return words;
}

// A chunk image built by hand: the five header words, then `body`. Word 0 is the true size.
std::vector<uint32_t> chunkImage(const std::vector<int32_t>& body) {
    std::vector<uint32_t> words = {static_cast<uint32_t>(5 + body.size()),
                                   static_cast<uint32_t>(AFChunk::contentVersion()),
                                   std::bit_cast<uint32_t>(120.0f), std::bit_cast<uint32_t>(44100.0f),
                                   static_cast<uint32_t>(AFChunk::kMagic)};
    for (const int32_t w : body)
        words.push_back(static_cast<uint32_t>(w));
    return words;
}

int totalBindings(const AFMidiBindings& b) {
    int n = b.aftertouch().size();
    for (int i = 0; i < AFMidiBindings::kSources; ++i)
        n += b.controllers(i).size() + b.notes(i).size();
    return n;
}

bool sameMap(const AFMidiBindings& a, const AFMidiBindings& b) {
    for (int i = 0; i < AFMidiBindings::kSources; ++i) {
        if (a.controllers(i).size() != b.controllers(i).size() || a.notes(i).size() != b.notes(i).size())
            return false;
        for (int k = 0; k < a.controllers(i).size(); ++k)
            if (a.controllers(i)[k] != b.controllers(i)[k]) return false;
        for (int k = 0; k < a.notes(i).size(); ++k)
            if (a.notes(i)[k] != b.notes(i)[k]) return false;
    }
    return true;
}

// Every binding of `part` stands in `whole` too, or is the 0 that a zero-filled tail reads.
bool isPart(const AFMidiBindings& part, const AFMidiBindings& whole) {
    for (int i = 0; i < AFMidiBindings::kSources; ++i) {
        for (int k = 0; k < part.controllers(i).size(); ++k)
            if (part.controllers(i)[k] != 0 && !whole.controllers(i).contains(part.controllers(i)[k]))
                return false;
        for (int k = 0; k < part.notes(i).size(); ++k)
            if (part.notes(i)[k] != 0 && !whole.notes(i).contains(part.notes(i)[k])) return false;
    }
    return true;
}

void fillSample(AFMidiBindings& b) {
    b.addControllerBinding(1, 0);
    b.addControllerBinding(1, 300);
    b.addControllerBinding(7, 9);
    b.addControllerBinding(127, 2000007);
    b.addNoteBinding(60, 8);
    b.addNoteBinding(0, 3);
}

} // namespace

TEST(AFMidiBindingsNames, ControllerTableKeepsItsMissingEntry) {
    EXPECT_STREQ(AFMidiBindings::controllerName(0), "Banksel");
    EXPECT_STREQ(AFMidiBindings::controllerName(11), "Expression");
    EXPECT_STREQ(AFMidiBindings::controllerName(15), "GenPurp4");
    EXPECT_STREQ(AFMidiBindings::controllerName(31), "#31");
    EXPECT_STREQ(AFMidiBindings::controllerName(33), "Mod LSB");
    EXPECT_STREQ(AFMidiBindings::controllerName(42), "Expr LSB");
    EXPECT_STREQ(AFMidiBindings::controllerName(64), "Sustain");
    EXPECT_STREQ(AFMidiBindings::controllerName(74), "Cut-off");
    EXPECT_STREQ(AFMidiBindings::controllerName(83), "GenPurp8");
    EXPECT_STREQ(AFMidiBindings::controllerName(84), "Porta ");
    EXPECT_STREQ(AFMidiBindings::controllerName(95), "ExtFx5 Depth");
    EXPECT_STREQ(AFMidiBindings::controllerName(101), "Rpn MSB");
    EXPECT_STREQ(AFMidiBindings::controllerName(117), "#117");
    EXPECT_STREQ(AFMidiBindings::controllerName(118), "#119");
    EXPECT_STREQ(AFMidiBindings::controllerName(119), "AllSound off");
    EXPECT_STREQ(AFMidiBindings::controllerName(120), "Reset ");
    EXPECT_STREQ(AFMidiBindings::controllerName(122), "AllNotes off");
    EXPECT_STREQ(AFMidiBindings::controllerName(126), "Poly ON");
    EXPECT_STREQ(AFMidiBindings::controllerName(127), "");
    EXPECT_STREQ(AFMidiBindings::controllerName(-1), "");
    // Every "#n" placeholder below the gap names its own number.
    for (int cc = 0; cc < 118; ++cc) {
        const std::string name = AFMidiBindings::controllerName(cc);
        if (name[0] == '#') {
            EXPECT_EQ(name, "#" + std::to_string(cc));
        }
    }
    EXPECT_STREQ(AFMidiBindings::otherSourceName(0), "Aftertouch");
    EXPECT_STREQ(AFMidiBindings::otherSourceName(1), "Pitchbend");
    EXPECT_STREQ(AFMidiBindings::otherSourceName(2), "Programmchange");
    EXPECT_STREQ(AFMidiBindings::otherSourceName(3), "");
}

TEST(AFMidiBindingsLearn, RulesPerSource) {
    AFMidiBindings b;
    // A target above 8 is not taken by a note; it waits for a controller.
    b.setLearnTarget(12);
    b.learnNote(60);
    EXPECT_EQ(b.notes(60).size(), 0);
    EXPECT_EQ(b.getLearnTarget(), 12);
    b.learnController(5);
    EXPECT_EQ(b.getLearnTarget(), -1);
    EXPECT_TRUE(b.controllers(5).contains(12));
    // Learning again moves the parameter: it leaves every other controller list.
    b.setLearnTarget(12);
    b.learnController(6);
    EXPECT_FALSE(b.controllers(5).contains(12));
    EXPECT_TRUE(b.controllers(6).contains(12));
    EXPECT_EQ(b.controllerFor(12), 6);
    // Notes take 0..8 and move likewise.
    b.setLearnTarget(8);
    b.learnNote(40);
    b.setLearnTarget(8);
    b.learnNote(41);
    EXPECT_EQ(b.notes(40).size(), 0);
    EXPECT_TRUE(b.notes(41).contains(8));
    // Aftertouch adds; the 16-bit list cannot hold a Dictator trigger, but the event still takes the target.
    b.setLearnTarget(300);
    b.learnAftertouch();
    EXPECT_TRUE(b.aftertouch().contains(300));
    b.setLearnTarget(2000000);
    b.learnAftertouch();
    EXPECT_EQ(b.getLearnTarget(), -1);
    EXPECT_EQ(b.aftertouch().size(), 1);
    // Idle: nothing is bound.
    b.learnController(9);
    EXPECT_EQ(b.controllers(9).size(), 0);
}

TEST(AFMidiBindingsEdits, RangesCapacityAndRemoval) {
    AFMidiBindings b;
    EXPECT_FALSE(b.addControllerBinding(128, 0));
    EXPECT_FALSE(b.addControllerBinding(-1, 0));
    EXPECT_FALSE(b.addControllerBinding(1, -5));
    EXPECT_FALSE(b.addControllerBinding(1, 381));
    EXPECT_FALSE(b.addControllerBinding(1, 2000008));
    EXPECT_TRUE(b.addControllerBinding(1, 380));
    EXPECT_FALSE(b.addAftertouchBinding(2000001));
    for (int p = 0; p < AFMidiBindings::kListCapacity; ++p)
        EXPECT_TRUE(b.addNoteBinding(3, p));
    EXPECT_FALSE(b.addNoteBinding(3, 100));
    EXPECT_TRUE(b.addNoteBinding(3, 0)); // already there
    EXPECT_EQ(b.notes(3).size(), AFMidiBindings::kListCapacity);

    b.addControllerBinding(2, 5);
    b.addAftertouchBinding(5);
    EXPECT_TRUE(b.removeParameter(5));
    EXPECT_FALSE(b.controllers(2).contains(5));
    EXPECT_FALSE(b.notes(3).contains(5));
    EXPECT_FALSE(b.aftertouch().contains(5));
    EXPECT_EQ(b.notes(3).size(), AFMidiBindings::kListCapacity - 1);
    EXPECT_EQ(b.notes(3)[4], 4);
    EXPECT_EQ(b.notes(3)[5], 6);
}

TEST(AFMidiBindingsEdits, AudioGateWaitsThenGivesUp) {
    AFMidiBindings b;
    AFAudioGate gate;
    b.attachAudioGate(&gate);
    b.addControllerBinding(4, 7);
    EXPECT_TRUE(b.removeParameter(7));
    EXPECT_FALSE(gate.isHeld());

    // A block that never ends: the edit gives up after 499 sleeps and leaves the audio held off.
    b.addControllerBinding(4, 7);
    ASSERT_TRUE(gate.enter());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(b.removeParameter(7));
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(499));
    EXPECT_TRUE(gate.isHeld());
    EXPECT_TRUE(b.controllers(4).contains(7));
    // The next edit that gets through clears it.
    gate.leave();
    EXPECT_TRUE(b.removeParameter(7));
    EXPECT_FALSE(gate.isHeld());
    EXPECT_FALSE(b.controllers(4).contains(7));
}

TEST(AFMidiBindingsFiles, RoundTripAndLayout) {
    AFMidiBindings b;
    fillSample(b);
    b.addAftertouchBinding(4);
    const std::string path = tempPath("roundtrip.afm");
    ASSERT_TRUE(b.saveMidiMap(path));

    // Header, version 102, magic, then per number: the controller list and the note list.
    const auto words = readWords(path);
    ASSERT_EQ(words.size(), 5u + 2u + 2u * 128u + 6u);
    EXPECT_EQ(words[0], words.size());
    EXPECT_EQ(words[4], static_cast<uint32_t>(AFChunk::kMagic));
    EXPECT_EQ(words[5], 102u);
    EXPECT_EQ(words[6], 18467u);
    EXPECT_EQ(words[7], 0u);  // controller 0: none
    EXPECT_EQ(words[8], 1u);  // note 0: one
    EXPECT_EQ(words[9], 3u);  // Control 4
    EXPECT_EQ(words[10], 2u); // controller 1: two
    EXPECT_EQ(words[11], 0u);
    EXPECT_EQ(words[12], 300u);

    AFMidiBindings c;
    c.addControllerBinding(50, 1);
    ASSERT_TRUE(c.loadMidiMap(path, false));
    EXPECT_TRUE(sameMap(b, c));
    EXPECT_FALSE(c.controllers(50).contains(1));
    std::filesystem::remove(path);
}

TEST(AFMidiBindingsFiles, OldPairFormBuiltWordByWord) {
    const std::string path = tempPath("old.afm");
    // Version 100: controller/parameter pairs closed by -2. Out-of-range pairs are skipped.
    writeWords(path, chunkImage({100, 18467, 7, 0, 7, 261, 64, 2000003, 200, 1, 3, 9999, -2}));
    AFMidiBindings b;
    b.addNoteBinding(10, 2);
    ASSERT_TRUE(b.loadMidiMap(path, false));
    EXPECT_EQ(b.controllers(7).size(), 2);
    EXPECT_EQ(b.controllers(7)[0], 0);
    EXPECT_EQ(b.controllers(7)[1], 261);
    EXPECT_TRUE(b.controllers(64).contains(2000003));
    EXPECT_EQ(b.controllers(3).size(), 0);
    EXPECT_EQ(totalBindings(b), 3); // the load replaced the note binding too

    // Version 101 already is the list form: the same words no longer make a map.
    AFMidiBindings c;
    writeWords(path, chunkImage({101, 18467, 7, 0, 7, 261, -2}));
    EXPECT_FALSE(c.loadMidiMap(path, false));
    // Without the closing -2 the file is cut short and refused.
    writeWords(path, chunkImage({100, 18467, 7, 0}));
    EXPECT_FALSE(c.loadMidiMap(path, false));
    // Version 103 and a wrong magic end the load without a message.
    MessageCapture messagesOn;
    c.attachMessageSink(&messagesOn.sink);
    writeWords(path, chunkImage({103, 18467, -2}));
    EXPECT_FALSE(c.loadMidiMap(path, false));
    writeWords(path, chunkImage({100, 18468, -2}));
    EXPECT_FALSE(c.loadMidiMap(path, false));
    EXPECT_TRUE(messages().empty());
    EXPECT_EQ(totalBindings(c), 0);
    std::filesystem::remove(path);
}

TEST(AFMidiBindingsFiles, Messages) {
    MessageCapture messagesOn;
    AFMidiBindings b;
    b.attachMessageSink(&messagesOn.sink);
    const std::string path = tempPath("messages.afm");
    auto image = chunkImage({100, 18467, -2});
    image[1] = static_cast<uint32_t>(AFChunk::contentVersion() + 1);
    writeWords(path, image);
    EXPECT_FALSE(b.loadMidiMap(path, true));
    EXPECT_TRUE(messages().empty());
    EXPECT_FALSE(b.loadMidiMap(path, false));
    ASSERT_EQ(messages().size(), 1u);
    EXPECT_EQ(messages()[0], "midi map was written with a newer version of Orvanto");

    image[1] = 0;
    image[4] = 12345;
    writeWords(path, image);
    messages().clear();
    EXPECT_FALSE(b.loadMidiMap(path, false));
    ASSERT_EQ(messages().size(), 1u);
    EXPECT_EQ(messages()[0], "\t This is no valid Orvanto format!");

    messages().clear();
    EXPECT_FALSE(b.loadMidiMap(tempPath("missing.afm"), false));
    EXPECT_TRUE(messages().empty());

    const std::string bad = tempPath("no-such-folder") + "/x.afm";
    EXPECT_FALSE(b.saveMidiMap(bad));
    ASSERT_EQ(messages().size(), 1u);
    EXPECT_EQ(messages()[0], "saving cc map to " + bad + " failed");
    std::filesystem::remove(path);
}

TEST(AFMidiBindingsFiles, HostileFilesNeverHurt) {
    AFMidiBindings reference;
    fillSample(reference);
    const std::string good = tempPath("hostile-good.afm");
    ASSERT_TRUE(reference.saveMidiMap(good));
    const auto words = readWords(good);
    const std::string path = tempPath("hostile.afm");
    const MessageCapture quiet;

    // Cut at every word. With the true size in word 0 the missing tail reads as zeros, so at most a part of
    // the map loads; with the cut size in word 0 the words run out, the file is refused and the map stands.
    for (std::size_t cut = 0; cut < words.size(); ++cut) {
        std::vector<uint32_t> part(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(cut));
        AFMidiBindings b;
        fillSample(b);
        writeWords(path, part);
        b.loadMidiMap(path, true);
        EXPECT_TRUE(isPart(b, reference)) << cut;
        b.clear();
        fillSample(b);
        if (cut >= 5) {
            part[0] = static_cast<uint32_t>(cut);
            writeWords(path, part);
            EXPECT_FALSE(b.loadMidiMap(path, true)) << cut;
            EXPECT_TRUE(sameMap(b, reference)) << cut;
        }
    }

    // Random bodies behind a valid header and prefix: whatever loads is within range.
    std::mt19937 random(1977);
    for (int round = 0; round < 200; ++round) {
        std::vector<int32_t> body = {round % 2 == 0 ? 102 : 100, 18467};
        const int length = static_cast<int>(random() % 600);
        for (int i = 0; i < length; ++i)
            body.push_back(round % 3 == 0 ? static_cast<int32_t>(random() % 8)
                                          : static_cast<int32_t>(random()));
        writeWords(path, chunkImage(body));
        AFMidiBindings b;
        b.loadMidiMap(path, true);
        for (int s = 0; s < AFMidiBindings::kSources; ++s) {
            for (int k = 0; k < b.controllers(s).size(); ++k)
                EXPECT_TRUE(AFMidiBindings::isBindable(b.controllers(s)[k]));
            for (int k = 0; k < b.notes(s).size(); ++k)
                EXPECT_TRUE(AFMidiBindings::isBindable(b.notes(s)[k]));
        }
    }

    // Huge words: a count of 2^31 - 1 and a negative count, and an absurd size in the header.
    AFMidiBindings b;
    writeWords(path, chunkImage({102, 18467, 0x7FFFFFFF, 1, 2}));
    EXPECT_FALSE(b.loadMidiMap(path, true));
    writeWords(path, chunkImage({102, 18467, -1}));
    EXPECT_FALSE(b.loadMidiMap(path, true));
    auto image = chunkImage({102, 18467});
    image[0] = 0xFFFFFFF0u;
    writeWords(path, image);
    EXPECT_FALSE(b.loadMidiMap(path, true));
    image[0] = 1000000;
    writeWords(path, image);
    EXPECT_TRUE(b.loadMidiMap(path, true)); // zero-filled: 128 empty pairs of lists
    EXPECT_EQ(totalBindings(b), 0);
    std::filesystem::remove(path);
    std::filesystem::remove(good);
}
