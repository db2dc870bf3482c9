// Attitude from one gravity direction and one magnetic field vector, without a
// gyroscope: ten fixed-length steps down the normalised gradient of the six residuals
// between the directions the quaternion predicts in the device frame and the measured
// ones. The earth field reference (bx, 0, bz) is taken afresh from the field seen
// through the current estimate at every step, so only the field's inclination matters,
// not its heading reference.
//
// Frames: q takes device vectors into the earth frame (z along the at-rest
// accelerometer reading, x along the horizontal field).
#include <cmath>

#include "calmodule/fusion.h"

namespace {

constexpr int kIterations = 10;

bool all_zero(const float v[3]) { return v[0] == 0.0f && v[1] == 0.0f && v[2] == 0.0f; }

// Fixed-size kernels for the ten steps of every rotation-vector sample: the same sums in
// the same order as the exported matrix_norm, matrix_turn and matrix_multiply, without
// their general loops.

// Length of an N-vector: squares summed from 0 in index order; a NaN sum reads as a
// zero length, which ends the descent.
template <int N>
inline float norm(const float *v) {
    float sum = 0.0f;
    for (int i = 0; i < N; ++i) sum += v[i] * v[i];
    if (!(sum >= 0.0f)) return 0.0f;
    return sqrtf(sum);
}

// Everything is read first: out may alias a or b.
inline void quaternion_product(const float a[4], const float b[4], float out[4]) {
    const float a0 = a[0], a1 = a[1], a2 = a[2], a3 = a[3];
    const float b0 = b[0], b1 = b[1], b2 = b[2], b3 = b[3];
    out[0] = a0 * b0 - a1 * b1 - a2 * b2 - a3 * b3;
    out[1] = a0 * b1 + a1 * b0 + a2 * b3 - a3 * b2;
    out[2] = a0 * b2 - a1 * b3 + a2 * b0 + a3 * b1;
    out[3] = a0 * b3 + a1 * b2 - a2 * b1 + a3 * b0;
}

// J^T F for the 6 x 4 Jacobian J (row-major): each component summed from 0 over the
// six residuals in order, as the transpose times the residual vector.
inline void jacobian_t_times(const float J[6 * 4], const float F[6], float out[4]) {
    for (int i = 0; i < 4; ++i) {
        float c = 0.0f;
        for (int k = 0; k < 6; ++k) c += J[k * 4 + i] * F[k];
        out[i] = c;
    }
}

}  // namespace

extern "C" {

CALMODULE_API void QuaternionProduct(const float a[4], const float b[4], float out[4]) {
    quaternion_product(a, b, out);
}

// Every degenerate case (zero input, a zero or NaN norm on the way) ends the descent
// silently: q_out then holds the un-normalised result of the last step taken, or is
// untouched if no step was taken.
CALMODULE_API void GradientDescent(const float acc[3], const float mag[3], const float q_in[4],
                                   float step, float q_out[4]) {
    if (all_zero(acc) || all_zero(mag)) return;

    const float ax = acc[0], ay = acc[1], az = acc[2];
    float q[4] = {q_in[0], q_in[1], q_in[2], q_in[3]};
    float m[3] = {mag[0], mag[1], mag[2]};

    for (int iteration = 0; iteration < kIterations; ++iteration) {
        // 1. Unit field direction (stays unit for the later iterations).
        const float nm = norm<3>(m);
        if (nm == 0.0f) return;
        for (float &c : m) c = c / nm;
        const float mx = m[0], my = m[1], mz = m[2];

        // 2. The field in the earth frame: h = q (0, m) q*.
        const float pure_m[4] = {0.0f, mx, my, mz};
        const float q_conj[4] = {q[0], -q[1], -q[2], -q[3]};
        float h[4];
        quaternion_product(q, pure_m, h);
        quaternion_product(h, q_conj, h);

        // 3. Earth field reference: horizontal magnitude along x, vertical part kept.
        const float horizontal_sq = h[1] * h[1] + h[2] * h[2];
        if (!(horizontal_sq >= 0.0f)) return;
        float b[3] = {sqrtf(horizontal_sq), 0.0f, h[3]};
        const float nb = norm<3>(b);
        if (nb == 0.0f) return;
        for (float &c : b) c = c / nb;
        const float bx = b[0], bz = b[2];

        const float q0 = q[0], q1 = q[1], q2 = q[2], q3 = q[3];

        // 4. Residuals: predicted minus measured gravity (F0..F2) and field (F3..F5).
        //    The terms around the constant one half are summed in double from float
        //    squares and products; each residual is then rounded to float.
        float F[6];
        F[0] = 2.0f * (q1 * q3 - q0 * q2) - ax;
        F[1] = 2.0f * (q0 * q1 + q2 * q3) - ay;
        F[2] = static_cast<float>(
            2.0 * (0.5 - static_cast<double>(q1 * q1) - static_cast<double>(q2 * q2)) -
            static_cast<double>(az));
        F[3] = static_cast<float>(
            static_cast<double>(2.0f * bx) *
                (0.5 - static_cast<double>(q2 * q2) - static_cast<double>(q3 * q3)) +
            static_cast<double>(2.0f * bz * (q1 * q3 - q0 * q2)) - static_cast<double>(mx));
        F[4] = 2.0f * bx * (q1 * q2 - q0 * q3) + 2.0f * bz * (q0 * q1 + q2 * q3) - my;
        F[5] = static_cast<float>(
            static_cast<double>(2.0f * bx * (q0 * q2 + q1 * q3)) +
            static_cast<double>(2.0f * bz) *
                (0.5 - static_cast<double>(q1 * q1) - static_cast<double>(q2 * q2)) -
            static_cast<double>(mz));

        // 5. Jacobian of the residuals by q0..q3, one row per residual.
        const float J[6 * 4] = {
            -2.0f * q2, 2.0f * q3, -2.0f * q0, 2.0f * q1,
            2.0f * q1, 2.0f * q0, 2.0f * q3, 2.0f * q2,
            0.0f, -4.0f * q1, -4.0f * q2, 0.0f,
            -2.0f * bz * q2, 2.0f * bz * q3, -4.0f * bx * q2 - 2.0f * bz * q0,
                -4.0f * bx * q3 + 2.0f * bz * q1,
            -2.0f * bx * q3 + 2.0f * bz * q1, 2.0f * bx * q2 + 2.0f * bz * q0,
                2.0f * bx * q1 + 2.0f * bz * q3, -2.0f * bx * q0 + 2.0f * bz * q2,
            2.0f * bx * q2, 2.0f * bx * q3 - 4.0f * bz * q1, 2.0f * bx * q0 - 4.0f * bz * q2,
                2.0f * bx * q1,
        };

        // 6. Gradient of the squared residuals (up to a factor 2): J^T F.
        float gradient[4];
        jacobian_t_times(J, F, gradient);

        // 7.-8. One step of fixed length against the gradient direction, published at
        //       once so that an early exit leaves the latest step behind.
        const float g = norm<4>(gradient);
        if (g == 0.0f) return;
        for (int i = 0; i < 4; ++i) q_out[i] = q[i] - (step * gradient[i]) / g;

        // 9. Back onto the unit sphere (the working copy only).
        const float nq = norm<4>(q_out);
        if (nq == 0.0f) return;
        for (int i = 0; i < 4; ++i) q[i] = q_out[i] / nq;
    }

    // q and -q are the same attitude: report the one with a non-negative scalar part.
    for (int i = 0; i < 4; ++i) q_out[i] = q[i];
    if (q[0] < 0.0f) {
        for (int i = 0; i < 4; ++i) q_out[i] = -q_out[i];
    }
}

}  // extern "C"
