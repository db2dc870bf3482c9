// Orientation for the soft gyroscope: a tilt-compensated heading smoothed over the
// last ten horizontal field samples, and pitch and roll from the gravity vector.
// It keeps its own smoothing history, apart from the orientation family's filters.
#include "calmodule/orientation.h"
#include "calmodule/softgyro.h"
#include "softgyro/softgyro_state.h"

namespace quarvel {

TrimmedMeanVector<10, 2> softgy_rings;

}  // namespace quarvel

extern "C" {

CALMODULE_API void softgy_CalibrationXY(float xy[2]) { quarvel::softgy_rings.filter(xy); }

CALMODULE_API void softgy_GetOrientationAngles(const float mag[3], const float acc[3],
                                               float angles[3]) {
    quarvel::soft_gyro_angles(mag, acc, angles);
}

}  // extern "C"
