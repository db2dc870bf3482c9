// Soft gyroscope: angular change estimated without a gyroscope, by differencing
// successive orientations computed from the accelerometer and the calibrated field.
//
// The tilt helpers it uses are also exported under softgy_ names; they are declared
// with the orientation family (calmodule/orientation.h).
#ifndef CALMODULE_SOFTGYRO_H
#define CALMODULE_SOFTGYRO_H

#include <stdint.h>

#include "calmodule/api.h"

CALMODULE_EXTERN_C_BEGIN

// Rotation estimate held between calls, degrees: x = pitch change, y = roll change,
// z = azimuth change.
CALMODULE_API extern float gyro_values_static[3];
// Snapshot of azimuth, pitch and roll in degrees, refreshed every third computing call.
CALMODULE_API extern float old_rota[3];
// Calls since the last large change, counted up to 10.
CALMODULE_API extern int16_t lock_temp;
// Computing calls since the last snapshot: 1, 2, then 0 when it is taken.
CALMODULE_API extern int16_t or_flag;
// Cleared by every computing call; nothing else in the library touches it.
CALMODULE_API extern int16_t game_flag;

// One soft-gyroscope step. acc: raw accelerometer vector, m/s². period: must lie in
// 1..1000, else (0, 0, 0) is written and nothing changes. result: the rotation
// estimate (pitch, roll, azimuth change) in degrees; positive when the angle decreased
// since the snapshot. Reads the latest calibrated magnetic field.
CALMODULE_API void get_soft_gyro_value(const float acc[3], const int32_t *period, float result[3]);

// Heading, pitch and roll in radians from a magnetic field (µT) and a unit gravity
// vector; the heading is tilt-compensated, smoothed, in [0, 2 pi), 0 along +y.
CALMODULE_API void softgy_GetOrientationAngles(const float mag[3], const float acc[3],
                                               float angles[3]);

// Replaces the horizontal field components xy[0], xy[1] (µT) by their ten-sample
// trimmed means (middle six of the last ten), each channel with its own history.
CALMODULE_API void softgy_CalibrationXY(float xy[2]);

CALMODULE_EXTERN_C_END

#endif
