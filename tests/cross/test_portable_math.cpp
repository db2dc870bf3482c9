// The reproducible math against the platform's libm: within an ulp of it over the
// arguments the module uses, and exactly the C library's answers at the special values
// (zeros, infinities, NaN, the edges of the domain). This executable does not link the
// portable functions under the C names, so std:: here is the platform's.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <limits>

#include "identity_report.h"
#include "reproducible_math/portable_math.h"

namespace {

using identity::ulps_between_doubles;
using identity::ulps_between_floats;

// Reproducible arguments without libm: a linear congruential generator.
struct Sampler {
    uint64_t state = 0x853C49E6748FEA9Bull;
    double uniform(double lo, double hi) {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        return lo + (hi - lo) * (static_cast<double>(state >> 11) * 0x1p-53);
    }
};

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr float kInfF = std::numeric_limits<float>::infinity();

// The worst distance in ulps, over 20000 reproducible draws, of what `ulps` measures.
template <class Measure>
uint64_t worst(Measure ulps) {
    Sampler s;
    uint64_t w = 0;
    for (int i = 0; i < 20000; ++i) w = std::max(w, ulps(s));
    return w;
}

// Equal as the C library means it: the same value and sign, or both NaN.
bool same(double a, double b) { return ulps_between_doubles(a, b) == 0 && std::signbit(a) == std::signbit(b); }
bool same(float a, float b) { return ulps_between_floats(a, b) == 0 && std::signbit(a) == std::signbit(b); }

TEST(PortableMath, SquareRootsCorrectlyRoundedAndTheCubeWithinAnUlp) {
    EXPECT_EQ(worst([](Sampler &s) {
                  const double x = s.uniform(0.0, 1e6);
                  const float xf = static_cast<float>(x);
                  return ulps_between_doubles(portable::sqrt(x), std::sqrt(x)) +
                         ulps_between_floats(portable::sqrtf(xf), sqrtf(xf));
              }),
              0u);
    // Field components in microtesla, and values from the bottom to the top of the
    // float range.
    for (const double r : {2000.0, 1e-13, 1e12}) {
        EXPECT_LE(worst([r](Sampler &s) {
                      const float x = static_cast<float>(s.uniform(-r, r));
                      return ulps_between_floats(portable::cubef(x),
                                                 static_cast<float>(std::pow(static_cast<double>(x), 3.0)));
                  }),
                  1u)
            << "within +-" << r;
    }
    const float nan = std::numeric_limits<float>::quiet_NaN();
    // Signed zeros, infinities, NaN, exact cubes, overflow, and results that vanish.
    for (const float x : {0.0f, -0.0f, kInfF, -kInfF, nan, -1.0f, -2.5f, 7e12f, -7e12f, 1e-45f}) {
        EXPECT_TRUE(same(portable::cubef(x), powf(x, 3.0f))) << x;
    }
    for (const double x : {-1.0, -0.0, kInf}) EXPECT_TRUE(same(portable::sqrt(x), std::sqrt(x))) << x;
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
#undef LIBM
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
                          return ulps_between_floats(c.portable_float(x), static_cast<float>(c.libm(static_cast<double>(x))));
                      }),
                      1u)
                << c.name << "f within +-" << r;
        }
    }
    float s = 0.0f;
    float c = 0.0f;
    portable::sincosf(0x1.921fb6p+0f, &s, &c);  // the float nearest pi/2
    EXPECT_EQ(s, 1.0f);
    EXPECT_EQ(c, static_cast<float>(std::cos(static_cast<double>(0x1.921fb6p+0f))));
}

TEST(PortableMath, OneArgumentFunctionsAtTheirSpecialValues) {
    EXPECT_TRUE(same(portable::sin(-0.0), -0.0));
    EXPECT_EQ(portable::cos(-0.0), 1.0);
    EXPECT_TRUE(std::isnan(portable::sin(kInf)));
    EXPECT_TRUE(std::isnan(portable::cos(std::nan(""))));
    EXPECT_TRUE(std::isnan(portable::sin(0x1p60)));  // beyond what it can reduce
    EXPECT_EQ(portable::asin(1.0), std::asin(1.0));
    EXPECT_EQ(portable::asinf(-1.0f), asinf(-1.0f));
    EXPECT_TRUE(same(portable::asin(-0.0), -0.0));
    EXPECT_TRUE(std::isnan(portable::asin(1.0000001)));
    EXPECT_TRUE(std::isnan(portable::asinf(-2.0f)));
}

TEST(PortableMath, ArctangentOfTwoArgumentsWithinAnUlpAndExactAtZerosAndInfinities) {
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
    const double values[] = {0.0, -0.0, 1.5, -1.5, kInf, -kInf};
    for (double y : values) {
        for (double x : values) EXPECT_TRUE(same(portable::atan2(y, x), std::atan2(y, x))) << y << ", " << x;
    }
    EXPECT_TRUE(std::isnan(portable::atan2(std::nan(""), 1.0)));
    EXPECT_TRUE(std::isnan(portable::atan2f(1.0f, std::nanf(""))));
}

}  // namespace
