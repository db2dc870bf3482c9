// Heading and tilt from averaged magnetic and acceleration histories, and the
// mounting remaps that bring a chip's axes onto the device's.
#include <cmath>
#include <cstdint>

#include "aoc/aoc_internal.h"

namespace {

// This family's pi is the float 3.1415927 (bits 0x40490FDB); degrees are formed in
// single precision as radians x 180, then / pi.
constexpr float kPi = 3.1415927f;
constexpr float kHalfTurnDegrees = 180.0f;
constexpr float kFullTurnDegrees = 360.0f;

float degrees(float radians) { return radians * kHalfTurnDegrees / kPi; }

}  // namespace

extern "C" {

CALMODULE_API int16_t AKFS_Direction(int16_t nh, const akfs_vec *hvec, int16_t hn, int16_t na,
                                     const akfs_vec *avec, int16_t an, float *azimuth,
                                     float *pitch, float *roll) {
    if (nh <= 0 || na <= 0 || hn <= 0 || an <= 0) return 0;
    if (nh < hn || na < an) return 0;

    akfs_vec h;
    akfs_vec a;
    if (AKFS_VbAve(nh, hvec, hn, &h) != 1) return 0;
    if (AKFS_VbAve(na, avec, an, &a) != 1) return 0;

    const float g = sqrtf(a.y * a.y + a.x * a.x + a.z * a.z);
    // No gravity, no tilt. A non-number g is not "below" and carries on into the
    // outputs as non-numbers; nothing else is written.
    if (g < quarvel::kAkfsEpsilon) return 0;

    const float theta = asinf(-a.y / g);
    const float phi = asinf(a.x / g);
    const float sin_theta = sinf(theta);
    const float cos_theta = cosf(theta);
    const float sin_phi = sinf(phi);
    const float cos_phi = cosf(phi);

    const float y = h.z * sin_phi - h.x * cos_phi;
    const float x = cos_theta * h.y + (h.x * sin_theta) * sin_phi + (h.z * sin_theta) * cos_phi;
    const float psi = atan2f(y, x);

    float heading = degrees(psi);
    // A negative zero is not below 0 and is written as it is.
    if (heading < 0.0f) heading += kFullTurnDegrees;
    *azimuth = heading;
    *pitch = degrees(theta);
    *roll = degrees(phi);
    return 1;
}

CALMODULE_API int16_t AKFS_Rotate(int layout, akfs_vec *v) {
    const float x = v->x;
    const float y = v->y;
    const float z = v->z;
    switch (layout) {
    case 1: *v = {x, y, z}; break;
    case 2: *v = {y, -x, z}; break;
    case 3: *v = {-x, -y, z}; break;
    case 4: *v = {-y, x, z}; break;
    case 5: *v = {-x, y, -z}; break;
    case 6: *v = {y, x, -z}; break;
    case 7: *v = {x, -y, -z}; break;
    case 8: *v = {-y, -x, -z}; break;
    default: return 0;
    }
    return 1;
}

CALMODULE_API int16_t AKFS_RotateMat(const int16_t matrix[9], akfs_vec *v) {
    const akfs_vec in = *v;
    float m[9];
    for (int i = 0; i < 9; ++i) m[i] = static_cast<float>(matrix[i]);
    // Each row summed y term first, then x, then z; every product rounded to float.
    akfs_vec out;
    float *const rows[3] = {&out.x, &out.y, &out.z};
    for (int r = 0; r < 3; ++r) {
        float s = m[3 * r + 1] * in.y;
        s += m[3 * r] * in.x;
        s += m[3 * r + 2] * in.z;
        *rows[r] = s;
    }
    *v = out;
    return 1;
}

}  // extern "C"
