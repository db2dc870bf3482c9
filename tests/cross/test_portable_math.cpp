// The reproducible math against the platform's libm: within an ulp of it over the
// arguments the module uses, and exactly the C library's answers at the special values
// (zeros, infinities, NaN, the edges of the domain). This executable does not link the
// portable functions under the C names, so std:: here is the platform's.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <vector>

#include "identity_report.h"
#include "reproducible_math/portable_math.h"

namespace {

using identity::ulps_between_doubles;
using identity::ulps_between_floats;

// Reproducible arguments without libm: a linear congruential generator.
struct Sampler {
    uint64_t state = 0x853C49E6748FEA9Bull;
    double uniform(double r) {  // in [-r, r)
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        return r * (static_cast<double>(state >> 11) * 0x1p-52 - 1.0);
    }
};

// Over the arguments the module uses: field components in microtesla and the float
// range's ends for roots and cubes; radians of headings, half-angles and degrees turned
// into radians; ratios of field components; sines of tilts; field components for atan2.
// Float functions are measured against the double libm rounded once to float: the
// correctly rounded result except in rare near-halfway cases.
TEST(PortableMath, WithinAnUlpOfThePlatformOverTheArgumentsTheModuleUses) {
#define LIBM(f) [](double y, double x) { return std::f; }
    using D = double (*)(double, double);
    using F = float (*)(float, float);
    const struct {
        const char *name;
        D portable_double;  // null: the float function alone
        F portable_float;
        D libm;
        std::initializer_list<double> ranges;  // each from -r to r
        double float_up_to;                    // the float function over the ranges up to this
        uint64_t ulps;
    } cases[] = {
        {"sqrt", [](double, double x) { return portable::sqrt(std::fabs(x)); },
         [](float, float x) { return portable::sqrtf(std::fabs(x)); }, LIBM(sqrt(std::fabs(x))), {1e6}, 1e6, 0},
        {"cube", nullptr, [](float, float x) { return portable::cubef(x); }, LIBM(pow(x, 3.0)), {2000, 1e-13, 1e12},
         1e12, 1},
        {"sin", [](double, double x) { return portable::sin(x); }, [](float, float x) { return portable::sinf(x); },
         LIBM(sin(x)), {0.7, 3.2, 7.0, 400.0}, 7.0, 1},
        {"cos", [](double, double x) { return portable::cos(x); }, [](float, float x) { return portable::cosf(x); },
         LIBM(cos(x)), {0.7, 3.2, 7.0, 400.0}, 7.0, 1},
        {"atan", [](double, double x) { return portable::atan(x); }, [](float, float x) { return portable::atanf(x); },
         LIBM(atan(x)), {1.0, 50.0, 1e4}, 50.0, 1},
        {"asin", [](double, double x) { return portable::asin(x); }, [](float, float x) { return portable::asinf(x); },
         LIBM(asin(x)), {0.5, 1.0}, 1.0, 1},
        {"atan2", portable::atan2, portable::atan2f, LIBM(atan2(y, x)), {60.0}, 60.0, 1},
    };
#undef LIBM
    for (const auto &c : cases) {
        for (const double r : c.ranges) {
            Sampler s;
            uint64_t worst_double = 0, worst_float = 0;
            for (int i = 0; i < 20000; ++i) {
                const double y = s.uniform(r), x = s.uniform(r);
                if (c.portable_double) {
                    worst_double = std::max(worst_double, ulps_between_doubles(c.portable_double(y, x), c.libm(y, x)));
                }
                const float yf = static_cast<float>(y), xf = static_cast<float>(x);
                const float want = static_cast<float>(c.libm(static_cast<double>(yf), static_cast<double>(xf)));
                if (r > c.float_up_to) continue;
                worst_float = std::max(worst_float, ulps_between_floats(c.portable_float(yf, xf), want));
            }
            EXPECT_LE(worst_double, c.ulps) << c.name << " within +-" << r;
            EXPECT_LE(worst_float, c.ulps) << c.name << "f within +-" << r;
        }
    }
}

TEST(PortableMath, TheCLibrarysAnswersAtSpecialValues) {
    const double inf = INFINITY, nan = NAN;
    std::vector<std::pair<double, double>> cases = {  // {portable, the C library's}
        {portable::sin(-0.0), -0.0},       {portable::cos(-0.0), 1.0},           {portable::sin(inf), nan},
        {portable::cos(nan), nan},         {portable::sin(0x1p60), nan},  // beyond what it can reduce
        {portable::asin(1.0), std::asin(1.0)}, {portable::asinf(-1.0f), asinf(-1.0f)}, {portable::asin(-0.0), -0.0},
        {portable::asin(1.0000001), nan},  {portable::asinf(-2.0f), nan},        {portable::atan2(nan, 1.0), nan},
        {portable::atan2f(1.0f, NAN), nan},
    };
    float s = 0.0f, c = 0.0f;
    portable::sincosf(0x1.921fb6p+0f, &s, &c);  // the float nearest pi/2
    cases.insert(cases.end(), {{s, 1.0}, {c, static_cast<float>(std::cos(static_cast<double>(0x1.921fb6p+0f)))}});
    for (const double x : {-1.0, -0.0, inf}) cases.push_back({portable::sqrt(x), std::sqrt(x)});
    // Signed zeros, infinities, NaN, exact cubes, overflow, and results that vanish.
    for (const float x : {0.0f, -0.0f, INFINITY, -INFINITY, NAN, -1.0f, -2.5f, 7e12f, -7e12f, 1e-45f}) {
        cases.push_back({portable::cubef(x), powf(x, 3.0f)});
    }
    for (const double y : {0.0, -0.0, 1.5, -1.5, inf, -inf}) {
        for (const double x : {0.0, -0.0, 1.5, -1.5, inf, -inf}) {
            cases.push_back({portable::atan2(y, x), std::atan2(y, x)});
        }
    }
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const auto [got, want] = cases[i];
        // Equal as the C library means it: the same value and sign, or both NaN.
        EXPECT_TRUE(std::isnan(want) ? std::isnan(got) : got == want && std::signbit(got) == std::signbit(want))
            << "case " << i << ": " << got << " instead of " << want;
    }
}

}  // namespace
