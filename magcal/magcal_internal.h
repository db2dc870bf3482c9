// What the calibration's source files share without exporting it.
#ifndef CALMODULE_MAGCAL_MAGCAL_INTERNAL_H
#define CALMODULE_MAGCAL_MAGCAL_INTERNAL_H

#include <cstdint>

#include "calmodule/magcal.h"
#include "platform/trimmed_mean.h"

namespace quarvel {

// Output filter state: one ten-sample ring per axis, then the low-pass memory.
extern TrimmedMeanChannel<10> mag_ring_x, mag_ring_y, mag_ring_z;
extern int32_t mag_lpf_seeded;
extern float mag_lpf_prev[3];

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

// Double to float as the hardware rounds, without the undefined behaviour of a C++
// conversion of a value beyond the float range: such values become ±infinity.
inline float narrow_to_float(double d) {
    // Half an ulp above FLT_MAX rounds (to even) up to infinity.
    constexpr double kOverflow = 0x1.ffffffp+127;
    if (d >= kOverflow) return __builtin_huge_valf();
    if (d <= -kOverflow) return -__builtin_huge_valf();
    return static_cast<float>(d);
}

}  // namespace quarvel

#endif
