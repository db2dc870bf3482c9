// The calibration record and the offset in force, with the functions that reset the
// record and install an offset.
#include <cstring>

#include "calmodule/magcal.h"

extern "C" {

CALMODULE_API magcal_record Msensor = {};
CALMODULE_API float LatestOffset[3] = {0.0f, 0.0f, 0.0f};

CALMODULE_API void FusionInit(void) { std::memset(&Msensor, 0, sizeof Msensor); }

CALMODULE_API void FusionSetOffset(const float *offset) {
    for (int i = 0; i < 3; ++i) LatestOffset[i] = offset[i];
}

// Whether the offset came from the file or is the zero vector, the calibration starts
// the same way.
CALMODULE_API void FusionInitDevice(int32_t loaded, const float *offset) {
    FusionInit();
    FusionSetOffset(offset);
}

}  // extern "C"
