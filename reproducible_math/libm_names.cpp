// The portable math functions under the C library's names, hidden. Linked into a
// library built with CALMODULE_REPRODUCIBLE_MATH: the module's calls to sqrt, atan2f,
// powf, ... then bind to these definitions inside the library at link time, so the
// library imports none of them from the platform and exports nothing new.
//
// No <cmath> here: these definitions are the declarations.
#include "portable_math.h"

#define CALMODULE_LIBM_NAME extern "C" __attribute__((visibility("hidden")))

CALMODULE_LIBM_NAME double sqrt(double x) { return portable::sqrt(x); }
CALMODULE_LIBM_NAME float sqrtf(float x) { return portable::sqrtf(x); }
// Unoptimised builds call sin and cos (and sinf, cosf) one by one; optimising
// compilers merge both of one argument into one sincos or sincosf call.
CALMODULE_LIBM_NAME double sin(double x) { return portable::sin(x); }
CALMODULE_LIBM_NAME double cos(double x) { return portable::cos(x); }
CALMODULE_LIBM_NAME void sincos(double x, double *s, double *c) { portable::sincos(x, s, c); }
CALMODULE_LIBM_NAME void sincosf(float x, float *s, float *c) { portable::sincosf(x, s, c); }
CALMODULE_LIBM_NAME float sinf(float x) { return portable::sinf(x); }
CALMODULE_LIBM_NAME float cosf(float x) { return portable::cosf(x); }
CALMODULE_LIBM_NAME double atan(double x) { return portable::atan(x); }
CALMODULE_LIBM_NAME float atanf(float x) { return portable::atanf(x); }
CALMODULE_LIBM_NAME double atan2(double y, double x) { return portable::atan2(y, x); }
CALMODULE_LIBM_NAME float atan2f(float y, float x) { return portable::atan2f(y, x); }
CALMODULE_LIBM_NAME double asin(double x) { return portable::asin(x); }
CALMODULE_LIBM_NAME float asinf(float x) { return portable::asinf(x); }

// The sphere fit cubes field components and is the module's only power. Another
// exponent gets NaN, so that a new use shows in every test instead of passing with
// the wrong value.
CALMODULE_LIBM_NAME float powf(float x, float y) {
    return y == 3.0f ? portable::cubef(x) : __builtin_nanf("");
}
