#pragma once

// A value kept inside 0..1, NaN read as 0: modulation, automation and stored files may push a knob past its
// ends. Any thread.
inline constexpr float clampUnit(float v) noexcept {
    return v > 0.0f ? (v < 1.0f ? v : 1.0f) : 0.0f;
}
