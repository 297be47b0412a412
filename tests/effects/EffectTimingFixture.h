#pragma once

#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <vector>

// The lengths of the sync rows the effects share, in beats, longest first.
inline const std::vector<double> kSyncBeats = {2, 1, 0.5, 0.25, 0.125, 0.0625, 0.03125};

// A timing record at a chosen rate and tempo, and effects of one class built on it with their options and
// parameters set and activated, as a slot starts them.
template <class Effect, int TypeId>
struct EffectTimingFixture : ::testing::Test {
    AFBpmListenerList listeners;
    AFSystemInfo system{64.0f, &listeners};

    void SetUp() override {
        system.setControlInterval(64);
        setTiming(48000.0f, 120.0);
    }

    void setTiming(float rate, double bpm) {
        system.setSampleRate(rate);
        system.setTempo(bpm);
        listeners.notifyAll();
    }

    std::unique_ptr<Effect> make(std::array<float, 4> values, std::array<int32_t, 4> options) {
        auto fx = std::make_unique<Effect>(TypeId, &system, 0);
        for (int i = 0; i < 4; ++i) {
            fx->setOption(i, options[static_cast<std::size_t>(i)]);
            fx->setParameter(i, values[static_cast<std::size_t>(i)]);
        }
        fx->activate();
        return fx;
    }
};
