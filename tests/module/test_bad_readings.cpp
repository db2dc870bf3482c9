// One bad reading must not corrupt what the module delivers after it. A device lies
// still (standing on its long edge, so gravity is not straight down and the identity
// attitude is visibly wrong); each case slips bad readings into its sensor stream. Every
// output stays finite throughout, and the outputs are back on the device's attitude
// and field once good readings return.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "calmodule/orientation.h"
#include "support/module_loader.h"

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr int kMag = CALMODULE_TYPE_MAGNETIC_FIELD;
constexpr int kOrientation = CALMODULE_TYPE_ORIENTATION;
using Step = void(const float *, const int32_t *, float *);

// Standing on its long edge: gravity along +y (m/s^2); the field in µT and as counts.
constexpr float kAcc[3] = {0.0f, 9.8f, 0.0f};
constexpr float kField[3] = {20.0f, -30.0f, 25.0f};
constexpr float kCounts[3] = {kField[0] / 1.5f, kField[1] / 1.5f, kField[2] / 2.6f};

enum Kind { kMagEvent, kAccStep, kOrientationCall };
struct Reading {
    Kind kind;
    float v[3];
};
struct Case {
    const char *name;
    std::vector<Reading> bad;
};

bool finite(const float *v) { return std::isfinite(v[0]) && std::isfinite(v[1]) && std::isfinite(v[2]); }

struct Device {
    testsupport::LoadedModule module;
    Step *gravity = module.symbol<Step>("get_gravity_value");
    float *rvector = module.symbol<float>("m_rvector");
    float field[3] = {}, attitude[3] = {}, angles[3] = {}, g[3] = {};

    Device() {
        testsupport::remove_param_file();
        EXPECT_TRUE(module.ok() && gravity && rvector);
    }
    void magnetometer(const float counts[3]) {
        sensors_event_t out = testsupport::poisoned_event();
        ASSERT_EQ(module.convert(kMag, testsupport::make_event(kMag, counts[0], counts[1], counts[2]), &out), 0);
        for (int i = 0; i < 3; ++i) field[i] = out.data[i];
        // The orientation algorithm hears of the delivered field, as on a phone.
        sensors_event_t ori = testsupport::poisoned_event();
        ASSERT_EQ(module.convert(kOrientation, testsupport::make_event(kMag, field[0], field[1], field[2]), &ori), 0);
        for (int i = 0; i < 3; ++i) angles[i] = ori.data[i];
    }
    void accelerometer(const float acc[3]) {
        const int32_t period = 20;
        gravity(acc, &period, g);
        for (int i = 0; i < 3; ++i) attitude[i] = rvector[i];
        sensors_event_t ori = testsupport::poisoned_event();
        module.convert(kOrientation, testsupport::make_event(CALMODULE_TYPE_ACCELEROMETER, acc[0], acc[1], acc[2]), &ori);
    }
    void good(int rounds) {
        for (int r = 0; r < rounds; ++r) {
            magnetometer(kCounts);
            accelerometer(kAcc);
        }
    }
    void expect_finite(const char *when) const {
        EXPECT_TRUE(finite(field) && finite(attitude) && finite(angles) && finite(g)) << when;
    }
};

class BadReadings : public ::testing::TestWithParam<Case> {};

TEST_P(BadReadings, OutputsStayFiniteAndRecover) {
    Device d;
    d.good(60);
    float angles_before[3];
    for (int i = 0; i < 3; ++i) angles_before[i] = d.angles[i];

    for (const Reading &r : GetParam().bad) {
        float v[3] = {r.v[0], r.v[1], r.v[2]};
        if (r.kind == kMagEvent) d.magnetometer(v);
        if (r.kind == kAccStep) d.accelerometer(v);
        if (r.kind == kOrientationCall) {
            float mag[3] = {kField[0], kField[1], kField[2]}, out[3] = {};
            get_oritation_values(mag, v, out);
        }
        d.expect_finite("right after the bad reading");
        d.good(1);
        d.expect_finite("with good readings again");
    }
    d.good(150);
    d.expect_finite("after recovery");
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(d.field[i], kField[i], 2.0f) << "field " << i;
        EXPECT_NEAR(d.g[i], kAcc[i] * (9.79f / 9.8f), 0.05f) << "gravity " << i;
    }
    EXPECT_NEAR(d.angles[0], angles_before[0], 1.0f);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, BadReadings,
    ::testing::Values(Case{"TinyAccelerometer", std::vector<Reading>(5, Reading{kAccStep, {1e-40f, 0.0f, 0.0f}})},
                      Case{"NaNAccelerometer", {{kAccStep, {kNaN, 9.8f, 0.0f}}}},
                      Case{"TinyAccelerationToOrientation", {{kOrientationCall, {1e-30f, 0.0f, 0.0f}}}},
                      Case{"NaNAccelerationToOrientation", {{kOrientationCall, {kNaN, 9.8f, 0.0f}}}},
                      Case{"NaNMagnetometer", {{kMagEvent, {kNaN, 0.0f, 0.0f}}}},
                      Case{"InfiniteMagnetometer", {{kMagEvent, {0.0f, -kInf, 0.0f}}}},
                      Case{"MagnetometerOverflowingItsScale",
                           std::vector<Reading>(5, Reading{kMagEvent, {1e38f, 1e38f, 1e38f}})}),
    [](const ::testing::TestParamInfo<Case> &info) { return std::string(info.param.name); });

TEST(BadReadings, MagnetometerMethodsRefuseNullRecords) {
    testsupport::LoadedModule module;
    ASSERT_TRUE(module.ok());
    sensors_event_t e = testsupport::make_event(kMag, 1.0f);
    for (int type : {int{kMag}, int{CALMODULE_TYPE_MAGNETIC_FIELD_UNCALIBRATED}}) {
        const cal_algo_methods *m = module.algo(type)->methods;
        EXPECT_LT(m->convert(nullptr, &e), 0);
        EXPECT_LT(m->convert(&e, nullptr), 0);
        if (m->config) {
            EXPECT_EQ(m->config(CALMODULE_CMD_ENABLE, nullptr), 0);
        }
    }
}

}  // namespace
