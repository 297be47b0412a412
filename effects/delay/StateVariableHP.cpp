#include "effects/delay/StateVariableHP.h"

StateVariableHP::StateVariableHP(double frequency, double damping, Output selected)
    : f(frequency), damp(damping), output(selected) {}

void StateVariableHP::reset() noexcept {
    low = 0.0;
    high = 0.0;
    band = 0.0;
}

// The two-state form of process:
//   band' = (1 - f*damp)*band - f*low + f*x + (f*e + e)
//   low'  = f*(1 - f*damp)*band + (1 - f*f)*low + f*f*x + (f*f*e + f*e - e)
// with the output high = (x + e) - (damp*band + low) taken from the states before the update.
struct StateVariableHP::Update {
    Update(StateVariableHP& filter, double e) noexcept
        : target(filter), offset(e), damp(filter.damp), bandFromBand(1.0 - filter.f * filter.damp),
          bandFromLow(-filter.f), bandFromInput(filter.f), bandOffset(filter.f * e + e),
          lowFromBand(filter.f * bandFromBand), lowFromLow(1.0 - filter.f * filter.f),
          lowFromInput(filter.f * filter.f), lowOffset(filter.f * filter.f * e + filter.f * e - e),
          band(filter.band), low(filter.low), high(filter.high) {}

    double step(double in) noexcept {
        high = (in + offset) - (damp * band + low);
        const double nextBand = (bandFromBand * band + bandFromLow * low) + (bandFromInput * in + bandOffset);
        const double nextLow = (lowFromBand * band + lowFromLow * low) + (lowFromInput * in + lowOffset);
        band = nextBand;
        low = nextLow;
        switch (target.output) {
        case Output::Low:
            return low;
        case Output::Band:
            return band;
        case Output::High:
            break;
        }
        return high;
    }

    void finish() noexcept {
        target.band = band;
        target.low = low;
        target.high = high;
    }

    StateVariableHP& target;
    const double offset, damp, bandFromBand, bandFromLow, bandFromInput, bandOffset;
    const double lowFromBand, lowFromLow, lowFromInput, lowOffset;
    double band, low, high;
};

void StateVariableHP::processBlock(const double* x, double* y, int count, double e) noexcept {
    Update update(*this, e);
    for (int n = 0; n < count; ++n)
        y[n] = update.step(x[n]);
    update.finish();
}

void StateVariableHP::processBlockPair(StateVariableHP& first, const double* x1, double* y1,
                                       StateVariableHP& second, const double* x2, double* y2, int count,
                                       double e) noexcept {
    Update a(first, e);
    Update b(second, e);
    for (int n = 0; n < count; ++n) {
        y1[n] = a.step(x1[n]);
        y2[n] = b.step(x2[n]);
    }
    a.finish();
    b.finish();
}
