#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The command line of orvanto-render, checked for form and range. Names of host parameters are resolved later
// against the plug-in's own names (resolveParameter), since only the plug-in knows them.
class RenderOptions {
public:
    struct EffectChoice {
        int slot; // 0..7
        int typeId;
    };
    struct OptionChoice {
        int slot; // 0..7
        int option;
        std::string value; // a menu position or one of the option's words
    };
    struct ParameterValue {
        std::string parameter;
        float value;
    };
    struct Ramp {
        std::string parameter;
        float from;
        float to;
        double start; // seconds
        double end;
    };
    struct Preset {
        std::string path;
        int slot; // 0..7, or -1 for a global preset
    };
    struct Loop {
        double start; // quarter notes
        double end;
    };

    static constexpr int kDefaultRate = 48000;
    static constexpr double kDefaultSeconds = 8.0;
    static constexpr int kDefaultBlock = 512;
    static constexpr double kDefaultTempo = 120.0;
    static constexpr int kMaxBlock = 16384;
    static constexpr double kMaxSeconds = 3600.0;

    // Main thread. Parses the arguments after the program name; on failure returns false with one line in
    // error.
    static bool parse(const std::vector<std::string>& args, RenderOptions& options, std::string& error);
    // Main thread. A parameter index from a number or a name of `hostNames` (exact first, then ignoring
    // case); -1 when neither.
    static int resolveParameter(const std::string& parameter, const std::vector<std::string>& hostNames);
    // Main thread. The usage text.
    static const char* usage();

    std::string input;
    std::string output;
    std::string plot;
    int rate = kDefaultRate;
    double seconds = kDefaultSeconds;
    int block = kDefaultBlock;
    double tempo = kDefaultTempo;
    bool stopped = false;
    std::optional<Loop> loop;
    std::vector<EffectChoice> effects;
    std::vector<OptionChoice> options;
    std::vector<ParameterValue> values;
    std::vector<Ramp> ramps;
    std::optional<int32_t> seed;
    std::vector<Preset> presets;
    std::string state;
    std::string saveState;
    std::string midi;
    bool listEffects = false;
    bool listParameters = false;
    bool quiet = false;
    bool help = false;

    // Whether the command only prints a list or the usage and renders nothing.
    bool listsOnly() const { return listEffects || listParameters || help; }
};
