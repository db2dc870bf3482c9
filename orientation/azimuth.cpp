// Tilt-compensated compass heading on remapped axes, with the eight-sample
// trimmed-mean smoother of its horizontal field.
//
// Each smoother keeps its own rings: CalibrationTwo/Three serve GetAzimuth (and
// CalibrationXY/XYZ serve GetOrientationAngles), and none of them sees the samples
// of another (field_smoothing.cpp says how Three's rings are kept). Despite the names
// they calibrate nothing; they smooth in place.
#include <cmath>

#include "calmodule/orientation.h"
#include "filters/trimmed_mean_vector.h"
#include "orientation/compass.h"
#include "orientation/orientation_internal.h"
#include "orientation/same_input_cache.h"
#include "orientation/tilt.h"

namespace quarvel {

SeededLowPass<2> az_lp;

namespace {

// Mean of the middle four of eight samples, per axis.
TrimmedMeanVector<8, 2> two_channels;

// Tilt of the remapped acceleration (radians) and its sines and cosines.
struct AzimuthTilt {
    float p, r;
    float sin_p, cos_p, sin_r, cos_r;
};
SameInputCache<AzimuthTilt> last_tilt;

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

void azimuth_reference(const float acc[3], float mag[3], float *out) {
    // 2. Smooth the remapped field; the caller's array receives the smoothed vector.
    smooth_remapped_field(mag);
    azimuth_of_smoothed(acc, mag, out);
}

void azimuth_of_smoothed(const float acc[3], const float mag[3], float *out) {
    // 1. Tilt of the remapped accelerometer: p is the direction of (x, z), r the
    //    elevation of y out of the x-z plane.
    //    The same acceleration as in the previous call gives the same tilt again.
    const AzimuthTilt &t = last_tilt.get(acc, [acc] {
        AzimuthTilt fresh;
        fresh.p = pitch_angle(acc[0], acc[2]);
        fresh.r = roll_angle(acc[0], acc[1], acc[2]);
        sincosf(fresh.r, &fresh.sin_r, &fresh.cos_r);
        sincosf(fresh.p, &fresh.sin_p, &fresh.cos_p);
        return fresh;
    });

    // 3.-4. Rotate the field back into the horizontal plane, single precision,
    //       terms in this order.
    float horizontal[2];
    float hx = t.cos_r * mag[0] - (mag[1] * t.sin_r) * t.sin_p;
    hx = hx - (mag[2] * t.cos_p) * t.sin_r;
    horizontal[0] = hx;
    horizontal[1] = mag[1] * t.cos_p - mag[2] * t.sin_p;

    // 5.-6. Trimmed mean, then the 0.8/0.2 low-pass.
    two_channels.filter(horizontal);
    az_lp.filter(horizontal, kHeadingSmoothing);

    // 7. Heading of the low-passed pair.
    azimuth_heading_degrees(horizontal[0], horizontal[1], out);
}

}  // namespace quarvel

extern "C" {

CALMODULE_API void CalibrationTwo(float v[2]) { quarvel::two_channels.filter(v); }

CALMODULE_API void GetAzimuth(const float acc[3], float mag[3], float *out) {
    quarvel::azimuth_reference(acc, mag, out);
}

}  // extern "C"
