// The distance the offset estimation measures spread with.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "aoc/aoc_internal.h"

namespace {

TEST(AocDistance, IsEuclideanAndSymmetric) {
    EXPECT_EQ(quarvel::aoc_distance({0, 0, 0}, {3, 4, 0}), 5.0f);
    EXPECT_EQ(quarvel::aoc_distance({3, 4, 0}, {0, 0, 0}), 5.0f);
    EXPECT_EQ(quarvel::aoc_distance({1, -2, 3}, {1, -2, 3}), 0.0f);
    EXPECT_EQ(quarvel::aoc_distance({-1, -1, -1}, {1, 1, 1}), sqrtf(12.0f));
}

TEST(AocDistance, SquaresAreSummedInFloatBeforeTheDoubleRoot) {
    // Summed in double, this triple's distance would round one float step lower.
    const akfs_vec a{0x1.2e0db6p+11f, 0x1.16524ap+10f, 0x1.476924p+11f};
    EXPECT_EQ(quarvel::aoc_distance({0, 0, 0}, a), 0x1.d2b0b8p+11f);
}

TEST(AocDistance, NonNumbersAndOverflowStayDefined) {
    const float inf = std::numeric_limits<float>::infinity();
    EXPECT_TRUE(std::isnan(quarvel::aoc_distance({NAN, 0, 0}, {0, 0, 0})));
    EXPECT_EQ(quarvel::aoc_distance({inf, 0, 0}, {0, 0, 0}), inf);
    EXPECT_EQ(quarvel::aoc_distance({3e38f, 0, 0}, {-3e38f, 0, 0}), inf);
}

}  // namespace
