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
#include <cstring>

namespace quarvel {

template <int N>
struct TrimmedMeanChannel {
    static_assert(N > 4, "two values are dropped at each end");
    static constexpr int kDropped = 2;
    static constexpr int kKept = N - 2 * kDropped;

    float ring[N] = {};

    constexpr TrimmedMeanChannel() { ordered_[N + 1] = __builtin_inff(); }

    // Writes one sample over the oldest, in ring slot `slot` (the caller's write
    // position, shared by the channels of a vector), and returns the trimmed mean of
    // the ring.
    float push(int slot, float value) {
        const float oldest = ring[slot];
        ring[slot] = value;
        if (nans_ != 0 || is_nan(value)) return push_unordered();

        // The usual case, no NaN anywhere: the new sample takes the oldest one's place
        // in the order and moves to where it belongs. The order holds the ring's values
        // bit for bit, so the oldest is found by its bits, and the infinite guards at
        // both ends stop every move.
        const uint32_t oldest_bits = bits(oldest);
        float *const first = &ordered_[1];
        float *const last = &ordered_[N];
        // A steady trend, about half the pushes of a moving phone: the oldest is the
        // smallest and the new sample is at least the largest, or the reverse. The
        // whole order then moves one place, as one block.
        const bool oldest_first = bits(*first) == oldest_bits;
        if (oldest_first && !(value < *last)) {
            move_block(first, first + 1);
            *last = value;
            return mean_of(first);
        }
        const bool oldest_last = bits(*last) == oldest_bits;
        if (oldest_last && !(*first < value)) {
            move_block(first + 1, first);
            *first = value;
            return mean_of(first);
        }
        // Otherwise find the oldest from the end nearer to its value: below the middle
        // value it lies in the lower half.
        float *p = first;
        if (oldest_last) {
            p = last;
        } else if (!oldest_first) {
            if (oldest < first[N / 2]) {
                while (bits(*p) != oldest_bits) ++p;
            } else {
                p = last;
                while (bits(*p) != oldest_bits) --p;
            }
        }
        if (value < oldest) {
            for (; value < p[-1]; --p) p[0] = p[-1];
        } else {
            for (; p[1] < value; ++p) p[0] = p[1];
        }
        *p = value;
        return mean_of(&ordered_[1]);
    }

    // The trimmed mean the same ring would give with every value negated, without a
    // ring of its own: the order read from the top, each value negated, summed the
    // way mean_of sums the negated ring's order. Only while no NaN is in the ring.
    float negated_mean() const {
        float sum = 0.0f;
        for (int i = N - 1 - kDropped; i >= kDropped; --i) sum += -ordered_[1 + i];
        return sum / static_cast<float>(kKept);
    }

    // After the ring was written directly: counts its NaNs and, without any, builds
    // the order anew.
    void rebuild() {
        nans_ = 0;
        for (int i = 0; i < N; ++i) nans_ += is_nan(ring[i]) ? 1 : 0;
        if (nans_ != 0) return;
        for (int s = 0; s < N; ++s) {
            const float v = ring[s];
            float *p = &ordered_[1 + s];
            for (; v < p[-1]; --p) p[0] = p[-1];
            *p = v;
        }
    }

private:
    static bool is_nan(float v) { return v != v; }

    // N - 1 values from `from` to `to`, one place apart: all read before any is written.
    static void move_block(float *to, const float *from) {
        float block[N - 1];
        std::memcpy(block, from, sizeof block);
        std::memcpy(to, block, sizeof block);
    }

    static uint32_t bits(float v) {
        uint32_t b;
        std::memcpy(&b, &v, sizeof b);
        return b;
    }

    // Summed in index order from 0 in single precision. Dividing by 4 or by 6 in float
    // gives the same bits as widening to double first: a double quotient rounds to the
    // same float for a single division.
    static float mean_of(const float *sorted) {
        float sum = 0.0f;
        for (int i = kDropped; i < N - kDropped; ++i) sum += sorted[i];
        return sum / static_cast<float>(kKept);
    }

    // A NaN enters the ring or sits in it. A NaN has no place in an order: while one is
    // in the ring, the mean is what the sort of the whole ring leaves in the middle,
    // NaNs included; once the last one has left, the order is built anew from the ring.
    __attribute__((noinline)) float push_unordered() {
        rebuild();
        if (nans_ != 0) {
            float sorted[N];
            sort_ring(sorted);
            return mean_of(sorted);
        }
        return mean_of(&ordered_[1]);
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

    // While no NaN is in the ring: its values ascending, bit for bit (zeros at load,
    // like the ring), between a -infinity and a +infinity that never move. Equal values
    // are interchangeable in the sum, +0 and -0 included.
    float ordered_[N + 2] = {-__builtin_inff()};
    int nans_ = 0;  // NaNs in the ring
};

}  // namespace quarvel

#endif
