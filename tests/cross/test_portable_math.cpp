// The portable math functions of the identity session against the platform's libm:
// within an ulp of it over the arguments the module uses, and exactly the C
// library's answers at the special values (zeros, infinities, NaN, the edges of the
// domain). This executable does not export them, so std:: here is the platform's.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <initializer_list>
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

// The worst distance in ulps, over kSamples reproducible draws, of what `ulps` measures.
template <class Measure>
uint64_t worst(Measure ulps) {
    Sampler s;
    uint64_t w = 0;
    for (int i = 0; i < kSamples; ++i) w = std::max(w, ulps(s));
    return w;
}

TEST(PortableMath, SquareRootsAreCorrectlyRounded) {
    EXPECT_EQ(worst([](Sampler &s) {
                  const double x = s.uniform(0.0, 1e6);
                  const float xf = static_cast<float>(x);
                  return ulps_between_doubles(portable::sqrt(x), std::sqrt(x)) +
                         ulps_between_floats(portable::sqrtf(xf), sqrtf(xf));
              }),
              0u);
    EXPECT_TRUE(std::isnan(portable::sqrt(-1.0)));
    EXPECT_TRUE(std::isnan(portable::sqrtf(-1.0f)));
    EXPECT_TRUE(std::signbit(portable::sqrt(-0.0)));
    EXPECT_EQ(portable::sqrtf(kInfF), kInfF);
}

// Over the arguments the module uses: radians of headings, half-angles and degrees
// turned into radians; ratios of field components; sines of tilts. Float functions are
// measured against the double libm rounded once to float: the correctly rounded
// result except in rare near-halfway cases.
TEST(PortableMath, OneArgumentFunctionsWithinAnUlp) {
#define LIBM(f) [](double x) { return std::f(x); }
    using D = double (*)(double);
    using F = float (*)(float);
    const struct {
        const char *name;
        D portable_double;
        F portable_float;
        D libm;
        std::initializer_list<double> ranges;  // each from -r to r
        double float_up_to;                    // the float function over the ranges up to this
    } cases[] = {
        {"sin", portable::sin, portable::sinf, LIBM(sin), {0.7, 3.2, 7.0, 400.0}, 7.0},
        {"cos", portable::cos, portable::cosf, LIBM(cos), {0.7, 3.2, 7.0, 400.0}, 7.0},
        {"atan", portable::atan, portable::atanf, LIBM(atan), {1.0, 50.0, 1e4}, 50.0},
        {"asin", portable::asin, portable::asinf, LIBM(asin), {0.5, 1.0}, 1.0},
    };
    for (const auto &c : cases) {
        for (const double r : c.ranges) {
            EXPECT_LE(worst([&](Sampler &s) {
                          const double x = s.uniform(-r, r);
                          return ulps_between_doubles(c.portable_double(x), c.libm(x));
                      }),
                      1u)
                << c.name << " within +-" << r;
            if (r > c.float_up_to) continue;
            EXPECT_LE(worst([&](Sampler &s) {
                          const float x = static_cast<float>(s.uniform(-r, r));
                          return ulps_between_floats(c.portable_float(x), static_cast<float>(c.libm(x)));
                      }),
                      1u)
                << c.name << "f within +-" << r;
        }
    }
#undef LIBM
    float s = 0.0f;
    float c = 0.0f;
    portable::sincosf(0x1.921fb6p+0f, &s, &c);  // the float nearest pi/2
    EXPECT_EQ(s, 1.0f);
    EXPECT_EQ(c, static_cast<float>(std::cos(static_cast<double>(0x1.921fb6p+0f))));
}

TEST(PortableMath, OneArgumentFunctionsAtTheirSpecialValues) {
    EXPECT_TRUE(std::signbit(portable::sin(-0.0)));
    EXPECT_EQ(portable::cos(-0.0), 1.0);
    EXPECT_TRUE(std::isnan(portable::sin(kInf)));
    EXPECT_TRUE(std::isnan(portable::cos(std::nan(""))));
    EXPECT_TRUE(std::isnan(portable::sin(0x1p60)));  // beyond what it can reduce
    EXPECT_EQ(portable::asin(1.0), std::asin(1.0));
    EXPECT_EQ(portable::asinf(-1.0f), asinf(-1.0f));
    EXPECT_TRUE(std::signbit(portable::asin(-0.0)));
    EXPECT_TRUE(std::isnan(portable::asin(1.0000001)));
    EXPECT_TRUE(std::isnan(portable::asinf(-2.0f)));
}

TEST(PortableMath, TwoArgumentFunctionsWithinAnUlp) {
    EXPECT_LE(worst([](Sampler &s) {
                  const double y = s.uniform(-60.0, 60.0), x = s.uniform(-60.0, 60.0);
                  return ulps_between_doubles(portable::atan2(y, x), std::atan2(y, x));
              }),
              1u);
    EXPECT_LE(worst([](Sampler &s) {
                  const float y = static_cast<float>(s.uniform(-60.0, 60.0));
                  const float x = static_cast<float>(s.uniform(-60.0, 60.0));
                  const double exact = std::atan2(static_cast<double>(y), static_cast<double>(x));
                  return ulps_between_floats(portable::atan2f(y, x), static_cast<float>(exact));
              }),
              1u);
    EXPECT_LE(worst([](Sampler &s) {
                  const float x = static_cast<float>(s.uniform(0.0, 200.0));
                  const float y = static_cast<float>(s.uniform(-6.0, 6.0));
                  const double exact = std::pow(static_cast<double>(x), static_cast<double>(y));
                  return ulps_between_floats(portable::powf(x, y), static_cast<float>(exact));
              }),
              1u);
    EXPECT_EQ(portable::powf(-2.0f, 3.0f), -8.0f);
    EXPECT_EQ(portable::powf(-2.0f, -2.0f), 0.25f);
    EXPECT_EQ(portable::powf(10.0f, 39.0f), kInfF);
    EXPECT_EQ(portable::powf(10.0f, -46.0f), 0.0f);
    EXPECT_EQ(portable::powf(2.0f, -149.0f), 0x1p-149f);
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
