// orvanto-render: plays the host's part for Orvanto offline, from a file or the demo loop to a file.

#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/EffectFactory.h"
#include "engine/AFRandom.h"
#include "engine/AFUniClient.h"
#include "tools/DemoLoop.h"
#include "tools/RenderHost.h"
#include "tools/RenderOptions.h"
#include "tools/RenderPlot.h"

#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace {

constexpr int kBadInput = 2;
constexpr int kFailure = 1;
constexpr int kHostParameters = 252;

// Unfinished files, removed by the signal handler: fixed storage, since the handler may only call unlink.
char pendingPaths[2][4096];

void removePending(int signal) {
    for (auto& path : pendingPaths)
        if (path[0] != '\0') unlink(path);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

// A file written under a temporary name in the destination folder and renamed into place when complete, so an
// interrupted render never leaves half a file under the real name.
class PendingFile {
public:
    PendingFile(const std::string& target, int slotIndex) : target(target), slot(slotIndex) {}
    PendingFile(const PendingFile&) = delete;
    PendingFile& operator=(const PendingFile&) = delete;
    ~PendingFile() { discard(); }

    // Creates the temporary file and returns its descriptor, or -1 with the reason in error.
    int create(std::string& error) {
        const auto slash = target.rfind('/');
        const std::string folder = slash == std::string::npos ? "." : target.substr(0, slash);
        const std::string base = slash == std::string::npos ? target : target.substr(slash + 1);
        std::string pattern = folder + "/." + base + ".part-XXXXXX";
        if (pattern.size() >= sizeof pendingPaths[0]) {
            error = "the path '" + target + "' is too long";
            return -1;
        }
        const int fd = mkstemp(pattern.data());
        if (fd < 0) {
            error = "cannot write into '" + folder + "': " + std::strerror(errno);
            return -1;
        }
        // mkstemp makes the file private; give it the permissions a plain new file would get.
        const mode_t mask = umask(0);
        umask(mask);
        fchmod(fd, 0666 & ~mask);
        temporary = pattern;
        std::snprintf(pendingPaths[slot], sizeof pendingPaths[slot], "%s", temporary.c_str());
        return fd;
    }

    const std::string& path() const { return temporary; }

    bool commit(std::string& error) {
        if (std::rename(temporary.c_str(), target.c_str()) != 0) {
            error = "cannot rename into '" + target + "': " + std::strerror(errno);
            return false;
        }
        temporary.clear();
        pendingPaths[slot][0] = '\0';
        return true;
    }

    void discard() {
        if (temporary.empty()) return;
        unlink(temporary.c_str());
        temporary.clear();
        pendingPaths[slot][0] = '\0';
    }

private:
    std::string target;
    int slot;
    std::string temporary;
};

int badInput(const std::string& text) {
    std::fprintf(stderr, "orvanto-render: %s\n", text.c_str());
    return kBadInput;
}

int failure(const std::string& text) {
    std::fprintf(stderr, "orvanto-render: %s\n", text.c_str());
    return kFailure;
}

bool endsWith(const std::string& text, const char* tail) {
    const std::size_t n = std::strlen(tail);
    if (text.size() < n) return false;
    for (std::size_t i = 0; i < n; ++i)
        if (std::tolower(static_cast<unsigned char>(text[text.size() - n + i])) != tail[i]) return false;
    return true;
}

void listEffects() {
    AFBpmListenerList listeners;
    AFSystemInfo system(64.0f, &listeners);
    for (int id = 0; id < EffectFactory::kTypeCount; ++id) {
        const int position = EffectFactory::menuPosition(id);
        std::string names;
        const auto effect = EffectFactory::create(&system, id);
        if (effect) {
            const int count = std::min(effect->getParameterCount(), EffectFactory::effectNumber(id));
            for (int p = 0; p < count; ++p) {
                char text[kEffectTextSize] = {};
                effect->getParameterName(p, text);
                names += (p > 0 ? ", " : "") + std::string(text);
            }
        }
        const char* kind = !EffectFactory::hasClass(id)  ? "none"
                           : EffectFactory::hasSound(id) ? "sound"
                                                         : "pass-through";
        std::printf("%d\t%s\t%s\t%s\t%s\n", id, EffectFactory::effectName(id),
                    position < 0 ? "-" : std::to_string(position).c_str(), names.c_str(), kind);
    }
}

// The audio source: the input file, then silence for the tail; or the demo loop.
class Source {
public:
    bool openFile(const std::string& path, std::string& error) {
        SF_INFO info{};
        file = sf_open(path.c_str(), SFM_READ, &info);
        if (file == nullptr) {
            error = "cannot read '" + path + "': " + sf_strerror(nullptr);
            return false;
        }
        if (info.channels < 1 || info.channels > 2) {
            error = "'" + path + "' has " + std::to_string(info.channels) +
                    " channels; only mono and stereo are taken";
            return false;
        }
        if (info.samplerate < 11050 || info.samplerate > 196000) {
            error = "'" + path + "' runs at " + std::to_string(info.samplerate) +
                    " Hz; the plug-in takes 11050 to 196000";
            return false;
        }
        channels = info.channels;
        rate = info.samplerate;
        fileFrames = info.frames;
        return true;
    }

    void useDemo(int sampleRate, double tempo) {
        rate = sampleRate;
        demo.emplace(sampleRate, tempo);
    }

    ~Source() {
        if (file != nullptr) sf_close(file);
    }

    int sampleRate() const { return rate; }
    int64_t inputFrames() const { return fileFrames; }

    // Fills `count` frames starting at `frame`.
    void read(int64_t frame, float* left, float* right, int count) {
        if (demo) {
            demo->render(frame, left, right, static_cast<std::size_t>(count));
            return;
        }
        int done = 0;
        if (file != nullptr && frame < fileFrames) {
            interleaved.resize(static_cast<std::size_t>(count * channels));
            const auto wanted = static_cast<sf_count_t>(std::min<int64_t>(count, fileFrames - frame));
            done = static_cast<int>(sf_readf_float(file, interleaved.data(), wanted));
            for (int i = 0; i < done; ++i) {
                left[i] = interleaved[static_cast<std::size_t>(i * channels)];
                right[i] = interleaved[static_cast<std::size_t>(i * channels + channels - 1)];
            }
        }
        std::fill(left + done, left + count, 0.0f);
        std::fill(right + done, right + count, 0.0f);
    }

private:
    SNDFILE* file = nullptr;
    int channels = 2;
    int rate = 0;
    int64_t fileFrames = 0;
    std::optional<DemoLoop> demo;
    std::vector<float> interleaved;
};

struct ResolvedValue {
    int index;
    float value;
};

struct ResolvedRamp {
    int index;
    RenderOptions::Ramp ramp;
    std::optional<float> last; // the value last sent, so an unchanged value is not sent again
};

// Brings the plug-in to the state the options ask for at time 0: effects, their options, the parameters.
class Session {
public:
    Session(const RenderOptions& o, int rate) : options(o), sampleRate(rate) {
        RenderHost::Transport t;
        t.sampleRate = rate;
        t.tempo = o.tempo;
        t.playing = !o.stopped;
        if (o.loop) {
            t.cycle = true;
            t.cycleStart = o.loop->start;
            t.cycleEnd = o.loop->end;
        }
        host = std::make_unique<RenderHost>(t);
    }

    // Builds the plug-in and calls it as a DAW does before the first block.
    bool start(std::string& error) {
        plugin = std::make_unique<AFUniClient>(&RenderHost::callback, host.get());
        if (options.seed) AFRandom::seed(*options.seed);
        plugin->setSampleRate(static_cast<float>(sampleRate));
        plugin->setBlockSize(options.block);
        plugin->resume();
        for (const auto& e : options.effects)
            plugin->setSlotEffect(e.slot, e.typeId);
        for (const auto& o : options.options)
            if (!applyOption(o, error)) return false;
        std::vector<std::string> names;
        for (int i = 0; i < kHostParameters; ++i) {
            char text[kHostTextSize] = {};
            plugin->getParameterName(i, text);
            names.emplace_back(text);
        }
        for (const auto& v : options.values) {
            const int index = RenderOptions::resolveParameter(v.parameter, names);
            if (index < 0) return unknownParameter(v.parameter, error);
            values.push_back({index, v.value});
        }
        for (const auto& r : options.ramps) {
            const int index = RenderOptions::resolveParameter(r.parameter, names);
            if (index < 0) return unknownParameter(r.parameter, error);
            ramps.push_back({index, r, std::nullopt});
        }
        return true;
    }

    // Sends the values due at `seconds`: the plain values once at the first call, then the ramps.
    void automate(double seconds) {
        if (!valuesSent) {
            for (const auto& v : values)
                plugin->setParameter(v.index, v.value);
            valuesSent = true;
        }
        for (auto& r : ramps) {
            if (seconds < r.ramp.start) continue;
            float v = r.ramp.to;
            if (seconds < r.ramp.end) {
                const double f = (seconds - r.ramp.start) / (r.ramp.end - r.ramp.start);
                v = static_cast<float>(r.ramp.from + (r.ramp.to - r.ramp.from) * f);
            }
            if (r.last && *r.last == v) continue;
            plugin->setParameter(r.index, v);
            r.last = v;
        }
    }

    void listParameters() {
        automate(0.0);
        for (int i = 0; i < kHostParameters; ++i) {
            char text[kHostTextSize] = {};
            plugin->getParameterName(i, text);
            std::printf("%d\t%s\t%.6f\n", i, text, static_cast<double>(plugin->getParameter(i)));
        }
    }

    AFUniClient& client() { return *plugin; }
    RenderHost& timeline() { return *host; }

private:
    bool unknownParameter(const std::string& name, std::string& error) {
        error = "no host parameter is called '" + name + "' (see --list-parameters)";
        return false;
    }

    bool applyOption(const RenderOptions::OptionChoice& o, std::string& error) {
        AFEffect* effect = plugin->slotEffect(o.slot);
        const std::string where = "--option " + std::to_string(o.slot + 1) + ":" + std::to_string(o.option);
        if (effect == nullptr) {
            error = where + ": slot " + std::to_string(o.slot + 1) + " holds no effect";
            return false;
        }
        AFWordList words;
        effect->getOptionList(o.option, words);
        const std::string effectName = EffectFactory::effectName(static_cast<int>(effect->getEffectType()));
        if (words.empty()) {
            error = where + ": " + effectName + " has no option " + std::to_string(o.option);
            return false;
        }
        int value = -1;
        char* end = nullptr;
        const long n = std::strtol(o.value.c_str(), &end, 10);
        if (!o.value.empty() && *end == '\0') {
            value = n >= 0 && n < static_cast<long>(words.size()) ? static_cast<int>(n) : -1;
        } else {
            for (std::size_t i = 0; i < words.size(); ++i)
                if (strcasecmp(words[i].c_str(), o.value.c_str()) == 0) value = static_cast<int>(i);
        }
        if (value < 0) {
            std::string menu;
            for (std::size_t i = 0; i < words.size(); ++i)
                menu += (i > 0 ? ", " : "") + std::to_string(i) + " \"" + words[i] + "\"";
            error = where + "=" + o.value + ": " + effectName + " takes " + menu;
            return false;
        }
        plugin->setSlotOption(o.slot, o.option, value);
        return true;
    }

    const RenderOptions& options;
    int sampleRate;
    std::unique_ptr<RenderHost> host;
    std::unique_ptr<AFUniClient> plugin;
    std::vector<ResolvedValue> values;
    std::vector<ResolvedRamp> ramps;
    bool valuesSent = false;
};

class Progress {
public:
    Progress(bool shown, int64_t total, int rate)
        : shown(shown), total(std::max<int64_t>(total, 1)), rate(rate) {}

    void update(int64_t done) {
        if (!shown) return;
        const int percent = static_cast<int>(done * 100 / total);
        if (percent == last) return;
        last = percent;
        constexpr int kBar = 40;
        const int filled = percent * kBar / 100;
        std::fprintf(stderr, "\rorvanto-render [%.*s%.*s] %3d%%  %.1f / %.1f s", filled,
                     "########################################", kBar - filled,
                     "........................................", percent, static_cast<double>(done) / rate,
                     static_cast<double>(total) / rate);
        if (percent == 100) std::fputc('\n', stderr);
    }

private:
    bool shown;
    int64_t total;
    int rate;
    int last = -1;
};

int render(const RenderOptions& options) {
    Source source;
    std::string error;
    if (!options.input.empty()) {
        if (!source.openFile(options.input, error)) return badInput(error);
    } else {
        source.useDemo(options.rate, options.tempo);
    }
    const int rate = source.sampleRate();

    Session session(options, rate);
    if (!session.start(error)) return badInput(error);
    if (options.listParameters) {
        session.listParameters();
        return 0;
    }

    const int64_t tail = std::llround(options.seconds * rate);
    const int64_t total = options.input.empty() ? tail : source.inputFrames() + tail;
    if (total <= 0) return badInput("nothing to render: '" + options.input + "' is empty and --seconds is 0");

    PendingFile audioFile(options.output, 0);
    const int fd = audioFile.create(error);
    if (fd < 0) return badInput(error);
    std::optional<PendingFile> plotFile;
    if (!options.plot.empty()) plotFile.emplace(options.plot, 1);
    if (plotFile) {
        const int plotFd = plotFile->create(error);
        if (plotFd < 0) return badInput(error);
        close(plotFd);
    }

    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 2;
    const bool flac = endsWith(options.output, ".flac");
    info.format = flac ? (SF_FORMAT_FLAC | SF_FORMAT_PCM_24) : (SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    SNDFILE* out = sf_open_fd(fd, SFM_WRITE, &info, SF_TRUE);
    if (out == nullptr)
        return failure(std::string("cannot write '") + options.output + "': " + sf_strerror(nullptr));
    // No PEAK chunk: it carries a time stamp, and equal renders must give equal files.
    sf_command(out, SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
    sf_command(out, SFC_SET_CLIPPING, nullptr, SF_TRUE);

    std::optional<RenderPlot> plot;
    if (plotFile) plot.emplace(total, rate);

    const auto block = static_cast<std::size_t>(options.block);
    std::vector<float> inLeft(block), inRight(block), outLeft(block), outRight(block), interleaved(2 * block);
    float* inputs[2] = {inLeft.data(), inRight.data()};
    float* outputs[2] = {outLeft.data(), outRight.data()};
    AFEvents noEvents;
    Progress progress(!options.quiet && isatty(STDERR_FILENO) != 0, total, rate);
    AFUniClient& plugin = session.client();
    bool written = true;
    for (int64_t done = 0; done < total;) {
        const int n = static_cast<int>(std::min<int64_t>(options.block, total - done));
        source.read(done, inLeft.data(), inRight.data(), n);
        session.automate(static_cast<double>(done) / rate);
        plugin.processEvents(&noEvents);
        plugin.processReplacing(inputs, outputs, n);
        session.timeline().advance(n);
        for (int i = 0; i < n; ++i) {
            interleaved[static_cast<std::size_t>(2 * i)] = outLeft[static_cast<std::size_t>(i)];
            interleaved[static_cast<std::size_t>(2 * i + 1)] = outRight[static_cast<std::size_t>(i)];
        }
        if (sf_writef_float(out, interleaved.data(), n) != n) {
            written = false;
            break;
        }
        if (plot) {
            plot->addInput(inLeft.data(), inRight.data(), static_cast<std::size_t>(n));
            plot->addOutput(outLeft.data(), outRight.data(), static_cast<std::size_t>(n));
        }
        done += n;
        progress.update(done);
    }
    const std::string writeError = sf_strerror(out);
    if (sf_close(out) != 0 || !written)
        return failure("cannot write '" + options.output + "': " + writeError);
    plugin.suspend();

    if (plot) {
        const std::string from = options.input.empty() ? "demo loop" : options.input;
        char title[512];
        std::snprintf(title, sizeof title, "orvanto-render   %s  \u2192  %s     %d Hz, %g BPM, block %d%s",
                      from.c_str(), options.output.c_str(), rate, options.tempo, options.block,
                      options.stopped ? ", stopped" : "");
        if (!plot->write(plotFile->path(), title, error)) return failure(error);
        if (!plotFile->commit(error)) return failure(error);
    }
    if (!audioFile.commit(error)) return failure(error);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    RenderOptions options;
    std::string error;
    if (!RenderOptions::parse(args, options, error)) return badInput(error);
    if (options.help) {
        std::fputs(RenderOptions::usage(), stdout);
        return 0;
    }
    if (options.listEffects) {
        listEffects();
        if (!options.listParameters) return 0;
    }
    for (int signal : {SIGINT, SIGTERM, SIGHUP})
        std::signal(signal, removePending);
    return render(options);
}
