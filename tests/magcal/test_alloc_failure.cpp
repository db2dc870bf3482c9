// Out of memory in the middle of a sphere fit: every row allocation in turn fails.
// The module's calls to malloc are wrapped at link time (-Wl,--wrap=malloc).
#include <gtest/gtest.h>

#include <cstddef>

#include "calmodule/magcal.h"
#include "tests/magcal/sphere_samples.h"

namespace {
long calls = 0, fail_at = -1;  // the call that fails, counted from 0; -1 none
}  // namespace

extern "C" void *__real_malloc(size_t size);
extern "C" void *__wrap_malloc(size_t size) { return calls++ == fail_at ? nullptr : __real_malloc(size); }

TEST(AllocationFailure, FitGivesUpAsForASingularMatrixAndLeaksNothing) {
    for (fail_at = 0;; ++fail_at) {
        FusionInit();
        magcal_test::twelve_on_sphere({10, -20, 5}, 40, Msensor.dots);
        Msensor.dotsCount = 12;
        Msensor.dotsFull = 1;
        float offset[3] = {-1, -1, -1};
        calls = 0;
        const int32_t result = CalibrationFunc(&Msensor, offset);
        if (calls <= fail_at) {  // every allocation succeeded
            ASSERT_EQ(result, 3);
            break;
        }
        SCOPED_TRACE(testing::Message() << "allocation " << fail_at << " of " << calls << " failed");
        ASSERT_EQ(result, -6);
        EXPECT_EQ(Msensor.fitCount, 0);
        magcal_test::expect3(offset, {-1, -1, -1});
    }
    fail_at = -1;
    EXPECT_GT(calls, 8);  // 4 rows of the matrix, 4 of the inverse, and the minors of 20 cofactors
}
