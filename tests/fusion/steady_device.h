// Helpers shared by the rotation-vector tests: bit views of floats, and what the
// sensors of a device lying still at a known attitude report.
#ifndef CALMODULE_TESTS_FUSION_STEADY_DEVICE_H
#define CALMODULE_TESTS_FUSION_STEADY_DEVICE_H

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "calmodule/fusion.h"

namespace fusiontest {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

inline uint32_t bits(float f) {
    uint32_t b;
    std::memcpy(&b, &f, sizeof b);
    return b;
}

// Checks three floats bit for bit against the expected values (so -0 differs from 0).
inline bool same_bits(const float *got, const float *expected, int n) {
    for (int i = 0; i < n; ++i) {
        if (bits(got[i]) != bits(expected[i])) return false;
    }
    return true;
}

// The earth field, uT: 45 uT inclined 60 degrees downwards, horizontal part along x.
constexpr float kEarthField[3] = {22.5f, 0.0f, -38.97114317f};

// A device lying still at heading, pitch and roll given in degrees, in that field.
struct SteadyDevice {
    float q[4];            // device-to-earth attitude, scalar first
    float gravity_dir[3];  // unit at-rest accelerometer direction, device axes
    float acc[3];          // accelerometer reading, m/s^2 (1 g = 9.8)
    float field[3];        // magnetic field, uT, device (accelerometer) axes
    float cali_mag[3];     // the same field as the calibrated magnetometer reports it:
                           // its first two axes are exchanged against the accelerometer's

    SteadyDevice(float heading_deg, float pitch_deg, float roll_deg) {
        constexpr double kDegree = 3.14159265358979323846 / 180.0;
        const float e[3] = {static_cast<float>(static_cast<double>(heading_deg) * kDegree),
                            static_cast<float>(static_cast<double>(pitch_deg) * kDegree),
                            static_cast<float>(static_cast<double>(roll_deg) * kDegree)};
        init_dcm(e, q);
        const double q0 = q[0], q1 = q[1], q2 = q[2], q3 = q[3];
        // Earth-to-device rotation, in double.
        const double m[3][3] = {
            {q0 * q0 + q1 * q1 - q2 * q2 - q3 * q3, 2 * (q1 * q2 + q0 * q3), 2 * (q1 * q3 - q0 * q2)},
            {2 * (q1 * q2 - q0 * q3), q0 * q0 - q1 * q1 + q2 * q2 - q3 * q3, 2 * (q2 * q3 + q0 * q1)},
            {2 * (q1 * q3 + q0 * q2), 2 * (q2 * q3 - q0 * q1), q0 * q0 - q1 * q1 - q2 * q2 + q3 * q3},
        };
        for (int i = 0; i < 3; ++i) {
            gravity_dir[i] = static_cast<float>(m[i][2]);
            acc[i] = static_cast<float>(9.8 * m[i][2]);
            field[i] = static_cast<float>(m[i][0] * (45.0 * 0.5) + m[i][2] * (-45.0 * 0.8660254037844386));
        }
        cali_mag[0] = field[1];
        cali_mag[1] = field[0];
        cali_mag[2] = field[2];
    }
};

inline double quaternion_distance(const float a[4], const float b[4]) {
    double d = 0.0;
    for (int i = 0; i < 4; ++i) {
        const double diff = static_cast<double>(a[i]) - static_cast<double>(b[i]);
        d += diff * diff;
    }
    return std::sqrt(d);
}

}  // namespace fusiontest

#endif
