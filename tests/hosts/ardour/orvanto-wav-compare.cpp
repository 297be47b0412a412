// Compares two stereo WAV files sample by sample from frame FROM on:
//   orvanto-wav-compare GOT EXPECTED FROM TOLERANCE [UNLIKE]
// Exit status 0 when both have the same length and no sample from FROM on differs by more than TOLERANCE,
// and, with UNLIKE, GOT also differs from that file somewhere by more than 1e-3 (so the match cannot be the
// input passed through).

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <vector>

namespace {

std::optional<std::vector<float>> readStereo(const char* path) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path, SFM_READ, &info);
    if (file == nullptr) return std::nullopt;
    std::vector<float> samples(static_cast<std::size_t>(info.frames) * 2);
    const bool stereo = info.channels == 2;
    if (stereo) sf_readf_float(file, samples.data(), info.frames);
    sf_close(file);
    if (!stereo) return std::nullopt;
    return samples;
}

// The largest difference, and the first frame where it exceeds the tolerance (-1 when none does).
std::pair<double, long> compare(const std::vector<float>& a, const std::vector<float>& b, std::size_t from,
                                double tolerance) {
    double worst = 0.0;
    long first = -1;
    for (std::size_t i = 2 * from; i < a.size(); ++i) {
        const double d = std::fabs(static_cast<double>(a[i]) - b[i]);
        if (d > tolerance && first < 0) first = static_cast<long>(i / 2);
        worst = std::max(worst, d);
    }
    return {worst, first};
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 5 && argc != 6) {
        std::fprintf(stderr, "usage: %s GOT EXPECTED FROM TOLERANCE [UNLIKE]\n", argv[0]);
        return 2;
    }
    const auto from = static_cast<std::size_t>(std::atol(argv[3]));
    const double tolerance = std::atof(argv[4]);
    const auto got = readStereo(argv[1]);
    const auto expected = readStereo(argv[2]);
    if (!got || !expected) {
        std::fprintf(stderr, "cannot read %s as stereo audio\n", !got ? argv[1] : argv[2]);
        return 1;
    }
    if (got->size() != expected->size()) {
        std::fprintf(stderr, "%s has %zu frames, %s has %zu\n", argv[1], got->size() / 2, argv[2],
                     expected->size() / 2);
        return 1;
    }
    const auto [worst, first] = compare(*got, *expected, from, tolerance);
    std::printf("max difference %.3g over frames %zu to %zu\n", worst, from, got->size() / 2);
    if (first >= 0) {
        std::fprintf(stderr, "differs by more than %g from frame %ld on\n", tolerance, first);
        return 1;
    }
    if (argc == 6) {
        const auto unlike = readStereo(argv[5]);
        if (!unlike || unlike->size() != got->size() || compare(*got, *unlike, from, 1e-3).second < 0) {
            std::fprintf(stderr, "%s is not audibly different from %s\n", argv[1], argv[5]);
            return 1;
        }
    }
    return 0;
}
