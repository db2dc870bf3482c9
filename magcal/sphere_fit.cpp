// Sphere fit: twelve well-spread samples give one estimate of the hard-iron offset.
//
// The samples are fitted by linear least squares to x² + y² + z² = a·x + b·y + c·z − d;
// the centre (a/2, b/2, c/2) is the offset seen by this buffer and
// sqrt((a² + b² + c²)/4 − d) the local field strength. A fit whose radius is not an
// earth-like field, or that strays from the radii held before, is not kept; the offset
// reported is the mean centre of all held fits.
#include <cmath>
#include <cstdint>
#include <cstring>

#include "calmodule/magcal.h"
#include "magcal/magcal_internal.h"

namespace {

constexpr double kRadiusMax = 55.0;  // µT
constexpr double kRadiusMin = 25.0;
constexpr float kSecondFitTolerance = 5.0f;
constexpr float kModerateDeviation = 4.0f;
constexpr float kGrossDeviation = 8.0f;
constexpr int32_t kRunLimit = 4;
constexpr int32_t kGrossRun = 10;
constexpr int kOrder = 4;

void clear_fit(magcal_record *record, int32_t i) {
    record->radius[i] = 0.0f;
    for (int k = 0; k < 4; ++k) record->sphere[i][k] = 0.0f;
}

void swap_fits(magcal_record *record, int32_t i, int32_t j) {
    const float r = record->radius[i];
    record->radius[i] = record->radius[j];
    record->radius[j] = r;
    for (int k = 0; k < 4; ++k) {
        const float c = record->sphere[i][k];
        record->sphere[i][k] = record->sphere[j][k];
        record->sphere[j][k] = c;
    }
}

}  // namespace

extern "C" {

CALMODULE_API int32_t CalibrationFunc(magcal_record *record, float *offset) {
    if (record->dotsFull != 1) return -9;
    // Only ever 0..59 between calls; an outside value out of range is not a list to
    // append to.
    if (record->fitCount < 0 || record->fitCount >= MAGCAL_MAX_FITS) return -9;

    double dots[MAGCAL_BUFFER_DOTS][3];
    for (int n = 0; n < MAGCAL_BUFFER_DOTS; ++n) {
        for (int k = 0; k < 3; ++k) dots[n][k] = static_cast<double>(record->dots[n][k]);
        // A zero sample is a slot that was never filled.
        if (dots[n][0] == 0.0 && dots[n][1] == 0.0 && dots[n][2] == 0.0) return -5;
    }

    // Normal equations. Squares and their sum s in float, cubes from powf, the
    // products with the cross terms and every sum in double.
    double sxx = 0.0, syy = 0.0, szz = 0.0, sxy = 0.0, sxz = 0.0, syz = 0.0;
    double sx = 0.0, sy = 0.0, sz = 0.0, sxs = 0.0, sys = 0.0, szs = 0.0, ss = 0.0;
    for (int n = 0; n < MAGCAL_BUFFER_DOTS; ++n) {
        const float xf = record->dots[n][0];
        const float yf = record->dots[n][1];
        const float zf = record->dots[n][2];
        const double x = dots[n][0];
        const double y = dots[n][1];
        const double z = dots[n][2];
        const float x2 = xf * xf;
        const float y2 = yf * yf;
        const float z2 = zf * zf;
        const float s = (x2 + y2) + z2;
        sxx += static_cast<double>(x2);
        syy += static_cast<double>(y2);
        szz += static_cast<double>(z2);
        sxy += x * y;
        sxz += x * z;
        syz += y * z;
        sx += x;
        sy += y;
        sz += z;
        // Each axis times s: its own cube first, then the other two squares in axis
        // order, x·s = x³ + y²·x + z²·x.
        sxs += static_cast<double>(powf(xf, 3.0f)) + static_cast<double>(y2) * x +
               static_cast<double>(z2) * x;
        sys += static_cast<double>(powf(yf, 3.0f)) + static_cast<double>(x2) * y +
               static_cast<double>(z2) * y;
        szs += static_cast<double>(powf(zf, 3.0f)) + static_cast<double>(x2) * z +
               static_cast<double>(y2) * z;
        ss += static_cast<double>(s);
    }
    const double normal_flat[kOrder][4] = {
        {sxx, sxy, sxz, -sx},
        {sxy, syy, syz, -sy},
        {sxz, syz, szz, -sz},
        {-sx, -sy, -sz, static_cast<double>(MAGCAL_BUFFER_DOTS)},
    };
    const double rhs[kOrder] = {sxs, sys, szs, -ss};

    // The normal matrix and its inverse as tables of rows on the stack: the same
    // cofactor arithmetic as Determinant and Inverse, without a heap on the event path.
    const double *normal[kOrder] = {normal_flat[0], normal_flat[1], normal_flat[2], normal_flat[3]};
    const double det = quarvel::cofactor_determinant(normal, kOrder);
    if (det == 0.0) return -6;
    // Adjugate over the determinant: the transposed signed minors.
    double inv_flat[kOrder][4];
    for (int i = 0; i < kOrder; ++i) {
        for (int j = 0; j < kOrder; ++j) inv_flat[j][i] = quarvel::cofactor_signed(normal, kOrder, i, j) / det;
    }

    double p[kOrder];
    for (int i = 0; i < kOrder; ++i) {
        p[i] = 0.0;
        for (int j = 0; j < kOrder; ++j) p[i] += inv_flat[i][j] * rhs[j];
    }
    const double a = p[0], b = p[1], c = p[2], d = p[3];

    const float cx = quarvel::narrow_to_float(a / 2.0);
    const float cy = quarvel::narrow_to_float(b / 2.0);
    const float cz = quarvel::narrow_to_float(c / 2.0);
    const float centre_sq = cy * cy + cx * cx + cz * cz;
    const double radicand = static_cast<double>(centre_sq) - d;
    // A negative radicand means the samples lie on no real sphere, and non-finite
    // coefficients mean no usable fit: both are refused like a radius out of range, so
    // no NaN radius ever reaches the held fits or the reference radius.
    if (!(radicand >= 0.0)) {
        return -7;
    }
    const double radius = std::sqrt(radicand);
    if (!(radius <= kRadiusMax && radius >= kRadiusMin)) {
        return -7;
    }

    const int32_t slot = record->fitCount;
    record->radius[slot] = static_cast<float>(radius);
    record->sphere[slot][0] = quarvel::narrow_to_float(a);
    record->sphere[slot][1] = quarvel::narrow_to_float(b);
    record->sphere[slot][2] = quarvel::narrow_to_float(c);
    record->sphere[slot][3] = quarvel::narrow_to_float(d);
    record->fitCount = slot + 1;
    const float r_new = record->radius[slot];

    // Reference radius: what the field strength has been so far.
    float r_ref;
    if (record->fitCount == 1) {
        r_ref = r_new;
    } else if (record->fitCount == 2) {
        if (fabsf(record->radius[0] - record->radius[1]) > kSecondFitTolerance) {
            // Two disagreeing fits: trust the newer one, the first buffer may have
            // been taken before the device settled.
            record->radius[0] = record->radius[1];
            for (int k = 0; k < 4; ++k) record->sphere[0][k] = record->sphere[1][k];
            record->fitCount = 1;
            r_ref = r_new;
        } else {
            r_ref = (record->radius[0] + record->radius[1]) / 2.0f;
        }
    } else {
        float sum = 0.0f;
        for (int32_t i = 0; i < record->fitCount - 1; ++i) sum += record->radius[i];
        r_ref = sum / static_cast<float>(record->fitCount - 1);
    }

    const float deviation = fabsf(r_ref - r_new);
    if (deviation > kModerateDeviation && deviation < kGrossDeviation) {
        --record->fitCount;  // not kept; the next fit overwrites its entry
        if (record->radiusErrCount < INT32_MAX) ++record->radiusErrCount;
    } else if (deviation >= kGrossDeviation) {
        record->radiusErrCount = kGrossRun;
    } else {
        record->radiusErrCount = 0;
    }

    if (record->radiusErrCount > kRunLimit) {
        // The field has changed under the held fits (or they were wrong): start over.
        for (int32_t i = 0; i < record->fitCount; ++i) clear_fit(record, i);
        record->fitCount = 0;
        record->radiusErrCount = 0;
        return -8;
    }

    if (record->fitCount == MAGCAL_MAX_FITS) {
        // Keep the 30 newest, newest first.
        for (int32_t i = 0; i < MAGCAL_MAX_FITS / 2; ++i) swap_fits(record, i, MAGCAL_MAX_FITS - 1 - i);
        record->fitCount = MAGCAL_MAX_FITS / 2;
        for (int32_t i = MAGCAL_MAX_FITS / 2; i < MAGCAL_MAX_FITS; ++i) clear_fit(record, i);
    }

    float sum[3] = {0.0f, 0.0f, 0.0f};
    for (int32_t i = 0; i < record->fitCount; ++i) {
        for (int k = 0; k < 3; ++k) sum[k] += record->sphere[i][k];
    }
    const float n = static_cast<float>(record->fitCount);
    for (int k = 0; k < 3; ++k) offset[k] = sum[k] / n * 0.5f;

    return 3;
}

}  // extern "C"
