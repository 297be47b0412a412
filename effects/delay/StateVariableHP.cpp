#include "effects/delay/StateVariableHP.h"

StateVariableHP::StateVariableHP(double frequency, double damping, Output selected)
    : f(frequency), damp(damping), output(selected) {}

void StateVariableHP::reset() noexcept {
    low = 0.0;
    high = 0.0;
    band = 0.0;
}
