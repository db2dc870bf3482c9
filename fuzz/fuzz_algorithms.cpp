// The four algorithms as a sensors HAL reaches them: through `scmi` and the method
// tables, with an arbitrary sequence of events and configuration changes.
//
// Promises checked on every call: convert leaves the input record as it was, returns
// 0 or the algorithm's negative result for the event's type, writes nothing it does
// not own (nothing at all when it refuses the event) and never delivers a non-finite
// field or angle; config returns 0; a delivered pocket state is 0 or 1.
#include <cstring>

#include "calmodule/module.h"
#include "fuzz_support.h"

namespace {

constexpr int kTypes[] = {1, 2, 3, 5, 8, 14, 65537, 0, -1};
// data[] starts at byte 24; the status byte is the first byte of data[3].
constexpr size_t kPayload = 24;
constexpr size_t kAfterStatus = 37;

bool same(const void *a, const void *b, size_t from, size_t to) {
    return std::memcmp(static_cast<const char *>(a) + from, static_cast<const char *>(b) + from, to - from) == 0;
}

void check_convert(const cal_algo &algo, const sensors_event_t &in, const sensors_event_t &before,
                   const sensors_event_t &out, int rc) {
    FUZZ_CHECK(std::memcmp(&in, &before, sizeof in) == 0);  // the host's record is read only
    const bool magnetic = in.type == 2;
    switch (algo.type) {
    case 2:  // calibration: calibrated field and level into data[0..2] and the status byte
        FUZZ_CHECK(rc == (magnetic ? 0 : -11));
        break;
    case 14:  // uncalibrated: field and bias into data[0..5]
        FUZZ_CHECK(rc == (magnetic ? 0 : -1));
        break;
    case 3:  // orientation: angles and status, on any type
        FUZZ_CHECK(rc == (magnetic ? 0 : -11));
        break;
    default:  // pocket: a whole copy of the input with the state in data[0]
        FUZZ_CHECK(rc == 0 || rc == -1);
        if (rc == 0) FUZZ_CHECK(out.data[0] == 0.0f || out.data[0] == 1.0f);
        break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::fresh_module();
    fuzz::Input input(data, size);
    const cal_module_info *info = &scmi;
    FUZZ_CHECK(info->methods->init() == 0);
    const cal_algo *algos = nullptr;
    FUZZ_CHECK(info->methods->get_algo_list(&algos) == 0 && algos != nullptr);

    while (input.more()) {
        const uint8_t op = input.byte();
        const cal_algo &algo = algos[op % info->number];
        if (op & 0x80) {
            cal_algo_args args{input.i32(), input.i32()};
            if (algo.methods->config) FUZZ_CHECK(algo.methods->config(input.byte() % 4, &args) == 0);
            continue;
        }
        sensors_event_t in;
        std::memset(&in, 0, sizeof in);
        in.type = kTypes[input.byte() % (sizeof kTypes / sizeof kTypes[0])];
        for (int i = 0; i < 7; ++i) in.data[i] = input.f32();
        const sensors_event_t before = in;
        sensors_event_t out;
        std::memset(&out, 0x5A, sizeof out);  // finite as floats: 1.5e16
        const sensors_event_t host = out;

        const int rc = algo.methods->convert(&in, &out);
        check_convert(algo, in, before, out, rc);

        if (algo.type == 65537) continue;
        if (rc < 0 && algo.type != 3) {
            FUZZ_CHECK(std::memcmp(&out, &host, sizeof out) == 0);  // refused: nothing written
            continue;
        }
        // Header and everything after the algorithm's own fields keep the host's values.
        FUZZ_CHECK(same(&out, &host, 0, kPayload));
        if (algo.type == 14) {
            FUZZ_CHECK(same(&out, &host, kPayload + 6 * sizeof(float), sizeof out));
        } else {
            FUZZ_CHECK(same(&out, &host, kAfterStatus, sizeof out));
            // The calibrated field and the angles are finite whatever came in.
            FUZZ_CHECK(fuzz::finite3(out.data));
        }
    }
    info->methods->deinit();
    return 0;
}
