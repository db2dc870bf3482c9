// Out of memory in the middle of a sphere fit: every row allocation in turn fails.
// The module's calls to malloc are wrapped at link time (-Wl,--wrap=malloc).
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

#include "calmodule/magcal.h"
#include "tests/magcal/sphere_samples.h"

namespace {
long calls_until_failure = -1;  // -1: never fail
long calls = 0;
}  // namespace

extern "C" void *__real_malloc(size_t size);
extern "C" void *__wrap_malloc(size_t size) {
    ++calls;
    if (calls_until_failure == 0) {
        calls_until_failure = -1;
        return nullptr;
    }
    if (calls_until_failure > 0) --calls_until_failure;
    return __real_malloc(size);
}

namespace {

TEST(AllocationFailure, FitGivesUpAsForASingularMatrixAndLeaksNothing) {
    float fit_offset[3];
    long needed = 0;
    for (long fail_at = 0;; ++fail_at) {
        FusionInit();
        magcal_test::twelve_on_sphere({10, -20, 5}, 40, Msensor.dots);
        Msensor.dotsCount = 12;
        Msensor.dotsFull = 1;
        const float untouched[3] = {-1, -1, -1};
        std::memcpy(fit_offset, untouched, sizeof untouched);
        calls = 0;
        calls_until_failure = fail_at;
        const int32_t result = CalibrationFunc(&Msensor, fit_offset);
        if (calls_until_failure == -1) {
            // This run's allocation number fail_at failed.
            ASSERT_EQ(result, -6) << "allocation " << fail_at;
            EXPECT_EQ(Msensor.fitCount, 0);
            EXPECT_EQ(std::memcmp(fit_offset, untouched, sizeof untouched), 0);
        } else {
            calls_until_failure = -1;
            ASSERT_EQ(result, 3);  // every allocation succeeded
            needed = calls;
            break;
        }
    }
    // 4 rows of the matrix, 4 of the inverse, and the minors of 20 order-4 cofactors.
    EXPECT_GT(needed, 8);
}

}  // namespace
