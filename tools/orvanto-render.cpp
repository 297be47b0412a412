// orvanto-render: plays the host's part for Orvanto offline, from a file or the demo loop to a file.

#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/EffectFactory.h"
#include "tools/PendingFile.h"
#include "tools/RenderOptions.h"
#include "tools/RenderPlot.h"
#include "tools/RenderProgress.h"
#include "tools/RenderSession.h"
#include "tools/RenderSource.h"

#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <strings.h>
#include <vector>

namespace {

// Bad input and a write that fails (a full disk) end the same way: one line and status 2.
constexpr int kFailed = 2;

int fail(const std::string& text) {
    std::fprintf(stderr, "orvanto-render: %s\n", text.c_str());
    return kFailed;
}

bool isFlac(const std::string& name) {
    return name.size() > 5 && strcasecmp(name.c_str() + name.size() - 5, ".flac") == 0;
}

bool writeAll(int fd, const uint8_t* data, std::size_t size) {
    while (size > 0) {
        const ssize_t n = write(fd, data, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        data += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

void listEffects() {
    AFBpmListenerList listeners;
    AFSystemInfo system(64.0f, &listeners);
    for (int id = 0; id < EffectFactory::kTypeCount; ++id) {
        const int position = EffectFactory::menuPosition(id);
        std::string names;
        if (const auto effect = EffectFactory::create(&system, id)) {
            // The parameters a slot drives: the class may have more than the catalogue number.
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

int render(const RenderOptions& options) {
    RenderSource source;
    std::string error;
    if (!options.input.empty()) {
        if (!source.openFile(options.input, error)) return fail(error);
    } else {
        source.useDemo(options.rate, options.tempo);
    }
    const int rate = source.sampleRate();

    RenderSession session(options, rate);
    if (!session.start(error)) return fail(error);
    if (options.listParameters) {
        session.listParameters();
        return 0;
    }

    const int64_t total = source.inputFrames() + std::llround(options.seconds * rate);
    if (total <= 0) return fail("nothing to render: '" + options.input + "' is empty and --seconds is 0");

    PendingFile audioFile(options.output);
    const int fd = audioFile.create(error);
    if (fd < 0) return fail(error);
    std::optional<PendingFile> plotFile;
    if (!options.plot.empty()) {
        plotFile.emplace(options.plot);
        const int plotFd = plotFile->create(error);
        if (plotFd < 0) return fail(error);
        close(plotFd); // Cairo writes the PNG by name
    }
    std::optional<PendingFile> stateFile;
    int stateFd = -1;
    if (!options.saveState.empty()) {
        stateFile.emplace(options.saveState);
        stateFd = stateFile->create(error);
        if (stateFd < 0) return fail(error);
    }

    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 2;
    info.format =
        isFlac(options.output) ? (SF_FORMAT_FLAC | SF_FORMAT_PCM_24) : (SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    SNDFILE* out = sf_open_fd(fd, SFM_WRITE, &info, SF_TRUE);
    if (out == nullptr) return fail("cannot write '" + options.output + "': " + sf_strerror(nullptr));
    // No PEAK chunk: it carries a time stamp, and equal renders must give equal files.
    sf_command(out, SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
    sf_command(out, SFC_SET_CLIPPING, nullptr, SF_TRUE);

    std::optional<RenderPlot> plot;
    if (plotFile) plot.emplace(total, rate);

    const auto block = static_cast<std::size_t>(options.block);
    std::vector<float> inLeft(block), inRight(block), outLeft(block), outRight(block), interleaved(2 * block);
    float* inputs[2] = {inLeft.data(), inRight.data()};
    float* outputs[2] = {outLeft.data(), outRight.data()};
    RenderProgress progress(!options.quiet && isatty(STDERR_FILENO) != 0, total, rate);
    bool written = true;
    for (int64_t done = 0; done < total && written;) {
        const int n = static_cast<int>(std::min<int64_t>(options.block, total - done));
        source.read(done, inLeft.data(), inRight.data(), n);
        session.processBlock(inputs, outputs, n, static_cast<double>(done) / rate);
        for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) {
            interleaved[2 * i] = outLeft[i];
            interleaved[2 * i + 1] = outRight[i];
        }
        written = sf_writef_float(out, interleaved.data(), n) == n;
        if (plot) {
            plot->addInput(inLeft.data(), inRight.data(), static_cast<std::size_t>(n));
            plot->addOutput(outLeft.data(), outRight.data(), static_cast<std::size_t>(n));
        }
        done += n;
        progress.update(done);
    }
    session.stop();
    const std::string writeError = sf_strerror(out);
    if (sf_close(out) != 0 || !written) return fail("cannot write '" + options.output + "': " + writeError);

    if (plot) {
        const std::string from = options.input.empty() ? "demo loop" : options.input;
        char title[512];
        std::snprintf(title, sizeof title, "orvanto-render   %s  \u2192  %s     %d Hz, %g BPM, block %d%s",
                      from.c_str(), options.output.c_str(), rate, options.tempo, options.block,
                      options.stopped ? ", stopped" : "");
        if (!plot->write(plotFile->path(), title, error) || !plotFile->commit(error)) return fail(error);
    }
    if (stateFile) {
        const std::vector<uint8_t> image = session.stateImage();
        const bool complete = !image.empty() && writeAll(stateFd, image.data(), image.size());
        const int writeErrno = errno;
        if (close(stateFd) != 0 || !complete)
            return fail("cannot write '" + options.saveState + "': " + std::strerror(writeErrno));
        if (!stateFile->commit(error)) return fail(error);
    }
    if (!audioFile.commit(error)) return fail(error);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    RenderOptions options;
    std::string error;
    if (!RenderOptions::parse(args, options, error)) return fail(error);
    if (options.help) {
        std::fputs(RenderOptions::usage(), stdout);
        return 0;
    }
    if (options.listEffects) {
        listEffects();
        if (!options.listParameters) return 0;
    }
    PendingFile::removeOnSignals();
    return render(options);
}
