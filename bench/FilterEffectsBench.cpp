#include "BenchRig.h"
#include "effects/framework/AFEffect.h"

#include <benchmark/benchmark.h>

// The filter effects in slot 0 of the engine, each in a busy setting a player would use, at a 512-sample host
// block. The figures include the slot's own cost.
namespace {

using namespace bench;

constexpr int kSpectralizer = 5;
constexpr int kTonalizer = 7;
constexpr int kRingmodulator = 8;
constexpr int kPhaser = 14;
constexpr int kVocodizer = 19;

// Host index of knob `row` of slot 0, and of the modulation amount `k` of slot 0 (LFO 1 on knobs 1-4 first).
constexpr int kSlotKnob = 12;
constexpr int kSlotAmount = 261;

void knob(Rig& rig, int row, float value) {
    rig.client->setParameter(kSlotKnob + row, value);
}

void option(Rig& rig, int group, int32_t value) {
    rig.client->getSlot(0).getEffect()->setOption(group, value);
}

// "Waveform" swept by LFO 1, so the oscillator morphs at every control tick.
void Ringmodulator(benchmark::State& state) {
    Rig rig(512);
    rig.runSlot(0, kRingmodulator, false);
    knob(rig, 0, 0.6f);
    knob(rig, 1, 0.3f);
    knob(rig, 2, 0.7f);
    knob(rig, 3, 0.3f);
    rig.client->setParameter(kSlotAmount + 3, 0.4f);
    runRig(state, rig);
}

// "Sweep" with "Hold" open, both sides on scale grids so the delays glide.
void Tonalizer(benchmark::State& state) {
    Rig rig(512);
    rig.runSlot(0, kTonalizer, false);
    option(rig, 0, 2);
    option(rig, 1, 4);
    option(rig, 3, 1);
    knob(rig, 0, 0.45f);
    knob(rig, 1, 0.62f);
    knob(rig, 2, 0.8f);
    knob(rig, 3, 0.9f);
    runRig(state, rig);
}

// All 32 bands, "Pan2", resonant; the taps rest.
void Spectralizer(benchmark::State& state) {
    Rig rig(512);
    rig.runSlot(0, kSpectralizer, false);
    option(rig, 2, 2);
    knob(rig, 0, 0.5f);
    knob(rig, 1, 0.6f);
    knob(rig, 2, 0.8f);
    knob(rig, 3, 1.0f);
    runRig(state, rig);
}

// As Spectralizer, with "Delay Time" swept by LFO 1 so every tap moves.
void SpectralizerMoving(benchmark::State& state) {
    Rig rig(512);
    rig.runSlot(0, kSpectralizer, false);
    option(rig, 2, 2);
    knob(rig, 0, 0.5f);
    knob(rig, 1, 0.6f);
    knob(rig, 2, 0.8f);
    knob(rig, 3, 1.0f);
    rig.client->setParameter(kSlotAmount + 0, 0.4f);
    runRig(state, rig);
}

// "Saw2": 32 detuned oscillators in all 32 bands.
void Vocodizer(benchmark::State& state) {
    Rig rig(512);
    rig.runSlot(0, kVocodizer, false);
    option(rig, 0, 4);
    knob(rig, 0, 0.55f);
    knob(rig, 1, 0.4f);
    knob(rig, 2, 0.8f);
    knob(rig, 3, 0.0f);
    runRig(state, rig);
}

// "Phase" swept by LFO 1 with strong feedback, at the stage count the argument gives (3..8).
void Phaser(benchmark::State& state) {
    Rig rig(512);
    rig.runSlot(0, kPhaser, false);
    option(rig, 0, static_cast<int32_t>(state.range(0)) - 3);
    knob(rig, 0, 0.4f);
    knob(rig, 1, 0.8f);
    knob(rig, 2, 0.7f);
    knob(rig, 3, 0.6f);
    rig.client->setParameter(kSlotAmount + 0, 0.4f);
    runRig(state, rig);
}

} // namespace

BENCHMARK(Ringmodulator);
BENCHMARK(Phaser)->DenseRange(3, 8);
BENCHMARK(Tonalizer);
BENCHMARK(Spectralizer);
BENCHMARK(SpectralizerMoving);
BENCHMARK(Vocodizer);

namespace {

constexpr int kFilterPattern = 25;

// "Bristleman" locked to the host ("Synced", or "SyncedX" with the right side mirrored on its own filter),
// "Smart" low- and high-pass, a fast wide sweep that keeps the coefficients gliding.
void FilterPattern(benchmark::State& state) {
    Rig rig(512);
    rig.runSlot(0, kFilterPattern, false);
    option(rig, 0, 10);
    option(rig, 2, static_cast<int32_t>(state.range(0)));
    option(rig, 3, 2);
    knob(rig, 1, 0.7f);
    knob(rig, 2, 0.8f);
    knob(rig, 3, 0.6f);
    runRig(state, rig);
}

} // namespace

BENCHMARK(FilterPattern)->Arg(2)->Arg(3);
