#pragma once

// Four vectors of four float lanes, rows to columns, by shuffles so that nothing goes through memory. Any
// four-lane float vector type.
template <class Lanes>
inline void transposeFour(Lanes& a, Lanes& b, Lanes& c, Lanes& d) noexcept {
    const Lanes ab0 = __builtin_shufflevector(a, b, 0, 4, 1, 5);
    const Lanes cd0 = __builtin_shufflevector(c, d, 0, 4, 1, 5);
    const Lanes ab1 = __builtin_shufflevector(a, b, 2, 6, 3, 7);
    const Lanes cd1 = __builtin_shufflevector(c, d, 2, 6, 3, 7);
    a = __builtin_shufflevector(ab0, cd0, 0, 1, 4, 5);
    b = __builtin_shufflevector(ab0, cd0, 2, 3, 6, 7);
    c = __builtin_shufflevector(ab1, cd1, 0, 1, 4, 5);
    d = __builtin_shufflevector(ab1, cd1, 2, 3, 6, 7);
}
