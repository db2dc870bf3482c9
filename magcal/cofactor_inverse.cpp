// Double-precision inverse by cofactors: every determinant by Laplace expansion along
// the last row, the inverse as the adjugate over the determinant. Only order 4 is
// used, by the sphere fit.
//
// Outside callers hand in matrices as tables of rows; Input and Inverse give them rows
// from malloc, which the caller frees. A row that cannot be had is never dereferenced:
// Input and Inverse release the rows they already took and leave null pointers.
//
// The minors of the expansion, and the matrices of the sphere fit, live on the stack:
// the fit runs on the magnetometer event path, and a fit used to cost some 180
// malloc/free pairs.
#include <cstdlib>

#include "calmodule/magcal.h"
#include "magcal/magcal_internal.h"

namespace {

constexpr int32_t kMaxOrder = quarvel::kMaxCofactorOrder;  // minors have at most 10 rows
constexpr int32_t kFlatColumns = 4;

// Allocates `count` rows of `length` doubles; on a failure frees what it took, nulls
// every pointer and returns false.
bool alloc_rows(double **rows, int32_t count, int32_t length) {
    for (int32_t i = 0; i < count; ++i) {
        rows[i] = static_cast<double *>(std::malloc(sizeof(double) * static_cast<size_t>(length)));
        if (!rows[i]) {
            for (int32_t r = 0; r < i; ++r) {
                std::free(rows[r]);
                rows[r] = nullptr;
            }
            return false;
        }
    }
    return true;
}

bool order_ok(int32_t n) { return n >= 1 && n <= kMaxOrder; }

// The expansions of order 2 and 3 written out: the same operations in the same order
// as the general expansion along the last row, from 0.0, each element of the last row
// times its signed minor in turn.
inline double det2(double a00, double a01, double a10, double a11) {
    return (0.0 + (-a01) * a10) + a00 * a11;
}

inline double det3(const double *r0, const double *r1, const double *r2) {
    const double m0 = det2(r0[1], r0[2], r1[1], r1[2]);
    const double m1 = det2(r0[0], r0[2], r1[0], r1[2]);
    const double m2 = det2(r0[0], r0[1], r1[0], r1[1]);
    return ((0.0 + m0 * r2[0]) + (-m1) * r2[1]) + m2 * r2[2];
}

}  // namespace

namespace quarvel {

// The minor of element (i, j): the determinant of the matrix without row i and
// column j, built in four blocks around the removed row and column.
double cofactor_minor(const double *const *rows, int32_t order, int32_t i, int32_t j) {
    const int32_t k = order - 1;
    double storage[(kMaxOrder - 1) * (kMaxOrder - 1)];
    const double *minor[kMaxOrder - 1];
    for (int32_t r = 0; r < k; ++r) {
        const double *src = rows[r < i ? r : r + 1];
        double *row = storage + r * k;
        for (int32_t c = 0; c < k; ++c) row[c] = src[c < j ? c : c + 1];
        minor[r] = row;
    }
    return cofactor_determinant(minor, k);
}

double cofactor_signed(const double *const *rows, int32_t order, int32_t i, int32_t j) {
    const double minor = cofactor_minor(rows, order, i, j);
    return ((i + j) % 2 != 0) ? -minor : minor;
}

double cofactor_determinant(const double *const *rows, int32_t order) {
    if (order == 1) return rows[0][0];
    if (order == 2) return det2(rows[0][0], rows[0][1], rows[1][0], rows[1][1]);
    if (order == 3) return det3(rows[0], rows[1], rows[2]);
    const int32_t last = order - 1;
    double det = 0.0;
    for (int32_t j = 0; j < order; ++j) det += cofactor_signed(rows, order, last, j) * rows[last][j];
    return det;
}

}  // namespace quarvel

extern "C" {

CALMODULE_API void Input(double **rows, int32_t row_count, int32_t column_count,
                         const double (*flat)[4]) {
    if (column_count > kFlatColumns) column_count = kFlatColumns;
    if (row_count <= 0 || column_count <= 0) return;
    if (!alloc_rows(rows, row_count, column_count)) return;
    for (int32_t i = 0; i < row_count; ++i) {
        for (int32_t j = 0; j < column_count; ++j) rows[i][j] = flat[i][j];
    }
}

CALMODULE_API void Output(double **rows, int32_t row_count, int32_t column_count,
                          double (*flat)[4]) {
    if (column_count > kFlatColumns) column_count = kFlatColumns;
    for (int32_t i = 0; i < row_count; ++i) {
        if (!rows[i]) continue;
        for (int32_t j = 0; j < column_count; ++j) flat[i][j] = rows[i][j];
    }
}

// Orders above 11 do not fit the minor table and, like orders of 0 or less, yield 0.0.
CALMODULE_API double Determinant(double **rows, int32_t order) {
    if (!order_ok(order)) return 0.0;
    return quarvel::cofactor_determinant(rows, order);
}

// An element outside the matrix has no minor: 0.0.
CALMODULE_API double Cofactor(double **rows, int32_t order, int32_t i, int32_t j) {
    if (order < 2 || order > kMaxOrder || i < 0 || i >= order || j < 0 || j >= order) return 0.0;
    return quarvel::cofactor_minor(rows, order, i, j);
}

CALMODULE_API double AlCo(double **rows, int32_t order, int32_t i, int32_t j) {
    const double minor = Cofactor(rows, order, i, j);
    // i + j cannot overflow for the indexes Cofactor accepts; others gave 0.0.
    return ((static_cast<int64_t>(i) + j) % 2 != 0) ? -minor : minor;
}

// The caller has checked the determinant against 0.0.
CALMODULE_API void Inverse(double **rows, double **result, int32_t order, double determinant) {
    if (!order_ok(order)) return;
    if (!alloc_rows(result, order, order)) return;
    for (int32_t i = 0; i < order; ++i) {
        for (int32_t j = 0; j < order; ++j) {
            result[j][i] = quarvel::cofactor_signed(rows, order, i, j) / determinant;
        }
    }
}

}  // extern "C"
