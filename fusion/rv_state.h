// Hidden state of the rotation-vector estimator, for the module's own files and for
// tests that look inside. The exported part (update_Q, m_rvector, ...) is declared in
// calmodule/fusion.h.
#ifndef CALMODULE_FUSION_RV_STATE_H
#define CALMODULE_FUSION_RV_STATE_H

#include <cstdint>

#include "calmodule/fusion.h"
#include "filters/low_pass.h"
#include "filters/trimmed_mean_vector.h"

namespace quarvel {

// The input smoothing of acc_calibration_func and mag_calibration_func: ten-sample
// trimmed means per axis.
extern TrimmedMeanVector<10, 3> rv_acc_smoothing;
extern TrimmedMeanVector<10, 3> rv_mag_smoothing;

// First-order low-pass after the smoothing, one per input, seeded by its first
// sample. Both are always fed together.
struct RvLowPass {
    SeededLowPass<3> acc;
    SeededLowPass<3> mag;
};
extern RvLowPass rv_low_pass;

// Weights of the blend between the previous and the new rotation vector, chosen by
// heading and roll (degrees). False when no blend applies.
struct BlendWeights {
    float w_old;
    float w_new;
};
bool rv_blend_weights(float heading, float roll, BlendWeights *w);

}  // namespace quarvel

#endif
