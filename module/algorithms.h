// The four algorithms' method tables, one per source file of this folder, gathered
// by the descriptor into the algorithm table.
#ifndef CALMODULE_MODULE_ALGORITHMS_H
#define CALMODULE_MODULE_ALGORITHMS_H

#include "calmodule/module.h"

namespace quarvel {

extern const cal_algo_methods mag_cal_methods;        // type 2: calibrated magnetometer
extern const cal_algo_methods orientation_methods;    // type 3: azimuth, pitch, roll
extern const cal_algo_methods mag_uncal_methods;      // type 14: field plus bias
extern const cal_algo_methods pocket_methods;         // type 65537: covered or not

// Every log record of the module carries this tag.
inline constexpr const char kLogTag[] = "sensor_cal.common";

}  // namespace quarvel

#endif
