#include "effects/delay/AFReverb3.h"

#include <cstdio>

AFReverb3::AFReverb3(uint32_t type, AFSystemInfo* system, uint32_t flag) : AFEffect(type, 4, system, flag) {
    setName("AFReverb3");
    defineParameter(0, "Size", 0.0f);
    defineParameter(1, "Damp", 0.0f);
    defineParameter(2, "Width", 0.0f);
    defineParameter(3, "Freeze", 0.0f);
}

void AFReverb3::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
