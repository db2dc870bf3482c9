// Portable versions of the math functions the module calls, built from IEEE
// additions, multiplications, divisions and the correctly rounded square root alone.
// Every target computes them to the same bits, so a session replayed with them
// isolates the module's own arithmetic from each platform's libm, which may round
// atan, asin, atan2, powf and the rest differently by an ulp.
//
// Accuracy: within about one ulp of the exact result over the arguments the module
// uses (angles within a few thousand radians, ratios and powers of sensor values).
// Sine and cosine reduce by a three-part pi/2 and lose accuracy beyond 2^20 radians;
// from 2^50 radians on they return NaN rather than a meaningless value.
#ifndef CALMODULE_TESTS_CROSS_PORTABLE_MATH_H
#define CALMODULE_TESTS_CROSS_PORTABLE_MATH_H

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
double exp(double x);
double log(double x);
float powf(float x, float y);

// The C library names the identity session exports, one for each function above that
// the module may call (compilers merge sin and cos of one argument into sincos).
constexpr const char *kInterposedNames[] = {"sqrt", "sqrtf", "sin",   "cos",    "sincos", "sincosf", "sinf", "cosf",
                                            "atan", "atanf", "atan2", "atan2f", "asin",   "asinf",   "powf"};

}  // namespace portable

#endif
