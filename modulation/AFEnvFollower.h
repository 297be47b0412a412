#pragma once

#include "effects/framework/AFEffect.h"

#include <array>

// Level follower of the audio that enters a slot, the slot's third modulation source. It reads the left
// channel only and never alters the audio. Everything runs on the audio thread.
class AFEnvFollower : public AFEffect {
public:
    // Any thread with the audio held off; systemInfo must outlive the follower.
    explicit AFEnvFollower(AFSystemInfo* systemInfo);

    // Audio thread: runs the detector over every fourth sample of left; right is ignored.
    void analyze(float* left, float* right, int count) noexcept override;
    // Audio thread: the same detection as analyze; the buffers are left untouched.
    void process(float* left, float* right, int count) noexcept override;
    // Audio thread at a control tick, or with the audio held off. 0 = attack, 1 = release.
    void setParameter(int index, float value) override;
    // GUI thread: 0 and 1 the time to 1%, 2 a percentage.
    void formatParameter(int index, float value, char* text) override;
    // Audio thread: the level is kept across a slot restart and decays on its own.
    virtual bool restart() { return true; }

    // Audio thread, once per control tick.
    double value() const noexcept { return level; }
    // Audio thread; read-outs of the coefficients.
    double getAttackCoefficient() const noexcept { return coefficients[0]; }
    double getReleaseCoefficient() const noexcept { return coefficients[1]; }

private:
    void detect(const float* left, int count) noexcept;

    double level = 0.0;
    std::array<double, 2> coefficients{}; // attack, release
    // Inputs of the last coefficient calculation, so an unchanged value skips the power function.
    std::array<float, 2> coefficientValues{};
    std::array<int, 2> coefficientRates{};
};
