#include "BenchRig.h"
#include "effects/framework/EffectFactory.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

namespace {

using namespace bench;

void EngineIdle(benchmark::State& state) {
    Rig rig(static_cast<int>(state.range(0)));
    runRig(state, rig);
}

void OneStutterModulated(benchmark::State& state) {
    Rig rig(static_cast<int>(state.range(0)));
    rig.runSlot(0, 9, true);
    runRig(state, rig);
}

void EightStutters(benchmark::State& state) {
    Rig rig(static_cast<int>(state.range(0)));
    for (int s = 0; s < 8; ++s)
        rig.runSlot(s, 9, true);
    runRig(state, rig);
}

void EffectInSlot(benchmark::State& state) {
    Rig rig(512);
    rig.runSlot(0, static_cast<int>(state.range(0)), false);
    state.SetLabel(EffectFactory::effectName(static_cast<int>(state.range(0))));
    runRig(state, rig);
}

void blockSizes(benchmark::internal::Benchmark* b) {
    for (int n : {1, 16, 64, 512, 4096})
        b->Arg(n);
}

void effectIds(benchmark::internal::Benchmark* b) {
    for (int id = 0; id < EffectFactory::kTypeCount; ++id)
        if (EffectFactory::hasSound(id)) b->Arg(id);
}

} // namespace

BENCHMARK(EngineIdle)->Apply(blockSizes);
BENCHMARK(OneStutterModulated)->Apply(blockSizes);
BENCHMARK(EightStutters)->Apply(blockSizes);
BENCHMARK(EffectInSlot)->Apply(effectIds);
