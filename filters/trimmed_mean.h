// Moving trimmed mean over the last N samples of one channel: order the ring, drop the
// two smallest and the two largest, average the rest.
//
// Used with N = 8 (middle four) by the orientation filters and with N = 10 (middle
// six) by the calibrated output, the rotation-vector inputs and the soft gyroscope.
// Every use keeps its own channels. The ring starts as zeros, and those zeros take
// part in the mean until overwritten, so the output ramps up over the first N - 2
// samples.
//
// It runs on every sensor event, so the channel keeps an ordered copy of the ring up
// to date as each sample replaces the oldest (a few moves) instead of sorting a copy
// on every call. The mean comes out the same float either way: the same kept values
// summed in the same ascending order.
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
        const int slot = pos;
        pos = static_cast<int16_t>(slot + 1 >= N ? 0 : slot + 1);
        const float oldest = ring[slot];
        ring[slot] = value;
        if (nans_ != 0 || is_nan(value)) return push_unordered(oldest, value);

        // The usual case, no NaN anywhere: the new sample takes the oldest one's place
        // in the order and moves to where it belongs.
        int k = 0;  // every value is in the order: the oldest is found
        while (k < N - 1 && !(ordered_[k] == oldest)) ++k;
        if (value < oldest) {
            for (; k > 0 && value < ordered_[k - 1]; --k) ordered_[k] = ordered_[k - 1];
        } else {
            for (; k < N - 1 && ordered_[k + 1] < value; ++k) ordered_[k] = ordered_[k + 1];
        }
        ordered_[k] = value;
        return mean_of(ordered_);
    }

private:
    static bool is_nan(float v) { return v != v; }

    // Summed in index order from 0 in single precision. Dividing by 4 or by 6 in float
    // gives the same bits as widening to double first: a double quotient rounds to the
    // same float for a single division.
    static float mean_of(const float *sorted) {
        float sum = 0.0f;
        for (int i = kDropped; i < N - kDropped; ++i) sum += sorted[i];
        return sum / static_cast<float>(kKept);
    }

    // A NaN leaves or enters the ring, or sits in it. The order keeps the other values;
    // while a NaN is in the ring, which has no place in an order, the mean is what the
    // sort of the whole ring leaves in the middle, NaNs included.
    __attribute__((noinline)) float push_unordered(float oldest, float value) {
        if (is_nan(oldest)) {
            --nans_;
        } else {
            for (int k = find(oldest); k < ordered_count_ - 1; ++k) ordered_[k] = ordered_[k + 1];
            --ordered_count_;
        }
        if (is_nan(value)) {
            ++nans_;
        } else {
            int k = ordered_count_++;
            for (; k > 0 && value < ordered_[k - 1]; --k) ordered_[k] = ordered_[k - 1];
            ordered_[k] = value;
        }
        if (nans_ == 0) return mean_of(ordered_);
        float sorted[N];
        sort_ring(sorted);
        return mean_of(sorted);
    }

    // Slot of a value of the order equal to v (any of them, should there be several:
    // equal values are interchangeable in the sum, +0 and -0 included).
    int find(float v) const {
        int k = 0;
        while (k < ordered_count_ - 1 && !(ordered_[k] == v)) ++k;
        return k;
    }

    // Early-exit bubble sort of a copy of the ring, with a strict comparison: equal
    // values and NaNs never move, so the result is defined for any input.
    void sort_ring(float (&sorted)[N]) const {
        for (int i = 0; i < N; ++i) sorted[i] = ring[i];
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
    }

    // The ring's values other than NaN, ascending; zeros at load, like the ring.
    float ordered_[N] = {};
    int ordered_count_ = N;
    int nans_ = 0;  // NaNs in the ring
};

}  // namespace quarvel

#endif
