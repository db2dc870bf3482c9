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
#include "calmodule/magcal.h"
#include "magcal/magcal_internal.h"

namespace {

constexpr int32_t kNoiseSentinel = 100;  // set by a gross reading, consumed in the same call
constexpr int32_t kImplausibleRestart = 33;
constexpr int16_t kGrossRestart = 2;  // restart when more than this many gross readings

void restart(int32_t *level) {
    noiseCount = 0;
    optimalFlag = 0;
    *level = 0;
    FusionInit();
}

}  // namespace

extern "C" {

CALMODULE_API float OptimalOffset[3] = {0.0f, 0.0f, 0.0f};
CALMODULE_API int32_t optimalFlag = 0;
CALMODULE_API int32_t noiseCount = 0;
CALMODULE_API int16_t l_noiseCount = 0;

CALMODULE_API int32_t Fusion(const float *mag, float *cali_mag_values, float *cali_offset,
                             int32_t *cali_level, int32_t *new_offset_flag, const int16_t *cali_flag,
                             const int16_t *cali_ret, float *noise_mag_delta) {
    *new_offset_flag = 0;
    if (mag[0] == 0.0f && mag[1] == 0.0f && mag[2] == 0.0f) return -2;

    // The offset as it stood before this call, also in a call that accepts a new one.
    for (int i = 0; i < 3; ++i) {
        if (optimalFlag == 1) {
            cali_mag_values[i] = mag[i] - OptimalOffset[i] - noise_mag_delta[i];
        } else if (optimalFlag == 0) {
            cali_mag_values[i] = mag[i] - LatestOffset[i] - noise_mag_delta[i];
        } else {
            cali_mag_values[i] = 0.0f;
        }
    }

    // The buffer takes the raw sample: the fit estimates the offset itself.
    const int32_t selection = DotsSelection(mag, &Msensor, cali_flag);

    if (selection == 4 && DotsNumCheck(&Msensor) == 2) {
        float fitted[3] = {0.0f, 0.0f, 0.0f};
        if (CalibrationFunc(&Msensor, fitted) == 3) {
            for (int i = 0; i < 3; ++i) {
                noise_mag_delta[i] = 0.0f;
                cali_offset[i] = fitted[i];
                LatestOffset[i] = fitted[i];
            }
        }
        // The level follows the fits held, whether or not this fit was kept.
        const int32_t fits = Msensor.fitCount;
        if (fits == 1) {
            *cali_level = 1;
        } else if (fits == 2) {
            *cali_level = 2;
            *new_offset_flag = 1;
        } else if (fits >= 3) {
            *cali_level = 3;
            *new_offset_flag = 1;
        }
        if (fits > 4) optimalFlag = 0;
        return 1;
    }

    if (selection == -10) {
        quarvel::empty_dots(&Msensor);
        // Bounded by the restart at 33; the guard only matters if an outside caller
        // parked the exported counter at its maximum.
        if (noiseCount < INT32_MAX) ++noiseCount;
    } else if (selection == -13) {
        noiseCount = kNoiseSentinel;
    }

    // Supervision; each test sees what the ones before it did.
    if (noiseCount == kNoiseSentinel) {
        noiseCount = 0;
        if (l_noiseCount < INT16_MAX) l_noiseCount = static_cast<int16_t>(l_noiseCount + 1);
    }
    if (l_noiseCount > kGrossRestart) {
        l_noiseCount = 0;
        restart(cali_level);
    }
    if (noiseCount >= kImplausibleRestart && noiseCount < kNoiseSentinel) restart(cali_level);
    if (*cali_ret == 1) restart(cali_level);
    return -3;
}

}  // extern "C"
