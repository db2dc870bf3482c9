// The exported single-precision matrix routines and the gradient-descent update,
// through the shared library: refusals, argument orders and the edges of their ranges.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "calmodule/fusion.h"
#include "support/device.h"

namespace {

using testsupport::expect_bits;
constexpr float kNaN = NAN;

TEST(MatrixRoutines, ArgumentOrdersAndResults) {
    // matrix_copy takes columns before rows and keeps every bit.
    float dst[7] = {9, 9, 9, 9, 9, 9, 9};
    const float src[6] = {-0.0f, kNaN, 1.5f, -2.0f, 3.0f, 1e-45f};
    matrix_copy(src, dst, 3, 2);
    expect_bits(dst, {-0.0f, kNaN, 1.5f, -2.0f, 3.0f, 1e-45f, 9});

    const float m[6] = {1, 2, 3, 4, 5, 6}, d[9] = {1, 100, 100, 100, 2, 100, 100, 100, 4};
    float t[6], c[4];
    matrix_turn(m, 2, 3, t);
    expect_bits(t, {1, 4, 2, 5, 3, 6});
    EXPECT_EQ(matrix_trace(d, 3, 3), 7.0f);
    EXPECT_EQ(matrix_trace(d, 3, 1), 201.0f);  // one column: consecutive values
    EXPECT_EQ(matrix_trace(m, 2, 4), 7.0f);    // diagonal of a 2 x 4 block: m[0] + m[5]
    matrix_multiply(m, t, 2, 3, 2, c);         // m * m^T
    expect_bits(c, {14, 32, 32, 77});
    matrix_multiply(m, t, 2, 0, 2, c);  // empty inner dimension: zeros
    expect_bits(c, {0, 0, 0, 0});

    float a[4] = {1, 2, 3, 4}, b[4] = {0.5f, 0.5f, -1, 8};
    matrix_add(a, b, 2, 2, a);  // in place
    matrix_sub(a, b, 2, 2, b);  // b = (a + b) - b = a
    matrix_scale(b, 1, 3, -2.0f);
    expect_bits(b, {-2, -4, -6, 4});
    // Read every input before writing: an output aliasing an input gives the same bits.
    float u[3] = {1, 2, 3}, w[3] = {4, 5, 6};
    cross(u, w, u);
    expect_bits(u, {-3, 6, -3});
    const float q0[4] = {0.5f, -1.25f, 2.0f, 0.75f}, p0[4] = {-0.3f, 0.9f, 0.1f, -2.5f};
    float separate[4], q[4], p[4];
    QuaternionProduct(q0, p0, separate);
    std::memcpy(q, q0, sizeof q);
    std::memcpy(p, p0, sizeof p);
    QuaternionProduct(q, p0, q);
    QuaternionProduct(q0, p, p);
    for (const float *out : {q, p}) expect_bits(out, {separate[0], separate[1], separate[2], separate[3]});

    const float v[3] = {3, 4, kNaN}, huge[2] = {3e38f, 3e38f};
    EXPECT_EQ(matrix_norm(v, 2), 5.0f);
    EXPECT_EQ(matrix_norm(v, 3), 0.0f);  // a NaN sum reads as zero
    EXPECT_EQ(matrix_norm(v, 0), 0.0f);
    EXPECT_EQ(matrix_norm(huge, 2), INFINITY);  // squares overflow to infinity, not NaN
}

TEST(InitDcm, HeadingWrapsOnceAboveThePiOfThreePointOneFourOneSix) {
    // A heading above 3.1416 is wrapped once; 3.1416 itself and headings below minus
    // half a turn are not.
    float q[4];
    const float at_bound[3] = {3.1416f, 0, 0}, above[3] = {std::nextafter(3.1416f, 4.0f), 0, 0}, low[3] = {-4.0f, 0, 0};
    init_dcm(at_bound, q);
    EXPECT_GT(q[3], 0.0f);
    init_dcm(above, q);
    EXPECT_LT(q[3], 0.0f);
    init_dcm(low, q);
    EXPECT_EQ(q[0], static_cast<float>(std::cos(-2.0)));
    EXPECT_EQ(q[3], static_cast<float>(std::sin(-2.0)));
}

TEST(GradientDescent, NoStepTakenLeavesTheOutputUntouchedAndQ0StaysNonNegative) {
    const float identity[4] = {1, 0, 0, 0}, tilted[4] = {0.9f, 0.1f, 0.3f, -0.2f}, up[3] = {0, 0, 1},
                north[3] = {1, 0, 0}, acc[3] = {0.1f, 0.2f, 0.97f}, mag[3] = {20, -5, -30}, zero[3] = {0, 0, 0},
                minus_zero[3] = {-0.0f, 0.0f, -0.0f}, nan3[3] = {kNaN, 0, 0};
    const struct { const float *acc, *mag, *q_in; } cases[] = {
        {up, north, identity},  // already at the minimum: zero gradient
        {zero, mag, tilted}, {minus_zero, mag, tilted}, {acc, zero, tilted},
        {nan3, mag, tilted}, {acc, nan3, tilted},  // NaN norms read as zero
    };
    for (const auto &c : cases) {
        float q_out[4] = {9, 9, 9, 9};
        GradientDescent(c.acc, c.mag, c.q_in, 0.02f, q_out);
        expect_bits(q_out, {9, 9, 9, 9});
    }
    // From near minus the identity: the equivalent quaternion, scalar part non-negative.
    const float near_minus_one[4] = {-0.98994949f, 0.14142136f, 0, 0};
    float q_out[4];
    GradientDescent(up, north, near_minus_one, 0.02f, q_out);
    EXPECT_TRUE(q_out[0] > 0.99f && std::fabs(q_out[1]) < 0.03f);
}

}  // namespace
