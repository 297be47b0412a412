#include "effects/filter/SvfDampTable.h"

namespace {

constexpr std::array<float, SvfDampTable::kSize> kValues = {
    2.0,     1.71821, 1.49608, 1.32611, 1.20093, 1.11331, 1.05621, 1.02277, 1.00637, 1.00072, 1.0,
    1.91489, 1.67581, 1.48093, 1.32643, 1.20819, 1.12193, 1.06314, 1.02696, 1.00814, 1.00107, 1.0,
    1.70715, 1.53100, 1.38353, 1.26343, 1.16909, 1.09870, 1.05009, 1.02033, 1.00550, 1.00057, 1.0,
    1.45825, 1.34133, 1.24241, 1.16103, 1.09683, 1.04942, 1.01810, 1.00140, 0.99642, 0.99816, 1.0,
    1.21543, 1.14522, 1.08660, 1.03954, 1.00412, 0.98060, 0.96907, 0.96905, 0.97842, 0.99199, 1.0,
    0.99227, 0.95591, 0.92780, 0.90798, 0.89680, 0.89479, 0.90257, 0.92044, 0.94731, 0.97850, 1.0,
    0.78587, 0.77299, 0.76648, 0.76669, 0.77413, 0.78964, 0.81432, 0.84938, 0.89542, 0.95031, 1.0,
    0.58928, 0.59101, 0.59814, 0.61116, 0.63087, 0.65844, 0.69558, 0.74466, 0.80887, 0.89204, 1.0,
    0.39527, 0.40389, 0.41692, 0.43503, 0.45924, 0.49105, 0.53275, 0.58800, 0.66310, 0.77138, 1.0,
    0.19920, 0.20720, 0.21803, 0.23231, 0.25094, 0.27533, 0.30773, 0.35206, 0.41611, 0.52063, 1.0,
    0.0,     0.0,     0.0,     0.0,     0.0,     0.0,     0.0,     0.0,     0.0,     0.0,     1.0,
};

std::array<SvfDampTable::Entry, SvfDampTable::kSize> build() {
    std::array<SvfDampTable::Entry, SvfDampTable::kSize> table{};
    for (int i = 0; i < SvfDampTable::kSize; ++i) {
        const float next = i + 1 < SvfDampTable::kSize ? kValues[static_cast<std::size_t>(i + 1)]
                                                       : kValues[static_cast<std::size_t>(i)];
        table[static_cast<std::size_t>(i)] = {kValues[static_cast<std::size_t>(i)],
                                              next - kValues[static_cast<std::size_t>(i)]};
    }
    return table;
}

} // namespace

const std::array<SvfDampTable::Entry, SvfDampTable::kSize>& SvfDampTable::entries() noexcept {
    static const std::array<Entry, kSize> table = build();
    return table;
}
