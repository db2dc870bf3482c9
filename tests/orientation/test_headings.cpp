// The eight-sample smoothers and the two tilt-compensated headings.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "calmodule/orientation.h"
#include "orientation/heading.h"

namespace {

// Feeds one value at a time through channel 0 of a two-channel smoother.
std::vector<float> feed(void (*smoother)(float *), const std::vector<float> &inputs) {
    std::vector<float> outputs;
    for (float x : inputs) {
        float v[3] = {x, 0.0f, 0.0f};
        smoother(v);
        outputs.push_back(v[0]);
    }
    return outputs;
}

// ---- Trimmed-mean smoothers ---------------------------------------------------------

TEST(TrimmedMean, ConstantInputRampsUpFromTheZeroRing) {
    for (auto smoother : {CalibrationTwo, CalibrationThree, CalibrationXY, CalibrationXYZ}) {
        EXPECT_EQ(feed(smoother, {4, 4, 4, 4, 4, 4, 4, 4, 4}),
                  (std::vector<float>{0, 0, 1, 2, 3, 4, 4, 4, 4}));
    }
}

TEST(TrimmedMean, DropsTheTwoSmallestAndTheTwoLargest) {
    const auto out = feed(CalibrationTwo, {1, 2, 3, 4, 100, -100, 5, 6});
    EXPECT_EQ(out.back(), 3.5f);  // (2 + 3 + 4 + 5) / 4
}

TEST(TrimmedMean, NinthInputOverwritesTheFirst) {
    // The ninth sample must replace the 1000 (the first), not the 2.
    const auto out = feed(CalibrationThree, {1000, 2, 3, 4, 5, 6, 7, 8, -1000, -1000});
    EXPECT_EQ(out[7], (4.0f + 5 + 6 + 7) / 4);  // 2..8 and 1000
    EXPECT_EQ(out[8], (3.0f + 4 + 5 + 6) / 4);  // -1000, 2..8
    EXPECT_EQ(out[9], (3.0f + 4 + 5 + 6) / 4);  // -1000, -1000, 3..8
}

TEST(TrimmedMean, EverySmootherAndEveryChannelKeepsItsOwnRing) {
    // GIVEN the four smoothers called in turn, each channel with its own constant
    float two[2], three[3], xy[2], xyz[3];
    for (int round = 0; round < 6; ++round) {
        two[0] = 1.0f, two[1] = 2.0f;
        three[0] = 3.0f, three[1] = 4.0f, three[2] = 5.0f;
        xy[0] = 6.0f, xy[1] = 7.0f;
        xyz[0] = 8.0f, xyz[1] = 9.0f, xyz[2] = -10.0f;
        CalibrationTwo(two);
        CalibrationThree(three);
        CalibrationXY(xy);
        CalibrationXYZ(xyz);
    }
    // THEN after the ramp each channel returns exactly its own value
    EXPECT_EQ(two[0], 1.0f);
    EXPECT_EQ(two[1], 2.0f);
    EXPECT_EQ(three[0], 3.0f);
    EXPECT_EQ(three[1], 4.0f);
    EXPECT_EQ(three[2], 5.0f);
    EXPECT_EQ(xy[0], 6.0f);
    EXPECT_EQ(xy[1], 7.0f);
    EXPECT_EQ(xyz[0], 8.0f);
    EXPECT_EQ(xyz[1], 9.0f);
    EXPECT_EQ(xyz[2], -10.0f);
}

// ---- Heading of GetAzimuth (degrees, from +X towards -Y) ----------------------------

float azimuth_of(float X, float Y) {
    float out = -1.0f;  // marks "not written"
    quarvel::azimuth_heading_degrees(X, Y, &out);
    return out;
}

TEST(AzimuthHeading, CardinalAndDiagonalPairs) {
    EXPECT_EQ(azimuth_of(0.0f, -1.0f), 90.0f);
    EXPECT_EQ(azimuth_of(-1.0f, 0.0f), 180.0f);
    EXPECT_EQ(azimuth_of(0.0f, 1.0f), 270.0f);
    // 45.0000013 in double (the degree factor rests on pi = 3.1415926), which
    // rounds to 45 exactly in float; likewise 315.
    EXPECT_EQ(azimuth_of(1.0f, -1.0f), 45.0f);
    EXPECT_EQ(azimuth_of(1.0f, 1.0f), 315.0f);
    EXPECT_EQ(azimuth_of(2.0f, -1.0f), -static_cast<float>(std::atan(-0.5) * (180.0 / 3.1415926)));
    EXPECT_NEAR(azimuth_of(-1.0f, -1.0f), 135.0f, 1e-4f);
    EXPECT_NEAR(azimuth_of(-1.0f, 1.0f), 225.0f, 1e-4f);
}

TEST(AzimuthHeading, DueNorthAndNoFieldLeaveTheCallersValue) {
    EXPECT_EQ(azimuth_of(1.0f, 0.0f), -1.0f);
    EXPECT_EQ(azimuth_of(0.0f, 0.0f), -1.0f);
    EXPECT_EQ(azimuth_of(-0.0f, 0.0f), -1.0f);
}

// ---- Heading of GetOrientationAngles (radians, from +Y towards +X) ------------------

TEST(OrientationHeading, CardinalAndDiagonalPairs) {
    using quarvel::orientation_heading_radians;
    EXPECT_EQ(orientation_heading_radians(0.0f, 1.0f), 0.0f);
    EXPECT_EQ(orientation_heading_radians(1.0f, 0.0f), 0x1.921fb4p+0f);   // 1.5707963
    EXPECT_EQ(orientation_heading_radians(0.0f, -1.0f), 0x1.921fb4p+1f);  // 3.1415925
    EXPECT_EQ(orientation_heading_radians(-1.0f, 0.0f), 0x1.2d97c8p+2f);  // 4.712389
    EXPECT_EQ(orientation_heading_radians(0.0f, 0.0f), 0.0f);
    // 1.5707963 - atan(1) and 4.7123889 - atan(1), formed in double.
    EXPECT_EQ(orientation_heading_radians(1.0f, 1.0f), static_cast<float>(1.5707963 - std::atan(1.0)));
    EXPECT_EQ(orientation_heading_radians(-1.0f, -1.0f), static_cast<float>(4.7123889 - std::atan(1.0)));
    EXPECT_NEAR(orientation_heading_radians(1.0f, 1.0f), 0.7853982f, 1e-7f);
    EXPECT_NEAR(orientation_heading_radians(-1.0f, -1.0f), 3.9269908f, 1e-6f);
    EXPECT_NEAR(orientation_heading_radians(1.0f, -1.0f), 2.3561945f, 1e-6f);
}

// ---- Low-pass on the horizontal pair --------------------------------------------------

TEST(HeadingLowPass, FirstPairSeedsThenBlendsOneFifth) {
    quarvel::HeadingLowPass lp;
    lp.update(10.0f, -20.0f);
    EXPECT_EQ(lp.flag, 1);
    EXPECT_EQ(lp.x, 10.0f);
    EXPECT_EQ(lp.y, -20.0f);
    lp.update(20.0f, 0.0f);
    EXPECT_EQ(lp.x, 10.0f * 0.8f + 20.0f * 0.2f);
    EXPECT_EQ(lp.y, -20.0f * 0.8f);
    EXPECT_EQ(lp.x, 12.0f);
}

// ---- GetAzimuth and GetOrientationAngles as callers see them -------------------------

TEST(GetAzimuth, FiltersTheFieldInPlaceAndSettlesOnEast) {
    // Flat device, remapped axes: gravity along +z, the field's horizontal part
    // along -y of the remapped frame reads as east.
    const float acc[3] = {0.0f, 0.0f, 1024.0f};
    float out = 0.0f;
    float mag[3] = {0.0f, -40.0f, 20.0f};
    GetAzimuth(acc, mag, &out);
    EXPECT_EQ(mag[0], 0.0f);  // first smoothed sample of a zero ring
    EXPECT_EQ(mag[1], 0.0f);
    EXPECT_EQ(out, 0.0f);  // nothing to point with yet: left alone
    for (int i = 0; i < 60; ++i) {
        float m[3] = {0.0f, -40.0f, 20.0f};
        GetAzimuth(acc, m, &out);
        if (i >= 4) {
            EXPECT_EQ(m[2], 20.0f);
        }
    }
    EXPECT_NEAR(out, 90.0f, 1e-3f);
}

TEST(GetOrientationAngles, FlatDeviceFacingNorthAndSmoothedField) {
    const float g[3] = {0.0f, 0.0f, 1.0f};
    const float expected_mag[] = {0.0f, 0.0f, 5.0f, 10.0f, 15.0f, 20.0f, 20.0f};
    float out[3] = {};
    for (float expected : expected_mag) {
        float mag[3] = {0.0f, 20.0f, -40.0f};
        GetOrientationAngles(mag, g, out);
        EXPECT_EQ(mag[1], expected);
        EXPECT_EQ(mag[2], -2.0f * expected);
    }
    EXPECT_EQ(out[0], 0.0f);
    EXPECT_EQ(out[1], 0.0f);
    EXPECT_EQ(out[2], 0.0f);
}

}  // namespace
