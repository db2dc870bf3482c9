// Linked into the identity session only: exports the portable math functions under
// the C library's names. The executable is built with its symbols exported, so the
// module's undefined references (sqrt, atan2f, powf, ...) bind here, ahead of the
// platform's libm, when the module is loaded.
//
// No <cmath> here: these definitions are the declarations.
#include "portable_math.h"

#define PORTABLE_EXPORT extern "C" __attribute__((visibility("default")))

PORTABLE_EXPORT double sqrt(double x) { return portable::sqrt(x); }
PORTABLE_EXPORT float sqrtf(float x) { return portable::sqrtf(x); }
PORTABLE_EXPORT double sin(double x) { return portable::sin(x); }
PORTABLE_EXPORT double cos(double x) { return portable::cos(x); }
// Compilers merge sin(x) and cos(x) of one argument into one sincos call.
PORTABLE_EXPORT void sincos(double x, double *s, double *c) { portable::sincos(x, s, c); }
PORTABLE_EXPORT void sincosf(float x, float *s, float *c) { portable::sincosf(x, s, c); }
PORTABLE_EXPORT float sinf(float x) { return portable::sinf(x); }
PORTABLE_EXPORT float cosf(float x) { return portable::cosf(x); }
PORTABLE_EXPORT double atan(double x) { return portable::atan(x); }
PORTABLE_EXPORT float atanf(float x) { return portable::atanf(x); }
PORTABLE_EXPORT double atan2(double y, double x) { return portable::atan2(y, x); }
PORTABLE_EXPORT float atan2f(float y, float x) { return portable::atan2f(y, x); }
PORTABLE_EXPORT double asin(double x) { return portable::asin(x); }
PORTABLE_EXPORT float asinf(float x) { return portable::asinf(x); }
PORTABLE_EXPORT float powf(float x, float y) { return portable::powf(x, y); }
