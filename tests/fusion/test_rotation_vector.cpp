// The rotation-vector estimator with gravity and linear acceleration, linked with the
// module's objects so that the calibrated field can be seeded and the hidden filter
// state inspected: what enters the filters, the blend's edges, and the calls that must
// change nothing. The arithmetic of a whole session is the identity transcript's.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "calmodule/fusion.h"
#include "fusion/rv_state.h"
#include "magcal/calibration_state.h"
#include "support/device.h"

namespace {

using testsupport::expect_bits;
using quarvel::rv_acc_smoothing;

const int32_t kPeriod = 20;  // ms; only its range matters

// A device lying still at an attitude, with its field seeded as the calibrated one.
struct Still {
    float acc[3];
    explicit Still(const testsupport::Device &d) {
        d.acc(acc);
        d.field(quarvel::cali_mag_values);
    }
    void run(int n) const {
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

TEST(RotationVector, FirstSampleSeedsOnlyAndRefusedCallsChangeNothing) {
    const Still d(testsupport::Device::facing(120, 5, 40));
    d.run(1);  // the smoothing still reads zero: no descent, nothing published
    expect_bits(update_Q, {1, 0, 0, 0});
    expect_bits(m_rvector, {0, 0, 0});
    EXPECT_TRUE(q_l_flag == 1 && RunRVFlag == 0 && quarvel::rv_low_pass.acc.seeded == 1);
    d.run(14);
    ASSERT_NE(m_rvector[0], 0.0f);
    const std::string before = snapshot();
    // Periods outside 1..1000 ms, and accelerations without a direction, give the
    // published vector back.
    const float nan_x[3] = {NAN, 0.0f, 9.8f}, tiny[3] = {1e-40f, 0.0f, 0.0f}, nan_z[3] = {0.0f, -1e-30f, NAN};
    const struct { const float *acc; int32_t period; } refused[] = {
        {d.acc, 0}, {d.acc, 1001}, {nan_x, kPeriod}, {tiny, kPeriod}, {nan_z, kPeriod}};
    for (const auto &r : refused) {
        float out[3] = {9, 9, 9};
        get_rv_value(r.acc, &r.period, out);
        expect_bits(out, {m_rvector[0], m_rvector[1], m_rvector[2]});
        EXPECT_TRUE(snapshot() == before) << r.period << " " << r.acc[0];
    }
    for (int32_t period : {1, 1000}) {
        const int16_t pos = rv_acc_smoothing.pos;
        float out[3];
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

TEST(RotationVector, EulerAnglesUseThePiOfThreePointOneFourOneSix) {
    // A settled estimator made to treat the next sample as its first keeps in update_Q
    // the unblended estimate that angle_q describes: each angle formed in float,
    // converted in double with pi = 3.1416f, stored in float.
    const Still d(testsupport::Device::facing(-120, 35, -70));
    d.run(60);
    q_l_flag = 0;
    d.run(1);
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

TEST(Gravity, StraightDownBeforeAnyEstimateAndTheCurrentEstimateWhileOneIsRunning) {
    const float acc[3] = {1.0f, -2.0f, 9.0f};
    const int32_t bad_period = 0;
    float g[3], la[3], m[9], expected[3];
    get_gravity_value(acc, &bad_period, g);
    expect_bits(g, {0, 0, 9.79f});
    get_la_value(acc, &bad_period, la);
    expect_bits(la, {1.0f, -2.0f, 9.0f - 9.79f});
    const Still d(testsupport::Device::facing(10, 0, 10));
    d.run(20);
    const std::string before = snapshot();
    RunRVFlag = 1;  // a step visibly running: its current estimate is used as it is
    get_gravity_value(d.acc, &kPeriod, g);
    RunRVFlag = 0;
    EXPECT_TRUE(snapshot() == before);
    const float ref[3] = {0, 0, 9.79f};
    Quat2DCM(update_Q, m);
    mat_prod31(m, ref, expected);
    expect_bits(g, {expected[0], expected[1], expected[2]});
}

}  // namespace
