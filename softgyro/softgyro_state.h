// State of the soft gyroscope that the library keeps to itself. Declared here so the
// module's own tests can look at it or seed it; nothing outside this folder writes it.
#ifndef CALMODULE_SOFTGYRO_STATE_H
#define CALMODULE_SOFTGYRO_STATE_H

#include <cstdint>

#include "filters/low_pass.h"
#include "filters/trimmed_mean_vector.h"
#include "orientation/compass.h"
#include "orientation/tilt.h"

namespace quarvel {

// Horizontal field smoothing of the soft-gyro heading, x and y channels.
extern TrimmedMeanVector<10, 2> softgy_rings;

// Low-pass filtered changes of azimuth, pitch and roll (degrees), in this order,
// seeded by the first accepted change.
extern SeededLowPass<3> rota_filter;

// softgy_GetOrientationAngles, inline in the soft gyroscope's step: heading, pitch
// and roll (radians) from the field and a unit gravity vector.
inline void soft_gyro_angles(const float mag[3], const float acc[3], float angles[3]) {
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

#endif
