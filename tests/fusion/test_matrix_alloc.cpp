// matrix_inv without memory for its pivot bookkeeping. The module's calls to malloc
// are wrapped at link time (-Wl,--wrap=malloc); the sanitizer build checks that
// nothing leaks on either exit.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

#include "calmodule/fusion.h"

namespace {
int calls = 0, fail_call = -1;  // the call that fails, counted from 0; -1 none
}  // namespace

extern "C" void *__real_malloc(size_t size);
extern "C" void *__wrap_malloc(size_t size) { return calls++ == fail_call ? nullptr : __real_malloc(size); }

TEST(MatrixInvOutOfMemory, EitherFailedAllocationLeavesTheMatrixUntouched) {
    const float original[9] = {0, 0, 2, 0, 3, 0, 1, 0, 0};
    for (fail_call = 0; fail_call <= 2; ++fail_call) {  // 2: with memory the same matrix inverts
        float a[9];
        std::memcpy(a, original, sizeof a);
        calls = 0;
        EXPECT_EQ(matrix_inv(a, 3), fail_call == 2 ? 1 : 0) << "allocation " << fail_call;
        if (fail_call < 2) {
            EXPECT_EQ(std::memcmp(a, original, sizeof a), 0) << "allocation " << fail_call;
        } else {
            EXPECT_EQ(calls, 2);  // the two index arrays
        }
    }
    fail_call = -1;
}
