// Tilt-compensated compass heading on remapped axes, and the eight-sample
// trimmed-mean smoothers of the orientation family.
//
// Each smoother keeps its own rings: CalibrationTwo/Three serve GetAzimuth,
// CalibrationXY/XYZ serve GetOrientationAngles, and none of them sees the samples
// of another. Despite the names they calibrate nothing; they smooth in place.
#include <cmath>

#include "calmodule/orientation.h"
#include "filters/trimmed_mean_vector.h"
#include "orientation/compass.h"
#include "orientation/orientation_internal.h"

namespace quarvel {

SeededLowPass<2> az_lp;

namespace {

// Mean of the middle four of eight samples, per axis.
TrimmedMeanVector<8, 2> two_channels;
TrimmedMeanVector<8, 3> three_channels;
TrimmedMeanVector<8, 2> xy_channels;
TrimmedMeanVector<8, 3> xyz_channels;

}  // namespace

void azimuth_heading_degrees(float X, float Y, float *out) {
    // The ratio is a float division; atan, the scaling and the offsets are double.
    // With a NaN in X nothing matches and *out is left alone; a NaN Y with X != 0
    // gives NaN. Both are simply what the comparisons below do.
    if (X == 0.0f) {
        if (Y < 0.0f) {
            *out = 90.0f;
        } else if (Y > 0.0f) {
            *out = 270.0f;
        }
    } else if (X < 0.0f) {
        *out = static_cast<float>(180.0 - std::atan(static_cast<double>(Y / X)) * kDegreesPerRadian);
    } else if (X > 0.0f) {
        if (Y < 0.0f) {
            const float turn = static_cast<float>(std::atan(static_cast<double>(Y / X)) * kDegreesPerRadian);
            *out = -turn;
        } else if (Y > 0.0f) {
            *out = static_cast<float>(360.0 - std::atan(static_cast<double>(Y / X)) * kDegreesPerRadian);
        }
        // X > 0, Y = 0 is due magnetic north: the caller's 0 already says so.
    }
}

}  // namespace quarvel

extern "C" {

CALMODULE_API void CalibrationTwo(float v[2]) { quarvel::two_channels.filter(v); }
CALMODULE_API void CalibrationThree(float v[3]) { quarvel::three_channels.filter(v); }
CALMODULE_API void CalibrationXY(float v[2]) { quarvel::xy_channels.filter(v); }
CALMODULE_API void CalibrationXYZ(float v[3]) { quarvel::xyz_channels.filter(v); }

CALMODULE_API void GetAzimuth(const float acc[3], float mag[3], float *out) {
    // 1. Tilt of the remapped accelerometer: p is the direction of (x, z), r the
    //    elevation of y out of the x-z plane.
    float p = 0.0f;
    float r = 0.0f;
    PitchAngle(acc[0], acc[2], &p);
    RollAngle(acc[0], acc[1], acc[2], &r);

    // 2. Smooth the remapped field; the caller's array receives the smoothed vector.
    CalibrationThree(mag);

    // 3.-4. Rotate the field back into the horizontal plane, single precision,
    //       terms in this order.
    float sin_r, cos_r, sin_p, cos_p;
    sincosf(r, &sin_r, &cos_r);
    sincosf(p, &sin_p, &cos_p);
    float horizontal[2];
    float hx = cos_r * mag[0] - (mag[1] * sin_r) * sin_p;
    hx = hx - (mag[2] * cos_p) * sin_r;
    horizontal[0] = hx;
    horizontal[1] = mag[1] * cos_p - mag[2] * sin_p;

    // 5.-6. Trimmed mean, then the 0.8/0.2 low-pass.
    CalibrationTwo(horizontal);
    quarvel::az_lp.filter(horizontal, quarvel::kHeadingSmoothing);

    // 7. Heading of the low-passed pair.
    quarvel::azimuth_heading_degrees(horizontal[0], horizontal[1], out);
}

}  // extern "C"
