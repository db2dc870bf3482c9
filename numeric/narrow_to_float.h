// Double to float as the hardware rounds, without the undefined behaviour of a C++
// conversion of a value beyond the float range: such values become ±infinity. Shared
// by the sphere fit, the parameter file reader and the compass arithmetic.
#ifndef CALMODULE_NUMERIC_NARROW_TO_FLOAT_H
#define CALMODULE_NUMERIC_NARROW_TO_FLOAT_H

namespace quarvel {

inline float narrow_to_float(double d) {
    // Half an ulp above FLT_MAX rounds (to even) up to infinity.
    constexpr double kOverflow = 0x1.ffffffp+127;
    if (d >= kOverflow) return __builtin_huge_valf();
    if (d <= -kOverflow) return -__builtin_huge_valf();
    return static_cast<float>(d);
}

}  // namespace quarvel

#endif
