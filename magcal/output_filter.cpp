// Calibrated output: the field the host sees is the calibrated sample through a
// per-axis ten-sample trimmed mean (the two lowest and two highest dropped) and then a
// first-order low-pass, which together keep single spikes and sensor noise out of a
// compass needle. The rings start as zeros, so the output ramps up over the first
// samples after load; nothing resets the filters afterwards.
#include <cstdint>

#include "calmodule/magcal.h"
#include "magcal/calibration_state.h"
#include "magcal/magcal_internal.h"

namespace quarvel {

TrimmedMeanChannel<10> mag_ring_x, mag_ring_y, mag_ring_z;
int32_t mag_lpf_seeded = 0;
float mag_lpf_prev[3] = {0.0f, 0.0f, 0.0f};

}  // namespace quarvel

namespace {

constexpr float kNewWeight = 0.1f;
constexpr float kPrevWeight = 0.9f;

}  // namespace

extern "C" {

CALMODULE_API void RCalibrationXYZ(float *v) {
    v[0] = quarvel::mag_ring_x.push(v[0]);
    v[1] = quarvel::mag_ring_y.push(v[1]);
    v[2] = quarvel::mag_ring_z.push(v[2]);
}

CALMODULE_API void get_magnetic_values(float *out) {
    using namespace quarvel;
    float v[3] = {cali_mag_values[0], cali_mag_values[1], cali_mag_values[2]};
    RCalibrationXYZ(v);
    if (mag_lpf_seeded == 0) {
        for (int i = 0; i < 3; ++i) mag_lpf_prev[i] = v[i];
        mag_lpf_seeded = 1;
    } else {
        for (int i = 0; i < 3; ++i) {
            // Two rounded products, then the sum: no fused multiply-add.
            const float fresh = v[i] * kNewWeight;
            const float kept = mag_lpf_prev[i] * kPrevWeight;
            v[i] = fresh + kept;
            mag_lpf_prev[i] = v[i];
        }
    }
    for (int i = 0; i < 3; ++i) out[i] = v[i];
}

}  // extern "C"
