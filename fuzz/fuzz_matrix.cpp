// The single-precision matrix utilities and the double-precision cofactor functions
// with arbitrary values, at every size up to what their callers use (4 x 4 for the
// sphere fit, 6 x 6 here for the utilities).
//
// Promises checked: copies and double transposes give the input back bit for bit;
// the norm is never NaN; inversion answers 0 or 1; the determinant is 0.0 outside
// orders 1 to 11; the inverse's rows are handed over for the caller to free.
#include <cstdlib>
#include <cstring>

#include "calmodule/fusion.h"
#include "calmodule/magcal.h"
#include "fuzz_support.h"

namespace {

constexpr int kMax = 6;

void single_precision(fuzz::Input &input) {
    const int rows = 1 + input.byte() % kMax, cols = 1 + input.byte() % kMax;
    float a[kMax * kMax], b[kMax * kMax], c[kMax * kMax], d[kMax * kMax];
    for (int i = 0; i < kMax * kMax; ++i) {
        a[i] = input.f32();
        b[i] = input.f32();
    }
    matrix_copy(a, c, cols, rows);
    FUZZ_CHECK(std::memcmp(a, c, sizeof(float) * rows * cols) == 0);
    matrix_turn(a, rows, cols, c);
    matrix_turn(c, cols, rows, d);
    FUZZ_CHECK(std::memcmp(a, d, sizeof(float) * rows * cols) == 0);
    FUZZ_CHECK(!std::isnan(matrix_norm(a, rows * cols)));
    matrix_trace(a, rows < cols ? rows : cols, cols);
    matrix_add(a, b, rows, cols, c);
    matrix_sub(c, b, rows, cols, c);
    matrix_scale(c, rows, cols, input.f32());
    matrix_multiply(a, b, rows, cols, rows, d);
    const int inverted = matrix_inv(b, rows);
    FUZZ_CHECK(inverted == 0 || inverted == 1);
    det(a);
    dot(a, b);
    cross(a, b, a);
    float q[4], dcm[9];
    init_dcm(b, q);
    Quat2DCM(q, dcm);
    QuaternionProduct(q, a, q);
}

void cofactors(fuzz::Input &input) {
    const int32_t order = static_cast<int32_t>(input.byte() % 6);  // 0 and 5 lie outside the fit's 1..4
    double *rows[5];
    for (double *&row : rows) {
        row = static_cast<double *>(std::malloc(5 * sizeof(double)));
        for (int j = 0; j < 5; ++j) row[j] = static_cast<double>(input.f32());
    }
    const double determinant = Determinant(rows, order);
    if (order < 1) FUZZ_CHECK(determinant == 0.0);
    if (order >= 1) {
        const int32_t i = input.byte() % order, j = input.byte() % order;
        AlCo(rows, order, i, j);
        if (order >= 2) Cofactor(rows, order, i, j);
        double *result[5] = {};
        Inverse(rows, result, order, determinant);
        for (int r = 0; r < order; ++r) std::free(result[r]);
    }
    for (double *row : rows) std::free(row);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::fresh_module();
    fuzz::Input input(data, size);
    if (input.byte() & 1) {
        single_precision(input);
    } else {
        cofactors(input);
    }
    return 0;
}
