// What init prepares in the AKFS_ record, seen from inside the module.
#include <gtest/gtest.h>

#include <cstring>

#include "aoc/akfs_state.h"
#include "calmodule/module.h"

namespace {

void expect_all_empty(const akfs_vec *h, int n) {
    const uint32_t empty[3] = {0x7F7FFFFFu, 0x7F7FFFFFu, 0x7F7FFFFFu};  // largest finite float
    for (int i = 0; i < n; ++i) ASSERT_EQ(std::memcmp(&h[i], empty, sizeof empty), 0) << "entry " << i;
}

TEST(InitState, InitRebuildsEveryMemberOfTheAkfsRecord) {
    using quarvel::akfs_state;
    std::memset(&akfs_state, 0x5A, sizeof akfs_state);  // scribbled: init must rebuild all
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(scmi.methods->init(), 0);
        expect_all_empty(akfs_state.history_a, 32);
        expect_all_empty(akfs_state.history_b, 32);
        expect_all_empty(akfs_state.history_c, 32);
        expect_all_empty(akfs_state.aoc.sample_history, 20);
        expect_all_empty(akfs_state.aoc.offset_history, 4);
        EXPECT_EQ(akfs_state.aoc.sphere_radius, 0.0f);
        for (float u : akfs_state.unit) EXPECT_EQ(u, 1.0f);
        for (float v : akfs_state.vector) EXPECT_EQ(v, 0.0f);
        for (int32_t w : akfs_state.words) EXPECT_EQ(w, 0);
        EXPECT_TRUE(akfs_state.word_a == 0 && akfs_state.word_b == 0 && akfs_state.counter == 0);
    }
}

}  // namespace
