#include "tools/RenderSource.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

std::string writeFile(int channels, int rate, int frames) {
    char pattern[] = "/tmp/render-source-test-XXXXXX";
    const int fd = mkstemp(pattern);
    close(fd);
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* f = sf_open(pattern, SFM_WRITE, &info);
    std::vector<float> s(static_cast<std::size_t>(frames * channels));
    for (std::size_t i = 0; i < s.size(); ++i)
        s[i] = static_cast<float>(i) * 0.001f;
    sf_writef_float(f, s.data(), frames);
    sf_close(f);
    return pattern;
}

} // namespace

TEST(RenderSource, MonoIsDuplicatedAndTheTailIsSilent) {
    const std::string path = writeFile(1, 44100, 100);
    RenderSource source;
    std::string error;
    ASSERT_TRUE(source.openFile(path, error)) << error;
    EXPECT_EQ(source.sampleRate(), 44100);
    EXPECT_EQ(source.inputFrames(), 100);
    std::vector<float> left(64), right(64);
    source.read(0, left.data(), right.data(), 64);
    EXPECT_EQ(left, right);
    EXPECT_FLOAT_EQ(left[63], 0.063f);
    source.read(64, left.data(), right.data(), 64); // 36 frames of file, then silence
    EXPECT_FLOAT_EQ(left[35], 0.099f);
    EXPECT_EQ(left[36], 0.0f);
    EXPECT_EQ(right[63], 0.0f);
    std::remove(path.c_str());
}

TEST(RenderSource, StereoKeepsItsChannels) {
    const std::string path = writeFile(2, 96000, 10);
    RenderSource source;
    std::string error;
    ASSERT_TRUE(source.openFile(path, error)) << error;
    std::vector<float> left(10), right(10);
    source.read(0, left.data(), right.data(), 10);
    EXPECT_FLOAT_EQ(left[3], 0.006f);
    EXPECT_FLOAT_EQ(right[3], 0.007f);
    std::remove(path.c_str());
}

TEST(RenderSource, RefusesWhatThePluginCannotPlay) {
    std::string error;
    for (const auto& [channels, rate] : {std::pair{3, 48000}, std::pair{2, 8000}}) {
        const std::string path = writeFile(channels, rate, 10);
        RenderSource source;
        EXPECT_FALSE(source.openFile(path, error)) << channels << " " << rate;
        EXPECT_FALSE(error.empty());
        std::remove(path.c_str());
    }
    RenderSource missing;
    EXPECT_FALSE(missing.openFile("/nonexistent/file.wav", error));
    EXPECT_NE(error.find("/nonexistent/file.wav"), std::string::npos);
}

TEST(RenderSource, DemoLoopRepeats) {
    RenderSource source;
    source.useDemo(48000, 120.0);
    EXPECT_EQ(source.sampleRate(), 48000);
    EXPECT_EQ(source.inputFrames(), 0);
    std::vector<float> a(32), b(32), l(32), r(32);
    source.read(100, a.data(), l.data(), 32);
    source.read(100 + 192000, b.data(), r.data(), 32); // one loop later: 8 beats at 120 BPM
    EXPECT_EQ(a, b);
}
