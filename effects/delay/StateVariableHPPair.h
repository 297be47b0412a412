#pragma once

#include "effects/delay/StateVariableHP.h"

// Two StateVariableHP filters run side by side in the two lanes of a vector, for a run of samples. It is the
// filter of StateVariableHP::process rewritten as a two-state update, so that each sample's recursion is one
// multiply-add deep instead of four. It works on copies of the states and hands them back on finish.
class StateVariableHPPair {
public:
    using Pair = double __attribute__((vector_size(16)));
    using PairMask = long long __attribute__((vector_size(16)));

    // Audio thread, at the start of a run.
    StateVariableHPPair(StateVariableHP& first, StateVariableHP& second, double e) noexcept;

    // Audio thread: one sample for each filter, returning each filter's selected state.
    Pair step(Pair x) noexcept {
        update(x);
        return takeLow ? low : (takeBand ? band : high);
    }

    // Audio thread: as step, for two filters that both give their high-pass output.
    Pair stepHigh(Pair x) noexcept {
        update(x);
        return high;
    }

    // Audio thread, at the end of a run: writes the states back into both filters.
    void finish() noexcept;

private:
    void update(Pair x) noexcept {
        high = (x + offset) - (damp * band + low);
        const Pair nextBand = (bandFromBand * band + bandFromLow * low) + (bandFromInput * x + bandOffset);
        const Pair nextLow = (lowFromBand * band + lowFromLow * low) + (lowFromInput * x + lowOffset);
        band = nextBand;
        low = nextLow;
    }

    StateVariableHP& a;
    StateVariableHP& b;
    Pair offset, damp;
    Pair bandFromBand, bandFromLow, bandFromInput, bandOffset;
    Pair lowFromBand, lowFromLow, lowFromInput, lowOffset;
    PairMask takeLow, takeBand;
    Pair band, low, high;
};
