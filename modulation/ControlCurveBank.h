#pragma once
class ControlCurveBank {
public:
    static constexpr int kCurveCount = 20;
    static void compute(float control, float threshold, float* out) noexcept {
        float f = control >= threshold ? (control - threshold) / (1 - threshold) : 0;
        for (int i = 0; i < 20; ++i)
            out[i] = f;
    }
};
