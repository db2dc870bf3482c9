// One bad reading must not corrupt what the module delivers after it. A device stands
// still on its long edge (so the identity attitude is visibly wrong); bad readings slip
// into its stream. Every output stays finite, and is back on the device's attitude and
// field once good readings return.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <ostream>

#include "calmodule/orientation.h"
#include "support/module_loader.h"

namespace {

constexpr float kNaN = NAN, kInf = INFINITY;
constexpr int kMag = CALMODULE_TYPE_MAGNETIC_FIELD, kOrientation = CALMODULE_TYPE_ORIENTATION;
constexpr float kAcc[3] = {0.0f, 9.8f, 0.0f}, kField[3] = {20.0f, -30.0f, 25.0f};  // m/s², µT
constexpr float kCounts[3] = {kField[0] / 1.5f, kField[1] / 1.5f, kField[2] / 2.6f};
enum Kind { kMagEvent, kAccStep, kOrientationCall };

struct Device {
    testsupport::LoadedModule module;
    void (*gravity)(const float *, const int32_t *, float *) = module.symbol<void(const float *, const int32_t *, float *)>("get_gravity_value");
    float field[3] = {}, g[3] = {}, angles[3] = {}, *rvector = module.symbol<float>("m_rvector");

    void feed(Kind kind, const float v[3]) {
        sensors_event_t out = testsupport::poisoned_event(), ori = out;
        if (kind == kMagEvent) {
            ASSERT_EQ(module.convert(kMag, testsupport::make_event(kMag, v[0], v[1], v[2]), &out), 0);
            std::copy(out.data, out.data + 3, field);  // the orientation hears of the delivered field
            ASSERT_EQ(module.convert(kOrientation, testsupport::make_event(kMag, field[0], field[1], field[2]), &ori), 0);
            std::copy(ori.data, ori.data + 3, angles);
        } else if (kind == kAccStep) {
            const int32_t period = 20;
            gravity(v, &period, g);
            module.convert(kOrientation, testsupport::make_event(CALMODULE_TYPE_ACCELEROMETER, v[0], v[1], v[2]), &ori);
        } else {
            float mag[3] = {kField[0], kField[1], kField[2]}, acc[3] = {v[0], v[1], v[2]}, o[3];
            get_oritation_values(mag, acc, o);
        }
        for (const float *vec : {field, g, angles, rvector}) {
            for (int i = 0; i < 3; ++i) ASSERT_TRUE(std::isfinite(vec[i]));
        }
    }
    void good(int rounds) {
        for (int r = 0; r < rounds; ++r) {
            feed(kMagEvent, kCounts);
            feed(kAccStep, kAcc);
        }
    }
};

struct Case { Kind kind; float v[3]; int times; };
void PrintTo(const Case &c, std::ostream *os) { *os << c.kind << ": " << c.v[0] << ", " << c.v[1] << ", " << c.v[2]; }
const Case kCases[] = {
    {kAccStep, {1e-40f, 0, 0}, 5}, {kAccStep, {kNaN, 9.8f, 0}, 1}, {kOrientationCall, {1e-30f, 0, 0}, 1},
    {kOrientationCall, {kNaN, 9.8f, 0}, 1}, {kMagEvent, {kNaN, 0, 0}, 1}, {kMagEvent, {0, -kInf, 0}, 1},
    {kMagEvent, {1e38f, 1e38f, 1e38f}, 5}};  // overflowing the chip's scale
class BadReadings : public ::testing::TestWithParam<Case> {};

TEST_P(BadReadings, OutputsStayFiniteAndRecover) {
    testsupport::remove_param_file();
    Device d;
    ASSERT_TRUE(d.module.ok() && d.gravity && d.rvector);
    d.good(60);
    const float heading = d.angles[0];
    for (int i = 0; i < GetParam().times; ++i) {
        d.feed(GetParam().kind, GetParam().v);
        d.good(1);
    }
    d.good(150);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(d.field[i], kField[i], 2.0f) << "field " << i;
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(d.g[i], kAcc[i] * (9.79f / 9.8f), 0.05f) << "gravity " << i;
    EXPECT_NEAR(d.angles[0], heading, 1.0f);
}
INSTANTIATE_TEST_SUITE_P(Cases, BadReadings, ::testing::ValuesIn(kCases));

}  // namespace
