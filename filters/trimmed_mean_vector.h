// A vector smoothed axis by axis: one trimmed-mean channel per component, always
// pushed together, so the channels share one write position.
#ifndef CALMODULE_FILTERS_TRIMMED_MEAN_VECTOR_H
#define CALMODULE_FILTERS_TRIMMED_MEAN_VECTOR_H

#include <utility>

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
        push_axes(slot, v, std::make_integer_sequence<int, Axes>());
    }

private:
    // One push per axis, written out: the axes are two or three, on every event.
    template <int... I>
    void push_axes(int slot, float *v, std::integer_sequence<int, I...>) {
        ((v[I] = axis[I].push(slot, v[I])), ...);
    }
};

}  // namespace quarvel

#endif
