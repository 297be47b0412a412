#pragma once

#include <algorithm>

// A rectangle in the editor's logical units (1x pixels), left and top inclusive, right and bottom exclusive.
struct AFRect {
    double left = 0.0;
    double top = 0.0;
    double right = 0.0;
    double bottom = 0.0;

    static constexpr AFRect ofSize(double x, double y, double width, double height) {
        return {x, y, x + width, y + height};
    }
    constexpr double width() const noexcept { return right - left; }
    constexpr double height() const noexcept { return bottom - top; }
    constexpr bool empty() const noexcept { return right <= left || bottom <= top; }
    constexpr bool contains(double x, double y) const noexcept {
        return x >= left && x < right && y >= top && y < bottom;
    }
    constexpr bool intersects(const AFRect& other) const noexcept {
        return left < other.right && other.left < right && top < other.bottom && other.top < bottom;
    }
    AFRect united(const AFRect& other) const noexcept {
        if (empty()) return other;
        if (other.empty()) return *this;
        return {std::min(left, other.left), std::min(top, other.top), std::max(right, other.right),
                std::max(bottom, other.bottom)};
    }
    constexpr AFRect inset(double dx, double dy) const noexcept {
        return {left + dx, top + dy, right - dx, bottom - dy};
    }
};
