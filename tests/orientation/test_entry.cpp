// Through the built library as outside callers see it: the tilt helpers, and the
// orientation algorithm (type 3) as a HAL drives it, accelerometer and magnetic-field
// events in, orientation events out.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

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

TEST(Tilt, QuadrantAndRangeEdgesOfEveryHelper) {
    // {x, y, PitchAngle(x, y)}: a full turn from +x, three-quarters with no direction
    const float pitch[][3] = {{0, -5, 0x1.2d97c8p+2f}, {0, 0, 0x1.2d97c8p+2f}, {-0.0f, 1, 0x1.921fb4p+0f},
                              {-1, 0, 0x1.921fb4p+1f}};
    for (const auto &c : pitch) {
        float out = -123.0f;
        PitchAngle(c[0], c[1], &out);
        SCOPED_TRACE(testing::Message() << c[0] << ", " << c[1]);
        expect_same(out, c[2]);
    }
    // {x, y, z, RollAngle}: minus the elevation of y; y = 0 counts as not below 0
    const float roll[][4] = {{0, -2, 0, 0x1.921fb4p+0f}, {0, 0, 0, -0x1.921fb4p+0f}};
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

constexpr int kAccelerometer = CALMODULE_TYPE_ACCELEROMETER;
constexpr int kMagneticField = CALMODULE_TYPE_MAGNETIC_FIELD;
constexpr int kLight = CALMODULE_TYPE_LIGHT;

// Converts into a poisoned host record; every byte but data[0..2] and the status byte
// (all of them when nothing is written) must stay the host's.
int convert(const testsupport::LoadedModule &m, const sensors_event_t &in, sensors_event_t *out, bool writes) {
    *out = poisoned_event();
    const int rc = m.convert(CALMODULE_TYPE_ORIENTATION, in, out);
    const sensors_event_t host = poisoned_event();
    const auto *a = reinterpret_cast<const unsigned char *>(out), *b = reinterpret_cast<const unsigned char *>(&host);
    for (size_t i = 0; i < sizeof host; ++i) {
        if (!writes || i < 24 || i >= 37) { EXPECT_EQ(a[i], b[i]) << "byte " << i; }
    }
    return rc;
}

TEST(OrientationAlgorithm, FieldBeforeAnyAccelerationOrTooShortAnAccelerationWritesNothing) {
    testsupport::LoadedModule m;
    ASSERT_TRUE(m.ok());
    sensors_event_t out;
    EXPECT_EQ(convert(m, make_event(kMagneticField, 20, 0, -40), &out, false), 0);
    for (float z : {1e-20f, std::nanf("")}) EXPECT_EQ(convert(m, make_event(kAccelerometer, 0, 0, z), &out, false), -11);
    EXPECT_EQ(convert(m, make_event(kAccelerometer, 0, 0, 0x1p-52f), &out, true), -11);  // long enough
    EXPECT_EQ(out.vector.status, -1);
}

TEST(OrientationAlgorithm, EachEventRecomputesFromTheCachesAndOnlyFieldEventsAreDelivered) {
    testsupport::LoadedModule m;
    ASSERT_TRUE(m.ok());
    sensors_event_t out;
    // An acceleration without a field: the untouched zero result, not delivered.
    EXPECT_EQ(convert(m, make_event(kAccelerometer, 0, 0, 9.8f), &out, true), -11);
    EXPECT_TRUE(out.data[0] == 0.0f && out.data[1] == 0.0f && out.data[2] == 0.0f && out.vector.status == -1);
    // A field event (flat, facing south) is delivered with its status; the input is never written.
    sensors_event_t in = make_event(kMagneticField, 0, -20, -40);
    in.vector.status = 2;
    const sensors_event_t before = in;
    EXPECT_EQ(convert(m, in, &out, true), 0);
    EXPECT_EQ(std::memcmp(&in, &before, sizeof in), 0);
    EXPECT_TRUE(out.vector.status == 2 && out.data[1] == 0.0f && out.data[2] == 0.0f);
    // Other events recompute from the caches without reaching them.
    for (int i = 0; i < 40; ++i) EXPECT_EQ(convert(m, make_event(kLight, 500, 600, 700), &out, true), -11);
    EXPECT_EQ(out.vector.status, -1);
    EXPECT_NEAR(out.data[0], 180.0f, 1e-3f);
    EXPECT_EQ(m.symbol<float>("old_acc")[2], 9.8f);
}

}  // namespace
