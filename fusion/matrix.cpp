// Single-precision matrix and vector routines: row-major float arrays with their
// dimensions passed separately. The gradient-descent update uses the norm, the
// transpose and the product; the rest serve outside callers.
//
// Summation orders are fixed (each sum starts from 0 and runs in index order unless
// said otherwise), because callers compare results bit for bit across builds.
// Indexes are formed in ptrdiff_t so that large dimensions cannot overflow an int.
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <utility>

#include "calmodule/fusion.h"

namespace {

// Half and full turn in radians for the heading correction of init_dcm, both in double:
// the full turn is 6.2832 itself, not twice the float 3.1416.
constexpr double kHalfTurn = 3.1416;
constexpr double kFullTurn = 6.2832;

inline std::ptrdiff_t at(int row, int col, int cols) {
    return static_cast<std::ptrdiff_t>(row) * cols + col;
}

inline std::ptrdiff_t count(int rows, int cols) {
    if (rows <= 0 || cols <= 0) return 0;
    return static_cast<std::ptrdiff_t>(rows) * cols;
}

void swap_rows(float *a, int n, int r1, int r2) {
    for (int j = 0; j < n; ++j) std::swap(a[at(r1, j, n)], a[at(r2, j, n)]);
}

void swap_cols(float *a, int n, int c1, int c2) {
    for (int i = 0; i < n; ++i) std::swap(a[at(i, c1, n)], a[at(i, c2, n)]);
}

}  // namespace

extern "C" {

CALMODULE_API void matrix_copy(const float *src, float *dst, int cols, int rows) {
    for (int i = 0; i < rows; ++i) {
        for (int j = 0; j < cols; ++j) dst[at(i, j, cols)] = src[at(i, j, cols)];
    }
}

CALMODULE_API float matrix_trace(const float *m, int n, int cols) {
    float sum = 0.0f;
    if (cols == 1) {
        for (int i = 0; i < n; ++i) sum += m[i];
    } else {
        for (int i = 0; i < n; ++i) sum += m[at(i, i, cols)];
    }
    return sum;
}

CALMODULE_API void matrix_scale(float *m, int rows, int cols, float k) {
    const std::ptrdiff_t total = count(rows, cols);
    for (std::ptrdiff_t i = 0; i < total; ++i) m[i] = m[i] * k;
}

CALMODULE_API void matrix_turn(const float *src, int rows, int cols, float *dst) {
    for (int i = 0; i < rows; ++i) {
        for (int j = 0; j < cols; ++j) dst[at(j, i, rows)] = src[at(i, j, cols)];
    }
}

CALMODULE_API float matrix_norm(const float *v, int n) {
    float sum = 0.0f;
    for (int i = 0; i < n; ++i) sum += v[i] * v[i];
    // A NaN sum reads as a zero norm: callers stop at a zero norm.
    if (!(sum >= 0.0f)) return 0.0f;
    return sqrtf(sum);
}

CALMODULE_API void matrix_add(const float *a, const float *b, int rows, int cols, float *out) {
    const std::ptrdiff_t total = count(rows, cols);
    for (std::ptrdiff_t i = 0; i < total; ++i) out[i] = a[i] + b[i];
}

CALMODULE_API void matrix_sub(const float *a, const float *b, int rows, int cols, float *out) {
    const std::ptrdiff_t total = count(rows, cols);
    for (std::ptrdiff_t i = 0; i < total; ++i) out[i] = a[i] - b[i];
}

CALMODULE_API void matrix_multiply(const float *A, const float *B, int m, int n, int p, float *C) {
    for (int i = 0; i < m; ++i) {
        for (int j = 0; j < p; ++j) {
            float &c = C[at(i, j, p)];
            c = 0.0f;
            for (int k = 0; k < n; ++k) c += A[at(i, k, n)] * B[at(k, j, p)];
        }
    }
}

// Gauss-Jordan elimination in place, with full pivoting: each step takes the largest
// remaining element as pivot, moving it onto the diagonal by a row and a column
// exchange. The exchanges permute the inverse the other way round, so they are undone
// at the end in reverse order, a column exchange as a row exchange and vice versa.
//
// A pivot below 2^-53 counts as zero (it vanishes against 1.0 in double), whatever the
// scale of the matrix. NaN elements are never taken as pivot.
CALMODULE_API int matrix_inv(float *a, int n) {
    // An empty matrix is its own inverse; a negative order is no matrix at all. Neither
    // touches the memory behind `a`.
    if (n == 0) return 1;
    if (n < 0) return 0;

    // The pivot bookkeeping lives on the heap, sized to the matrix. Without it the
    // exchanges could not be undone, so a failed allocation leaves the matrix untouched
    // and reports 0, as for a matrix that cannot be inverted.
    int *pivot_row = static_cast<int *>(std::malloc(static_cast<std::size_t>(n) * sizeof(int)));
    int *pivot_col = static_cast<int *>(std::malloc(static_cast<std::size_t>(n) * sizeof(int)));
    if (pivot_row == nullptr || pivot_col == nullptr) {
        std::free(pivot_row);
        std::free(pivot_col);
        return 0;
    }

    for (int k = 0; k < n; ++k) {
        // 1. Pivot search over the remaining block; the first maximum in row-major order
        //    wins ties.
        float largest = 0.0f;
        pivot_row[k] = k;
        pivot_col[k] = k;
        for (int i = k; i < n; ++i) {
            for (int j = k; j < n; ++j) {
                const float magnitude = fabsf(a[at(i, j, n)]);
                if (magnitude > largest) {
                    largest = magnitude;
                    pivot_row[k] = i;
                    pivot_col[k] = j;
                }
            }
        }

        // 2. Singular: the matrix stays as far as it got.
        const double d = static_cast<double>(largest);
        if (d + 1.0 == 1.0) {
            std::free(pivot_row);
            std::free(pivot_col);
            return 0;
        }

        // 3. Bring the pivot onto the diagonal.
        if (pivot_row[k] != k) swap_rows(a, n, k, pivot_row[k]);
        if (pivot_col[k] != k) swap_cols(a, n, k, pivot_col[k]);

        // 4.-7. Eliminate, storing the inverse's column in place of the pivot column.
        float &pivot = a[at(k, k, n)];
        pivot = 1.0f / pivot;
        for (int j = 0; j < n; ++j) {
            if (j != k) a[at(k, j, n)] = a[at(k, j, n)] * pivot;
        }
        for (int i = 0; i < n; ++i) {
            if (i == k) continue;
            for (int j = 0; j < n; ++j) {
                if (j != k) a[at(i, j, n)] = a[at(i, j, n)] - a[at(i, k, n)] * a[at(k, j, n)];
            }
        }
        for (int i = 0; i < n; ++i) {
            if (i != k) a[at(i, k, n)] = -(a[at(i, k, n)] * pivot);
        }
    }

    // Undo the exchanges, last step first.
    for (int k = n - 1; k >= 0; --k) {
        if (pivot_col[k] != k) swap_rows(a, n, k, pivot_col[k]);
        if (pivot_row[k] != k) swap_cols(a, n, k, pivot_row[k]);
    }

    std::free(pivot_row);
    std::free(pivot_col);
    return 1;
}

// Rule of Sarrus, the six triple products accumulated in this order.
CALMODULE_API float det(const float m[9]) {
    float r = m[1] * m[5] * m[6];
    r += m[0] * m[4] * m[8];
    r += m[2] * m[3] * m[7];
    r -= m[2] * m[4] * m[6];
    r -= m[0] * m[5] * m[7];
    r -= m[1] * m[3] * m[8];
    return r;
}

CALMODULE_API float dot(const float a[3], const float b[3]) {
    return a[1] * b[1] + a[0] * b[0] + a[2] * b[2];
}

CALMODULE_API void cross(const float a[3], const float b[3], float out[3]) {
    const float a0 = a[0], a1 = a[1], a2 = a[2];
    const float b0 = b[0], b1 = b[1], b2 = b[2];
    out[0] = a1 * b2 - a2 * b1;
    out[1] = a2 * b0 - a0 * b2;
    out[2] = a0 * b1 - a1 * b0;
}

// Heading, then pitch, then roll (z, y, x), the inverse of the rotation vector's Euler
// angles. A heading beyond half a turn is brought back by one full turn; headings
// below minus half a turn are taken as they are.
CALMODULE_API void init_dcm(const float e[3], float q[4]) {
    float heading = e[0];
    const float pitch = e[1];
    const float roll = e[2];
    if (static_cast<double>(heading) > kHalfTurn) {
        heading = static_cast<float>(static_cast<double>(heading) - kFullTurn);
    }

    const float cr = static_cast<float>(std::cos(static_cast<double>(roll) * 0.5));
    const float sr = static_cast<float>(std::sin(static_cast<double>(roll) * 0.5));
    const float cp = static_cast<float>(std::cos(static_cast<double>(pitch) * 0.5));
    const float sp = static_cast<float>(std::sin(static_cast<double>(pitch) * 0.5));
    const float ch = static_cast<float>(std::cos(static_cast<double>(heading) * 0.5));
    const float sh = static_cast<float>(std::sin(static_cast<double>(heading) * 0.5));

    q[0] = cr * cp * ch + sr * sp * sh;
    q[1] = sr * cp * ch - cr * sp * sh;
    q[2] = cr * sp * ch + sr * cp * sh;
    q[3] = cr * cp * sh - sr * sp * ch;
}

}  // extern "C"
