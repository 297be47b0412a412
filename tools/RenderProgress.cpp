#include "tools/RenderProgress.h"

#include <algorithm>

RenderProgress::RenderProgress(bool visible, int64_t totalFrames, int sampleRate, std::FILE* out)
    : shown(visible), total(std::max<int64_t>(totalFrames, 1)), rate(sampleRate), stream(out) {}

void RenderProgress::update(int64_t done) {
    if (!shown) return;
    const int percent = static_cast<int>(std::clamp<int64_t>(done, 0, total) * 100 / total);
    if (percent == last) return;
    last = percent;
    constexpr int kBar = 40;
    const int filled = percent * kBar / 100;
    std::fprintf(stream, "\rorvanto-render [%.*s%.*s] %3d%%  %.1f / %.1f s", filled,
                 "########################################", kBar - filled,
                 "........................................", percent, static_cast<double>(done) / rate,
                 static_cast<double>(total) / rate);
    if (percent == 100) std::fputc('\n', stream);
    std::fflush(stream);
}
