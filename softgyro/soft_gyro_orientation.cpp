// Orientation for the soft gyroscope: a tilt-compensated heading smoothed over the
// last ten horizontal field samples, and pitch and roll from the gravity vector.
// It keeps its own smoothing history, apart from the orientation family's filters.
#include "calmodule/orientation.h"
#include "calmodule/softgyro.h"
#include "orientation/compass.h"
#include "orientation/tilt.h"
#include "softgyro/softgyro_state.h"

namespace quarvel {

TrimmedMeanVector<10, 2> softgy_rings;

void soft_gyro_angles(const float mag[3], const float acc[3], float angles[3]) {
    const float p = gravity_pitch(acc);
    const float r = gravity_roll(acc);

    float h[2];
    horizontal_field(mag, tilt_trig(p, r), h);
    softgy_rings.filter(h);

    float pitch;
    float roll;
    reported_tilt(acc, p, r, &pitch, &roll);
    angles[0] = orientation_heading_radians(h[0], h[1]);
    angles[1] = pitch;
    angles[2] = roll;
}

}  // namespace quarvel

extern "C" {

CALMODULE_API void softgy_CalibrationXY(float xy[2]) { quarvel::softgy_rings.filter(xy); }

CALMODULE_API void softgy_GetOrientationAngles(const float mag[3], const float acc[3],
                                               float angles[3]) {
    quarvel::soft_gyro_angles(mag, acc, angles);
}

}  // extern "C"
