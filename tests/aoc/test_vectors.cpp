// Vector histories: marking empty, shifting, pushing normalised samples, averaging,
// and resetting the offset-estimation context.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "akfs_test_util.h"
#include "calmodule/aoc.h"

namespace {

using akfstest::bits;
using akfstest::is_empty_entry;

const akfs_vec A{1, 2, 3}, B{4, 5, 6}, C{7, 8, 9}, D{10, 11, 12}, E{13, 14, 15};

bool same(const akfs_vec &a, const akfs_vec &b) { return std::memcmp(&a, &b, sizeof a) == 0; }

TEST(InitBuffer, MarksEveryEntryEmptyAndRefusesNonPositiveCounts) {
    akfs_vec h[33];
    for (auto &v : h) v = A;
    EXPECT_EQ(AKFS_InitBuffer(0, h), 0);
    EXPECT_EQ(AKFS_InitBuffer(-4, h), 0);
    for (const auto &v : h) EXPECT_TRUE(same(v, A));

    EXPECT_EQ(AKFS_InitBuffer(32, h), 1);
    for (int i = 0; i < 32; ++i) EXPECT_TRUE(is_empty_entry(h[i])) << i;
    EXPECT_TRUE(same(h[32], A));  // nothing beyond the count
}

TEST(BufShift, MovesTowardsTheEndReadingOverlapsBeforeWriting) {
    akfs_vec h[5] = {A, B, C, D, E};
    EXPECT_EQ(AKFS_BufShift(5, 2, h), 1);
    const akfs_vec want[5] = {A, B, A, B, C};
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(same(h[i], want[i])) << i;
}

TEST(BufShift, ShiftOfTheWholeLengthChangesNothingAndLongerOrNonPositiveShiftsAreRefused) {
    akfs_vec h[5] = {A, B, C, D, E};
    EXPECT_EQ(AKFS_BufShift(5, 5, h), 1);
    EXPECT_EQ(AKFS_BufShift(5, 6, h), 0);
    EXPECT_EQ(AKFS_BufShift(5, 0, h), 0);
    EXPECT_EQ(AKFS_BufShift(5, -1, h), 0);
    EXPECT_EQ(AKFS_BufShift(-3, 1, h), 0);
    const akfs_vec want[5] = {A, B, C, D, E};
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(same(h[i], want[i])) << i;
}

TEST(VbAve, FreshHistoryAveragesToZero) {
    akfs_vec h[8];
    AKFS_InitBuffer(8, h);
    akfs_vec avg{9, 9, 9};
    EXPECT_EQ(AKFS_VbAve(8, h, 8, &avg), 1);
    EXPECT_VEC_EQ(avg, 0.0f, 0.0f, 0.0f);
}

TEST(VbAve, StopsAtTheFirstEmptyEntry) {
    akfs_vec h[8];
    AKFS_InitBuffer(8, h);
    h[0] = {1, 1, 1};
    h[1] = {3, 3, 3};
    h[3] = {100, 100, 100};  // behind the empty entry 2: never reached
    akfs_vec avg;
    EXPECT_EQ(AKFS_VbAve(8, h, 8, &avg), 1);
    EXPECT_VEC_EQ(avg, 2.0f, 2.0f, 2.0f);

    // One marked component empties the entry; the count bounds the walk too.
    const akfs_vec g[4] = {{2, 4, 6}, {4, 8, 2}, {4, AKFS_EMPTY_MARKER, 2}, {0, 0, 0}};
    EXPECT_EQ(AKFS_VbAve(4, g, 4, &avg), 1);
    EXPECT_VEC_EQ(avg, 3.0f, 6.0f, 4.0f);
    EXPECT_EQ(AKFS_VbAve(4, g, 1, &avg), 1);
    EXPECT_VEC_EQ(avg, 2.0f, 4.0f, 6.0f);
}

TEST(VbAve, RefusesBadCountsWithoutWriting) {
    akfs_vec h[4] = {A, B, C, D};
    akfs_vec avg{7, 7, 7};
    EXPECT_EQ(AKFS_VbAve(4, h, 0, &avg), 0);
    EXPECT_EQ(AKFS_VbAve(4, h, 5, &avg), 0);
    EXPECT_EQ(AKFS_VbAve(0, h, 0, &avg), 0);
    EXPECT_EQ(AKFS_VbAve(-2, h, 1, &avg), 0);
    EXPECT_VEC_EQ(avg, 7.0f, 7.0f, 7.0f);
}

TEST(VbNorm, PushesSubtractDivideMultiplyToTheFront) {
    akfs_vec h[3] = {A, B, C};
    const akfs_vec sample{10, 20, 30};
    const akfs_vec offset{0, 10, 20};
    const akfs_vec scale{2, 2, 2};
    EXPECT_EQ(AKFS_VbNorm(1, &sample, 1, &offset, &scale, 1.0f, 3, h), 1);
    EXPECT_VEC_EQ(h[0], 5.0f, 5.0f, 5.0f);
    EXPECT_TRUE(same(h[1], A));
    EXPECT_TRUE(same(h[2], B));
}

TEST(VbNorm, SeveralSamplesKeepTheirOrderAndDivideBeforeTheGain) {
    akfs_vec h[4] = {A, B, C, D};
    const akfs_vec data[2] = {{2, 3, 4}, {1, 5, 5}};
    const akfs_vec offset{1, 0, 0};
    const akfs_vec scale{3, 1, 1};
    EXPECT_EQ(AKFS_VbNorm(2, data, 2, &offset, &scale, 5.0f, 4, h), 1);
    // (2 - 1) / 3 * 5: dividing first rounds one step above 5 / 3.
    EXPECT_EQ(h[0].x, 0x1.aaaaacp+0f);
    EXPECT_VEC_EQ(h[1], 0.0f, 25.0f, 25.0f);
    EXPECT_TRUE(same(h[2], A));
    EXPECT_TRUE(same(h[3], B));
}

TEST(VbNorm, RefusesTinyScaleNonPositiveGainAndBadCountsLeavingTheHistory) {
    const akfs_vec sample{10, 20, 30};
    const akfs_vec offset{0, 0, 0};
    const akfs_vec good{2, 2, 2};
    const akfs_vec tiny{2, 1e-8f, 2};
    const akfs_vec at_epsilon{2, 2, 0x1p-23f};
    akfs_vec h[3] = {A, B, C};
    EXPECT_EQ(AKFS_VbNorm(1, &sample, 1, &offset, &tiny, 1.0f, 3, h), 0);
    EXPECT_EQ(AKFS_VbNorm(1, &sample, 1, &offset, &at_epsilon, 1.0f, 3, h), 0);
    EXPECT_EQ(AKFS_VbNorm(1, &sample, 1, &offset, &good, 0.0f, 3, h), 0);
    EXPECT_EQ(AKFS_VbNorm(1, &sample, 1, &offset, &good, -1.0f, 3, h), 0);
    EXPECT_EQ(AKFS_VbNorm(0, &sample, 1, &offset, &good, 1.0f, 3, h), 0);
    EXPECT_EQ(AKFS_VbNorm(1, &sample, 2, &offset, &good, 1.0f, 3, h), 0);   // ndata < count
    EXPECT_EQ(AKFS_VbNorm(1, &sample, 1, &offset, &good, 1.0f, 0, h), 0);
    EXPECT_EQ(AKFS_VbNorm(1, &sample, 0, &offset, &good, 1.0f, 3, h), 0);
    const akfs_vec want[3] = {A, B, C};
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(same(h[i], want[i])) << i;
}

TEST(InitAOC, EmptiesBothHistoriesAndClearsTheRadius) {
    aoc_context ctx;
    std::memset(&ctx, 0x3C, sizeof ctx);
    AKFS_InitAOC(&ctx);
    for (const auto &v : ctx.sample_history) EXPECT_TRUE(is_empty_entry(v));
    for (const auto &v : ctx.offset_history) EXPECT_TRUE(is_empty_entry(v));
    EXPECT_EQ(bits(ctx.sphere_radius), 0u);
}

}  // namespace
