#include "tools/RenderSource.h"

#include "tools/BoundedFile.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

constexpr int kMinRate = 11050;
constexpr int kMaxRate = 196000;

} // namespace

RenderSource::~RenderSource() {
    if (file != nullptr) sf_close(file);
}

bool RenderSource::openFile(const std::string& path, std::string& error) {
    std::string reason;
    if (access(path.c_str(), R_OK) != 0 || !BoundedFile::isRegular(path, reason)) {
        error = "cannot read '" + path + "': " + (reason.empty() ? std::strerror(errno) : reason);
        return false;
    }
    SF_INFO info{};
    file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr) {
        error = "cannot read '" + path + "' as audio: " + sf_strerror(nullptr);
        return false;
    }
    if (info.channels < 1 || info.channels > 2) {
        error = "'" + path + "' has " + std::to_string(info.channels) +
                " channels; only mono and stereo are taken";
        return false;
    }
    if (info.samplerate < kMinRate || info.samplerate > kMaxRate) {
        error = "'" + path + "' runs at " + std::to_string(info.samplerate) +
                " Hz; the plug-in takes 11050 to 196000 Hz";
        return false;
    }
    channels = info.channels;
    rate = info.samplerate;
    fileFrames = info.frames;
    return true;
}

void RenderSource::useDemo(int sampleRate, double tempo) {
    rate = sampleRate;
    demo.emplace(sampleRate, tempo);
}

void RenderSource::read(int64_t frame, float* left, float* right, int count) {
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
