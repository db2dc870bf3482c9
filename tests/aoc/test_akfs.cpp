// The AKFS_ family: vector histories, the distance and offset estimation built on
// them, heading and tilt from averaged histories, and the mounting remaps.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <ostream>
#include <vector>

#include "aoc/aoc_internal.h"
#include "calmodule/aoc.h"

// Vectors compare exactly and print.
bool operator==(const akfs_vec &a, const akfs_vec &b) { return a.x == b.x && a.y == b.y && a.z == b.z; }
std::ostream &operator<<(std::ostream &os, const akfs_vec &v) { return os << "(" << v.x << ", " << v.y << ", " << v.z << ")"; }

namespace {

// An entry marked empty: the largest finite float in every component.
const akfs_vec kEmpty{AKFS_EMPTY_MARKER, AKFS_EMPTY_MARKER, AKFS_EMPTY_MARKER};

const akfs_vec A{1, 2, 3}, B{4, 5, 6}, C{7, 8, 9}, D{10, 11, 12}, E{13, 14, 15};
using History = std::vector<akfs_vec>;

TEST(BufShift, MovesTowardsTheEndReadingOverlapsFirstAndRefusesBadShifts) {
    const struct { int16_t length, shift, ok; History want; } rows[] = {
        {5, 2, 1, {A, B, A, B, C}}, {5, 5, 1, {A, B, C, D, E}}, {5, 6, 0, {A, B, C, D, E}},
        {5, 0, 0, {A, B, C, D, E}}};
    for (const auto &row : rows) {
        History h{A, B, C, D, E};
        EXPECT_EQ(AKFS_BufShift(row.length, row.shift, h.data()), row.ok) << row.length << " " << row.shift;
        EXPECT_EQ(h, row.want) << row.length << " " << row.shift;
    }
}

TEST(VbNorm, PushesSubtractDivideMultiplyToTheFrontOrRefusesLeavingTheHistory) {
    History h{A, B, C};
    const akfs_vec sample{10, 20, 30}, offset{0, 10, 20}, two{2, 2, 2};
    EXPECT_EQ(AKFS_VbNorm(1, &sample, 1, &offset, &two, 1.0f, 3, h.data()), 1);
    EXPECT_EQ(h, (History{{5, 5, 5}, A, B}));
    EXPECT_EQ(AKFS_VbNorm(1, &sample, 1, &offset, &two, 1.0f, 1, h.data()), 1);  // a history of one
    // Refused, the history untouched: tiny scale, non-positive gain, bad counts.
    const akfs_vec s[2] = {{10, 20, 30}, {10, 20, 30}}, o{0, 0, 0}, good{2, 2, 2}, tiny{2, 1e-8f, 2}, eps{2, 2, 0x1p-23f};
    const struct { int16_t ndata, count; const akfs_vec *scale; float gain; int16_t nbuf; } rows[] = {
        {1, 1, &tiny, 1, 3}, {1, 1, &eps, 1, 3}, {1, 1, &good, 0, 3}, {1, 2, &good, 1, 3},
        {1, 1, &good, 1, 0}, {2, 2, &good, 1, 1}};
    h = {A, B, C};
    for (const auto &row : rows) {
        EXPECT_EQ(AKFS_VbNorm(row.ndata, s, row.count, &o, row.scale, row.gain, row.nbuf, h.data()), 0)
            << row.ndata << " " << row.count << " " << row.gain << " " << row.nbuf;
    }
    EXPECT_EQ(h, (History{A, B, C}));
}

struct Estimator {
    Estimator() { AKFS_InitAOC(&ctx); }
    int16_t push(akfs_vec s) { return AKFS_AOC(&ctx, &s, &out); }
    aoc_context ctx;
    akfs_vec out{-1, -1, -1};
};

// Four points on the sphere of radius r around (cx, 0, 0), spread over three axes.
int16_t push_tetrad(Estimator &e, float cx, float r) {
    e.push({cx + r, 0, 0});
    e.push({cx, r, 0});
    e.push({cx, 0, r});
    return e.push({cx - r, 0, 0});
}

TEST(AutoOffset, DegenerateOrCrowdedSamplesYieldNoCentre) {
    const struct { const char *what; std::vector<akfs_vec> samples; float radius; } rows[] = {
        {"identical", std::vector<akfs_vec>(20, {12.5f, -3, 40}), 0},
        {"coplanar", {{0, 0, 7}, {50, 0, 7}, {0, 50, 7}, {-50, 0, 7}, {0, -50, 7}, {35, 35, 7}}, 0},
        // The radius is kept although the spread check refuses the centre.
        {"closer than 10", {{4, 0, 0}, {0, 4, 0}, {0, 0, 4}, {-4, 0, 0}}, 4},
        {"closer than the radius: a cap", {{80, 60, 0}, {80, 0, 60}, {80, -60, 0}, {100, 0, 0}}, 100}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        Estimator e;
        for (const auto &s : row.samples) EXPECT_EQ(e.push(s), 0);
        EXPECT_EQ(e.ctx.offset_history[0], kEmpty);
        EXPECT_NEAR(e.ctx.sphere_radius, row.radius, 1e-3f);
    }
}

TEST(AutoOffset, FourCentresReleaseTheirMidpointOnlyBelowFifteenPercentOfTheRadius) {
    // Earlier centres at x = 12, 11, 10; the fourth from a tetrad around x = 13: the
    // x range is 3, against a limit of 0.15 x 21 = 3.15, or exactly 3.0 for radius 20.
    const struct { float radius; int16_t released; akfs_vec out; } rows[] = {
        {21, 1, {11.5f, 0, 0}}, {20, 0, {-1, -1, -1}}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.radius);
        Estimator e;
        e.ctx.offset_history[0] = {12, 0, 0};
        e.ctx.offset_history[1] = {11, 0, 0};
        e.ctx.offset_history[2] = {10, 0, 0};
        EXPECT_EQ(push_tetrad(e, 13.0f, row.radius), row.released);
        ASSERT_EQ(e.ctx.sphere_radius, row.radius);
        EXPECT_EQ(e.out, row.out);
        EXPECT_EQ(e.ctx.offset_history[0], (akfs_vec{13, 0, 0}));  // recorded either way
    }
}

struct Angles {
    float azimuth = -7.0f, pitch = -7.0f, roll = -7.0f;
};

// One-entry histories holding h and a.
int16_t direction(akfs_vec h, akfs_vec a, Angles *out) {
    return AKFS_Direction(1, &h, 1, 1, &a, 1, &out->azimuth, &out->pitch, &out->roll);
}

TEST(Direction, HeadingKeptInZeroTo360AndOnlyTheNewestEntriesAveraged) {
    Angles o;
    ASSERT_EQ(direction({20, 0, -40}, {0, 0, 9.8f}, &o), 1);
    EXPECT_EQ(o.azimuth, 270.0f);  // a negative heading brought into [0, 360)
    // Facing the field: the heading is a negative zero, which is not below 0 and stays.
    ASSERT_EQ(direction({0, 20, -40}, {0, 0, 9.8f}, &o), 1);
    EXPECT_TRUE(o.azimuth == 0.0f && std::signbit(o.azimuth) && o.pitch == 0.0f && o.roll == 0.0f);
    // Only the newest hn entries are averaged: (-20, 0, -40), the third is beyond.
    const akfs_vec h[3] = {{-30, 5, -40}, {-10, -5, -40}, {500, 500, 500}}, a[2] = {{0, 0, 9.8f}, kEmpty};
    ASSERT_EQ(AKFS_Direction(3, h, 2, 2, a, 2, &o.azimuth, &o.pitch, &o.roll), 1);
    EXPECT_EQ(o.azimuth, 90.0f);
}

TEST(Direction, RejectsBadCountsAndMissingGravityWithoutWriting) {
    const akfs_vec h[2] = {{0, 20, -40}, {0, 20, -40}}, good[2] = {{0, 0, 9.8f}, {0, 0, 9.8f}};
    const akfs_vec empty[2] = {kEmpty, kEmpty}, zero[2] = {}, tiny[2] = {{1e-20f, 0, 0}};  // squares vanish
    const struct { int16_t nh, hn, na, an; const akfs_vec *a; } rows[] = {
        {0, 1, 2, 1, good}, {2, 1, 2, 0, good}, {1, 2, 2, 1, good}, {2, 1, 1, 2, good},
        {2, 1, 2, 2, empty}, {2, 1, 2, 1, zero}, {2, 1, 2, 1, tiny}};
    for (const auto &row : rows) {
        Angles o;
        EXPECT_EQ(AKFS_Direction(row.nh, h, row.hn, row.na, row.a, row.an, &o.azimuth, &o.pitch, &o.roll), 0)
            << row.nh << " " << row.hn << " " << row.na << " " << row.an;
        EXPECT_TRUE(o.azimuth == -7.0f && o.pitch == -7.0f && o.roll == -7.0f);
    }
}

TEST(Rotate, EightDistinctMountingsFaceUpOrDownAndNothingElseAndIntegerMatrices) {
    // Layouts 1-4 turn about z in quarter turns, 5-8 lie face down: z kept or negated,
    // x and y exchanged or not, each with its sign; anything else is refused untouched.
    std::vector<akfs_vec> seen;
    akfs_vec v;
    for (int layout : {-8, -1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 1000}) {
        v = {1, 2, 3};
        const bool known = layout >= 1 && layout <= 8;
        EXPECT_EQ(AKFS_Rotate(layout, &v), known ? 1 : 0) << layout;
        if (!known) {
            EXPECT_EQ(v, (akfs_vec{1, 2, 3})) << layout;
            continue;
        }
        EXPECT_EQ(v.z, layout <= 4 ? 3.0f : -3.0f) << layout;
        EXPECT_EQ(std::fabs(v.x) * std::fabs(v.y), 2.0f) << layout;
        for (const akfs_vec &s : seen) EXPECT_FALSE(s == v) << layout;
        seen.push_back(v);
    }
    v = {1, 2, 3};
    AKFS_Rotate(2, &v);  // a quarter turn: x from y, y from -x
    EXPECT_EQ(v, (akfs_vec{2, -1, 3}));
    // The matrix reads the input only and sums y, then x, then z: with every row
    // (1, 1, 1), y + x first loses the 1 against 1e8, then z cancels.
    const int16_t ones[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
    v = {1, 1e8f, -1e8f};
    EXPECT_EQ(AKFS_RotateMat(ones, &v), 1);
    EXPECT_EQ(v, (akfs_vec{0, 0, 0}));
}

}  // namespace
