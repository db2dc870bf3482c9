// What the calibration's source files share without exporting it.
#ifndef CALMODULE_MAGCAL_MAGCAL_INTERNAL_H
#define CALMODULE_MAGCAL_MAGCAL_INTERNAL_H

#include <cstdint>

#include "calmodule/magcal.h"
#include "filters/low_pass.h"
#include "filters/trimmed_mean_vector.h"

namespace quarvel {

// Output filter state: one ten-sample ring per axis, then the low-pass.
extern TrimmedMeanVector<10, 3> mag_rings;
extern SeededLowPass<3> mag_low_pass;

// Empties the sample buffer: no samples, not handed to the fit, every slot (0, 0, 0).
inline void empty_dots(magcal_record *record) {
    record->dotsCount = 0;
    record->dotsFull = 0;
    for (auto &dot : record->dots) dot[0] = dot[1] = dot[2] = 0.0f;
}

// Set when a row of a double matrix could not be allocated; the sphere fit clears it
// before it starts and gives up on the fit when it finds it set.
extern bool cofactor_alloc_failed;

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
