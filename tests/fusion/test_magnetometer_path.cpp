// The rotation vector as an outside caller gets it on a phone: magnetometer events go
// through the module's magnetometer algorithm, which calibrates the hard-iron offset;
// accelerometer samples go to get_rv_value, get_gravity_value and get_la_value.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "calmodule/magcal.h"
#include "fusion/steady_device.h"
#include "support/module_loader.h"
#include "support/recording.h"
#include "support/test_env.h"

using calmodule::kChipScale;

namespace {

constexpr int kMag = CALMODULE_TYPE_MAGNETIC_FIELD;
using Step = void(const float *, const int32_t *, float *);

struct Phone {
    testsupport::LoadedModule module;
    Step *rv = module.symbol<Step>("get_rv_value"), *gravity = module.symbol<Step>("get_gravity_value"),
         *linear = module.symbol<Step>("get_la_value");
    float *update_q = module.symbol<float>("update_Q");
    Phone() {
        testsupport::remove_param_file();
        EXPECT_TRUE(module.ok() && rv && gravity && linear && update_q);
    }
    // One magnetometer event in raw counts; returns the accuracy level delivered with it.
    int raw_magnetometer(float x, float y, float z) const {
        sensors_event_t out = testsupport::poisoned_event();
        EXPECT_EQ(module.convert(kMag, testsupport::make_event(kMag, x, y, z), &out), 0);
        return out.vector.status;
    }
    // A field in µT (magnetometer axes) plus a hard-iron offset, as counts.
    int magnetometer(const float f[3], const float offset[3]) const {
        return raw_magnetometer((f[0] + offset[0]) / kChipScale[0], (f[1] + offset[1]) / kChipScale[1],
                                (f[2] + offset[2]) / kChipScale[2]);
    }
};

float norm(const float v[3]) { return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]); }

class CalibratedPhoneHeldStill : public ::testing::TestWithParam<float> {};

TEST_P(CalibratedPhoneHeldStill, RotationVectorGravityAndLinearAccelerationFollowTheAttitude) {
    // GIVEN a phone with a hard-iron offset and no stored calibration, turned in a 45 µT
    // field through directions over the whole sphere (a golden-angle spiral) until calibrated
    Phone phone;
    const float offset[3] = {25.0f, -30.0f, 15.0f};
    int level = 0;
    for (int i = 0; i < 3000; ++i) {
        const double z = 1.0 - 2.0 * ((i % 97) + 0.5) / 97, r = std::sqrt(1.0 - z * z), phi = 2.399963229728653 * i;
        const float f[3] = {static_cast<float>(45.0 * r * std::cos(phi)), static_cast<float>(45.0 * r * std::sin(phi)),
                            static_cast<float>(45.0 * z)};
        level = phone.magnetometer(f, offset);
    }
    ASSERT_EQ(level, 3);
    // WHEN it then lies still at a known attitude, a magnetometer event before each
    // accelerometer sample
    const fusiontest::SteadyDevice d(GetParam(), 15, -25);
    const int32_t period = 20;
    float rv[3], g[3], la[3];
    for (int i = 0; i < 400; ++i) phone.magnetometer(d.cali_mag, offset), phone.rv(d.acc, &period, rv);
    phone.magnetometer(d.cali_mag, offset), phone.gravity(d.acc, &period, g);
    phone.magnetometer(d.cali_mag, offset), phone.linear(d.acc, &period, la);
    // THEN the quaternion matches the attitude within a few degrees (the fixed descent
    // step and what is left of the offset error), gravity points along true gravity with
    // magnitude 9.79 and linear acceleration is near zero
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(phone.update_q[i], d.q[i], 0.04) << i;
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(rv[i], d.q[i + 1], 0.04) << i;
    EXPECT_NEAR(norm(g), 9.79f, 0.01f);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(g[i], 9.79f * d.gravity_dir[i], 0.4f) << i;
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(la[i], 0.0f, 0.4f) << i;
}

INSTANTIATE_TEST_SUITE_P(Headings, CalibratedPhoneHeldStill, ::testing::Values(-135.0f, 0.0f, 60.0f));

TEST(RealRecording, FigureEightGivesAUnitAttitudeAndGravityAlongTheAccelerometer) {
    // GIVEN a real phone waved through a figure-eight, its events in time order
    std::vector<testsupport::RecordedEvent> events;
    if (!testsupport::read_figure_eight(&events)) GTEST_SKIP() << "no recording: " << testsupport::figure_eight_path();
    Phone phone;
    // WHEN magnetometer events go through the module and accelerometer samples, one
    // estimator step each, to the rotation vector
    constexpr int kRecent = 50;  // accelerometer samples averaged at the end, 0.25 s
    float mean[3] = {}, rv[3];
    int steps = 0;
    long long last_acc_ns = 0;
    for (size_t e = 0; e < events.size(); ++e) {
        const testsupport::RecordedEvent &ev = events[e];
        if (ev.type == kMag) {
            phone.raw_magnetometer(ev.v[0], ev.v[1], ev.v[2]);
            continue;
        }
        const int32_t period = last_acc_ns ? static_cast<int32_t>((ev.t_ns - last_acc_ns) / 1000000) : 5;
        last_acc_ns = ev.t_ns;
        phone.rv(ev.v, &period, rv);
        ++steps;
        // THEN every step leaves a unit attitude
        const float *q = phone.update_q;
        ASSERT_NEAR(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3], 1.0f, 1e-5f) << "step " << steps;
    }
    ASSERT_GT(steps, 5000);
    // AND at the end gravity has magnitude 9.79 and lies within a few degrees of the
    // recent mean accelerometer reading
    int taken = 0;
    for (size_t e = events.size(); e-- > 0 && taken < kRecent;) {
        if (events[e].type == kMag) continue;
        for (int i = 0; i < 3; ++i) mean[i] += events[e].v[i] / kRecent;
        ++taken;
    }
    float g[3];
    const int32_t period = 5;
    phone.gravity(mean, &period, g);
    EXPECT_NEAR(norm(g), 9.79f, 0.01f);
    const float cosine = (g[0] * mean[0] + g[1] * mean[1] + g[2] * mean[2]) / (norm(g) * norm(mean));
    EXPECT_GT(cosine, std::cos(10.0f * 3.14159265f / 180.0f));
    RecordProperty("gravity_error_deg", std::to_string(std::acos(std::fmin(cosine, 1.0f)) * 180.0f / 3.14159265f));
}

}  // namespace
