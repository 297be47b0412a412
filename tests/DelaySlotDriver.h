#pragma once

#include "effects/framework/AFEffect.h"

#include <algorithm>
#include <array>
#include <vector>

// Drives an effect as a slot does: at every 64-sample tick the four parameters, then controlTick, and
// process on pieces of uneven sizes that never straddle a tick.
struct DelaySlotDriver {
    explicit DelaySlotDriver(AFEffect& target) : effect(target) {}

    void run(float* left, float* right, int count) {
        static constexpr int kPieces[] = {64, 17, 5, 1, 41, 64, 33, 64};
        int done = 0;
        while (done < count) {
            if (countdown == 0) {
                const int n = std::min(effect.getParameterCount(), 4);
                for (int i = 0; i < n; ++i)
                    effect.setParameter(i, values[static_cast<std::size_t>(i)]);
                effect.controlTick();
                countdown = 64;
            }
            const int piece = std::min({count - done, countdown, kPieces[next++ % std::size(kPieces)]});
            effect.process(left + done, right + done, piece);
            done += piece;
            countdown -= piece;
        }
    }

    void run(std::vector<float>& left, std::vector<float>& right) {
        run(left.data(), right.data(), static_cast<int>(left.size()));
    }

    AFEffect& effect;
    std::array<float, 4> values{};
    int countdown = 0;
    std::size_t next = 0;
};
