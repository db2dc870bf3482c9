// Through the built library as outside callers see it: the tilt helpers, and the
// orientation algorithm (type 3) as a HAL drives it, accelerometer and magnetic-field
// events in, orientation events out.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "calmodule/orientation.h"
#include "support/module_loader.h"

namespace {

using testsupport::make_event;
using testsupport::poisoned_event;

// Same value, sign of zero included (NaN matches NaN).
void expect_same(float got, float want) {
    if (std::isnan(want)) {
        EXPECT_TRUE(std::isnan(got));
    } else {
        EXPECT_EQ(got, want);
        EXPECT_EQ(std::signbit(got), std::signbit(want));
    }
}

// The platform's atanf at run time, as the module calls it: a constant argument would
// be folded by the compiler, correctly rounded, where a device's libm may differ by an ulp.
float libm_atanf(float ratio) {
    volatile float v = ratio;
    return atanf(v);
}

TEST(Tilt, ExamplesOfEveryHelper) {
    // {x, y, PitchAngle(x, y)}: a full turn from +x, three-quarters with no direction
    const float pitch[][3] = {{0, -5, 0x1.2d97c8p+2f}, {0, 0, 0x1.2d97c8p+2f}, {-0.0f, 1, 0x1.921fb4p+0f},
                              {-1, 0, 0x1.921fb4p+1f},
                              {1, -7, 0x1.36ac9ep+2f}};  // atan(-7) + 6.2831852, summed in double
    for (const auto &c : pitch) {
        float out = -123.0f;
        PitchAngle(c[0], c[1], &out);
        SCOPED_TRACE(testing::Message() << c[0] << ", " << c[1]);
        expect_same(out, c[2]);
    }
    // {x, y, z, RollAngle}: minus the elevation of y; y = 0 counts as not below 0
    const float roll[][4] = {{0, -2, 0, 0x1.921fb4p+0f}, {0, 0, 0, -0x1.921fb4p+0f},
                             {5, 2, 0, -libm_atanf(2.0f / 5.0f)}};
    for (const auto &c : roll) {
        float out = -123.0f;
        RollAngle(c[0], c[1], c[2], &out);
        SCOPED_TRACE(testing::Message() << c[0] << ", " << c[1] << ", " << c[2]);
        expect_same(out, c[3]);
    }
    // {helper, g, angle}: angles from a gravity vector
    using Tilt = void (*)(const float *, float *);
    struct Case {
        Tilt f;
        float g[3], want;
    };
    const Case cases[] = {
        // No angle about x without g[1] and g[2]; a negative zero is no half turn
        {GetRoll, {1, 0, -0.0f}, 0.0f}, {GetPitchAngle, {1, 0, -0.0f}, 0.0f},
        {GetRoll, {0, -0.0f, -1}, -0x1.921fb6p+1f}, {GetPitchAngle, {0, 0x1p-20f, -1}, -atan2f(0x1p-20f, -1.0f)},
        // A component beyond one g is not clamped
        {GetPitch, {1.0000001f, 0, 0}, NAN}, {GetRollAngle, {1.0000001f, 0, 0}, NAN}};
    for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
        float out = -123.0f;
        cases[i].f(cases[i].g, &out);
        SCOPED_TRACE(testing::Message() << "row " << i);
        expect_same(out, cases[i].want);
    }
}

TEST(Tilt, SoftGyroNamesAreTheSameFunctionsNotCopies) {
    testsupport::LoadedModule module;
    ASSERT_TRUE(module.ok());
    for (const char *name : {"GetPitch", "GetRoll", "GetPitchAngle", "GetRollAngle"}) {
        void *first = module.symbol<void>(name);
        ASSERT_NE(first, nullptr) << name;
        EXPECT_EQ(first, module.symbol<void>((std::string("softgy_") + name).c_str())) << name;
    }
}

constexpr int kAccelerometer = CALMODULE_TYPE_ACCELEROMETER;
constexpr int kMagneticField = CALMODULE_TYPE_MAGNETIC_FIELD;
constexpr int kLight = CALMODULE_TYPE_LIGHT;

class OrientationAlgorithm : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(module.ok()); }
    // Converts into a fresh host record; returns the method's result.
    int convert(const sensors_event_t &in) {
        out = poisoned_event();
        return module.convert(3, in, &out);
    }
    // Every byte the host's but data[0..2] and the status byte, or, untouched: all.
    void expect_host_bytes(bool written) const {
        const sensors_event_t host = poisoned_event();
        const auto *a = reinterpret_cast<const unsigned char *>(&out);
        const auto *b = reinterpret_cast<const unsigned char *>(&host);
        for (size_t i = 0; i < sizeof out; ++i) {
            if (!written || i < 24 || i >= 37) {
                ASSERT_EQ(a[i], b[i]) << "byte " << i;
            }
        }
    }
    testsupport::LoadedModule module;
    sensors_event_t out;
};

TEST_F(OrientationAlgorithm, AccelerationTooShortOrMissingWritesNothing) {
    // No acceleration yet: the field is accepted, nothing written
    EXPECT_EQ(convert(make_event(kMagneticField, 20, 0, -40)), 0);
    expect_host_bytes(false);
    // Shorter than 2^-52 m/s², or of NaN length: nothing written
    for (float z : {1e-20f, std::nanf("")}) {
        EXPECT_EQ(convert(make_event(kAccelerometer, 0, 0, z)), -11);
        expect_host_bytes(false);
    }
    EXPECT_EQ(convert(make_event(kAccelerometer, 0, 0, 0x1p-52f)), -11);  // long enough
    EXPECT_EQ(out.vector.status, -1);
    expect_host_bytes(true);
}

TEST_F(OrientationAlgorithm, EachEventRecomputesFromTheCachesOnlyFieldEventsAreDelivered) {
    // GIVEN an acceleration without a field: the untouched zero result is reported
    EXPECT_EQ(convert(make_event(kAccelerometer, 0, 0, 9.8f)), -11);
    for (float d : {out.data[0], out.data[1], out.data[2]}) EXPECT_EQ(d, 0.0f);
    EXPECT_EQ(out.vector.status, -1);
    expect_host_bytes(true);
    // WHEN a field event comes (flat, facing south) THEN it is delivered with its status
    sensors_event_t in = make_event(kMagneticField, 0, -20, -40);
    in.vector.status = 2;
    const sensors_event_t before = in;
    EXPECT_EQ(convert(in), 0);
    EXPECT_EQ(std::memcmp(&in, &before, sizeof in), 0);  // the input is never written
    EXPECT_EQ(out.vector.status, 2);
    EXPECT_EQ(out.data[1], 0.0f);
    EXPECT_EQ(out.data[2], 0.0f);
    expect_host_bytes(true);
    // AND other events recompute from the caches without reaching them
    for (int i = 0; i < 40; ++i) EXPECT_EQ(convert(make_event(kLight, 500, 600, 700)), -11);
    EXPECT_EQ(out.vector.status, -1);
    EXPECT_NEAR(out.data[0], 180.0f, 1e-3f);
    EXPECT_EQ(convert(make_event(kAccelerometer, 0, 0, 9.8f)), -11);
    EXPECT_NEAR(out.data[0], 180.0f, 1e-3f);
    const float *old_acc = module.symbol<float>("old_acc");
    ASSERT_NE(old_acc, nullptr);
    EXPECT_EQ(old_acc[2], 9.8f);
}

}  // namespace
