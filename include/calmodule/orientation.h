// Orientation: azimuth, pitch and roll from accelerometer and magnetometer vectors,
// tilt and heading helpers, and the eight-sample trimmed-mean filters.
#ifndef CALMODULE_ORIENTATION_H
#define CALMODULE_ORIENTATION_H

#include <stdint.h>

#include "calmodule/api.h"

CALMODULE_EXTERN_C_BEGIN

// ---- Tilt helpers (radians) -------------------------------------------------------
// g is a unit gravity vector x, y, z; each writes one float through `out`.

// -asinf(g[0]), in [-pi/2, pi/2]; NaN for |g[0]| > 1.
CALMODULE_API void GetPitch(const float g[3], float *out);
// atan2f(g[1], g[2]), 0 when both are 0; in [-pi, pi].
CALMODULE_API void GetRoll(const float g[3], float *out);
// -atan2f(g[1], g[2]), 0 when both are 0.
CALMODULE_API void GetPitchAngle(const float g[3], float *out);
// asinf(g[0]).
CALMODULE_API void GetRollAngle(const float g[3], float *out);
// Direction of (x, y) from +x towards +y, in [0, 2 pi).
CALMODULE_API void PitchAngle(float x, float y, float *out);
// -atan(y / sqrt(x^2 + z^2)), in [-pi/2, pi/2].
CALMODULE_API void RollAngle(float x, float y, float z, float *out);

// Second names of the same four functions, for the soft gyroscope's callers.
CALMODULE_API void softgy_GetPitch(const float g[3], float *out);
CALMODULE_API void softgy_GetRoll(const float g[3], float *out);
CALMODULE_API void softgy_GetPitchAngle(const float g[3], float *out);
CALMODULE_API void softgy_GetRollAngle(const float g[3], float *out);

CALMODULE_EXTERN_C_END

#endif
