// The event paths take nothing from the heap: the real recording replayed through every
// algorithm and every per-sample exported function, with the module's calls to malloc
// counted (-Wl,--wrap=malloc on the module's objects). The parameter file's stdio
// stream belongs to the C library and is not the module's allocation.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "calmodule/fusion.h"
#include "calmodule/magcal.h"
#include "calmodule/module.h"
#include "calmodule/softgyro.h"
#include "support/failing_malloc.h"
#include "support/recording.h"

TEST(NoHeap, ReplayOfTheRecordingThroughEveryPathAllocatesNothing) {
    std::vector<testsupport::RecordedEvent> events;
    if (!testsupport::read_figure_eight(&events)) GTEST_SKIP() << "no recording: " << testsupport::figure_eight_path();
    const cal_algo *algos = nullptr;
    scmi.methods->init();
    scmi.methods->get_algo_list(&algos);
    const auto convert = [&](int32_t type, const sensors_event_t &in, sensors_event_t *out) {
        for (uint32_t i = 0; i < scmi.number; ++i) {
            if (algos[i].type == type) algos[i].methods->convert(&in, out);
        }
    };
    const int32_t period = 20;
    testsupport::malloc_calls = 0;
    for (const auto &e : events) {
        sensors_event_t in, out, extra;
        std::memset(&in, 0, sizeof in);
        std::memset(&out, 0, sizeof out);
        in.type = e.type;
        for (int i = 0; i < 3; ++i) in.data[i] = e.v[i];
        if (e.type == CALMODULE_TYPE_MAGNETIC_FIELD) {
            convert(CALMODULE_TYPE_MAGNETIC_FIELD, in, &out);
            out.type = CALMODULE_TYPE_MAGNETIC_FIELD;
            for (int i = 0; i < 3; ++i) out.data[4 + i] = in.data[i];
            convert(CALMODULE_TYPE_MAGNETIC_FIELD_UNCALIBRATED, out, &extra);
            convert(CALMODULE_TYPE_ORIENTATION, out, &extra);
        } else {
            float v[3];
            convert(CALMODULE_TYPE_ORIENTATION, in, &out);
            get_rv_value(e.v, &period, v);
            get_gravity_value(e.v, &period, v);
            get_la_value(e.v, &period, v);
            get_soft_gyro_value(e.v, &period, v);
        }
    }
    EXPECT_EQ(testsupport::malloc_calls, 0);
    int32_t level = 0;
    get_calilevel_value(&level);
    EXPECT_EQ(level, 3);  // the sphere fits ran, and held
}
