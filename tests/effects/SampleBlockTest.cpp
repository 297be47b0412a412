#include "effects/framework/SampleBlock.h"

#include <gtest/gtest.h>

#include <algorithm>

// A large block is kept when its owner goes and handed to the next owner of the same size. Whatever the old
// owner left, fully written or written up to the point it vouched for, the new owner starts in silence.
TEST(SampleBlock, KeptBlockComesBackSilent) {
    // A size no effect uses, so that the block kept is the one just freed.
    constexpr std::size_t kSamples = (std::size_t{1} << 20) + 7;
    for (const bool vouched : {false, true}) {
        const float* before = nullptr;
        {
            SampleBlock old(kSamples);
            before = old.data();
            const std::size_t written = vouched ? kSamples / 3 : kSamples;
            std::fill_n(old.data(), written, 0.25f);
            if (vouched) old.silentFrom(written);
        }
        const SampleBlock next(kSamples);
        EXPECT_EQ(next.data(), before) << "the freed block was not kept";
        EXPECT_EQ(std::count(next.data(), next.data() + kSamples, 0.0f),
                  static_cast<std::ptrdiff_t>(kSamples))
            << vouched;
    }
}
