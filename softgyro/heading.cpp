// Orientation for the soft gyroscope: a tilt-compensated heading smoothed over the
// last ten horizontal field samples, and pitch and roll from the gravity vector.
// It keeps its own smoothing history, apart from the orientation family's filters.
#include <cmath>

#include "calmodule/orientation.h"
#include "calmodule/softgyro.h"
#include "magcal/magcal_internal.h"
#include "orientation/heading.h"
#include "softgyro/softgyro_state.h"

namespace quarvel {

TrimmedMeanChannel<10> softgy_ring_x;
TrimmedMeanChannel<10> softgy_ring_y;

}  // namespace quarvel

extern "C" {

CALMODULE_API void softgy_CalibrationXY(float xy[2]) {
    xy[0] = quarvel::softgy_ring_x.push(xy[0]);
    xy[1] = quarvel::softgy_ring_y.push(xy[1]);
}

CALMODULE_API void softgy_GetOrientationAngles(const float mag[3], const float acc[3],
                                               float angles[3]) {
    float p;
    float r;
    GetPitch(acc, &p);
    GetRoll(acc, &r);

    // Project the field onto the horizontal plane, in double from the float inputs.
    const double mx = static_cast<double>(mag[0]);
    const double my = static_cast<double>(mag[1]);
    const double mz = static_cast<double>(mag[2]);
    const double sin_p = std::sin(static_cast<double>(p));
    const double cos_p = std::cos(static_cast<double>(p));
    const double sin_r = std::sin(static_cast<double>(r));
    const double cos_r = std::cos(static_cast<double>(r));
    // Fields near the float limit can project beyond it: infinity then, as the
    // hardware rounds, rather than an undefined conversion.
    float h[2];
    h[0] = quarvel::narrow_to_float(mx * cos_p + my * sin_r * sin_p + mz * cos_r * sin_p);
    h[1] = quarvel::narrow_to_float(my * cos_r - mz * sin_r);

    softgy_CalibrationXY(h);

    float pitch;
    float roll;
    GetPitchAngle(acc, &pitch);
    GetRollAngle(acc, &roll);
    angles[0] = quarvel::orientation_heading_radians(h[0], h[1]);
    angles[1] = pitch;
    angles[2] = roll;
}

}  // extern "C"
