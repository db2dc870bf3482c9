// The rotation-vector estimator with gravity and linear acceleration, linked with the
// module's objects so that the calibrated field can be seeded and the hidden filter
// state inspected. Every test case runs in a freshly loaded module.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "calmodule/fusion.h"
#include "fusion/rv_state.h"
#include "magcal/calibration_state.h"
#include "support/device.h"

namespace {

using testsupport::Device;
using testsupport::expect_bits;
using quarvel::rv_acc_smoothing;

const int32_t kPeriod = 20;  // ms; only its range matters

// A device lying still: its accelerometer, its field as the calibrated magnetometer
// reports it (45 µT dipping 60 degrees, the first two axes exchanged) and its attitude.
struct Still {
    float acc[3], field[3], q[4];
    explicit Still(const Device &d) {
        float f[3];
        d.acc(acc);
        d.field(f, 22.5, 38.97114317);
        field[0] = f[1], field[1] = f[0], field[2] = f[2];
        d.quaternion(q);
    }
    void run(int n) const {
        std::memcpy(quarvel::cali_mag_values, field, sizeof field);
        float out[3];
        for (int i = 0; i < n; ++i) get_rv_value(acc, &kPeriod, out);
    }
};

// Everything one estimator step may change, as bytes.
std::string snapshot() {
    std::string s;
    const auto add = [&s](const void *p, size_t n) { s.append(static_cast<const char *>(p), n); };
    add(update_Q, sizeof update_Q), add(m_rvector, sizeof m_rvector), add(angle_q, sizeof angle_q);
    add(q_l_old, sizeof q_l_old), add(&q_l_flag, sizeof q_l_flag), add(&RunRVFlag, sizeof RunRVFlag);
    add(&rv_acc_smoothing, sizeof rv_acc_smoothing), add(&quarvel::rv_low_pass, sizeof quarvel::rv_low_pass);
    return s;
}

// The next descent starts from the published vector, with a non-negative scalar part.
void expect_published_attitude_rule() {
    const float r0 = m_rvector[0], r1 = m_rvector[1], r2 = m_rvector[2];
    expect_bits(update_Q, {sqrtf(1.0f - r0 * r0 - r1 * r1 - r2 * r2), r0, r1, r2});
    expect_bits(q_l_old, {r0, r1, r2});
}

TEST(RotationVector, FirstSampleSeedsOnlyAndPeriodsOutsideOneToThousandChangeNothing) {
    const Still d(Device::euler(-60, 5, 40));
    float out[3] = {9, 9, 9};
    d.run(1);  // the smoothing still reads zero: no descent, nothing published
    expect_bits(update_Q, {1, 0, 0, 0});
    expect_bits(m_rvector, {0, 0, 0});
    expect_bits(q_l_old, {0, 0, 0});
    EXPECT_EQ(q_l_flag, 1);
    EXPECT_EQ(RunRVFlag, 0);
    EXPECT_EQ(quarvel::rv_low_pass.acc.seeded, 1);
    d.run(14);
    ASSERT_NE(m_rvector[0], 0.0f);
    const std::string before = snapshot();
    for (int32_t period : {0, 1001}) {
        get_rv_value(d.acc, &period, out);
        expect_bits(out, {m_rvector[0], m_rvector[1], m_rvector[2]});  // the published vector back
        EXPECT_TRUE(snapshot() == before) << period;
    }
    for (int32_t period : {1, 1000}) {
        const int16_t pos = rv_acc_smoothing.pos;
        get_rv_value(d.acc, &period, out);
        EXPECT_EQ(rv_acc_smoothing.pos, (pos + 1) % 10) << period;
    }
}

TEST(RotationVector, WhatEntersTheFilters) {
    // An all-zero sample is rejected; one non-zero axis is enough, only the direction
    // counts, and each axis is clamped to 1 g before normalising.
    const float zero[3] = {0.0f, -0.0f, 0.0f}, one_axis[3] = {0.0f, 0.0f, -0.5f}, tilted[3] = {-30.0f, 30.0f, 0.0f},
                huge[3] = {INFINITY, 0.0f, -1e30f};
    float out[3];
    get_rv_value(zero, &kPeriod, out);
    EXPECT_EQ(quarvel::rv_low_pass.acc.seeded, 0);
    const float field[3] = {11.0f, -22.0f, 33.0f};
    std::memcpy(quarvel::cali_mag_values, field, sizeof field);
    for (const float *acc : {one_axis, tilted, huge}) get_rv_value(acc, &kPeriod, out);
    const auto &a = rv_acc_smoothing.axis;
    const float diagonal = 1.0f / static_cast<float>(std::sqrt(2.0));
    const float slots[3][3] = {{0, 0, -1}, {-diagonal, diagonal, 0}, {diagonal, 0, -diagonal}};
    for (int i = 0; i < 9; ++i) EXPECT_EQ(a[i % 3].ring[i / 3], slots[i / 3][i % 3]) << "slot " << i / 3;
    const float field_in_acc_axes[3] = {-22.0f, 11.0f, 33.0f};  // x and y exchanged
    for (int i = 0; i < 3; ++i) EXPECT_EQ(quarvel::rv_mag_smoothing.axis[i].ring[0], field_in_acc_axes[i]) << i;
}

TEST(RotationVector, SettlesOnTheAttitudeWithGravityAlongTrueGravity) {
    for (const Device &dev : {Device::euler(30, 10, 20), Device::euler(70, 10, 150), Device::euler(-100, -25, 60)}) {
        // GIVEN a device lying still at a known attitude, sampled a while
        const Still d(dev);
        d.run(400);
        // THEN the quaternion matches within the limit cycle of the fixed step (about 2 degrees)
        for (int i = 0; i < 4; ++i) EXPECT_NEAR(update_Q[i], d.q[i], 0.025) << i;
        expect_published_attitude_rule();
        // AND gravity has magnitude 9.79 along true gravity, linear acceleration near 0
        float g[3], la[3], up[3], m[9], f[3], want[3];
        get_gravity_value(d.acc, &kPeriod, g);
        get_la_value(d.acc, &kPeriod, la);
        dev.acc(up, 9.79);
        EXPECT_NEAR(std::sqrt(g[0] * g[0] + g[1] * g[1] + g[2] * g[2]), 9.79f, 0.01f);
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(g[i], up[i], 0.4f) << i;
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(la[i], 0.0f, 0.4f) << i;
        // AND the direction cosines take the earth field into the device frame
        const float earth[3] = {22.5f, 0.0f, -38.97114317f};
        Quat2DCM(d.q, m);
        mat_prod31(m, earth, f);
        dev.field(want, 22.5, 38.97114317);
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(f[i], want[i], 1e-4f) << i;
    }
}

TEST(RotationVector, EulerAnglesUseThePiOfThreePointOneFourOneSix) {
    // GIVEN a settled estimator made to treat the next sample as its first, so that
    // update_Q keeps the unblended estimate that angle_q describes
    const Still d(Device::euler(-120, 35, -70));
    d.run(60);
    q_l_flag = 0;
    d.run(1);
    // THEN each angle is formed in float, converted in double with pi = 3.1416f, stored in float
    const float q0 = update_Q[0], q1 = update_Q[1], q2 = update_Q[2], q3 = update_Q[3];
    const double to_degrees = 180.0 / double{3.1416f};
    const double heading = std::atan2(double{2.0f * (q0 * q3 + q1 * q2)}, double{q0 * q0 + q1 * q1 - q2 * q2 - q3 * q3});
    const double pitch = std::asin(double{-2.0f * (q1 * q3 - q0 * q2)});
    const double roll = std::atan2(double{2.0f * (q0 * q1 + q2 * q3)}, double{q0 * q0 - q1 * q1 - q2 * q2 + q3 * q3});
    expect_bits(angle_q, {static_cast<float>(heading * to_degrees), static_cast<float>(pitch * to_degrees),
                          static_cast<float>(roll * to_degrees)});
    expect_bits(q_l_old, {q1, q2, q3});
}

// The weight of the new estimate at a heading (upright) or a roll (upside down); -1: no blend.
float w_new(float heading, float roll) {
    quarvel::BlendWeights w{-1, -1};
    if (!quarvel::rv_blend_weights(heading, roll, &w)) return -1.0f;
    EXPECT_NEAR(w.w_old + w.w_new, 1.0f, 1e-6f) << heading << " " << roll;
    return w.w_new;
}

TEST(RotationVectorBlend, NewEstimateGainsWeightTowardsAHalfTurnSymmetricallyWithTheEdgesThatMatter) {
    // Properties over every quarter degree: weights sum to one, mirror for negative
    // angles, and the new estimate's share never shrinks as the angle grows.
    float last_heading = 0.0f, last_roll = 0.0f;
    for (float a = 0.25f; a < 180.0f; a += 0.25f) {
        const float h = w_new(a, 10.0f), r = w_new(0.0f, 134.0f + a * (40.0f / 180.0f));
        EXPECT_EQ(h, w_new(-a, -10.0f)) << a;
        EXPECT_TRUE(h < 0.0f || h >= last_heading) << a;
        EXPECT_TRUE(r < 0.0f || r >= last_roll) << a;
        last_heading = h >= 0.0f ? h : last_heading;
        last_roll = r >= 0.0f ? r : last_roll;
    }
    const float above_120 = std::nextafter(120.0f, 200.0f);
    const float edges[][3] = {
        // heading bands: closed at 120, none at 168 or from 174
        {120, 10, 0.1f}, {above_120, 10, 0.2f}, {144, 10, 0.5f}, {167.99f, 10, 0.9f}, {168, 10, -1},
        {168.01f, 10, 0.95f}, {174, 10, -1}, {0, 0, -1}, {170, -0.0f, -1},  // roll exactly zero: never
        // roll bands from 134, closed below, with no even split
        {0, 134, 0.1f}, {0, -136.99f, 0.1f}, {0, 137, 0.2f}, {0, 140, 0.3f}, {0, 147, 0.6f}, {0, 174, -1},
        {NAN, 10, -1}, {0, NAN, -1}};
    for (const auto &e : edges) EXPECT_EQ(w_new(e[0], e[1]), e[2]) << e[0] << " " << e[1];
}

TEST(RotationVectorBlend, TakesTheNewEstimatesShareAndRestartsFromThePublishedVector) {
    // A settled estimator put exactly on the attitude, its previous output forgotten:
    // the next output shows the weight of the new estimate alone.
    const struct { Device at; float w_new, tolerance; } cases[] = {
        {Device::euler(30, 10, 20), 0.1f, 0.01f}, {Device::euler(20, 5, 152), 0.7f, 0.02f},
        {Device::euler(177, 10, 20), 1.0f, 0.02f}};
    for (const auto &c : cases) {
        const Still d(c.at);
        d.run(30);
        std::memcpy(update_Q, d.q, sizeof d.q);
        std::memset(q_l_old, 0, sizeof q_l_old);
        float out[3];
        get_rv_value(d.acc, &kPeriod, out);
        const float len = std::sqrt(out[0] * out[0] + out[1] * out[1] + out[2] * out[2]);
        EXPECT_NEAR(len / std::sqrt(d.q[1] * d.q[1] + d.q[2] * d.q[2] + d.q[3] * d.q[3]), c.w_new, c.tolerance);
        expect_published_attitude_rule();
    }
}

TEST(Gravity, StraightDownBeforeAnyEstimateAndEachCallAdvancesTheEstimatorUnlessOneIsRunning) {
    const float acc[3] = {1.0f, -2.0f, 9.0f};
    const int32_t bad_period = 0;
    float g[3], la[3], m[9], expected[3];
    get_gravity_value(acc, &bad_period, g);
    expect_bits(g, {0, 0, 9.79f});
    get_la_value(acc, &bad_period, la);
    expect_bits(la, {1.0f, -2.0f, 9.0f - 9.79f});
    const Still d(Device::euler(10, 0, 10));
    d.run(1);
    get_gravity_value(d.acc, &kPeriod, g);
    get_la_value(d.acc, &kPeriod, g);
    EXPECT_EQ(rv_acc_smoothing.pos, 3);  // the sample went in three times
    // WHEN an estimator step is visibly running, the current estimate is used as it is
    d.run(20);
    const std::string before = snapshot();
    RunRVFlag = 1;
    get_gravity_value(d.acc, &kPeriod, g);
    RunRVFlag = 0;
    EXPECT_TRUE(snapshot() == before);
    const float ref[3] = {0, 0, 9.79f};
    Quat2DCM(update_Q, m);
    mat_prod31(m, ref, expected);
    expect_bits(g, {expected[0], expected[1], expected[2]});
    // A half turn about x sums each row from +0 (no -0); a non-unit quaternion is used as it comes.
    const float half_turn_x[4] = {0, 1, 0, 0}, doubled[4] = {2, 0, 0, 0};
    Quat2DCM(half_turn_x, m);
    mat_prod31(m, ref, g);
    expect_bits(g, {0, 0, -9.79f});
    Quat2DCM(doubled, m);
    for (int i : {0, 4, 8}) EXPECT_EQ(m[i], 7.0f) << i;
}

TEST(RotationVectorBadInput, AccelerationsWithoutDirectionChangeNothing) {
    const Still d(Device::euler(30, 10, 20));
    d.run(40);
    const std::string before = snapshot();
    const float bad[][3] = {{NAN, 0.0f, 9.8f}, {1e-40f, 0.0f, 0.0f}, {0.0f, -1e-30f, NAN}};
    for (const auto &acc : bad) {
        float out[3] = {9, 9, 9};
        get_rv_value(acc, &kPeriod, out);
        expect_bits(out, {m_rvector[0], m_rvector[1], m_rvector[2]});  // the published vector back
        EXPECT_TRUE(snapshot() == before) << acc[0];
    }
}

}  // namespace
