// Calibrated output: the field the host sees is the calibrated sample through a
// per-axis ten-sample trimmed mean (the two lowest and two highest dropped) and then a
// first-order low-pass, which together keep single spikes and sensor noise out of a
// compass needle. The rings start as zeros, so the output ramps up over the first
// samples after load; nothing resets the filters afterwards.
//
// A NaN sample is not screened here: a lone one is usually dropped by the trimmed
// mean, but one that reaches the low-pass memory keeps the delivered field NaN until
// the library is reloaded (the level and the offset are unaffected, since the fit never
// holds a NaN radius). We keep the filters' arithmetic the same for every input rather
// than invent a recovery rule; a HAL whose chip can report NaN drops such samples.
#include <cstdint>

#include "calmodule/magcal.h"
#include "magcal/calibration_state.h"
#include "magcal/magcal_internal.h"

namespace quarvel {

TrimmedMeanVector<10, 3> mag_rings;
SeededLowPass<3> mag_low_pass;

}  // namespace quarvel

namespace {

// A compass needle wants a calm field: keep 0.9 of the previous output.
constexpr quarvel::LowPassWeights kOutputLowPass = {0.1f, 0.9f};

}  // namespace

extern "C" {

CALMODULE_API void RCalibrationXYZ(float *v) {
    quarvel::mag_rings.filter(v);
}

CALMODULE_API void get_magnetic_values(float *out) {
    using namespace quarvel;
    float v[3] = {cali_mag_values[0], cali_mag_values[1], cali_mag_values[2]};
    RCalibrationXYZ(v);
    mag_low_pass.filter(v, kOutputLowPass);
    for (int i = 0; i < 3; ++i) out[i] = v[i];
}

}  // extern "C"
