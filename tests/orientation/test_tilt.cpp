// Tilt angles in radians from gravity vectors and components, through the built
// library as outside callers link it.
#include <gtest/gtest.h>

#include <cmath>

#include "calmodule/orientation.h"
#include "support/module_loader.h"

namespace {

using VectorTilt = void (*)(const float *, float *);

float tilt(VectorTilt f, float x, float y, float z) {
    const float g[3] = {x, y, z};
    float out = -123.0f;
    f(g, &out);
    return out;
}

float pitch_angle(float x, float y) {
    float out = -123.0f;
    PitchAngle(x, y, &out);
    return out;
}

float roll_angle(float x, float y, float z) {
    float out = -123.0f;
    RollAngle(x, y, z, &out);
    return out;
}

TEST(PitchAngle, OnTheYAxisGivesTheQuarterTurns) {
    EXPECT_EQ(pitch_angle(0.0f, 5.0f), 0x1.921fb4p+0f);   // 1.5707963
    EXPECT_EQ(pitch_angle(0.0f, -5.0f), 0x1.2d97c8p+2f);  // 4.712389
    EXPECT_EQ(pitch_angle(0.0f, 0.0f), 0x1.2d97c8p+2f);   // no direction: three-quarter turn
    EXPECT_EQ(pitch_angle(-0.0f, 1.0f), 0x1.921fb4p+0f);  // a negative zero is still zero
}

TEST(PitchAngle, CoversAFullTurnFromPositiveX) {
    EXPECT_EQ(pitch_angle(1.0f, 0.0f), 0.0f);
    EXPECT_EQ(pitch_angle(-1.0f, 0.0f), 0x1.921fb4p+1f);  // 3.1415926 stored as float
    // atan(-1) + 6.2831852, summed in double.
    EXPECT_EQ(pitch_angle(1.0f, -1.0f), static_cast<float>(std::atan(-1.0) + 6.2831852));
    EXPECT_NEAR(pitch_angle(1.0f, -1.0f), 5.497787f, 1e-6f);
    EXPECT_NEAR(pitch_angle(1.0f, 1.0f), 0.7853982f, 1e-7f);
    EXPECT_NEAR(pitch_angle(-1.0f, 1.0f), 2.3561945f, 1e-6f);
    EXPECT_NEAR(pitch_angle(-1.0f, -1.0f), 3.9269907f, 1e-6f);
}

TEST(RollAngle, IsMinusTheElevationOfY) {
    EXPECT_EQ(roll_angle(0.0f, 2.0f, 0.0f), -0x1.921fb4p+0f);
    EXPECT_EQ(roll_angle(0.0f, -2.0f, 0.0f), 0x1.921fb4p+0f);
    EXPECT_EQ(roll_angle(0.0f, 0.0f, 0.0f), -0x1.921fb4p+0f);  // y = 0 counts as not below 0
    EXPECT_EQ(roll_angle(3.0f, 4.0f, 0.0f), -atanf(4.0f / 3.0f));
    EXPECT_EQ(roll_angle(0.0f, 4.0f, -3.0f), -atanf(4.0f / 3.0f));
}

TEST(VectorTilt, GravityAlongXGivesQuarterTurnsAndZeroAboutX) {
    EXPECT_EQ(tilt(GetPitch, 1.0f, 0.0f, 0.0f), -asinf(1.0f));
    EXPECT_EQ(tilt(GetRollAngle, 1.0f, 0.0f, 0.0f), asinf(1.0f));
    EXPECT_NEAR(tilt(GetRollAngle, 1.0f, 0.0f, 0.0f), 1.5707964f, 1e-7f);
    // With g[1] and g[2] both zero there is no angle about x; a negative zero in
    // g[2] must not turn it into a half turn.
    for (float z : {0.0f, -0.0f}) {
        const float roll = tilt(GetRoll, 1.0f, 0.0f, z);
        const float pitch = tilt(GetPitchAngle, 1.0f, 0.0f, z);
        EXPECT_EQ(roll, 0.0f);
        EXPECT_FALSE(std::signbit(roll));
        EXPECT_EQ(pitch, 0.0f);
        EXPECT_FALSE(std::signbit(pitch));
    }
}

TEST(VectorTilt, UprightAndTiltedDevice) {
    // Standing on its bottom edge: gravity along +y.
    EXPECT_EQ(tilt(GetPitchAngle, 0.0f, 1.0f, 0.0f), -atan2f(1.0f, 0.0f));
    EXPECT_EQ(tilt(GetRoll, 0.0f, 1.0f, 0.0f), atan2f(1.0f, 0.0f));
    EXPECT_EQ(tilt(GetRollAngle, 0.0f, 1.0f, 0.0f), 0.0f);
    // Face down: the angle about x is a half turn, with atan2f's sign.
    EXPECT_EQ(tilt(GetRoll, 0.0f, 0.0f, -1.0f), atan2f(0.0f, -1.0f));
    EXPECT_EQ(tilt(GetRoll, 0.0f, -0.0f, -1.0f), -0x1.921fb6p+1f);
    EXPECT_EQ(tilt(GetPitchAngle, 0.0f, 0x1p-20f, -1.0f), -atan2f(0x1p-20f, -1.0f));
    EXPECT_EQ(tilt(GetPitch, 0.5f, 0.0f, 0.8660254f), -asinf(0.5f));
}

TEST(VectorTilt, ComponentBeyondOneGIsNotClamped) {
    EXPECT_TRUE(std::isnan(tilt(GetPitch, 1.0000001f, 0.0f, 0.0f)));
    EXPECT_TRUE(std::isnan(tilt(GetRollAngle, 1.0000001f, 0.0f, 0.0f)));
}

TEST(SoftGyroNames, AreTheSameFunctionsNotCopies) {
    testsupport::LoadedModule module;
    ASSERT_TRUE(module.ok());
    const char *pairs[][2] = {{"GetPitch", "softgy_GetPitch"},
                              {"GetRoll", "softgy_GetRoll"},
                              {"GetPitchAngle", "softgy_GetPitchAngle"},
                              {"GetRollAngle", "softgy_GetRollAngle"}};
    for (const auto &pair : pairs) {
        void *first = module.symbol<void>(pair[0]);
        void *second = module.symbol<void>(pair[1]);
        ASSERT_NE(first, nullptr) << pair[0];
        EXPECT_EQ(first, second) << pair[0] << " and " << pair[1];
    }
    EXPECT_EQ(tilt(softgy_GetPitch, 0.25f, 0.5f, 0.75f), tilt(GetPitch, 0.25f, 0.5f, 0.75f));
    EXPECT_EQ(tilt(softgy_GetRoll, 0.25f, 0.5f, 0.75f), tilt(GetRoll, 0.25f, 0.5f, 0.75f));
}

}  // namespace
