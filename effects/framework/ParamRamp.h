#pragma once

class AFSystemInfo;

// Linear smoother: the target is set at control rate, the value advances once per sample and covers the whole
// difference in one control interval.
class ParamRamp {
public:
    explicit ParamRamp(const AFSystemInfo* system) noexcept : systemInfo(system) {}

    // Audio or control thread of the owner.
    void setTarget(double value) noexcept { target = value; }
    void jump() noexcept {
        current = target;
        increment = 0.0;
    }
    // Owner's controlTick.
    void controlTick() noexcept;
    // Once per sample; no clamp, the next controlTick corrects the slope.
    double advance() noexcept { return current += increment; }

    double getTarget() const noexcept { return target; }
    double getCurrent() const noexcept { return current; }
    double getIncrement() const noexcept { return increment; }

    // The double nearest the float 1e-8: a smaller step ends the ramp.
    static constexpr double kSnap = 9.99999993922529e-09;

private:
    const AFSystemInfo* systemInfo;
    double target = 0.0;
    double current = 0.0;
    double increment = 0.0;
};
