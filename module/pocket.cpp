// Pocket detection (type 65537): covered (1.0) or uncovered (0.0) from the latest
// proximity and ambient-light readings, delivered only when the state changes.
//
// A proximity reading, once held, decides alone: something nearer than 5 cm covers
// the device. Without one, light at or below 1000 lux counts as covered. A negative
// value means "nothing held yet"; enabling the sensor sets all three back to that.
#include <android/log.h>

#include <cstring>

#include "module/algorithms.h"

namespace quarvel {
namespace {

constexpr float kNone = -1.0f;           // no reading or state held yet
constexpr float kNearDistance = 5.0f;    // covered below this proximity reading
constexpr float kDimLight = 1000.0f;     // uncovered above this light reading
constexpr float kCovered = 1.0f;
constexpr float kUncovered = 0.0f;

float last_light = kNone;
float last_proximity = kNone;
float last_pocket_state = kNone;

// "Not negative" is written as !(v < 0) throughout, so a NaN reading counts as held:
// a NaN proximity is not below the near distance (uncovered), a NaN light is not
// above the dim limit (covered).
bool held(float v) { return !(v < 0.0f); }

int pocket_convert(const sensors_event_t *in, sensors_event_t *out) {
    // A null record is outside the host contract; refuse it quietly rather than crash.
    if (in == nullptr || out == nullptr) return -1;

    // The output keeps the input's type, handle and timestamp whatever follows.
    // memmove, so a host that converts in place (in == out) stays defined.
    std::memmove(out, in, sizeof *out);

    switch (in->type) {
    case CALMODULE_TYPE_PROXIMITY:
        last_proximity = in->data[0];
        break;
    case CALMODULE_TYPE_LIGHT:
        last_light = in->data[0];
        break;
    default:
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "type error:%d\n", in->type);
        return -1;
    }

    __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "last_light:%f last_proximity:%f\n",
                        static_cast<double>(last_light), static_cast<double>(last_proximity));

    float state;
    if (held(last_proximity)) {
        state = last_proximity < kNearDistance ? kCovered : kUncovered;
    } else if (held(last_light)) {
        state = last_light > kDimLight ? kUncovered : kCovered;
    } else {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "sensor data error\n");
        return -1;
    }

    if (state == last_pocket_state) return -1;
    last_pocket_state = state;
    out->data[0] = state;
    return 0;
}

int pocket_config(int cmd, cal_algo_args *args) {
    if (cmd != CALMODULE_CMD_ENABLE) return 0;
    // A null argument record is outside the host contract; ignore the call.
    if (args == nullptr) return 0;
    __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "Enable status changed to %d\n", args->enable);
    if (args->enable != 0) {
        // Forget everything, so the next reading is reported again.
        last_pocket_state = kNone;
        last_light = kNone;
        last_proximity = kNone;
    }
    return 0;
}

}  // namespace

const cal_algo_methods pocket_methods = {pocket_convert, pocket_config};

}  // namespace quarvel
