#include "effects/framework/TimeValueTable.h"

#include "effects/framework/AFSystemInfo.h"

#include <cmath>

TimeValueTable::TimeValueTable(std::vector<Entry> rows)
    : entries(std::move(rows)), countInt(static_cast<int>(entries.size())),
      countFloat(static_cast<float>(entries.size())),
      inverseCount(1.0f / static_cast<float>(entries.size())) {}

int TimeValueTable::indexFor(float v) const noexcept {
    const double raw = static_cast<double>(countInt - 1) * static_cast<double>(v) + 0.5;
    if (!(raw >= 0.0)) return 0;
    if (raw >= static_cast<double>(countInt)) return countInt - 1;
    return static_cast<int>(raw);
}

uint32_t TimeValueTable::intervalSamples(const AFSystemInfo& system, float v) const noexcept {
    const double samples = static_cast<double>(system.samplesPerBeat) * entryFor(v).length;
    return static_cast<uint32_t>(static_cast<int64_t>(samples));
}

double TimeValueTable::intervalSamplesExact(const AFSystemInfo& system, float v) const noexcept {
    return static_cast<double>(system.samplesPerBeat) * entryFor(v).length;
}
