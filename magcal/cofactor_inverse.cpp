// Double-precision inverse by cofactors: matrices as tables of malloc'd rows, every
// determinant by Laplace expansion along the last row, the inverse as the adjugate
// over the determinant. Only order 4 is used, by the sphere fit.
//
// Allocation failures: a row that cannot be had is never dereferenced. Input and
// Inverse release the rows they already took and leave null pointers; Cofactor
// releases its partial minor and reports a minor of 0.0. Each failure sets
// cofactor_alloc_failed, and the sphere fit, finding it set, gives up as it does for a
// singular matrix (-6): no estimate rather than one built on a wrong minor.
#include <cstdlib>

#include "calmodule/magcal.h"
#include "magcal/magcal_internal.h"

namespace quarvel {
bool cofactor_alloc_failed = false;
}  // namespace quarvel

namespace {

constexpr int32_t kMaxOrder = 11;  // the minor of Cofactor has at most 10 rows
constexpr int32_t kFlatColumns = 4;

double *alloc_row(int32_t length) {
    void *row = std::malloc(sizeof(double) * static_cast<size_t>(length));
    if (!row) quarvel::cofactor_alloc_failed = true;
    return static_cast<double *>(row);
}

// Allocates `count` rows of `length` doubles; on a failure frees what it took, nulls
// every pointer and returns false.
bool alloc_rows(double **rows, int32_t count, int32_t length) {
    for (int32_t i = 0; i < count; ++i) {
        rows[i] = alloc_row(length);
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

}  // namespace

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
    if (order == 1) return rows[0][0];
    const int32_t last = order - 1;
    double det = 0.0;
    for (int32_t j = 0; j < order; ++j) det += AlCo(rows, order, last, j) * rows[last][j];
    return det;
}

// An element outside the matrix has no minor: 0.0.
CALMODULE_API double Cofactor(double **rows, int32_t order, int32_t i, int32_t j) {
    if (order < 2 || order > kMaxOrder || i < 0 || i >= order || j < 0 || j >= order) return 0.0;
    const int32_t k = order - 1;
    double *minor[kMaxOrder - 1];
    if (!alloc_rows(minor, k, k)) return 0.0;
    for (int32_t r = 0; r < k; ++r) {
        const double *src = rows[r < i ? r : r + 1];
        for (int32_t c = 0; c < k; ++c) minor[r][c] = src[c < j ? c : c + 1];
    }
    const double value = Determinant(minor, k);
    for (int32_t r = 0; r < k; ++r) std::free(minor[r]);
    return value;
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
        for (int32_t j = 0; j < order; ++j) result[j][i] = AlCo(rows, order, i, j) / determinant;
    }
}

}  // extern "C"
