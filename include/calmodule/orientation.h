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

// ---- Eight-sample trimmed-mean smoothers ------------------------------------------
// Each replaces every element of v by the mean of the middle four of its channel's
// last eight inputs (zeros until eight have arrived). Each function keeps its own
// channels; none calibrates anything.
CALMODULE_API void CalibrationTwo(float v[2]);
CALMODULE_API void CalibrationThree(float v[3]);
CALMODULE_API void CalibrationXY(float v[2]);
CALMODULE_API void CalibrationXYZ(float v[3]);

// ---- Headings ---------------------------------------------------------------------
// Compass heading in degrees, 0 to 360, from the remapped accelerometer and field
// vectors (see MagTrsfMatrix, AccTrsfMatrix). mag (µT) is smoothed in place. *out is
// left unchanged when the smoothed horizontal field points along +x or is zero.
CALMODULE_API void GetAzimuth(const float acc[3], float mag[3], float *out);
// Heading (0 to 2 pi), pitch and roll in radians from the field mag (µT, device
// axes, smoothed in place) and the unit gravity vector g.
CALMODULE_API void GetOrientationAngles(float mag[3], const float g[3], float out[3]);

// ---- Orientation computation ------------------------------------------------------
// Azimuth, pitch and roll in degrees into out[0..2] from the field mag (µT) and the
// acceleration acc (m/s²); supervises the field while the device lies still and
// sets cali_flag, cali_ret and the calibration's disturbance correction. mag is
// overwritten with the vector actually used (smoothed, or the held reference).
// All-zero acc or mag: returns without any effect.
CALMODULE_API void get_oritation_values(float *mag, float *acc, float *out);

// State of the orientation computation, readable by outside code.
CALMODULE_API extern float old_acc[3];        // previous acceleration, m/s²
CALMODULE_API extern float old_mag[3];        // field reference, µT (frozen while holding)
CALMODULE_API extern int16_t run_o;           // 1 tracking, 0 holding the last output
CALMODULE_API extern int16_t run_ret;         // consecutive still calls, up to 100
CALMODULE_API extern int16_t noise_mag;       // calls with a 5..40 µT jump
CALMODULE_API extern int16_t noise_mag_flag;  // calls with a 40..1000 µT jump
CALMODULE_API extern int16_t noise_mag_fflag; // calls with a 1000..2000 µT jump
CALMODULE_API extern int16_t noise_flag_t;    // 1 once a jump was seen since the last movement
CALMODULE_API extern float o_values[3];       // last output: azimuth, pitch, roll, degrees
CALMODULE_API extern float m_orientation[3];  // last computed angles before heading correction
CALMODULE_API extern int16_t RunOriAngles;    // 1 while GetOrientationAngles runs inside
// Writable row-major axis remaps for the reference heading: field and gravity.
CALMODULE_API extern int32_t MagTrsfMatrix[9];
CALMODULE_API extern int32_t AccTrsfMatrix[9];

CALMODULE_EXTERN_C_END

#endif
