// Orientation algorithm (type 3). Until the orientation computation lands, it
// rejects every event and writes nothing.
#include "module/algorithms.h"

namespace quarvel {
namespace {
int reject_all(const sensors_event_t *, sensors_event_t *) { return -1; }
}  // namespace

const cal_algo_methods orientation_methods = {reject_all, nullptr};

}  // namespace quarvel
