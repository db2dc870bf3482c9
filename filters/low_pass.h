// First-order low-pass seeded by its first sample: the first sample passes through
// and becomes the memory; every later one is blended in as
//   fresh weight * sample + kept weight * memory,
// two products rounded to float and then their sum, never a fused multiply-add. Each
// user picks its weights (the headings, the rotation-vector inputs and the soft
// gyroscope's angle changes keep 0.8; the calibrated field keeps 0.9) and keeps its
// own state, never reset after load.
#ifndef CALMODULE_FILTERS_LOW_PASS_H
#define CALMODULE_FILTERS_LOW_PASS_H

#include <cstdint>

namespace quarvel {

struct LowPassWeights {
    float fresh;  // weight of the new sample
    float kept;   // weight of the memory
};

template <int N>
struct SeededLowPass {
    int32_t seeded = 0;  // 0 until the first sample has seeded the memory
    float memory[N] = {};

    // Filters v in place; the memory follows the output.
    void filter(float *v, LowPassWeights w) {
        if (seeded == 0) {
            for (int i = 0; i < N; ++i) memory[i] = v[i];
            seeded = 1;
            return;
        }
        for (int i = 0; i < N; ++i) {
            const float fresh = v[i] * w.fresh;
            const float kept = memory[i] * w.kept;
            v[i] = memory[i] = fresh + kept;
        }
    }
};

}  // namespace quarvel

#endif
