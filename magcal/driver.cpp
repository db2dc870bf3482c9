// Calibration driver: the entry point for every raw magnetometer sample, and the
// accessors for its results.
//
// A sample is scaled to µT, the stored offset is loaded once (on the first sample
// with a nonzero component), the sample goes through the state machine, and the
// offset is written back whenever the calibration holds two or more fits.
#include <cstdint>

#include "calmodule/magcal.h"
#include "magcal/calibration_state.h"

namespace {

// 0 until the parameter file has been consulted, then 1 for the library's life.
int16_t first_read_done = 0;

}  // namespace

extern "C" {

CALMODULE_API int32_t qv730_run_library(float x, float y, float z) {
    using namespace quarvel;
    int32_t new_offset_flag = 0;
    float stored[3] = {0.0f, 0.0f, 0.0f};

    // The chip's µT per count differ by axis; each factor is one float multiply.
    using calmodule::kChipScale;
    const float s[3] = {x * kChipScale[0], y * kChipScale[1], z * kChipScale[2]};
    // A chip that has not produced a reading yet reports all zeros: not a sample.
    if (s[0] == 0.0f && s[1] == 0.0f && s[2] == 0.0f) return -15;
    // A glitch of the chip or its driver (NaN, infinite, or a count whose scaling
    // leaves the plausible range) is refused the same way: once in, it would stay in
    // the calibrated field, the output low-pass and the estimators that read them
    // until reload. Refused, the filters see the previous calibrated field again.
    if (!plausible_field(s[0]) || !plausible_field(s[1]) || !plausible_field(s[2])) return -15;

    if (first_read_done == 0) {
        // A stored offset beyond any plausible field (a damaged file) would be
        // subtracted from every sample: start from zero as without a file.
        const int32_t read = ReadParameterFromFile(stored);
        const bool stored_ok =
            plausible_field(stored[0]) && plausible_field(stored[1]) && plausible_field(stored[2]);
        if (!stored_ok) stored[0] = stored[1] = stored[2] = 0.0f;
        if (read == 8 && stored_ok) {
            FusionInitDevice(1, stored);
            for (int i = 0; i < 3; ++i) cali_offset[i] = stored[i];
        } else {
            // Start from whatever the reader parsed before it failed (zeros when the
            // file is missing); cali_offset stays as it was until a fit is accepted.
            FusionInitDevice(0, stored);
        }
        first_read_done = static_cast<int16_t>(first_read_done + 1);
    }

    const int32_t result = Fusion(s, cali_mag_values, cali_offset, &cali_level, &new_offset_flag,
                                  &cali_flag, &cali_ret, noise_mag_delta);
    // A failed write is not retried here: the next accepted fit writes again.
    if (result == 1 && new_offset_flag == 1) WriteParameterToFile(cali_offset);
    return 5;
}

CALMODULE_API void get_calilevel_value(int32_t *level) { *level = quarvel::cali_level; }

CALMODULE_API void get_magnetic_offset(float *offset) {
    for (int i = 0; i < 3; ++i) offset[i] = quarvel::cali_offset[i];
}

// Hosts that call these expect them to be present; they have nothing to say.
CALMODULE_API void Disp_VersionMessage(void) {}
CALMODULE_API void Disp_EndMessage(void) __attribute__((alias("Disp_VersionMessage")));

CALMODULE_API void get_algorithm_version(void) { Disp_VersionMessage(); }

}  // extern "C"
