// matrix_inv without memory for its pivot bookkeeping. The module's calls to malloc
// are wrapped at link time (-Wl,--wrap=malloc); the sanitizer build checks that
// nothing leaks on either exit.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

#include "calmodule/fusion.h"

namespace {
int fail_call = -1;  // which call from now on fails (0 = the next); -1 never
int calls = 0;
}  // namespace

extern "C" void *__real_malloc(size_t size);
extern "C" void *__wrap_malloc(size_t size) {
    if (calls++ == fail_call) return nullptr;
    return __real_malloc(size);
}

namespace {

TEST(MatrixInvOutOfMemory, EitherFailedAllocationLeavesTheMatrixUntouched) {
    const float original[9] = {0, 0, 2, 0, 3, 0, 1, 0, 0};
    for (int failing = 0; failing < 2; ++failing) {
        float a[9];
        std::memcpy(a, original, sizeof a);
        calls = 0;
        fail_call = failing;
        EXPECT_EQ(matrix_inv(a, 3), 0) << "allocation " << failing;
        fail_call = -1;
        EXPECT_EQ(std::memcmp(a, original, sizeof a), 0) << "allocation " << failing;
    }
    // With memory the same matrix inverts.
    float a[9];
    std::memcpy(a, original, sizeof a);
    calls = 0;
    EXPECT_EQ(matrix_inv(a, 3), 1);
    EXPECT_EQ(calls, 2);
}

}  // namespace
