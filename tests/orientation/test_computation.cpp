// The orientation computation: angles from a modelled device, the Tracking and
// Holding states, the field supervision that steers the calibration, and the
// heading correction.
#include <gtest/gtest.h>

#include <cmath>
#include <ostream>

#include "calmodule/magcal.h"
#include "calmodule/orientation.h"
#include "magcal/calibration_state.h"
#include "orientation/heading.h"

namespace {

// ---- A device in the Earth's field ------------------------------------------------------
// World frame east, north, up. The field has 20 µT horizontal (north) and 40 µT
// downwards; the accelerometer reads 9.8 m/s² upwards at rest.

struct Reading {
    float acc[3];
    float mag[3];
};

constexpr double kPi = 3.14159265358979323846;
constexpr double kFieldNorth = 20.0;
constexpr double kFieldDown = 40.0;

// Device y axis at `heading` degrees clockwise from north, then its right edge
// raised by `right_up` degrees (about y), then its top edge raised by `top_up`
// degrees (about the new x): the order in which the tilt compensation undoes them.
Reading device(double heading, double top_up = 0.0, double right_up = 0.0) {
    const double h = heading * kPi / 180.0;
    const double t = top_up * kPi / 180.0;
    const double r = right_up * kPi / 180.0;
    double ex[3] = {std::cos(h), -std::sin(h), 0.0};
    double ey[3] = {std::sin(h), std::cos(h), 0.0};
    double ez[3] = {0.0, 0.0, 1.0};
    for (int i = 0; i < 3; ++i) {  // about y
        const double x = std::cos(r) * ex[i] + std::sin(r) * ez[i];
        const double z = -std::sin(r) * ex[i] + std::cos(r) * ez[i];
        ex[i] = x;
        ez[i] = z;
    }
    for (int i = 0; i < 3; ++i) {  // about the new x
        const double y = std::cos(t) * ey[i] + std::sin(t) * ez[i];
        const double z = -std::sin(t) * ey[i] + std::cos(t) * ez[i];
        ey[i] = y;
        ez[i] = z;
    }
    const double field[3] = {0.0, kFieldNorth, -kFieldDown};
    const double *axes[3] = {ex, ey, ez};
    Reading reading;
    for (int a = 0; a < 3; ++a) {
        reading.acc[a] = static_cast<float>(9.8 * axes[a][2]);
        reading.mag[a] = static_cast<float>(field[0] * axes[a][0] + field[1] * axes[a][1] + field[2] * axes[a][2]);
    }
    return reading;
}

// One call with copies of the vectors, as the orientation algorithm makes it.
void call(const Reading &r, float out[3]) {
    float mag[3] = {r.mag[0], r.mag[1], r.mag[2]};
    float acc[3] = {r.acc[0], r.acc[1], r.acc[2]};
    get_oritation_values(mag, acc, out);
}

// From load, 40 calls with the same reading: the first moves away from the zero
// history, the next 39 are still and all of them still compute.
void settle(const Reading &r, float out[3]) {
    for (int i = 0; i < 40; ++i) call(r, out);
}

// Settles and then makes the 40th still call, which holds.
void hold(const Reading &r, float out[3]) {
    settle(r, out);
    call(r, out);
}

Reading shifted(Reading r, float dx, float dy, float dz) {
    r.mag[0] += dx;
    r.mag[1] += dy;
    r.mag[2] += dz;
    return r;
}

// Signed difference of two headings in degrees, in [-180, 180).
double heading_error(double got, double want) {
    double d = std::fmod(got - want + 540.0, 360.0) - 180.0;
    return d;
}

// ---- Angles -------------------------------------------------------------------------------

class FlatDevice : public ::testing::TestWithParam<double> {};

TEST_P(FlatDevice, AzimuthFollowsTheYAxisAroundTheCompass) {
    // GIVEN a device lying flat with its y axis at the given heading
    float out[3];
    // WHEN the filters have settled
    settle(device(GetParam()), out);
    // THEN the azimuth is that heading (north reads 360), pitch and roll are level
    EXPECT_NEAR(heading_error(out[0], GetParam()), 0.0, 0.01) << out[0];
    EXPECT_NEAR(out[1], 0.0f, 1e-3f);
    EXPECT_NEAR(out[2], 0.0f, 1e-3f);
    EXPECT_GT(out[0], 0.0f);
    EXPECT_LE(out[0], 360.0f);
}
// The four cardinal points, and the diagonals, where no correction row applies and
// the reference heading must agree for the average to stay put.
INSTANTIATE_TEST_SUITE_P(CompassPoints, FlatDevice,
                         ::testing::Values(0.0, 90.0, 180.0, 270.0, 45.0, 135.0, 225.0, 315.0));

TEST(Angles, NorthReadsExactly360) {
    float out[3];
    settle(device(0.0), out);
    EXPECT_EQ(out[0], 360.0f);
    EXPECT_EQ(m_orientation[0], 360.0f);
}

TEST(Angles, TiltedAttitudesGiveSignedPitchAndRoll) {
    struct Case {
        double top_up, right_up;
        float pitch, roll;
    };
    // Raising the top edge gives a negative pitch; raising the right edge a
    // positive roll.
    for (const Case c : {Case{30, 0, -30, 0}, Case{-30, 0, 30, 0}, Case{0, 20, 0, 20}, Case{0, -20, 0, -20},
                         Case{120, 0, -120, 0}}) {
        float out[3];
        call(device(90.0, c.top_up, c.right_up), out);
        EXPECT_NEAR(out[1], c.pitch, 1e-3f) << c.top_up << " " << c.right_up;
        EXPECT_NEAR(out[2], c.roll, 1e-3f) << c.top_up << " " << c.right_up;
    }
}

struct TiltedHeading {
    double heading, top_up, right_up;
};
void PrintTo(const TiltedHeading &c, std::ostream *os) {
    *os << "heading " << c.heading << " top up " << c.top_up << " right up " << c.right_up;
}

class TiltedDevice : public ::testing::TestWithParam<TiltedHeading> {};

TEST_P(TiltedDevice, HeadingIsTiltCompensated) {
    // GIVEN a device tilted by up to 25 degrees at a heading with no correction row
    const TiltedHeading c = GetParam();
    float out[3];
    // WHEN the filters have settled
    settle(device(c.heading, c.top_up, c.right_up), out);
    // THEN the heading is the true one
    EXPECT_NEAR(heading_error(m_orientation[0], c.heading), 0.0, 0.01);
    // AND about one axis the reference heading agrees, so the average stays on it.
    // (Tilted about both, the reference undoes the tilts in the other order and
    // pulls the average off by a few degrees.)
    if (c.top_up == 0.0 || c.right_up == 0.0) {
        EXPECT_NEAR(heading_error(out[0], c.heading), 0.0, 0.01);
    }
}

INSTANTIATE_TEST_SUITE_P(Attitudes, TiltedDevice,
                         ::testing::Values(TiltedHeading{90, 25, 0}, TiltedHeading{90, -25, 0},
                                           TiltedHeading{180, 25, 0}, TiltedHeading{270, -25, 0},
                                           TiltedHeading{90, 0, 20}, TiltedHeading{270, 0, -20},
                                           TiltedHeading{225, 15, 15}, TiltedHeading{135, -10, 20}));

// ---- Heading correction and the reference heading ---------------------------------------

TEST(HeadingCorrection, HeadingInACorrectionRowIsCorrectedAndAveragedWithTheReference) {
    // GIVEN a flat device at 35 degrees, inside the (30, 40) row
    float out[3];
    settle(device(35.0), out);
    // THEN 35 + 8 = 43 is averaged with the reference heading, itself about 35
    EXPECT_NEAR(m_orientation[0], 35.0f, 0.01f);
    EXPECT_NEAR(out[0], 39.0f, 0.02f);
}

TEST(HeadingCorrection, SteepAttitudeIsReportedAsComputed) {
    // Top edge raised 70 degrees: no table row and no averaging.
    float out[3];
    settle(device(35.0, 70.0), out);
    EXPECT_EQ(out[0], m_orientation[0]);
    EXPECT_EQ(out[1], m_orientation[1]);
    EXPECT_EQ(out[2], m_orientation[2]);
    EXPECT_NEAR(out[1], -70.0f, 1e-3f);
}

TEST(HeadingCorrection, RemapMatricesAreReadOnEveryCall) {
    // GIVEN a field remap that maps everything to zero, the reference heading has no
    // direction and stays at 0
    for (int32_t &m : MagTrsfMatrix) m = 0;
    float out[3];
    settle(device(90.0), out);
    // THEN the 90 degree heading is averaged with 0
    EXPECT_NEAR(out[0], 45.0f, 0.01f);
}

TEST(CorrectionTable, EachRowAppliesOnlyInsideItsOpenInterval) {
    struct Row {
        float above, below, add;
    };
    const Row rows[] = {{30, 40, 8},    {50, 60, -8},   {75, 85, 10},   {95, 105, -8},  {120, 130, 18},
                        {140, 150, -8}, {165, 175, 10}, {185, 195, -8}, {210, 220, 8},  {230, 240, -12},
                        {255, 265, 8},  {275, 290, -18}, {300, 310, 8}, {320, 330, -14}};
    using quarvel::apply_correction_table;
    for (const Row &row : rows) {
        EXPECT_EQ(apply_correction_table(row.above), row.above);
        EXPECT_EQ(apply_correction_table(row.below), row.below);
        const float just_in = std::nextafter(row.above, 1000.0f);
        EXPECT_EQ(apply_correction_table(just_in), just_in + row.add) << row.above;
        const float last_in = std::nextafter(row.below, 0.0f);
        EXPECT_EQ(apply_correction_table(last_in), last_in + row.add) << row.below;
    }
    EXPECT_EQ(apply_correction_table(35.0f), 43.0f);
    EXPECT_EQ(apply_correction_table(280.0f), 262.0f);  // the one 15-degree row
    EXPECT_EQ(apply_correction_table(45.0f), 45.0f);
    EXPECT_EQ(apply_correction_table(360.0f), 360.0f);
}

TEST(ReferenceBlend, AveragesAwayFromNorthWhereverTheReferenceLies) {
    using quarvel::blend_with_reference;
    EXPECT_EQ(blend_with_reference(43.0f, 35.0f), 39.0f);
    EXPECT_EQ(blend_with_reference(262.0f, 270.0f), 266.0f);
    // No wrap-around handling: the seam sits between the two.
    EXPECT_EQ(blend_with_reference(25.0f, 355.0f), 190.0f);
    EXPECT_EQ(blend_with_reference(339.0f, 1.0f), 170.0f);
    EXPECT_EQ(blend_with_reference(340.0f, 100.0f), 340.0f);  // neither band: bounds exclusive
}

TEST(ReferenceBlend, NearNorthShiftsAndAveragesOnlyOnTheSameSide) {
    using quarvel::blend_with_reference;
    EXPECT_EQ(blend_with_reference(15.0f, 355.0f), 15.0f);
    EXPECT_EQ(blend_with_reference(15.0f, 10.0f), 12.5f);
    EXPECT_EQ(blend_with_reference(20.0f, 20.0f), 20.0f);
    EXPECT_EQ(blend_with_reference(20.0f, 5.0f), 20.0f);   // R = 5 is outside (5, 20]
    EXPECT_EQ(blend_with_reference(8.0f, 10.0f), 3.0f);    // shifted down, then below 5
    EXPECT_EQ(blend_with_reference(12.0f, 10.0f), 8.5f);   // 7, then averaged with 10
    EXPECT_EQ(blend_with_reference(5.0f, 10.0f), 5.0f);
    EXPECT_EQ(blend_with_reference(13.0f, 200.0f), 13.0f);
    EXPECT_EQ(blend_with_reference(345.0f, 100.0f), 350.0f);
    EXPECT_EQ(blend_with_reference(345.0f, 344.0f), 347.0f);
    EXPECT_EQ(blend_with_reference(349.0f, 355.0f), 354.0f);  // R = 355 is outside (340, 355)
    EXPECT_EQ(blend_with_reference(355.0f, 345.0f), 355.0f);
    EXPECT_EQ(blend_with_reference(360.0f, 350.0f), 360.0f);
}

// ---- Tracking and Holding -------------------------------------------------------------

TEST(Stillness, FirstCallComputesWithoutACalibrationRequest) {
    float out[3] = {-1.0f, -1.0f, -1.0f};
    call(device(90.0), out);
    EXPECT_EQ(run_o, 1);
    EXPECT_EQ(run_ret, 0);
    EXPECT_EQ(cali_ret, 0);
    EXPECT_EQ(out[0], o_values[0]);
    EXPECT_EQ(RunOriAngles, 0);
    const Reading r = device(90.0);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(old_acc[i], r.acc[i]);
    // The field reference is the smoothed field: zero on the first call.
    for (float m : old_mag) EXPECT_EQ(m, 0.0f);
}

TEST(Stillness, FortiethStillCallHoldsAndRunsTheJumpBands) {
    const Reading r = device(90.0);
    float out[3];
    // GIVEN 39 still calls after the first: still computing
    settle(r, out);
    EXPECT_EQ(run_ret, 39);
    EXPECT_EQ(run_o, 1);
    const float held[3] = {out[0], out[1], out[2]};
    // WHEN the 40th still call sees the field moved by 10 µT on x
    call(shifted(r, 10.0f, 0.0f, 0.0f), out);
    // THEN it holds the previous output and counts a small jump
    EXPECT_EQ(run_o, 0);
    EXPECT_EQ(run_ret, 40);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(out[i], held[i]);
    EXPECT_EQ(noise_mag, 1);
    EXPECT_EQ(noise_flag_t, 1);
    // AND a field turned right round still leaves the output held
    call(device(270.0), out);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(out[i], held[i]);
}

TEST(Stillness, StillCountSaturatesAtOneHundred) {
    const Reading r = device(90.0);
    float out[3];
    for (int i = 0; i < 150; ++i) call(r, out);
    EXPECT_EQ(run_ret, 100);
    EXPECT_EQ(run_o, 0);
}

TEST(Stillness, MovementOfThreeTenthsReleasesAndClearsTheRequest) {
    Reading r = device(90.0);
    float out[3];
    hold(r, out);
    // GIVEN counts and a request raised while holding
    call(shifted(r, 3000.0f, 10.0f, 0.0f), out);  // a jump, with y in the small band
    call(shifted(r, 1500.0f, 10.0f, 0.0f), out);  // a large-band call
    ASSERT_EQ(cali_ret, 1);
    ASSERT_EQ(noise_mag, 2);
    ASSERT_EQ(noise_mag_fflag, 1);
    // WHEN the acceleration changes by just under 0.3 m/s²: still holding
    Reading nudged = r;
    nudged.acc[0] = r.acc[0] + std::nextafter(0.3f, 0.0f);
    call(nudged, out);
    EXPECT_EQ(run_o, 0);
    // WHEN it changes by 0.3 m/s² on one axis (here x, from the nudged value)
    Reading moved = nudged;
    moved.acc[0] = nudged.acc[0] - 0.3f;
    ASSERT_EQ(std::fabs(moved.acc[0] - nudged.acc[0]), 0.3f);
    call(moved, out);
    // THEN Tracking resumes with fresh angles and the supervision starts over,
    // except for the large-band count
    EXPECT_EQ(run_o, 1);
    EXPECT_EQ(run_ret, 0);
    EXPECT_EQ(noise_flag_t, 0);
    EXPECT_EQ(noise_mag, 0);
    EXPECT_EQ(noise_mag_flag, 0);
    EXPECT_EQ(cali_ret, 0);
    EXPECT_EQ(noise_mag_fflag, 1);
    EXPECT_EQ(out[0], o_values[0]);
}

TEST(Stillness, MovementOnYOrZAlsoReleases) {
    for (int axis : {1, 2}) {
        const Reading r = device(90.0);
        float out[3];
        hold(r, out);
        Reading moved = r;
        moved.acc[axis] += 0.5f;
        call(moved, out);
        EXPECT_EQ(run_o, 1) << axis;
    }
}

// ---- Jump bands while holding -----------------------------------------------------------

struct BandCase {
    float dx, dy, dz;  // field change against the frozen reference, µT
    int16_t small, medium, large, request;
};

void PrintTo(const BandCase &c, std::ostream *os) {
    *os << "field change " << c.dx << ", " << c.dy << ", " << c.dz;
}

class JumpBand : public ::testing::TestWithParam<BandCase> {};

TEST_P(JumpBand, CountsAndRequestsOfOneHoldingCall) {
    const BandCase c = GetParam();
    // GIVEN a device holding with a field well inside the sampling range
    const Reading r = device(90.0);
    float out[3];
    hold(r, out);
    ASSERT_EQ(noise_mag, 0);
    // WHEN one call sees the field changed
    call(shifted(r, c.dx, c.dy, c.dz), out);
    // THEN
    EXPECT_EQ(noise_mag, c.small);
    EXPECT_EQ(noise_mag_flag, c.medium);
    EXPECT_EQ(noise_mag_fflag, c.large);
    EXPECT_EQ(cali_ret, c.request);
    EXPECT_EQ(noise_flag_t, c.small);  // here only calls with a small-band axis get further
}

INSTANTIATE_TEST_SUITE_P(
    Bounds, JumpBand,
    ::testing::Values(
        BandCase{10, 0, 0, 1, 0, 0, 0}, BandCase{0, -10, 0, 1, 0, 0, 0}, BandCase{0, 0, 39.5f, 1, 0, 0, 0},
        BandCase{5, 5, -5, 0, 0, 0, 0},        // 5 is not above 5
        BandCase{3, 3, 3, 0, 0, 0, 0},         // quiet field
        BandCase{40, 0, 0, 0, 0, 0, 0},        // no small-band axis: the reference replaces the field
        BandCase{3000, 0, 0, 0, 0, 0, 0},      // likewise, even for a jump
        BandCase{40, 10, 0, 1, 1, 0, 0},       // medium from 40 inclusive
        BandCase{10, 0, 999.5f, 1, 1, 0, 0},
        BandCase{1000, 10, 0, 1, 0, 1, 0},     // x: 1000 is large
        BandCase{10, 1000, 0, 1, 0, 0, 0},     // y: 1000 is neither medium nor large
        BandCase{10, 0, 1000, 1, 0, 0, 0},     // z likewise
        BandCase{10, 1000.5f, 0, 1, 0, 1, 0},
        BandCase{10, 0, -1999.5f, 1, 0, 1, 0},
        BandCase{2000, 10, 0, 1, 0, 0, 1},     // x: 2000 is a jump
        BandCase{10, 2000, 0, 1, 0, 0, 0},     // y: 2000 is neither large nor a jump
        BandCase{10, 0, 2000, 1, 0, 0, 0},     // z likewise
        BandCase{10, 2001, 0, 1, 0, 0, 1}, BandCase{10, 0, -2001, 1, 0, 0, 1},
        BandCase{3000, 10, 0, 1, 0, 0, 1}));

TEST(JumpBand, QuietCallDropsTheRequestButKeepsTheJumpFlag) {
    const Reading r = device(90.0);
    float out[3];
    hold(r, out);
    call(shifted(r, 10.0f, 2500.0f, 0.0f), out);
    ASSERT_EQ(cali_ret, 1);
    call(r, out);
    EXPECT_EQ(cali_ret, 0);
    EXPECT_EQ(noise_mag, 0);
    EXPECT_EQ(noise_flag_t, 1);
}

// ---- Counts that raise a calibration restart ------------------------------------------

struct RestartCount {
    const char *name;
    int16_t *counter;
    int16_t limit;   // the call that raises the request
    float dx, dy;    // field change of every holding call, µT (y keeps the small band)
};
void PrintTo(const RestartCount &c, std::ostream *os) { *os << c.name; }

class RestartCounts : public ::testing::TestWithParam<RestartCount> {};

TEST_P(RestartCounts, LimitCallRaisesTheRequestAndRestartsTheCount) {
    const RestartCount c = GetParam();
    // GIVEN a device holding, and one call short of the limit
    const Reading r = device(90.0);
    float out[3];
    hold(r, out);
    for (int i = 1; i < c.limit; ++i) call(shifted(r, c.dx, c.dy, 0.0f), out);
    EXPECT_EQ(*c.counter, c.limit - 1);
    EXPECT_EQ(cali_ret, 0);
    // WHEN one more such call comes
    call(shifted(r, c.dx, c.dy, 0.0f), out);
    // THEN the count starts over and a restart is requested
    EXPECT_EQ(*c.counter, 0);
    EXPECT_EQ(cali_ret, 1);
}

INSTANTIATE_TEST_SUITE_P(Disturbances, RestartCounts,
                         ::testing::Values(RestartCount{"small", &noise_mag, 500, 10.0f, 0.0f},
                                           RestartCount{"medium", &noise_mag_flag, 300, 100.0f, 10.0f},
                                           RestartCount{"large", &noise_mag_fflag, 100, 1500.0f, 10.0f}));

// ---- Half-difference for the calibrated output -----------------------------------------

TEST(HalfDifference, HalfOfASmallJumpIsLeftForTheCalibration) {
    const Reading r = device(90.0);
    float out[3];
    hold(r, out);
    // WHEN the field moves by (10, 0, -6) µT while holding
    call(shifted(r, 10.0f, 0.0f, -6.0f), out);
    // THEN half of the move is left for the calibrated output
    EXPECT_EQ(quarvel::noise_mag_delta[0], 5.0f);
    EXPECT_EQ(quarvel::noise_mag_delta[1], 0.0f);
    EXPECT_EQ(quarvel::noise_mag_delta[2], -3.0f);
    // WHEN the field returns: the reference replaces it and the correction is zero
    call(r, out);
    for (float d : quarvel::noise_mag_delta) EXPECT_EQ(d, 0.0f);
}

TEST(HalfDifference, NotKeptForAStrongFieldOrWhileTracking) {
    const Reading r = device(90.0);
    float out[3];
    hold(r, out);
    // A medium jump takes x from -20 µT to 160 µT: beyond 150 µT, not kept.
    ASSERT_EQ(r.mag[0], -20.0f);
    call(shifted(r, 180.0f, 10.0f, 0.0f), out);
    EXPECT_EQ(noise_flag_t, 1);
    for (float d : quarvel::noise_mag_delta) EXPECT_EQ(d, 0.0f);
    // Tracking: a moved device keeps nothing either.
    Reading moved = shifted(r, 10.0f, 0.0f, 0.0f);
    moved.acc[2] += 1.0f;
    call(moved, out);
    for (float d : quarvel::noise_mag_delta) EXPECT_EQ(d, 0.0f);
}

// ---- Sampling permission from the accelerometer -----------------------------------------

TEST(SamplingPermission, OnlyAnAxisAboveAFifthOfAGUpwardsPermits) {
    struct Case {
        float ax, ay, az;
        int16_t flag;
    };
    const float m[3] = {20.0f, 10.0f, -40.0f};
    for (const Case c : {Case{0, 0, 9.8f, 1}, Case{0, 0, -9.8f, 0}, Case{9.8f, 0, 0, 1}, Case{-9.8f, 0, 0, 0},
                         Case{0, 1.9f, -9.6f, 0}, Case{0, 2.0f, -9.6f, 1}, Case{-1, -1, -30, 0},
                         Case{0, 0, 30, 1}}) {
        float mag[3] = {m[0], m[1], m[2]};
        float acc[3] = {c.ax, c.ay, c.az};
        float out[3];
        get_oritation_values(mag, acc, out);
        EXPECT_EQ(cali_flag, c.flag) << c.ax << " " << c.ay << " " << c.az;
    }
}

TEST(SamplingPermission, SetWhileHoldingToo) {
    Reading r = device(0.0, 0.0, 0.0);
    float out[3];
    hold(r, out);
    cali_flag = 7;
    call(r, out);
    EXPECT_EQ(run_o, 0);
    EXPECT_EQ(cali_flag, 1);
}

// ---- Input that carries nothing ---------------------------------------------------------

TEST(EarlyReturn, ZeroAccelerationOrZeroFieldChangesNothing) {
    float out[3] = {-7.0f, -7.0f, -7.0f};
    cali_flag = 5;
    for (const Reading &r : {Reading{{0, 0, 0}, {20, 10, -40}}, Reading{{0, 0, -9.8f}, {0, -0.0f, 0}}}) {
        call(r, out);
        for (float o : out) EXPECT_EQ(o, -7.0f);
        for (float a : old_acc) EXPECT_EQ(a, 0.0f);
        EXPECT_EQ(run_ret, 0);
        EXPECT_EQ(cali_flag, 5);
    }
}

// Bad values: the library must neither crash nor hit undefined behaviour (the
// sanitizer build runs this). The values below are simply what the IEEE
// comparisons give: a NaN never counts as still and never falls in a band.
TEST(BadInput, NaNAndInfiniteVectorsAreCarriedThroughAsIEEEValues) {
    const float nan = std::nanf("");
    const float inf = INFINITY;
    float out[3];
    // GIVEN a NaN acceleration: not still; the angles become NaN
    call(Reading{{nan, 0, 9.8f}, {20, 10, -40}}, out);
    EXPECT_EQ(run_o, 1);
    EXPECT_TRUE(std::isnan(out[2]));
    // AND the next good reading is not still either (its change is NaN)
    call(Reading{{0, 0, 9.8f}, {20, 10, -40}}, out);
    EXPECT_EQ(run_ret, 0);
    // GIVEN infinite and NaN fields and accelerations in turn: no crash
    for (const Reading &r : {Reading{{0, 0, 9.8f}, {inf, 10, -40}}, Reading{{0, 0, 9.8f}, {nan, nan, nan}},
                             Reading{{inf, -inf, 9.8f}, {20, 10, -40}}, Reading{{0, 0, inf}, {1e38f, -1e38f, 1e38f}},
                             Reading{{nan, nan, nan}, {nan, nan, nan}}}) {
        call(r, out);
    }
    // WHILE holding, an infinite change on x with y in the small band is a jump
    const Reading r = device(90.0);
    hold(r, out);
    call(Reading{{r.acc[0], r.acc[1], r.acc[2]}, {inf, r.mag[1] + 10.0f, r.mag[2]}}, out);
    EXPECT_EQ(cali_ret, 1);
    // AND a NaN field change fires no band: the reference replaces the field
    call(Reading{{r.acc[0], r.acc[1], r.acc[2]}, {nan, nan, nan}}, out);
    EXPECT_EQ(cali_ret, 0);
    EXPECT_EQ(noise_mag, 0);
}

}  // namespace
