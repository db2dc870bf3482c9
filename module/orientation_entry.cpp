// Orientation algorithm (type 3): azimuth, pitch and roll in degrees from the latest
// accelerometer and magnetic-field events the host hands it. Both kinds of event
// refresh their cache and recompute; only a magnetic-field event yields an event.
#include <cmath>

#include "calmodule/orientation.h"
#include "module/algorithms.h"

namespace quarvel {
namespace {

// Below this length (2^-52, m/s²) the cached acceleration has no usable direction.
constexpr float kShortestAcceleration = 0x1p-52f;

// Latest vectors of each kind; zero at load, never reset.
float orient_last_acc[3] = {0.0f, 0.0f, 0.0f};
float orient_last_mag[3] = {0.0f, 0.0f, 0.0f};

int orientation_convert(const sensors_event_t *in, sensors_event_t *out) {
    float angles[3] = {0.0f, 0.0f, 0.0f};
    float acc[3] = {0.0f, 0.0f, 0.0f};
    float mag[3] = {0.0f, 0.0f, 0.0f};

    int8_t status = -1;
    if (in->type == CALMODULE_TYPE_MAGNETIC_FIELD) {
        for (int i = 0; i < 3; ++i) orient_last_mag[i] = in->data[i];
        status = in->vector.status;
    } else if (in->type == CALMODULE_TYPE_ACCELEROMETER) {
        for (int i = 0; i < 3; ++i) orient_last_acc[i] = in->data[i];
    }

    // Squares summed y, x, z. A NaN length (NaN in the cache) fails the comparison
    // and skips the update just as a too short one does; an infinite one goes
    // through and yields whatever the IEEE arithmetic gives.
    const float length = sqrtf(orient_last_acc[1] * orient_last_acc[1] +
                               orient_last_acc[0] * orient_last_acc[0] +
                               orient_last_acc[2] * orient_last_acc[2]);
    if (length >= kShortestAcceleration) {
        // The computation works on copies; the caches only change with new events.
        for (int i = 0; i < 3; ++i) {
            acc[i] = orient_last_acc[i];
            mag[i] = orient_last_mag[i];
        }
        get_oritation_values(mag, acc, angles);
        for (int i = 0; i < 3; ++i) out->data[i] = angles[i];
        out->vector.status = status;
    }
    return in->type == CALMODULE_TYPE_MAGNETIC_FIELD ? 0 : -11;
}

}  // namespace

const cal_algo_methods orientation_methods = {orientation_convert, nullptr};

}  // namespace quarvel
