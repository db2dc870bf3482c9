// The exported single-precision matrix and vector routines, through the shared library.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <utility>
#include <vector>

#include "calmodule/fusion.h"
#include "fusion/steady_device.h"

namespace {

using fusiontest::bits;
using fusiontest::kNaN;
using fusiontest::same_bits;

// Diagonally dominant, then rows shuffled: well conditioned, with the largest elements
// off the diagonal so that the elimination exchanges rows and columns.
std::vector<float> well_conditioned(std::mt19937 &rng, int n) {
    std::uniform_real_distribution<float> u(-1.0f, 1.0f);
    std::vector<float> a(static_cast<size_t>(n * n));
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) a[i * n + j] = u(rng) + (i == j ? (u(rng) < 0 ? -1.0f : 1.0f) * n : 0.0f);
    }
    for (int i = n - 1; i > 0; --i) {
        const int r = static_cast<int>(rng() % static_cast<unsigned>(i + 1));
        for (int j = 0; j < n; ++j) std::swap(a[i * n + j], a[r * n + j]);
    }
    return a;
}

void expect_product_is_identity(const float *a, const float *b, int n) {
    std::vector<float> p(static_cast<size_t>(n * n));
    matrix_multiply(a, b, n, n, n, p.data());
    for (int i = 0; i < n * n; ++i) EXPECT_NEAR(p[i], i % (n + 1) == 0 ? 1.0f : 0.0f, 2e-5f) << i;
}

// ---- matrix_inv ------------------------------------------------------------------

TEST(MatrixInv, ExactInversesIncludingRowAndColumnExchanges) {
    struct Case {
        int n;
        std::vector<float> a, inverse;
    } cases[] = {
        {3, {1, 0, 0, 0, 1, 0, 0, 0, 1}, {1, 0, 0, 0, 1, 0, 0, 0, 1}},
        {3, {2, 0, 0, 0, 4, 0, 0, 0, 8}, {0.5f, 0, 0, 0, 0.25f, 0, 0, 0, 0.125f}},
        // A column exchange in the first step, undone as a row exchange (zeros may be -0).
        {2, {0, 1, 1, 0}, {0, 1, 1, 0}},
        // Largest entry in a corner: a row and a column exchange in the first step.
        {3, {0, 0, 2, 0, 3, 0, 1, 0, 0}, {0, 0, 1, 0, 1.0f / 3.0f, 0, 0.5f, 0, 0}},
        {4, {0, 0, 0, 4, 8, 0, 0, 0, 0, 2, 0, 0, 0, 0, 16, 0},
         {0, 0.125f, 0, 0, 0, 0, 0.5f, 0, 0, 0, 0, 0.0625f, 0.25f, 0, 0, 0}},
        {1, {4}, {0.25f}},
    };
    for (Case &c : cases) {
        ASSERT_EQ(matrix_inv(c.a.data(), c.n), 1);
        for (size_t i = 0; i < c.a.size(); ++i) EXPECT_EQ(c.a[i], c.inverse[i]) << "n=" << c.n << " i=" << i;
    }
}

TEST(MatrixInv, RandomWellConditionedMatricesInvertBothWays) {
    std::mt19937 rng(20261123);
    for (int n : {3, 4}) {
        for (int trial = 0; trial < 50; ++trial) {
            const std::vector<float> a = well_conditioned(rng, n);
            std::vector<float> inv = a;
            ASSERT_EQ(matrix_inv(inv.data(), n), 1);
            expect_product_is_identity(a.data(), inv.data(), n);
            expect_product_is_identity(inv.data(), a.data(), n);
        }
    }
}

TEST(MatrixInv, SingularAndDegenerateMatrices) {
    float lone_corner[4] = {0, 0, 0, 3};
    EXPECT_EQ(matrix_inv(lone_corner, 2), 0);
    float zeros[9] = {};
    EXPECT_EQ(matrix_inv(zeros, 3), 0);
    float rank2[9] = {1, 2, 4, 2, 4, 8, 3, 6, 12};  // third row = first + second, exactly
    EXPECT_EQ(matrix_inv(rank2, 3), 0);
    // The threshold is absolute: a pivot that vanishes against 1.0 counts as zero.
    float tiny[4] = {1e-20f, 0, 0, 1e-20f};
    EXPECT_EQ(matrix_inv(tiny, 2), 0);
    float small[4] = {1e-10f, 0, 0, 1e-10f};
    EXPECT_EQ(matrix_inv(small, 2), 1);
    EXPECT_FLOAT_EQ(small[0], 1e10f);
    // NaN elements are never pivots.
    float nans[4] = {kNaN, kNaN, kNaN, kNaN};
    EXPECT_EQ(matrix_inv(nans, 2), 0);
    // Empty and negative orders touch nothing.
    float untouched = 7.0f;
    EXPECT_EQ(matrix_inv(&untouched, 0), 1);
    EXPECT_EQ(matrix_inv(&untouched, -3), 0);
    EXPECT_EQ(untouched, 7.0f);
}

// ---- element-wise and shape routines ----------------------------------------------

TEST(MatrixShape, CopyTakesColumnsBeforeRowsAndKeepsEveryBit) {
    float nan_payload;
    const uint32_t payload = 0x7FC01234u;
    std::memcpy(&nan_payload, &payload, sizeof payload);
    const float src[6] = {-0.0f, nan_payload, 1.5f, -2.0f, 3.0f, 1e-45f};
    float dst[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    matrix_copy(src, dst, 3, 2);  // three columns, two rows
    EXPECT_TRUE(same_bits(dst, src, 6));
    EXPECT_EQ(dst[6], 9.0f);
}

TEST(MatrixShape, TransposeTraceAndProduct) {
    const float m[6] = {1, 2, 3, 4, 5, 6};
    float t[6];
    matrix_turn(m, 2, 3, t);
    const float transposed[6] = {1, 4, 2, 5, 3, 6};
    EXPECT_TRUE(same_bits(t, transposed, 6));

    const float d[9] = {1, 100, 100, 100, 2, 100, 100, 100, 4};
    EXPECT_EQ(matrix_trace(d, 3, 3), 7.0f);
    EXPECT_EQ(matrix_trace(d, 3, 1), 201.0f);  // one column: consecutive values
    EXPECT_EQ(matrix_trace(m, 2, 4), 7.0f);    // diagonal of a 2 x 4 block: m[0] + m[5]

    float c[4];
    matrix_multiply(m, t, 2, 3, 2, c);  // m * m^T
    const float product[4] = {14, 32, 32, 77};
    EXPECT_TRUE(same_bits(c, product, 4));
    matrix_multiply(m, t, 2, 0, 2, c);  // empty inner dimension: zeros
    const float zeros[4] = {0, 0, 0, 0};
    EXPECT_TRUE(same_bits(c, zeros, 4));
}

TEST(MatrixShape, ScaleAddAndSubtractInPlace) {
    float a[4] = {1, 2, 3, 4};
    float b[4] = {0.5f, 0.5f, -1, 8};
    matrix_add(a, b, 2, 2, a);
    matrix_sub(a, b, 2, 2, b);  // b = (a + b) - b = a
    const float original[4] = {1, 2, 3, 4};
    EXPECT_TRUE(same_bits(b, original, 4));
    matrix_scale(b, 1, 3, -2.0f);
    const float scaled[4] = {-2, -4, -6, 4};
    EXPECT_TRUE(same_bits(b, scaled, 4));
}

TEST(MatrixShape, NormIsZeroForANaNSum) {
    const float v[3] = {3, 4, kNaN};
    EXPECT_EQ(matrix_norm(v, 2), 5.0f);
    EXPECT_EQ(matrix_norm(v, 3), 0.0f);
    EXPECT_EQ(matrix_norm(v, 0), 0.0f);
    const float huge[2] = {3e38f, 3e38f};  // squares overflow to infinity, not NaN
    EXPECT_EQ(matrix_norm(huge, 2), std::numeric_limits<float>::infinity());
}

// ---- 3 x 3 and 3-vector routines ----------------------------------------------------

TEST(Vector3, DeterminantDotAndCross) {
    const float m[9] = {1, 2, 3, 4, 5, 6, 7, 8, 10};
    EXPECT_EQ(det(m), -3.0f);
    const float swap_xy[9] = {0, 1, 0, 1, 0, 0, 0, 0, 1};
    EXPECT_EQ(det(swap_xy), -1.0f);

    const float a[3] = {1, 2, 3}, b[3] = {-4, 5, 0.5f};
    EXPECT_EQ(dot(a, b), 7.5f);

    const float x[3] = {1, 0, 0}, y[3] = {0, 1, 0}, z[3] = {0, 0, 1};
    float out[3];
    cross(x, y, out);
    EXPECT_TRUE(same_bits(out, z, 3));
    // Written over either argument: all inputs are read first.
    const float expected[3] = {-3, 6, -3};
    float u[3] = {1, 2, 3}, v[3] = {4, 5, 6};
    cross(u, v, u);
    EXPECT_TRUE(same_bits(u, expected, 3));
    u[0] = 1, u[1] = 2, u[2] = 3;
    cross(u, v, v);
    EXPECT_TRUE(same_bits(v, expected, 3));
}

// ---- init_dcm -------------------------------------------------------------------------

TEST(InitDcm, EulerAnglesComeBackThroughTheRotationVectorsExtraction) {
    const float zero[3] = {0, 0, 0};
    float q[4];
    init_dcm(zero, q);
    const float identity[4] = {1, 0, 0, 0};
    EXPECT_TRUE(same_bits(q, identity, 4));

    std::mt19937 rng(7);
    std::uniform_real_distribution<float> heading(-3.14f, 3.14f), pitch(-1.5f, 1.5f), roll(-3.14f, 3.14f);
    for (int trial = 0; trial < 200; ++trial) {
        const float e[3] = {heading(rng), pitch(rng), roll(rng)};
        init_dcm(e, q);
        const double q0 = q[0], q1 = q[1], q2 = q[2], q3 = q[3];
        const double back[3] = {
            std::atan2(2 * (q0 * q3 + q1 * q2), q0 * q0 + q1 * q1 - q2 * q2 - q3 * q3),
            std::asin(-2 * (q1 * q3 - q0 * q2)),
            std::atan2(2 * (q0 * q1 + q2 * q3), q0 * q0 - q1 * q1 - q2 * q2 + q3 * q3),
        };
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(back[i], e[i], 2e-4) << "trial " << trial << " angle " << i;
    }
}

TEST(InitDcm, HeadingBeyondHalfATurnIsWrappedOnceAndOnlyUpwards) {
    // A heading of 4 rad gives the same bits as 4 - 6.2832 rad.
    const float e[3] = {4.0f, 0.3f, -0.2f};
    const float wrapped[3] = {static_cast<float>(4.0 - 2.0 * static_cast<double>(3.1416f)), 0.3f, -0.2f};
    float q[4], r[4];
    init_dcm(e, q);
    init_dcm(wrapped, r);
    EXPECT_TRUE(same_bits(q, r, 4));

    // 3.1416 itself is not wrapped; the next float above it is.
    const float at_bound[3] = {3.1416f, 0, 0};
    init_dcm(at_bound, q);
    EXPECT_GT(q[3], 0.0f);
    const float above[3] = {std::nextafter(3.1416f, 4.0f), 0, 0};
    init_dcm(above, q);
    EXPECT_LT(q[3], 0.0f);

    // Below minus half a turn nothing is corrected.
    const float low[3] = {-4.0f, 0, 0};
    init_dcm(low, q);
    EXPECT_EQ(q[0], static_cast<float>(std::cos(-2.0)));
    EXPECT_EQ(q[3], static_cast<float>(std::sin(-2.0)));
}

}  // namespace
