// Small helpers shared by the AKFS_ tests.
#ifndef CALMODULE_TESTS_AOC_AKFS_TEST_UTIL_H
#define CALMODULE_TESTS_AOC_AKFS_TEST_UTIL_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "calmodule/aoc.h"

namespace akfstest {

inline uint32_t bits(float f) {
    uint32_t b;
    std::memcpy(&b, &f, sizeof b);
    return b;
}

inline bool is_empty_entry(const akfs_vec &v) {
    return bits(v.x) == 0x7F7FFFFFu && bits(v.y) == 0x7F7FFFFFu && bits(v.z) == 0x7F7FFFFFu;
}

#define EXPECT_VEC_EQ(v, ex, ey, ez)   \
    do {                               \
        EXPECT_EQ((v).x, (ex));        \
        EXPECT_EQ((v).y, (ey));        \
        EXPECT_EQ((v).z, (ez));        \
    } while (0)

}  // namespace akfstest

#endif
