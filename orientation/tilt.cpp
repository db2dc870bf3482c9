// The exported tilt helpers, for callers outside the module. The arithmetic lives in
// tilt.h.
#include "orientation/tilt.h"

#include "calmodule/orientation.h"

extern "C" {

CALMODULE_API void GetPitch(const float g[3], float *out) { *out = quarvel::gravity_pitch(g); }
CALMODULE_API void GetRollAngle(const float g[3], float *out) { *out = asinf(g[0]); }
CALMODULE_API void GetRoll(const float g[3], float *out) { *out = quarvel::gravity_roll(g); }
CALMODULE_API void GetPitchAngle(const float g[3], float *out) {
    *out = (g[1] == 0.0f && g[2] == 0.0f) ? 0.0f : -atan2f(g[1], g[2]);
}
CALMODULE_API void PitchAngle(float x, float y, float *out) { *out = quarvel::pitch_angle(x, y); }
CALMODULE_API void RollAngle(float x, float y, float z, float *out) { *out = quarvel::roll_angle(x, y, z); }

// The same functions under a second name each: aliases, not copies.
CALMODULE_API void softgy_GetPitch(const float g[3], float *out) __attribute__((alias("GetPitch")));
CALMODULE_API void softgy_GetRoll(const float g[3], float *out) __attribute__((alias("GetRoll")));
CALMODULE_API void softgy_GetPitchAngle(const float g[3], float *out)
    __attribute__((alias("GetPitchAngle")));
CALMODULE_API void softgy_GetRollAngle(const float g[3], float *out)
    __attribute__((alias("GetRollAngle")));

}  // extern "C"
