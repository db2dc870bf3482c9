// Portable math: see portable_math.h. Compiled with -ffp-contract=off and
// -fno-builtin, so every operation below is one IEEE operation in double precision
// (or single where a float is stored), in the order written, on every target.
//
// The constants are the exact values rounded to double: Taylor coefficients 1/n!,
// 1/(2k+1) and the central binomial series of arcsine, pi/2 split into three parts of
// which the first two have 33 significant bits (so k * part is exact for |k| < 2^20),
// ln 2 split into a 32-bit head and a tail.
#include "portable_math.h"

#include <cstdint>
#include <cstring>

namespace portable {
namespace {

constexpr double kPio2Part1 = 0x1.921fb54400000p+0;
constexpr double kPio2Part2 = 0x1.0b4611a600000p-34;
constexpr double kPio2Part3 = 0x1.3198a2e037073p-69;
constexpr double kPio2Hi = 0x1.921fb54442d18p+0;
constexpr double kPio2Lo = 0x1.1a62633145c07p-54;
constexpr double kPio4Hi = 0x1.921fb54442d18p-1;
constexpr double kPio4Lo = 0x1.1a62633145c07p-55;
constexpr double kPiHi = 0x1.921fb54442d18p+1;
constexpr double kPiLo = 0x1.1a62633145c07p-53;
constexpr double kTwoOverPi = 0x1.45f306dc9c883p-1;
constexpr double kTanPi8 = 0x1.a827999fcef34p-2;  // sqrt(2) - 1
constexpr double kLn2Hi = 0x1.62e42ff000000p-1;
constexpr double kLn2Lo = -0x1.718432a1b0e26p-35;
constexpr double kInvLn2 = 0x1.71547652b82fep+0;
constexpr double kSqrt2 = 0x1.6a09e667f3bcdp+0;
constexpr double kRoundMagic = 0x1.8p52;  // (t + magic) - magic rounds |t| < 2^51 to an integer

// sin: (-1)^k / (2k+1)!, k = 1..11
constexpr double kSinCoef[] = {-0x1.5555555555555p-3, 0x1.1111111111111p-7,  -0x1.a01a01a01a01ap-13,
                               0x1.71de3a556c734p-19, -0x1.ae64567f544e4p-26, 0x1.6124613a86d09p-33,
                               -0x1.ae7f3e733b81fp-41, 0x1.952c77030ad4ap-49, -0x1.2f49b46814157p-57,
                               0x1.71b8ef6dcf572p-66, -0x1.761b41316381ap-75};
// cos: (-1)^k / (2k)!, k = 2..12
constexpr double kCosCoef[] = {0x1.5555555555555p-5,  -0x1.6c16c16c16c17p-10, 0x1.a01a01a01a01ap-16,
                               -0x1.27e4fb7789f5cp-22, 0x1.1eed8eff8d898p-29,  -0x1.93974a8c07c9dp-37,
                               0x1.ae7f3e733b81fp-45,  -0x1.6827863b97d97p-53, 0x1.e542ba4020225p-62,
                               -0x1.0ce396db7f853p-70, 0x1.f2cf01972f578p-80};
// atan: (-1)^k / (2k+1), k = 1..22
constexpr double kAtanCoef[] = {
    -0x1.5555555555555p-2, 0x1.999999999999ap-3,  -0x1.2492492492492p-3, 0x1.c71c71c71c71cp-4,
    -0x1.745d1745d1746p-4, 0x1.3b13b13b13b14p-4,  -0x1.1111111111111p-4, 0x1.e1e1e1e1e1e1ep-5,
    -0x1.af286bca1af28p-5, 0x1.8618618618618p-5,  -0x1.642c8590b2164p-5, 0x1.47ae147ae147bp-5,
    -0x1.2f684bda12f68p-5, 0x1.1a7b9611a7b96p-5,  -0x1.0842108421084p-5, 0x1.f07c1f07c1f08p-6,
    -0x1.d41d41d41d41dp-6, 0x1.bacf914c1bad0p-6,  -0x1.a41a41a41a41ap-6, 0x1.8f9c18f9c18fap-6,
    -0x1.7d05f417d05f4p-6, 0x1.6c16c16c16c17p-6};
// asin: (2k)! / (4^k (k!)^2 (2k+1)), k = 1..26
constexpr double kAsinCoef[] = {
    0x1.5555555555555p-3, 0x1.3333333333333p-4, 0x1.6db6db6db6db7p-5, 0x1.f1c71c71c71c7p-6,
    0x1.6e8ba2e8ba2e9p-6, 0x1.1c4ec4ec4ec4fp-6, 0x1.c99999999999ap-7, 0x1.7a87878787878p-7,
    0x1.3fde50d79435ep-7, 0x1.12ef3cf3cf3cfp-7, 0x1.df3bd37a6f4dfp-8, 0x1.a6863d70a3d71p-8,
    0x1.782dda12f684cp-8, 0x1.51ba308d3dcb1p-8, 0x1.31683bdef7bdfp-8, 0x1.15ee9d45d1746p-8,
    0x1.fcaf8fb6db6dbp-9, 0x1.d3d2a8e0dd67dp-9, 0x1.b026f57b13b14p-9, 0x1.90cb77f60c7cep-9,
    0x1.750de64d7d05fp-9, 0x1.5c5f56efaaaabp-9, 0x1.464c0950f7d47p-9, 0x1.3275586c5f2f0p-9,
    0x1.208d3570ae5a6p-9, 0x1.1052bc5fa960ap-9};
// log: 2 / (2k+1), k = 1..12 (ln m = 2 atanh s)
constexpr double kLogCoef[] = {0x1.5555555555555p-1, 0x1.999999999999ap-2, 0x1.2492492492492p-2,
                               0x1.c71c71c71c71cp-3, 0x1.745d1745d1746p-3, 0x1.3b13b13b13b14p-3,
                               0x1.1111111111111p-3, 0x1.e1e1e1e1e1e1ep-4, 0x1.af286bca1af28p-4,
                               0x1.8618618618618p-4, 0x1.642c8590b2164p-4, 0x1.47ae147ae147bp-4};
// exp: 1 / k!, k = 2..17
constexpr double kExpCoef[] = {0x1.0000000000000p-1, 0x1.5555555555555p-3, 0x1.5555555555555p-5,
                               0x1.1111111111111p-7, 0x1.6c16c16c16c17p-10, 0x1.a01a01a01a01ap-13,
                               0x1.a01a01a01a01ap-16, 0x1.71de3a556c734p-19, 0x1.27e4fb7789f5cp-22,
                               0x1.ae64567f544e4p-26, 0x1.1eed8eff8d898p-29, 0x1.6124613a86d09p-33,
                               0x1.93974a8c07c9dp-37, 0x1.ae7f3e733b81fp-41, 0x1.ae7f3e733b81fp-45,
                               0x1.952c77030ad4ap-49};

template <std::size_t N>
double horner(const double (&c)[N], double z) {
    double p = c[N - 1];
    for (std::size_t i = N - 1; i-- > 0;) p = p * z + c[i];
    return p;
}

uint64_t bits_of(double x) {
    uint64_t b;
    std::memcpy(&b, &x, sizeof b);
    return b;
}
double from_bits(uint64_t b) {
    double x;
    std::memcpy(&x, &b, sizeof x);
    return x;
}
float float_from_bits(uint32_t b) {
    float x;
    std::memcpy(&x, &b, sizeof x);
    return x;
}
bool is_nan(double x) { return x != x; }
bool sign_bit(double x) { return (bits_of(x) >> 63) != 0; }
double abs_of(double x) { return from_bits(bits_of(x) & 0x7FFFFFFFFFFFFFFFull); }
double quiet_nan() { return from_bits(0x7FF8000000000000ull); }
double infinity() { return from_bits(0x7FF0000000000000ull); }
float float_infinity() { return float_from_bits(0x7F800000u); }
float float_nan() { return float_from_bits(0x7FC00000u); }

// a + b = s + err exactly.
void two_sum(double a, double b, double *s, double *err) {
    *s = a + b;
    const double bb = *s - a;
    *err = (a - (*s - bb)) + (b - bb);
}

// The rounding error of a * b, exactly, by Veltkamp splitting (no fused operation).
double two_prod_err(double a, double b, double p) {
    constexpr double kSplit = 0x1.0000002p+27;  // 2^27 + 1
    const double ca = kSplit * a;
    const double ah = ca - (ca - a);
    const double al = a - ah;
    const double cb = kSplit * b;
    const double bh = cb - (cb - b);
    const double bl = b - bh;
    return ((ah * bh - p) + ah * bl + al * bh) + al * bl;
}

// Narrows to float; values past the largest float round to infinity, as IEEE
// narrowing does, without relying on the language for out-of-range conversions.
float narrow(double r) {
    constexpr double kFloatOverflow = 0x1.ffffffp127;  // halfway past FLT_MAX
    if (r >= kFloatOverflow) return float_infinity();
    if (r <= -kFloatOverflow) return -float_infinity();
    return static_cast<float>(r);
}

// sin(r + rlo) and cos(r + rlo) for |r| <= pi/4 (plus a rounding), rlo below an ulp of r.
double kernel_sin(double r, double rlo) {
    const double z = r * r;
    return r + (r * z * horner(kSinCoef, z) + rlo * (1.0 - 0.5 * z));
}
double kernel_cos(double r, double rlo) {
    const double zh = r * r;
    const double zl = two_prod_err(r, r, zh);
    const double hz = 0.5 * zh;
    const double w = 1.0 - hz;
    const double w_err = (1.0 - w) - hz;  // both steps exact: captures the rounding of w
    return w + ((w_err - 0.5 * zl) + (zh * zh * horner(kCosCoef, zh) - r * rlo));
}

struct Reduced {
    double hi = 0.0;
    double lo = 0.0;
    int quadrant = 0;
};

// x = k pi/2 + (hi + lo), |hi| <= pi/4 (about), quadrant = k mod 4. False for NaN,
// infinities and |x| >= 2^50.
bool reduce(double x, Reduced *out) {
    const double ax = abs_of(x);
    if (!(ax < 0x1p50)) return false;
    if (ax <= kPio4Hi) {
        out->hi = x;
        out->lo = 0.0;
        out->quadrant = 0;
        return true;
    }
    const double k = (x * kTwoOverPi + kRoundMagic) - kRoundMagic;
    const double a = x - k * kPio2Part1;
    double hi;
    double lo;
    two_sum(a, -(k * kPio2Part2), &hi, &lo);
    lo = lo - k * kPio2Part3;
    const double r = hi + lo;
    out->lo = lo - (r - hi);
    out->hi = r;
    out->quadrant = static_cast<int>(static_cast<int64_t>(k) & 3);
    return true;
}

// atan(u + ulo) for |u| <= tan(pi/8), ulo below an ulp of u.
double atan_series(double u, double ulo) {
    const double z = u * u;
    return u + (u * z * horner(kAtanCoef, z) + ulo / (1.0 + z));
}

// atan(t + tlo) for 0 <= t <= 1. Above tan(pi/8): pi/4 + atan((t - 1) / (t + 1)), the
// quotient carried with its rounding error.
double atan_unit(double t, double tlo) {
    if (t > kTanPi8) {
        double n;
        double n_err;
        double d;
        double d_err;
        two_sum(t, -1.0, &n, &n_err);
        two_sum(t, 1.0, &d, &d_err);
        const double u = n / d;
        const double p = u * d;
        const double rem = ((n - p) - two_prod_err(u, d, p)) + (n_err + tlo) - u * (d_err + tlo);
        return kPio4Hi + (atan_series(u, rem / d) + kPio4Lo);
    }
    return atan_series(t, tlo);
}

// atan(a + alo) for a >= 0 (alo below an ulp of a); above 1 through pi/2 - atan(1/a).
double atan_positive(double a, double alo) {
    if (a > 0x1p60) return kPio2Hi;
    if (a > 1.0) {
        const double t = 1.0 / a;
        const double p = t * a;
        const double tlo = ((1.0 - p) - two_prod_err(t, a, p)) / a - alo * t * t;
        return kPio2Hi - (atan_unit(t, tlo) - kPio2Lo);
    }
    return atan_unit(a, alo);
}

// ln x for a positive, finite x that is a normal double (every float is): x = 2^e m
// with m in (sqrt(2)/2, sqrt(2)], ln m = 2 atanh s, s = (m - 1) / (m + 1).
double log_positive(double x) {
    const uint64_t b = bits_of(x);
    int e = static_cast<int>((b >> 52) & 0x7FF) - 1023;
    double m = from_bits((b & 0x000FFFFFFFFFFFFFull) | 0x3FF0000000000000ull);  // [1, 2)
    if (m > kSqrt2) {
        m = m * 0.5;
        e += 1;
    }
    const double s = (m - 1.0) / (m + 1.0);
    const double z = s * s;
    const double ln_m = 2.0 * s + s * z * horner(kLogCoef, z);
    const double de = static_cast<double>(e);
    return de * kLn2Hi + (ln_m + de * kLn2Lo);
}

// e^x for |x| < 700, where the result is a normal double: x = k ln 2 + r, |r| <= ln 2 / 2.
double exp_moderate(double x) {
    const double k = (x * kInvLn2 + kRoundMagic) - kRoundMagic;
    const double r = (x - k * kLn2Hi) - k * kLn2Lo;
    const double er = 1.0 + (r + r * r * horner(kExpCoef, r));
    return er * from_bits(static_cast<uint64_t>(static_cast<int>(k) + 1023) << 52);
}

double asin_series(double s) {  // 0 <= s <= 0.5: s^3 P(s^2), the part beyond s
    const double z = s * s;
    return s * z * horner(kAsinCoef, z);
}

}  // namespace

double sqrt(double x) {
    double r;
#if defined(__x86_64__)
    __asm__("sqrtsd %1, %0" : "=x"(r) : "x"(x));
#elif defined(__aarch64__)
    __asm__("fsqrt %d0, %d1" : "=w"(r) : "w"(x));
#elif defined(__arm__) && defined(__ARM_FP)
    __asm__("vsqrt.f64 %P0, %P1" : "=w"(r) : "w"(x));
#else
#error "no correctly rounded square root instruction known for this target"
#endif
    return r;
}

float sqrtf(float x) {
    float r;
#if defined(__x86_64__)
    __asm__("sqrtss %1, %0" : "=x"(r) : "x"(x));
#elif defined(__aarch64__)
    __asm__("fsqrt %s0, %s1" : "=w"(r) : "w"(x));
#elif defined(__arm__) && defined(__ARM_FP)
    __asm__("vsqrt.f32 %0, %1" : "=t"(r) : "t"(x));
#else
#error "no correctly rounded square root instruction known for this target"
#endif
    return r;
}

void sincos(double x, double *s, double *c) {
    if (abs_of(x) < 0x1p-27) {  // keeps the sign of a zero
        *s = x;
        *c = 1.0;
        return;
    }
    Reduced r;
    if (!reduce(x, &r)) {
        *s = quiet_nan();
        *c = quiet_nan();
        return;
    }
    const double ks = kernel_sin(r.hi, r.lo);
    const double kc = kernel_cos(r.hi, r.lo);
    switch (r.quadrant) {
        case 0: *s = ks; *c = kc; break;
        case 1: *s = kc; *c = -ks; break;
        case 2: *s = -ks; *c = -kc; break;
        default: *s = -kc; *c = ks; break;
    }
}

double sin(double x) {
    double s;
    double c;
    sincos(x, &s, &c);
    return s;
}

double cos(double x) {
    double s;
    double c;
    sincos(x, &s, &c);
    return c;
}

void sincosf(float x, float *s, float *c) {
    double sd;
    double cd;
    sincos(static_cast<double>(x), &sd, &cd);
    *s = static_cast<float>(sd);
    *c = static_cast<float>(cd);
}

float sinf(float x) { return static_cast<float>(sin(static_cast<double>(x))); }
float cosf(float x) { return static_cast<float>(cos(static_cast<double>(x))); }

double atan(double x) {
    if (is_nan(x)) return x + x;
    const double a = abs_of(x);
    if (a < 0x1p-27) return x;
    const double r = atan_positive(a, 0.0);
    return sign_bit(x) ? -r : r;
}

float atanf(float x) { return static_cast<float>(atan(static_cast<double>(x))); }

double atan2(double y, double x) {
    if (is_nan(x) || is_nan(y)) return x + y;
    const bool neg_y = sign_bit(y);
    const bool neg_x = sign_bit(x);
    const double ay = abs_of(y);
    const double ax = abs_of(x);
    double r;
    if (ay == 0.0) {
        r = neg_x ? kPiHi : 0.0;
    } else if (ax == 0.0) {
        r = kPio2Hi;
    } else if (ax == infinity()) {
        if (ay == infinity()) {
            r = neg_x ? 3.0 * kPio4Hi : kPio4Hi;
        } else {
            r = neg_x ? kPiHi : 0.0;
        }
    } else if (ay == infinity()) {
        r = kPio2Hi;
    } else {
        // The quotient and, where no step can overflow or underflow, its rounding error.
        const double q = ay / ax;
        double qlo = 0.0;
        if (ax > 0x1p-400 && ax < 0x1p400 && q > 0x1p-400 && q < 0x1p400) {
            const double p = q * ax;
            qlo = ((ay - p) - two_prod_err(q, ax, p)) / ax;
        }
        const double z = atan_positive(q, qlo);  // q may round to 0 or to infinity: both fine
        r = neg_x ? kPiHi - (z - kPiLo) : z;
    }
    return neg_y ? -r : r;
}

float atan2f(float y, float x) {
    return static_cast<float>(atan2(static_cast<double>(y), static_cast<double>(x)));
}

double asin(double x) {
    if (is_nan(x)) return x + x;
    const double a = abs_of(x);
    if (a > 1.0) return quiet_nan();
    if (a < 0x1p-27) return x;
    double r;
    if (a <= 0.5) {
        r = a + asin_series(a);
    } else if (a == 1.0) {
        r = kPio2Hi;
    } else {
        // asin a = pi/2 - 2 asin s with s = sqrt((1 - a) / 2); t is exact. s carries
        // the rounding of the root as s_lo (t - s^2 computed exactly, over 2 s).
        const double t = (1.0 - a) * 0.5;
        const double s = sqrt(t);
        const double p = s * s;
        const double e = (t - p) - two_prod_err(s, s, p);
        const double s_lo = e / (s + s);
        const double tail = asin_series(s) + s_lo / sqrt(1.0 - t);
        double head;
        double head_err;
        two_sum(kPio2Hi, -2.0 * s, &head, &head_err);
        r = head + (head_err + (kPio2Lo - 2.0 * tail));
    }
    return sign_bit(x) ? -r : r;
}

float asinf(float x) { return static_cast<float>(asin(static_cast<double>(x))); }

float cubef(float x) {
    const double xd = static_cast<double>(x);
    if (is_nan(xd)) return float_nan();
    const double ax = abs_of(xd);
    if (ax == 0.0 || ax == infinity()) return narrow(xd * xd * xd);  // signed as x
    const double r = exp_moderate(3.0 * log_positive(ax));
    return narrow(sign_bit(xd) ? -r : r);
}

}  // namespace portable
