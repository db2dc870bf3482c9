// Helpers shared by the rotation-vector tests: bit-exact float checks, and what the
// sensors of a device lying still at a known attitude report.
#ifndef CALMODULE_TESTS_FUSION_STEADY_DEVICE_H
#define CALMODULE_TESTS_FUSION_STEADY_DEVICE_H

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>

#include "calmodule/fusion.h"

namespace fusiontest {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

inline uint32_t bits(float f) {
    uint32_t b;
    std::memcpy(&b, &f, sizeof b);
    return b;
}

// got[0..n) against want bit for bit (so -0 differs from 0).
inline void expect_bits(const float *got, std::initializer_list<float> want) {
    const float *w = want.begin();
    for (size_t i = 0; i < want.size(); ++i) {
        EXPECT_EQ(bits(got[i]), bits(w[i])) << "element " << i << ": " << std::hexfloat << got[i] << " vs " << w[i];
    }
}

// The earth field, µT: 45 µT inclined 60 degrees downwards, horizontal part along x.
constexpr float kEarthField[3] = {22.5f, 0.0f, -38.97114317f};

// A device lying still at heading, pitch and roll given in degrees, in that field.
struct SteadyDevice {
    float q[4];            // device-to-earth attitude, scalar first
    float gravity_dir[3];  // unit at-rest accelerometer direction, device axes
    float acc[3];          // accelerometer reading, m/s^2 (1 g = 9.8)
    float field[3];        // magnetic field, µT, device (accelerometer) axes
    float cali_mag[3];     // the same field as the calibrated magnetometer reports it,
                           // its first two axes exchanged against the accelerometer's

    SteadyDevice(float heading_deg, float pitch_deg, float roll_deg) {
        constexpr double kDegree = 3.14159265358979323846 / 180.0;
        const float e[3] = {static_cast<float>(double{heading_deg} * kDegree),
                            static_cast<float>(double{pitch_deg} * kDegree),
                            static_cast<float>(double{roll_deg} * kDegree)};
        init_dcm(e, q);
        const double q0 = q[0], q1 = q[1], q2 = q[2], q3 = q[3];
        // Rows of the earth-to-device rotation: columns 0 (north) and 2 (up).
        const double north[3] = {q0 * q0 + q1 * q1 - q2 * q2 - q3 * q3, 2 * (q1 * q2 - q0 * q3),
                                 2 * (q1 * q3 + q0 * q2)};
        const double up[3] = {2 * (q1 * q3 - q0 * q2), 2 * (q2 * q3 + q0 * q1), q0 * q0 - q1 * q1 - q2 * q2 + q3 * q3};
        for (int i = 0; i < 3; ++i) {
            gravity_dir[i] = static_cast<float>(up[i]);
            acc[i] = static_cast<float>(9.8 * up[i]);
            field[i] = static_cast<float>(north[i] * (45.0 * 0.5) + up[i] * (-45.0 * 0.8660254037844386));
        }
        cali_mag[0] = field[1];
        cali_mag[1] = field[0];
        cali_mag[2] = field[2];
    }
};

}  // namespace fusiontest

#endif
