// What init prepares in the AKFS_ record, seen from inside the module.
#include <gtest/gtest.h>

#include <cstring>

#include "aoc/akfs_state.h"
#include "calmodule/module.h"

TEST(InitState, InitRebuildsEveryMemberOfTheAkfsRecordFromAnyState) {
    using quarvel::akfs_state;
    std::memset(&akfs_state, 0x5A, sizeof akfs_state);
    ASSERT_EQ(scmi.methods->init(), 0);
    const akfs_vec empty{AKFS_EMPTY_MARKER, AKFS_EMPTY_MARKER, AKFS_EMPTY_MARKER};
    const auto all_empty = [&empty](const auto &history) {
        for (const akfs_vec &v : history) {
            if (std::memcmp(&v, &empty, sizeof v) != 0) return false;
        }
        return true;
    };
    EXPECT_TRUE(all_empty(akfs_state.history_a) && all_empty(akfs_state.history_b) && all_empty(akfs_state.history_c));
    EXPECT_TRUE(all_empty(akfs_state.aoc.sample_history) && all_empty(akfs_state.aoc.offset_history));
    for (float u : akfs_state.unit) EXPECT_EQ(u, 1.0f);
    for (float v : akfs_state.vector) EXPECT_EQ(v, 0.0f);
    for (int32_t w : akfs_state.words) EXPECT_EQ(w, 0);
    EXPECT_TRUE(akfs_state.aoc.sphere_radius == 0.0f && akfs_state.word_a == 0 && akfs_state.word_b == 0 && akfs_state.counter == 0);
}
