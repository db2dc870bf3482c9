// The exported single-precision matrix routines, the input smoothing and the
// gradient-descent update, through the shared library.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <utility>
#include <vector>

#include "calmodule/fusion.h"
#include "fusion/steady_device.h"

namespace {

using fusiontest::bits;
using fusiontest::expect_bits;
using fusiontest::kNaN;

TEST(MatrixInv, KnownInversesIncludingRowAndColumnExchanges) {
    const struct { int n; std::vector<float> a, inverse; } cases[] = {
        {1, {4}, {0.25f}},
        {3, {2, 0, 0, 0, 4, 0, 0, 0, 8}, {0.5f, 0, 0, 0, 0.25f, 0, 0, 0, 0.125f}},
        {2, {0, 1, 1, 0}, {0, 1, 1, 0}},  // a column exchange, undone as a row exchange (zeros may be -0)
        {3, {0, 0, 2, 0, 3, 0, 1, 0, 0}, {0, 0, 1, 0, 1.0f / 3.0f, 0, 0.5f, 0, 0}},  // row and column exchange
        {4, {0, 0, 0, 4, 8, 0, 0, 0, 0, 2, 0, 0, 0, 0, 16, 0},
         {0, 0.125f, 0, 0, 0, 0, 0.5f, 0, 0, 0, 0, 0.0625f, 0.25f, 0, 0, 0}},
    };
    for (auto c : cases) {
        ASSERT_EQ(matrix_inv(c.a.data(), c.n), 1) << "n=" << c.n;
        for (size_t i = 0; i < c.a.size(); ++i) EXPECT_EQ(c.a[i], c.inverse[i]) << "n=" << c.n << " i=" << i;
    }
}

TEST(MatrixInv, RandomWellConditionedMatricesInvertBothWays) {
    std::mt19937 rng(20261123);
    std::uniform_real_distribution<float> u(-1.0f, 1.0f);
    for (int n : {3, 4}) {
        for (int trial = 0; trial < 50; ++trial) {
            // Diagonally dominant, rows shuffled: the largest elements lie off the
            // diagonal, so the elimination exchanges rows and columns.
            std::vector<float> a(static_cast<size_t>(n * n)), inv, p(a.size());
            for (int i = 0; i < n * n; ++i) a[i] = u(rng) + (i % (n + 1) == 0 ? (u(rng) < 0 ? -1.0f : 1.0f) * n : 0.0f);
            for (int i = n - 1; i > 0; --i) {
                std::swap_ranges(a.data() + i * n, a.data() + i * n + n, a.data() + (rng() % (i + 1)) * n);
            }
            inv = a;
            ASSERT_EQ(matrix_inv(inv.data(), n), 1);
            for (auto product : {std::make_pair(a.data(), inv.data()), std::make_pair(inv.data(), a.data())}) {
                matrix_multiply(product.first, product.second, n, n, n, p.data());
                for (int i = 0; i < n * n; ++i) EXPECT_NEAR(p[i], i % (n + 1) == 0 ? 1.0f : 0.0f, 2e-5f) << i;
            }
        }
    }
}

TEST(MatrixInv, SingularDegenerateAndOutOfRange) {
    const struct { const char *what; std::vector<float> a; int n, result; } cases[] = {
        {"lone corner", {0, 0, 0, 3}, 2, 0},
        {"zeros", std::vector<float>(9), 3, 0},
        {"third row = first + second", {1, 2, 4, 2, 4, 8, 3, 6, 12}, 3, 0},
        {"pivot vanishing against 1.0", {1e-20f, 0, 0, 1e-20f}, 2, 0},
        {"small but absolute pivot", {1e-10f, 0, 0, 1e-10f}, 2, 1},
        {"NaN is never a pivot", {kNaN, kNaN, kNaN, kNaN}, 2, 0},
        {"empty", {7}, 0, 1},
        {"negative order", {7}, -3, 0},
    };
    for (auto c : cases) {
        const std::vector<float> before = c.a;
        EXPECT_EQ(matrix_inv(c.a.data(), c.n), c.result) << c.what;
        if (c.n <= 0) { EXPECT_EQ(c.a, before) << c.what; }  // touches nothing
    }
    float small[4] = {1e-10f, 0, 0, 1e-10f};
    matrix_inv(small, 2);
    EXPECT_FLOAT_EQ(small[0], 1e10f);
}

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

    const float v[3] = {3, 4, kNaN}, huge[2] = {3e38f, 3e38f};
    EXPECT_EQ(matrix_norm(v, 2), 5.0f);
    EXPECT_EQ(matrix_norm(v, 3), 0.0f);  // a NaN sum reads as zero
    EXPECT_EQ(matrix_norm(v, 0), 0.0f);
    EXPECT_EQ(matrix_norm(huge, 2), INFINITY);  // squares overflow to infinity, not NaN
}

TEST(MatrixRoutines, DeterminantDotAndCrossOverEitherArgument) {
    const float m[9] = {1, 2, 3, 4, 5, 6, 7, 8, 10}, swap_xy[9] = {0, 1, 0, 1, 0, 0, 0, 0, 1};
    EXPECT_EQ(det(m), -3.0f);
    EXPECT_EQ(det(swap_xy), -1.0f);
    const float a[3] = {1, 2, 3}, b[3] = {-4, 5, 0.5f}, x[3] = {1, 0, 0}, y[3] = {0, 1, 0};
    EXPECT_EQ(dot(a, b), 7.5f);
    float out[3], u[3] = {1, 2, 3}, v[3] = {4, 5, 6};
    cross(x, y, out);
    expect_bits(out, {0, 0, 1});
    cross(u, v, u);  // every input is read first
    expect_bits(u, {-3, 6, -3});
    std::memcpy(u, a, sizeof u);
    cross(u, v, v);
    expect_bits(v, {-3, 6, -3});
}

TEST(InitDcm, EulerAnglesComeBackThroughTheRotationVectorsExtraction) {
    float q[4], r[4];
    const float zero[3] = {0, 0, 0};
    init_dcm(zero, q);
    expect_bits(q, {1, 0, 0, 0});
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> heading(-3.14f, 3.14f), pitch(-1.5f, 1.5f);
    for (int trial = 0; trial < 200; ++trial) {
        const float e[3] = {heading(rng), pitch(rng), heading(rng)};
        init_dcm(e, q);
        const double q0 = q[0], q1 = q[1], q2 = q[2], q3 = q[3];
        const double back[3] = {std::atan2(2 * (q0 * q3 + q1 * q2), q0 * q0 + q1 * q1 - q2 * q2 - q3 * q3),
                                std::asin(-2 * (q1 * q3 - q0 * q2)),
                                std::atan2(2 * (q0 * q1 + q2 * q3), q0 * q0 - q1 * q1 - q2 * q2 + q3 * q3)};
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(back[i], e[i], 2e-4) << "trial " << trial << " angle " << i;
    }
    // A heading above 3.1416 is wrapped once by the double 6.2832 (not twice the float
    // 3.1416, which rounds differently here); 3.1416 itself and headings below minus half
    // a turn are not.
    const float beyond[3] = {4.0f, 0.3f, -0.2f}, wrapped[3] = {static_cast<float>(4.0 - 6.2832), 0.3f, -0.2f};
    init_dcm(beyond, q);
    init_dcm(wrapped, r);
    expect_bits(q, {r[0], r[1], r[2], r[3]});
    const float at_bound[3] = {3.1416f, 0, 0}, above[3] = {std::nextafter(3.1416f, 4.0f), 0, 0}, low[3] = {-4.0f, 0, 0};
    init_dcm(at_bound, q);
    EXPECT_GT(q[3], 0.0f);
    init_dcm(above, q);
    EXPECT_LT(q[3], 0.0f);
    init_dcm(low, q);
    EXPECT_EQ(q[0], static_cast<float>(std::cos(-2.0)));
    EXPECT_EQ(q[3], static_cast<float>(std::sin(-2.0)));
}

TEST(InputSmoothing, TenSampleTrimmedMeanInEachFilterOfItsOwn) {
    // The accelerometer filter runs ahead; the magnetometer filter must not notice.
    for (int i = 0; i < 9; ++i) {
        float v[3] = {5.0f, -7.0f, 1e30f};
        acc_calibration_func(v);
    }
    for (float e : {0, 0, 1, 2, 3, 4, 5, 6, 6, 6, 6, 6}) {  // zeros of the empty ring count at first
        float v[3] = {6.0f, -6.0f, 0.0f};
        mag_calibration_func(v);
        expect_bits(v, {e, 0.0f - e, 0});  // never -0
    }
    // The ramp pins the ten-sample ring and the two values trimmed at each end.
}

TEST(QuaternionProduct, OutputMayBeEitherInput) {
    // (Hamilton's rule itself is pinned through the descent's recorded bits below.)
    const float a0[4] = {0.5f, -1.25f, 2.0f, 0.75f}, b0[4] = {-0.3f, 0.9f, 0.1f, -2.5f};
    float separate[4], a[4], b[4];
    QuaternionProduct(a0, b0, separate);
    std::memcpy(a, a0, sizeof a);
    std::memcpy(b, b0, sizeof b);
    QuaternionProduct(a, b0, a);
    QuaternionProduct(a0, b, b);
    for (const float *out : {a, b}) expect_bits(out, {separate[0], separate[1], separate[2], separate[3]});
}

TEST(GradientDescent, NoStepTakenLeavesTheOutputUntouched) {
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
}

double distance(const float a[4], const float b[4]) {
    double d = 0.0;
    for (int i = 0; i < 4; ++i) {
        const double e = static_cast<double>(a[i]) - static_cast<double>(b[i]);
        d += e * e;
    }
    return std::sqrt(d);
}

TEST(GradientDescent, TenStepsOfFixedLengthTowardsTheAttitudeScalarPartNonNegative) {
    // GIVEN a steady device and a start 0.1 away from its attitude
    const fusiontest::SteadyDevice t(30, 10, 20);
    const float q_in[4] = {t.q[0] + 0.05f, t.q[1] - 0.05f, t.q[2] + 0.05f, t.q[3] - 0.05f}, origin[4] = {};
    float q_out[4];
    GradientDescent(t.gravity_dir, t.field, q_in, 0.02f, q_out);
    // THEN it moved at most ten steps, ended within about one step, and is a unit quaternion
    EXPECT_LE(distance(q_in, q_out), 10 * 0.02 + 0.01);
    EXPECT_LT(distance(q_out, t.q), 0.03);
    EXPECT_NEAR(distance(q_out, origin), 1.0, 1e-6);
    // AND from near minus the identity it reports the equivalent quaternion with q0 >= 0
    const float up[3] = {0, 0, 1}, north[3] = {1, 0, 0}, near_minus_one[4] = {-0.98994949f, 0.14142136f, 0, 0};
    GradientDescent(up, north, near_minus_one, 0.02f, q_out);
    EXPECT_GT(q_out[0], 0.99f);
    EXPECT_LT(std::fabs(q_out[1]), 0.03f);
}

TEST(GradientDescent, TypicalStepsGiveTheRecordedBits) {
    // From the identity towards two steady attitudes (heading, pitch, roll -70, 25, -40
    // and -150, 30, -120 degrees; unit gravity, 45 µT field). The second comes out
    // differently if the residuals around one half are summed in float.
    const struct { float acc[3], mag[3], q[4]; } cases[] = {
        {{-0x1.b0c2d8p-2f, -0x1.2a45bep-1f, 0x1.63779ep-1f}, {0x1.771c2p+4f, 0x1.26793ep+5f, -0x1.5f30c4p+3f},
         {0x1.f6479p-1f, -0x1.11e3a2p-3f, 0x1.fcf0ep-5f, -0x1.01f64ep-3f}},
        {{-0x1p-1f, -0x1.7ffffep-1f, -0x1.bb67b4p-2f}, {0x1.4e2742p+1f, 0x1.0053aap+5f, 0x1.f7d3b2p+4f},
         {0x1.f62a42p-1f, -0x1.582002p-5f, 0x1.531ae4p-3f, -0x1.81b82cp-4f}},
    };
    for (const auto &c : cases) {
        const float q_in[4] = {1, 0, 0, 0};
        float q_out[4];
        GradientDescent(c.acc, c.mag, q_in, 0.02f, q_out);
        expect_bits(q_out, {c.q[0], c.q[1], c.q[2], c.q[3]});
    }
}

}  // namespace
