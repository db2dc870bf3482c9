// The rotation vector as an outside caller gets it on a phone: magnetometer events go
// through the module's magnetometer algorithm, which calibrates the hard-iron offset;
// accelerometer samples go to get_rv_value, get_gravity_value and get_la_value.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

#include "fusion/steady_device.h"
#include "support/module_loader.h"
#include "support/test_env.h"
#include "tests/magcal/sphere_samples.h"

namespace {

using fusiontest::SteadyDevice;
using magcal_test::TurningDevice;
using magcal_test::Vec3;
using testsupport::LoadedModule;

constexpr int kMag = CALMODULE_TYPE_MAGNETIC_FIELD;
const int32_t kPeriod = 20;  // ms

using Step = void(const float *, const int32_t *, float *);

struct Phone {
    LoadedModule module;
    Step *rv = module.symbol<Step>("get_rv_value");
    Step *gravity = module.symbol<Step>("get_gravity_value");
    Step *linear = module.symbol<Step>("get_la_value");
    float *update_q = module.symbol<float>("update_Q");

    bool ok() const { return module.ok() && rv && gravity && linear && update_q; }

    // One raw magnetometer event for a field in µT (magnetometer axes); returns the
    // accuracy level delivered with it.
    int magnetometer(const Vec3 &field_ut) const {
        sensors_event_t out = testsupport::poisoned_event();
        const int r = module.convert(
            kMag, testsupport::make_event(kMag, field_ut.x / 1.5f, field_ut.y / 1.5f, field_ut.z / 2.6f), &out);
        EXPECT_EQ(r, 0);
        return out.vector.status;
    }
};

class CalibratedPhoneHeldStill : public ::testing::TestWithParam<float> {};

TEST_P(CalibratedPhoneHeldStill, RotationVectorGravityAndLinearAccelerationFollowTheAttitude) {
    // GIVEN a phone with a hard-iron offset and no stored calibration, turned through
    // many attitudes in a 45 uT field until its magnetometer is calibrated
    testsupport::remove_param_file();
    Phone phone;
    ASSERT_TRUE(phone.ok());
    const Vec3 offset{25.0f, -30.0f, 15.0f};
    TurningDevice turning(3, offset, 45.0f, 0.05f);
    int level = 0;
    for (int i = 0; i < 3000; ++i) level = phone.magnetometer(turning.next());
    ASSERT_EQ(level, 3);

    // WHEN it then lies still at a known attitude, one magnetometer event before each
    // accelerometer sample
    const float heading = GetParam();
    const SteadyDevice d(heading, 15, -25);
    const Vec3 raw_field{d.cali_mag[0] + offset.x, d.cali_mag[1] + offset.y, d.cali_mag[2] + offset.z};
    float rv[3];
    for (int i = 0; i < 400; ++i) {
        phone.magnetometer(raw_field);
        phone.rv(d.acc, &kPeriod, rv);
    }

    // THEN the quaternion matches the attitude: a few degrees, from the fixed descent
    // step and from what is left of the offset error
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(phone.update_q[i], d.q[i], 0.04) << i;
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(rv[i], d.q[i + 1], 0.04) << i;

    // AND gravity points along true gravity with magnitude 9.79
    float g[3];
    phone.magnetometer(raw_field);
    phone.gravity(d.acc, &kPeriod, g);
    EXPECT_NEAR(std::sqrt(g[0] * g[0] + g[1] * g[1] + g[2] * g[2]), 9.79f, 0.01f);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(g[i], 9.79f * d.gravity_dir[i], 0.4f) << i;

    // AND linear acceleration is near zero
    float la[3];
    phone.magnetometer(raw_field);
    phone.linear(d.acc, &kPeriod, la);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(la[i], 0.0f, 0.4f) << i;
}

INSTANTIATE_TEST_SUITE_P(Headings, CalibratedPhoneHeldStill, ::testing::Values(-135.0f, 0.0f, 60.0f));

}  // namespace
