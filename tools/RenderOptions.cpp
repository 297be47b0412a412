#include "tools/RenderOptions.h"

#include "effects/framework/EffectFactory.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <map>

namespace {

constexpr int kHostParameters = 252;
constexpr int kModulationFirst = 261;
constexpr int kModulationLast = 380;
constexpr int kTriggerFirst = 2000000;
constexpr int kTriggerLast = 2000007;
constexpr int kMinRate = 11050;
constexpr int kMaxRate = 196000;
constexpr double kMinTempo = 20.0;
constexpr double kMaxTempo = 999.0;

bool equalsIgnoringCase(const std::string& a, const std::string& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

bool endsWithIgnoringCase(const std::string& text, const std::string& tail) {
    return text.size() > tail.size() && equalsIgnoringCase(text.substr(text.size() - tail.size()), tail);
}

// The whole text is a finite number.
bool toDouble(const std::string& text, double& value) {
    if (text.empty() || std::isspace(static_cast<unsigned char>(text.front()))) return false;
    char* end = nullptr;
    errno = 0;
    value = std::strtod(text.c_str(), &end);
    return errno == 0 && end == text.c_str() + text.size() && std::isfinite(value);
}

// The whole text is a decimal integer that fits.
bool toInt(const std::string& text, long long low, long long high, long long& value) {
    if (text.empty() || std::isspace(static_cast<unsigned char>(text.front()))) return false;
    char* end = nullptr;
    errno = 0;
    value = std::strtoll(text.c_str(), &end, 10);
    return errno == 0 && end == text.c_str() + text.size() && value >= low && value <= high;
}

// Splits at the last occurrence of `mark`; false when the mark is absent or either side is empty.
bool splitLast(const std::string& text, char mark, std::string& left, std::string& right) {
    const auto at = text.rfind(mark);
    if (at == std::string::npos || at == 0 || at + 1 == text.size()) return false;
    left = text.substr(0, at);
    right = text.substr(at + 1);
    return true;
}

bool splitFirst(const std::string& text, char mark, std::string& left, std::string& right) {
    const auto at = text.find(mark);
    if (at == std::string::npos || at == 0 || at + 1 == text.size()) return false;
    left = text.substr(0, at);
    right = text.substr(at + 1);
    return true;
}

bool isParameterIndex(long long index) {
    return (index >= 0 && index < kHostParameters) ||
           (index >= kModulationFirst && index <= kModulationLast) ||
           (index >= kTriggerFirst && index <= kTriggerLast);
}

bool controlValue(const std::string& text, float& value) {
    double v = 0.0;
    if (!toDouble(text, v) || v < 0.0 || v > 1.0) return false;
    value = static_cast<float>(v);
    return true;
}

int effectByName(const std::string& name) {
    long long id = 0;
    if (toInt(name, 0, EffectFactory::kTypeCount - 1, id)) return static_cast<int>(id);
    for (int i = 0; i < EffectFactory::kTypeCount; ++i)
        if (equalsIgnoringCase(name, EffectFactory::effectName(i))) return i;
    return -1;
}

class Parser {
public:
    Parser(RenderOptions& options, std::string& error) : o(options), error(error) {}

    bool run(const std::vector<std::string>& args) {
        bool positionalOnly = false;
        for (std::size_t i = 0; i < args.size(); ++i) {
            std::string arg = args[i];
            if (positionalOnly || arg == "-" || arg.empty() || arg[0] != '-') {
                if (!o.input.empty()) return fail("more than one INPUT: '" + o.input + "' and '" + arg + "'");
                o.input = arg;
                if (o.input.empty()) return fail("INPUT is an empty name");
                continue;
            }
            if (arg == "--") {
                positionalOnly = true;
                continue;
            }
            std::optional<std::string> inlineValue;
            if (arg.rfind("--", 0) == 0) {
                const auto eq = arg.find('=');
                if (eq != std::string::npos) {
                    inlineValue = arg.substr(eq + 1);
                    arg = arg.substr(0, eq);
                }
            }
            const auto flag = flags().find(arg);
            if (flag != flags().end()) {
                if (inlineValue) return fail(arg + " takes no value");
                flag->second(o);
                continue;
            }
            const auto option = valued().find(arg);
            if (option == valued().end()) return fail("unknown option '" + arg + "' (try --help)");
            std::string value;
            if (inlineValue) {
                value = *inlineValue;
            } else {
                if (i + 1 >= args.size()) return fail(arg + " needs a value");
                value = args[++i];
            }
            if (!(this->*(option->second))(arg, value)) return false;
        }
        return finish();
    }

private:
    using Handler = bool (Parser::*)(const std::string&, const std::string&);

    static const std::map<std::string, std::function<void(RenderOptions&)>>& flags() {
        static const std::map<std::string, std::function<void(RenderOptions&)>> table{
            {"--stopped", [](RenderOptions& o) { o.stopped = true; }},
            {"--list-effects", [](RenderOptions& o) { o.listEffects = true; }},
            {"--list-parameters", [](RenderOptions& o) { o.listParameters = true; }},
            {"--quiet", [](RenderOptions& o) { o.quiet = true; }},
            {"-q", [](RenderOptions& o) { o.quiet = true; }},
            {"--help", [](RenderOptions& o) { o.help = true; }},
            {"-h", [](RenderOptions& o) { o.help = true; }},
        };
        return table;
    }

    static const std::map<std::string, Handler>& valued() {
        static const std::map<std::string, Handler> table{
            {"-o", &Parser::output},       {"--output", &Parser::output},
            {"--rate", &Parser::rate},     {"--seconds", &Parser::seconds},
            {"--block", &Parser::block},   {"--tempo", &Parser::tempo},
            {"--loop", &Parser::loop},     {"--effect", &Parser::effect},
            {"--set", &Parser::set},       {"--ramp", &Parser::ramp},
            {"--option", &Parser::option}, {"--seed", &Parser::seed},
            {"--plot", &Parser::plot},     {"--preset", &Parser::preset},
            {"--state", &Parser::state},   {"--save-state", &Parser::saveState},
            {"--midi", &Parser::midi},
        };
        return table;
    }

    bool fail(const std::string& text) {
        error = text;
        return false;
    }

    bool output(const std::string& name, const std::string& value) {
        if (!endsWithIgnoringCase(value, ".wav") && !endsWithIgnoringCase(value, ".flac"))
            return fail(name + " '" + value + "': the name must end in .wav or .flac");
        o.output = value;
        return true;
    }

    bool plot(const std::string& name, const std::string& value) {
        if (!endsWithIgnoringCase(value, ".png"))
            return fail(name + " '" + value + "': the name must end in .png");
        o.plot = value;
        return true;
    }

    bool rate(const std::string& name, const std::string& value) {
        long long hz = 0;
        if (!toInt(value, kMinRate, kMaxRate, hz))
            return fail(name + " '" + value + "': expected a whole number of Hz from 11050 to 196000");
        o.rate = static_cast<int>(hz);
        rateGiven = true;
        return true;
    }

    bool seconds(const std::string& name, const std::string& value) {
        double s = 0.0;
        if (!toDouble(value, s) || s < 0.0 || s > RenderOptions::kMaxSeconds)
            return fail(name + " '" + value + "': expected seconds from 0 to 3600");
        o.seconds = s;
        secondsGiven = true;
        return true;
    }

    bool block(const std::string& name, const std::string& value) {
        long long n = 0;
        if (!toInt(value, 1, RenderOptions::kMaxBlock, n))
            return fail(name + " '" + value + "': expected a block size from 1 to 16384 samples");
        o.block = static_cast<int>(n);
        return true;
    }

    bool tempo(const std::string& name, const std::string& value) {
        double bpm = 0.0;
        if (!toDouble(value, bpm) || bpm < kMinTempo || bpm > kMaxTempo)
            return fail(name + " '" + value + "': expected a tempo from 20 to 999 BPM");
        o.tempo = bpm;
        return true;
    }

    bool loop(const std::string& name, const std::string& value) {
        std::string a, b;
        double start = 0.0, end = 0.0;
        if (!splitFirst(value, ':', a, b) || !toDouble(a, start) || !toDouble(b, end))
            return fail(name + " '" + value + "': expected A:B in quarter notes, e.g. 4:8");
        if (start < 0.0 || end <= start) return fail(name + " '" + value + "': needs 0 <= A < B");
        o.loop = RenderOptions::Loop{start, end};
        return true;
    }

    bool slotNumber(const std::string& name, const std::string& whole, const std::string& text, int& slot) {
        long long n = 0;
        if (!toInt(text, 1, 8, n)) return fail(name + " '" + whole + "': the slot must be 1 to 8");
        slot = static_cast<int>(n) - 1;
        return true;
    }

    bool effect(const std::string& name, const std::string& value) {
        std::string slotText, effectText;
        int slot = 0;
        if (!splitFirst(value, '=', slotText, effectText))
            return fail(name + " '" + value + "': expected SLOT=NAME, e.g. 1=Stutter");
        if (!slotNumber(name, value, slotText, slot)) return false;
        const int id = effectByName(effectText);
        if (id < 0)
            return fail(name + " '" + value + "': no effect is called '" + effectText +
                        "' (see --list-effects)");
        if (!EffectFactory::hasClass(id))
            return fail(name + " '" + value + "': '" + EffectFactory::effectName(id) +
                        "' cannot be loaded into a slot");
        o.effects.push_back({slot, id});
        return true;
    }

    bool option(const std::string& name, const std::string& value) {
        std::string target, word, slotText, numberText;
        int slot = 0;
        long long number = 0;
        if (!splitLast(value, '=', target, word) || !splitFirst(target, ':', slotText, numberText))
            return fail(name + " '" + value + "': expected SLOT:N=VALUE, e.g. 1:0=2");
        if (!slotNumber(name, value, slotText, slot)) return false;
        if (!toInt(numberText, 0, 3, number))
            return fail(name + " '" + value + "': the option number must be 0 to 3");
        o.options.push_back({slot, static_cast<int>(number), word});
        return true;
    }

    bool parameterName(const std::string& name, const std::string& whole, const std::string& parameter) {
        long long index = 0;
        const bool numeric = toInt(parameter, LLONG_MIN, LLONG_MAX, index);
        if (numeric && !isParameterIndex(index))
            return fail(name + " '" + whole + "': parameter index " + parameter +
                        " is not one the plug-in takes (0..251, 261..380, 2000000..2000007)");
        return true;
    }

    bool set(const std::string& name, const std::string& value) {
        std::string parameter, number;
        float v = 0.0f;
        if (!splitLast(value, '=', parameter, number))
            return fail(name + " '" + value + "': expected NAME=VALUE, e.g. \"Control 1=0.5\"");
        if (!parameterName(name, value, parameter)) return false;
        if (!controlValue(number, v))
            return fail(name + " '" + value + "': the value must be a number from 0 to 1");
        o.values.push_back({parameter, v});
        return true;
    }

    bool ramp(const std::string& name, const std::string& value) {
        std::string parameter, rest, values, times, a, b, c, d;
        float from = 0.0f, to = 0.0f;
        double start = 0.0, end = 0.0;
        if (!splitLast(value, '=', parameter, rest) || !splitFirst(rest, '@', values, times) ||
            !splitFirst(values, ':', a, b) || !splitFirst(times, ':', c, d))
            return fail(name + " '" + value + "': expected NAME=V0:V1@T0:T1, e.g. \"Control 1=0:1@0:4\"");
        if (!parameterName(name, value, parameter)) return false;
        if (!controlValue(a, from) || !controlValue(b, to))
            return fail(name + " '" + value + "': the values must be numbers from 0 to 1");
        if (!toDouble(c, start) || !toDouble(d, end) || start < 0.0 || end < start)
            return fail(name + " '" + value + "': the times must be seconds with 0 <= T0 <= T1");
        o.ramps.push_back({parameter, from, to, start, end});
        return true;
    }

    // FILE@SLOT when the text after the last '@' is a number; otherwise the whole text names the file.
    bool preset(const std::string& name, const std::string& value) {
        std::string path, slotText;
        long long number = 0;
        if (splitLast(value, '@', path, slotText) && toInt(slotText, LLONG_MIN, LLONG_MAX, number)) {
            int slot = 0;
            if (!slotNumber(name, value, slotText, slot)) return false;
            o.presets.push_back({path, slot});
        } else {
            o.presets.push_back({value, -1});
        }
        return true;
    }

    bool state(const std::string& name, const std::string& value) {
        if (!o.state.empty()) return fail(name + " given twice");
        o.state = value;
        return true;
    }

    bool saveState(const std::string& name, const std::string& value) {
        if (!o.saveState.empty()) return fail(name + " given twice");
        o.saveState = value;
        return true;
    }

    bool midi(const std::string& name, const std::string& value) {
        if (!o.midi.empty()) return fail(name + " given twice");
        o.midi = value;
        return true;
    }

    bool seed(const std::string& name, const std::string& value) {
        long long n = 0;
        if (!toInt(value, INT32_MIN, INT32_MAX, n))
            return fail(name + " '" + value + "': expected a 32-bit integer");
        o.seed = static_cast<int32_t>(n);
        return true;
    }

    bool finish() {
        if (o.listsOnly()) return true;
        if (o.output.empty()) return fail("no output: give -o FILE.wav or -o FILE.flac");
        if (!o.input.empty() && rateGiven)
            return fail("--rate applies only without INPUT; the input keeps its own rate");
        if (o.input.empty() && o.seconds <= 0.0) return fail("--seconds must be above 0 without INPUT");
        if (!o.input.empty() && !secondsGiven) o.seconds = 0.0;
        if (!o.plot.empty() && o.plot == o.output) return fail("--plot and -o name the same file");
        if (!o.saveState.empty() && (o.saveState == o.output || o.saveState == o.plot))
            return fail("--save-state names the same file as -o or --plot");
        return true;
    }

    RenderOptions& o;
    std::string& error;
    bool rateGiven = false;
    bool secondsGiven = false;
};

} // namespace

bool RenderOptions::parse(const std::vector<std::string>& args, RenderOptions& options, std::string& error) {
    options = RenderOptions{};
    Parser parser(options, error);
    return parser.run(args);
}

int RenderOptions::resolveParameter(const std::string& parameter, const std::vector<std::string>& hostNames) {
    long long index = 0;
    if (toInt(parameter, LLONG_MIN, LLONG_MAX, index))
        return isParameterIndex(index) ? static_cast<int>(index) : -1;
    for (std::size_t i = 0; i < hostNames.size(); ++i)
        if (hostNames[i] == parameter) return static_cast<int>(i);
    for (std::size_t i = 0; i < hostNames.size(); ++i)
        if (equalsIgnoringCase(hostNames[i], parameter)) return static_cast<int>(i);
    return -1;
}

const char* RenderOptions::usage() {
    return "usage: orvanto-render [INPUT] -o OUTPUT [options]\n"
           "  INPUT                 audio file (mono is duplicated to stereo); without it the built-in demo "
           "loop\n"
           "  -o, --output FILE     WAV (32-bit float) or FLAC (24-bit), by extension\n"
           "  --rate HZ             sample rate without INPUT (default 48000)\n"
           "  --seconds S           length without INPUT (default 8); with INPUT, a tail after it (default "
           "0)\n"
           "  --block N             host block size (default 512)\n"
           "  --tempo BPM           host tempo (default 120)\n"
           "  --stopped             transport stopped (default: playing from ppq 0)\n"
           "  --loop A:B            host cycle from quarter A to quarter B\n"
           "  --effect SLOT=NAME    slot 1..8 gets the effect by display name or type id\n"
           "  --set NAME=VALUE      host parameter by name or index, at time 0\n"
           "  --ramp NAME=V0:V1@T0:T1  linear automation from V0 at T0 s to V1 at T1 s, at block starts\n"
           "  --option SLOT:N=VALUE set option N of the slot's effect (menu position or word)\n"
           "  --seed N              seed of the engine's random generator (default: from the clock)\n"
           "  --state FILE          load a host state image (a global preset) first\n"
           "  --preset FILE[@SLOT]  load a global preset, or an effect preset into slot 1..8, after --state\n"
           "                        and before --effect, --option, --set and --ramp; repeatable, in order\n"
           "  --save-state FILE     write the host state image after the render\n"
           "  --midi FILE.mid       play a Standard MIDI File into the plug-in, each event at its sample\n"
           "                        (timed by the file's tempo map, by --tempo when it has none)\n"
           "  --plot FILE.png       waveform and spectrogram of input and output\n"
           "  --list-effects        print the effect catalogue and exit\n"
           "  --list-parameters     print the host parameters after the other options and exit\n"
           "  -q, --quiet           no progress bar\n"
           "  -h, --help            this text\n";
}
