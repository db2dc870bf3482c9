// A vector smoothed axis by axis: one trimmed-mean channel per component, always
// pushed together, so the channels' write positions advance in lockstep.
#ifndef CALMODULE_FILTERS_TRIMMED_MEAN_VECTOR_H
#define CALMODULE_FILTERS_TRIMMED_MEAN_VECTOR_H

#include "filters/trimmed_mean.h"

namespace quarvel {

template <int N, int Axes>
struct TrimmedMeanVector {
    TrimmedMeanChannel<N> axis[Axes];

    // Pushes v and overwrites it with the smoothed vector.
    void filter(float *v) {
        for (int i = 0; i < Axes; ++i) v[i] = axis[i].push(v[i]);
    }
};

}  // namespace quarvel

#endif
