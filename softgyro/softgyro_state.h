// State of the soft gyroscope that the library keeps to itself. Declared here so the
// module's own tests can look at it or seed it; nothing outside this folder writes it.
#ifndef CALMODULE_SOFTGYRO_STATE_H
#define CALMODULE_SOFTGYRO_STATE_H

#include <cstdint>

#include "filters/trimmed_mean.h"

namespace quarvel {

// Horizontal field smoothing of the soft-gyro heading, x and y channels.
extern TrimmedMeanChannel<10> softgy_ring_x;
extern TrimmedMeanChannel<10> softgy_ring_y;

// Low-pass filtered changes of azimuth, pitch and roll (degrees), in this order,
// and whether the filter has been seeded (0 until the first accepted change).
extern float rota_filter[3];
extern int32_t rota_filter_flag;

}  // namespace quarvel

#endif
