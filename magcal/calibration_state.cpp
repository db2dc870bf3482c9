#include "magcal/calibration_state.h"

namespace quarvel {

float cali_mag_values[3] = {0.0f, 0.0f, 0.0f};
float cali_offset[3] = {0.0f, 0.0f, 0.0f};
int32_t cali_level = 0;
float noise_mag_delta[3] = {0.0f, 0.0f, 0.0f};

}  // namespace quarvel

// Sampling is permitted from load on, until the accelerometer says otherwise.
extern "C" {
CALMODULE_API int16_t cali_flag = 1;
CALMODULE_API int16_t cali_ret = 0;
}
