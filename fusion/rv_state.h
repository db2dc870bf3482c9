// Hidden state of the rotation-vector estimator, for the module's own files and for
// tests that look inside. The exported part (update_Q, m_rvector, ...) is declared in
// calmodule/fusion.h.
#ifndef CALMODULE_FUSION_RV_STATE_H
#define CALMODULE_FUSION_RV_STATE_H

#include <cstdint>

#include "calmodule/fusion.h"
#include "filters/trimmed_mean.h"

namespace quarvel {

// Ten-sample trimmed mean of a three-axis vector, one channel per axis.
struct VectorTrimmedMean {
    TrimmedMeanChannel<10> axis[3];

    // Pushes v and overwrites it with the filtered vector.
    void filter(float v[3]) {
        for (int i = 0; i < 3; ++i) v[i] = axis[i].push(v[i]);
    }
};

// The input smoothing of acc_calibration_func and mag_calibration_func.
extern VectorTrimmedMean rv_acc_smoothing;
extern VectorTrimmedMean rv_mag_smoothing;

// First-order low-pass after the smoothing, seeded by its first sample.
struct RvLowPass {
    int32_t seeded = 0;
    float acc[3] = {0.0f, 0.0f, 0.0f};
    float mag[3] = {0.0f, 0.0f, 0.0f};
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
