// Calibration results and the shared calibration flags.
//
// The driver owns the results (calibrated field, offset, level); the orientation
// computation writes the flags and the disturbance correction; `Fusion` reads them.
// Only cali_flag and cali_ret are exported; the rest stay inside the module.
#ifndef CALMODULE_MAGCAL_CALIBRATION_STATE_H
#define CALMODULE_MAGCAL_CALIBRATION_STATE_H

#include <cstdint>

#include "calmodule/magcal.h"

namespace quarvel {

extern float cali_mag_values[3];  // latest calibrated field, µT
extern float cali_offset[3];      // current hard-iron offset, µT
extern int32_t cali_level;        // accuracy level 0..3
extern float noise_mag_delta[3];  // half of a field jump seen while still, µT

// The largest field component, µT, the module takes as a reading. No chip comes near
// it (they saturate at a few thousand µT). Beyond it the sums that follow a reading
// (six-sample means of the calibrated field, half field jumps subtracted from it)
// could leave the float range and stay infinite or NaN in the filters for good.
constexpr float kGlitchField = 0x1p120f;

// False for a component that is not a number, infinite or beyond kGlitchField.
inline bool plausible_field(float v) { return v <= kGlitchField && v >= -kGlitchField; }

}  // namespace quarvel

#endif
