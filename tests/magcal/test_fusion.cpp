// The calibration state machine, the calibration record and the output filters, seen
// from inside the module (no parameter file involved).
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "calmodule/magcal.h"
#include "magcal/calibration_state.h"
#include "magcal/magcal_internal.h"
#include "tests/magcal/sphere_samples.h"

namespace {

using magcal_test::twelve_on_sphere;
using magcal_test::Vec3;

// Calls Fusion the way the driver does, on the driver's own results.
struct Step {
    int32_t result;
    int32_t new_offset_flag;
};
Step fusion(float x, float y, float z) {
    const float m[3] = {x, y, z};
    Step s{};
    s.result = Fusion(m, quarvel::cali_mag_values, quarvel::cali_offset, &quarvel::cali_level,
                      &s.new_offset_flag, &cali_flag, &cali_ret, quarvel::noise_mag_delta);
    return s;
}

// Offers one buffer of twelve samples of the sphere; returns the last step.
Step feed_sphere(const Vec3 &centre, float radius) {
    float s[12][3];
    twelve_on_sphere(centre, radius, s);
    Step last{};
    for (int i = 0; i < 12; ++i) {
        last = fusion(s[i][0], s[i][1], s[i][2]);
        if (i < 11) {
            EXPECT_EQ(last.result, -3) << i;
        }
    }
    EXPECT_EQ(last.result, 1);
    // The next admitted sample empties the consumed buffer.
    EXPECT_EQ(fusion(centre.x + radius, centre.y, centre.z).result, -3);
    EXPECT_EQ(Msensor.dotsCount, 0);
    return last;
}

bool record_empty() {
    static const magcal_record zero = {};
    return std::memcmp(&Msensor, &zero, sizeof zero) == 0;
}

TEST(Fusion, ZeroSampleChangesNothing) {
    quarvel::cali_mag_values[0] = 4.0f;
    const Step s = fusion(0, 0, 0);
    EXPECT_EQ(s.result, -2);
    EXPECT_EQ(s.new_offset_flag, 0);
    EXPECT_EQ(quarvel::cali_mag_values[0], 4.0f);
    EXPECT_EQ(Msensor.dotsCount, 0);
}

TEST(Fusion, CalibratedFieldUsesTheSelectedOffsetThenTheDisturbance) {
    const float latest[3] = {10, -5, 2};
    FusionSetOffset(latest);
    EXPECT_EQ(fusion(30, 20, -40).result, -3);
    EXPECT_EQ(quarvel::cali_mag_values[0], 20.0f);
    EXPECT_EQ(quarvel::cali_mag_values[1], 25.0f);
    EXPECT_EQ(quarvel::cali_mag_values[2], -42.0f);

    quarvel::noise_mag_delta[0] = 0.5f;
    fusion(31, 20, -40);
    EXPECT_EQ(quarvel::cali_mag_values[0], 20.5f);

    OptimalOffset[0] = 1.0f;
    optimalFlag = 1;
    fusion(32, 20, -40);
    EXPECT_EQ(quarvel::cali_mag_values[0], 30.5f);
    optimalFlag = 2;
    fusion(33, 20, -40);
    for (float c : quarvel::cali_mag_values) EXPECT_EQ(c, 0.0f);
}

TEST(Fusion, LevelClimbsWithTheHeldFitsAndAskedForPersistenceFromTwo) {
    const Vec3 centre{12, -18, 4};
    quarvel::noise_mag_delta[1] = 3.0f;

    // The call that accepts the first offset still reports with the old one (zero).
    float s[12][3];
    twelve_on_sphere(centre, 44, s);
    for (int i = 0; i < 11; ++i) fusion(s[i][0], s[i][1], s[i][2]);
    Step st = fusion(s[11][0], s[11][1], s[11][2]);
    EXPECT_EQ(st.result, 1);
    EXPECT_EQ(quarvel::cali_mag_values[0], s[11][0]);
    EXPECT_EQ(quarvel::cali_level, 1);
    EXPECT_EQ(st.new_offset_flag, 0);
    EXPECT_EQ(quarvel::noise_mag_delta[1], 0.0f);
    EXPECT_NEAR(quarvel::cali_offset[0], 12.0f, 1e-3f);
    EXPECT_NEAR(LatestOffset[1], -18.0f, 1e-3f);
    EXPECT_EQ(fusion(60, 0, 0).result, -3);  // empties the consumed buffer

    st = feed_sphere(centre, 44);
    EXPECT_EQ(quarvel::cali_level, 2);
    EXPECT_EQ(st.new_offset_flag, 1);
    for (int n = 3; n <= 5; ++n) {
        optimalFlag = 1;
        st = feed_sphere(centre, 44);
        EXPECT_EQ(quarvel::cali_level, 3);
        EXPECT_EQ(st.new_offset_flag, 1);
        EXPECT_EQ(Msensor.fitCount, n);
        EXPECT_EQ(optimalFlag, n > 4 ? 0 : 1);  // cleared once more than four fits are held
    }
    optimalFlag = 0;
    // A refused fit (radius 57, on the shell but no earth field) re-derives the level from the unchanged count.
    st = feed_sphere(centre, 57);
    EXPECT_EQ(Msensor.fitCount, 5);
    EXPECT_EQ(st.new_offset_flag, 1);
}

// Two fits held at level 2 with an accepted offset: the state the supervision tests
// start from.
void held_at_level_two() {
    feed_sphere({12, -18, 4}, 44);
    feed_sphere({12, -18, 4}, 44);
    ASSERT_EQ(quarvel::cali_level, 2);
}

void expect_restarted_with_offset_kept() {
    EXPECT_EQ(quarvel::cali_level, 0);
    EXPECT_TRUE(record_empty());
    EXPECT_EQ(noiseCount, 0);
    EXPECT_NEAR(LatestOffset[0], 12.0f, 1e-3f);
    EXPECT_NEAR(quarvel::cali_offset[0], 12.0f, 1e-3f);
}

TEST(Supervision, ThirtyThreeImplausibleReadingsRestart) {
    held_at_level_two();
    fusion(30, 30, 30);
    for (int i = 0; i < 32; ++i) EXPECT_EQ(fusion(250, 0, 0).result, -3);
    EXPECT_EQ(noiseCount, 32);
    EXPECT_EQ(Msensor.dotsCount, 0);  // each one emptied the buffer
    EXPECT_EQ(Msensor.fitCount, 2);
    EXPECT_EQ(quarvel::cali_level, 2);
    fusion(250, 0, 0);
    expect_restarted_with_offset_kept();
    // The calibrated output goes on with the kept offset.
    fusion(62, -18, 4);
    EXPECT_NEAR(quarvel::cali_mag_values[0], 50.0f, 1e-3f);
}

TEST(Supervision, ThirdGrossReadingRestarts) {
    held_at_level_two();
    fusion(250, 0, 0);
    ASSERT_EQ(noiseCount, 1);
    fusion(600, 0, 0);
    EXPECT_EQ(noiseCount, 0);  // a gross reading clears the running count
    fusion(600, 0, 0);
    EXPECT_EQ(l_noiseCount, 2);
    EXPECT_EQ(quarvel::cali_level, 2);
    fusion(0, 0, 900);
    EXPECT_EQ(l_noiseCount, 0);
    expect_restarted_with_offset_kept();
}

TEST(Supervision, RestartRequestRestartsOnEveryCall) {
    held_at_level_two();
    cali_ret = 1;
    for (int i = 0; i < 30; ++i) {
        EXPECT_EQ(fusion(50.0f + i * 3.0f, -i * 2.0f, i * 1.5f).result, -3);
        expect_restarted_with_offset_kept();
    }
    cali_ret = 0;
    EXPECT_EQ(fusion(50, 0, 0).result, -3);
    EXPECT_EQ(Msensor.dotsCount, 1);
}

// ---- output filters --------------------------------------------------------------

TEST(OutputFilter, ConstantInputRampsThroughTheTrimmedMeanAndTheLowPass) {
    const float ramp[10] = {0, 0, 10, 20, 30, 40, 50, 60, 60, 60};
    for (float expected : ramp) {
        float v[3] = {60.0f, 0.0f, -60.0f};
        RCalibrationXYZ(v);
        EXPECT_EQ(v[0], expected);
        EXPECT_EQ(v[1], 0.0f);
        EXPECT_EQ(v[2], -expected);
    }
    EXPECT_EQ(quarvel::mag_ring_x.pos, 0);
    for (float r : quarvel::mag_ring_x.ring) EXPECT_EQ(r, 60.0f);
}

TEST(OutputFilter, MagneticValuesFollowTheTenSampleRampAndTheLowPass) {
    const float expected[10] = {0x0p+0f,          0x0p+0f,          0x1p+0f,
                                0x1.733334p+1f,   0x1.670a3ep+2f,   0x1.219168p+3f,
                                0x1.a49c76p+3f,   0x1.1d4668p+4f,   0x1.60bf5ep+4f,
                                0x1.9d7908p+4f};
    quarvel::cali_mag_values[1] = 60.0f;
    for (int i = 0; i < 10; ++i) {
        float out[3];
        get_magnetic_values(out);
        EXPECT_EQ(out[1], expected[i]) << "call " << i + 1;
        EXPECT_EQ(out[0], 0.0f);
    }
}

TEST(OutputFilter, SpikesDoNotMoveTheTrimmedMean) {
    const float inputs[14] = {5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 900, 5, -900, 900};
    float v[3];
    for (float in : inputs) {
        v[0] = in;
        v[1] = 7.0f;
        v[2] = 7.0f;
        RCalibrationXYZ(v);
    }
    EXPECT_EQ(v[0], 5.0f);  // three spikes among the last ten, two at one end at most
    EXPECT_EQ(v[1], 7.0f);
}

}  // namespace
