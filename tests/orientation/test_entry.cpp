// The orientation algorithm (type 3) as a HAL drives it: accelerometer and
// magnetic-field events in, orientation events out.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "support/module_loader.h"

namespace {

using testsupport::LoadedModule;
using testsupport::make_event;
using testsupport::poisoned_event;

constexpr int kAccelerometer = 1;
constexpr int kMagneticField = 2;
constexpr int kOrientation = 3;
constexpr int kLight = 5;

class OrientationAlgorithm : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(module.ok()); }

    int convert(const sensors_event_t &in, sensors_event_t *out) { return module.convert(kOrientation, in, out); }

    // The bytes of `out` beyond data[0..2] and the status byte must be the host's.
    static void expect_rest_untouched(const sensors_event_t &out) {
        const sensors_event_t host = poisoned_event();
        const auto *a = reinterpret_cast<const unsigned char *>(&out);
        const auto *b = reinterpret_cast<const unsigned char *>(&host);
        for (size_t i = 0; i < sizeof out; ++i) {
            if (i >= 24 && i < 37) continue;  // data[0..2] and the status byte
            ASSERT_EQ(a[i], b[i]) << "byte " << i;
        }
    }

    LoadedModule module;
};

TEST_F(OrientationAlgorithm, NoAccelerationYetMeansNoOutputButTheFieldIsAccepted) {
    sensors_event_t out = poisoned_event();
    EXPECT_EQ(convert(make_event(kMagneticField, 20, 0, -40), &out), 0);
    const sensors_event_t host = poisoned_event();
    EXPECT_EQ(std::memcmp(&out, &host, sizeof out), 0);
}

TEST_F(OrientationAlgorithm, AccelerometerEventFillsTheOutputButIsNotDelivered) {
    sensors_event_t out = poisoned_event();
    convert(make_event(kMagneticField, -20, 0, -40), &out);
    out = poisoned_event();
    EXPECT_EQ(convert(make_event(kAccelerometer, 0, 0, 9.8f), &out), -11);
    // Fresh angles: pitch and roll of a flat device. The heading is not yet the
    // east it will settle on, as the smoothers start from zeros.
    EXPECT_GE(out.data[0], 0.0f);
    EXPECT_LE(out.data[0], 360.0f);
    EXPECT_EQ(out.data[1], 0.0f);
    EXPECT_EQ(out.data[2], 0.0f);
    EXPECT_EQ(out.vector.status, -1);
    expect_rest_untouched(out);
}

TEST_F(OrientationAlgorithm, FieldEventIsDeliveredWithItsOwnStatus) {
    sensors_event_t out = poisoned_event();
    convert(make_event(kAccelerometer, 0, 0, 9.8f), &out);
    sensors_event_t in = make_event(kMagneticField, 0, -20, -40);
    in.vector.status = 2;
    const sensors_event_t before = in;
    out = poisoned_event();
    EXPECT_EQ(convert(in, &out), 0);
    EXPECT_EQ(std::memcmp(&in, &before, sizeof in), 0);  // the input is never written
    EXPECT_EQ(out.vector.status, 2);
    expect_rest_untouched(out);
    // The device lies flat facing south; the filters ramp from zero, but the
    // direction is there from the third call.
    for (int i = 0; i < 40; ++i) convert(in, &out);
    EXPECT_NEAR(out.data[0], 180.0f, 1e-3f);
}

TEST_F(OrientationAlgorithm, OtherEventTypesRecomputeFromTheCaches) {
    sensors_event_t out = poisoned_event();
    convert(make_event(kMagneticField, 20, 0, -40), &out);
    convert(make_event(kAccelerometer, 0, 0, 9.8f), &out);
    out = poisoned_event();
    // A light reading must not reach the caches.
    EXPECT_EQ(convert(make_event(kLight, 500, 600, 700), &out), -11);
    EXPECT_EQ(out.vector.status, -1);
    for (int i = 0; i < 30; ++i) convert(make_event(kLight, 500, 600, 700), &out);
    EXPECT_NEAR(out.data[0], 270.0f, 1e-3f);  // flat, y axis to the west
    const float *old_acc = module.symbol<float>("old_acc");
    ASSERT_NE(old_acc, nullptr);
    EXPECT_EQ(old_acc[2], 9.8f);
    EXPECT_EQ(old_acc[0], 0.0f);
}

TEST_F(OrientationAlgorithm, TooShortAccelerationWritesNothing) {
    sensors_event_t out = poisoned_event();
    convert(make_event(kMagneticField, 20, 0, -40), &out);
    out = poisoned_event();
    EXPECT_EQ(convert(make_event(kAccelerometer, 0, 0, 1e-20f), &out), -11);
    const sensors_event_t host = poisoned_event();
    EXPECT_EQ(std::memcmp(&out, &host, sizeof out), 0);
    // 2^-52 itself is long enough.
    EXPECT_EQ(convert(make_event(kAccelerometer, 0, 0, 0x1p-52f), &out), -11);
    EXPECT_EQ(out.vector.status, -1);
}

TEST_F(OrientationAlgorithm, ZeroFieldGivesZeroAnglesFromTheUntouchedResult) {
    // The computation leaves its result alone for a zero field, and the algorithm
    // reports that zero-initialised result.
    sensors_event_t out = poisoned_event();
    EXPECT_EQ(convert(make_event(kAccelerometer, 0, 0, 9.8f), &out), -11);
    EXPECT_EQ(out.data[0], 0.0f);
    EXPECT_EQ(out.data[1], 0.0f);
    EXPECT_EQ(out.data[2], 0.0f);
}

TEST_F(OrientationAlgorithm, FaceDownStopsCalibrationSampling) {
    const int16_t *cali_flag = module.symbol<int16_t>("cali_flag");
    ASSERT_NE(cali_flag, nullptr);
    EXPECT_EQ(*cali_flag, 1);
    sensors_event_t out = poisoned_event();
    convert(make_event(kMagneticField, 20, 0, 40), &out);
    convert(make_event(kAccelerometer, 0, 0, -9.8f), &out);
    EXPECT_EQ(*cali_flag, 0);
    convert(make_event(kAccelerometer, 0, 0, 9.8f), &out);
    EXPECT_EQ(*cali_flag, 1);
}

// Bad values: no crash and no undefined behaviour; the outputs are whatever the
// IEEE arithmetic and comparisons give.
TEST_F(OrientationAlgorithm, NaNAndInfiniteEventsAreSurvived) {
    const float nan = std::nanf("");
    sensors_event_t out = poisoned_event();
    convert(make_event(kMagneticField, nan, INFINITY, -INFINITY), &out);
    convert(make_event(kAccelerometer, 0, 0, 9.8f), &out);
    convert(make_event(kAccelerometer, INFINITY, 0, 9.8f), &out);
    // A NaN length fails the length test: nothing written.
    out = poisoned_event();
    EXPECT_EQ(convert(make_event(kAccelerometer, nan, 0, 9.8f), &out), -11);
    const sensors_event_t host = poisoned_event();
    EXPECT_EQ(std::memcmp(&out, &host, sizeof out), 0);
    EXPECT_EQ(convert(make_event(kMagneticField, 20, 0, -40), &out), 0);
}

}  // namespace
