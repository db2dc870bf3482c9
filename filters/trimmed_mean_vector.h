// A vector smoothed axis by axis: one trimmed-mean channel per component, always
// pushed together, so the channels share one write position.
#ifndef CALMODULE_FILTERS_TRIMMED_MEAN_VECTOR_H
#define CALMODULE_FILTERS_TRIMMED_MEAN_VECTOR_H

#include "filters/trimmed_mean.h"

namespace quarvel {

template <int N, int Axes>
struct TrimmedMeanVector {
    TrimmedMeanChannel<N> axis[Axes];
    int16_t pos = 0;  // ring slot of the next write

    // Pushes v and overwrites it with the smoothed vector.
    void filter(float *v) {
        const int slot = pos;
        pos = static_cast<int16_t>(slot + 1 >= N ? 0 : slot + 1);
        for (int i = 0; i < Axes; ++i) v[i] = axis[i].push(slot, v[i]);
    }
};

}  // namespace quarvel

#endif
