// The module and the heap. The module's calls to malloc are counted, or made to fail,
// at link time (-Wl,--wrap=malloc on its objects); the sanitizer build checks that
// nothing taken before a failure leaks. The parameter file's stdio stream belongs to
// the C library and is not the module's allocation.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "calmodule/fusion.h"
#include "calmodule/magcal.h"
#include "calmodule/module.h"
#include "calmodule/softgyro.h"
#include "support/device.h"
#include "support/failing_malloc.h"
#include "support/test_env.h"

using testsupport::malloc_calls;
using testsupport::malloc_fail_at;

// The golden regression, the one replay of a real phone's recording in the tests: a
// phone waved through a figure-eight, every event through every algorithm and every
// per-sample exported function as a HAL calls them, takes nothing from the heap, and
// the calibration completes near the phone's own estimate of its offset.
TEST(RealRecording, FigureEightCalibratesNearThePhonesOwnEstimateWithoutTheHeap) {
    const std::string path = std::string(testsupport::data_dir()) + "/nexus5-figure-eight.csv";
    FILE *csv = std::fopen(path.c_str(), "r");
    if (!csv) GTEST_SKIP() << "no recording: " << path;
    testsupport::remove_param_file();
    scmi.methods->init();
    const cal_algo *algos = nullptr;
    scmi.methods->get_algo_list(&algos);
    const auto convert = [&](int32_t type, const sensors_event_t &in, sensors_event_t *out) {
        for (uint32_t i = 0; i < scmi.number; ++i) {
            if (algos[i].type == type) algos[i].methods->convert(&in, out);
        }
    };
    const int32_t period = 20;
    int samples = 0;
    char line[256];
    sensors_event_t in{}, out{}, extra{};
    malloc_calls = 0;
    while (std::fgets(line, sizeof line, csv)) {  // comments do not parse as five fields
        long long t;
        if (std::sscanf(line, "%lld,%d,%f,%f,%f", &t, &in.type, &in.data[0], &in.data[1], &in.data[2]) != 5) continue;
        if (in.type == CALMODULE_TYPE_MAGNETIC_FIELD) {
            ++samples;
            convert(CALMODULE_TYPE_MAGNETIC_FIELD, in, &out);
            out.type = CALMODULE_TYPE_MAGNETIC_FIELD;
            std::memcpy(&out.data[4], in.data, 3 * sizeof(float));
            convert(CALMODULE_TYPE_MAGNETIC_FIELD_UNCALIBRATED, out, &extra);
            convert(CALMODULE_TYPE_ORIENTATION, out, &extra);
        } else {
            float v[3];
            convert(CALMODULE_TYPE_ORIENTATION, in, &out);
            for (auto *estimate : {get_rv_value, get_gravity_value, get_la_value, get_soft_gyro_value}) {
                estimate(in.data, &period, v);
            }
        }
    }
    std::fclose(csv);
    EXPECT_EQ(malloc_calls, 0);
    EXPECT_GT(samples, 1000);
    int32_t level = 0;
    get_calilevel_value(&level);
    EXPECT_EQ(level, 3);
    float o[3];
    get_magnetic_offset(o);
    const float phone[3] = {57.99f, -73.75f, 32.41f}, error = std::hypot(o[0] - phone[0], o[1] - phone[1], o[2] - phone[2]);
    EXPECT_LT(error, 5.0f) << o[0] << ", " << o[1] << ", " << o[2];
}

TEST(OutOfMemory, EveryFailedAllocationLeavesNothingBehindAndTheSphereFitTakesNone) {
    const float original[9] = {0, 0, 2, 0, 3, 0, 1, 0, 0};
    for (malloc_fail_at = 0; malloc_fail_at <= 2; ++malloc_fail_at) {  // 2: with memory it inverts
        float a[9];
        std::memcpy(a, original, sizeof a);
        malloc_calls = 0;
        EXPECT_EQ(matrix_inv(a, 3), malloc_fail_at == 2) << "allocation " << malloc_fail_at;
        EXPECT_EQ(std::memcmp(a, original, sizeof a) == 0, malloc_fail_at < 2) << "allocation " << malloc_fail_at;
    }
    // Input and Inverse hand rows to an outside caller: any row failing leaves none.
    const double flat[2][4] = {{4, 7}, {2, 6}};
    for (malloc_fail_at = 0; malloc_fail_at < 2; ++malloc_fail_at) {
        double *rows[2] = {}, *inverse[2] = {}, *good[2] = {const_cast<double *>(flat[0]), const_cast<double *>(flat[1])};
        malloc_calls = 0;
        Input(rows, 2, 2, flat);
        malloc_calls = 0;
        Inverse(good, inverse, 2, 10.0);
        EXPECT_TRUE(!rows[0] && !rows[1] && !inverse[0] && !inverse[1]) << "allocation " << malloc_fail_at;
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
