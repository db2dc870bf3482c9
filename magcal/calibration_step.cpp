// `Fusion`, the calibration step: what one scaled sample does to the hard-iron calibration.
//
// How its states move. Collecting: every admitted sample enters the twelve-slot
// buffer. Fitting: the call that fills the buffer hands it to the sphere fit; an
// accepted fit becomes the offset in force and the level follows the number of fits
// held (1, 2, then 3 from the third on). Consumed: the next admitted sample empties
// the buffer and collecting starts over, while the held fits accumulate across
// buffers. Restart: 33 readings beyond the plausible field, a third gross reading,
// or the orientation computation's restart request drop every held fit and the level
// to 0 and go back to collecting; the offset in force survives, so the calibrated
// output stays usable while the level reads 0.
#include <cstdint>
#include <cstring>

#include "calmodule/magcal.h"
#include "magcal/magcal_internal.h"

namespace {

constexpr int32_t kNoiseSentinel = 100;  // set by a gross reading, consumed in the same call
constexpr int32_t kImplausibleRestart = 33;
constexpr int16_t kGrossRestart = 2;  // restart when more than this many gross readings

// Drops every held fit and the buffer; the offset in force stays.
void restart(const quarvel::CalibrationStepState &s, int32_t *level) {
    s.noise_count = 0;
    s.optimal_flag = 0;
    *level = 0;
    std::memset(&s.record, 0, sizeof s.record);
}

}  // namespace

extern "C" {

CALMODULE_API float OptimalOffset[3] = {0.0f, 0.0f, 0.0f};
CALMODULE_API int32_t optimalFlag = 0;
CALMODULE_API int32_t noiseCount = 0;
CALMODULE_API int16_t l_noiseCount = 0;

}  // extern "C"

namespace quarvel {

CalibrationStepState exported_calibration_step() {
    return {Msensor, LatestOffset, OptimalOffset, optimalFlag, noiseCount, l_noiseCount};
}

int32_t calibration_step(const CalibrationStepState &s, const float *mag, float *cali_mag_values,
                         float *cali_offset, int32_t *cali_level, int32_t *new_offset_flag,
                         const int16_t *cali_flag, const int16_t *cali_ret, float *noise_mag_delta) {
    *new_offset_flag = 0;
    if (mag[0] == 0.0f && mag[1] == 0.0f && mag[2] == 0.0f) return -2;

    // The offset as it stood before this call, also in a call that accepts a new one.
    for (int i = 0; i < 3; ++i) {
        if (s.optimal_flag == 1) {
            cali_mag_values[i] = mag[i] - s.optimal_offset[i] - noise_mag_delta[i];
        } else if (s.optimal_flag == 0) {
            cali_mag_values[i] = mag[i] - s.latest_offset[i] - noise_mag_delta[i];
        } else {
            cali_mag_values[i] = 0.0f;
        }
    }

    // The buffer takes the raw sample: the fit estimates the offset itself.
    const int32_t selection = DotsSelection(mag, &s.record, cali_flag);

    if (selection == 4 && DotsNumCheck(&s.record) == 2) {
        float fitted[3] = {0.0f, 0.0f, 0.0f};
        if (CalibrationFunc(&s.record, fitted) == 3) {
            for (int i = 0; i < 3; ++i) {
                noise_mag_delta[i] = 0.0f;
                cali_offset[i] = fitted[i];
                s.latest_offset[i] = fitted[i];
            }
        }
        // The level follows the fits held, whether or not this fit was kept.
        const int32_t fits = s.record.fitCount;
        if (fits == 1) {
            *cali_level = 1;
        } else if (fits == 2) {
            *cali_level = 2;
            *new_offset_flag = 1;
        } else if (fits >= 3) {
            *cali_level = 3;
            *new_offset_flag = 1;
        }
        if (fits > 4) s.optimal_flag = 0;
        return 1;
    }

    if (selection == -10) {
        empty_dots(&s.record);
        // Bounded by the restart at 33; the guard only matters if an outside caller
        // parked the exported counter at its maximum.
        if (s.noise_count < INT32_MAX) ++s.noise_count;
    } else if (selection == -13) {
        s.noise_count = kNoiseSentinel;
    }

    // Supervision; each test sees what the ones before it did.
    if (s.noise_count == kNoiseSentinel) {
        s.noise_count = 0;
        if (s.l_noise_count < INT16_MAX) s.l_noise_count = static_cast<int16_t>(s.l_noise_count + 1);
    }
    if (s.l_noise_count > kGrossRestart) {
        s.l_noise_count = 0;
        restart(s, cali_level);
    }
    if (s.noise_count >= kImplausibleRestart && s.noise_count < kNoiseSentinel) restart(s, cali_level);
    if (*cali_ret == 1) restart(s, cali_level);
    return -3;
}

}  // namespace quarvel

extern "C" CALMODULE_API int32_t Fusion(const float *mag, float *cali_mag_values,
                                        float *cali_offset, int32_t *cali_level,
                                        int32_t *new_offset_flag, const int16_t *cali_flag,
                                        const int16_t *cali_ret, float *noise_mag_delta) {
    return quarvel::calibration_step(quarvel::exported_calibration_step(), mag, cali_mag_values,
                                     cali_offset, cali_level, new_offset_flag, cali_flag, cali_ret,
                                     noise_mag_delta);
}
