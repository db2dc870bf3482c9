// The calibration seen from inside the module: cofactor refusals, sphere fit, sample
// selection, state machine and supervision, parameter file and the driver.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "calmodule/magcal.h"
#include "calmodule/module.h"
#include "magcal/calibration_state.h"
#include "magcal/magcal_internal.h"
#include "support/device.h"
#include "support/test_env.h"

namespace {

struct Vec3 {
    float x, y, z;
};
// Three floats against the expected ones: equal, or within tol when tol > 0.
void expect3(const float *got, const Vec3 &want, float tol = 0.0f) {
    const float w[3] = {want.x, want.y, want.z};
    for (int i = 0; i < 3; ++i) {
        if (tol > 0.0f) EXPECT_NEAR(got[i], w[i], tol) << "axis " << i;
        else EXPECT_EQ(got[i], w[i]) << "axis " << i;
    }
}
void twelve_on_sphere(const Vec3 &c, float radius, float out[12][3]) {
    const float centre[3] = {c.x, c.y, c.z};
    testsupport::twelve_on_sphere(centre, radius, out);
}
using quarvel::cali_level;
using quarvel::cali_mag_values;
using quarvel::cali_offset;

float fit_offset[3] = {-1, -1, -1};
int32_t fit(const Vec3 &centre, float radius, void (*spoil)() = [] {}) {
    twelve_on_sphere(centre, radius, Msensor.dots);
    Msensor.dotsCount = 12;
    Msensor.dotsFull = 1;
    spoil();
    return CalibrationFunc(&Msensor, fit_offset);
}

TEST(SphereFit, ExactSamplesGiveTheCentreAndRefusalsLeaveTheOffsetAlone) {
    const struct { const char *what; float radius; void (*spoil)(); int32_t code; } refusals[] = {
        {"radius beyond an earth-like field", 60, [] {}, -7},
        {"a (0, 0, 0) sample", 40, [] { Msensor.dots[7][0] = Msensor.dots[7][1] = Msensor.dots[7][2] = 0; }, -5},
        {"no real sphere: never a NaN radius", 40, [] { Msensor.dots[3][1] = NAN; }, -7},
        {"buffer not handed over", 40, [] { Msensor.dotsFull = 0; }, -9},
    };
    for (const auto &r : refusals) EXPECT_EQ(fit({10, -20, 5}, r.radius, r.spoil), r.code) << r.what;
    EXPECT_EQ(Msensor.fitCount, 0);
    expect3(fit_offset, {-1, -1, -1});

    ASSERT_EQ(fit({10, -20, 5}, 40), 3);
    EXPECT_EQ(Msensor.fitCount, 1);
    EXPECT_NEAR(Msensor.radius[0], 40.0f, 1e-3f);
    expect3(fit_offset, {10, -20, 5}, 1e-3f);
    EXPECT_TRUE(Msensor.dotsCount == 12 && Msensor.dotsFull == 1);  // selection, not the fit, empties the buffer
}

TEST(SphereFit, HeldFitsAndDeviationRuns) {
    // Each step: the fit, its result, the fits held, the deviation run, the offset after
    // (the mean centre of the held fits; a refusal leaves it alone).
    struct Step { Vec3 centre; float radius; int32_t code; int held, deviations; Vec3 offset; };
    const Vec3 c{10, -20, 5}, c12{12, -20, 5};
    const std::vector<Step> histories[] = {
        // A second fit far from the first replaces it.
        {{c, 40, 3, 1, 0, c}, {{14, -16, 1}, 46, 3, 1, 0, {14, -16, 1}}},
        // A moderate deviation is left out of the mean; a gross one discards every fit.
        {{c, 40, 3, 1, 0, c}, {c12, 40, 3, 2, 0, {11, -20, 5}}, {{14, -20, 5}, 40, 3, 3, 0, c12},
         {{30, 30, 30}, 45, 3, 3, 1, c12}, {c, 49, -8, 0, 0, c12}},
        // Five moderate deviations in a row discard every fit.
        {{c, 40, 3, 1, 0, c}, {c, 40, 3, 2, 0, c}, {c, 40, 3, 3, 0, c}, {c, 45, 3, 3, 1, c}, {c, 45, 3, 3, 2, c},
         {c, 45, 3, 3, 3, c}, {c, 45, 3, 3, 4, c}, {c, 45, -8, 0, 0, c}},
    };
    for (const auto &history : histories) {
        FusionInit();
        for (size_t i = 0; i < history.size(); ++i) {
            const Step &s = history[i];
            SCOPED_TRACE(testing::Message() << "history " << &history - histories << ", fit " << i);
            ASSERT_EQ(fit(s.centre, s.radius), s.code);
            EXPECT_EQ(Msensor.fitCount, s.held);
            EXPECT_EQ(Msensor.radiusErrCount, s.deviations);
            expect3(fit_offset, s.offset, 1e-3f);
            if (s.held == 0) { EXPECT_EQ(Msensor.radius[0], 0.0f); }
        }
    }
}

TEST(SphereFit, SixtiethFitKeepsTheThirtyNewestNewestFirst) {
    for (int i = 0; i < 59; ++i) {
        Msensor.radius[i] = 40.0f;
        Msensor.sphere[i][0] = static_cast<float>(i);  // tags the fit's age
    }
    Msensor.fitCount = 59;
    ASSERT_EQ(fit({10, -20, 5}, 40), 3);
    EXPECT_EQ(Msensor.fitCount, 30);
    EXPECT_NEAR(Msensor.sphere[0][0], 20.0f, 1e-3f);  // the new fit
    for (int i = 1; i < 60; ++i) EXPECT_EQ(Msensor.sphere[i][0], i < 30 ? 59.0f - i : 0.0f) << i;
    for (int i = 30; i < 60; ++i) EXPECT_EQ(Msensor.radius[i], 0.0f) << i;
}

int32_t offer(float x, float y, float z, int16_t permitted = 1) {
    const float m[3] = {x, y, z};
    return DotsSelection(m, &Msensor, &permitted);
}

TEST(Selection, RangePermissionSpreadAndTheConsumedBuffer) {
    const struct { float x, y, z; int16_t permitted; int32_t code, buffered; } rows[] = {
        {501, 0, 0, 1, -13, 0}, {0, -501, 0, 1, -13, 0}, {0, 0, 801, 1, -13, 0}, {INFINITY, 0, 0, 1, -13, 0},
        {0, 0, 799, 1, -10, 0}, {201, 0, 0, 1, -10, 0},  {200, 200, 360, 1, 4, 1},
        {50, 50, 50, 0, -11, 1},     // facing down: not permitted
        {10, 10, 10, 1, 4, 2},       {20, 20, 10.5f, 1, -11, 2},  // z within 0.5 of a buffered one
        {12, 13, 13, 1, -11, 2},     // differences sum to 8
        {13, 13, 13, 1, 4, 3},       // 3 + 3 + 3
    };
    for (const auto &r : rows) {
        EXPECT_EQ(offer(r.x, r.y, r.z, r.permitted), r.code) << r.x << ", " << r.y << ", " << r.z;
        EXPECT_EQ(Msensor.dotsCount, r.buffered) << r.x << ", " << r.y << ", " << r.z;
    }
    // Twelve samples are handed over once; the next admitted sample empties the buffer.
    FusionInit();
    float s[12][3];
    twelve_on_sphere({10, -20, 5}, 40, s);
    for (int i = 0; i < 12; ++i) {
        ASSERT_EQ(offer(s[i][0], s[i][1], s[i][2]), 4) << i;
        ASSERT_EQ(DotsNumCheck(&Msensor), i < 11 ? -4 : 2) << i;
    }
    EXPECT_EQ(DotsNumCheck(&Msensor), -4);
    EXPECT_EQ(offer(100, 100, 100, 0), -11);  // not permitted: the buffer stays
    EXPECT_EQ(Msensor.dotsCount, 12);
    EXPECT_EQ(offer(100, 100, 100), -11);  // consumed: emptied, sample discarded
    EXPECT_TRUE(Msensor.dotsCount == 0 && Msensor.dotsFull == 0 && Msensor.dots[0][0] == 0.0f);
}

TEST(Selection, OffShellReadingsReplaceTheNewestAndTheTenthIsReported) {
    Msensor.fitCount = 2;  // two held fits around (10, -20, 5)
    for (float *s : {Msensor.sphere[0], Msensor.sphere[1]}) s[0] = 20, s[1] = -40, s[2] = 10;
    ASSERT_EQ(offer(50, -20, 5), 4);  // on the shell, 40 µT out
    ASSERT_EQ(offer(10, 20, 8), 4);
    EXPECT_EQ(offer(-30, -30, 60), 4);  // about 70 µT out: takes the newest slot
    EXPECT_TRUE(Msensor.dotsCount == 2 && Msensor.dots[1][0] == -30.0f && noise_flag == 1);
    EXPECT_EQ(offer(12, -18, 12), 4);  // 7.5 µT from the centre: inside the shell
    EXPECT_TRUE(Msensor.dots[1][2] == 12.0f && noise_flag == 2);
    // With nothing buffered an off-shell reading becomes the first sample.
    FusionInit();
    Msensor.fitCount = 2;
    Msensor.sphere[0][0] = Msensor.sphere[1][0] = 20.0f;
    noise_flag = 0;
    for (int i = 0; i < 9; ++i) {
        ASSERT_EQ(offer(80.0f + i, 3.0f * i, -2.0f * i), 4) << i;
        EXPECT_TRUE(Msensor.dotsCount == 1 && Msensor.dots[0][0] == 80.0f + i) << i;
    }
    EXPECT_EQ(noise_flag, 9);
    EXPECT_EQ(offer(95, 0, 0), -10);
    EXPECT_TRUE(noise_flag == 0 && Msensor.dots[0][0] == 88.0f);  // the reported reading is not stored
}

// Calls Fusion as the driver does, on its state; returns result and new_offset_flag.
std::pair<int32_t, int32_t> fusion(float x, float y, float z) {
    const float m[3] = {x, y, z};
    int32_t flag = 0;
    const int32_t r = Fusion(m, cali_mag_values, cali_offset, &cali_level, &flag, &cali_flag, &cali_ret,
                             quarvel::noise_mag_delta);
    return {r, flag};
}

// Twelve samples of the sphere (the last attempts the fit), then one more that empties
// the consumed buffer; returns new_offset_flag of the fitting call.
int32_t feed_sphere(const Vec3 &c, float radius) {
    float s[12][3];
    twelve_on_sphere(c, radius, s);
    for (int i = 0; i < 11; ++i) EXPECT_EQ(fusion(s[i][0], s[i][1], s[i][2]).first, -3) << i;
    const auto fitted = fusion(s[11][0], s[11][1], s[11][2]);
    EXPECT_EQ(fitted.first, 1);
    EXPECT_EQ(fusion(c.x + radius, c.y, c.z).first, -3);
    EXPECT_EQ(Msensor.dotsCount, 0);
    return fitted.second;
}

TEST(Fusion, CalibratedFieldUsesTheSelectedOffsetThenTheDisturbance) {
    cali_mag_values[0] = 4.0f;
    EXPECT_EQ(fusion(0, 0, 0), std::make_pair(-2, 0));  // not a sample: nothing changes
    EXPECT_TRUE(cali_mag_values[0] == 4.0f && Msensor.dotsCount == 0);
    const float latest[3] = {10, -5, 2};
    FusionSetOffset(latest);
    EXPECT_EQ(fusion(30, 20, -40).first, -3);
    expect3(cali_mag_values, {20, 25, -42});
    quarvel::noise_mag_delta[0] = 0.5f;
    fusion(31, 20, -40);
    EXPECT_EQ(cali_mag_values[0], 20.5f);
    OptimalOffset[0] = 1.0f;
    optimalFlag = 1;
    fusion(32, 20, -40);
    EXPECT_EQ(cali_mag_values[0], 30.5f);
    optimalFlag = 2;
    fusion(33, 20, -40);
    expect3(cali_mag_values, {0, 0, 0});
}

TEST(Fusion, TheAcceptingCallReportsWithTheOldOffsetAndFourFitsEndTheOptimalOffset) {
    const Vec3 centre{12, -18, 4};
    quarvel::noise_mag_delta[1] = 3.0f;
    float s[12][3];
    twelve_on_sphere(centre, 44, s);
    for (int i = 0; i < 11; ++i) fusion(s[i][0], s[i][1], s[i][2]);
    EXPECT_EQ(fusion(s[11][0], s[11][1], s[11][2]), std::make_pair(1, 0));
    expect3(cali_mag_values, {s[11][0], s[11][1] - 3.0f, s[11][2]});  // old offset (zero), old disturbance
    EXPECT_TRUE(cali_level == 1 && quarvel::noise_mag_delta[1] == 0.0f);
    expect3(LatestOffset, centre, 1e-3f);
    EXPECT_EQ(fusion(60, 0, 0).first, -3);  // empties the consumed buffer
    for (int n = 2; n <= 5; ++n) {
        optimalFlag = 1;
        EXPECT_EQ(feed_sphere(centre, 44), 1);  // from two fits on, asks for persistence
        EXPECT_EQ(optimalFlag, n > 4 ? 0 : 1) << n;  // cleared once more than four fits are held
    }
    // A refused fit (radius 57: on the shell, no earth field) re-derives the level from
    // the unchanged count.
    EXPECT_EQ(feed_sphere(centre, 57), 1);
    EXPECT_TRUE(Msensor.fitCount == 5 && cali_level == 3);
}

// From two held fits at level 2, three gross readings restart (each clears the running
// count of implausible ones): level 0 and an empty record, the offset kept in force.
TEST(Supervision, TheThirdGrossReadingRestarts) {
    feed_sphere({12, -18, 4}, 44);
    feed_sphere({12, -18, 4}, 44);
    EXPECT_EQ(fusion(250, 0, 0).first, -3);  // implausible: counted
    EXPECT_EQ(noiseCount, 1);
    for (float x : {600.0f, 600.0f}) EXPECT_EQ(fusion(x, 0, 0).first, -3);
    EXPECT_TRUE(noiseCount == 0 && l_noiseCount == 2);
    EXPECT_TRUE(cali_level == 2 && Msensor.fitCount == 2 && Msensor.dotsCount == 0);  // not yet; each emptied the buffer
    fusion(0, 0, 900);
    static const magcal_record empty = {};
    EXPECT_TRUE(cali_level == 0 && noiseCount == 0 && l_noiseCount == 0);
    EXPECT_EQ(std::memcmp(&Msensor, &empty, sizeof empty), 0);
    fusion(62, -18, 4);
    EXPECT_NEAR(cali_mag_values[0], 50.0f, 1e-3f);
}

// The step on storage of its own: a restart clears the fits, the buffer, the counts
// and the level, keeps the offsets, and the module's own state is never touched.
TEST(CalibrationStepState, RestartsClearOnlyTheBoundState) {
    struct Row { int16_t restart_request; int32_t noise; bool restarts; };
    for (const Row &row : {Row{1, 0, true}, Row{0, 33, true}, Row{0, 32, false}}) {
        SCOPED_TRACE(row.noise);
        magcal_record record{};
        record.fitCount = 3;
        record.dotsCount = 5;
        float latest[3] = {1, 2, 3}, optimal[3] = {7, 8, 9};
        int32_t optimal_flag = 1, noise = row.noise, level = 3, new_offset = 1;
        int16_t gross = 0;
        const quarvel::CalibrationStepState s{record, latest, optimal, optimal_flag, noise, gross};
        const float mag[3] = {11, 22, 33};
        float delta[3] = {0.5f, 0.5f, 0.5f}, calibrated[3], offset[3] = {};
        const int16_t no_sampling = 0;
        EXPECT_EQ(quarvel::calibration_step(s, mag, calibrated, offset, &level, &new_offset, &no_sampling,
                                            &row.restart_request, delta), -3);
        expect3(calibrated, {3.5f, 13.5f, 23.5f});  // the optimal offset and the disturbance
        EXPECT_EQ(record.fitCount == 0 && record.dotsCount == 0, row.restarts);
        EXPECT_TRUE(level == (row.restarts ? 0 : 3) && optimal_flag == (row.restarts ? 0 : 1));
        EXPECT_EQ(noise, row.restarts ? 0 : 32);
        expect3(latest, {1, 2, 3});
    }
    EXPECT_TRUE(Msensor.fitCount == 0 && optimalFlag == 0 && noiseCount == 0);
}

TEST(ParameterFile, WritesThePrintedValuesAndReadsThemBack) {
    const struct { float v[3]; const char *text; int32_t read; } cases[] = {
        {{12.5f, -3.25f, 40}, "12.500000:-3.250000:40.000000:", 8},
        {{1, 2, 3}, "1.000000:2.000000:3.000000:", 8},  // truncated: nothing of the longer text left
        {{-1e5f, -1e5f, -1e5f}, "-100000.000000:-100000.000000:-100000.000000:", -20},  // too long to read
    };
    for (const auto &c : cases) {
        ASSERT_EQ(WriteParameterToFile(c.v), 7);
        std::string text;
        EXPECT_TRUE(testsupport::read_param_file(&text) && text == c.text) << text;
        float back[3] = {};
        EXPECT_EQ(ReadParameterFromFile(back), c.read) << c.text;
        if (c.read == 8) expect3(back, {c.v[0], c.v[1], c.v[2]});
    }
}

TEST(ParameterFile, ReaderCodesForMalformedFiles) {
    const float u = 77.0f;  // untouched
    const struct { const char *what; std::string bytes; int32_t code; Vec3 values; } cases[] = {
        {"longer first field", "-123.456789:5.000000:7.000000:", 8, {-123.456789f, 5.0f, 7.0f}},
        {"20 bytes", "1.00000:2.00000:3.0:", -20, {u, u, u}},
        {"43 bytes", "1.0000000000000:2.000000000000:3.000000000:", -20, {u, u, u}},
        {"two colons", "11.000000:22.000000:3", -22, {11, 22, u}},
        {"32-character field", "00000000000000000000000000000000:1:2:", -21, {u, u, u}},
        {"no colon at all", "123456789012345678901234", -22, {0, u, u}},
        {"second line shorter", "1.000000:2.000000:3.000000:\n9:", 8, {9, 0, 2}},
        {"missing", "", -19, {u, u, u}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        testsupport::write_param_file(c.bytes);
        if (c.code == -19) testsupport::remove_param_file();
        float v[3] = {u, u, u};
        EXPECT_EQ(ReadParameterFromFile(v), c.code);
        expect3(v, c.values);
    }
}

TEST(ParameterFile, WritingStopsAtTheFirstFailure) {
    testsupport::write_param_file("");
    FILE *read_only = std::fopen(testsupport::param_file_path(), "r");  // printing to it fails
    const float v[3] = {1, 2, 3};
    EXPECT_EQ(SaveParameterNumber(read_only, v), -16);
    std::fclose(read_only);
    const std::string path = testsupport::param_file_path(), dir = path.substr(0, path.rfind('/'));
    ASSERT_EQ(std::rename(dir.c_str(), (dir + ".away").c_str()), 0);
    EXPECT_EQ(WriteParameterToFile(v), -17);  // no folder to open the file in
    std::rename((dir + ".away").c_str(), dir.c_str());
}

TEST(Driver, TheFirstRealSampleLoadsTheStoredOffsetOnce) {
    float o[3];
    testsupport::write_param_file("99.000000:99.000000:99.000000:");
    EXPECT_EQ(qv730_run_library(0.0f, 0.0f, 0.0f), -15);  // not a sample: no read
    testsupport::write_param_file("12.500000:-3.250000:40.000000:");
    EXPECT_EQ(qv730_run_library(1.0f, 0.0f, 0.0f), 5);
    expect3(LatestOffset, {12.5f, -3.25f, 40.0f});
    // Once per load, whatever happens to the file or the module afterwards.
    testsupport::write_param_file("1.000000:1.000000:1.000000:");
    scmi.methods->init();
    EXPECT_EQ(qv730_run_library(30.0f, 20.0f, 10.0f), 5);
    get_magnetic_offset(o);
    expect3(o, {12.5f, -3.25f, 40.0f});
}

TEST(Driver, ScalesRawCountsAndStartsFromWhatAFailedReadParsed) {
    testsupport::write_param_file("11.000000:22.000000:3");
    EXPECT_EQ(qv730_run_library(2.0f, -2.0f, 1.0f), 5);
    expect3(Msensor.dots[0], {3.0f, -3.0f, 0x1.4ccccc8p+1f});  // 2.6f: 2.5999999046325684
    expect3(LatestOffset, {11, 22, 0});  // in force for the calibration...
    float o[3];
    get_magnetic_offset(o);
    expect3(o, {0, 0, 0});  // ...but not reported as a stored offset
}

TEST(Driver, ADamagedStoredOffsetIsIgnoredWhole) {
    testsupport::write_param_file("5.000000:6.000000:inf:");
    EXPECT_EQ(qv730_run_library(2.0f, -2.0f, 1.0f), 5);
    expect3(LatestOffset, {0, 0, 0});
    expect3(OptimalOffset, {0, 0, 0});  // no fit yet: nothing but the load-time zeros
}

}  // namespace
