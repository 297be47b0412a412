#include "effects/filter/SvfTuneTable.h"

namespace {

constexpr std::array<float, SvfTuneTable::kSize> kValues = {
    0.0, 0.28179, 0.50392, 0.67389, 0.79907, 0.88669, 0.94379, 0.97723, 0.99363, 0.99928, 1.0,
    0.0, 0.26786, 0.48407, 0.65359, 0.78162, 0.87363, 0.93532, 0.97267, 0.99182, 0.99893, 1.0,
    0.0, 0.26856, 0.48734, 0.65972, 0.78975, 0.88224, 0.94279, 0.97777, 0.99423, 0.99942, 1.0,
    0.0, 0.27649, 0.50324, 0.68198, 0.81531, 0.90772, 0.96477, 0.99359, 1.00275, 1.00181, 1.0,
    0.0, 0.28623, 0.52349, 0.71124, 0.85073, 0.94503, 0.99930, 1.02091, 1.01969, 1.00790, 1.0,
    0.0, 0.29479, 0.54314, 0.74218, 0.89103, 0.99094, 1.04567, 1.06171, 1.04890, 1.02123, 1.0,
    0.0, 0.30096, 0.56004, 0.77212, 0.93399, 1.04458, 1.10525, 1.12022, 1.09724, 1.04906, 1.0,
    0.0, 0.30477, 0.57404, 0.80089, 0.97993, 1.10753, 1.18205, 1.20407, 1.17679, 1.10642, 1.0,
    0.0, 0.30704, 0.58651, 0.83036, 1.03154, 1.18417, 1.28356, 1.32609, 1.30851, 1.22458, 1.0,
    0.0, 0.30915, 0.60000, 0.86424, 1.09408, 1.28234, 1.42234, 1.50739, 1.52901, 1.46875, 1.0,
    0.0, 0.31287, 0.61803, 0.90798, 1.17557, 1.41421, 1.61803, 1.78201, 1.90211, 1.97538, 1.0,
};

std::array<SvfTuneTable::Entry, SvfTuneTable::kSize> build() {
    std::array<SvfTuneTable::Entry, SvfTuneTable::kSize> table{};
    for (int i = 0; i < SvfTuneTable::kSize; ++i) {
        const float next = i + 1 < SvfTuneTable::kSize ? kValues[static_cast<std::size_t>(i + 1)]
                                                       : kValues[static_cast<std::size_t>(i)];
        table[static_cast<std::size_t>(i)] = {kValues[static_cast<std::size_t>(i)],
                                              next - kValues[static_cast<std::size_t>(i)]};
    }
    return table;
}

} // namespace

const std::array<SvfTuneTable::Entry, SvfTuneTable::kSize>& SvfTuneTable::entries() noexcept {
    static const std::array<Entry, kSize> table = build();
    return table;
}
