// matrix_inv without memory for its pivot bookkeeping. The module's calls to malloc
// are wrapped at link time (-Wl,--wrap=malloc); the sanitizer build checks that
// nothing leaks on either exit.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

#include "calmodule/fusion.h"
#include "support/failing_malloc.h"

using testsupport::malloc_calls;
using testsupport::malloc_fail_at;

TEST(MatrixInvOutOfMemory, EitherFailedAllocationLeavesTheMatrixUntouched) {
    const float original[9] = {0, 0, 2, 0, 3, 0, 1, 0, 0};
    for (malloc_fail_at = 0; malloc_fail_at <= 2; ++malloc_fail_at) {  // 2: with memory the same matrix inverts
        float a[9];
        std::memcpy(a, original, sizeof a);
        malloc_calls = 0;
        EXPECT_EQ(matrix_inv(a, 3), malloc_fail_at == 2 ? 1 : 0) << "allocation " << malloc_fail_at;
        if (malloc_fail_at < 2) {
            EXPECT_EQ(std::memcmp(a, original, sizeof a), 0) << "allocation " << malloc_fail_at;
        } else {
            EXPECT_EQ(malloc_calls, 2);  // the two index arrays
        }
    }
    malloc_fail_at = -1;
}
