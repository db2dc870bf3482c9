// The soft gyroscope: changes against a snapshot every third call, the 35-degree
// gate, the low-pass filter, one large change reported alone, small changes after
// a quiet spell, and the tilt override.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include "calmodule/softgyro.h"
#include "magcal/calibration_state.h"
#include "softgyro/softgyro_state.h"

namespace {

struct Vec {
    float x, y, z;
};

const Vec kFlat{0.0f, 0.0f, 9.8f};

class SoftGyro : public ::testing::Test {
protected:
    Vec call(Vec acc, int32_t period = 20) {
        const float a[3] = {acc.x, acc.y, acc.z};
        float r[3] = {-99.0f, -99.0f, -99.0f};
        get_soft_gyro_value(a, &period, r);
        return {r[0], r[1], r[2]};
    }
    static void set_field(float x, float y, float z) {
        quarvel::cali_mag_values[0] = x;
        quarvel::cali_mag_values[1] = y;
        quarvel::cali_mag_values[2] = z;
    }
    // Fills the heading's smoothing with (hx, hy): a flat device with that
    // horizontal field then reads the same heading on every call.
    static void hold_horizontal_field(float hx, float hy) {
        for (int i = 0; i < 10; ++i) {
            float xy[2] = {hx, hy};
            softgy_CalibrationXY(xy);
        }
        set_field(hx, hy, -40.0f);
    }
    // Runs ten calls with the same input, so that the smoothing has settled and the
    // snapshot holds this orientation; returns it (azimuth, pitch, roll).
    Vec settle(Vec acc) {
        for (int i = 0; i < 10; ++i) call(acc);
        return {old_rota[0], old_rota[1], old_rota[2]};
    }
    // Filter seeded at zero, no recent large change, snapshot counter at 0.
    static void quiet_state() {
        quarvel::rota_filter[0] = quarvel::rota_filter[1] = quarvel::rota_filter[2] = 0.0f;
        quarvel::rota_filter_flag = 1;
        lock_temp = 10;
        or_flag = 0;
        gyro_values_static[0] = gyro_values_static[1] = gyro_values_static[2] = 0.0f;
    }
    static void snapshot(float azimuth, float pitch, float roll) {
        old_rota[0] = azimuth;
        old_rota[1] = pitch;
        old_rota[2] = roll;
    }
};

// Azimuth of a flat device whose field points along -x: a heading of 270 degrees.
constexpr float kAzimuthMinusX = 0x1.67fffep+6f;  // 89.99999

TEST_F(SoftGyro, RefusedPeriodWritesZeroAndTouchesNothing) {
    hold_horizontal_field(-20, 0);
    gyro_values_static[0] = 1.5f;
    snapshot(7, 8, 9);
    or_flag = 2;
    for (int32_t period : {0, 1001, -5}) {
        const Vec r = call(kFlat, period);
        EXPECT_EQ(r.x, 0.0f);
        EXPECT_EQ(r.y, 0.0f);
        EXPECT_EQ(r.z, 0.0f);
    }
    EXPECT_EQ(or_flag, 2);
    EXPECT_EQ(old_rota[0], 7.0f);
    EXPECT_EQ(gyro_values_static[0], 1.5f);
    // The range is inclusive at both ends.
    call(kFlat, 1);
    EXPECT_EQ(or_flag, 0);  // third call: snapshot taken
    call(kFlat, 1000);
    EXPECT_EQ(or_flag, 1);
}

TEST_F(SoftGyro, ZeroAccelerationIsRefusedLikeABadPeriod) {
    hold_horizontal_field(-20, 0);
    game_flag = 5;
    or_flag = 1;
    const Vec r = call({0, 0, 0});
    EXPECT_EQ(r.x, 0.0f);
    EXPECT_EQ(r.y, 0.0f);
    EXPECT_EQ(r.z, 0.0f);
    EXPECT_EQ(or_flag, 1);
    EXPECT_EQ(game_flag, 5);
    // The heading history did not take a non-number in: the next call is normal.
    quiet_state();
    snapshot(kAzimuthMinusX + 10.0f, 0, 0);
    EXPECT_FLOAT_EQ(call(kFlat).z, 2.0f);
}

TEST_F(SoftGyro, FromLoadTheFirstCallsAreGatedUntilARealSnapshot) {
    // GIVEN a freshly loaded library, the device flat and heading 270 degrees
    hold_horizontal_field(-20, 0);
    game_flag = 3;
    // WHEN it is called three times
    for (int i = 1; i <= 3; ++i) {
        const Vec r = call(kFlat);
        // THEN each result is the held (0, 0, 0): azimuth 90 is far from the
        // load-time snapshot of 0
        EXPECT_EQ(r.x, 0.0f);
        EXPECT_EQ(r.y, 0.0f);
        EXPECT_EQ(r.z, 0.0f);
        EXPECT_EQ(quarvel::rota_filter_flag, 0);
        if (i < 3) {
            EXPECT_EQ(or_flag, i);
            EXPECT_EQ(old_rota[0], 0.0f);
        }
    }
    EXPECT_EQ(game_flag, 0);
    // AND the third call took the unfiltered orientation as the snapshot
    EXPECT_EQ(or_flag, 0);
    EXPECT_EQ(old_rota[0], kAzimuthMinusX);
    EXPECT_EQ(old_rota[1], 0.0f);
    EXPECT_EQ(old_rota[2], 0.0f);
}

TEST_F(SoftGyro, SmallAzimuthStepThroughASeededFilter) {
    // GIVEN the filter seeded at 0 and the snapshot at azimuth 100
    hold_horizontal_field(-20, 0);
    quiet_state();
    lock_temp = 0;
    snapshot(100, 0, 0);
    // WHEN the device reads azimuth 90
    const Vec r = call(kFlat);
    // THEN a fifth of the 10-degree change is a large azimuth change, reported alone
    EXPECT_EQ(r.x, 0.0f);
    EXPECT_EQ(r.y, 0.0f);
    EXPECT_NEAR(r.z, 2.0f, 1e-5f);
    EXPECT_EQ(r.z, 0.2f * (100.0f - kAzimuthMinusX));
    EXPECT_EQ(lock_temp, 0);
}

TEST_F(SoftGyro, SeedingCallTakesTheRawChangesAndRollWinsFirst) {
    hold_horizontal_field(-20, 0);
    // Changes (older minus newer) of 2 degrees in roll and about 5 in azimuth.
    snapshot(kAzimuthMinusX + 5.0f, 0, 2);
    const Vec r = call(kFlat);
    EXPECT_EQ(quarvel::rota_filter_flag, 1);
    EXPECT_EQ(quarvel::rota_filter[2], 2.0f);
    EXPECT_FLOAT_EQ(quarvel::rota_filter[0], 5.0f);
    EXPECT_EQ(r.x, 0.0f);
    EXPECT_EQ(r.y, 2.0f);
    EXPECT_EQ(r.z, 0.0f);
}

TEST_F(SoftGyro, LargePitchChangeIsReportedAloneAheadOfAzimuth) {
    hold_horizontal_field(-20, 0);
    quiet_state();
    snapshot(kAzimuthMinusX + 20.0f, 10.0f, 0.5f);  // filtered: pitch 2, roll 0.1, azimuth 4
    const Vec r = call(kFlat);
    EXPECT_FLOAT_EQ(r.x, 2.0f);
    EXPECT_EQ(r.y, 0.0f);
    EXPECT_EQ(r.z, 0.0f);
    EXPECT_EQ(lock_temp, 0);

    // A decrease counts as large too: roll -8 filtered to -1.6.
    snapshot(kAzimuthMinusX, 0, -8.0f);
    quiet_state();
    const Vec neg = call(kFlat);
    EXPECT_EQ(neg.x, 0.0f);
    EXPECT_EQ(neg.y, 0.2f * -8.0f);
    EXPECT_EQ(neg.z, 0.0f);
}

TEST_F(SoftGyro, AfterALargeChangeTwoHeldCallsThenSmallChangesOnAllAxes) {
    // GIVEN a large azimuth change just reported
    hold_horizontal_field(-20, 0);
    quiet_state();
    snapshot(kAzimuthMinusX + 10.0f, 0, 0);
    const Vec large = call(kFlat);
    ASSERT_EQ(lock_temp, 0);
    // WHEN small changes follow on every axis
    for (int i = 1; i <= 3; ++i) {
        snapshot(kAzimuthMinusX + 0.1f, 0.1f, 0.1f);
        const Vec r = call(kFlat);
        if (i < 3) {
            // THEN the first two calls return the held estimate
            EXPECT_EQ(r.x, large.x) << i;
            EXPECT_EQ(r.y, large.y) << i;
            EXPECT_EQ(r.z, large.z) << i;
        } else {
            // AND the third passes the filtered changes through on all three axes
            EXPECT_EQ(r.x, quarvel::rota_filter[1]);
            EXPECT_EQ(r.y, quarvel::rota_filter[2]);
            EXPECT_EQ(r.z, quarvel::rota_filter[0]);
            EXPECT_GT(r.x, 0.0f);
            EXPECT_GT(r.y, 0.0f);
            EXPECT_LT(r.z, 1.8f);
        }
    }
    EXPECT_EQ(lock_temp, 3);
}

TEST_F(SoftGyro, StepsOf35DegreesOrMoreAreGatedOut) {
    hold_horizontal_field(-20, 0);
    quiet_state();
    gyro_values_static[0] = 0.5f;
    gyro_values_static[1] = -0.25f;
    gyro_values_static[2] = 1.0f;
    snapshot(kAzimuthMinusX, 35.0f, 0);  // exactly 35: refused
    Vec r = call(kFlat);
    EXPECT_EQ(r.x, 0.5f);
    EXPECT_EQ(r.y, -0.25f);
    EXPECT_EQ(r.z, 1.0f);
    EXPECT_EQ(quarvel::rota_filter[1], 0.0f);
    EXPECT_EQ(lock_temp, 10);

    snapshot(kAzimuthMinusX, 34.99f, 0);  // just below: accepted
    r = call(kFlat);
    EXPECT_EQ(quarvel::rota_filter[1], 0.2f * 34.99f);
    EXPECT_EQ(r.x, quarvel::rota_filter[1]);
}

TEST_F(SoftGyro, AzimuthWrapAcross360RepeatsThePreviousResult) {
    // GIVEN a flat device heading 355 degrees (azimuth 5) and a snapshot at 355
    const float h = 20.0f;
    hold_horizontal_field(h * std::sin(-5.0f * 3.1415926f / 180.0f),
                          h * std::cos(-5.0f * 3.1415926f / 180.0f));
    const Vec steady = settle(kFlat);
    ASSERT_NEAR(steady.x, 5.0f, 1e-3f);
    quiet_state();
    gyro_values_static[2] = 0.75f;
    snapshot(355.0f, steady.y, steady.z);
    // WHEN the call sees the 350-degree step
    const Vec r = call(kFlat);
    // THEN nothing is updated and the previous result comes back
    EXPECT_EQ(r.x, 0.0f);
    EXPECT_EQ(r.y, 0.0f);
    EXPECT_EQ(r.z, 0.75f);
    EXPECT_EQ(quarvel::rota_filter[0], 0.0f);
    EXPECT_EQ(or_flag, 1);  // the call still counts towards the snapshot
}

TEST_F(SoftGyro, StrongTiltSuppressesTheAzimuthChange) {
    // GIVEN a device tilted so that x reads 4 m/s² (above the 3 m/s² limit)
    const Vec tilted{4.0f, 0.0f, 8.9f};
    set_field(-20, 0, -40);
    const Vec steady = settle(tilted);
    quiet_state();
    // WHEN the azimuth changes by 10 degrees and the pitch by 1
    snapshot(steady.x + 10.0f, steady.y + 1.0f, steady.z);
    const Vec r = call(tilted);
    // THEN pitch and roll changes are reported, but no azimuth change
    EXPECT_FLOAT_EQ(r.x, 0.2f);
    EXPECT_EQ(r.y, 0.0f);
    EXPECT_EQ(r.z, 0.0f);
    EXPECT_EQ(lock_temp, 0);
    EXPECT_FLOAT_EQ(quarvel::rota_filter[0], 2.0f);

    // Below the limit on both x and y, the azimuth change is reported.
    const Vec modest{2.0f, -2.9f, 9.0f};
    const Vec steady_modest = settle(modest);
    quiet_state();
    snapshot(steady_modest.x + 10.0f, steady_modest.y, steady_modest.z);
    EXPECT_FLOAT_EQ(call(modest).z, 2.0f);
}

TEST_F(SoftGyro, NonNumbersNeverCrashAndTheEstimateStaysANumber) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    hold_horizontal_field(-20, 0);
    quiet_state();
    snapshot(kAzimuthMinusX, 0, 0);
    const Vec inputs[] = {{nan, 0, 9.8f}, {inf, -inf, 9.8f}, {1e-42f, 0, 0}, {nan, nan, nan},
                          {0, 0, -inf}, {3e38f, 3e38f, 3e38f}};
    for (const Vec &in : inputs) {
        const Vec r = call(in);
        EXPECT_FALSE(std::isnan(r.x) || std::isnan(r.y) || std::isnan(r.z));
    }
    set_field(nan, inf, 0);
    for (int i = 0; i < 12; ++i) {
        const Vec r = call(kFlat);
        EXPECT_FALSE(std::isnan(r.x) || std::isnan(r.y) || std::isnan(r.z));
    }
    // With good readings again, the non-numbers wash out of the history and the
    // snapshot, and changes are accepted again.
    set_field(-20, 0, -40);
    for (int i = 0; i < 15; ++i) call(kFlat);
    EXPECT_EQ(old_rota[0], kAzimuthMinusX);
}

}  // namespace
