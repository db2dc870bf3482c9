// The magnetometer algorithms as a HAL drives them: raw events in through the type-2
// convert, calibrated field and accuracy out, the offset kept in the parameter file.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "calmodule/magcal.h"
#include "support/log_capture.h"
#include "support/module_loader.h"
#include "support/recording.h"
#include "support/test_env.h"
#include "tests/magcal/sphere_samples.h"

using calmodule::kChipScale;

namespace {

using magcal_test::TurningDevice;
using magcal_test::Vec3;
using testsupport::make_event;
using testsupport::poisoned_event;

constexpr int kMag = CALMODULE_TYPE_MAGNETIC_FIELD, kMagUncal = CALMODULE_TYPE_MAGNETIC_FIELD_UNCALIBRATED;
constexpr const char *kExpectEnv = "MAGCAL_EXPECT_STORED_OFFSET";

std::string printed(const Vec3 &v) {
    char text[128];
    std::snprintf(text, sizeof text, "%f:%f:%f:", double{v.x}, double{v.y}, double{v.z});
    return text;
}
float distance(const Vec3 &a, const Vec3 &b) { return std::hypot(a.x - b.x, a.y - b.y, a.z - b.z); }

struct Module {
    testsupport::LoadedModule m;
    Vec3 offset() const {
        float o[3];
        m.symbol<void(float *)>("get_magnetic_offset")(o);
        return {o[0], o[1], o[2]};
    }
    // One event of raw counts; returns the delivered event.
    sensors_event_t raw(const sensors_event_t &in) const {
        sensors_event_t out = poisoned_event();
        EXPECT_EQ(m.convert(kMag, in, &out), 0);
        return out;
    }
    // One field sample in µT, fed as counts of 1/1.5, 1/1.5 and 1/2.6 µT.
    sensors_event_t feed(const Vec3 &f) const { return raw(make_event(kMag, f.x / kChipScale[0], f.y / kChipScale[1], f.z / kChipScale[2])); }
};

// A file that cannot be written (its folder missing, or a folder in its place) and bad
// samples among the good must not keep the calibration from getting there.
enum Trouble { kNone, kFolderMissing, kFolderInPlaceOfTheFile, kBadSamples };
struct Scenario {
    unsigned seed;
    Trouble trouble;
};

void PrintTo(const Scenario &s, std::ostream *os) { *os << "seed_" << s.seed << "_trouble_" << s.trouble; }

class TurnedThroughManyAttitudes : public ::testing::TestWithParam<Scenario> {
protected:
    const std::string path = testsupport::param_file_path(), dir = path.substr(0, path.rfind('/'));
    void TearDown() override {  // undoes whatever the scenario broke
        std::rename((dir + ".away").c_str(), dir.c_str());
        rmdir(path.c_str());
    }
};

TEST_P(TurnedThroughManyAttitudes, LevelClimbsAndTheOffsetIsFoundAndKept) {
    // GIVEN a fresh module, no stored offset, and a device with a hard-iron offset
    const Scenario s = GetParam();
    testsupport::remove_param_file();
    const bool unwritable = s.trouble == kFolderMissing || s.trouble == kFolderInPlaceOfTheFile;
    ASSERT_EQ(s.trouble == kFolderMissing            ? std::rename(dir.c_str(), (dir + ".away").c_str())
              : s.trouble == kFolderInPlaceOfTheFile ? mkdir(path.c_str(), 0700)
                                                     : 0,
              0);
    Module mod;
    ASSERT_TRUE(mod.m.ok());
    const Vec3 truth{20.0f + 3.0f * s.seed, -35.0f + 2.0f * s.seed, 12.0f - 4.0f * s.seed};
    TurningDevice device(s.seed, truth, 45.0f, 0.3f);
    for (float bad : {INFINITY, -INFINITY, 3.4e38f, -1e30f, 1e-45f}) {
        for (int axis = 0; axis < 3 && s.trouble == kBadSamples; ++axis) {  // on every axis
            sensors_event_t in = make_event(kMag, 10, 10, 10);
            in.data[axis] = bad;
            mod.raw(in);
        }
    }
    // WHEN it is turned through many attitudes in a 45 µT field (with bad samples, a NaN
    // now and then, spoiling that buffer's fit)
    int level = 0, climbs = 0, samples_at_three = 0;
    for (int i = 0; i < 6000 && samples_at_three < 1500; ++i) {
        Vec3 f = device.next();
        f.y = s.trouble == kBadSamples && i % 150 == 149 ? NAN : f.y;
        const sensors_event_t out = mod.feed(f);
        if (s.trouble == kBadSamples && i == 11) {  // ten good samples later no bad one is left
            for (int k = 0; k < 3; ++k) EXPECT_TRUE(std::isfinite(out.data[k])) << k;
        }
        // THEN the level climbs one step at a time and never falls back
        ASSERT_TRUE(out.vector.status == level || out.vector.status == level + 1) << "sample " << i;
        climbs += out.vector.status != level;
        level = out.vector.status;
        samples_at_three += level == 3;
        EXPECT_EQ(out.vector.reserved[0], 0xA5) << "only the status byte is written";
        // AND from level 2 on the file holds the offset in force, as printed
        std::string bytes;
        if (level >= 2 && !unwritable) {
            ASSERT_TRUE(testsupport::read_param_file(&bytes));
            ASSERT_EQ(bytes, printed(mod.offset())) << "sample " << i;
        }
    }
    ASSERT_EQ(level, 3);
    EXPECT_EQ(climbs, 3);
    // AND the offset is close to the truth
    EXPECT_LT(distance(mod.offset(), truth), 5.0f);
    RecordProperty("offset_error_uT", std::to_string(distance(mod.offset(), truth)));
    if (unwritable) {  // the write reports the failed open
        const float o[3] = {1, 2, 3};
        EXPECT_EQ(mod.m.symbol<int32_t(const float *)>("WriteParameterToFile")(o), -17);
        return;
    }
    // AND a device held still reads the field without the offset (not after a NaN sample:
    // it stays in the output low-pass for good)
    const Vec3 field{30.0f, -25.0f, -24.0f};
    sensors_event_t out{};
    for (int i = 0; i < 60; ++i) out = mod.feed({truth.x + field.x, truth.y + field.y, truth.z + field.z});
    if (s.trouble != kBadSamples) magcal_test::expect3(out.data, field, 2.0f);
    // AND a freshly loaded library in another process starts from the stored offset
    std::string stored;
    ASSERT_TRUE(testsupport::read_param_file(&stored));
    ASSERT_EQ(setenv(kExpectEnv, stored.c_str(), 1), 0);
    // This test program again, in a new process (through the emulator on cross builds).
    char self[4096] = {};
    ASSERT_GT(readlink("/proc/self/exe", self, sizeof self - 1), 0);
    const std::string command =
        std::string(CALMODULE_TEST_EMULATOR) + " " + self + " --gtest_filter=FreshLoad.* 2>&1";
    FILE *child = popen(command.c_str(), "r");
    ASSERT_NE(child, nullptr);
    std::string report;
    char buf[256];
    while (std::fgets(buf, sizeof buf, child)) report += buf;
    EXPECT_EQ(pclose(child), 0) << report;
    EXPECT_NE(report.find("[  PASSED  ] 1 test."), std::string::npos) << report;
}

INSTANTIATE_TEST_SUITE_P(Seeds, TurnedThroughManyAttitudes,
                         ::testing::Values(Scenario{1, kNone}, Scenario{2, kNone}, Scenario{3, kNone},
                                           Scenario{4, kNone}, Scenario{5, kNone}, Scenario{6, kFolderMissing},
                                           Scenario{7, kFolderInPlaceOfTheFile}, Scenario{8, kBadSamples}));

// Run alone it checks a known file; run from the scenario, what the scenario stored.
TEST(FreshLoad, StartsFromTheStoredOffsetOnItsFirstSample) {
    const char *expected = std::getenv(kExpectEnv);
    const std::string text = expected ? expected : "12.500000:-3.250000:40.000000:";
    if (!expected) testsupport::write_param_file(text);
    Module mod;
    ASSERT_TRUE(mod.m.ok());
    EXPECT_EQ(printed(mod.offset()), "0.000000:0.000000:0.000000:");
    EXPECT_EQ(mod.feed({40.0f, 10.0f, -20.0f}).vector.status, 0);
    EXPECT_EQ(printed(mod.offset()), text);
}

TEST(RealRecording, FigureEightReachesLevelThreeNearThePhonesOwnEstimate) {
    // GIVEN a real phone waved through a figure-eight (magnetometer rows only: without
    // accelerometer events through the orientation algorithm, sampling stays permitted)
    std::vector<testsupport::RecordedEvent> events;
    if (!testsupport::read_figure_eight(&events)) GTEST_SKIP() << "no recording: " << testsupport::figure_eight_path();
    testsupport::remove_param_file();
    Module mod;
    // WHEN its samples go through the type-2 algorithm
    int level = 0, samples = 0;
    for (const auto &e : events) {
        if (e.type != kMag) continue;
        level = mod.raw(make_event(kMag, e.v[0], e.v[1], e.v[2])).vector.status;
        ++samples;
    }
    // THEN the calibration is complete and agrees with the phone's own estimate
    EXPECT_GT(samples, 1000);
    EXPECT_EQ(level, 3);
    const Vec3 phone{57.99f, -73.75f, 32.41f}, found = mod.offset();
    EXPECT_LT(distance(found, phone), 5.0f) << printed(found);
    RecordProperty("offset_error_uT", std::to_string(distance(found, phone)));
}

TEST(MagnetometerAlgorithms, OnlyTheFieldAndStatusAreDeliveredAndOtherEventsRejected) {
    testsupport::remove_param_file();
    Module mod;
    const sensors_event_t poison = poisoned_event(), acc = make_event(CALMODULE_TYPE_ACCELEROMETER, 1, 2, 3);
    sensors_event_t out = poison;
    EXPECT_EQ(mod.m.convert(kMag, acc, &out), -11);
    EXPECT_EQ(mod.m.convert(kMagUncal, acc, &out), -1);
    EXPECT_EQ(std::memcmp(&out, &poison, sizeof out), 0);
    // A (0, 0, 0) sample still delivers (0, 0, 0) at level 0, and nothing else.
    const sensors_event_t in = make_event(kMag, 0, 0, 0), before = in;
    out = mod.raw(in);
    EXPECT_EQ(std::memcmp(&in, &before, sizeof in), 0);
    sensors_event_t expected = poison;
    std::memset(&expected.data[0], 0, 3 * sizeof(float) + 1);
    EXPECT_EQ(std::memcmp(&out, &expected, sizeof out), 0);
}

TEST(MagnetometerAlgorithms, UncalibratedIsFieldPlusBias) {
    testsupport::LoadedModule m;
    sensors_event_t in = make_event(kMag, 10, 20, 30), out = poisoned_event(), expected = out;
    in.data[4] = 12, in.data[5] = 18, in.data[6] = 35;
    EXPECT_EQ(m.convert(kMagUncal, in, &out), 0);
    const float fields[6] = {12, 18, 35, 2, -2, 5};
    std::memcpy(expected.data, fields, sizeof fields);
    EXPECT_EQ(std::memcmp(&out, &expected, sizeof out), 0);
    EXPECT_EQ(m.algo(kMagUncal)->methods->config, nullptr);
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
