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

}  // namespace quarvel

#endif
