// The soft gyroscope's gates and state: refused calls, changes against a snapshot
// every third call, the 35-degree gate, one large change reported alone, and the tilt
// override.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "calmodule/softgyro.h"
#include "magcal/calibration_state.h"
#include "softgyro/softgyro_state.h"

namespace {

using quarvel::rota_filter;
using Vec = std::array<float, 3>;  // acceleration in m/s², or pitch, roll, azimuth change

const Vec kFlat{0.0f, 0.0f, 9.8f};
constexpr float kAzMinusX = 0x1.67fffep+6f;  // 89.99999: flat, field along -x

Vec call(Vec acc, int32_t period = 20) {
    Vec r{-99, -99, -99};
    get_soft_gyro_value(acc.data(), &period, r.data());
    return r;
}
// The calibrated field and the heading's smoothing both hold (hx, hy, -40).
void hold_field(float hx, float hy) {
    for (int i = 0; i < 10; ++i) {
        float xy[2] = {hx, hy};
        softgy_CalibrationXY(xy);
    }
    quarvel::cali_mag_values[0] = hx, quarvel::cali_mag_values[1] = hy, quarvel::cali_mag_values[2] = -40;
}
// Filter seeded at zero, no recent large change, a snapshot just taken, estimate g held.
void quiet_state(Vec snapshot, Vec g = {0, 0, 0}) {
    rota_filter.memory[0] = rota_filter.memory[1] = rota_filter.memory[2] = 0.0f;
    quarvel::rota_filter.seeded = 1;
    lock_temp = 10;
    or_flag = 0;
    std::copy(g.begin(), g.end(), gyro_values_static);
    std::copy(snapshot.begin(), snapshot.end(), old_rota);
}
Vec held() { return {gyro_values_static[0], gyro_values_static[1], gyro_values_static[2]}; }

TEST(SoftGyro, RefusedPeriodOrZeroAccelerationWritesZeroAndTouchesNothing) {
    hold_field(-20, 0);
    quiet_state({kAzMinusX + 10.0f, 0, 0}, {1.5f, 0, 0});
    or_flag = 2;
    game_flag = 5;
    const struct { int32_t period; Vec acc; } rows[] = {{0, kFlat}, {1001, kFlat}, {-5, kFlat}, {20, {0, 0, 0}}};
    for (const auto &row : rows) EXPECT_EQ(call(row.acc, row.period), (Vec{0, 0, 0})) << row.period;
    EXPECT_TRUE(or_flag == 2 && game_flag == 5 && old_rota[0] == kAzMinusX + 10.0f);
    EXPECT_EQ(held(), (Vec{1.5f, 0, 0}));
    // The range is inclusive at both ends, and the heading history took no
    // non-number from the zero vector: the 10-degree change comes through filtered.
    EXPECT_EQ(call(kFlat, 1000), (Vec{0, 0, 0.2f * 10.0f}));
    EXPECT_EQ(or_flag, 0);  // third call: snapshot taken
    call(kFlat, 1);
    EXPECT_EQ(or_flag, 1);
}

TEST(SoftGyro, FromLoadTheFirstCallsAreGatedUntilARealSnapshot) {
    // Heading 270 degrees, azimuth 90: far from the load-time snapshot of 0, so each
    // result is the held (0, 0, 0); the third call takes a real snapshot.
    hold_field(-20, 0);
    game_flag = 3;
    for (int i = 1; i <= 3; ++i) {
        EXPECT_EQ(call(kFlat), (Vec{0, 0, 0})) << i;
        EXPECT_TRUE(quarvel::rota_filter.seeded == 0 && or_flag == i % 3 && old_rota[0] == (i < 3 ? 0.0f : kAzMinusX));
    }
    EXPECT_EQ(game_flag, 0);
}

TEST(SoftGyro, LargeChangesAloneAndTheGateAt35Degrees) {
    const Vec before{0.5f, -0.25f, 1.0f};  // held estimate: kept when gated out
    const float s5 = std::sin(5.0f * 3.1415926f / 180.0f), c5 = std::cos(5.0f * 3.1415926f / 180.0f);
    const struct { const char *what; float hx, hy; Vec snapshot, want; int16_t lock; } rows[] = {
        {"azimuth 10 down: a fifth of it, alone", -20, 0, {100, 0, 0}, {0, 0, 0.2f * (100.0f - kAzMinusX)}, 0},
        {"pitch 10 wins over azimuth 20", -20, 0, {kAzMinusX + 20, 10, 0.5f}, {2, 0, 0}, 0},
        {"a decrease is large too", -20, 0, {kAzMinusX, 0, -8}, {0, 0.2f * -8.0f, 0}, 0},
        {"pitch step of exactly 35: gated", -20, 0, {kAzMinusX, 35, 0}, before, 10},
        {"pitch step just below 35: taken", -20, 0, {kAzMinusX, 34.99f, 0}, {0.2f * 34.99f, 0, 0}, 0},
        {"azimuth 5, snapshot 355: wrap gated", -20 * s5, 20 * c5, {355, 0, 0}, before, 10},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        hold_field(row.hx, row.hy);
        quiet_state(row.snapshot, before);
        EXPECT_EQ(call(kFlat), row.want);
        EXPECT_TRUE(lock_temp == row.lock && or_flag == 1);  // a gated call still counts towards the snapshot
    }
}

TEST(SoftGyro, TiltAbove3OnXOrYSuppressesTheAzimuthChange) {
    quarvel::cali_mag_values[0] = -20, quarvel::cali_mag_values[2] = -40;
    const struct { Vec acc, want; } rows[] = {
        {{4.0f, 0.0f, 8.9f}, {0.2f, 0, 0}},     // pitch and roll reported, azimuth not
        {{0.0f, -4.0f, 8.9f}, {0.2f, 0, 0}},    // either axis, either sign
        {{2.0f, -2.9f, 9.0f}, {0, 0, 2.0f}}};   // below on both axes: azimuth reported
    for (const auto &row : rows) {
        for (int i = 0; i < 10; ++i) call(row.acc);  // settled: snapshot of this pose
        quiet_state({old_rota[0] + 10.0f, old_rota[1] + 1.0f, old_rota[2]});
        const Vec r = call(row.acc);
        for (int k = 0; k < 3; ++k) EXPECT_NEAR(r[k], row.want[k], 1e-5f) << k;
        EXPECT_EQ(lock_temp, 0);
    }
}

}  // namespace
