// Heading, pitch and roll in radians from a magnetometer vector and a unit gravity
// vector, both in the device's own axes.
#include "calmodule/orientation.h"
#include "orientation/compass.h"
#include "orientation/orientation_internal.h"

namespace quarvel {

SeededLowPass<2> ori_lp;

}  // namespace quarvel

extern "C" CALMODULE_API void GetOrientationAngles(float mag[3], const float g[3], float out[3]) {
    // 1. Smooth the field in place: the caller keeps the smoothed vector.
    CalibrationXYZ(mag);

    // 2. Tilt angles for the compensation.
    float p = 0.0f;
    float r = 0.0f;
    GetPitch(g, &p);
    GetRoll(g, &r);

    // 3. Horizontal field.
    float horizontal[2];
    quarvel::horizontal_field(mag, p, r, horizontal);

    // 4.-5. Trimmed mean, then the 0.8/0.2 low-pass.
    CalibrationXY(horizontal);
    quarvel::ori_lp.filter(horizontal, quarvel::kHeadingSmoothing);

    // 6.-8. Heading of the low-passed pair; reported pitch and roll.
    out[0] = quarvel::orientation_heading_radians(horizontal[0], horizontal[1]);
    quarvel::reported_tilt(g, p, r, &out[1], &out[2]);
}
