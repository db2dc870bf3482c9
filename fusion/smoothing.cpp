// Spike removal on the estimator's inputs: a moving trimmed mean over the last ten
// samples of each component (sort, drop the two smallest and the two largest, average
// the middle six). Zero at load, so the output ramps up over the first eight samples.
//
// The three channels of one filter are always pushed together, so their write
// positions advance in lockstep and behave exactly like one position shared by the
// three rings.
#include "fusion/rv_state.h"

namespace quarvel {

VectorTrimmedMean rv_acc_smoothing;
VectorTrimmedMean rv_mag_smoothing;

}  // namespace quarvel

extern "C" {

CALMODULE_API void acc_calibration_func(float v[3]) { quarvel::rv_acc_smoothing.filter(v); }

CALMODULE_API void mag_calibration_func(float v[3]) { quarvel::rv_mag_smoothing.filter(v); }

}  // extern "C"
