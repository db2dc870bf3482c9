// The orientation computation keeps CalibrationThree's rings only once something
// needs them of their own. Whatever comes first (a direct call of a smoother, or a
// changed remap), they must then stand exactly as if they had been kept all along.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "calmodule/orientation.h"
#include "filters/trimmed_mean_vector.h"

namespace {

using Rings = quarvel::TrimmedMeanVector<8, 3>;

void remap(const int32_t *m, const float *v, float *r) {
    for (int row = 0; row < 3; ++row) {
        float sum = 0.0f;
        for (int col = 0; col < 3; ++col) sum += static_cast<float>(m[3 * row + col]) * v[col];
        r[row] = sum;
    }
}

bool same_bits(const float *a, const float *b) { return std::memcmp(a, b, 3 * sizeof(float)) == 0; }

// Tracking calls (the device moves on every call) with fields that include signed
// zeros and repeats; `three` and `xyz` follow what the smoothers must hold. After
// `remap_change` calls (never, if negative) the field's remap becomes another one.
void drive(int calls, int remap_change, Rings &three, Rings &xyz) {
    std::mt19937 rng(11);
    const float pool[] = {0.0f, -0.0f, 12.5f, -12.5f};
    for (int i = 0; i < calls; ++i) {
        if (i == remap_change) {
            const int32_t other[9] = {0, 0, -1, 1, 0, 0, 0, 1, 0};
            std::memcpy(MagTrsfMatrix, other, sizeof other);
        }
        float mag[3], acc[3] = {i % 2 ? 3.0f : -3.0f, 1.0f, 9.0f}, out[3];
        for (float &m : mag) m = rng() % 3 ? std::uniform_real_distribution<float>(-60, 60)(rng) : pool[rng() % 4];
        if (mag[0] == 0.0f && mag[1] == 0.0f && mag[2] == 0.0f) mag[1] = 1.0f;  // no field: refused
        float remapped[3], expected_mag[3];
        remap(MagTrsfMatrix, mag, remapped);
        std::memcpy(expected_mag, mag, sizeof mag);
        three.filter(remapped);
        xyz.filter(expected_mag);
        get_oritation_values(mag, acc, out);
        ASSERT_TRUE(same_bits(mag, expected_mag)) << "call " << i;  // mag comes back smoothed
    }
}

// What the first call of its own finds in CalibrationThree's rings, after 30 calls
// of the orientation computation; the harness gives each test a fresh module.
enum class First { kThree, kXyz, kGetAzimuth, kRemapChange };

void check_first(First first) {
    Rings three, xyz;
    drive(30, first == First::kRemapChange ? 20 : -1, three, xyz);
    if (first == First::kXyz) {
        float v[3] = {5.0f, 0.0f, -2.0f}, want[3] = {5.0f, 0.0f, -2.0f};
        CalibrationXYZ(v);
        xyz.filter(want);
        EXPECT_TRUE(same_bits(v, want));
    }
    float v[3] = {7.0f, -0.0f, 3.0f}, want[3] = {7.0f, -0.0f, 3.0f};
    if (first == First::kGetAzimuth) {
        const float acc[3] = {0.0f, 0.0f, 1024.0f};
        float heading = 0.0f;
        GetAzimuth(acc, v, &heading);  // smooths v in place
    } else {
        CalibrationThree(v);
    }
    three.filter(want);
    EXPECT_TRUE(same_bits(v, want)) << v[0] << " " << v[1] << " " << v[2];
}

TEST(FieldSmoothing, DirectCallOfTheRemappedSmoother) { check_first(First::kThree); }
TEST(FieldSmoothing, DirectCallOfTheFieldSmoother) { check_first(First::kXyz); }
TEST(FieldSmoothing, DirectCallOfGetAzimuth) { check_first(First::kGetAzimuth); }
TEST(FieldSmoothing, ChangedRemap) { check_first(First::kRemapChange); }

}  // namespace
