// Rotation vector without a gyroscope: an attitude quaternion from one accelerometer
// sample and the module's calibrated magnetic field per call, gravity and linear
// acceleration derived from it, and the single-precision matrix library it uses.
//
// Quaternions are four floats, scalar first (q0, q1, q2, q3); the estimate takes
// device-frame vectors into an earth frame whose z points along the at-rest
// accelerometer reading and whose x points along the horizontal magnetic field.
// Matrices are row-major float arrays (element (i, j) at i * cols + j).
//
// Each call of get_rv_value, get_gravity_value or get_la_value advances the estimator
// by one step: call only one of them per accelerometer sample, or accept that the
// filters see that sample more than once. Not thread-safe; one calling thread.
#ifndef CALMODULE_FUSION_H
#define CALMODULE_FUSION_H

#include <stdint.h>

#include "calmodule/api.h"

CALMODULE_EXTERN_C_BEGIN

// ---- Estimator state, readable by outside callers -------------------------------

// Current attitude quaternion, scalar first; (1, 0, 0, 0) at load.
CALMODULE_API extern float update_Q[4];
// Last published rotation vector (q1, q2, q3); returned by rejected calls.
CALMODULE_API extern float m_rvector[3];
// Euler angles of the latest unblended estimate, degrees: heading, pitch, roll.
CALMODULE_API extern float angle_q[3];
// 0 until q_l_old holds a first output, then 1.
CALMODULE_API extern int16_t q_l_flag;
// Previous output vector, the partner of the heading/roll-weighted blend.
CALMODULE_API extern float q_l_old[3];
// 1 while get_rv_value runs, 0 otherwise (a plain marker, not a lock).
CALMODULE_API extern int16_t RunRVFlag;

// ---- Rotation vector, gravity, linear acceleration --------------------------------

// One estimator step from acc (m/s^2, device axes) and the calibrated field; writes
// the rotation vector (q1, q2, q3) to out. *period is the sampling period in ms, only
// range-checked: the step runs for 1..1000 and an acc not all zero; otherwise
// out = m_rvector and nothing changes.
CALMODULE_API void get_rv_value(const float acc[3], const int32_t *period, float out[3]);
// One estimator step (unless one is running), then out = gravity in the device
// frame, m/s^2, magnitude 9.79.
CALMODULE_API void get_gravity_value(const float acc[3], const int32_t *period, float out[3]);
// One estimator step (unless one is running), then out = acc - gravity, m/s^2.
CALMODULE_API void get_la_value(const float acc[3], const int32_t *period, float out[3]);
// Matrix taking earth-frame vectors into the device frame for q (transpose of the
// rotation matrix of q); q is not normalised. Row-major 3 x 3.
CALMODULE_API void Quat2DCM(const float q[4], float out[9]);
// out = m * v for a row-major 3 x 3 matrix; out must not overlap v.
CALMODULE_API void mat_prod31(const float m[9], const float v[3], float out[3]);

// ---- Input smoothing ----------------------------------------------------------------

// Ten-sample trimmed mean (middle six) of each component of the accelerometer
// direction, in place. Own state, zero at load.
CALMODULE_API void acc_calibration_func(float v[3]);
// The same filter for the magnetometer vector, with its own state.
CALMODULE_API void mag_calibration_func(float v[3]);

// ---- Gradient-descent quaternion update ---------------------------------------------

// Ten normalised-gradient steps of length `step` from q_in towards the attitude whose
// predicted gravity and field directions match acc (about unit length) and mag (any
// units). Writes q_out (scalar part >= 0) or leaves it untouched if no step was taken.
CALMODULE_API void GradientDescent(const float acc[3], const float mag[3], const float q_in[4],
                                   float step, float q_out[4]);
// Hamilton product out = a * b; out may be a or b.
CALMODULE_API void QuaternionProduct(const float a[4], const float b[4], float out[4]);

// ---- Matrix and vector utilities (single precision) ---------------------------------

// dst = src, rows x cols values, bit for bit. Note the argument order (cols, rows).
CALMODULE_API void matrix_copy(const float *src, float *dst, int cols, int rows);
// cols == 1: sum of the n values m[0..n-1]; otherwise sum of the diagonal m[i*(cols+1)], i < n.
CALMODULE_API float matrix_trace(const float *m, int n, int cols);
// m = m * k, element by element, in place.
CALMODULE_API void matrix_scale(float *m, int rows, int cols, float k);
// dst (cols x rows) = transpose of src (rows x cols); dst must not overlap src.
CALMODULE_API void matrix_turn(const float *src, int rows, int cols, float *dst);
// Euclidean norm of n values; 0 when the sum of squares is NaN.
CALMODULE_API float matrix_norm(const float *v, int n);
// out = a + b; out may be a or b.
CALMODULE_API void matrix_add(const float *a, const float *b, int rows, int cols, float *out);
// out = a - b; out may be a or b.
CALMODULE_API void matrix_sub(const float *a, const float *b, int rows, int cols, float *out);
// C (m x p) = A (m x n) * B (n x p); C must not overlap A or B.
CALMODULE_API void matrix_multiply(const float *A, const float *B, int m, int n, int p, float *C);
// Inverts the n x n matrix a in place (Gauss-Jordan, full pivoting). 1 on success;
// 0 when singular (a is then left partly transformed) or when no working memory.
CALMODULE_API int matrix_inv(float *a, int n);
// Determinant of a row-major 3 x 3 matrix.
CALMODULE_API float det(const float m[9]);
// Scalar product of two 3-vectors.
CALMODULE_API float dot(const float a[3], const float b[3]);
// out = a x b; out may be a or b.
CALMODULE_API void cross(const float a[3], const float b[3], float out[3]);
// Quaternion of the Euler angles e = (heading, pitch, roll), radians, z-y-x order.
CALMODULE_API void init_dcm(const float e[3], float q[4]);

CALMODULE_EXTERN_C_END

#endif
