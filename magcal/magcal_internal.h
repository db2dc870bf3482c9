// What the calibration's source files share without exporting it.
#ifndef CALMODULE_MAGCAL_MAGCAL_INTERNAL_H
#define CALMODULE_MAGCAL_MAGCAL_INTERNAL_H

#include <cstdint>

#include "calmodule/magcal.h"
#include "filters/low_pass.h"
#include "filters/trimmed_mean_vector.h"
#include "numeric/narrow_to_float.h"

namespace quarvel {

// Output filter state: one ten-sample ring per axis, then the low-pass.
extern TrimmedMeanVector<10, 3> mag_rings;
extern SeededLowPass<3> mag_low_pass;

// Everything the calibration step reads and writes besides its arguments. Fusion
// binds it to the exported globals of the same names; a test can bind it to storage
// of its own.
struct CalibrationStepState {
    magcal_record &record;        // Msensor: held fits and the sample buffer
    float (&latest_offset)[3];    // LatestOffset: subtracted while optimal_flag is 0, µT
    float (&optimal_offset)[3];   // OptimalOffset: subtracted while optimal_flag is 1, µT
    int32_t &optimal_flag;        // optimalFlag
    int32_t &noise_count;         // noiseCount: implausible readings since the last clear
    int16_t &l_noise_count;       // l_noiseCount: gross readings since the last clear
};

// The state Fusion steps on: the exported globals.
CalibrationStepState exported_calibration_step();

// Fusion's step on explicit state; the arguments and results are Fusion's.
int32_t calibration_step(const CalibrationStepState &s, const float *mag, float *cali_mag_values,
                         float *cali_offset, int32_t *cali_level, int32_t *new_offset_flag,
                         const int16_t *cali_flag, const int16_t *cali_ret, float *noise_mag_delta);

// Empties the sample buffer: no samples, not handed to the fit, every slot (0, 0, 0).
inline void empty_dots(magcal_record *record) {
    record->dotsCount = 0;
    record->dotsFull = 0;
    for (auto &dot : record->dots) dot[0] = dot[1] = dot[2] = 0.0f;
}

// Cofactor expansion on a table of rows of any storage (the sphere fit keeps its
// matrices on the stack). Orders 1 to kMaxCofactorOrder; indexes inside the matrix.
constexpr int32_t kMaxCofactorOrder = 11;
double cofactor_determinant(const double *const *rows, int32_t order);
double cofactor_minor(const double *const *rows, int32_t order, int32_t i, int32_t j);
double cofactor_signed(const double *const *rows, int32_t order, int32_t i, int32_t j);

}  // namespace quarvel

#endif
