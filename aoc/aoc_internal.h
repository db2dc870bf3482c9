// Helpers shared inside the AKFS_ family.
#ifndef CALMODULE_AOC_INTERNAL_H
#define CALMODULE_AOC_INTERNAL_H

#include "calmodule/aoc.h"

namespace quarvel {

// Euclidean distance: float-rounded squares summed in float, square root in double.
float aoc_distance(const akfs_vec &a, const akfs_vec &b);

// True when any component holds the empty marker.
inline bool akfs_is_empty(const akfs_vec &v) {
    return v.x == AKFS_EMPTY_MARKER || v.y == AKFS_EMPTY_MARKER || v.z == AKFS_EMPTY_MARKER;
}

// Smallest usable magnitude: the float machine epsilon (bits 0x34000000).
inline constexpr float kAkfsEpsilon = 1.1920929e-07f;

}  // namespace quarvel

#endif
