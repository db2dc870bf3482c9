// State of the soft gyroscope that the library keeps to itself. Declared here so the
// module's own tests can look at it or seed it; nothing outside this folder writes it.
#ifndef CALMODULE_SOFTGYRO_STATE_H
#define CALMODULE_SOFTGYRO_STATE_H

#include <cstdint>

#include "filters/low_pass.h"
#include "filters/trimmed_mean_vector.h"

namespace quarvel {

// Horizontal field smoothing of the soft-gyro heading, x and y channels.
extern TrimmedMeanVector<10, 2> softgy_rings;

// Low-pass filtered changes of azimuth, pitch and roll (degrees), in this order,
// seeded by the first accepted change.
extern SeededLowPass<3> rota_filter;

// softgy_GetOrientationAngles, called directly by the soft gyroscope's step.
void soft_gyro_angles(const float mag[3], const float acc[3], float angles[3]);

}  // namespace quarvel

#endif
