// Input smoothing and the gradient-descent quaternion update, through the shared
// library. Every test case runs in a freshly loaded module.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "calmodule/fusion.h"
#include "fusion/steady_device.h"

namespace {

using fusiontest::bits;
using fusiontest::kNaN;
using fusiontest::same_bits;
using fusiontest::quaternion_distance;
using fusiontest::SteadyDevice;

// ---- acc_calibration_func / mag_calibration_func ---------------------------------

TEST(InputSmoothing, SteadyInputRampsUpOverEightSamplesInEachFilterOfItsOwn) {
    // The accelerometer filter runs ahead; the magnetometer filter must not notice.
    for (int i = 0; i < 9; ++i) {
        float v[3] = {5.0f, -7.0f, 1e30f};
        acc_calibration_func(v);
    }
    const float expected[] = {0, 0, 1, 2, 3, 4, 5, 6, 6, 6, 6, 6};
    for (float e : expected) {
        float v[3] = {6.0f, -6.0f, 0.0f};
        mag_calibration_func(v);
        EXPECT_EQ(v[0], e);
        EXPECT_EQ(v[1], -e);
        EXPECT_EQ(bits(v[2]), 0u);
    }
}

TEST(InputSmoothing, SpikesAmongTenSamplesAreIgnored) {
    // GIVEN ten samples of 2.0
    for (int i = 0; i < 10; ++i) {
        float v[3] = {2.0f, 2.0f, 2.0f};
        acc_calibration_func(v);
    }
    // WHEN spikes arrive: x one high then one low, z two high
    float v[3] = {1000.0f, 2.0f, 1000.0f};
    acc_calibration_func(v);
    float w[3] = {-1000.0f, 2.0f, 1000.0f};
    acc_calibration_func(w);
    // THEN the mean does not move
    EXPECT_EQ(v[0], 2.0f);
    EXPECT_EQ(w[0], 2.0f);
    EXPECT_EQ(w[1], 2.0f);
    EXPECT_EQ(w[2], 2.0f);
}

TEST(InputSmoothing, EleventhSampleOverwritesTheFirst) {
    float v[3] = {};
    for (int i = 1; i <= 11; ++i) {
        v[0] = static_cast<float>(i);
        acc_calibration_func(v);
        if (i == 10) {
            EXPECT_EQ(v[0], 5.5f);  // ring 1..10: mean of 3..8
        }
    }
    EXPECT_EQ(v[0], 6.5f);  // ring 2..11: mean of 4..9
}

// ---- QuaternionProduct ------------------------------------------------------------------

TEST(QuaternionProduct, OutputMayBeEitherInput) {
    const float a0[4] = {0.5f, -1.25f, 2.0f, 0.75f};
    const float b0[4] = {-0.3f, 0.9f, 0.1f, -2.5f};
    float separate[4];
    QuaternionProduct(a0, b0, separate);

    float a[4], b[4];
    std::memcpy(a, a0, sizeof a);
    QuaternionProduct(a, b0, a);
    std::memcpy(b, b0, sizeof b);
    QuaternionProduct(a0, b, b);
    EXPECT_TRUE(same_bits(a, separate, 4));
    EXPECT_TRUE(same_bits(b, separate, 4));
    // and Hamilton's i j = k
    const float i[4] = {0, 1, 0, 0}, j[4] = {0, 0, 1, 0}, k[4] = {0, 0, 0, 1};
    QuaternionProduct(i, j, a);
    EXPECT_TRUE(same_bits(a, k, 4));
}

// ---- GradientDescent ----------------------------------------------------------------------

TEST(GradientDescent, NoStepTakenLeavesTheOutputUntouched) {
    const float identity[4] = {1, 0, 0, 0}, tilted[4] = {0.9f, 0.1f, 0.3f, -0.2f};
    const float up[3] = {0, 0, 1}, north[3] = {1, 0, 0};
    const float acc[3] = {0.1f, 0.2f, 0.97f}, mag[3] = {20, -5, -30};
    const float zero[3] = {0, 0, 0}, minus_zero[3] = {-0.0f, 0.0f, -0.0f}, nan3[3] = {kNaN, 0, 0};
    struct Case {
        const float *acc, *mag, *q_in;
    } cases[] = {
        {up, north, identity},  // already at the minimum: zero gradient
        {zero, mag, tilted}, {minus_zero, mag, tilted}, {acc, zero, tilted},
        {nan3, mag, tilted}, {acc, nan3, tilted},  // NaN norms read as zero
    };
    for (const Case &c : cases) {
        float q_out[4] = {9, 9, 9, 9};
        GradientDescent(c.acc, c.mag, c.q_in, 0.02f, q_out);
        for (float x : q_out) EXPECT_EQ(x, 9.0f);
    }
}

TEST(GradientDescent, TenStepsOfFixedLengthApproachTheAttitude) {
    // GIVEN a steady device 30 deg heading, 10 deg pitch, 20 deg roll, and a start
    // 0.1 away from it
    const SteadyDevice t(30, 10, 20);
    float q_in[4] = {t.q[0] + 0.05f, t.q[1] - 0.05f, t.q[2] + 0.05f, t.q[3] - 0.05f};
    float q_out[4];
    GradientDescent(t.gravity_dir, t.field, q_in, 0.02f, q_out);
    // THEN it moved at most ten steps and ended within about one step of the attitude
    EXPECT_LE(quaternion_distance(q_in, q_out), 10 * 0.02 + 0.01);
    EXPECT_LT(quaternion_distance(q_out, t.q), 0.03);
    const float origin[4] = {0, 0, 0, 0};
    EXPECT_NEAR(quaternion_distance(q_out, origin), 1.0, 1e-6);
}

TEST(GradientDescent, TheScalarPartComesBackNonNegative) {
    // GIVEN a start near minus the identity, the nearest minimum
    const float acc[3] = {0, 0, 1}, mag[3] = {1, 0, 0};
    const float q_in[4] = {-0.98994949f, 0.14142136f, 0, 0};
    float q_out[4];
    GradientDescent(acc, mag, q_in, 0.02f, q_out);
    // THEN the result is reported as the equivalent quaternion with q0 >= 0
    EXPECT_GT(q_out[0], 0.99f);
    EXPECT_LT(std::fabs(q_out[1]), 0.03f);
}

TEST(GradientDescent, TypicalStepsGiveTheRecordedBits) {
    // Regression guard on the exact arithmetic, from the identity towards two steady
    // attitudes (heading, pitch, roll -70, 25, -40 and -150, 30, -120 degrees; unit
    // gravity, 45 uT field). The second comes out differently if the residuals around
    // one half are summed in float.
    struct Case {
        float acc[3], mag[3], q[4];
    } cases[] = {
        {{-0x1.b0c2d8p-2f, -0x1.2a45bep-1f, 0x1.63779ep-1f},
         {0x1.771c2p+4f, 0x1.26793ep+5f, -0x1.5f30c4p+3f},
         {0x1.f6479p-1f, -0x1.11e3a2p-3f, 0x1.fcf0ep-5f, -0x1.01f64ep-3f}},
        {{-0x1p-1f, -0x1.7ffffep-1f, -0x1.bb67b4p-2f},
         {0x1.4e2742p+1f, 0x1.0053aap+5f, 0x1.f7d3b2p+4f},
         {0x1.f62a42p-1f, -0x1.582002p-5f, 0x1.531ae4p-3f, -0x1.81b82cp-4f}},
    };
    for (const Case &c : cases) {
        const float q_in[4] = {1, 0, 0, 0};
        float q_out[4];
        GradientDescent(c.acc, c.mag, q_in, 0.02f, q_out);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(bits(q_out[i]), bits(c.q[i])) << i << ": " << std::hexfloat << q_out[i];
    }
}

}  // namespace
