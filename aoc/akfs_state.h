// The AKFS_ state record that the module's init method prepares. No algorithm of the
// module reads it; it is kept so the record's layout and reset match what callers of
// the AKFS_ family expect of this module.
#ifndef CALMODULE_AOC_AKFS_STATE_H
#define CALMODULE_AOC_AKFS_STATE_H

#include <stdint.h>

#include "calmodule/aoc.h"

namespace quarvel {

inline constexpr int16_t kAkfsHistoryLength = 32;

// Members in storage order.
struct AkfsState {
    akfs_vec history_a[kAkfsHistoryLength];
    int32_t word_a;
    aoc_context aoc;
    akfs_vec history_b[kAkfsHistoryLength];
    float vector[3];
    float unit[3];
    int32_t word_b;
    akfs_vec history_c[kAkfsHistoryLength];
    int32_t words[15];
    int16_t counter;
};

extern AkfsState akfs_state;

}  // namespace quarvel

#endif
