#pragma once

// Chamberlin state-variable filter in doubles. The small offset e fed into every state keeps the
// recursion out of denormal territory on silent input.
class StateVariableHP {
public:
    enum class Output { Low, High, Band };

    // Any thread, before use.
    StateVariableHP(double frequency, double damping, Output output);

    // Audio thread: one sample through the filter, returning the selected state.
    double process(double x, double e) noexcept {
        high = x - damp * band - low + e;
        band = high * f + band + e;
        low = band * f - e + low;
        switch (output) {
        case Output::Low:
            return low;
        case Output::Band:
            return band;
        case Output::High:
            break;
        }
        return high;
    }

    // Two doubles, one per filter of a pair.
    using Pair = double __attribute__((vector_size(16)));
    using PairMask = long long __attribute__((vector_size(16)));

    // Audio thread: a run of samples through two filters side by side, in lanes. It is the filter of process
    // rewritten as a two-state update, so that each sample's recursion is one multiply-add deep instead of
    // four. It works on copies of the states and hands them back on finish.
    class PairRun {
    public:
        PairRun(StateVariableHP& first, StateVariableHP& second, double e) noexcept;
        Pair step(Pair x) noexcept {
            high = (x + offset) - (damp * band + low);
            const Pair nextBand =
                (bandFromBand * band + bandFromLow * low) + (bandFromInput * x + bandOffset);
            const Pair nextLow = (lowFromBand * band + lowFromLow * low) + (lowFromInput * x + lowOffset);
            band = nextBand;
            low = nextLow;
            return takeLow ? low : (takeBand ? band : high);
        }
        void finish() noexcept;

    private:
        StateVariableHP& a;
        StateVariableHP& b;
        Pair offset, damp;
        Pair bandFromBand, bandFromLow, bandFromInput, bandOffset;
        Pair lowFromBand, lowFromLow, lowFromInput, lowOffset;
        PairMask takeLow, takeBand;
        Pair band, low, high;
    };

    // Audio thread: clears the filter states, keeping the coefficients.
    void reset() noexcept;

    double low = 0.0;
    double high = 0.0;
    double band = 0.0;
    double f;
    double damp;
    Output output;
};
