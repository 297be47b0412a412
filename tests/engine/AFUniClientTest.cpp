#include "TestHost.h"

#include "effects/framework/AFEffect.h"
#include "engine/AFEventQueue.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

namespace {

// A slot on the pass-through catalogue effect with mix law 2 (dry stays 1, wet rises with the fade): its
// output on a constant 1.0 is exactly 1.0 until the slot starts and above 1.0 from its first running sample.
void prepareProbeSlot(AFUniClient& client, int slot, int quantise) {
    client.setSlotEffect(slot, 28); // pass-through while the Test effect has no sound of its own
    client.getSlot(slot).setMixLaw(2);
    client.getSlot(slot).setQuantiseMode(quantise);
}

int firstChangedSample(const std::vector<float>& signal, float from) {
    for (std::size_t i = 0; i < signal.size(); ++i)
        if (signal[i] != from) return static_cast<int>(i);
    return -1;
}

} // namespace

TEST(BlockLoop, QuantisedStartLandsOnTheGridToTheSample) {
    struct Case {
        float rate;
        double tempo;
        int quantise;
        double gridQuarters;
    };
    for (const Case c : {Case{44100, 120, 2, 0.5}, Case{48000, 120, 2, 0.5}, Case{96000, 120, 2, 0.5},
                         Case{44100, 133, 1, 0.25}, Case{48000, 97, 3, 1.0}, Case{96000, 174, 5, 4.0}}) {
        TestHost host(c.rate, 512);
        host.time.tempo = c.tempo;
        host.time.ppqPos = 1.3; // off the grid, far enough from 0 to be taken over by the resync
        prepareProbeSlot(host.client(), 0, c.quantise);
        host.client().setParameter(0, 0.5f);
        const double spb = c.rate * 60.0 / c.tempo;
        const double next = std::ceil(1.3 / c.gridQuarters) * c.gridQuarters;
        const int expected = static_cast<int>(std::lround((next - 1.3) * spb));
        auto left = constantSignal(expected + 2048, 1.0f);
        auto right = left;
        host.render(left.data(), right.data(), static_cast<int>(left.size()), 512);
        EXPECT_EQ(firstChangedSample(left, 1.0f), expected) << c.rate << " Hz, " << c.tempo << " BPM";
    }
}

TEST(BlockLoop, StoppedTransportStartsAtOnceAndStopFadesInTenMilliseconds) {
    for (float rate : {44100.0f, 48000.0f, 96000.0f}) {
        TestHost host(rate, 256);
        host.playing = false;
        prepareProbeSlot(host.client(), 0, 5);
        host.client().setParameter(0, 0.5f);
        auto left = constantSignal(4096, 1.0f);
        auto right = left;
        host.render(left.data(), right.data(), 4096, 256);
        EXPECT_EQ(firstChangedSample(left, 1.0f), 0);
        EXPECT_TRUE(host.client().getSlot(0).isRunning());

        // Stop: the fade is counted in ticks of 64 samples, each worth 64 / rate * 100 of the fade.
        host.client().setParameter(0, 0.0f);
        const float step = 64.0f / rate * 100.0f;
        int ticks = 0;
        for (float fade = 1.0f; fade >= 0.0f; fade -= step)
            ++ticks;
        auto tail = constantSignal(64 * (ticks + 4), 1.0f);
        auto tailR = tail;
        int endedAt = -1;
        for (int i = 0; i < static_cast<int>(tail.size()); i += 64) {
            host.processBlock(tail.data() + i, tailR.data() + i, 64);
            if (!host.client().getSlot(0).isRunning()) {
                endedAt = i;
                break;
            }
        }
        EXPECT_EQ(endedAt, 64 * ticks) << rate;
        EXPECT_NEAR(endedAt / rate, 0.010, 64.0 / rate + 1e-9);
    }
}

TEST(BlockLoop, ControlGateThresholdAndOffOnTop) {
    TestHost host;
    auto& client = host.client();
    client.setParameter(0, 0.01f);
    EXPECT_EQ(client.getSlot(0).getPending(), 0);
    client.setParameter(0, 0.0101f);
    EXPECT_EQ(client.getSlot(0).getPending(), 1);
    client.setParameter(0, 0.0f);
    EXPECT_EQ(client.getSlot(0).getPending(), 0); // waiting slot falls back to idle

    client.getOptions().offOnTop.store(true);
    client.setParameter(1, 0.99f);
    EXPECT_EQ(client.getSlot(1).getPending(), 0);
    client.setParameter(1, 0.98f);
    EXPECT_EQ(client.getSlot(1).getPending(), 1);
}

TEST(BlockLoop, MasterDryWetRampsOverSixtyFourSamplesAt44k) {
    TestHost host(44100.0f, 512);
    host.playing = false;
    prepareProbeSlot(host.client(), 0, 0);
    host.client().setParameter(0, 1.0f);
    auto warm = constantSignal(4096, 1.0f);
    auto warmR = warm;
    host.render(warm.data(), warmR.data(), 4096, 512); // slot fully faded in: output 1 + wet
    const float processed = warm.back();
    ASSERT_GT(processed, 1.5f);

    host.client().setParameter(9, 0.0f);
    auto block = constantSignal(512, 1.0f);
    auto blockR = block;
    host.processBlock(block.data(), blockR.data(), 512);
    float mix = 1.0f;
    const float step = -1.0f / 64.0f;
    for (int i = 0; i < 63; ++i) {
        mix += step;
        EXPECT_FLOAT_EQ(block[static_cast<std::size_t>(i)], (processed - 1.0f) * mix + 1.0f) << i;
    }
    for (int i = 64; i < 512; ++i)
        ASSERT_EQ(block[static_cast<std::size_t>(i)], 1.0f) << i;
    EXPECT_EQ(host.client().getMasterMix(), 0.0f);
}

TEST(BlockLoop, MasterDryWetInShortBlocksApproachesByHalves) {
    TestHost host(44100.0f, 32);
    host.playing = false;
    host.client().setParameter(9, 0.0f);
    auto block = constantSignal(32, 1.0f);
    auto blockR = block;
    float expected = 1.0f;
    for (int b = 0; b < 4; ++b) {
        host.processBlock(block.data(), blockR.data(), 32);
        const float step = (0.0f - expected) / 64.0f;
        for (int i = 0; i < 32; ++i)
            expected += step;
        EXPECT_FLOAT_EQ(host.client().getMasterMix(), expected);
    }
    EXPECT_GT(host.client().getMasterMix(), 0.0f);
}

TEST(BlockLoop, TransportTempoAndLoopWrap) {
    TestHost host(44100.0f, 512);
    auto& client = host.client();
    auto buf = constantSignal(512, 0.0f);
    auto bufR = buf;

    host.time.tempo = 30.0;
    host.processBlock(buf.data(), bufR.data(), 512);
    EXPECT_EQ(client.getSystemInfo().bpm, 45.0);
    host.time.tempo = 600.0;
    host.processBlock(buf.data(), bufR.data(), 512);
    EXPECT_EQ(client.getSystemInfo().bpm, 45.0);
    host.time.tempo = 120.0;
    host.processBlock(buf.data(), bufR.data(), 512); // the tempo is taken after the block's position step

    // Resync: a host jump of more than half a quarter moves the engine's position at once.
    host.time.ppqPos = 10.0;
    host.processBlock(buf.data(), bufR.data(), 512);
    EXPECT_NEAR(client.getPosition(), 10.0 + 512.0 / 22050.0, 1e-9);

    // A block crossing the loop end wraps to the cycle start at the first sub-block reaching the end.
    host.cycle = true;
    host.time.cycleStartPos = 4.0;
    host.time.cycleEndPos = 8.0;
    const double spb = 22050.0;
    host.time.ppqPos = 8.0 - 100.0 / spb; // 100 samples before the end
    host.processBlock(buf.data(), bufR.data(), 512);
    // Sub-blocks of 64: the second ends at 128 >= 100, wraps to 4.0, then 384 more samples follow.
    EXPECT_NEAR(client.getPosition(), 4.0 + 384.0 / spb, 1e-6);

    // Restarting 0.1 past the loop end: no resync, nominal rate for that block.
    host.time.ppqPos = 8.1;
    const double before = client.getPosition();
    host.processBlock(buf.data(), bufR.data(), 512);
    EXPECT_NEAR(client.getPosition(), before + 512.0 / spb, 1e-9);
}

TEST(BlockLoop, NegativePpqCountsAsStoppedAndSyncedHostStopDropsControls) {
    TestHost host(44100.0f, 512);
    auto& client = host.client();
    client.getOptions().syncedHostStop.store(true);
    auto buf = constantSignal(512, 0.0f);
    auto bufR = buf;
    host.time.ppqPos = 2.0;
    host.processBlock(buf.data(), bufR.data(), 512);
    client.setParameter(3, 0.7f);
    client.setParameter(8, 0.4f);
    host.time.ppqPos = -1.0;
    host.processBlock(buf.data(), bufR.data(), 512);
    EXPECT_EQ(client.getPosition(), 0.0);
    EXPECT_EQ(client.getSystemInfo().transportRunning, 0.0f);
    EXPECT_EQ(client.getParameter(3), 0.0f);
    EXPECT_EQ(client.getParameter(8), 0.0f);
}

TEST(BlockLoop, MissingTimeRecordKeepsPositionAndZeroFramesOnlyQueries) {
    TestHost host(44100.0f, 512);
    auto buf = constantSignal(512, 0.25f);
    auto bufR = buf;
    host.time.ppqPos = 3.0;
    host.processBlock(buf.data(), bufR.data(), 512);
    const double at = host.client().getPosition();
    host.provideTime = false;
    host.processBlock(buf.data(), bufR.data(), 512);
    EXPECT_EQ(host.client().getPosition(), at);
    host.processBlock(buf.data(), bufR.data(), 0);
    EXPECT_EQ(buf[0], 0.25f);
}

TEST(BlockLoop, NonFiniteInputBecomesZeroAndOutOfPlaceCopies) {
    TestHost host;
    std::vector<float> inL = {1.0f, std::numeric_limits<float>::quiet_NaN(),
                              std::numeric_limits<float>::infinity(), -0.5f};
    std::vector<float> inR = {-std::numeric_limits<float>::infinity(), 0.25f, 0.0f, 1.0f};
    std::vector<float> outL(4, 9.0f), outR(4, 9.0f);
    float* in[2] = {inL.data(), inR.data()};
    float* out[2] = {outL.data(), outR.data()};
    host.client().processReplacing(in, out, 4);
    EXPECT_EQ(outL, (std::vector<float>{1.0f, 0.0f, 0.0f, -0.5f}));
    EXPECT_EQ(outR, (std::vector<float>{0.0f, 0.25f, 0.0f, 1.0f}));
}

TEST(SignalFlow, DynamicOrderFollowsStartOrder) {
    TestHost host;
    host.playing = false;
    auto& client = host.client();
    auto buf = constantSignal(64, 0.0f);
    auto bufR = buf;
    for (int s : {5, 2, 7}) {
        client.setParameter(s, 0.5f);
        host.processBlock(buf.data(), bufR.data(), 64);
    }
    EXPECT_EQ(client.getProcessingOrder(0), 5);
    EXPECT_EQ(client.getProcessingOrder(1), 2);
    EXPECT_EQ(client.getProcessingOrder(2), 7);
    EXPECT_EQ(client.getProcessingOrder(3), -1);
    client.setParameter(2, 0.0f);
    for (int i = 0; i < 20; ++i)
        host.processBlock(buf.data(), bufR.data(), 64);
    EXPECT_EQ(client.getProcessingOrder(0), 5);
    EXPECT_EQ(client.getProcessingOrder(1), 7);
    EXPECT_EQ(client.getProcessingOrder(2), -1);

    // Switching the option restarts the running slots through the quantiser in a fresh order.
    client.setDynamicSignalFlow(true);
    EXPECT_EQ(client.getProcessingOrder(0), -1);
    host.processBlock(buf.data(), bufR.data(), 64);
    EXPECT_TRUE(client.getSlot(5).isRunning());
    EXPECT_TRUE(client.getSlot(7).isRunning());
}

TEST(SignalFlow, SwapKeepsARunningSlotRunning) {
    TestHost host;
    host.playing = false;
    auto& client = host.client();
    client.setParameter(0, 0.8f);
    auto buf = constantSignal(512, 0.1f);
    auto bufR = buf;
    host.processBlock(buf.data(), bufR.data(), 512);
    ASSERT_TRUE(client.getSlot(0).isRunning());
    client.setSlotEffect(0, 9);
    EXPECT_TRUE(client.getSlot(0).isRunning());
    EXPECT_EQ(client.getSlot(0).getEffectType(), 9);
    client.setSlotEffect(0, 6); // no class: ignored
    EXPECT_EQ(client.getSlot(0).getEffectType(), 9);
    EXPECT_EQ(client.getSlot(0).getQuantiseMode(), 2);
    EXPECT_FLOAT_EQ(client.getParameter(12 + 8), 0.8f); // Param3 Knob Amt override of the Stutter
}

TEST(SignalFlow, BypassAtHalfIsNotBypassed) {
    TestHost host;
    host.playing = false;
    auto& client = host.client();
    prepareProbeSlot(client, 0, 0);
    client.setParameter(12 + 5, 0.5f);
    client.setParameter(0, 1.0f);
    auto buf = constantSignal(2048, 1.0f);
    auto bufR = buf;
    host.render(buf.data(), bufR.data(), 2048, 512);
    EXPECT_GT(buf.back(), 1.5f);
    client.setParameter(12 + 5, 0.51f);
    host.render(buf.data(), bufR.data(), 2048, 512);
    auto again = constantSignal(512, 1.0f);
    auto againR = again;
    host.processBlock(again.data(), againR.data(), 512);
    EXPECT_EQ(again.back(), 1.0f);
}

TEST(ParameterMap, NamesDisplaysAndProperties) {
    TestHost host;
    auto& client = host.client();
    char text[kHostTextSize];
    const std::pair<int, const char*> names[] = {
        {0, "Control 1"},      {8, "Dictator"},           {9, "Dry/Wet"},
        {10, "Randomize"},     {11, "Reserved3"},         {12, "FX1 Parameter 1"},
        {27, "FX1 EF Relese"}, {36, "FX1 EF Release KA"}, {12 + 29 * 7 + 28, "FX8 Lfo2 Amount KA"},
        {244, "FX1 FX Gain"},  {251, "FX8 FX Gain"}};
    for (const auto& [index, name] : names) {
        client.getParameterName(index, text);
        EXPECT_STREQ(text, name);
        client.getParameterLabel(index, text);
        EXPECT_STREQ(text, name);
    }
    client.getParameterDisplay(9, text);
    EXPECT_STREQ(text, "100.00 ");
    AFParameterProperties props;
    EXPECT_FALSE(client.getParameterProperties(12 + 29 * 3 + 5, &props));
    EXPECT_EQ(props.flags, kVstParameterIsSwitch);
    EXPECT_STREQ(props.label, "FX4 Bypass");
    client.getParameterProperties(8, &props);
    EXPECT_EQ(props.reserved, 3);
    EXPECT_EQ(props.flags, 0);
    EXPECT_EQ(client.getParameter(9), 1.0f);
    EXPECT_EQ(client.getParameter(244), 0.5f);
    EXPECT_EQ(client.getParameter(12 + 6), 0.5f);
}

TEST(ParameterMap, GainKneeKnobAmountsAndInternalIndices) {
    TestHost host;
    auto& client = host.client();
    client.setParameter(244, 0.5f);
    EXPECT_EQ(client.getSlot(0).getGain(), 1.0f);
    client.setParameter(245, 0.0f);
    EXPECT_EQ(client.getSlot(1).getGain(), 0.5f);
    client.setParameter(246, 1.0f);
    EXPECT_EQ(client.getSlot(2).getGain(), 2.0f);

    client.setParameter(261 + 15 * 2 + 7, 0.75f);
    EXPECT_EQ(client.getModulationAmount(2, 7), 0.75f);
    client.setParameter(381, 0.9f); // guarded: touches nothing
    EXPECT_EQ(client.getModulationAmount(7, 14), 0.0f);
    client.setParameter(255, 0.3f);
    EXPECT_EQ(client.getParameter(255), 0.0f);
}

TEST(ParameterMap, RandomizeFiresOncePerRisingEdgeAndAutomationReachesTheHost) {
    TestHost host;
    auto& client = host.client();
    client.setParameter(10, 0.6f);
    EXPECT_TRUE(client.takeRandomizeRequest());
    client.setParameter(10, 0.6f);
    EXPECT_FALSE(client.takeRandomizeRequest());
    client.setParameter(10, 0.4f);
    client.setParameter(10, 0.6f);
    EXPECT_TRUE(client.takeRandomizeRequest());

    client.setParameterAutomated(3, 0.2f);
    EXPECT_EQ(host.automateCount, 1);
    EXPECT_EQ(host.lastAutomatedIndex, 3);
    client.setParameterAutomated(270, 0.2f);
    EXPECT_EQ(host.automateCount, 1); // internal indices never reach the host
}

TEST(PluginSurface, IdentityAndCanDo) {
    TestHost host;
    auto& client = host.client();
    EXPECT_EQ(client.canDo(""), -1);
    EXPECT_EQ(client.canDo("isDemoVersion"), 0);
    EXPECT_EQ(client.canDo("receiveVstTimeInfo"), 1);
    EXPECT_EQ(client.canDo("sendVstMidiEvent"), 1);
    EXPECT_EQ(client.getUniqueId(), AFIdentity::kUniqueId);
    EXPECT_EQ(client.getNumInputs(), 2);
    EXPECT_EQ(client.getNumOutputs(), 2);
    EXPECT_EQ(client.getNumParams(), 252);
    EXPECT_TRUE(client.programsAreChunks());
    EXPECT_TRUE(client.hasNoTail());
    EXPECT_EQ(client.getVendorVersion(), 1101);
    EXPECT_EQ(host.wantMidiCount, 1);
    EXPECT_FALSE(client.hostIsMaker());
    TestHost maker(44100.0f, 512, "Amber Forge");
    EXPECT_TRUE(maker.client().hostIsMaker());
}

TEST(Midi, ProgramChangeAndMidiOut) {
    TestHost host;
    auto& client = host.client();
    auto buf = constantSignal(64, 0.0f);
    auto bufR = buf;
    AFMidiEvent e[1];
    e[0].midiData[0] = 0xC0, e[0].midiData[1] = 5;
    AFEvents block{1, e};
    client.processEvents(&block);
    host.processBlock(buf.data(), bufR.data(), 64);
    EXPECT_FALSE(client.takeProgramChangeRequest()); // "ignorePrgChange" is on by default

    client.getOptions().ignorePrgChange.store(false);
    client.processEvents(&block);
    host.processBlock(buf.data(), bufR.data(), 64);
    EXPECT_TRUE(client.takeProgramChangeRequest());
    EXPECT_EQ(client.getSystemInfo().lastProgramChange, 5);

    client.getOptions().midiOut.store(true);
    client.setParameter(2, 1.0f);
    host.processBlock(buf.data(), bufR.data(), 64);
    ASSERT_EQ(host.midiOutCount, 1);
    EXPECT_EQ(host.midiOut[0].midiData[0], 0xB0);
    EXPECT_EQ(host.midiOut[0].midiData[1], 3);
    EXPECT_EQ(host.midiOut[0].midiData[2], 127);
    host.processBlock(buf.data(), bufR.data(), 64);
    EXPECT_EQ(host.midiOutCount, 1); // unchanged Controls send nothing
}

TEST(EventQueue, DeltaListKeepsRelativeDelays) {
    AFEventQueue queue;
    queue.insert(10, 203, 1, 0);
    queue.insert(30, 203, 2, 0);
    EXPECT_EQ(queue.headDelay(-1), 10);
    queue.front().delay -= 10;
    queue.popFront();
    EXPECT_EQ(queue.front().delay, 20);
    EXPECT_EQ(queue.front().data1, 2);

    // An insert before later records takes its remaining delay off every record after it.
    AFEventQueue q2;
    q2.insert(10, 203, 1, 0);
    q2.insert(50, 203, 2, 0); // stored as 40
    q2.insert(60, 203, 3, 0); // stored as 10
    q2.insert(20, 203, 4, 0); // 10 after the first; the 40 and the 10 behind it both lose 10
    int expected[][2] = {{1, 10}, {4, 10}, {2, 30}, {3, 0}};
    for (auto& [data, delay] : expected) {
        ASSERT_FALSE(q2.empty());
        EXPECT_EQ(q2.front().data1, data);
        EXPECT_EQ(q2.front().delay, delay);
        q2.popFront();
    }
    EXPECT_TRUE(q2.empty());
}

TEST(EventQueue, FullPoolDropsInsteadOfGrowing) {
    AFEventQueue queue;
    for (int i = 0; i < AFEventQueue::kCapacity; ++i)
        ASSERT_TRUE(queue.insert(i, 203, 0, 0));
    EXPECT_FALSE(queue.insert(5, 203, 0, 0));
    EXPECT_EQ(queue.size(), AFEventQueue::kCapacity);
}

// What a new slot of a type starts at beyond the generic defaults: rows by name, modulation depths, an option
// of the effect and the quantise mode.
TEST(SignalFlow, NewSlotTakesItsTypeDefaults) {
    TestHost host(44100, 512);
    AFUniClient& client = host.client();
    const auto row = [&](int slot, int k) {
        return client.getParameter(AFUniClient::kSlotBlockStart + KnobEngine::kParameterCount * slot + k);
    };
    client.setSlotEffect(0, 7); // Tonalizer
    EXPECT_EQ(row(0, KnobEngine::kParam1KnobAmt), 0.8f);
    EXPECT_EQ(row(0, KnobEngine::kParam1KnobAmt + 1), 0.79f);
    EXPECT_EQ(client.getSlot(0).getQuantiseMode(), 0);
    client.setSlotEffect(1, 27); // Flanger
    EXPECT_EQ(row(1, KnobEngine::kLfoAmount), 0.08f);
    EXPECT_EQ(client.getModulationAmount(1, 0), 1.0f);
    EXPECT_EQ(client.getModulationAmount(1, 1), 1.0f);
    EXPECT_EQ(client.getModulationAmount(1, 2), 0.0f);
    client.setSlotEffect(2, 24); // Filter
    EXPECT_EQ(client.slotEffect(2)->getOption(2), 1);
    EXPECT_EQ(row(2, KnobEngine::kParam1KnobAmt), 1.0f);
    client.setSlotEffect(3, 9); // Stutter
    EXPECT_EQ(client.getSlot(3).getQuantiseMode(), 2);
    EXPECT_EQ(row(3, KnobEngine::kParam1KnobAmt + 2), 0.8f);
}
