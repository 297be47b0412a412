#include "tools/RenderHost.h"

#include "host/AFPluginBase.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace {

// The least plug-in that can ask its host things.
class Probe : public AFPluginBase {
public:
    explicit Probe(RenderHost* host) : AFPluginBase(&RenderHost::callback, host, 1, 1) {}
    void processReplacing(float**, float**, int32_t) override {}
    void setParameter(int32_t, float) override {}
    float getParameter(int32_t) override { return 0.0f; }
    void getParameterLabel(int32_t, char* text) override { text[0] = '\0'; }
    void getParameterDisplay(int32_t, char* text) override { text[0] = '\0'; }
    void getParameterName(int32_t, char* text) override { text[0] = '\0'; }
    int32_t getChunk(void**, bool) override { return 0; }
    int32_t setChunk(void*, int32_t, bool) override { return 0; }

    using AFPluginBase::callHost;
    using AFPluginBase::getHostVendorString;
    using AFPluginBase::getTimeInfo;
};

RenderHost::Transport transport(double rate, double tempo) {
    RenderHost::Transport t;
    t.sampleRate = rate;
    t.tempo = tempo;
    return t;
}

} // namespace

TEST(RenderHost, AnswersThePluginsCalls) {
    RenderHost host(transport(44100.0, 120.0));
    Probe probe(&host);
    char text[kHostTextSize];
    EXPECT_TRUE(probe.getHostVendorString(text));
    EXPECT_STREQ(text, "Orvanto Render");
    EXPECT_NE(std::strcmp(text, AFIdentity::kVendor),
              0); // not the maker's own host: the default preset loads
    EXPECT_EQ(probe.callHost(audioMasterGetProductString, 0, 0, text), 1);
    EXPECT_STREQ(text, "orvanto-render");
    EXPECT_EQ(probe.callHost(audioMasterVersion), 2);
    EXPECT_EQ(probe.callHost(audioMasterGetSampleRate), 44100);
    EXPECT_EQ(probe.callHost(audioMasterWantMidi, 0, 1), 1);
    EXPECT_EQ(probe.callHost(audioMasterCanDo, 0, 0, const_cast<char*>("sendVstTimeInfo")), 1);
    EXPECT_EQ(probe.callHost(audioMasterCanDo, 0, 0, const_cast<char*>("sizeWindow")), -1);
    EXPECT_EQ(probe.callHost(audioMasterCanDo), -1);
    EXPECT_EQ(probe.callHost(audioMasterAutomate, 3, 0, nullptr, 0.5f), 0);
    EXPECT_EQ(probe.callHost(audioMasterBeginEdit, 3), 0);
    AFMidiEvent events[3];
    AFEvents block{3, events};
    EXPECT_EQ(probe.callHost(audioMasterProcessEvents, 0, 0, &block), 1);
    EXPECT_EQ(host.midiEventsReceived(), 3);
    EXPECT_EQ(probe.getTimeInfo(7682), &host.timeInfo());
    EXPECT_EQ(host.timeQueries(), 1);
    EXPECT_EQ(RenderHost::callback(nullptr, audioMasterVersion, 0, 0, nullptr, 0.0f), 2);
    EXPECT_EQ(RenderHost::callback(nullptr, audioMasterGetTime, 0, 0, nullptr, 0.0f), 0);
}

TEST(RenderHost, PlayingTransportAdvancesByBlockLength) {
    RenderHost host(transport(48000.0, 120.0)); // 24000 samples per beat
    const AFTimeInfo& t = host.timeInfo();
    EXPECT_EQ(t.ppqPos, 0.0);
    EXPECT_EQ(t.tempo, 120.0);
    EXPECT_EQ(t.flags & (kVstTransportPlaying | kVstPpqPosValid | kVstTempoValid),
              kVstTransportPlaying | kVstPpqPosValid | kVstTempoValid);
    EXPECT_EQ(t.flags & (kVstTransportCycleActive | kVstCyclePosValid), 0);
    for (int block = 1; block <= 1000; ++block) {
        host.advance(500);
        ASSERT_DOUBLE_EQ(t.ppqPos, block * 500.0 / 24000.0) << block;
    }
    EXPECT_EQ(t.barStartPos, 20.0); // ppq 20.83 lies in the bar from 20
    EXPECT_DOUBLE_EQ(t.samplePos, 500000.0);
}

TEST(RenderHost, StoppedTransportStaysAtZero) {
    auto tr = transport(48000.0, 90.0);
    tr.playing = false;
    RenderHost host(tr);
    for (int i = 0; i < 10; ++i)
        host.advance(512);
    EXPECT_EQ(host.timeInfo().ppqPos, 0.0);
    EXPECT_EQ(host.timeInfo().flags & kVstTransportPlaying, 0);
    EXPECT_NE(host.timeInfo().flags & kVstTempoValid, 0);
}

TEST(RenderHost, CycleWrapsAtItsEndKeepingTheOvershoot) {
    auto tr = transport(48000.0, 120.0);
    tr.cycle = true;
    tr.cycleStart = 1.0;
    tr.cycleEnd = 2.0;
    RenderHost host(tr);
    const AFTimeInfo& t = host.timeInfo();
    EXPECT_EQ(t.flags & (kVstTransportCycleActive | kVstCyclePosValid),
              kVstTransportCycleActive | kVstCyclePosValid);
    EXPECT_EQ(t.cycleStartPos, 1.0);
    EXPECT_EQ(t.cycleEndPos, 2.0);
    // Independent reference: the linear playhead folded into the cycle once it has reached the end.
    for (int block = 1; block <= 40; ++block) {
        host.advance(5000);
        const double linear = block * 5000.0 / 24000.0;
        const double expected = linear < 2.0 ? linear : 1.0 + std::fmod(linear - 2.0, 1.0);
        ASSERT_NEAR(t.ppqPos, expected, 1e-12) << block;
        ASSERT_LT(t.ppqPos, 2.0);
    }
    // A block ending exactly on the cycle end lands exactly on the cycle start.
    RenderHost exact(tr);
    for (int block = 0; block < 4; ++block)
        exact.advance(12000);
    EXPECT_EQ(exact.timeInfo().ppqPos, 1.0);
}

TEST(RenderHost, PlayheadBeforeTheCycleRunsIntoIt) {
    auto tr = transport(44100.0, 100.0);
    tr.cycle = true;
    tr.cycleStart = 8.0;
    tr.cycleEnd = 12.0;
    RenderHost host(tr);
    const double spb = 44100.0 * 60.0 / 100.0;
    host.advance(static_cast<int32_t>(7.5 * spb));
    EXPECT_NEAR(host.timeInfo().ppqPos, 7.5, 1e-9); // before the cycle: plays on untouched
    host.advance(static_cast<int32_t>(5.0 * spb));
    EXPECT_NEAR(host.timeInfo().ppqPos, 8.5, 1e-9);
}
