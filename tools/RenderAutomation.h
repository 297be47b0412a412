#pragma once

#include "tools/RenderOptions.h"

#include <optional>
#include <string>
#include <vector>

class AFPluginBase;

// The host automation of a render: the --set values at time 0 and the --ramp lanes, sent through the
// plug-in's setParameter at block starts as a DAW sends automation.
class RenderAutomation {
public:
    static constexpr int kHostParameters = 252;

    // Main thread. Resolves the parameter names of the options against the plug-in's own names; false with a
    // one-line reason when one is unknown.
    bool resolve(const RenderOptions& options, AFPluginBase& plugin, std::string& error);

    // Render thread, at the start of each block: sends what is due at `seconds`. The plain values go once, at
    // the first call; a ramp leaves the parameter alone before its start, moves it linearly from its start to
    // its end, then holds the end value. A value equal to the one last sent is not sent again.
    void apply(AFPluginBase& plugin, double seconds);

private:
    struct Value {
        int index;
        float value;
    };
    struct Lane {
        int index;
        RenderOptions::Ramp ramp;
        std::optional<float> last;
    };

    std::vector<Value> values;
    std::vector<Lane> lanes;
    bool valuesSent = false;
};
