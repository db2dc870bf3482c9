// Tilt angles in radians from a gravity vector or its components: the arithmetic of
// the exported tilt helpers (tilt.cpp), inline so that the module's own paths, which
// run on every sensor event, pay for the arc functions and nothing around them.
//
// The orientation family's turns, from its pi of 3.1415926, are here too: the compass
// arithmetic (compass.h) uses the same ones.
#ifndef CALMODULE_ORIENTATION_TILT_H
#define CALMODULE_ORIENTATION_TILT_H

#include <cmath>

namespace quarvel {

// Quarter, half, three-quarter and full turns from the family's pi of 3.1415926. The
// float constants are the floats nearest to the derived values (1.5707963, 3.1415925,
// 4.712389). The doubles are the decimal values as written: 3.0 * 3.1415926 / 2.0
// evaluated in double is one ulp above 4.7123889.
namespace turn {
constexpr double kHalf = 3.1415926;
constexpr double kFull = 6.2831852;
constexpr double kQuarter = 1.5707963;
constexpr double kThreeQuarter = 4.7123889;
constexpr float kHalfF = 3.1415926f;
constexpr float kQuarterF = 1.5707963f;
constexpr float kThreeQuarterF = 4.7123889f;
}  // namespace turn

// GetPitch: the arcsine does not clamp. Callers pass unit vectors built from
// components already clamped to [-1, 1] g, and a component beyond that gives NaN as
// asinf does.
inline float gravity_pitch(const float g[3]) { return -asinf(g[0]); }

// GetRoll: 0 when y and z both vanish.
inline float gravity_roll(const float g[3]) {
    return (g[1] == 0.0f && g[2] == 0.0f) ? 0.0f : atan2f(g[1], g[2]);
}

// PitchAngle: the direction of (x, y), 0 to 2 pi.
inline float pitch_angle(float x, float y) {
    if (x == 0.0f) return y > 0.0f ? turn::kQuarterF : turn::kThreeQuarterF;
    const float q = y / x;
    const double a = std::atan(static_cast<double>(q));
    if (x > 0.0f && y >= 0.0f) return static_cast<float>(a);
    if (x < 0.0f) return static_cast<float>(a + turn::kHalf);
    // x > 0 with y < 0; a NaN x or y lands here too and stays NaN through atan.
    return static_cast<float>(a + turn::kFull);
}

// RollAngle: minus the elevation of y out of the x-z plane.
inline float roll_angle(float x, float y, float z) {
    const float n = static_cast<float>(std::sqrt(static_cast<double>(z * z + x * x)));
    if (n != 0.0f) return -atanf(y / n);
    return y < 0.0f ? turn::kQuarterF : -turn::kQuarterF;
}

}  // namespace quarvel

#endif
