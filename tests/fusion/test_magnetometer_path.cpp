// The rotation vector as an outside caller gets it on a phone: magnetometer events go
// through the module's magnetometer algorithm, which calibrates the hard-iron offset;
// accelerometer samples go to get_rv_value, get_gravity_value and get_la_value.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>

#include "fusion/steady_device.h"
#include "support/module_loader.h"
#include "support/test_env.h"

namespace {

using fusiontest::SteadyDevice;
using testsupport::LoadedModule;

struct Vec3 {
    float x, y, z;
};

// The field a magnetometer with a hard-iron offset reads while the phone is turned:
// 45 uT from directions spread over the whole sphere (a golden-angle spiral, so that
// successive samples lie far apart), plus the offset.
Vec3 turned_field(int i, const Vec3 &offset) {
    constexpr int kDirections = 97;
    const double z = 1.0 - 2.0 * ((i % kDirections) + 0.5) / kDirections;
    const double r = std::sqrt(1.0 - z * z);
    const double phi = 2.399963229728653 * i;  // golden angle, radians
    return {offset.x + static_cast<float>(45.0 * r * std::cos(phi)),
            offset.y + static_cast<float>(45.0 * r * std::sin(phi)), offset.z + static_cast<float>(45.0 * z)};
}

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

    // One magnetometer event in the chip's raw counts; returns the accuracy level
    // delivered with it.
    int raw_magnetometer(float x, float y, float z) const {
        sensors_event_t out = testsupport::poisoned_event();
        EXPECT_EQ(module.convert(kMag, testsupport::make_event(kMag, x, y, z), &out), 0);
        return out.vector.status;
    }
    // The same for a field in µT (magnetometer axes).
    int magnetometer(const Vec3 &field_ut) const {
        return raw_magnetometer(field_ut.x / 1.5f, field_ut.y / 1.5f, field_ut.z / 2.6f);
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
    int level = 0;
    for (int i = 0; i < 3000; ++i) level = phone.magnetometer(turned_field(i, offset));
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

TEST(RealRecording, FigureEightGivesAUnitAttitudeAndGravityAlongTheAccelerometer) {
    // GIVEN a real phone waved through a figure-eight, its events in time order
    const std::string path = std::string(testsupport::data_dir()) + "/nexus5-figure-eight.csv";
    FILE *csv = std::fopen(path.c_str(), "r");
    if (!csv) GTEST_SKIP() << "recording not available: " << path;
    testsupport::remove_param_file();
    Phone phone;
    ASSERT_TRUE(phone.ok());
    // WHEN magnetometer rows go through the module and accelerometer rows, one estimator
    // step each, to the rotation vector
    constexpr int kRecent = 50;  // accelerometer samples averaged at the end, 0.25 s
    float recent[kRecent][3] = {};
    int steps = 0;
    long long last_acc_ns = 0;
    char line[256];
    while (std::fgets(line, sizeof line, csv)) {
        long long t;
        int type;
        float v[3];
        if (std::sscanf(line, "%lld,%d,%f,%f,%f", &t, &type, &v[0], &v[1], &v[2]) != 5) continue;
        if (type == kMag) {
            phone.raw_magnetometer(v[0], v[1], v[2]);
            continue;
        }
        const int32_t period = last_acc_ns ? static_cast<int32_t>((t - last_acc_ns) / 1000000) : 5;
        last_acc_ns = t;
        float rv[3];
        phone.rv(v, &period, rv);
        for (int i = 0; i < 3; ++i) recent[steps % kRecent][i] = v[i];
        ++steps;
        // THEN every step leaves a unit attitude
        const float *q = phone.update_q;
        ASSERT_NEAR(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3], 1.0f, 1e-5f) << "step " << steps;
    }
    std::fclose(csv);
    ASSERT_GT(steps, 5000);

    // AND at the end gravity has magnitude 9.79 and lies within a few degrees of the
    // recent mean accelerometer reading
    float mean[3] = {};
    for (const auto &r : recent) {
        for (int i = 0; i < 3; ++i) mean[i] += r[i] / kRecent;
    }
    float g[3];
    const int32_t period = 5;
    phone.gravity(mean, &period, g);
    const float g_norm = std::sqrt(g[0] * g[0] + g[1] * g[1] + g[2] * g[2]);
    const float a_norm = std::sqrt(mean[0] * mean[0] + mean[1] * mean[1] + mean[2] * mean[2]);
    EXPECT_NEAR(g_norm, 9.79f, 0.01f);
    const float cosine = (g[0] * mean[0] + g[1] * mean[1] + g[2] * mean[2]) / (g_norm * a_norm);
    EXPECT_GT(cosine, std::cos(10.0f * 3.14159265f / 180.0f));
    RecordProperty("gravity_error_deg", std::to_string(std::acos(std::fmin(cosine, 1.0f)) * 180.0f / 3.14159265f));
}

}  // namespace
