#pragma once

// The bank of main-control response curves. A slot evaluates all of them once per change of its main control
// and its modulation routing picks outputs by index; the menu word of an index is stored with it.
class ControlCurveBank {
public:
    static constexpr int kCurveCount = 20;

    // Any thread: maps the control through the threshold and writes all kCurveCount curve values to out.
    static void compute(float control, float threshold, float* out) noexcept;
    // Any thread: the menu word of a curve, "" outside the bank.
    static const char* curveName(int index) noexcept;
};
