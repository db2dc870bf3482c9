// The soft gyroscope's orientation: tilt-compensated, smoothed heading, pitch, roll.
#include <gtest/gtest.h>

#include <cmath>

#include "calmodule/softgyro.h"

namespace {

constexpr float kTwoPi = 6.2831853f;

// Fills both smoothing histories with (hx, hy), so the next sample of the same
// value comes out unchanged.
void hold_horizontal_field(float hx, float hy) {
    for (int i = 0; i < 10; ++i) {
        float xy[2] = {hx, hy};
        softgy_CalibrationXY(xy);
    }
}

struct Orientation {
    float heading, pitch, roll;
};

Orientation orient(const float mag[3], const float acc[3]) {
    float out[3];
    softgy_GetOrientationAngles(mag, acc, out);
    return {out[0], out[1], out[2]};
}

// Heading of a flat device whose horizontal field is (hx, hy).
float flat_heading(float hx, float hy) {
    hold_horizontal_field(hx, hy);
    const float mag[3] = {hx, hy, -40.0f};
    const float up[3] = {0.0f, 0.0f, 1.0f};
    return orient(mag, up).heading;
}

TEST(SoftgyHeading, MeasuredFromPlusYTowardsPlusX) {
    EXPECT_EQ(flat_heading(1, 1), 0.7853981f);
    EXPECT_EQ(flat_heading(-1, 1), 5.497787f);
    EXPECT_EQ(flat_heading(-1, -1), 3.9269907f);
    EXPECT_EQ(flat_heading(1, -1), 2.3561945f);
    EXPECT_EQ(flat_heading(0, 1), 0.0f);
    EXPECT_EQ(flat_heading(0, -1), 3.1415925f);
    EXPECT_EQ(flat_heading(1, 0), 1.5707963f);
    EXPECT_EQ(flat_heading(-1, 0), 4.712389f);
    EXPECT_EQ(flat_heading(0, 0), 0.0f);
}

TEST(SoftgyHeading, ArcTangentAndOffsetInDoubleRoundedOnce) {
    // 1.5707963 - atan(2) in double, rounded once: float steps, or a float arc
    // tangent widened, land lower.
    EXPECT_EQ(flat_heading(1, 2), 0x1.dac66ep-2f);
}

TEST(SoftgyHeading, FlatDeviceHasZeroPitchAndRoll) {
    hold_horizontal_field(20, 0);
    const float mag[3] = {20, 0, -40};
    const float up[3] = {0, 0, 1};
    const Orientation o = orient(mag, up);
    EXPECT_EQ(o.pitch, 0.0f);
    EXPECT_EQ(o.roll, 0.0f);
    EXPECT_EQ(o.heading, 1.5707963f);
}

// A device tilted so that gravity reads `up`; the Earth's field, 20 µT horizontal
// along the device's heading-zero direction and 40 µT down, as it reads then.
float circular_gap(float a, float b) {
    const float d = std::fabs(a - b);
    return d > kTwoPi / 2 ? kTwoPi - d : d;
}

TEST(SoftgyHeading, RollAboutYIsCompensated) {
    // GIVEN the device rolled 30 degrees about its y axis
    const float s = 0.5f, c = 0.8660254f;
    const float up[3] = {s, 0, c};
    const float mag[3] = {-40 * s, 20, -40 * c};
    // WHEN the smoothing has settled
    Orientation o{};
    for (int i = 0; i < 10; ++i) o = orient(mag, up);
    // THEN the heading is still zero, and roll reads the tilt
    EXPECT_LT(circular_gap(o.heading, 0.0f), 1e-5f);
    EXPECT_FLOAT_EQ(o.roll, asinf(0.5f));
    EXPECT_EQ(o.pitch, 0.0f);
}

TEST(SoftgyHeading, PitchAboutXIsCompensated) {
    const float s = 0.5f, c = 0.8660254f;
    const float up[3] = {0, s, c};
    const float mag[3] = {0, 20 * c - 40 * s, -20 * s - 40 * c};
    Orientation o{};
    for (int i = 0; i < 10; ++i) o = orient(mag, up);
    EXPECT_EQ(o.heading, 0.0f);
    EXPECT_FLOAT_EQ(o.pitch, -atan2f(s, c));
    EXPECT_EQ(o.roll, 0.0f);
}

TEST(SoftgyCalibrationXY, MiddleSixOfTheLastTen) {
    float xy[2];
    for (int v = 1; v <= 10; ++v) {
        xy[0] = static_cast<float>(v);
        xy[1] = static_cast<float>(-v);
        softgy_CalibrationXY(xy);
    }
    EXPECT_EQ(xy[0], 5.5f);
    EXPECT_EQ(xy[1], -5.5f);
}

TEST(SoftgyCalibrationXY, RampsUpFromTheZerosOfLoadTime) {
    // v (k - 2) / 6 on call k: the zeros of load time count until overwritten.
    const float want[] = {0, 0, 1, 2, 3, 4, 5, 6, 6, 6};
    for (int k = 0; k < 10; ++k) {
        float xy[2] = {6.0f, 6.0f};
        softgy_CalibrationXY(xy);
        EXPECT_EQ(xy[0], want[k]) << "call " << k + 1;
        EXPECT_EQ(xy[1], want[k]) << "call " << k + 1;
    }
}

TEST(SoftgyCalibrationXY, ChannelsAreIndependentAndAnOutlierIsDropped) {
    hold_horizontal_field(3, -7);
    float xy[2] = {1000, -7};
    softgy_CalibrationXY(xy);
    EXPECT_EQ(xy[0], 3.0f);
    EXPECT_EQ(xy[1], -7.0f);
}

TEST(SoftgyHeading, NonNumbersDoNotCrash) {
    const float nan = NAN;
    const float mag[3] = {nan, 1, 2};
    const float acc[3] = {0, 0, 1};
    const Orientation o = orient(mag, acc);
    EXPECT_TRUE(std::isnan(o.heading) || (o.heading >= 0.0f && o.heading < kTwoPi));
    const float bad_acc[3] = {nan, nan, nan};
    const float good_mag[3] = {1, 2, 3};
    orient(good_mag, bad_acc);
}

}  // namespace
