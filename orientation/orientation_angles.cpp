// Heading, pitch and roll in radians from a magnetometer vector and a unit gravity
// vector, both in the device's own axes, with the eight-sample trimmed-mean smoother
// of the horizontal field (CalibrationXY; the field's own, CalibrationXYZ, is in
// field_smoothing.cpp).
#include "calmodule/orientation.h"
#include "filters/trimmed_mean_vector.h"
#include "orientation/compass.h"
#include "orientation/orientation_internal.h"
#include "orientation/same_input_cache.h"
#include "orientation/tilt.h"

namespace quarvel {

SeededLowPass<2> ori_lp;

namespace {

// Mean of the middle four of eight samples, per axis.
TrimmedMeanVector<8, 2> xy_channels;

// Tilt of the unit gravity (radians) and its sines and cosines.
struct GravityTilt {
    float p, r;
    TiltTrig trig;
};
SameInputCache<GravityTilt> last_tilt;

}  // namespace

void orientation_angles(float mag[3], const float g[3], float out[3]) {
    // 1. Smooth the field in place: the caller keeps the smoothed vector.
    smooth_field(mag);
    angles_of_smoothed(mag, g, out);
}

void angles_of_smoothed(const float mag[3], const float g[3], float out[3]) {
    // 2. Tilt angles for the compensation; the same gravity as in the previous call
    //    gives the same tilt again.
    const GravityTilt &t = last_tilt.get(g, [g] {
        const float p = gravity_pitch(g);
        const float r = gravity_roll(g);
        return GravityTilt{p, r, tilt_trig(p, r)};
    });

    // 3. Horizontal field.
    float horizontal[2];
    horizontal_field(mag, t.trig, horizontal);

    // 4.-5. Trimmed mean, then the 0.8/0.2 low-pass.
    xy_channels.filter(horizontal);
    ori_lp.filter(horizontal, kHeadingSmoothing);

    // 6.-8. Heading of the low-passed pair; reported pitch and roll.
    out[0] = orientation_heading_radians(horizontal[0], horizontal[1]);
    reported_tilt(g, t.p, t.r, &out[1], &out[2]);
}

}  // namespace quarvel

extern "C" {

CALMODULE_API void CalibrationXY(float v[2]) { quarvel::xy_channels.filter(v); }

CALMODULE_API void GetOrientationAngles(float mag[3], const float g[3], float out[3]) {
    quarvel::orientation_angles(mag, g, out);
}

}  // extern "C"
