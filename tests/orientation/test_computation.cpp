// The orientation computation's edges and state: the ordered smoothing rings, the
// headings' quadrants, the heading correction's intervals, Tracking and Holding, and
// the field supervision that steers the calibration.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <random>

#include "calmodule/magcal.h"
#include "calmodule/orientation.h"
#include "magcal/calibration_state.h"
#include "orientation/compass.h"
#include "orientation/orientation_internal.h"
#include "support/device.h"

namespace {

// A device in the earth's field (20 µT north, 40 µT down), its accelerometer reading 1 g.
struct Reading {
    float acc[3];
    float mag[3];
};
Reading device(double heading, double top_up = 0.0, double right_up = 0.0) {
    const testsupport::Device d = testsupport::Device::facing(heading, top_up, right_up);
    Reading r;
    d.acc(r.acc);
    d.field(r.mag);
    return r;
}

// One call with copies of the vectors, as the orientation algorithm makes it.
void call(const Reading &r, float out[3]) {
    float mag[3] = {r.mag[0], r.mag[1], r.mag[2]};
    float acc[3] = {r.acc[0], r.acc[1], r.acc[2]};
    get_oritation_values(mag, acc, out);
}
// From load, 41 calls: the first moves away from the zero history, and the 40th still
// one after it holds.
void hold(const Reading &r, float out[3]) {
    for (int i = 0; i < 41; ++i) call(r, out);
}
Reading shifted(Reading r, float dx, float dy, float dz) {
    r.mag[0] += dx, r.mag[1] += dy, r.mag[2] += dz;
    return r;
}
// The state of the supervision: {run_o, noise_mag, noise_mag_flag, noise_mag_fflag,
// noise_flag_t, cali_ret}, i.e. Tracking, the small, medium and large-band counts, the
// jump flag and the restart request.
using Supervision = std::array<int, 6>;
Supervision supervision() { return {run_o, noise_mag, noise_mag_flag, noise_mag_fflag, noise_flag_t, cali_ret}; }


TEST(TrimmedMean, OrderedRingsGiveTheBitsOfSortingTheWholeRing) {
    // Whatever arrives (NaN, infinities, signed zeros, repeats), each mean is the bits of
    // the early-exit bubble sort of the whole ring, middle values summed upward from 0.
    const auto reference = [](const float *ring, int n) {
        std::array<float, 10> s{};
        std::copy(ring, ring + n, s.begin());
        for (int pass = 1, swapped = 1; pass < n && swapped; ++pass) {
            swapped = 0;
            for (int j = n - 1; j >= pass; --j) {
                if (s[j] < s[j - 1]) std::swap(s[j], s[j - 1]), swapped = 1;
            }
        }
        float sum = 0.0f;
        for (int i = 2; i < n - 2; ++i) sum += s[i];
        return sum / static_cast<float>(n - 4);
    };
    const float pool[] = {0.0f, -0.0f, 1.0f, -1.0f, 2.5f, 2.5f, 1e30f, -3e-40f, INFINITY, -INFINITY, NAN};
    std::mt19937 rng(5);
    float ring8[8] = {}, ring10[10] = {};
    for (int i = 0; i < 4000; ++i) {
        // Mostly ordinary values, so that NaNs come and go and long runs go without one.
        const float x = rng() % 4 ? std::uniform_real_distribution<float>(-50, 50)(rng) : pool[rng() % 11];
        ring8[i % 8] = ring10[i % 10] = x;
        float three[3] = {x, 0, 0}, xyz[3] = {x, 0, 0};
        CalibrationThree(three);
        RCalibrationXYZ(xyz);
        const float want8 = reference(ring8, 8), want10 = reference(ring10, 10);
        ASSERT_EQ(std::memcmp(&three[0], &want8, 4), 0) << "sample " << i << ": " << three[0] << " vs " << want8;
        ASSERT_EQ(std::memcmp(&xyz[0], &want10, 4), 0) << "sample " << i << ": " << xyz[0] << " vs " << want10;
    }
}

TEST(Headings, QuadrantEdges) {
    // {X, Y, azimuth from +X towards -Y in degrees (-1: the caller's value is left),
    //  heading from +Y towards +X in radians}
    const float cases[][4] = {{0, -1, 90, 0x1.921fb4p+1f}, {-1, 0, 180, 0x1.2d97c8p+2f}, {0, 1, 270, 0},
                              {1, -1, 45, 0x1.2d97c8p+1f}, {1, 0, -1, 0x1.921fb4p+0f},  {0, 0, -1, 0},
                              {-0.0f, 0, -1, 0}};
    for (const auto &c : cases) {
        float degrees = -1.0f;
        quarvel::azimuth_heading_degrees(c[0], c[1], &degrees);
        EXPECT_EQ(degrees, c[2]) << c[0] << ", " << c[1];
        EXPECT_EQ(quarvel::orientation_heading_radians(c[0], c[1]), c[3]) << c[0] << ", " << c[1];
    }
}


TEST(HeadingCorrection, RowsApplyOnlyInsideTheirOpenIntervals) {
    using quarvel::apply_correction_table;
    const float rows[][2] = {{30, 30}, {std::nextafter(30.0f, 31.0f), std::nextafter(30.0f, 31.0f) + 8}, {45, 45},
                             {std::nextafter(50.0f, 51.0f), std::nextafter(50.0f, 51.0f) - 8},
                             {std::nextafter(40.0f, 0.0f), std::nextafter(40.0f, 0.0f) + 8}, {40, 40},
                             {280, 262}, {290, 290}, {325, 311}, {330, 330}, {0, 0}, {360, 360}};
    for (const auto &r : rows) EXPECT_EQ(apply_correction_table(r[0]), r[1]) << r[0];
}

TEST(HeadingCorrection, ATiltBeyond60DegreesOnEitherAxisSkipsTheTableAndTheAveraging) {
    float out[3];
    // 35 lies in the (30, 40) row; tilted about both axes the reference heading differs.
    for (int i = 0; i < 40; ++i) call(device(35.0, 70.0, 20.0), out);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(out[i], m_orientation[i]) << i;
}

TEST(HeadingCorrection, NearNorthShiftsAndAveragingWithTheReference) {
    // {A, R, result}: away from north R is averaged in wherever it lies, with no
    // wrap-around handling; near north A is shifted and averaged only on R's side.
    const float cases[][3] = {
        {43, 35, 39},   {25, 355, 190},  {339, 1, 170},  {340, 100, 340}, {15, 355, 15}, {15, 10, 12.5f},
        {20, 5, 20},    {8, 10, 3},      {5, 10, 5},     {345, 344, 347}, {349, 355, 354}, {360, 350, 360},
        {339.99f, 340.09f, 0x1.5410a4p+8f},  // averaged into the band beside R: averaged again
        {15, 20, 17.5f}, {20, 10, 15}};
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c[0] << " with " << c[1]);
        EXPECT_EQ(quarvel::blend_with_reference(c[0], c[1]), c[2]);
    }
}

// The supervision on storage of its own, one call per row: a still call holds, and a
// small jump is counted with half of it kept; a huge jump beside a small one requests a
// restart, the still count saturating at 100; movement releases and clears. The
// module's state stays as loaded.
TEST(SupervisionState, RunsOnBoundStorageOnly) {
    float old_acc[3] = {0, 0, 9.8f}, old_mag[3] = {20, 0, -40}, delta[3] = {};
    int16_t run_o = 1, run_ret = 99, small = 0, medium = 0, large = 0, fired = 0, restart = 0;
    const quarvel::SupervisionState s{old_acc, old_mag, run_o, run_ret, small, medium, large, fired, restart, delta};
    struct Row { float acc_z, mag_x, mag_y; int16_t run_o, run_ret, small, fired, restart; float delta_x; };
    const Row rows[] = {{9.8f, 30, 0, 0, 100, 1, 1, 0, 5},
                        {9.8f, 2520, 10, 0, 100, 2, 1, 1, 5},
                        {9.5f, 20, 0, 1, 0, 0, 0, 0, 5}};
    for (const Row &r : rows) {
        SCOPED_TRACE(r.mag_x);
        float mag[3] = {r.mag_x, r.mag_y, -40}, acc[3] = {0, 0, r.acc_z};
        quarvel::supervise(s, mag, acc);
        using Counts = std::array<int16_t, 5>;
        EXPECT_EQ((Counts{run_o, run_ret, small, fired, restart}), (Counts{r.run_o, r.run_ret, r.small, r.fired, r.restart}));
        EXPECT_EQ(delta[0], r.delta_x);
    }
    EXPECT_EQ(::run_ret + ::noise_mag + ::noise_flag_t + cali_ret, 0);
    EXPECT_EQ(::run_o, 1);
}

TEST(Stillness, MovementOfThreeTenthsOnAnyAxisReleasesAndClearsTheRequest) {
    Reading r = device(90.0);
    float out[3];
    hold(r, out);
    // GIVEN a jump with y in the small band: a request; a quiet call drops it, keeps the flag
    call(shifted(r, 3000.0f, 10.0f, 0.0f), out);
    ASSERT_EQ(supervision(), (Supervision{0, 1, 0, 0, 1, 1}));
    call(r, out);
    EXPECT_EQ(supervision(), (Supervision{0, 0, 0, 0, 1, 0}));
    // AND large, medium and jump calls raise counts and the request again
    for (float dx : {1500.0f, 100.0f, 3000.0f}) call(shifted(r, dx, 10.0f, 0.0f), out);
    ASSERT_EQ(supervision(), (Supervision{0, 3, 1, 1, 1, 1}));
    // Just under 0.3 m/s² of change, the field still disturbed: still holding.
    Reading moved = shifted(r, 10.0f, 0.0f, 0.0f);
    moved.acc[0] = r.acc[0] + std::nextafter(0.3f, 0.0f);
    call(moved, out);
    EXPECT_EQ(supervision(), (Supervision{0, 4, 1, 1, 1, 1}));
    // Exactly 0.3 m/s² on x: Tracking resumes and the supervision starts over, except
    // for the large-band count.
    const float before = moved.acc[0];
    moved.acc[0] -= 0.3f;
    ASSERT_EQ(std::fabs(moved.acc[0] - before), 0.3f);
    call(moved, out);
    EXPECT_EQ(supervision(), (Supervision{1, 0, 0, 1, 0, 0}));
    EXPECT_TRUE(run_ret == 0 && out[0] == o_values[0]);
    for (int axis : {1, 2}) {
        hold(r, out);
        moved = r;
        moved.acc[axis] += 0.3f;
        call(moved, out);
        EXPECT_EQ(run_o, 1) << axis;
    }
}


struct BandCase {
    float dx, dy, dz;  // field change against the frozen reference, µT
    int16_t small, medium, large, request;
};
void PrintTo(const BandCase &c, std::ostream *os) { *os << "field change " << c.dx << ", " << c.dy << ", " << c.dz; }
class JumpBand : public ::testing::TestWithParam<BandCase> {};

TEST_P(JumpBand, CountsAndRequestsOfOneHoldingCall) {
    const BandCase c = GetParam();
    const Reading r = device(90.0);
    float out[3];
    hold(r, out);
    call(shifted(r, c.dx, c.dy, c.dz), out);
    // (only calls with a small-band axis raise the jump flag here)
    EXPECT_EQ(supervision(), (Supervision{0, c.small, c.medium, c.large, c.small, c.request}));
}
// Without a small-band axis the reference replaces the field, so later bands see nothing.
// On x the bands are inclusive below; on y and z exclusive.
INSTANTIATE_TEST_SUITE_P(
    Bounds, JumpBand,
    ::testing::Values(BandCase{0, 0, 39.5f, 1, 0, 0, 0}, BandCase{5, 5, -5, 0, 0, 0, 0}, BandCase{40, 0, 0, 0, 0, 0, 0},
                      BandCase{40, 10, 0, 1, 1, 0, 0}, BandCase{1000, 10, 0, 1, 0, 1, 0},
                      BandCase{10, 1000, 0, 1, 0, 0, 0}, BandCase{10, 1000.5f, 0, 1, 0, 1, 0},
                      BandCase{2000, 10, 0, 1, 0, 0, 1}, BandCase{10, 0, 2000, 1, 0, 0, 0},
                      BandCase{10, 0, -2001, 1, 0, 0, 1}));

TEST(RestartCounts, LimitCallOfEachBandRaisesTheRequestAndRestartsItsCount) {
    struct Case {
        int16_t *counter;
        int limit;      // the call that raises the request
        float dx, dy;   // field change of every holding call, µT (y keeps the small band)
    };
    const Reading r = device(90.0);
    float out[3];
    for (const Case c : {Case{&noise_mag, 500, 10, 0}, Case{&noise_mag_flag, 300, 100, 10},
                         Case{&noise_mag_fflag, 100, 1500, 10}}) {
        SCOPED_TRACE(c.limit);
        Reading moved = r;  // released and held again: the request and counts start over
        moved.acc[2] += 1.0f;
        call(moved, out);
        hold(r, out);
        for (int i = 1; i < c.limit; ++i) call(shifted(r, c.dx, c.dy, 0.0f), out);
        EXPECT_TRUE(*c.counter == c.limit - 1 && cali_ret == 0);
        call(shifted(r, c.dx, c.dy, 0.0f), out);
        EXPECT_TRUE(*c.counter == 0 && cali_ret == 1);
    }
}

TEST(SamplingPermission, OnlyAnAxisAboveAFifthOfAGUpwardsPermits) {
    const float cases[][4] = {{0, 0, 9.8f, 1},    {0, 0, -9.8f, 0},   {9.8f, 0, 0, 1},   {-9.8f, 0, 0, 0},
                              {0, 1.9f, -9.6f, 0}, {0, 2.0f, -9.6f, 1}, {-1, -1, -30, 0}, {0, 0, 30, 1}};
    float out[3];
    for (const auto &c : cases) {
        call(Reading{{c[0], c[1], c[2]}, {20, 10, -40}}, out);
        EXPECT_EQ(cali_flag, c[3]) << c[0] << " " << c[1] << " " << c[2];
    }
}

// Readings the arithmetic cannot carry (none, no direction, no field) are refused: no
// output, nothing counted or remembered, no sampling decision.
TEST(BadInput, ReadingsWithoutDirectionOrFieldAreRefused) {
    const float nan = std::nanf(""), inf = INFINITY;
    const Reading r = device(90.0);
    float out[3];
    hold(r, out);
    const int16_t still_calls = run_ret;
    cali_flag = 5;
    for (const Reading &bad : {Reading{{0, 0, 0}, {20, 10, -40}}, Reading{{0, 0, -9.8f}, {0, -0.0f, 0}},
                               Reading{{nan, 0, 9.8f}, {20, 10, -40}}, Reading{{1e-30f, 0, 0}, {20, 10, -40}},
                               Reading{{0, 0, 9.8f}, {inf, 10, -40}}, Reading{{0, 0, 9.8f}, {nan, nan, nan}},
                               Reading{{0, 0, 9.8f}, {3e36f, 0, 0}}}) {
        float untouched[3] = {-7, -7, -7};
        call(bad, untouched);
        for (float o : untouched) EXPECT_EQ(o, -7.0f);
    }
    EXPECT_TRUE(run_ret == still_calls && cali_flag == 5 && old_acc[2] == r.acc[2]);
    // WHILE holding, a huge but finite jump on x raises the restart
    call(Reading{{r.acc[0], r.acc[1], r.acc[2]}, {1e30f, r.mag[1] + 10.0f, r.mag[2]}}, out);
    EXPECT_EQ(cali_ret, 1);
    // AND an infinite acceleration is a movement like any other
    call(Reading{{inf, -inf, 9.8f}, {20, 10, -40}}, out);
    EXPECT_EQ(run_o, 1);
    for (float o : out) EXPECT_TRUE(std::isfinite(o));
}

}  // namespace
