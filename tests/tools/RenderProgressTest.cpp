#include "tools/RenderProgress.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace {

std::string drawn(bool shown, std::initializer_list<int64_t> steps) {
    std::FILE* f = std::tmpfile();
    RenderProgress progress(shown, 1000, 100, f);
    for (int64_t done : steps)
        progress.update(done);
    std::fflush(f);
    std::rewind(f);
    std::string text;
    for (int c; (c = std::fgetc(f)) != EOF;)
        text += static_cast<char>(c);
    std::fclose(f);
    return text;
}

} // namespace

TEST(RenderProgress, RedrawsOnlyWhenThePercentageMoves) {
    EXPECT_TRUE(drawn(false, {0, 500, 1000}).empty());
    const std::string text = drawn(true, {5, 6, 9, 500, 1000});
    EXPECT_EQ(std::count(text.begin(), text.end(), '\r'), 3); // 0 %, 50 %, 100 %
    EXPECT_NE(text.find(" 50%  5.0 / 10.0 s"), std::string::npos) << text;
    EXPECT_NE(text.find("100%"), std::string::npos);
    EXPECT_EQ(text.back(), '\n');
}
