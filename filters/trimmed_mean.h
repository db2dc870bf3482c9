// Moving trimmed mean over the last N samples of one channel: sort a copy of the
// ring, drop the two smallest and the two largest, average the rest.
//
// Used with N = 8 (middle four) by the orientation filters and with N = 10 (middle
// six) by the calibrated output, the rotation-vector inputs and the soft gyroscope.
// Every use keeps its own channels. The ring starts as zeros, and those zeros take
// part in the mean until overwritten, so the output ramps up over the first N - 2
// samples.
#ifndef CALMODULE_FILTERS_TRIMMED_MEAN_H
#define CALMODULE_FILTERS_TRIMMED_MEAN_H

#include <cstdint>

namespace quarvel {

template <int N>
struct TrimmedMeanChannel {
    static_assert(N > 4, "two values are dropped at each end");
    static constexpr int kDropped = 2;
    static constexpr int kKept = N - 2 * kDropped;

    float ring[N] = {};
    int16_t pos = 0;  // slot of the next write

    // Pushes one sample and returns the trimmed mean of the ring.
    float push(float value) {
        ring[pos] = value;
        pos = static_cast<int16_t>(pos + 1 >= N ? 0 : pos + 1);

        float sorted[N];
        for (int i = 0; i < N; ++i) sorted[i] = ring[i];
        // Early-exit bubble sort with a strict comparison: equal values and NaNs
        // never move, so the result is defined for any input.
        for (int pass = 1; pass < N; ++pass) {
            bool swapped = false;
            for (int j = N - 1; j >= pass; --j) {
                if (sorted[j] < sorted[j - 1]) {
                    const float t = sorted[j];
                    sorted[j] = sorted[j - 1];
                    sorted[j - 1] = t;
                    swapped = true;
                }
            }
            if (!swapped) break;
        }

        // Summed in index order from 0 in single precision. Dividing by 4 or by 6 in
        // float gives the same bits as widening to double first: a double quotient
        // rounds to the same float for a single division.
        float sum = 0.0f;
        for (int i = kDropped; i < N - kDropped; ++i) sum += sorted[i];
        return sum / static_cast<float>(kKept);
    }
};

}  // namespace quarvel

#endif
