// Out of memory in the middle of a sphere fit: every row allocation in turn fails.
// The module's calls to malloc are wrapped at link time (-Wl,--wrap=malloc).
#include <gtest/gtest.h>

#include <cstddef>

#include "calmodule/magcal.h"
#include "tests/magcal/sphere_samples.h"
#include "support/failing_malloc.h"

using testsupport::malloc_calls;
using testsupport::malloc_fail_at;

TEST(AllocationFailure, FitGivesUpAsForASingularMatrixAndLeaksNothing) {
    for (malloc_fail_at = 0;; ++malloc_fail_at) {
        FusionInit();
        magcal_test::twelve_on_sphere({10, -20, 5}, 40, Msensor.dots);
        Msensor.dotsCount = 12;
        Msensor.dotsFull = 1;
        float offset[3] = {-1, -1, -1};
        malloc_calls = 0;
        const int32_t result = CalibrationFunc(&Msensor, offset);
        if (malloc_calls <= malloc_fail_at) {  // every allocation succeeded
            ASSERT_EQ(result, 3);
            break;
        }
        SCOPED_TRACE(testing::Message() << "allocation " << malloc_fail_at << " of " << malloc_calls << " failed");
        ASSERT_EQ(result, -6);
        EXPECT_EQ(Msensor.fitCount, 0);
        magcal_test::expect3(offset, {-1, -1, -1});
    }
    malloc_fail_at = -1;
    EXPECT_GT(malloc_calls, 8);  // 4 rows of the matrix, 4 of the inverse, and the minors of 20 cofactors
}
