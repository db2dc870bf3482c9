// The descriptor `scmi` and the algorithm table behind it.
//
// A HAL resolves `scmi` by name, calls init, then get_algo_list, and walks `number`
// contiguous cal_algo records from the address it is handed. Everything here is
// constant data fixed at build time, so it lands in read-only memory after relocation.
#include <android/log.h>

#include "aoc/akfs_state.h"
#include "calmodule/aoc.h"
#include "module/algorithms.h"

namespace quarvel {
namespace {

int cal_init();
void cal_deinit();
int cal_get_algo_list(const cal_algo **list);

const cal_module_methods kModuleMethods = {cal_init, cal_deinit, cal_get_algo_list};

const char *const kMagCompatible[] = {"qv730", nullptr};
const char *const kOrientationCompatible[] = {"orientation", nullptr};
const char *const kMagUncalCompatible[] = {"magnetic_field_uncalibrated", nullptr};
const char *const kPocketCompatible[] = {"ltr553-pocket", "ap3426-pocket", "oem-pocket", nullptr};

// Contiguous and in this order: the host indexes from the first record.
const cal_algo kAlgorithms[4] = {
    {CALMODULE_ALGO_TAG, 1, CALMODULE_TYPE_MAGNETIC_FIELD, kMagCompatible, &scmi, &mag_cal_methods},
    {CALMODULE_ALGO_TAG, 1, CALMODULE_TYPE_ORIENTATION, kOrientationCompatible, &scmi,
     &orientation_methods},
    {CALMODULE_ALGO_TAG, 1, CALMODULE_TYPE_MAGNETIC_FIELD_UNCALIBRATED, kMagUncalCompatible, &scmi,
     &mag_uncal_methods},
    {CALMODULE_ALGO_TAG, 1, CALMODULE_TYPE_POCKET, kPocketCompatible, &scmi, &pocket_methods},
};

// Prepares only the AKFS_ state; every algorithm's own state starts from its static
// initial value and lives until unload, so no algorithm depends on init having run.
int cal_init() {
    akfs_state = AkfsState{};
    for (float &c : akfs_state.unit) c = 1.0f;
    AKFS_InitBuffer(kAkfsHistoryLength, akfs_state.history_a);
    AKFS_InitBuffer(kAkfsHistoryLength, akfs_state.history_b);
    AKFS_InitBuffer(kAkfsHistoryLength, akfs_state.history_c);
    AKFS_InitAOC(&akfs_state.aoc);
    akfs_state.counter = 0;
    return 0;
}

// Nothing to release: the module holds no heap memory, file or thread between calls.
void cal_deinit() { __android_log_print(ANDROID_LOG_INFO, kLogTag, "%s called\n", "cal_deinit"); }

int cal_get_algo_list(const cal_algo **list) {
    *list = kAlgorithms;
    return 0;
}

}  // namespace
}  // namespace quarvel

extern "C" CALMODULE_API const cal_module_info scmi = {
    CALMODULE_MODULE_TAG,
    "cal_module_quarvel",
    1,
    "Quarvel",
    nullptr,
    4,
    &quarvel::kModuleMethods,
    {0, 0, 0, 0, 0, 0},
};
