// Magnetometer calibration: raw samples in, hard-iron offset, calibrated field and
// accuracy level out, offset kept across restarts in a small text file.
#ifndef CALMODULE_MAGCAL_H
#define CALMODULE_MAGCAL_H

#include <stdint.h>

#include "calmodule/api.h"

CALMODULE_EXTERN_C_BEGIN

// Shared calibration flags, written by the orientation computation.
// cali_flag: 0 stops sample collection (no accelerometer axis above 200/1024 g).
// cali_ret: 1 restarts the calibration on every call while it stays 1.
CALMODULE_API extern int16_t cali_flag;
CALMODULE_API extern int16_t cali_ret;

CALMODULE_EXTERN_C_END

#endif
