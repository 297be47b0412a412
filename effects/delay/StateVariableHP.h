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

    // Audio thread: a run of samples through the filter. The same filter as process, rewritten as a
    // two-state update so that each sample's recursion is one multiply-add deep instead of four.
    void processBlock(const double* x, double* y, int count, double e) noexcept;
    // Audio thread: processBlock for two filters at once, so that their recursions overlap.
    static void processBlockPair(StateVariableHP& first, const double* x1, double* y1,
                                 StateVariableHP& second, const double* x2, double* y2, int count,
                                 double e) noexcept;

    // Audio thread: clears the filter states, keeping the coefficients.
    void reset() noexcept;

private:
    struct Update;

public:
    double low = 0.0;
    double high = 0.0;
    double band = 0.0;
    double f;
    double damp;
    Output output;
};
