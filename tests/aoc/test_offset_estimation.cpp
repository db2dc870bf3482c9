// Auto offset estimation: sphere centres from four well-spread samples, their
// history, and the agreement that releases an offset.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include "akfs_test_util.h"
#include "calmodule/aoc.h"

namespace {

using akfstest::is_empty_entry;

struct Estimator {
    Estimator() { AKFS_InitAOC(&ctx); }
    int16_t push(akfs_vec s) { return AKFS_AOC(&ctx, &s, &out); }
    int centres_held() const {
        int n = 0;
        for (const auto &c : ctx.offset_history) n += is_empty_entry(c) ? 0 : 1;
        return n;
    }
    aoc_context ctx;
    akfs_vec out{-1, -1, -1};
};

// Four points on the sphere of radius r around (cx, 0, 0), spread over three axes.
void push_tetrad(Estimator &e, float cx, float r, int16_t *last) {
    e.push({cx + r, 0, 0});
    e.push({cx, r, 0});
    e.push({cx, 0, r});
    *last = e.push({cx - r, 0, 0});
}

TEST(AutoOffset, FirstThreeSamplesNeverYield) {
    Estimator e;
    EXPECT_EQ(e.push({60, -20, 30}), 0);
    EXPECT_EQ(e.push({10, 30, 30}), 0);
    EXPECT_EQ(e.push({10, -20, 80}), 0);
    EXPECT_EQ(e.centres_held(), 0);
    EXPECT_EQ(e.ctx.sphere_radius, 0.0f);
    EXPECT_VEC_EQ(e.out, -1.0f, -1.0f, -1.0f);
}

TEST(AutoOffset, FourPointsOnASphereGiveItsCentreExactly) {
    // GIVEN four samples on the sphere of radius 50 around (10, -20, 30)
    Estimator e;
    e.push({60, -20, 30});
    e.push({10, 30, 30});
    e.push({10, -20, 80});
    // WHEN the fourth arrives
    const int16_t r = e.push({-40, -20, 30});
    // THEN the centre is recorded, but no offset is released for one centre
    EXPECT_EQ(r, 0);
    EXPECT_EQ(e.ctx.sphere_radius, 50.0f);
    EXPECT_VEC_EQ(e.ctx.offset_history[0], 10.0f, -20.0f, 30.0f);
    EXPECT_EQ(e.centres_held(), 1);
    EXPECT_VEC_EQ(e.out, -1.0f, -1.0f, -1.0f);
}

TEST(AutoOffset, IdenticalSamplesAreDegenerate) {
    Estimator e;
    for (int i = 0; i < 20; ++i) EXPECT_EQ(e.push({12.5f, -3, 40}), 0);
    EXPECT_EQ(e.centres_held(), 0);
    EXPECT_EQ(e.ctx.sphere_radius, 0.0f);
}

TEST(AutoOffset, CollinearOrCoplanarSamplesAreDegenerate) {
    Estimator line;
    for (int i = 0; i < 8; ++i) EXPECT_EQ(line.push({10.0f * i, 20.0f * i, -5.0f * i}), 0);
    EXPECT_EQ(line.centres_held(), 0);

    Estimator plane;  // all in z = 7
    const akfs_vec pts[] = {{0, 0, 7}, {50, 0, 7}, {0, 50, 7}, {-50, 0, 7}, {0, -50, 7}, {35, 35, 7}};
    for (const auto &p : pts) EXPECT_EQ(plane.push(p), 0);
    EXPECT_EQ(plane.centres_held(), 0);
    EXPECT_EQ(plane.ctx.sphere_radius, 0.0f);
}

TEST(AutoOffset, PointsCloserThanTenAreRefusedButTheRadiusIsKept) {
    Estimator e;
    int16_t r;
    push_tetrad(e, 0.0f, 4.0f, &r);  // pairwise about 5.7 apart
    EXPECT_EQ(r, 0);
    EXPECT_EQ(e.ctx.sphere_radius, 4.0f);
    EXPECT_EQ(e.centres_held(), 0);
}

TEST(AutoOffset, PointsCloserThanTheRadiusAreRefused) {
    // A cap of a sphere of radius 100: pairs only about 63 to 85 apart.
    Estimator e;
    e.push({80, 60, 0});
    e.push({80, 0, 60});
    e.push({80, -60, 0});
    EXPECT_EQ(e.push({100, 0, 0}), 0);
    EXPECT_NEAR(e.ctx.sphere_radius, 100.0f, 1e-3f);
    EXPECT_EQ(e.centres_held(), 0);
}

TEST(AutoOffset, AcceptedCentreLeavesOnlyTheTenNewestSamples) {
    // GIVEN fifteen samples along a short arc of a sphere of radius 60: one plane,
    // so no centre...
    Estimator e;
    for (int i = 0; i < 15; ++i) {
        const float a = 0.02f * static_cast<float>(i);
        e.push({60.0f * std::cos(a), 0.0f, 60.0f * std::sin(a)});
    }
    ASSERT_EQ(e.centres_held(), 0);
    // ...WHEN a well-spread tetrad of a large sphere arrives
    int16_t r;
    push_tetrad(e, 0.0f, 60.0f, &r);
    ASSERT_EQ(e.centres_held(), 1);
    // THEN entries 10 to 19 are emptied
    for (int i = 0; i < 10; ++i) EXPECT_FALSE(is_empty_entry(e.ctx.sample_history[i])) << i;
    for (int i = 10; i < 20; ++i) EXPECT_TRUE(is_empty_entry(e.ctx.sample_history[i])) << i;
    // AND the next sample (a stray one, refused) works on itself and those ten
    akfs_vec before[10];
    for (int i = 0; i < 10; ++i) before[i] = e.ctx.sample_history[i];
    EXPECT_EQ(e.push({1000, 0, 0}), 0);
    EXPECT_EQ(e.centres_held(), 1);
    EXPECT_VEC_EQ(e.ctx.sample_history[0], 1000.0f, 0.0f, 0.0f);
    for (int i = 0; i < 10; ++i) EXPECT_VEC_EQ(e.ctx.sample_history[i + 1], before[i].x, before[i].y, before[i].z);
    for (int i = 11; i < 20; ++i) EXPECT_TRUE(is_empty_entry(e.ctx.sample_history[i])) << i;
}

// Three earlier centres at x = 12, 11, 10 (newest first); the fourth comes from a
// tetrad around x = 13, so the x range is 3 and the y and z ranges 0.
Estimator with_three_centres() {
    Estimator e;
    e.ctx.offset_history[0] = {12, 0, 0};
    e.ctx.offset_history[1] = {11, 0, 0};
    e.ctx.offset_history[2] = {10, 0, 0};
    return e;
}

TEST(AutoOffset, FourAgreeingCentresReleaseTheirMidpoint) {
    Estimator e = with_three_centres();
    int16_t r;
    push_tetrad(e, 13.0f, 21.0f, &r);  // limit 0.15 x 21 = 3.15
    ASSERT_EQ(e.ctx.sphere_radius, 21.0f);
    EXPECT_EQ(r, 1);
    EXPECT_VEC_EQ(e.out, 11.5f, 0.0f, 0.0f);
    EXPECT_VEC_EQ(e.ctx.offset_history[0], 13.0f, 0.0f, 0.0f);
}

TEST(AutoOffset, RangeExactlyAtTheLimitIsRefused) {
    Estimator e = with_three_centres();
    int16_t r;
    push_tetrad(e, 13.0f, 20.0f, &r);  // limit 0.15 x 20 = 3.0, the range itself
    ASSERT_EQ(e.ctx.sphere_radius, 20.0f);
    EXPECT_EQ(r, 0);
    EXPECT_VEC_EQ(e.out, -1.0f, -1.0f, -1.0f);
    EXPECT_EQ(e.centres_held(), 4);  // the centre is still recorded
}

// Deterministic noise source: a 32-bit LCG mapped to [-1, 1).
struct Noise {
    uint32_t state = 12345u;
    float next() {
        state = state * 1664525u + 1013904223u;
        return static_cast<float>(state >> 8) / static_cast<float>(1u << 23) - 1.0f;
    }
};

TEST(AutoOffset, NoisySamplesOfAKnownSphereConvergeOnItsCentre) {
    // GIVEN a phone turned every which way in a field of 45 µT with a hard-iron
    // offset of (25, -40, 60) µT, its readings noisy by up to 0.3 µT per axis
    const float cx = 25.0f, cy = -40.0f, cz = 60.0f, radius = 45.0f;
    Estimator e;
    Noise noise;
    int released = 0;
    akfs_vec last{};
    for (int i = 0; i < 3000; ++i) {
        const float zc = noise.next();
        const float az = 3.1415927f * noise.next();
        const float ring = sqrtf(1.0f - zc * zc);
        const akfs_vec s{cx + radius * ring * std::cos(az) + 0.3f * noise.next(),
                         cy + radius * ring * std::sin(az) + 0.3f * noise.next(),
                         cz + radius * zc + 0.3f * noise.next()};
        if (e.push(s) == 1) {
            ++released;
            last = e.out;
        }
    }
    // THEN offsets are released, and the latest lands near the true centre
    EXPECT_GT(released, 10);
    EXPECT_NEAR(last.x, cx, 1.0f);
    EXPECT_NEAR(last.y, cy, 1.0f);
    EXPECT_NEAR(last.z, cz, 1.0f);
    EXPECT_NEAR(e.ctx.sphere_radius, radius, 2.0f);
}

TEST(AutoOffset, NonNumbersAndInfinitiesNeverReleaseANonNumber) {
    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const akfs_vec bad[] = {{nan, 0, 0}, {inf, 1, 2}, {-inf, 5, 5}, {3e38f, -3e38f, 1},
                            {0, nan, nan}, {-inf, -inf, -inf}};
    Estimator e;
    Noise noise;
    for (int i = 0; i < 600; ++i) {
        akfs_vec s{50 * noise.next(), 50 * noise.next(), 50 * noise.next()};
        if (i % 7 == 3) s = bad[(i / 7) % 6];
        const int16_t r = e.push(s);
        ASSERT_TRUE(r == 0 || r == 1);
        if (r == 1) {
            EXPECT_FALSE(std::isnan(e.out.x) || std::isnan(e.out.y) || std::isnan(e.out.z)) << i;
        }
    }
}

}  // namespace
