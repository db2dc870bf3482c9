// Auto offset estimation: the hard-iron offset of a magnetometer is the centre of the
// sphere its samples lie on. Each call pushes one sample into a twenty-entry history,
// picks four well-spread samples, solves for the centre of the sphere through them
// and keeps the centre when the four are far enough apart. An offset is handed out
// only when the last four centres agree within 15 % of the radius.
#include <cmath>
#include <cstdint>

#include "aoc/aoc_internal.h"

namespace {

using quarvel::aoc_distance;
using quarvel::kAkfsEpsilon;

constexpr int kFewestSamples = 4;
constexpr int kSamplesKeptAfterCentre = 10;
constexpr float kMinSpread = 10.0f;          // same units as the samples (µT)
constexpr double kAgreementFraction = 0.15;  // of the sphere radius

// "At or above the empty marker": unlike the exact test of the averages, an infinite
// component also counts as empty here.
bool at_or_above_marker(const akfs_vec &v) {
    return v.x >= AKFS_EMPTY_MARKER || v.y >= AKFS_EMPTY_MARKER || v.z >= AKFS_EMPTY_MARKER;
}

akfs_vec sub(const akfs_vec &a, const akfs_vec &b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }

akfs_vec cross(const akfs_vec &d, const akfs_vec &e) {
    return {d.y * e.z - d.z * e.y, d.z * e.x - d.x * e.z, d.x * e.y - d.y * e.x};
}

// A magnitude that is large enough to divide by; a non-number is not.
bool usable_pivot(float v) { return std::fabs(v) >= kAkfsEpsilon; }

// Index of the entry among 1..n-1 of the history that scores highest, or -1 when
// none scores above 0. A candidate replaces the current choice only with a strictly
// greater score, so the first of equal candidates wins and a non-number never wins.
template <typename Score>
int best_of_history(int n, Score score_of) {
    int best = -1;
    float score = 0.0f;
    for (int i = 1; i < n; ++i) {
        const float s = score_of(i);
        if (s > score) {
            score = s;
            best = i;
        }
    }
    return best;
}

// Picks P2, P3, P4 among entries 1..n-1 of the history (P1 is entry 0). false when
// any of the three finds no candidate scoring above 0: the samples are degenerate.
bool choose_points(const akfs_vec *h, int n, akfs_vec p[4]) {
    p[0] = h[0];

    // P2: farthest from P1.
    int best = best_of_history(n, [&](int i) { return aoc_distance(h[i], p[0]); });
    if (best < 0) return false;
    p[1] = h[best];
    const akfs_vec d = sub(p[1], p[0]);

    // P3: farthest from the line P1-P2 (largest squared cross product).
    best = best_of_history(n, [&](int i) {
        const akfs_vec c = cross(d, sub(h[i], p[0]));
        float s = c.y * c.y;
        s += c.x * c.x;
        s += c.z * c.z;
        return s;
    });
    if (best < 0) return false;
    p[2] = h[best];
    const akfs_vec normal = cross(d, sub(p[2], p[0]));

    // P4: farthest from the plane through P1, P2, P3.
    best = best_of_history(n, [&](int i) {
        const akfs_vec e = sub(h[i], p[0]);
        float dot = normal.y * e.y;
        dot += normal.x * e.x;
        dot += normal.z * e.z;
        return std::fabs(dot);
    });
    if (best < 0) return false;
    p[3] = h[best];
    return true;
}

// Centre of the sphere through the four points: rows Pj - P4 against
// bj = 0.5 * sum(Pj^2 - P4^2), eliminated with the first row as pivot row, all in
// single precision. false when a pivot is too small (or not a number).
bool sphere_centre(const akfs_vec p[4], akfs_vec *centre) {
    float a[3][3];
    float b[3];
    for (int j = 0; j < 3; ++j) {
        a[j][0] = p[j].x - p[3].x;
        a[j][1] = p[j].y - p[3].y;
        a[j][2] = p[j].z - p[3].z;
        float s = p[j].x * p[j].x - p[3].x * p[3].x;
        s += p[j].y * p[j].y - p[3].y * p[3].y;
        s += p[j].z * p[j].z - p[3].z * p[3].z;
        b[j] = 0.5f * s;
    }
    const float a11 = a[0][0], a12 = a[0][1], a13 = a[0][2];
    const float a21 = a[1][0], a22 = a[1][1], a23 = a[1][2];
    const float a31 = a[2][0], a32 = a[2][1], a33 = a[2][2];
    const float b1 = b[0], b2 = b[1], b3 = b[2];

    const float det = (a11 * a32 - a12 * a31) * (a21 * a13 - a11 * a23) +
                      (a11 * a33 - a13 * a31) * (a11 * a22 - a12 * a21);
    if (!usable_pivot(det)) return false;
    const float z = ((a12 * a31 - a11 * a32) * (a11 * b2 - a21 * b1) +
                     (a11 * b3 - a31 * b1) * (a11 * a22 - a12 * a21)) /
                    det;

    const float pivot_y = a11 * a22 - a12 * a21;
    if (!usable_pivot(pivot_y)) return false;
    const float y = ((a11 * b2 - a21 * b1) + (a21 * a13 - a11 * a23) * z) / pivot_y;

    if (!usable_pivot(a11)) return false;
    const float x = (b1 - a12 * y - a13 * z) / a11;

    *centre = {x, y, z};
    return true;
}

// Every pair of the four points must be at least a radius and at least 10 apart.
// Written as "not at least", so a non-number distance or radius fails too.
bool well_spread(const akfs_vec p[4], float radius) {
    static const int kPairs[6][2] = {{0, 1}, {0, 2}, {0, 3}, {1, 2}, {1, 3}, {2, 3}};
    for (const auto &pair : kPairs) {
        const float dist = aoc_distance(p[pair[0]], p[pair[1]]);
        if (!(dist >= radius) || !(dist >= kMinSpread)) return false;
    }
    return true;
}

}  // namespace

extern "C" {

CALMODULE_API int16_t AKFS_AOC(aoc_context *context, const akfs_vec *sample, akfs_vec *offset) {
    // Copied first: a caller may hand in an entry of the history itself.
    const akfs_vec newest = *sample;
    akfs_vec *samples = context->sample_history;
    AKFS_BufShift(AKFS_AOC_SAMPLES, 1, samples);
    samples[0] = newest;

    int n = AKFS_AOC_SAMPLES;
    while (at_or_above_marker(samples[n - 1])) {
        --n;
        if (n == kFewestSamples - 1) return 0;
    }

    akfs_vec p[4];
    if (!choose_points(samples, n, p)) return 0;

    akfs_vec centre;
    if (!sphere_centre(p, &centre)) return 0;

    // Kept even when the spread check below refuses the centre.
    context->sphere_radius = aoc_distance(p[0], centre);
    if (!well_spread(p, context->sphere_radius)) return 0;

    akfs_vec *centres = context->offset_history;
    AKFS_BufShift(AKFS_AOC_OFFSETS, 1, centres);
    centres[0] = centre;
    // The next estimate has to use newer samples.
    AKFS_InitBuffer(AKFS_AOC_SAMPLES - kSamplesKeptAfterCentre, samples + kSamplesKeptAfterCentre);

    if (at_or_above_marker(centres[AKFS_AOC_OFFSETS - 1])) return 0;

    float lo[3] = {centres[0].x, centres[0].y, centres[0].z};
    float hi[3] = {centres[0].x, centres[0].y, centres[0].z};
    for (int i = 1; i < AKFS_AOC_OFFSETS; ++i) {
        const float v[3] = {centres[i].x, centres[i].y, centres[i].z};
        for (int k = 0; k < 3; ++k) {
            if (v[k] < lo[k]) lo[k] = v[k];
            if (v[k] > hi[k]) hi[k] = v[k];
        }
    }

    const float limit =
        static_cast<float>(static_cast<double>(context->sphere_radius) * kAgreementFraction);
    float mid[3];
    for (int k = 0; k < 3; ++k) {
        const float range = hi[k] - lo[k];
        // "Not below the limit" refuses a non-number range as well.
        if (!(range < limit)) return 0;
        mid[k] = (hi[k] + lo[k]) * 0.5f;
    }
    *offset = {mid[0], mid[1], mid[2]};
    return 1;
}

}  // extern "C"
