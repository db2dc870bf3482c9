// The rotation-vector estimator with gravity and linear acceleration, linked with the
// module's objects so that the calibrated field can be seeded and the hidden filter
// state inspected. Every test case runs in a freshly loaded module.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <vector>

#include "calmodule/fusion.h"
#include "fusion/rv_state.h"
#include "fusion/steady_device.h"
#include "magcal/calibration_state.h"

namespace {

using fusiontest::bits;
using fusiontest::expect_bits;
using fusiontest::kNaN;
using fusiontest::SteadyDevice;
using quarvel::rv_acc_smoothing;

const int32_t kPeriod = 20;  // ms; only its range matters

// The calibrated magnetometer reports the device's field; n samples of its accelerometer.
void run(const SteadyDevice &d, int n) {
    std::memcpy(quarvel::cali_mag_values, d.cali_mag, sizeof d.cali_mag);
    float out[3];
    for (int i = 0; i < n; ++i) get_rv_value(d.acc, &kPeriod, out);
}

// Everything one estimator step may change, as bytes, for before/after comparisons.
std::vector<unsigned char> snapshot() {
    std::vector<unsigned char> s;
    const auto add = [&s](const void *p, size_t n) {
        s.insert(s.end(), static_cast<const unsigned char *>(p), static_cast<const unsigned char *>(p) + n);
    };
    add(update_Q, sizeof update_Q), add(m_rvector, sizeof m_rvector), add(angle_q, sizeof angle_q);
    add(q_l_old, sizeof q_l_old), add(&q_l_flag, sizeof q_l_flag), add(&RunRVFlag, sizeof RunRVFlag);
    add(&rv_acc_smoothing, sizeof rv_acc_smoothing), add(&quarvel::rv_low_pass, sizeof quarvel::rv_low_pass);
    add(&quarvel::rv_mag_smoothing, sizeof quarvel::rv_mag_smoothing);
    return s;
}

// The next descent starts from the published vector, with a non-negative scalar part.
void expect_published_attitude_rule() {
    const float r0 = m_rvector[0], r1 = m_rvector[1], r2 = m_rvector[2];
    expect_bits(update_Q, {sqrtf(1.0f - r0 * r0 - r1 * r1 - r2 * r2), r0, r1, r2});
    expect_bits(q_l_old, {r0, r1, r2});
}

TEST(RotationVector, FirstAcceptedSampleOnlySeedsThePreviousOutput) {
    float out[3] = {9, 9, 9};
    std::memcpy(quarvel::cali_mag_values, SteadyDevice(30, 10, 20).cali_mag, 3 * sizeof(float));
    get_rv_value(SteadyDevice(30, 10, 20).acc, &kPeriod, out);
    // The smoothing still reads zero: the descent is skipped and nothing is published.
    expect_bits(out, {0, 0, 0});
    expect_bits(update_Q, {1, 0, 0, 0});
    expect_bits(q_l_old, {0, 0, 0});
    expect_bits(m_rvector, {0, 0, 0});
    EXPECT_EQ(q_l_flag, 1);
    EXPECT_EQ(RunRVFlag, 0);
    EXPECT_EQ(quarvel::rv_low_pass.acc.seeded, 1);
}

TEST(RotationVector, PeriodsOutsideOneToThousandChangeNothing) {
    const SteadyDevice d(-60, 5, 40);
    run(d, 15);
    ASSERT_NE(m_rvector[0], 0.0f);
    const std::vector<unsigned char> before = snapshot();
    for (int32_t period : {0, 1001, -1, INT_MIN, INT_MAX}) {
        float out[3] = {9, 9, 9};
        get_rv_value(d.acc, &period, out);
        expect_bits(out, {m_rvector[0], m_rvector[1], m_rvector[2]});  // the published vector back
        EXPECT_TRUE(snapshot() == before) << period;
    }
    for (int32_t period : {1, 1000}) {  // the bounds themselves are accepted
        const int16_t pos = rv_acc_smoothing.axis[0].pos;
        float out[3];
        get_rv_value(d.acc, &period, out);
        EXPECT_EQ(rv_acc_smoothing.axis[0].pos, (pos + 1) % 10) << period;
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
    const auto &m = quarvel::rv_mag_smoothing.axis;
    for (int i = 0; i < 9; ++i) EXPECT_EQ(bits(a[i % 3].ring[i / 3]), bits(slots[i / 3][i % 3])) << "slot " << i / 3;
    const float field_in_acc_axes[3] = {-22.0f, 11.0f, 33.0f};  // x and y exchanged
    for (int i = 0; i < 3; ++i) EXPECT_EQ(m[i].ring[0], field_in_acc_axes[i]) << i;
}

struct Attitude {
    float heading, pitch, roll;  // degrees
};
void PrintTo(const Attitude &a, std::ostream *os) { *os << a.heading << "_" << a.pitch << "_" << a.roll; }
class SteadyAttitude : public ::testing::TestWithParam<Attitude> {};

TEST_P(SteadyAttitude, SettlesOnTheAttitudeWithGravityAlongTrueGravity) {
    // GIVEN a device lying still at a known attitude, its field calibrated, sampled a while
    const Attitude c = GetParam();
    const SteadyDevice d(c.heading, c.pitch, c.roll);
    run(d, 400);
    // THEN the quaternion matches the attitude, within the limit cycle that steps of a
    // fixed length (0.02) leave around the minimum: about 2 degrees
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(update_Q[i], d.q[i], 0.025) << i;
    EXPECT_NEAR(angle_q[0], c.heading, 2.5);
    EXPECT_NEAR(angle_q[1], c.pitch, 2.5);
    EXPECT_NEAR(angle_q[2], c.roll, 2.5);
    expect_published_attitude_rule();
    // AND gravity points along true gravity with magnitude 9.79, linear acceleration near 0
    float g[3], la[3];
    get_gravity_value(d.acc, &kPeriod, g);
    get_la_value(d.acc, &kPeriod, la);
    EXPECT_NEAR(std::sqrt(g[0] * g[0] + g[1] * g[1] + g[2] * g[2]), 9.79f, 0.01f);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(g[i], 9.79f * d.gravity_dir[i], 0.4f) << i;
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(la[i], 0.0f, 0.4f) << i;
    // AND the direction cosines take the earth field into the device frame
    float m[9], f[3];
    Quat2DCM(d.q, m);
    mat_prod31(m, fusiontest::kEarthField, f);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(f[i], d.field[i], 1e-4f) << i;
}

INSTANTIATE_TEST_SUITE_P(Attitudes, SteadyAttitude,
                         ::testing::Values(Attitude{30, 10, 20}, Attitude{-100, -25, 60}, Attitude{150, 15, -30},
                                           Attitude{5, -40, 100}, Attitude{70, 10, 150}));

TEST(RotationVector, EulerAnglesUseThePiOfThreePointOneFourOneSix) {
    // GIVEN a settled estimator, made to treat the next sample as its first, so that
    // update_Q keeps the unblended estimate that angle_q describes
    const SteadyDevice d(-120, 35, -70);
    run(d, 60);
    q_l_flag = 0;
    run(d, 1);
    // THEN each angle is formed in float, converted in double with pi = 3.1416f, stored in float
    const float q0 = update_Q[0], q1 = update_Q[1], q2 = update_Q[2], q3 = update_Q[3];
    const double to_degrees = 180.0 / double{3.1416f};
    const double heading =
        std::atan2(double{2.0f * (q0 * q3 + q1 * q2)}, double{q0 * q0 + q1 * q1 - q2 * q2 - q3 * q3});
    const double pitch = std::asin(double{-2.0f * (q1 * q3 - q0 * q2)});
    const double roll = std::atan2(double{2.0f * (q0 * q1 + q2 * q3)}, double{q0 * q0 - q1 * q1 - q2 * q2 + q3 * q3});
    expect_bits(angle_q, {static_cast<float>(heading * to_degrees), static_cast<float>(pitch * to_degrees),
                          static_cast<float>(roll * to_degrees)});
    expect_bits(q_l_old, {q1, q2, q3});  // and the unblended vector part came back
}

TEST(RotationVectorBlend, BandEdges) {
    const float above_120 = std::nextafter(120.0f, 200.0f);
    const struct { float heading, roll; bool blends; float w_old, w_new; } cases[] = {
        // Upright enough (0 < |roll| < 134): the heading decides, mirrored for negatives.
        {120.0f, 10.0f, true, 0.9f, 0.1f}, {-120.0f, -10.0f, true, 0.9f, 0.1f}, {above_120, 10.0f, true, 0.8f, 0.2f},
        {-above_120, 10.0f, true, 0.8f, 0.2f}, {144.0f, 10.0f, true, 0.5f, 0.5f}, {162.0f, 10.0f, true, 0.2f, 0.8f},
        {167.99f, 10.0f, true, 0.1f, 0.9f}, {168.0f, 10.0f, false, 0, 0}, {-168.0f, 10.0f, false, 0, 0},
        {168.01f, 10.0f, true, 0.05f, 0.95f}, {-173.99f, 133.9f, true, 0.05f, 0.95f}, {174.0f, 10.0f, false, 0, 0},
        {-174.0f, 10.0f, false, 0, 0},
        // Roll exactly zero: never a blend, whatever the heading.
        {0.0f, 0.0f, false, 0, 0}, {170.0f, -0.0f, false, 0, 0},
        // Upside down (|roll| >= 134): the roll decides; there is no even split.
        {0.0f, 134.0f, true, 0.9f, 0.1f}, {0.0f, -134.0f, true, 0.9f, 0.1f}, {0.0f, 136.99f, true, 0.9f, 0.1f},
        {0.0f, 147.0f, true, 0.4f, 0.6f}, {0.0f, -173.99f, true, 0.05f, 0.95f}, {0.0f, 174.0f, false, 0, 0},
        // NaN angles match nothing.
        {kNaN, 10.0f, false, 0, 0}, {0.0f, kNaN, false, 0, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << "heading " << c.heading << " roll " << c.roll);
        quarvel::BlendWeights w{-1, -1};
        ASSERT_EQ(quarvel::rv_blend_weights(c.heading, c.roll, &w), c.blends);
        const float weights[2] = {w.w_old, w.w_new};
        if (c.blends) expect_bits(weights, {c.w_old, c.w_new});
    }
}

// A settled estimator put exactly on the attitude, its previous output forgotten: the
// next output shows the weight of the new estimate alone, and the update_Q rule holds.
struct BlendCase {
    Attitude at;
    float w_new, tolerance;
};
void PrintTo(const BlendCase &c, std::ostream *os) { PrintTo(c.at, os); }
class BlendAfterTheDescent : public ::testing::TestWithParam<BlendCase> {};

TEST_P(BlendAfterTheDescent, TakesTheNewEstimatesShareAndRestartsFromThePublishedVector) {
    const BlendCase c = GetParam();
    const SteadyDevice d(c.at.heading, c.at.pitch, c.at.roll);
    run(d, 30);
    std::memcpy(update_Q, d.q, sizeof d.q);
    std::memset(q_l_old, 0, sizeof q_l_old);
    float out[3];
    get_rv_value(d.acc, &kPeriod, out);
    const float len = std::sqrt(out[0] * out[0] + out[1] * out[1] + out[2] * out[2]);
    EXPECT_NEAR(len / std::sqrt(d.q[1] * d.q[1] + d.q[2] * d.q[2] + d.q[3] * d.q[3]), c.w_new, c.tolerance);
    EXPECT_NEAR(angle_q[0], c.at.heading, 2.0f);  // angle_q describes the descent's own estimate
    expect_published_attitude_rule();
}

INSTANTIATE_TEST_SUITE_P(Bands, BlendAfterTheDescent,
                         ::testing::Values(BlendCase{{30, 10, 20}, 0.1f, 0.01f},     // upright, heading north
                                           BlendCase{{-165, 10, 20}, 0.9f, 0.02f},   // upright, heading south
                                           BlendCase{{20, 5, 152}, 0.7f, 0.02f},     // upside down: the roll decides
                                           BlendCase{{177, 10, 20}, 1.0f, 0.02f}));  // outside every band: unblended

TEST(Gravity, BeforeAnyEstimateStraightDownAndARejectedSampleKeepsTheLast) {
    const float acc[3] = {1.0f, -2.0f, 9.0f}, zero[3] = {0, 0, 0};
    const int32_t bad_period = 0;
    float g[3], la[3];
    get_gravity_value(acc, &bad_period, g);
    expect_bits(g, {0, 0, 9.79f});
    get_la_value(acc, &bad_period, la);
    expect_bits(la, {1.0f, -2.0f, 9.0f - 9.79f});
    run(SteadyDevice(45, 20, -30), 50);
    get_gravity_value(SteadyDevice(45, 20, -30).acc, &kPeriod, g);
    get_la_value(zero, &kPeriod, la);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(la[i], -g[i]) << i;
}

TEST(Gravity, EachCallAdvancesTheEstimatorUnlessOneIsRunning) {
    const SteadyDevice d(10, 0, 10);
    run(d, 1);
    float g[3], m[9], expected[3];
    get_gravity_value(d.acc, &kPeriod, g);
    get_la_value(d.acc, &kPeriod, g);
    EXPECT_EQ(rv_acc_smoothing.axis[0].pos, 3);  // the sample went in three times
    // WHEN an estimator step is visibly running, the current estimate is used as it is
    run(d, 20);
    const std::vector<unsigned char> before = snapshot();
    RunRVFlag = 1;
    get_gravity_value(d.acc, &kPeriod, g);
    RunRVFlag = 0;
    EXPECT_TRUE(snapshot() == before);
    const float ref[3] = {0, 0, 9.79f};
    Quat2DCM(update_Q, m);
    mat_prod31(m, ref, expected);
    expect_bits(g, {expected[0], expected[1], expected[2]});
}

TEST(Gravity, DirectionCosinesExactCases) {
    const float ref[3] = {0, 0, 9.79f}, identity[4] = {1, 0, 0, 0}, half_turn_x[4] = {0, 1, 0, 0},
                doubled[4] = {2, 0, 0, 0};
    float m[9], g[3];
    Quat2DCM(identity, m);
    expect_bits(m, {1, 0, 0, 0, 1, 0, 0, 0, 1});
    Quat2DCM(half_turn_x, m);
    mat_prod31(m, ref, g);
    expect_bits(g, {0, 0, -9.79f});  // each row summed from +0: no -0
    Quat2DCM(doubled, m);  // a non-unit quaternion is used as it comes: 2(q0^2 + qi^2) - 1
    for (int i : {0, 4, 8}) EXPECT_EQ(m[i], 7.0f) << i;
}

TEST(RotationVectorBadInput, AccelerationsWithoutDirectionChangeNothing) {
    const SteadyDevice d(30, 10, 20);
    run(d, 40);
    const std::vector<unsigned char> before = snapshot();
    const float bad[][3] = {{kNaN, 0.0f, 9.8f}, {1e-40f, 0.0f, 0.0f}, {0.0f, -1e-30f, kNaN}};
    for (const auto &acc : bad) {
        float out[3] = {9, 9, 9};
        get_rv_value(acc, &kPeriod, out);
        expect_bits(out, {m_rvector[0], m_rvector[1], m_rvector[2]});  // the published vector back
        EXPECT_TRUE(snapshot() == before) << acc[0];
    }
}

}  // namespace
