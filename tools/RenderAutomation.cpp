#include "tools/RenderAutomation.h"

#include "host/AFPluginBase.h"

bool RenderAutomation::resolve(const RenderOptions& options, AFPluginBase& plugin, std::string& error) {
    std::vector<std::string> names;
    for (int i = 0; i < kHostParameters; ++i) {
        char text[kHostTextSize] = {};
        plugin.getParameterName(i, text);
        names.emplace_back(text);
    }
    auto lookUp = [&](const std::string& name) {
        const int index = RenderOptions::resolveParameter(name, names);
        if (index < 0) error = "no host parameter is called '" + name + "' (see --list-parameters)";
        return index;
    };
    values.clear();
    lanes.clear();
    valuesSent = false;
    for (const auto& v : options.values) {
        const int index = lookUp(v.parameter);
        if (index < 0) return false;
        values.push_back({index, v.value});
    }
    for (const auto& r : options.ramps) {
        const int index = lookUp(r.parameter);
        if (index < 0) return false;
        lanes.push_back({index, r, std::nullopt});
    }
    return true;
}

void RenderAutomation::apply(AFPluginBase& plugin, double seconds) {
    if (!valuesSent) {
        for (const auto& v : values)
            plugin.setParameter(v.index, v.value);
        valuesSent = true;
    }
    for (auto& lane : lanes) {
        const auto& r = lane.ramp;
        if (seconds < r.start) continue;
        float v = r.to;
        if (seconds < r.end)
            v = static_cast<float>(r.from + (r.to - r.from) * (seconds - r.start) / (r.end - r.start));
        if (lane.last && *lane.last == v) continue;
        plugin.setParameter(lane.index, v);
        lane.last = v;
    }
}
