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
constexpr size_t kPayload = 24, kAfterStatus = 37;

// Whether bytes [from, to) of two records agree.
bool same(const sensors_event_t &a, const sensors_event_t &b, size_t from, size_t to = sizeof(sensors_event_t)) {
    return std::memcmp(reinterpret_cast<const char *>(&a) + from, reinterpret_cast<const char *>(&b) + from,
                       to - from) == 0;
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
        FUZZ_CHECK(same(in, before, 0));  // the host's record is read only
        if (algo.type == 65537) {  // pocket: a whole copy of the input with the state in data[0]
            FUZZ_CHECK(rc == -1 || (rc == 0 && (out.data[0] == 0.0f || out.data[0] == 1.0f)));
            continue;
        }
        // Calibration (type 2) and orientation (3) refuse other events with -11, the
        // uncalibrated field (14) with -1; orientation writes its angles even then.
        FUZZ_CHECK(rc == (in.type == 2 ? 0 : algo.type == 14 ? -1 : -11));
        if (rc < 0 && algo.type != 3) {
            FUZZ_CHECK(same(out, host, 0));  // refused: nothing written
            continue;
        }
        // Header and everything after the algorithm's own fields keep the host's values:
        // field and bias in data[0..5], or a field or angles always finite and the status.
        FUZZ_CHECK(same(out, host, 0, kPayload));
        if (algo.type == 14) {
            FUZZ_CHECK(same(out, host, kPayload + 6 * sizeof(float)));
        } else {
            FUZZ_CHECK(same(out, host, kAfterStatus) && fuzz::finite3(out.data));
        }
    }
    info->methods->deinit();
    return 0;
}
