#pragma once

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

// Flushes denormals to zero (FTZ and DAZ) for the lifetime of the guard and restores the caller's mode after.
// Used around every audio block: recursive filters decaying into denormals would otherwise cost hundreds of
// cycles per sample.
class AFDenormalGuard {
public:
    AFDenormalGuard() noexcept {
#if defined(__SSE__)
        saved = _mm_getcsr();
        _mm_setcsr(saved | 0x8040u);
#endif
    }
    ~AFDenormalGuard() {
#if defined(__SSE__)
        _mm_setcsr(saved);
#endif
    }
    AFDenormalGuard(const AFDenormalGuard&) = delete;
    AFDenormalGuard& operator=(const AFDenormalGuard&) = delete;

private:
    unsigned int saved = 0;
};
