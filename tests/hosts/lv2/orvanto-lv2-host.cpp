// The LV2 bundle played by a host of our own on lilv: renders a file as orvanto-render does, or (--time)
// times the plug-in on a steady signal beside the engine itself, and prints ns per stereo sample and the
// realtime factor of both.

#include "Lv2Host.h"
#include "engine/AFUniClient.h"

#include <sndfile.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr double kRate = 48000.0;

void usage() {
    std::fprintf(stderr,
                 "usage: orvanto-lv2-host INPUT -o OUTPUT [--state FILE] [--block N] [--tempo BPM]\n"
                 "       orvanto-lv2-host --time --state FILE [--seconds S] [--runs N] [--block N]\n"
                 "       either: [--bundle DIR] (default the built bundle) [--position-every-block] (the\n"
                 "       transport with every block rather than only when it changes)\n");
}

bool readBytes(const std::string& path, std::vector<uint8_t>& bytes) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return true;
}

struct Options {
    std::string input, output, state, bundle = ORVANTO_LV2_BUNDLE;
    bool time = false;
    bool positionEveryBlock = false;
    uint32_t block = 512;
    double tempo = 120.0;
    double seconds = 4.0;
    int runs = 5;
};

bool parse(int argc, char** argv, Options& o) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool hasValue = i + 1 < argc;
        if (arg == "--time") {
            o.time = true;
        } else if (arg == "--position-every-block") {
            o.positionEveryBlock = true;
        } else if ((arg == "-o" || arg == "--output") && hasValue) {
            o.output = argv[++i];
        } else if (arg == "--state" && hasValue) {
            o.state = argv[++i];
        } else if (arg == "--bundle" && hasValue) {
            o.bundle = argv[++i];
        } else if (arg == "--block" && hasValue) {
            o.block = static_cast<uint32_t>(std::atoi(argv[++i]));
        } else if (arg == "--tempo" && hasValue) {
            o.tempo = std::atof(argv[++i]);
        } else if (arg == "--seconds" && hasValue) {
            o.seconds = std::atof(argv[++i]);
        } else if (arg == "--runs" && hasValue) {
            o.runs = std::atoi(argv[++i]);
        } else if (!arg.empty() && arg[0] != '-' && o.input.empty()) {
            o.input = arg;
        } else {
            return false;
        }
    }
    if (o.block == 0 || o.block > 8192 || o.tempo <= 0.0 || o.seconds <= 0.0 || o.runs <= 0) return false;
    return o.time ? !o.state.empty() : !o.input.empty() && !o.output.empty();
}

int render(const Options& o, lv2host::Instance& plugin) {
    SF_INFO info{};
    SNDFILE* in = sf_open(o.input.c_str(), SFM_READ, &info);
    if (in == nullptr || info.channels < 1 || info.channels > 2 ||
        info.samplerate != static_cast<int>(kRate)) {
        std::fprintf(stderr, "orvanto-lv2-host: '%s': not a mono or stereo file at 48 kHz\n",
                     o.input.c_str());
        if (in != nullptr) sf_close(in);
        return 2;
    }
    std::vector<float> frames(static_cast<std::size_t>(info.frames * info.channels));
    sf_readf_float(in, frames.data(), info.frames);
    sf_close(in);

    SF_INFO outInfo{};
    outInfo.samplerate = info.samplerate;
    outInfo.channels = 2;
    outInfo.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* out = sf_open(o.output.c_str(), SFM_WRITE, &outInfo);
    if (out == nullptr) {
        std::fprintf(stderr, "orvanto-lv2-host: cannot write '%s'\n", o.output.c_str());
        return 2;
    }
    std::vector<float> inL(o.block), inR(o.block), outL(o.block), outR(o.block), interleaved(2 * o.block);
    const auto channels = static_cast<std::size_t>(info.channels);
    for (sf_count_t done = 0; done < info.frames;) {
        const auto n = static_cast<uint32_t>(std::min<sf_count_t>(o.block, info.frames - done));
        for (uint32_t i = 0; i < n; ++i) {
            const std::size_t at = (static_cast<std::size_t>(done) + i) * channels;
            inL[i] = frames[at];
            inR[i] = frames[at + channels - 1];
        }
        plugin.run(inL.data(), inR.data(), outL.data(), outR.data(), n);
        for (uint32_t i = 0; i < n; ++i) {
            interleaved[2 * i] = outL[i];
            interleaved[2 * i + 1] = outR[i];
        }
        sf_writef_float(out, interleaved.data(), n);
        done += n;
    }
    sf_close(out);
    return 0;
}

// The engine itself, driven in this process as the core benchmark drives it: the same work without the
// plug-in format around it, timed beside the plug-in so that both see the same machine.
class CoreRig {
public:
    CoreRig(const std::vector<uint8_t>& image, double tempo, uint32_t block) {
        time.tempo = tempo;
        time.flags = kVstTransportPlaying | kVstPpqPosValid | kVstTempoValid;
        client = std::make_unique<AFUniClient>(&CoreRig::callback, this);
        client->setSampleRate(static_cast<float>(kRate));
        client->setBlockSize(static_cast<int32_t>(block));
        std::vector<uint8_t> copy = image;
        client->setChunk(copy.data(), static_cast<int32_t>(copy.size()), false);
    }
    void run(float* left, float* right, uint32_t frames) {
        float* io[2] = {left, right};
        client->processReplacing(io, io, static_cast<int32_t>(frames));
        time.ppqPos += frames / (kRate * 60.0 / time.tempo);
    }

private:
    static intptr_t callback(AFPluginBase* plugin, int32_t opcode, int32_t, intptr_t, void*, float) {
        if (opcode == audioMasterVersion) return 2;
        auto* rig = plugin != nullptr ? static_cast<CoreRig*>(plugin->getHostUser()) : nullptr;
        return opcode == audioMasterGetTime && rig != nullptr ? reinterpret_cast<intptr_t>(&rig->time) : 0;
    }

    AFTimeInfo time{};
    std::unique_ptr<AFUniClient> client;
};

// The core benchmark's signal: noise, the right channel the left inverted, processed in place block after
// block, so that each block feeds the slots what they made of the last.
struct Signal {
    explicit Signal(uint32_t block) : left(block), right(block) {
        uint32_t seed = 1;
        for (uint32_t i = 0; i < block; ++i) {
            seed = seed * 1664525u + 1013904223u;
            left[i] = static_cast<float>(seed >> 9) / 8388608.0f - 1.0f;
            right[i] = -left[i];
        }
    }
    std::vector<float> left, right;
};

void summarise(const char* what, std::vector<double> figures, uint32_t block, double seconds) {
    std::sort(figures.begin(), figures.end());
    const double median = figures[figures.size() / 2];
    std::printf(
        "%s block %u, %.1f s of audio per run, %zu runs: median %.3f ns per stereo sample, best %.3f, "
        "realtime x%.1f\n",
        what, block, seconds, figures.size(), median, figures.front(), 1e9 / (median * kRate));
}

int time(const Options& o, lv2host::Instance& plugin, const std::vector<uint8_t>& image) {
    Signal lv2Signal(o.block), coreSignal(o.block);
    const std::vector<float> dry = lv2Signal.left;
    CoreRig core(image, o.tempo, o.block);
    // Past the slots' fades, as the benchmark starts.
    for (int i = 0; i < 64; ++i) {
        plugin.run(lv2Signal.left.data(), lv2Signal.right.data(), lv2Signal.left.data(),
                   lv2Signal.right.data(), o.block);
        core.run(coreSignal.left.data(), coreSignal.right.data(), o.block);
    }
    // A plug-in that let the signal through untouched has not loaded the state, and its figure means nothing.
    if (lv2Signal.left == dry || coreSignal.left == dry) {
        std::fprintf(stderr, "orvanto-lv2-host: the output is the dry input: the state did not load\n");
        return 1;
    }

    const auto blocks = static_cast<int64_t>(o.seconds * kRate / o.block + 0.5);
    const double samples = static_cast<double>(blocks) * o.block;
    std::vector<double> lv2Figures, coreFigures;
    const auto timed = [&](auto&& step) {
        const auto start = std::chrono::steady_clock::now();
        for (int64_t b = 0; b < blocks; ++b)
            step();
        const std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - start;
        return elapsed.count() / samples;
    };
    // Turn about, so that a busy moment of the machine falls on both alike.
    for (int run = 0; run < o.runs; ++run) {
        lv2Figures.push_back(timed([&] {
            plugin.run(lv2Signal.left.data(), lv2Signal.right.data(), lv2Signal.left.data(),
                       lv2Signal.right.data(), o.block);
        }));
        coreFigures.push_back(
            timed([&] { core.run(coreSignal.left.data(), coreSignal.right.data(), o.block); }));
        std::printf("run %d: lv2 %.3f, core %.3f ns per stereo sample\n", run + 1, lv2Figures.back(),
                    coreFigures.back());
    }
    summarise("lv2 ", lv2Figures, o.block, samples / kRate);
    summarise("core", coreFigures, o.block, samples / kRate);
    const double lv2Best = *std::min_element(lv2Figures.begin(), lv2Figures.end());
    const double coreBest = *std::min_element(coreFigures.begin(), coreFigures.end());
    std::printf("through lv2: %+.1f %% against the core (best against best), %.2f us per block of %u\n",
                (lv2Best / coreBest - 1.0) * 100.0, (lv2Best - coreBest) * o.block / 1000.0, o.block);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    Options o;
    if (!parse(argc, argv, o)) {
        usage();
        return 2;
    }
    std::vector<uint8_t> image;
    if (!o.state.empty() && !readBytes(o.state, image)) {
        std::fprintf(stderr, "orvanto-lv2-host: cannot read '%s'\n", o.state.c_str());
        return 2;
    }

    lv2host::PrivateHome home(ORVANTO_CONTENT_DIR);
    lv2host::World world(o.bundle);
    if (world.plugin() == nullptr) {
        std::fprintf(stderr, "orvanto-lv2-host: no %s in '%s'\n", lv2host::kPluginUri, o.bundle.c_str());
        return 2;
    }
    lv2host::Instance plugin(world, kRate, o.block);
    if (!plugin.valid()) {
        std::fprintf(stderr, "orvanto-lv2-host: the plug-in did not instantiate\n");
        return 2;
    }
    plugin.transport().bpm = o.tempo;
    plugin.transport().positionEveryBlock = o.positionEveryBlock;
    if (!image.empty() && !plugin.restoreChunk(image)) {
        std::fprintf(stderr, "orvanto-lv2-host: the plug-in refused the state\n");
        return 2;
    }
    plugin.activate();
    return o.time ? time(o, plugin, image) : render(o, plugin);
}
