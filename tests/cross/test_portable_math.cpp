// The portable math functions of the identity session against the platform's libm:
// within an ulp of it over the arguments the module uses, and exactly the C
// library's answers at the special values (zeros, infinities, NaN, the edges of the
// domain). This executable does not export them, so std:: here is the platform's.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include "identity_report.h"
#include "portable_math.h"

namespace {

using identity::ulps_between_doubles;
using identity::ulps_between_floats;

// Reproducible arguments without libm: a linear congruential generator.
struct Sampler {
    uint64_t state = 0x853C49E6748FEA9Bull;
    double unit() {  // [0, 1)
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        return static_cast<double>(state >> 11) * 0x1p-53;
    }
    double uniform(double lo, double hi) { return lo + (hi - lo) * unit(); }
};

constexpr int kSamples = 20000;
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr float kInfF = std::numeric_limits<float>::infinity();

template <class F, class G>
uint64_t worst_double(F portable_fn, G libm_fn, double lo, double hi) {
    Sampler s;
    uint64_t worst = 0;
    for (int i = 0; i < kSamples; ++i) {
        const double x = s.uniform(lo, hi);
        const uint64_t u = ulps_between_doubles(portable_fn(x), libm_fn(x));
        if (u > worst) worst = u;
    }
    return worst;
}

// Float functions against the double libm rounded once to float: the correctly
// rounded result except in rare near-halfway cases.
template <class F, class G>
uint64_t worst_float(F portable_fn, G libm_fn, double lo, double hi) {
    Sampler s;
    uint64_t worst = 0;
    for (int i = 0; i < kSamples; ++i) {
        const float x = static_cast<float>(s.uniform(lo, hi));
        const float want = static_cast<float>(libm_fn(static_cast<double>(x)));
        const uint64_t u = ulps_between_floats(portable_fn(x), want);
        if (u > worst) worst = u;
    }
    return worst;
}

TEST(PortableMath, SquareRootsAreCorrectlyRounded) {
    Sampler s;
    for (int i = 0; i < kSamples; ++i) {
        const double x = s.uniform(0.0, 1e6);
        ASSERT_EQ(portable::sqrt(x), std::sqrt(x)) << x;
        const float xf = static_cast<float>(x);
        ASSERT_EQ(portable::sqrtf(xf), sqrtf(xf)) << xf;
    }
    EXPECT_TRUE(std::isnan(portable::sqrt(-1.0)));
    EXPECT_TRUE(std::isnan(portable::sqrtf(-1.0f)));
    EXPECT_TRUE(std::signbit(portable::sqrt(-0.0)));
    EXPECT_EQ(portable::sqrtf(kInfF), kInfF);
}

TEST(PortableMath, SineAndCosineWithinAnUlpOverTheAnglesTheModuleUses) {
    // Radians of headings, half-angles and degrees turned into radians.
    for (double range : {0.7, 3.2, 7.0, 400.0}) {
        EXPECT_LE(worst_double(portable::sin, [](double x) { return std::sin(x); }, -range, range), 1u) << range;
        EXPECT_LE(worst_double(portable::cos, [](double x) { return std::cos(x); }, -range, range), 1u) << range;
    }
    EXPECT_LE(worst_float(portable::sinf, [](double x) { return std::sin(x); }, -7.0, 7.0), 1u);
    float s = 0.0f;
    float c = 0.0f;
    portable::sincosf(0x1.921fb6p+0f, &s, &c);  // the float nearest pi/2
    EXPECT_EQ(s, 1.0f);
    EXPECT_EQ(c, static_cast<float>(std::cos(static_cast<double>(0x1.921fb6p+0f))));
}

TEST(PortableMath, SineKeepsTheSignOfZeroAndRejectsWhatItCannotReduce) {
    EXPECT_TRUE(std::signbit(portable::sin(-0.0)));
    EXPECT_EQ(portable::cos(-0.0), 1.0);
    EXPECT_TRUE(std::isnan(portable::sin(kInf)));
    EXPECT_TRUE(std::isnan(portable::cos(std::nan(""))));
    EXPECT_TRUE(std::isnan(portable::sin(0x1p60)));
}

TEST(PortableMath, ArctangentsWithinAnUlp) {
    EXPECT_LE(worst_double(portable::atan, [](double x) { return std::atan(x); }, -1.0, 1.0), 1u);
    EXPECT_LE(worst_double(portable::atan, [](double x) { return std::atan(x); }, -1e4, 1e4), 1u);
    EXPECT_LE(worst_float(portable::atanf, [](double x) { return std::atan(x); }, -50.0, 50.0), 1u);
    Sampler s;
    uint64_t worst = 0;
    uint64_t worst_f = 0;
    for (int i = 0; i < kSamples; ++i) {
        const double y = s.uniform(-60.0, 60.0);
        const double x = s.uniform(-60.0, 60.0);
        worst = std::max(worst, ulps_between_doubles(portable::atan2(y, x), std::atan2(y, x)));
        const float yf = static_cast<float>(y);
        const float xf = static_cast<float>(x);
        worst_f = std::max(worst_f, ulps_between_floats(portable::atan2f(yf, xf),
                                                        static_cast<float>(std::atan2(static_cast<double>(yf),
                                                                                      static_cast<double>(xf)))));
    }
    EXPECT_LE(worst, 1u);
    EXPECT_LE(worst_f, 1u);
}

TEST(PortableMath, ArctangentOfTwoArgumentsAtZerosAndInfinitiesMatchesTheCLibrary) {
    const double values[] = {0.0, -0.0, 1.5, -1.5, kInf, -kInf};
    for (double y : values) {
        for (double x : values) {
            EXPECT_EQ(ulps_between_doubles(portable::atan2(y, x), std::atan2(y, x)), 0u) << y << ", " << x;
        }
    }
    EXPECT_TRUE(std::isnan(portable::atan2(std::nan(""), 1.0)));
    EXPECT_TRUE(std::isnan(portable::atan2f(1.0f, std::nanf(""))));
}

TEST(PortableMath, ArcsineWithinAnUlpAndNanOutsideItsDomain) {
    EXPECT_LE(worst_double(portable::asin, [](double x) { return std::asin(x); }, -0.5, 0.5), 1u);
    EXPECT_LE(worst_double(portable::asin, [](double x) { return std::asin(x); }, 0.5, 1.0), 1u);
    EXPECT_LE(worst_double(portable::asin, [](double x) { return std::asin(x); }, -1.0, -0.5), 1u);
    EXPECT_LE(worst_float(portable::asinf, [](double x) { return std::asin(x); }, -1.0, 1.0), 1u);
    EXPECT_EQ(portable::asin(1.0), std::asin(1.0));
    EXPECT_EQ(portable::asinf(-1.0f), asinf(-1.0f));
    EXPECT_TRUE(std::signbit(portable::asin(-0.0)));
    EXPECT_TRUE(std::isnan(portable::asin(1.0000001)));
    EXPECT_TRUE(std::isnan(portable::asinf(-2.0f)));
}

TEST(PortableMath, PowerWithinAnUlp) {
    Sampler s;
    uint64_t worst = 0;
    for (int i = 0; i < kSamples; ++i) {
        const float x = static_cast<float>(s.uniform(0.0, 200.0));
        const float y = static_cast<float>(s.uniform(-6.0, 6.0));
        const float want = static_cast<float>(std::pow(static_cast<double>(x), static_cast<double>(y)));
        worst = std::max(worst, ulps_between_floats(portable::powf(x, y), want));
    }
    EXPECT_LE(worst, 1u);
    EXPECT_EQ(portable::powf(-2.0f, 3.0f), -8.0f);
    EXPECT_EQ(portable::powf(-2.0f, -2.0f), 0.25f);
    EXPECT_EQ(portable::powf(10.0f, 39.0f), kInfF);
    EXPECT_EQ(portable::powf(10.0f, -46.0f), 0.0f);
    EXPECT_EQ(portable::powf(2.0f, -149.0f), 0x1p-149f);
}

TEST(PortableMath, PowerAtItsSpecialValuesMatchesTheCLibrary) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float values[] = {0.0f, -0.0f, 1.0f, -1.0f, 0.5f, -0.5f, 2.0f, -2.0f, 3.0f, -3.0f, 2.5f, kInfF, -kInfF, nan};
    for (float x : values) {
        for (float y : values) {
            EXPECT_EQ(ulps_between_floats(portable::powf(x, y), powf(x, y)), 0u) << x << " ^ " << y;
            if (!std::isnan(powf(x, y))) {
                EXPECT_EQ(std::signbit(portable::powf(x, y)), std::signbit(powf(x, y))) << x << " ^ " << y;
            }
        }
    }
}

}  // namespace
