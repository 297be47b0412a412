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

    // Audio thread: clears the filter states, keeping the coefficients.
    void reset() noexcept;

    double low = 0.0;
    double high = 0.0;
    double band = 0.0;
    double f;
    double damp;
    Output output;
};
