#include "BenchRig.h"
#include "effects/framework/EffectFactory.h"
#include "effects/loop/AFBeatStretcherKN.h"
#include "engine/KnobEngine.h"

#include <benchmark/benchmark.h>

#include <initializer_list>
#include <string_view>
#include <utility>

// Each effect in slot 1 with settings that keep it at full work, as a musician would play it.
namespace {

using namespace bench;

struct Setting {
    std::initializer_list<std::pair<int, float>> parameters;
    std::initializer_list<std::pair<int, int>> options;
};

int typeOf(std::string_view name) {
    for (int id = 0; id < EffectFactory::kTypeCount; ++id)
        if (name == EffectFactory::effectName(id)) return id;
    return 0;
}

void EffectInSlotBusy(benchmark::State& state, const char* name, Setting setting) {
    Rig rig(512);
    const int type = typeOf(name);
    rig.client->setSlotEffect(0, type);
    for (const auto& [option, value] : setting.options)
        rig.client->setSlotOption(0, option, value);
    for (const auto& [row, value] : setting.parameters)
        rig.client->setParameter(AFUniClient::kSlotBlockStart + KnobEngine::kParameter1 + row, value);
    rig.runSlot(0, type, false);
    state.SetLabel(name);
    runRig(state, rig);
    if (const auto* grains = dynamic_cast<const AFBeatStretcherKN*>(rig.client->slotEffect(0)))
        state.counters["voices"] = grains->activeVoices();
}

} // namespace

// "Scratch": the head slows, reverses and speeds up again the whole cycle.
BENCHMARK_CAPTURE(EffectInSlotBusy, Vinylizer, "Vinylizer",
                  Setting{{{0, 0.6f}, {1, 0.4f}, {3, 0.7f}}, {{1, 1}}});
// Both sides reversing with strong feedback and long fades.
BENCHMARK_CAPTURE(EffectInSlotBusy, ReverseDelay, "Reverse Delay",
                  Setting{{{0, 0.3f}, {1, 0.5f}, {2, 0.8f}, {3, 0.6f}}, {}});
// Crushed in the square-root domain with a dynamic sample-rate reduction.
BENCHMARK_CAPTURE(EffectInSlotBusy, Levelizer, "Levelizer",
                  Setting{{{0, 0.6f}, {1, 0.4f}, {2, 0.6f}, {3, 0.3f}}, {{2, 1}, {3, 1}}});
// Unfrozen, a large damped room that rings on.
BENCHMARK_CAPTURE(EffectInSlotBusy, FreezeVerb, "FreezeVerb",
                  Setting{{{0, 0.8f}, {1, 0.5f}, {2, 0.7f}, {3, 0.0f}}, {}});
// Longest grains at the shortest distance, pitched so that each lasts just under ten starts: all ten voices
// sound at once.
BENCHMARK_CAPTURE(EffectInSlotBusy, Granulizer, "Granulizer",
                  Setting{{{0, 0.3f}, {1, 1.0f}, {2, 0.0f}, {3, 0.33f}}, {{1, 1}}});
// Looping a beat of the input.
BENCHMARK_CAPTURE(EffectInSlotBusy, Looper, "Looper", Setting{{}, {}});
// A large hall with a long, bright tail and the input high-passed.
BENCHMARK_CAPTURE(EffectInSlotBusy, Reverb, "Reverb",
                  Setting{{{0, 0.8f}, {1, 0.7f}, {2, 0.6f}, {3, 0.7f}}, {{2, 2}}});
// Both channels through the oversampled drive at full gain, tone boosted, hard limiter.
BENCHMARK_CAPTURE(EffectInSlotBusy, GuitarAmp, "Guitar Amp",
                  Setting{{{0, 1.0f}, {1, 0.7f}, {2, 0.4f}, {3, 0.6f}}, {{0, 1}, {1, 2}}});
// The same amp in "Mono", its default: one amp for the summed input.
BENCHMARK_CAPTURE(EffectInSlotBusy, GuitarAmpMono, "Guitar Amp",
                  Setting{{{0, 1.0f}, {1, 0.7f}, {2, 0.4f}, {3, 0.6f}}, {{0, 0}, {1, 2}}});
// Each repeat an octave up ("Pitch" at the top): both shifters and their grain searches at work.
BENCHMARK_CAPTURE(EffectInSlotBusy, PitchLooper, "Pitch Looper", Setting{{{0, 0.3f}, {1, 1.0f}}, {}});
// Echoes a fifth apart with strong feedback, a resonant low-pass following the pitch in the loop.
BENCHMARK_CAPTURE(EffectInSlotBusy, PitchDelay, "Pitch Delay",
                  Setting{{{0, 0.4f}, {1, 0.5f}, {2, 0.8f}, {3, 0.7917f}}, {{3, 2}}});
// A wild pattern with both fills rolling eight repeats a step, slices pitched, over two bars.
BENCHMARK_CAPTURE(EffectInSlotBusy, Slicearranger, "Slicearranger",
                  Setting{{{0, 0.9f}, {1, 1.0f}, {2, 1.0f}, {3, 0.6f}}, {{0, 5}, {1, 1}, {2, 4}, {3, 1}}});
// Sixteenth repeats walking across the field, each pitched by its place, swung.
BENCHMARK_CAPTURE(EffectInSlotBusy, PanLooper, "Pan Looper",
                  Setting{{{0, 0.5f}, {1, 1.0f}, {2, 0.8f}, {3, 0.9f}}, {{3, 6}}});
// The pattern with the most taps at a sixteenth step, each tap fading, every third echo crossing.
BENCHMARK_CAPTURE(EffectInSlotBusy, PatternDelay, "Pattern Delay",
                  Setting{{{0, 0.5f}, {1, 0.93f}, {2, 1.0f}, {3, 0.9f}}, {{1, 1}, {3, 2}}});
// Taking the sound at once, each mode transposed a fifth up, the loop at a faster tape speed, the freeze
// drifting.
BENCHMARK_CAPTURE(EffectInSlotBusy, ReactorFreeze, "Reactor",
                  Setting{{{1, 0.3f}, {2, 0.7f}, {3, 0.8f}}, {{0, 1}, {2, 0}}});
BENCHMARK_CAPTURE(EffectInSlotBusy, ReactorReverb, "Reactor",
                  Setting{{{1, 0.3f}, {2, 0.3f}, {3, 0.8f}}, {{0, 1}, {2, 1}}});
BENCHMARK_CAPTURE(EffectInSlotBusy, ReactorLooper, "Reactor",
                  Setting{{{1, 0.5f}, {2, 0.7f}, {3, 0.8f}}, {{0, 1}, {2, 2}}});
// The same three modes with "Pitch" at the centre: no transposition on top of the playback.
BENCHMARK_CAPTURE(EffectInSlotBusy, ReactorFreezeCentre, "Reactor",
                  Setting{{{1, 0.3f}, {2, 0.7f}, {3, 0.5f}}, {{0, 1}, {2, 0}}});
BENCHMARK_CAPTURE(EffectInSlotBusy, ReactorReverbCentre, "Reactor",
                  Setting{{{1, 0.3f}, {2, 0.3f}, {3, 0.5f}}, {{0, 1}, {2, 1}}});
BENCHMARK_CAPTURE(EffectInSlotBusy, ReactorLooperCentre, "Reactor",
                  Setting{{{1, 0.5f}, {2, 0.7f}, {3, 0.5f}}, {{0, 1}, {2, 2}}});
