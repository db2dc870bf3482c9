// Heading and tilt from averaged histories; the mounting remaps.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "akfs_test_util.h"
#include "calmodule/aoc.h"

namespace {

using akfstest::bits;

struct Angles {
    float azimuth = -7.0f, pitch = -7.0f, roll = -7.0f;
};

// One-entry histories holding h and a.
int16_t direction(akfs_vec h, akfs_vec a, Angles *out) {
    return AKFS_Direction(1, &h, 1, 1, &a, 1, &out->azimuth, &out->pitch, &out->roll);
}

TEST(Direction, FlatDeviceFacingTheFieldReadsZeroEverywhere) {
    Angles o;
    ASSERT_EQ(direction({0, 20, -40}, {0, 0, 9.8f}, &o), 1);
    // The heading comes out as a negative zero, which is not below 0 and stays.
    EXPECT_EQ(bits(o.azimuth), 0x80000000u);
    EXPECT_EQ(o.pitch, 0.0f);
    EXPECT_EQ(o.roll, 0.0f);
}

TEST(Direction, QuarterTurnsOfTheHorizontalField) {
    Angles o;
    ASSERT_EQ(direction({-20, 0, -40}, {0, 0, 9.8f}, &o), 1);
    EXPECT_EQ(o.azimuth, 90.0f);
    // A negative heading is brought into [0, 360).
    ASSERT_EQ(direction({20, 0, -40}, {0, 0, 9.8f}, &o), 1);
    EXPECT_EQ(o.azimuth, 270.0f);
    ASSERT_EQ(direction({0, -20, -40}, {0, 0, 9.8f}, &o), 1);
    EXPECT_NEAR(o.azimuth, 180.0f, 1e-4f);
}

TEST(Direction, TiltFollowsGravity) {
    Angles o;
    // Gravity half along -y: pitch +30 degrees; half along +x: roll +30 degrees.
    ASSERT_EQ(direction({0, 20, -40}, {0, -4.9f, 9.8f * 0.8660254f}, &o), 1);
    EXPECT_NEAR(o.pitch, 30.0f, 1e-3f);
    EXPECT_NEAR(o.roll, 0.0f, 1e-6f);
    ASSERT_EQ(direction({0, 20, -40}, {4.9f, 0, 9.8f * 0.8660254f}, &o), 1);
    EXPECT_NEAR(o.roll, 30.0f, 1e-3f);
    EXPECT_NEAR(o.pitch, 0.0f, 1e-6f);
}

TEST(Direction, UsesTheAverageOfTheNewestEntries) {
    // Magnetic entries average to (-20, 0, -40); the third one is beyond hn.
    const akfs_vec h[3] = {{-30, 5, -40}, {-10, -5, -40}, {500, 500, 500}};
    akfs_vec a[2];
    AKFS_InitBuffer(2, a);
    a[0] = {0, 0, 9.8f};
    Angles o;
    ASSERT_EQ(AKFS_Direction(3, h, 2, 2, a, 2, &o.azimuth, &o.pitch, &o.roll), 1);
    EXPECT_EQ(o.azimuth, 90.0f);
}

TEST(Direction, RejectsBadCountsWithoutWriting) {
    const akfs_vec h[2] = {{0, 20, -40}, {0, 20, -40}};
    const akfs_vec a[2] = {{0, 0, 9.8f}, {0, 0, 9.8f}};
    Angles o;
    EXPECT_EQ(AKFS_Direction(0, h, 1, 2, a, 1, &o.azimuth, &o.pitch, &o.roll), 0);
    EXPECT_EQ(AKFS_Direction(2, h, 0, 2, a, 1, &o.azimuth, &o.pitch, &o.roll), 0);
    EXPECT_EQ(AKFS_Direction(2, h, 1, -1, a, 1, &o.azimuth, &o.pitch, &o.roll), 0);
    EXPECT_EQ(AKFS_Direction(2, h, 1, 2, a, 0, &o.azimuth, &o.pitch, &o.roll), 0);
    EXPECT_EQ(AKFS_Direction(1, h, 2, 2, a, 1, &o.azimuth, &o.pitch, &o.roll), 0);  // hn > nh
    EXPECT_EQ(AKFS_Direction(2, h, 1, 1, a, 2, &o.azimuth, &o.pitch, &o.roll), 0);  // an > na
    EXPECT_EQ(o.azimuth, -7.0f);
    EXPECT_EQ(o.pitch, -7.0f);
    EXPECT_EQ(o.roll, -7.0f);
}

TEST(Direction, RejectsAMissingOrZeroGravity) {
    const akfs_vec h{0, 20, -40};
    akfs_vec a[2];
    AKFS_InitBuffer(2, a);  // newest entry empty: averages to zero
    Angles o;
    EXPECT_EQ(AKFS_Direction(1, &h, 1, 2, a, 2, &o.azimuth, &o.pitch, &o.roll), 0);
    EXPECT_EQ(direction(h, {0, 0, 0}, &o), 0);
    EXPECT_EQ(direction(h, {1e-20f, 0, 0}, &o), 0);  // its square vanishes in float
    EXPECT_EQ(o.azimuth, -7.0f);
}

TEST(Direction, NonNumbersDoNotCrash) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    Angles o;
    direction({nan, 1, 2}, {0, 0, 9.8f}, &o);
    direction({1, 2, 3}, {nan, 0, 9.8f}, &o);
    direction({inf, -inf, 3}, {inf, 0, 1}, &o);
    EXPECT_EQ(direction({0, 20, -40}, {3e38f, 3e38f, 0}, &o), 1);  // g overflows to inf
}

TEST(Rotate, EightLayouts) {
    const akfs_vec want[9] = {{},        {1, 2, 3},   {2, -1, 3},  {-1, -2, 3}, {-2, 1, 3},
                              {-1, 2, -3}, {2, 1, -3}, {1, -2, -3}, {-2, -1, -3}};
    for (int layout = 1; layout <= 8; ++layout) {
        akfs_vec v{1, 2, 3};
        EXPECT_EQ(AKFS_Rotate(layout, &v), 1);
        EXPECT_VEC_EQ(v, want[layout].x, want[layout].y, want[layout].z);
    }
}

TEST(Rotate, UnknownLayoutsLeaveTheVector) {
    for (int layout : {0, 9, -1, -8, 1000}) {
        akfs_vec v{1, 2, 3};
        EXPECT_EQ(AKFS_Rotate(layout, &v), 0) << layout;
        EXPECT_VEC_EQ(v, 1.0f, 2.0f, 3.0f);
    }
}

TEST(RotateMat, IdentityAndQuarterTurn) {
    const int16_t identity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    akfs_vec v{1, 2, 3};
    EXPECT_EQ(AKFS_RotateMat(identity, &v), 1);
    EXPECT_VEC_EQ(v, 1.0f, 2.0f, 3.0f);

    const int16_t quarter[9] = {0, 1, 0, -1, 0, 0, 0, 0, 1};
    EXPECT_EQ(AKFS_RotateMat(quarter, &v), 1);
    EXPECT_VEC_EQ(v, 2.0f, -1.0f, 3.0f);
}

TEST(RotateMat, ReadsTheInputOnlyAndSumsYThenXThenZ) {
    // Every row (1, 1, 1): y + x first loses the 1 against 1e8, then z cancels.
    const int16_t ones[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
    akfs_vec v{1, 1e8f, -1e8f};
    AKFS_RotateMat(ones, &v);
    EXPECT_VEC_EQ(v, 0.0f, 0.0f, 0.0f);

    // Large entries are exact as floats.
    const int16_t big[9] = {-32768, 0, 0, 0, 32767, 0, 0, 0, 2};
    akfs_vec w{1, 1, 0.5f};
    AKFS_RotateMat(big, &w);
    EXPECT_VEC_EQ(w, -32768.0f, 32767.0f, 1.0f);
}

}  // namespace
