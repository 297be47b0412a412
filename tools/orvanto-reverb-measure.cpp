// Measures a stereo reverb impulse response: T30 broadband, mid-band and by octave, when the echo density
// reaches 0.9, the correlation of the late tails and the strongest narrow spectral peak of the tail.
//
//   orvanto-reverb-measure IMPULSE.wav          a response recorded from an impulse at its first sample
//   orvanto-reverb-measure --own S T R [I] [-s SECONDS] [--option N] [--rate HZ]
//                                                the Reverb itself with "Size" S, "Reverb Time" T,
//                                                "Reflectivity" R and "Input" I (0..1), at 48 kHz
//                                                unless told
#include "effects/delay/AFReverbHQ.h"
#include "effects/framework/AFSystemInfo.h"
#include "tools/ImpulseMeasures.h"

#include <sndfile.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

bool readImpulse(const char* path, std::vector<float>& left, std::vector<float>& right, float& rate) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path, SFM_READ, &info);
    if (file == nullptr) return false;
    std::vector<float> frames(static_cast<std::size_t>(info.frames) *
                              static_cast<std::size_t>(info.channels));
    sf_readf_float(file, frames.data(), info.frames);
    sf_close(file);
    rate = static_cast<float>(info.samplerate);
    left.resize(static_cast<std::size_t>(info.frames));
    right.resize(static_cast<std::size_t>(info.frames));
    for (sf_count_t i = 0; i < info.frames; ++i) {
        const auto at = static_cast<std::size_t>(i) * static_cast<std::size_t>(info.channels);
        left[static_cast<std::size_t>(i)] = frames[at];
        right[static_cast<std::size_t>(i)] = frames[at + (info.channels > 1 ? 1 : 0)];
    }
    return true;
}

void renderOwn(const float values[4], int option, double seconds, std::vector<float>& left,
               std::vector<float>& right, float rate) {
    AFSystemInfo system(64.0f, nullptr);
    system.setSampleRate(rate);
    system.setControlInterval(64);
    AFReverbHQ reverb(13, &system, 0);
    reverb.setOption(2, option);
    for (int i = 0; i < 4; ++i)
        reverb.setParameter(i, values[i]);
    reverb.activate();
    const auto total = static_cast<std::size_t>(seconds * rate);
    left.assign(total, 0.0f);
    right.assign(total, 0.0f);
    left[0] = right[0] = 1.0f;
    for (std::size_t done = 0; done < total; done += 64) {
        reverb.controlTick();
        reverb.process(left.data() + done, right.data() + done,
                       static_cast<int>(std::min<std::size_t>(64, total - done)));
    }
}

} // namespace

int main(int argc, char** argv) {
    std::vector<float> left, right;
    float rate = 48000.0f;
    if (argc >= 5 && std::string(argv[1]) == "--own") {
        float values[4] = {std::strtof(argv[2], nullptr), std::strtof(argv[3], nullptr),
                           std::strtof(argv[4], nullptr), 1.0f};
        double seconds = 0.0;
        int option = 0;
        for (int i = 5; i < argc; ++i) {
            const std::string arg = argv[i];
            if (arg == "-s" && i + 1 < argc)
                seconds = std::strtod(argv[++i], nullptr);
            else if (arg == "--rate" && i + 1 < argc)
                rate = std::strtof(argv[++i], nullptr);
            else if (arg == "--option" && i + 1 < argc)
                option = std::atoi(argv[++i]);
            else
                values[3] = std::strtof(argv[i], nullptr);
        }
        const double shown = AFReverbHQ::reverbTimeSeconds(values[1]);
        if (seconds <= 0.0) seconds = std::max(3.0, shown * 1.2 + 1.0);
        renderOwn(values, option, seconds, left, right, rate);
        std::printf("shown %.3f s\n", shown);
    } else if (argc == 2) {
        if (!readImpulse(argv[1], left, right, rate)) {
            std::fprintf(stderr, "cannot read %s\n", argv[1]);
            return 1;
        }
    } else {
        std::fprintf(stderr,
                     "usage: orvanto-reverb-measure IMPULSE.wav | --own SIZE TIME REFLECT [INPUT] [-s S]\n");
        return 2;
    }
    std::printf("T30 broadband %.3f s, mid band %.3f s\n", ImpulseMeasures::t30(left, right, rate),
                ImpulseMeasures::t30(left, right, rate, 707.0));
    std::printf("T30 by octave:");
    for (double hz = 125.0; hz < 0.4 * rate; hz *= 2.0)
        std::printf(" %.0f Hz %.3f s,", hz, ImpulseMeasures::t30(left, right, rate, hz));
    std::printf("\n");
    std::printf("echo density 0.9 at %.1f ms (left), %.1f ms (right)\n",
                ImpulseMeasures::echoDensityTime(left, rate) * 1000.0,
                ImpulseMeasures::echoDensityTime(right, rate) * 1000.0);
    const auto [from, to] = ImpulseMeasures::lateTail(left, right, rate);
    std::printf("late tail %.2f..%.2f s: L/R correlation %.3f, worst peak over its third octave %.1f dB\n",
                from, to, ImpulseMeasures::correlation(left, right, rate, from, to),
                ImpulseMeasures::worstPeakDb(left, right, rate, from, to));
    return 0;
}
