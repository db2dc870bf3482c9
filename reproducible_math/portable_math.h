// Portable versions of the math functions the module calls, built from IEEE
// additions, multiplications, divisions and the correctly rounded square root alone.
// Every target computes them to the same bits, so a module whose math calls bind to
// them (CALMODULE_REPRODUCIBLE_MATH) gives the same outputs on every phone and on the
// desktop, where each platform's libm may round atan, asin, atan2, powf and the rest
// differently by an ulp.
//
// Accuracy: within about one ulp of the exact result over the arguments the module
// uses (angles within a few thousand radians, ratios of field components, sines of
// tilts); the square roots are correctly rounded. Sine and cosine reduce
// by a three-part pi/2 and lose accuracy beyond 2^20 radians; from 2^50 radians on
// they return NaN rather than a meaningless value.
#ifndef CALMODULE_REPRODUCIBLE_MATH_PORTABLE_MATH_H
#define CALMODULE_REPRODUCIBLE_MATH_PORTABLE_MATH_H

namespace portable {

double sqrt(double x);
float sqrtf(float x);
double sin(double x);
double cos(double x);
void sincos(double x, double *s, double *c);
void sincosf(float x, float *s, float *c);
float sinf(float x);
float cosf(float x);
double atan(double x);
float atanf(float x);
double atan2(double y, double x);
float atan2f(float y, float x);
double asin(double x);
float asinf(float x);
// x^3, as e^(3 ln |x|) with the sign of x: the sphere fit's sums of cubed field
// components are the module's only use of a power.
float cubef(float x);

}  // namespace portable

#endif
