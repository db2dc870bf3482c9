// Orientation for the soft gyroscope: a tilt-compensated heading smoothed over the
// last ten horizontal field samples, and pitch and roll from the gravity vector.
// It keeps its own smoothing history, apart from the orientation family's filters.
#include "calmodule/orientation.h"
#include "calmodule/softgyro.h"
#include "orientation/compass.h"
#include "softgyro/softgyro_state.h"

namespace quarvel {

TrimmedMeanVector<10, 2> softgy_rings;

}  // namespace quarvel

extern "C" {

CALMODULE_API void softgy_CalibrationXY(float xy[2]) {
    quarvel::softgy_rings.filter(xy);
}

CALMODULE_API void softgy_GetOrientationAngles(const float mag[3], const float acc[3],
                                               float angles[3]) {
    float p;
    float r;
    GetPitch(acc, &p);
    GetRoll(acc, &r);

    float h[2];
    quarvel::horizontal_field(mag, p, r, h);
    softgy_CalibrationXY(h);

    float pitch;
    float roll;
    quarvel::reported_tilt(acc, p, r, &pitch, &roll);
    angles[0] = quarvel::orientation_heading_radians(h[0], h[1]);
    angles[1] = pitch;
    angles[2] = roll;
}

}  // extern "C"
