// The magnetometer algorithms as a HAL drives them: raw events in through the type-2
// convert, calibrated field and accuracy out, the offset kept in the parameter file.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/device.h"
#include "support/log_capture.h"
#include "support/module_loader.h"
#include "support/test_env.h"

namespace {

using testsupport::make_event;
using testsupport::poisoned_event;

constexpr int kMag = CALMODULE_TYPE_MAGNETIC_FIELD, kMagUncal = CALMODULE_TYPE_MAGNETIC_FIELD_UNCALIBRATED;
constexpr const char *kExpectEnv = "MAGCAL_EXPECT_STORED_OFFSET";

struct Module {
    testsupport::LoadedModule m;
    // The offset in force, printed as the parameter file holds it.
    std::string offset() const {
        float o[3];
        m.symbol<void(float *)>("get_magnetic_offset")(o);
        char text[128];
        std::snprintf(text, sizeof text, "%f:%f:%f:", double{o[0]}, double{o[1]}, double{o[2]});
        return text;
    }
    float distance(const float to[3]) const {
        float o[3];
        m.symbol<void(float *)>("get_magnetic_offset")(o);
        return std::hypot(o[0] - to[0], o[1] - to[1], o[2] - to[2]);
    }
    sensors_event_t raw(float x, float y, float z) const {
        sensors_event_t out = poisoned_event();
        EXPECT_EQ(m.convert(kMag, make_event(kMag, x, y, z), &out), 0);
        return out;
    }
    sensors_event_t feed(const float f[3]) const {  // µT
        float c[3];
        testsupport::to_counts(f, c);
        return raw(c[0], c[1], c[2]);
    }
};

class TurnedThroughManyAttitudes : public ::testing::TestWithParam<bool> {
protected:
    const std::string path = testsupport::param_file_path(), dir = path.substr(0, path.rfind('/'));
    void TearDown() override { std::rename((dir + ".away").c_str(), dir.c_str()); }
};

TEST_P(TurnedThroughManyAttitudes, LevelClimbsAndTheOffsetIsFoundAndKept) {
    // GIVEN a fresh module, no stored offset (or no folder to store one in), and a
    // device with a hard-iron offset
    const bool writable = GetParam();
    testsupport::remove_param_file();
    if (!writable) {
        ASSERT_EQ(std::rename(dir.c_str(), (dir + ".away").c_str()), 0);
    }
    Module mod;
    ASSERT_TRUE(mod.m.ok());
    const float truth[3] = {23.0f, -33.0f, 8.0f};
    testsupport::TurningDevice device{std::mt19937(1), {truth[0], truth[1], truth[2]}, 45.0f, 0.3f};
    // WHEN it is turned through many attitudes in a 45 µT field
    int level = 0, climbs = 0, samples_at_three = 0;
    for (int i = 0; i < 6000 && samples_at_three < 1500; ++i) {
        float f[3];
        device.next(f);
        const sensors_event_t out = mod.feed(f);
        // THEN the level climbs one step at a time and never falls back
        ASSERT_TRUE(out.vector.status == level || out.vector.status == level + 1) << "sample " << i;
        climbs += out.vector.status != level;
        level = out.vector.status;
        samples_at_three += level == 3;
        EXPECT_EQ(out.vector.reserved[0], 0xA5) << "only the status byte is written";
        // AND from level 2 on the file holds the offset in force, as printed
        std::string bytes;
        if (level >= 2 && writable) {
            ASSERT_TRUE(testsupport::read_param_file(&bytes));
            ASSERT_EQ(bytes, mod.offset()) << "sample " << i;
        }
    }
    ASSERT_EQ(level, 3);
    EXPECT_EQ(climbs, 3);
    EXPECT_LT(mod.distance(truth), 5.0f);
    if (!writable) {  // the write reports the failed open
        EXPECT_EQ(mod.m.symbol<int32_t(const float *)>("WriteParameterToFile")(truth), -17);
        return;
    }
    // AND a device held still reads the field without the offset
    const float field[3] = {30.0f, -25.0f, -24.0f}, seen[3] = {truth[0] + field[0], truth[1] + field[1], truth[2] + field[2]};
    sensors_event_t out{};
    for (int i = 0; i < 60; ++i) out = mod.feed(seen);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(out.data[i], field[i], 2.0f) << i;
    // AND a freshly loaded library in another process (this program again, through the
    // emulator on cross builds) starts from the stored offset
    ASSERT_EQ(setenv(kExpectEnv, mod.offset().c_str(), 1), 0);
    char self[4096] = {};
    ASSERT_GT(readlink("/proc/self/exe", self, sizeof self - 1), 0);
    const std::string command = std::string(CALMODULE_TEST_EMULATOR) + " " + self + " --gtest_filter=FreshLoad.* 2>&1";
    FILE *child = popen(command.c_str(), "r");
    ASSERT_NE(child, nullptr);
    std::string report;
    char buf[256];
    while (std::fgets(buf, sizeof buf, child)) report += buf;
    EXPECT_EQ(pclose(child), 0) << report;
    EXPECT_NE(report.find("[  PASSED  ] 1 test."), std::string::npos) << report;
}

INSTANTIATE_TEST_SUITE_P(ParameterFolder, TurnedThroughManyAttitudes, ::testing::Values(true, false));

// Run alone it checks a known file; run from the scenario, what the scenario stored.
TEST(FreshLoad, StartsFromTheStoredOffsetOnItsFirstSample) {
    const char *expected = std::getenv(kExpectEnv);
    const std::string text = expected ? expected : "12.500000:-3.250000:40.000000:";
    if (!expected) testsupport::write_param_file(text);
    Module mod;
    ASSERT_TRUE(mod.m.ok());
    EXPECT_EQ(mod.offset(), "0.000000:0.000000:0.000000:");
    const float f[3] = {40.0f, 10.0f, -20.0f};
    EXPECT_EQ(mod.feed(f).vector.status, 0);
    EXPECT_EQ(mod.offset(), text);
}

// The golden regression: the one replay of a real phone's recording in the tests. The
// recording lives beside the project (../shared/data); without it the test says so.
TEST(RealRecording, FigureEightReachesLevelThreeNearThePhonesOwnEstimate) {
    // GIVEN a real phone waved through a figure-eight (magnetometer rows only: without
    // accelerometer events through the orientation algorithm, sampling stays permitted)
    const std::string path = std::string(testsupport::data_dir()) + "/nexus5-figure-eight.csv";
    FILE *csv = std::fopen(path.c_str(), "r");
    if (!csv) GTEST_SKIP() << "no recording: " << path;
    testsupport::remove_param_file();
    Module mod;
    // WHEN its samples go through the type-2 algorithm
    int level = 0, samples = 0, type;
    long long t;
    float v[3];
    char line[256];
    while (std::fgets(line, sizeof line, csv)) {  // comments do not parse as five fields
        if (std::sscanf(line, "%lld,%d,%f,%f,%f", &t, &type, &v[0], &v[1], &v[2]) != 5 || type != kMag) continue;
        level = mod.raw(v[0], v[1], v[2]).vector.status;
        ++samples;
    }
    std::fclose(csv);
    // THEN the calibration is complete and agrees with the phone's own estimate
    EXPECT_GT(samples, 1000);
    EXPECT_EQ(level, 3);
    const float phone[3] = {57.99f, -73.75f, 32.41f};
    EXPECT_LT(mod.distance(phone), 5.0f) << mod.offset();
    RecordProperty("offset_error_uT", std::to_string(mod.distance(phone)));
}

TEST(MagnetometerAlgorithms, DeliverOnlyTheFieldAndStatusOrFieldPlusBiasAndRejectOtherEvents) {
    testsupport::remove_param_file();
    Module mod;
    const sensors_event_t poison = poisoned_event(), acc = make_event(CALMODULE_TYPE_ACCELEROMETER, 1, 2, 3);
    sensors_event_t out = poison, expected = poison;
    EXPECT_EQ(mod.m.convert(kMag, acc, &out), -11);
    EXPECT_EQ(mod.m.convert(kMagUncal, acc, &out), -1);
    EXPECT_EQ(std::memcmp(&out, &poison, sizeof out), 0);
    // A (0, 0, 0) sample still delivers (0, 0, 0) at level 0, and nothing else.
    out = mod.raw(0, 0, 0);
    std::memset(&expected.data[0], 0, 3 * sizeof(float) + 1);
    EXPECT_EQ(std::memcmp(&out, &expected, sizeof out), 0);
    // Uncalibrated: the raw field, then field minus bias, nothing else.
    sensors_event_t in = make_event(kMag, 10, 20, 30);
    in.data[4] = 12, in.data[5] = 18, in.data[6] = 35;
    out = expected = poison;
    EXPECT_EQ(mod.m.convert(kMagUncal, in, &out), 0);
    const float fields[6] = {12, 18, 35, 2, -2, 5};
    std::memcpy(expected.data, fields, sizeof fields);
    EXPECT_EQ(std::memcmp(&out, &expected, sizeof out), 0);
    EXPECT_EQ(mod.m.algo(kMagUncal)->methods->config, nullptr);
}

TEST(MagnetometerAlgorithms, ConfigLogsEnableAndRateChanges) {
    testsupport::LoadedModule m;
    testsupport::clear_log_records();
    EXPECT_EQ(m.config(kMag, 0, 1), 0);
    EXPECT_EQ(m.config(kMag, 1, 0, 200), 0);
    EXPECT_EQ(m.config(kMag, 2, 5, 5), 0);
    const auto &logs = testsupport::log_records();
    ASSERT_EQ(logs.size(), 2u);
    EXPECT_EQ(logs[0].priority, 3);  // debug
    EXPECT_EQ(logs[1].priority, 3);
    EXPECT_EQ(logs[0].tag, "sensor_cal.common");
    EXPECT_EQ(logs[0].text, "Enable status changed to 1\n");
    EXPECT_EQ(logs[1].text, "Polling rate changed to 200\n");
}

}  // namespace
