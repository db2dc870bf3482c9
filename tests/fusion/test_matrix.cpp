// The exported single-precision matrix and vector routines, through the shared library.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "calmodule/fusion.h"
#include "fusion/steady_device.h"

namespace {

using fusiontest::bits;
using fusiontest::kNaN;
using fusiontest::same_bits;

// Reference inverse in double by the adjugate (3 x 3) or by plain Gauss-Jordan with
// partial pivoting (any n), for comparison only.
std::vector<double> reference_inverse(const std::vector<float> &a, int n) {
    std::vector<double> m(a.begin(), a.end());
    std::vector<double> inv(static_cast<size_t>(n * n), 0.0);
    for (int i = 0; i < n; ++i) inv[i * n + i] = 1.0;
    for (int k = 0; k < n; ++k) {
        int p = k;
        for (int i = k + 1; i < n; ++i) {
            if (std::fabs(m[i * n + k]) > std::fabs(m[p * n + k])) p = i;
        }
        for (int j = 0; j < n; ++j) {
            std::swap(m[k * n + j], m[p * n + j]);
            std::swap(inv[k * n + j], inv[p * n + j]);
        }
        const double d = m[k * n + k];
        for (int j = 0; j < n; ++j) {
            m[k * n + j] /= d;
            inv[k * n + j] /= d;
        }
        for (int i = 0; i < n; ++i) {
            if (i == k) continue;
            const double f = m[i * n + k];
            for (int j = 0; j < n; ++j) {
                m[i * n + j] -= f * m[k * n + j];
                inv[i * n + j] -= f * inv[k * n + j];
            }
        }
    }
    return inv;
}

// A diagonally dominant matrix: well conditioned, and every step of the elimination
// still has to pick its pivot among mixed signs.
std::vector<float> well_conditioned(std::mt19937 &rng, int n) {
    std::uniform_real_distribution<float> u(-1.0f, 1.0f);
    std::vector<float> a(static_cast<size_t>(n * n));
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) a[i * n + j] = u(rng);
        a[i * n + i] += (u(rng) < 0.0f ? -1.0f : 1.0f) * static_cast<float>(n);
    }
    // Shuffle the rows so that the largest elements sit off the diagonal.
    std::vector<float> shuffled(a.size());
    std::vector<int> order(n);
    for (int i = 0; i < n; ++i) order[i] = i;
    std::shuffle(order.begin(), order.end(), rng);
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) shuffled[i * n + j] = a[order[i] * n + j];
    }
    return shuffled;
}

void expect_identity(const float *m, int n, float tol) {
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) {
            EXPECT_NEAR(m[i * n + j], i == j ? 1.0f : 0.0f, tol) << "(" << i << ", " << j << ")";
        }
    }
}

// ---- matrix_inv ------------------------------------------------------------------

TEST(MatrixInv, IdentityAndDiagonalInvertExactly) {
    float id[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    ASSERT_EQ(matrix_inv(id, 3), 1);
    const float expected_id[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    for (int i = 0; i < 9; ++i) EXPECT_EQ(id[i], expected_id[i]) << i;

    float d[9] = {2, 0, 0, 0, 4, 0, 0, 0, 8};
    ASSERT_EQ(matrix_inv(d, 3), 1);
    const float expected_d[9] = {0.5f, 0, 0, 0, 0.25f, 0, 0, 0, 0.125f};
    for (int i = 0; i < 9; ++i) EXPECT_EQ(d[i], expected_d[i]) << i;
}

TEST(MatrixInv, ExchangeNeedingMatricesComeBackInTheRightOrder) {
    // GIVEN a swap matrix: the first pivot needs a column exchange, undone as a row
    // exchange at the end.
    float swap2[4] = {0, 1, 1, 0};
    ASSERT_EQ(matrix_inv(swap2, 2), 1);
    const float expected_swap[4] = {0, 1, 1, 0};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(swap2[i], expected_swap[i]) << i;  // -0 == 0

    // GIVEN a scaled permutation whose largest entry is in a corner: both a row and a
    // column exchange in the first step.
    float p3[9] = {0, 0, 2, 0, 3, 0, 1, 0, 0};
    ASSERT_EQ(matrix_inv(p3, 3), 1);
    const float expected_p3[9] = {0, 0, 1, 0, 1.0f / 3.0f, 0, 0.5f, 0, 0};
    for (int i = 0; i < 9; ++i) EXPECT_EQ(p3[i], expected_p3[i]) << i;

    // GIVEN a 4 x 4 cyclic permutation with distinct scales.
    float p4[16] = {0, 0, 0, 4,
                    8, 0, 0, 0,
                    0, 2, 0, 0,
                    0, 0, 16, 0};
    ASSERT_EQ(matrix_inv(p4, 4), 1);
    const float expected_p4[16] = {0, 0.125f, 0, 0,
                                   0, 0, 0.5f, 0,
                                   0, 0, 0, 0.0625f,
                                   0.25f, 0, 0, 0};
    for (int i = 0; i < 16; ++i) EXPECT_EQ(p4[i], expected_p4[i]) << i;
}

TEST(MatrixInv, RandomWellConditionedMatricesMatchTheirInverse) {
    std::mt19937 rng(20261123);
    for (int n : {3, 4}) {
        for (int trial = 0; trial < 50; ++trial) {
            const std::vector<float> a = well_conditioned(rng, n);
            std::vector<float> inv = a;
            ASSERT_EQ(matrix_inv(inv.data(), n), 1);

            const std::vector<double> ref = reference_inverse(a, n);
            for (int i = 0; i < n * n; ++i) {
                EXPECT_NEAR(inv[i], ref[i], 1e-5 * (1.0 + std::fabs(ref[i]))) << "n=" << n << " i=" << i;
            }
            std::vector<float> product(static_cast<size_t>(n * n));
            matrix_multiply(a.data(), inv.data(), n, n, n, product.data());
            expect_identity(product.data(), n, 2e-5f);
        }
    }
}

TEST(MatrixInv, SingularMatricesReportZero) {
    float lone_corner[4] = {0, 0, 0, 3};
    EXPECT_EQ(matrix_inv(lone_corner, 2), 0);

    float zeros[9] = {};
    EXPECT_EQ(matrix_inv(zeros, 3), 0);

    // Third row = first + second: exact rank 2 in float arithmetic.
    float rank2[9] = {1, 2, 4, 2, 4, 8, 3, 6, 12};
    EXPECT_EQ(matrix_inv(rank2, 3), 0);

    // The threshold is absolute: a pivot that vanishes against 1.0 counts as zero,
    // however well conditioned the matrix is.
    float tiny[4] = {1e-20f, 0, 0, 1e-20f};
    EXPECT_EQ(matrix_inv(tiny, 2), 0);
    float small_but_fine[4] = {1e-10f, 0, 0, 1e-10f};
    EXPECT_EQ(matrix_inv(small_but_fine, 2), 1);
    EXPECT_FLOAT_EQ(small_but_fine[0], 1e10f);
}

TEST(MatrixInv, NaNEntriesAreNeverPivotsAndEmptyMatricesAreLeftAlone) {
    float nans[4] = {kNaN, kNaN, kNaN, kNaN};
    EXPECT_EQ(matrix_inv(nans, 2), 0);

    float partly_nan[9] = {1, kNaN, 0, 0, 2, 0, 0, 0, 3};
    const int r = matrix_inv(partly_nan, 3);  // defined, whatever comes out
    EXPECT_TRUE(r == 0 || r == 1);

    float untouched = 7.0f;
    EXPECT_EQ(matrix_inv(&untouched, 0), 1);
    EXPECT_EQ(matrix_inv(&untouched, -3), 0);
    EXPECT_EQ(untouched, 7.0f);

    float one = 4.0f;
    EXPECT_EQ(matrix_inv(&one, 1), 1);
    EXPECT_EQ(one, 0.25f);
}

// ---- element-wise and shape routines ----------------------------------------------

TEST(MatrixShape, CopyTakesColumnsBeforeRowsAndKeepsEveryBit) {
    const float nan_payload = [] {
        uint32_t b = 0x7FC01234u;
        float f;
        std::memcpy(&f, &b, sizeof f);
        return f;
    }();
    const float src[6] = {-0.0f, nan_payload, 1.5f, -2.0f, 3.0f, 1e-45f};
    float dst[8];
    for (float &d : dst) d = 99.0f;
    matrix_copy(src, dst, 3, 2);  // three columns, two rows
    for (int i = 0; i < 6; ++i) EXPECT_EQ(bits(dst[i]), bits(src[i])) << i;
    EXPECT_EQ(dst[6], 99.0f);
    EXPECT_EQ(dst[7], 99.0f);

    matrix_copy(src, dst, 0, 2);
    matrix_copy(src, dst, 3, 0);
    EXPECT_EQ(dst[6], 99.0f);
}

TEST(MatrixShape, TransposeOfTwoByThree) {
    const float m[6] = {1, 2, 3, 4, 5, 6};
    float t[6];
    matrix_turn(m, 2, 3, t);
    const float expected[6] = {1, 4, 2, 5, 3, 6};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(t[i], expected[i]) << i;
}

TEST(MatrixShape, TraceOfADiagonalOrOfAVector) {
    const float m[9] = {1, 100, 100, 100, 2, 100, 100, 100, 4};
    EXPECT_EQ(matrix_trace(m, 3, 3), 7.0f);
    EXPECT_EQ(matrix_trace(m, 3, 1), 201.0f);
    // A 2 x 4 block: the diagonal steps by cols + 1.
    const float wide[8] = {1, 0, 0, 0, 0, 2, 0, 0};
    EXPECT_EQ(matrix_trace(wide, 2, 4), 3.0f);
    EXPECT_EQ(matrix_trace(m, 0, 3), 0.0f);
}

TEST(MatrixShape, ScaleAddSubWorkInPlace) {
    float a[4] = {1, 2, 3, 4};
    float b[4] = {0.5f, 0.5f, -1, 8};
    matrix_add(a, b, 2, 2, a);
    const float sum[4] = {1.5f, 2.5f, 2, 12};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(a[i], sum[i]);
    matrix_sub(a, b, 2, 2, b);
    const float diff[4] = {1, 2, 3, 4};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(b[i], diff[i]);
    matrix_scale(b, 1, 3, -2.0f);
    const float scaled[4] = {-2, -4, -6, 4};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(b[i], scaled[i]);
    matrix_scale(b, 0, 3, 0.0f);
    matrix_add(a, a, 3, 0, b);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(b[i], scaled[i]);
}

TEST(MatrixShape, MultiplyRectangularAndEmptyInnerDimension) {
    const float A[6] = {1, 2, 3, 4, 5, 6};     // 2 x 3
    const float B[6] = {7, 8, 9, 10, 11, 12};  // 3 x 2
    float C[4];
    matrix_multiply(A, B, 2, 3, 2, C);
    const float expected[4] = {58, 64, 139, 154};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(C[i], expected[i]);

    float Z[4] = {5, 5, 5, 5};
    matrix_multiply(A, B, 2, 0, 2, Z);  // empty sum: zeros
    for (float z : Z) EXPECT_EQ(bits(z), 0u);
    float untouched[1] = {5};
    matrix_multiply(A, B, 0, 3, 2, untouched);
    EXPECT_EQ(untouched[0], 5.0f);
}

TEST(MatrixShape, NormIsZeroForNaNAndEmptyInput) {
    const float v[4] = {3, 4, 0, 0};
    EXPECT_EQ(matrix_norm(v, 2), 5.0f);
    EXPECT_EQ(matrix_norm(v, 0), 0.0f);
    const float with_nan[3] = {1, kNaN, 1};
    EXPECT_EQ(matrix_norm(with_nan, 3), 0.0f);
    const float with_inf[2] = {1, std::numeric_limits<float>::infinity()};
    EXPECT_EQ(matrix_norm(with_inf, 2), std::numeric_limits<float>::infinity());
    // Squares above the float range overflow to infinity, not to NaN.
    const float huge[2] = {3e38f, 3e38f};
    EXPECT_EQ(matrix_norm(huge, 2), std::numeric_limits<float>::infinity());
}

// ---- 3 x 3 and 3-vector routines ----------------------------------------------------

TEST(Vector3, DeterminantDotAndCross) {
    const float m[9] = {1, 2, 3, 4, 5, 6, 7, 8, 10};
    EXPECT_EQ(det(m), -3.0f);
    const float swap_xy[9] = {0, 1, 0, 1, 0, 0, 0, 0, 1};
    EXPECT_EQ(det(swap_xy), -1.0f);

    const float a[3] = {1, 2, 3};
    const float b[3] = {-4, 5, 0.5f};
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

// The rotation vector's Euler extraction, in radians.
void euler_of(const float q[4], double e[3]) {
    const double q0 = q[0], q1 = q[1], q2 = q[2], q3 = q[3];
    e[0] = std::atan2(2 * (q0 * q3 + q1 * q2), q0 * q0 + q1 * q1 - q2 * q2 - q3 * q3);
    e[1] = std::asin(-2 * (q1 * q3 - q0 * q2));
    e[2] = std::atan2(2 * (q0 * q1 + q2 * q3), q0 * q0 - q1 * q1 - q2 * q2 + q3 * q3);
}

TEST(InitDcm, ZeroAnglesGiveTheIdentity) {
    const float e[3] = {0, 0, 0};
    float q[4];
    init_dcm(e, q);
    EXPECT_EQ(q[0], 1.0f);
    EXPECT_EQ(q[1], 0.0f);
    EXPECT_EQ(q[2], 0.0f);
    EXPECT_EQ(q[3], 0.0f);
}

TEST(InitDcm, EulerAnglesComeBackThroughTheExtraction) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> heading(-3.14f, 3.14f), pitch(-1.5f, 1.5f), roll(-3.14f, 3.14f);
    for (int trial = 0; trial < 200; ++trial) {
        const float e[3] = {heading(rng), pitch(rng), roll(rng)};
        float q[4];
        init_dcm(e, q);
        EXPECT_NEAR(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3], 1.0f, 1e-6f);
        double back[3];
        euler_of(q, back);
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(back[i], e[i], 2e-4) << "trial " << trial << " angle " << i;
    }
}

TEST(InitDcm, HeadingBeyondHalfATurnIsWrappedOnceAndOnlyUpwards) {
    // GIVEN a heading of 4 rad: the same quaternion as 4 - 6.2832 rad.
    const float e[3] = {4.0f, 0.3f, -0.2f};
    const float wrapped[3] = {static_cast<float>(4.0 - 2.0 * static_cast<double>(3.1416f)), 0.3f, -0.2f};
    float q[4], r[4];
    init_dcm(e, q);
    init_dcm(wrapped, r);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(bits(q[i]), bits(r[i])) << i;

    // The bound itself is not wrapped; the next float above it is.
    const float at_bound[3] = {3.1416f, 0, 0};
    init_dcm(at_bound, q);
    EXPECT_GT(q[3], 0.0f);  // sin(1.5708) > 0: unwrapped
    const float above[3] = {std::nextafter(3.1416f, 4.0f), 0, 0};
    init_dcm(above, q);
    EXPECT_LT(q[3], 0.0f);  // wrapped to just below -pi

    // Below minus half a turn nothing is corrected: -4 rad keeps its own half angles.
    const float low[3] = {-4.0f, 0, 0};
    init_dcm(low, q);
    EXPECT_EQ(q[0], static_cast<float>(std::cos(-2.0)));
    EXPECT_EQ(q[3], static_cast<float>(std::sin(-2.0)));
}

TEST(InitDcm, NaNAnglesStayDefined) {
    const float e[3] = {kNaN, 0, 0};
    float q[4];
    init_dcm(e, q);
    EXPECT_TRUE(std::isnan(q[0]));
}

}  // namespace
