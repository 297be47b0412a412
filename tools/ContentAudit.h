#pragma once

#include <filesystem>
#include <string>
#include <vector>

class JsonValue;

// Plays every factory preset as a musician first hears it and measures what comes out: an effect preset in
// slot 1 with its Control swept up, held and swept back, a global or Dictator preset with one Dictator sweep
// from 0 to 1, each over the demo loop and over a sustained chord. The default global preset, which a fresh
// instance plays, has all eight Controls swept together as a user first turning them up would. Main thread of
// the tool.
class ContentAudit {
public:
    static constexpr double kMaxPeakDb = -0.3;
    static constexpr double kMaxDropDb = 18.0; // output below input, per 250 ms window
    static constexpr double kMaxSilenceSeconds = 0.1;
    static constexpr double kMinDifferenceDb = -20.0; // output minus input over the input, while swept up
    static constexpr double kMaxClickRatio = 2.0;     // largest step at a gate change over the input's nearby

    // The worst of both signals; a fault names the signal it showed on.
    struct Result {
        std::string name; // the source's path in the content folder, without extension
        bool silences = false;
        bool finite = true;
        double peakDb = -200.0;
        double dropDb = 0.0;
        double silenceSeconds = 0.0;
        double differenceDb = 200.0;
        double clickRatio = 0.0;
        std::vector<std::string> faults;
    };

    // Main thread: `contentFolder` holds the readable sources.
    explicit ContentAudit(std::filesystem::path contentFolder);
    ContentAudit(const ContentAudit&) = delete;
    ContentAudit& operator=(const ContentAudit&) = delete;
    ~ContentAudit();

    // Effect, global and Dictator preset sources, sorted; those whose path contains one of `filters`, if any.
    std::vector<std::filesystem::path> sources(const std::vector<std::string>& filters) const;
    // Compiles the source, plays it over both signals and measures. Throws std::runtime_error for a source
    // that does not compile.
    Result audit(const std::filesystem::path& source);

    static std::string tableHeader();
    static std::string tableRow(const Result& result);

private:
    struct Signal {
        const char* name;
        std::vector<float> left;
        std::vector<float> right;
    };
    enum class Sweep { Control, AllControls, Dictator };

    std::string compiled(const JsonValue& source, const std::string& extension);
    void play(const Signal& input, Sweep sweep, const std::string& preset, const std::string& dictator,
              Result& result);

    std::filesystem::path folder;
    std::filesystem::path scratch;
    std::vector<Signal> signals;
    std::string defaultGlobal;
    int counter = 0;
};
