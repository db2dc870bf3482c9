// Out of memory while Input or Inverse hands rows to an outside caller: every row
// allocation in turn fails. The module's calls to malloc are wrapped at link time
// (-Wl,--wrap=malloc); the sanitizer build checks that the rows already taken are freed.
// The sphere fit itself takes nothing from the heap.
#include <gtest/gtest.h>

#include "calmodule/magcal.h"
#include "support/failing_malloc.h"
#include "support/device.h"

using testsupport::malloc_calls;
using testsupport::malloc_fail_at;

TEST(AllocationFailure, InputAndInverseLeaveNoRowsAndTheFitTakesNone) {
    const double flat[2][4] = {{4, 7}, {2, 6}};
    for (malloc_fail_at = 0; malloc_fail_at < 2; ++malloc_fail_at) {
        double *rows[2] = {nullptr, nullptr}, *inverse[2] = {nullptr, nullptr};
        malloc_calls = 0;
        Input(rows, 2, 2, flat);
        EXPECT_TRUE(rows[0] == nullptr && rows[1] == nullptr) << "allocation " << malloc_fail_at;
        double *good[2] = {const_cast<double *>(flat[0]), const_cast<double *>(flat[1])};
        malloc_calls = 0;
        Inverse(good, inverse, 2, 10.0);
        EXPECT_TRUE(inverse[0] == nullptr && inverse[1] == nullptr) << "allocation " << malloc_fail_at;
    }
    malloc_fail_at = -1;

    FusionInit();
    const float centre[3] = {10, -20, 5};
    testsupport::twelve_on_sphere(centre, 40, Msensor.dots);
    Msensor.dotsCount = 12;
    Msensor.dotsFull = 1;
    float offset[3];
    malloc_calls = 0;
    EXPECT_EQ(CalibrationFunc(&Msensor, offset), 3);
    EXPECT_EQ(malloc_calls, 0);
}
