// Samples of a device turned through many attitudes in a uniform field around a
// hard-iron offset: the raw material of every calibration test.
#ifndef CALMODULE_TESTS_MAGCAL_SPHERE_SAMPLES_H
#define CALMODULE_TESTS_MAGCAL_SPHERE_SAMPLES_H

#include <cmath>
#include <random>

namespace magcal_test {

struct Vec3 {
    float x, y, z;
};

// Twelve points on the sphere (centre, radius), on a spiral over twelve latitudes so
// that they lie on no single circle; for radii of 40 µT and more they differ pairwise
// by more than 1 µT on every axis and so all pass the spread test.
inline void twelve_on_sphere(const Vec3 &centre, float radius, float out[12][3]) {
    const double cx = centre.x, cy = centre.y, cz = centre.z, r = radius;
    for (int i = 0; i < 12; ++i) {
        const double phi = -1.0 + i * 0.17;
        const double theta = 0.37 + i * 2.4;
        out[i][0] = static_cast<float>(cx + r * std::cos(phi) * std::cos(theta));
        out[i][1] = static_cast<float>(cy + r * std::cos(phi) * std::sin(theta));
        out[i][2] = static_cast<float>(cz + r * std::sin(phi));
    }
}

// A field of `strength` µT seen from a random attitude, plus the offset, plus noise.
class TurningDevice {
public:
    TurningDevice(unsigned seed, Vec3 offset, float strength, float noise)
        : rng_(seed), offset_(offset), strength_(strength), noise_(0.0f, noise) {}

    Vec3 next() {
        std::normal_distribution<float> dir(0.0f, 1.0f);
        float d[3];
        float norm;
        do {
            for (float &c : d) c = dir(rng_);
            norm = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
        } while (norm < 1e-3f);
        return {offset_.x + strength_ * d[0] / norm + noise_(rng_),
                offset_.y + strength_ * d[1] / norm + noise_(rng_),
                offset_.z + strength_ * d[2] / norm + noise_(rng_)};
    }

private:
    std::mt19937 rng_;
    Vec3 offset_;
    float strength_;
    std::normal_distribution<float> noise_;
};

}  // namespace magcal_test

#endif
