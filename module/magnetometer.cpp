// Magnetometer algorithms. Type 2 feeds each raw sample to the calibration and answers
// with the calibrated, smoothed field and its accuracy level; type 14 rearranges a
// magnetic-field event into field plus bias.
#include <android/log.h>

#include <cstdint>
#include <cstring>

#include "calmodule/magcal.h"
#include "module/algorithms.h"

namespace quarvel {
namespace {

int mag_cal_convert(const sensors_event_t *in, sensors_event_t *out) {
    // A null record is outside the host contract; refuse it quietly rather than crash.
    if (in == nullptr || out == nullptr) return -11;
    if (in->type != CALMODULE_TYPE_MAGNETIC_FIELD) return -11;
    const float x = in->data[0];
    const float y = in->data[1];
    const float z = in->data[2];
    // Whatever the driver did with the sample, the output is due: a rejected sample
    // repeats the last calibrated field through the filters.
    qv730_run_library(x, y, z);

    int32_t level = -1;
    get_calilevel_value(&level);
    float v[3];
    get_magnetic_values(v);

    out->data[0] = v[0];
    out->data[1] = v[1];
    out->data[2] = v[2];
    // Only the status byte; the three bytes after it stay as the host left them.
    const uint8_t status = static_cast<uint8_t>(static_cast<uint32_t>(level) & 0xFFu);
    std::memcpy(&out->vector.status, &status, 1);
    return 0;
}

int mag_cal_config(int cmd, cal_algo_args *args) {
    // A null argument record is outside the host contract; ignore the call.
    if (args == nullptr) return 0;
    if (cmd == CALMODULE_CMD_ENABLE) {
        __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "Enable status changed to %d\n", args->enable);
    } else if (cmd == CALMODULE_CMD_POLL_RATE) {
        __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "Polling rate changed to %d\n", args->poll_rate);
    }
    return 0;
}

int mag_uncal_convert(const sensors_event_t *in, sensors_event_t *out) {
    if (in == nullptr || out == nullptr) return -1;  // outside the host contract, as above
    if (in->type != CALMODULE_TYPE_MAGNETIC_FIELD) return -1;
    // The host put the calibrated field in data[0..2] and the raw one in data[4..6].
    const float cal[3] = {in->data[0], in->data[1], in->data[2]};
    const float raw[3] = {in->data[4], in->data[5], in->data[6]};
    for (int i = 0; i < 3; ++i) {
        out->data[i] = raw[i];
        out->data[3 + i] = raw[i] - cal[i];
    }
    return 0;
}

}  // namespace

const cal_algo_methods mag_cal_methods = {mag_cal_convert, mag_cal_config};
const cal_algo_methods mag_uncal_methods = {mag_uncal_convert, nullptr};

}  // namespace quarvel
