// Spike removal on the estimator's inputs: a moving trimmed mean over the last ten
// samples of each component (sort, drop the two smallest and the two largest, average
// the middle six). Zero at load, so the output ramps up over the first eight samples.
#include "fusion/rv_state.h"

namespace quarvel {

TrimmedMeanVector<10, 3> rv_acc_smoothing;
TrimmedMeanVector<10, 3> rv_mag_smoothing;

}  // namespace quarvel

extern "C" {

CALMODULE_API void acc_calibration_func(float v[3]) { quarvel::rv_acc_smoothing.filter(v); }

CALMODULE_API void mag_calibration_func(float v[3]) { quarvel::rv_mag_smoothing.filter(v); }

}  // extern "C"
