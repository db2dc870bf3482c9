// The one simulated phone of the tests: a rigid device at a known attitude in the
// earth's field, what its accelerometer and magnetometer read, and samples on a sphere
// about a hard-iron offset. Axes are the Android device axes.
#ifndef CALMODULE_TESTS_DEVICE_H
#define CALMODULE_TESTS_DEVICE_H

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>

namespace testsupport {

inline uint32_t bits(float f) {
    uint32_t b;
    std::memcpy(&b, &f, sizeof b);
    return b;
}
// got[0..n) against want bit for bit (so -0 differs from 0); printed as hex floats.
inline void expect_bits(const float *got, std::initializer_list<float> want) {
    for (size_t i = 0; i < want.size(); ++i) {
        EXPECT_EQ(bits(got[i]), bits(want.begin()[i])) << i << ": " << std::hexfloat << got[i] << " vs " << want.begin()[i];
    }
}

struct Device {
    double axis[3][3];  // the device's x, y, z axes in the world's east, north, up

    // Top edge pointing `heading` degrees clockwise from north, then the right edge
    // raised by `right_up` degrees, then the top edge by `top_up`.
    static Device facing(double heading, double top_up = 0.0, double right_up = 0.0) {
        const double k = 3.14159265358979323846 / 180.0, h = heading * k;
        Device d{{{std::cos(h), -std::sin(h), 0.0}, {std::sin(h), std::cos(h), 0.0}, {0, 0, 1}}};
        const auto turn = [](double *a, double *b, double angle) {  // a towards b
            for (int i = 0; i < 3; ++i) {
                const double x = std::cos(angle) * a[i] + std::sin(angle) * b[i];
                b[i] = -std::sin(angle) * a[i] + std::cos(angle) * b[i];
                a[i] = x;
            }
        };
        turn(d.axis[0], d.axis[2], right_up * k);
        turn(d.axis[1], d.axis[2], top_up * k);
        return d;
    }
    // At rest the accelerometer reads g upwards, m/s².
    void acc(float out[3], double g = 9.8) const {
        for (int a = 0; a < 3; ++a) out[a] = static_cast<float>(g * axis[a][2]);
    }
    // A field of `north` µT horizontally and `down` µT downwards.
    void field(float out[3], double north = 20.0, double down = 40.0) const {
        for (int a = 0; a < 3; ++a) out[a] = static_cast<float>(north * axis[a][1] - down * axis[a][2]);
    }
};

// Twelve points on a sphere, on a spiral over twelve latitudes so that they lie on no
// single circle; for radii of 40 µT and more they pass the spread test pairwise.
inline void twelve_on_sphere(const float centre[3], float radius, float out[12][3]) {
    const double c[3] = {centre[0], centre[1], centre[2]}, r = radius;
    for (int i = 0; i < 12; ++i) {
        const double phi = -1.0 + i * 0.17, theta = 0.37 + i * 2.4;
        out[i][0] = static_cast<float>(c[0] + r * std::cos(phi) * std::cos(theta));
        out[i][1] = static_cast<float>(c[1] + r * std::cos(phi) * std::sin(theta));
        out[i][2] = static_cast<float>(c[2] + r * std::sin(phi));
    }
}

}  // namespace testsupport

#endif
