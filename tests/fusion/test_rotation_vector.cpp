// The rotation-vector estimator with gravity and linear acceleration, linked with the
// module's objects so that the calibrated field can be seeded and the hidden filter
// state inspected. Every test case runs in a freshly loaded module.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>

#include "calmodule/fusion.h"
#include "fusion/rv_state.h"
#include "fusion/steady_device.h"
#include "magcal/calibration_state.h"

namespace {

using fusiontest::bits;
using fusiontest::kNaN;
using fusiontest::SteadyDevice;

const int32_t kPeriod = 20;  // ms; only its range matters

// The calibrated magnetometer reports the device's field.
void seed_field(const SteadyDevice &d) {
    for (int i = 0; i < 3; ++i) quarvel::cali_mag_values[i] = d.cali_mag[i];
}

void run(const float acc[3], int n, int32_t period = kPeriod) {
    float out[3];
    for (int i = 0; i < n; ++i) get_rv_value(acc, &period, out);
}

// Everything one estimator step may change, for before/after comparisons.
struct Snapshot {
    float update_q[4], rvector[3], angles[3], old[3];
    int16_t flag, running;
    quarvel::VectorTrimmedMean acc_smoothing, mag_smoothing;
    quarvel::RvLowPass low_pass;

    static Snapshot take() {
        Snapshot s;
        std::memset(static_cast<void *>(&s), 0, sizeof s);  // padding too, for memcmp
        std::memcpy(s.update_q, update_Q, sizeof s.update_q);
        std::memcpy(s.rvector, m_rvector, sizeof s.rvector);
        std::memcpy(s.angles, angle_q, sizeof s.angles);
        std::memcpy(s.old, q_l_old, sizeof s.old);
        s.flag = q_l_flag;
        s.running = RunRVFlag;
        std::memcpy(static_cast<void *>(&s.acc_smoothing), &quarvel::rv_acc_smoothing, sizeof s.acc_smoothing);
        std::memcpy(static_cast<void *>(&s.mag_smoothing), &quarvel::rv_mag_smoothing, sizeof s.mag_smoothing);
        std::memcpy(static_cast<void *>(&s.low_pass), &quarvel::rv_low_pass, sizeof s.low_pass);
        return s;
    }
    bool operator==(const Snapshot &o) const { return std::memcmp(this, &o, sizeof o) == 0; }
};

void expect_published_attitude_rule() {
    // The next descent starts from the published vector with a non-negative scalar.
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(bits(update_Q[i + 1]), bits(m_rvector[i]));
        EXPECT_EQ(bits(q_l_old[i]), bits(m_rvector[i]));
    }
    const float r0 = m_rvector[0], r1 = m_rvector[1], r2 = m_rvector[2];
    EXPECT_EQ(bits(update_Q[0]), bits(sqrtf(1.0f - r0 * r0 - r1 * r1 - r2 * r2)));
}

// ---- accepting and rejecting samples -------------------------------------------------

TEST(RotationVector, FirstAcceptedSampleOnlySeedsThePreviousOutput) {
    // GIVEN a fresh module with a calibrated field
    const SteadyDevice d(30, 10, 20);
    seed_field(d);
    // WHEN the first sample arrives
    float out[3] = {9, 9, 9};
    get_rv_value(d.acc, &kPeriod, out);
    // THEN the smoothing still reads zero, the descent is skipped, nothing is published
    for (float c : out) EXPECT_EQ(bits(c), 0u);
    EXPECT_EQ(update_Q[0], 1.0f);
    for (int i = 1; i < 4; ++i) EXPECT_EQ(update_Q[i], 0.0f);
    for (float c : q_l_old) EXPECT_EQ(c, 0.0f);
    for (float c : m_rvector) EXPECT_EQ(c, 0.0f);
    EXPECT_EQ(q_l_flag, 1);
    EXPECT_EQ(RunRVFlag, 0);
    EXPECT_EQ(quarvel::rv_low_pass.seeded, 1);
}

TEST(RotationVector, PeriodsOutsideOneToThousandChangeNothing) {
    // GIVEN an estimator that has published something
    const SteadyDevice d(-60, 5, 40);
    seed_field(d);
    run(d.acc, 15);
    ASSERT_NE(m_rvector[0], 0.0f);
    const Snapshot before = Snapshot::take();
    // WHEN samples come with a period out of range
    for (int32_t period : {0, 1001, -1, INT_MIN, INT_MAX}) {
        float out[3] = {9, 9, 9};
        get_rv_value(d.acc, &period, out);
        // THEN they get the published vector back and no state moves
        for (int i = 0; i < 3; ++i) EXPECT_EQ(bits(out[i]), bits(m_rvector[i])) << period;
        EXPECT_TRUE(Snapshot::take() == before) << period;
    }
    // AND the bounds themselves are accepted
    for (int32_t period : {1, 1000}) {
        const int16_t pos = quarvel::rv_acc_smoothing.axis[0].pos;
        run(d.acc, 1, period);
        EXPECT_EQ(quarvel::rv_acc_smoothing.axis[0].pos, (pos + 1) % 10) << period;
    }
}

TEST(RotationVector, WhatEntersTheFilters) {
    // An all-zero sample is rejected; one non-zero axis is enough, and only the
    // direction counts.
    const float zero[3] = {0.0f, -0.0f, 0.0f}, one_axis[3] = {0.0f, 0.0f, -0.5f};
    run(zero, 1);
    EXPECT_EQ(quarvel::rv_low_pass.seeded, 0);
    quarvel::cali_mag_values[0] = 11.0f;
    quarvel::cali_mag_values[1] = -22.0f;
    quarvel::cali_mag_values[2] = 33.0f;
    run(one_axis, 1);
    EXPECT_EQ(q_l_flag, 1);
    // Each axis is clamped to 1 g before normalising.
    const float tilted[3] = {-30.0f, 30.0f, 0.0f};
    const float huge[3] = {std::numeric_limits<float>::infinity(), 0.0f, -1e30f};
    run(tilted, 1);
    run(huge, 1);

    const auto &a = quarvel::rv_acc_smoothing.axis;
    const float diagonal = 1.0f / static_cast<float>(std::sqrt(2.0));
    const float slot0[3] = {0, 0, -1}, slot1[3] = {-diagonal, diagonal, 0}, slot2[3] = {diagonal, 0, -diagonal};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(a[i].ring[0], slot0[i]) << i;
        EXPECT_EQ(a[i].ring[1], slot1[i]) << i;
        EXPECT_EQ(a[i].ring[2], slot2[i]) << i;
    }
    // The field enters in the accelerometer's axes: x and y exchanged.
    const auto &m = quarvel::rv_mag_smoothing.axis;
    EXPECT_EQ(m[0].ring[0], -22.0f);
    EXPECT_EQ(m[1].ring[0], 11.0f);
    EXPECT_EQ(m[2].ring[0], 33.0f);
}

// ---- a steady device ------------------------------------------------------------------

struct AttitudeCase {
    float heading, pitch, roll;  // degrees
};

class SteadyAttitude : public ::testing::TestWithParam<AttitudeCase> {};

TEST_P(SteadyAttitude, SettlesOnTheAttitudeWithGravityAlongTrueGravity) {
    // GIVEN a device lying still at a known attitude, its field calibrated
    const AttitudeCase c = GetParam();
    const SteadyDevice d(c.heading, c.pitch, c.roll);
    seed_field(d);
    // WHEN it has been sampled for a while
    run(d.acc, 400);
    // THEN the quaternion matches the attitude, within the limit cycle that steps of a
    // fixed length (0.02) leave around the minimum: about 2 degrees
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(update_Q[i], d.q[i], 0.025) << i;
    EXPECT_NEAR(angle_q[0], c.heading, 2.5);
    EXPECT_NEAR(angle_q[1], c.pitch, 2.5);
    EXPECT_NEAR(angle_q[2], c.roll, 2.5);
    expect_published_attitude_rule();

    // AND gravity points along true gravity with magnitude 9.79
    float g[3];
    get_gravity_value(d.acc, &kPeriod, g);
    const float magnitude = std::sqrt(g[0] * g[0] + g[1] * g[1] + g[2] * g[2]);
    EXPECT_NEAR(magnitude, 9.79f, 0.01f);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(g[i], 9.79f * d.gravity_dir[i], 0.4f) << i;

    // AND linear acceleration is near zero
    float la[3];
    get_la_value(d.acc, &kPeriod, la);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(la[i], 0.0f, 0.4f) << i;
}

INSTANTIATE_TEST_SUITE_P(Attitudes, SteadyAttitude,
                         ::testing::Values(AttitudeCase{30, 10, 20}, AttitudeCase{-100, -25, 60},
                                           AttitudeCase{150, 15, -30}, AttitudeCase{5, -40, 100},
                                           AttitudeCase{70, 10, 150}));

TEST(RotationVector, EulerAnglesUseTheFamilysPiOfThreePointOneFourOneSix) {
    // GIVEN a settled estimator, made to treat the next sample as its first
    const SteadyDevice d(-120, 35, -70);
    seed_field(d);
    run(d.acc, 60);
    q_l_flag = 0;
    // WHEN it runs: update_Q keeps the unblended estimate that angle_q describes
    run(d.acc, 1);
    // THEN each angle is formed in float, converted in double with pi = 3.1416f, and
    // stored in float
    const float q0 = update_Q[0], q1 = update_Q[1], q2 = update_Q[2], q3 = update_Q[3];
    const double pi = static_cast<double>(3.1416f);
    const double heading = std::atan2(static_cast<double>(2.0f * (q0 * q3 + q1 * q2)),
                                      static_cast<double>(q0 * q0 + q1 * q1 - q2 * q2 - q3 * q3));
    const double pitch = std::asin(static_cast<double>(-2.0f * (q1 * q3 - q0 * q2)));
    const double roll = std::atan2(static_cast<double>(2.0f * (q0 * q1 + q2 * q3)),
                                   static_cast<double>(q0 * q0 - q1 * q1 - q2 * q2 + q3 * q3));
    EXPECT_EQ(bits(angle_q[0]), bits(static_cast<float>(heading * 180.0 / pi)));
    EXPECT_EQ(bits(angle_q[1]), bits(static_cast<float>(pitch * 180.0 / pi)));
    EXPECT_EQ(bits(angle_q[2]), bits(static_cast<float>(roll * 180.0 / pi)));
    // and the unblended vector part is what came back
    for (int i = 0; i < 3; ++i) EXPECT_EQ(bits(q_l_old[i]), bits(update_Q[i + 1]));
}

// ---- the blend ----------------------------------------------------------------------------

struct BandCase {
    float heading, roll;
    bool blends;
    float w_old, w_new;
};

TEST(RotationVectorBlend, BandEdges) {
    const float above_120 = std::nextafter(120.0f, 200.0f);
    const BandCase cases[] = {
        // Upright enough (0 < |roll| < 134): the heading decides, mirrored for negatives.
        {120.0f, 10.0f, true, 0.9f, 0.1f},      {-120.0f, -10.0f, true, 0.9f, 0.1f},
        {above_120, 10.0f, true, 0.8f, 0.2f},   {-above_120, 10.0f, true, 0.8f, 0.2f},
        {144.0f, 10.0f, true, 0.5f, 0.5f},      {162.0f, 10.0f, true, 0.2f, 0.8f},
        {167.99f, 10.0f, true, 0.1f, 0.9f},     {168.0f, 10.0f, false, 0, 0},
        {-168.0f, 10.0f, false, 0, 0},          {168.01f, 10.0f, true, 0.05f, 0.95f},
        {-173.99f, 133.9f, true, 0.05f, 0.95f}, {174.0f, 10.0f, false, 0, 0},
        {-174.0f, 10.0f, false, 0, 0},
        // Roll exactly zero: never a blend, whatever the heading.
        {0.0f, 0.0f, false, 0, 0},              {170.0f, -0.0f, false, 0, 0},
        // Upside down (|roll| >= 134): the roll decides; there is no even split.
        {0.0f, 134.0f, true, 0.9f, 0.1f},       {0.0f, -134.0f, true, 0.9f, 0.1f},
        {0.0f, 136.99f, true, 0.9f, 0.1f},      {0.0f, 147.0f, true, 0.4f, 0.6f},
        {0.0f, -173.99f, true, 0.05f, 0.95f},   {0.0f, 174.0f, false, 0, 0},
        // NaN angles match nothing.
        {kNaN, 10.0f, false, 0, 0},             {0.0f, kNaN, false, 0, 0},
    };
    for (const BandCase &c : cases) {
        quarvel::BlendWeights w{-1, -1};
        const bool blends = quarvel::rv_blend_weights(c.heading, c.roll, &w);
        EXPECT_EQ(blends, c.blends) << "heading " << c.heading << " roll " << c.roll;
        if (blends && c.blends) {
            EXPECT_EQ(w.w_old, c.w_old) << "heading " << c.heading << " roll " << c.roll;
            EXPECT_EQ(w.w_new, c.w_new) << "heading " << c.heading << " roll " << c.roll;
        }
    }
}

// Settles the filters on the device, then puts the estimate exactly on the attitude
// and forgets the previous output: the next output shows the blend weight alone.
float new_weight_seen(const SteadyDevice &d) {
    seed_field(d);
    run(d.acc, 30);
    for (int i = 0; i < 4; ++i) update_Q[i] = d.q[i];
    for (float &c : q_l_old) c = 0.0f;
    float out[3];
    get_rv_value(d.acc, &kPeriod, out);
    const float len = std::sqrt(out[0] * out[0] + out[1] * out[1] + out[2] * out[2]);
    const float full = std::sqrt(d.q[1] * d.q[1] + d.q[2] * d.q[2] + d.q[3] * d.q[3]);
    return len / full;
}

TEST(RotationVectorBlend, UprightHeadingNorthTakesOneTenthOfTheNewEstimate) {
    EXPECT_NEAR(new_weight_seen(SteadyDevice(30, 10, 20)), 0.1f, 0.01f);
    expect_published_attitude_rule();
}

TEST(RotationVectorBlend, UprightHeadingSouthTakesMostOfTheNewEstimate) {
    EXPECT_NEAR(new_weight_seen(SteadyDevice(-165, 10, 20)), 0.9f, 0.02f);
    expect_published_attitude_rule();
}

TEST(RotationVectorBlend, UpsideDownTheRollDecides) {
    EXPECT_NEAR(new_weight_seen(SteadyDevice(20, 5, 152)), 0.7f, 0.02f);
    expect_published_attitude_rule();
}

TEST(RotationVectorBlend, OutsideEveryBandTheEstimateIsPublishedUnblended) {
    // GIVEN heading 177 deg, upright: no band applies
    const SteadyDevice d(177, 10, 20);
    EXPECT_NEAR(new_weight_seen(d), 1.0f, 0.02f);
    // THEN the published vector is the descent's own and angle_q describes it
    EXPECT_NEAR(angle_q[0], 177.0f, 2.0f);
    expect_published_attitude_rule();
}

// ---- gravity and linear acceleration ------------------------------------------------------

TEST(Gravity, BeforeAnyEstimateGravityIsStraightDown) {
    const float acc[3] = {1.0f, -2.0f, 9.0f};
    const int32_t bad_period = 0;
    float g[3], la[3];
    get_gravity_value(acc, &bad_period, g);
    EXPECT_EQ(g[0], 0.0f);
    EXPECT_EQ(g[1], 0.0f);
    EXPECT_EQ(g[2], 9.79f);
    get_la_value(acc, &bad_period, la);
    EXPECT_EQ(la[0], 1.0f);
    EXPECT_EQ(la[1], -2.0f);
    EXPECT_EQ(la[2], 9.0f - 9.79f);
}

TEST(Gravity, EachCallAdvancesTheEstimatorUnlessOneIsRunning) {
    const SteadyDevice d(10, 0, 10);
    seed_field(d);
    float out[3];
    get_rv_value(d.acc, &kPeriod, out);
    get_gravity_value(d.acc, &kPeriod, out);
    get_la_value(d.acc, &kPeriod, out);
    EXPECT_EQ(quarvel::rv_acc_smoothing.axis[0].pos, 3);  // the sample went in three times

    // WHEN an estimator step is visibly running, the current estimate is used as it is
    run(d.acc, 20);
    const Snapshot before = Snapshot::take();
    RunRVFlag = 1;
    float g[3];
    get_gravity_value(d.acc, &kPeriod, g);
    RunRVFlag = 0;
    EXPECT_TRUE(Snapshot::take() == before);
    float m[9], expected[3];
    Quat2DCM(update_Q, m);
    const float ref[3] = {0, 0, 9.79f};
    mat_prod31(m, ref, expected);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(bits(g[i]), bits(expected[i]));
}

TEST(Gravity, ARejectedSampleKeepsTheLastGravity) {
    const SteadyDevice d(45, 20, -30);
    seed_field(d);
    run(d.acc, 50);
    float g[3], la[3];
    get_gravity_value(d.acc, &kPeriod, g);
    const float zero[3] = {0, 0, 0};
    get_la_value(zero, &kPeriod, la);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(la[i], -g[i]);
}

TEST(Gravity, DirectionCosinesTakeEarthGravityIntoTheDeviceFrame) {
    const float ref[3] = {0, 0, 9.79f};
    float m[9], g[3];
    const float identity[4] = {1, 0, 0, 0};
    Quat2DCM(identity, m);
    const float expected_identity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    EXPECT_TRUE(fusiontest::same_bits(m, expected_identity, 9));

    const float half_turn_x[4] = {0, 1, 0, 0};
    Quat2DCM(half_turn_x, m);
    mat_prod31(m, ref, g);
    const float upside_down[3] = {0, 0, -9.79f};  // each row summed from +0: no -0
    EXPECT_TRUE(fusiontest::same_bits(g, upside_down, 3));

    for (const SteadyDevice &d : {SteadyDevice(0, 0, 90), SteadyDevice(30, 10, 20), SteadyDevice(-120, -35, 160)}) {
        Quat2DCM(d.q, m);
        mat_prod31(m, ref, g);
        float f[3];
        mat_prod31(m, fusiontest::kEarthField, f);
        for (int i = 0; i < 3; ++i) {
            EXPECT_NEAR(g[i], 9.79f * d.gravity_dir[i], 2e-5f) << i;
            EXPECT_NEAR(f[i], d.field[i], 1e-4f) << i;
        }
    }

    // A non-unit quaternion is used as it comes: the diagonal form 2(q0^2 + qi^2) - 1.
    const float doubled[4] = {2, 0, 0, 0};
    Quat2DCM(doubled, m);
    EXPECT_EQ(m[0], 7.0f);
    EXPECT_EQ(m[4], 7.0f);
    EXPECT_EQ(m[8], 7.0f);
}

TEST(RotationVectorBadInput, ABurstOfNaNSamplesLeavesTheEstimatorAtTheIdentity) {
    // GIVEN a settled estimator
    const SteadyDevice d(30, 10, 20);
    seed_field(d);
    run(d.acc, 40);
    // WHEN a burst of NaN samples gets through the spike filter into the low-pass state
    const float nan_acc[3] = {kNaN, 0.0f, 9.8f};
    run(nan_acc, 5);
    ASSERT_TRUE(std::isnan(quarvel::rv_low_pass.acc[0]));
    // THEN the low-pass state never recovers: every later descent stops before its
    // first step, and the estimator reports the identity attitude from then on
    run(d.acc, 50);
    float out[3], g[3];
    get_rv_value(d.acc, &kPeriod, out);
    for (float c : out) EXPECT_EQ(c, 0.0f);
    EXPECT_EQ(update_Q[0], 1.0f);
    get_gravity_value(d.acc, &kPeriod, g);
    EXPECT_EQ(g[2], 9.79f);
}

}  // namespace
