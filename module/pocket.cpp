// Pocket detection (type 65537). Until it lands, it rejects every event.
#include "module/algorithms.h"

namespace quarvel {
namespace {
int reject_all(const sensors_event_t *, sensors_event_t *) { return -1; }
int ignore_config(int, cal_algo_args *) { return 0; }
}  // namespace

const cal_algo_methods pocket_methods = {reject_all, ignore_config};

}  // namespace quarvel
