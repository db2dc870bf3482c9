// Tilt angles in radians from a gravity vector or its components.
//
// The orientation family's pi is 3.1415926 (double); quarter and three-quarter turns
// are the floats nearest to pi/2 and 3 pi/2 derived from it.
#include <cmath>

#include "calmodule/orientation.h"

namespace {
constexpr float kQuarterTurn = 1.5707963f;        // 3.1415926 / 2
constexpr float kThreeQuarterTurn = 4.712389f;     // 3 x 3.1415926 / 2
constexpr double kHalfTurn = 3.1415926;
constexpr double kFullTurn = 6.2831852;            // 2 x 3.1415926
}  // namespace

extern "C" {

// The arcsines do not clamp: callers pass unit vectors built from components already
// clamped to [-1, 1] g, and a component beyond that gives NaN as asinf does.
CALMODULE_API void GetPitch(const float g[3], float *out) { *out = -asinf(g[0]); }

CALMODULE_API void GetRollAngle(const float g[3], float *out) { *out = asinf(g[0]); }

CALMODULE_API void GetRoll(const float g[3], float *out) {
    *out = (g[1] == 0.0f && g[2] == 0.0f) ? 0.0f : atan2f(g[1], g[2]);
}

CALMODULE_API void GetPitchAngle(const float g[3], float *out) {
    *out = (g[1] == 0.0f && g[2] == 0.0f) ? 0.0f : -atan2f(g[1], g[2]);
}

CALMODULE_API void PitchAngle(float x, float y, float *out) {
    if (x == 0.0f) {
        *out = y > 0.0f ? kQuarterTurn : kThreeQuarterTurn;
        return;
    }
    const float q = y / x;
    const double a = std::atan(static_cast<double>(q));
    if (x > 0.0f && y >= 0.0f) {
        *out = static_cast<float>(a);
    } else if (x < 0.0f) {
        *out = static_cast<float>(a + kHalfTurn);
    } else {
        // x > 0 with y < 0; a NaN x or y lands here too and stays NaN through atan.
        *out = static_cast<float>(a + kFullTurn);
    }
}

CALMODULE_API void RollAngle(float x, float y, float z, float *out) {
    const float n = static_cast<float>(std::sqrt(static_cast<double>(z * z + x * x)));
    if (n != 0.0f) {
        *out = -atanf(y / n);
    } else {
        *out = y < 0.0f ? kQuarterTurn : -kQuarterTurn;
    }
}

// The same functions under a second name each: aliases, not copies.
CALMODULE_API void softgy_GetPitch(const float g[3], float *out) __attribute__((alias("GetPitch")));
CALMODULE_API void softgy_GetRoll(const float g[3], float *out) __attribute__((alias("GetRoll")));
CALMODULE_API void softgy_GetPitchAngle(const float g[3], float *out)
    __attribute__((alias("GetPitchAngle")));
CALMODULE_API void softgy_GetRollAngle(const float g[3], float *out)
    __attribute__((alias("GetRollAngle")));

}  // extern "C"
