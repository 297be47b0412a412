#include "TestHost.h"

#include "engine/AFMidiBindings.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <filesystem>
#include <memory>
#include <thread>
#include <vector>

namespace {

constexpr int kReserved = 11; // stored, no effect: a clean probe for bound values

// A host with an empty map; the map the client saves on destruction is removed again, so no other test
// inherits it.
class MidiControl : public ::testing::Test {
protected:
    void SetUp() override {
        host = std::make_unique<TestHost>();
        client().getMidiBindings().clear();
    }
    void TearDown() override {
        const std::string path = client().defaultMidiMapPath();
        host.reset();
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
    }

    AFUniClient& client() { return host->client(); }

    void send(int status, int data1, int data2, int delta = 0) {
        AFMidiEvent event;
        event.deltaFrames = delta;
        event.midiData[0] = static_cast<uint8_t>(status);
        event.midiData[1] = static_cast<uint8_t>(data1);
        event.midiData[2] = static_cast<uint8_t>(data2);
        AFEvents block{1, &event};
        client().processEvents(&block);
    }

    void run(int frames) {
        std::vector<float> left(static_cast<std::size_t>(frames), 0.0f);
        std::vector<float> right = left;
        host->processBlock(left.data(), right.data(), frames);
    }

    std::unique_ptr<TestHost> host;
};

} // namespace

TEST_F(MidiControl, NotesAndControllersScaleAsTheyShould) {
    auto& b = client().getMidiBindings();
    b.addNoteBinding(60, kReserved);
    b.addControllerBinding(7, 9);
    b.addControllerBinding(7, kReserved + 1 + 12); // a slot row too: one source, several parameters

    send(0x90, 60, 127);
    run(32);
    EXPECT_EQ(client().getParameter(kReserved), 0.9921875f); // 127/128: a note never reaches 1.0
    send(0x80, 60, 99);
    run(32);
    EXPECT_EQ(client().getParameter(kReserved), 0.0f);
    send(0x90, 60, 64);
    run(32);
    EXPECT_EQ(client().getParameter(kReserved), 0.5f);
    send(0x90, 60, 0); // velocity 0 is a note-off
    run(32);
    EXPECT_EQ(client().getParameter(kReserved), 0.0f);

    send(0xB0, 7, 127);
    run(32);
    EXPECT_NEAR(client().getParameter(9), 1.0f, 1e-6f);
    EXPECT_NEAR(client().getParameter(24), 1.0f, 1e-6f);
    EXPECT_NEAR(client().getControllerValue(7), 1.0f, 1e-6f);
    send(0xB0, 7, 1);
    run(32);
    EXPECT_FLOAT_EQ(client().getParameter(9), 1.0f / 127.0f);
    // A binding is a plain parameter write: the host never hears of it as automation.
    EXPECT_EQ(host->automateCount, 0);
}

TEST_F(MidiControl, OnlyController123OnChannel0IsAllNotesOff) {
    client().getMidiBindings().addControllerBinding(123, kReserved);
    client().getMidiBindings().addControllerBinding(7, 9);
    send(0xB5, 7, 0); // channel 5 works like channel 0
    run(16);
    EXPECT_EQ(client().getParameter(9), 0.0f);

    send(0xB0, 123, 127);
    run(16);
    EXPECT_EQ(client().getParameter(kReserved), 0.0f);
    EXPECT_EQ(client().getControllerValue(123), 0.0f);
    send(0xB3, 123, 127);
    run(16);
    EXPECT_NEAR(client().getParameter(kReserved), 1.0f, 1e-6f);
}

TEST_F(MidiControl, LearnTakesTheNextSuitableEvent) {
    client().setLearnTarget(12);
    send(0x90, 60, 100); // notes only learn 0..8
    run(16);
    EXPECT_EQ(client().getLearnTarget(), 12);
    EXPECT_EQ(client().getMidiBindings().notes(60).size(), 0);
    send(0xB0, 20, 127);
    run(16);
    EXPECT_EQ(client().getLearnTarget(), -1);
    EXPECT_EQ(client().getMidiBindings().controllerFor(12), 20);
    EXPECT_NEAR(client().getParameter(12), 1.0f, 1e-6f); // the learning event already moves it

    client().setLearnTarget(AFUniClient::kDictator);
    send(0x90, 48, 64);
    run(16);
    EXPECT_TRUE(client().getMidiBindings().notes(48).contains(8));
    EXPECT_EQ(client().getParameter(8), 0.5f);

    client().setLearnTarget(300);
    send(0xD0, 127, 0); // aftertouch: the pressure is the first data byte
    run(16);
    EXPECT_TRUE(client().getMidiBindings().aftertouch().contains(300));
    EXPECT_NEAR(client().getModulationAmount(2, 9), 1.0f, 1e-6f);
}

TEST_F(MidiControl, PitchBendSpansExactlyMinusOneToOne) {
    const int cases[3][2] = {{64, 0}, {127, 1}, {0, -1}};
    for (const auto& c : cases) {
        send(0xE0, 0, c[0]);
        run(8);
        EXPECT_EQ(client().getSystemInfo().pitchBend, static_cast<float>(c[1])) << c[0];
    }
}

TEST_F(MidiControl, AControllerLandsOnItsSample) {
    client().getMidiBindings().addControllerBinding(1, kReserved);
    send(0xB0, 1, 127, 100);
    run(99);
    EXPECT_EQ(client().getParameter(kReserved), 0.0f);
    run(1);
    EXPECT_NEAR(client().getParameter(kReserved), 1.0f, 1e-6f);

    // In one long block it is handled before the block ends, after the sub-blocks up to sample 100.
    send(0xB0, 1, 0, 100);
    send(0xB0, 1, 64, 300);
    run(299);
    EXPECT_EQ(client().getParameter(kReserved), 0.0f);
    run(1);
    EXPECT_FLOAT_EQ(client().getParameter(kReserved), 64.0f / 127.0f);

    // A delay of 0 is handled before the first sub-block.
    send(0xB0, 1, 127, 0);
    run(0);
    EXPECT_NEAR(client().getParameter(kReserved), 1.0f, 1e-6f);
}

TEST_F(MidiControl, InternalIndicesArePlayable) {
    auto& b = client().getMidiBindings();
    b.addControllerBinding(20, 261 + 15 * 2 + 4); // slot 3, fifth amount
    b.addControllerBinding(21, 2000000);          // randomise every Dictator row
    send(0xB0, 20, 127);
    run(16);
    EXPECT_NEAR(client().getModulationAmount(2, 4), 1.0f, 1e-6f);

    auto setNodes = [&] {
        int n = 0;
        for (int r = 0; r < 8; ++r)
            for (int i = 0; i < 17; ++i)
                n += client().getDictator().node(r, i).set ? 1 : 0;
        return n;
    };
    for (int r = 0; r < 8; ++r)
        client().getDictator().clear(r);
    send(0xB0, 21, 127);
    run(16);
    EXPECT_GT(setNodes(), 0);
    EXPECT_EQ(host->automateCount, 0);
}

TEST_F(MidiControl, EditsWhileTheAudioRuns) {
    auto& b = client().getMidiBindings();
    std::atomic<bool> done{false};
    std::atomic<int> failures{0};
    std::thread editor([&] {
        for (int i = 0; i < 300; ++i) {
            b.addControllerBinding(7, kReserved);
            b.addControllerBinding(7, 9);
            if (!b.removeParameter(kReserved)) failures.fetch_add(1);
            b.addNoteBinding(60, 3);
            if (!b.removeParameter(3)) failures.fetch_add(1);
        }
        done.store(true);
    });
    for (int block = 0; !done.load() || block < 300; ++block) {
        send(0xB0, 7, block % 2 == 0 ? 127 : 0, block % 64);
        send(0x90, 60, 100, 5);
        run(64);
        const float v = client().getParameter(kReserved);
        EXPECT_TRUE(v == 0.0f || std::abs(v - 1.0f) < 1e-6f);
    }
    editor.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_FALSE(b.controllers(7).contains(kReserved));
    // The audio is not left blocked: once the events held up by the edits have played, a bound controller
    // still plays.
    run(64 * 300);
    send(0xB0, 7, 0);
    run(16);
    EXPECT_EQ(client().getParameter(9), 0.0f);
}

TEST_F(MidiControl, StateLoadsRespectTheRecallLock) {
    auto& b = client().getMidiBindings();
    b.addControllerBinding(7, 0);
    b.addNoteBinding(60, 1);
    AFMidiBindings loaded;
    loaded.addControllerBinding(9, 2);

    ASSERT_TRUE(client().getOptions().ccRecallLock.load());
    client().applyLoadedMidiMap(loaded, false);
    EXPECT_TRUE(b.controllers(7).contains(0));
    EXPECT_EQ(b.controllers(9).size(), 0);

    client().applyLoadedMidiMap(loaded, true);
    EXPECT_EQ(b.controllers(7).size(), 0);
    EXPECT_TRUE(b.controllers(9).contains(2));
    EXPECT_TRUE(b.notes(60).contains(1)); // a state brings controller pairs only

    client().getOptions().ccRecallLock.store(false);
    AFMidiBindings empty;
    client().applyLoadedMidiMap(empty, false);
    EXPECT_EQ(b.controllers(9).size(), 0);
}

TEST_F(MidiControl, TheDefaultMapOutlivesTheInstance) {
    client().getMidiBindings().addControllerBinding(74, 4);
    client().getMidiBindings().addNoteBinding(36, 8);
    const std::string path = client().defaultMidiMapPath();
    EXPECT_NE(path.find("Orvanto/Content/Midi Maps/Default.afm"), std::string::npos);
    host.reset();
    ASSERT_TRUE(std::filesystem::exists(path));
    host = std::make_unique<TestHost>();
    EXPECT_TRUE(client().getMidiBindings().controllers(74).contains(4));
    EXPECT_TRUE(client().getMidiBindings().notes(36).contains(8));
}
