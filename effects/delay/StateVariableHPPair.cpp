#include "effects/delay/StateVariableHPPair.h"

// The two-state form of StateVariableHP::process:
//   band' = (1 - f*damp)*band - f*low + f*x + (f*e + e)
//   low'  = f*(1 - f*damp)*band + (1 - f*f)*low + f*f*x + (f*f*e + f*e - e)
// with high = (x + e) - (damp*band + low) taken from the states before the update.
StateVariableHPPair::StateVariableHPPair(StateVariableHP& first, StateVariableHP& second, double e) noexcept
    : a(first), b(second) {
    using Output = StateVariableHP::Output;
    const Pair f = {first.f, second.f};
    const Pair one = {1.0, 1.0};
    offset = Pair{e, e};
    damp = Pair{first.damp, second.damp};
    bandFromBand = one - f * damp;
    bandFromLow = -f;
    bandFromInput = f;
    bandOffset = f * offset + offset;
    lowFromBand = f * bandFromBand;
    lowFromLow = one - f * f;
    lowFromInput = f * f;
    lowOffset = f * f * offset + f * offset - offset;
    takeLow = PairMask{first.output == Output::Low, second.output == Output::Low};
    takeBand = PairMask{first.output == Output::Band, second.output == Output::Band};
    band = Pair{first.band, second.band};
    low = Pair{first.low, second.low};
    high = Pair{first.high, second.high};
}

void StateVariableHPPair::finish() noexcept {
    a.band = band[0];
    a.low = low[0];
    a.high = high[0];
    b.band = band[1];
    b.low = low[1];
    b.high = high[1];
}
