// Magnetometer algorithms (types 2 and 14). Until the calibration lands, both
// reject every event and write nothing.
#include "module/algorithms.h"

namespace quarvel {
namespace {
int reject_all(const sensors_event_t *, sensors_event_t *) { return -1; }
int ignore_config(int, cal_algo_args *) { return 0; }
}  // namespace

const cal_algo_methods mag_cal_methods = {reject_all, ignore_config};
const cal_algo_methods mag_uncal_methods = {reject_all, nullptr};

}  // namespace quarvel
