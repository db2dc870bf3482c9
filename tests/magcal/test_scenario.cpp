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

#include "support/log_capture.h"
#include "support/module_loader.h"
#include "support/test_env.h"
#include "tests/magcal/sphere_samples.h"

namespace {

using magcal_test::TurningDevice;
using magcal_test::Vec3;
using testsupport::LoadedModule;
using testsupport::make_event;
using testsupport::poisoned_event;

constexpr int kMag = CALMODULE_TYPE_MAGNETIC_FIELD;
constexpr int kMagUncal = CALMODULE_TYPE_MAGNETIC_FIELD_UNCALIBRATED;
constexpr const char *kExpectEnv = "MAGCAL_EXPECT_STORED_OFFSET";

// The chip's counts per µT; a field F is fed as F / scale.
sensors_event_t raw_event(const Vec3 &field_ut) {
    return make_event(kMag, field_ut.x / 1.5f, field_ut.y / 1.5f, field_ut.z / 2.6f);
}

std::string printed(float x, float y, float z) {
    char text[128];
    std::snprintf(text, sizeof text, "%f:%f:%f:", static_cast<double>(x), static_cast<double>(y),
                  static_cast<double>(z));
    return text;
}
std::string printed(const Vec3 &v) { return printed(v.x, v.y, v.z); }

struct Module {
    LoadedModule m;
    void (*offset)(float *) = nullptr;
    int32_t (*write)(const float *) = nullptr;
    Module() {
        offset = m.symbol<void(float *)>("get_magnetic_offset");
        write = m.symbol<int32_t(const float *)>("WriteParameterToFile");
    }
    Vec3 stored_offset() const {
        float o[3];
        offset(o);
        return {o[0], o[1], o[2]};
    }
    // Feeds one field sample (µT); returns the delivered event.
    sensors_event_t feed(const Vec3 &field) const {
        sensors_event_t out = poisoned_event();
        EXPECT_EQ(m.convert(kMag, raw_event(field), &out), 0);
        return out;
    }
};

float distance(const Vec3 &a, const Vec3 &b) {
    return std::sqrt((a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y) + (a.z - b.z) * (a.z - b.z));
}

// ---- the scenario ----------------------------------------------------------------

class TurnedThroughManyAttitudes : public ::testing::TestWithParam<unsigned> {};

TEST_P(TurnedThroughManyAttitudes, LevelClimbsAndTheOffsetIsFoundAndKept) {
    // GIVEN a fresh module, no stored offset, and a device with a hard-iron offset
    const unsigned seed = GetParam();
    testsupport::remove_param_file();
    Module mod;
    ASSERT_TRUE(mod.m.ok());
    const Vec3 truth{20.0f + 3.0f * seed, -35.0f + 2.0f * seed, 12.0f - 4.0f * seed};
    TurningDevice device(seed, truth, 45.0f, 0.3f);

    // WHEN it is turned through many attitudes in a 45 µT field
    int level = 0;
    int climbs = 0;
    int samples_at_three = 0;
    for (int i = 0; i < 6000 && samples_at_three < 1500; ++i) {
        const sensors_event_t out = mod.feed(device.next());
        const int now = out.vector.status;
        // THEN the level climbs one step at a time and never falls back
        ASSERT_TRUE(now == level || now == level + 1) << "sample " << i << ": " << level << " -> " << now;
        if (now != level) ++climbs;
        level = now;
        if (level == 3) ++samples_at_three;
        EXPECT_EQ(out.vector.reserved[0], 0xA5) << "only the status byte is written";
        // AND from level 2 on the file holds the offset in force, as printed
        if (level >= 2) {
            float o[3];
            mod.offset(o);
            std::string bytes;
            ASSERT_TRUE(testsupport::read_param_file(&bytes));
            ASSERT_EQ(bytes, printed(o[0], o[1], o[2])) << "sample " << i;
        }
    }
    ASSERT_EQ(level, 3);
    EXPECT_EQ(climbs, 3);

    // AND the offset is close to the truth
    const Vec3 found = mod.stored_offset();
    EXPECT_LT(distance(found, truth), 5.0f);
    RecordProperty("offset_error_uT", std::to_string(distance(found, truth)));

    // AND a device held still reads the field without the offset
    const Vec3 field{30.0f, -25.0f, -24.0f};
    sensors_event_t out{};
    for (int i = 0; i < 60; ++i) out = mod.feed({truth.x + field.x, truth.y + field.y, truth.z + field.z});
    EXPECT_NEAR(out.data[0], field.x, 2.0f);
    EXPECT_NEAR(out.data[1], field.y, 2.0f);
    EXPECT_NEAR(out.data[2], field.z, 2.0f);

    // AND a freshly loaded library in another process starts from the stored offset
    std::string stored;
    ASSERT_TRUE(testsupport::read_param_file(&stored));
    ASSERT_EQ(setenv(kExpectEnv, stored.c_str(), 1), 0);
    const std::string cmd =
        "/proc/" + std::to_string(getpid()) + "/exe --gtest_filter=FreshLoad.* 2>&1";
    FILE *child = popen(cmd.c_str(), "r");
    ASSERT_NE(child, nullptr);
    std::string report;
    char buf[256];
    while (std::fgets(buf, sizeof buf, child)) report += buf;
    EXPECT_EQ(pclose(child), 0) << report;
    EXPECT_NE(report.find("[  PASSED  ] 1 test."), std::string::npos) << report;
}

INSTANTIATE_TEST_SUITE_P(Seeds, TurnedThroughManyAttitudes, ::testing::Values(1u, 2u, 3u, 4u, 5u));

TEST(RealRecording, FigureEightReachesLevelThreeNearThePhonesOwnEstimate) {
    // GIVEN a real phone waved through a figure-eight (magnetometer rows only: without
    // accelerometer events through the orientation algorithm, sampling stays permitted)
    const std::string path = std::string(testsupport::data_dir()) + "/nexus5-figure-eight.csv";
    FILE *csv = std::fopen(path.c_str(), "r");
    if (!csv) GTEST_SKIP() << "recording not available: " << path;
    testsupport::remove_param_file();
    Module mod;
    // WHEN its samples go through the type-2 algorithm
    int level = 0;
    int samples = 0;
    char line[256];
    while (std::fgets(line, sizeof line, csv)) {
        long long t;
        int type;
        float v[3];
        if (std::sscanf(line, "%lld,%d,%f,%f,%f", &t, &type, &v[0], &v[1], &v[2]) != 5 || type != kMag) continue;
        sensors_event_t out = poisoned_event();
        ASSERT_EQ(mod.m.convert(kMag, make_event(kMag, v[0], v[1], v[2]), &out), 0);
        level = out.vector.status;
        ++samples;
    }
    std::fclose(csv);
    // THEN the calibration is complete and agrees with the phone's own estimate
    EXPECT_GT(samples, 1000);
    EXPECT_EQ(level, 3);
    const Vec3 phone{57.99f, -73.75f, 32.41f};
    const Vec3 found = mod.stored_offset();
    EXPECT_LT(distance(found, phone), 5.0f) << found.x << ", " << found.y << ", " << found.z;
    RecordProperty("offset_error_uT", std::to_string(distance(found, phone)));
}

// Run alone it checks a known file; run from the scenario it checks what the scenario
// stored.
TEST(FreshLoad, StartsFromTheStoredOffsetOnItsFirstSample) {
    const char *expected = std::getenv(kExpectEnv);
    const std::string text = expected ? expected : "12.500000:-3.250000:40.000000:";
    if (!expected) testsupport::write_param_file(text);
    Module mod;
    ASSERT_TRUE(mod.m.ok());
    EXPECT_EQ(printed(mod.stored_offset()), "0.000000:0.000000:0.000000:");
    const sensors_event_t out = mod.feed({40.0f, 10.0f, -20.0f});
    EXPECT_EQ(out.vector.status, 0);
    const Vec3 o = mod.stored_offset();
    EXPECT_EQ(printed(o), text);
    if (!expected) {
        EXPECT_EQ(o.x, 12.5f);
        EXPECT_EQ(o.y, -3.25f);
        EXPECT_EQ(o.z, 40.0f);
    }
}

// ---- the file cannot be written: the calibration goes on -------------------------

// Moves the parameter file's folder away, or puts a folder where the file should be,
// for the life of the guard.
class ParamPathBroken {
public:
    explicit ParamPathBroken(bool folder_missing) : missing_(folder_missing) {
        path_ = testsupport::param_file_path();
        dir_ = path_.substr(0, path_.rfind('/'));
        testsupport::remove_param_file();
        if (missing_) {
            ok_ = std::rename(dir_.c_str(), (dir_ + ".away").c_str()) == 0;
        } else {
            ok_ = mkdir(path_.c_str(), 0700) == 0;
        }
    }
    ~ParamPathBroken() {
        if (missing_) {
            std::rename((dir_ + ".away").c_str(), dir_.c_str());
        } else {
            rmdir(path_.c_str());
        }
    }
    bool ok() const { return ok_; }

private:
    bool missing_;
    bool ok_ = false;
    std::string path_, dir_;
};

void calibrates_without_a_file(bool folder_missing) {
    ParamPathBroken broken(folder_missing);
    ASSERT_TRUE(broken.ok());
    Module mod;
    const Vec3 truth{-15.0f, 25.0f, 30.0f};
    TurningDevice device(11, truth, 48.0f, 0.3f);
    int level = 0;
    for (int i = 0; i < 6000 && level < 3; ++i) level = mod.feed(device.next()).vector.status;
    EXPECT_EQ(level, 3);
    EXPECT_LT(distance(mod.stored_offset(), truth), 5.0f);
    const float o[3] = {1, 2, 3};
    EXPECT_EQ(mod.write(o), -17);
}

TEST(UnwritableFile, FolderMissingCalibrationGoesOn) { calibrates_without_a_file(true); }
TEST(UnwritableFile, FolderInPlaceOfTheFileCalibrationGoesOn) { calibrates_without_a_file(false); }

// ---- the algorithms' event contract -----------------------------------------------

TEST(MagnetometerAlgorithms, OtherEventTypesAreRejectedUntouched) {
    LoadedModule m;
    const sensors_event_t in = make_event(CALMODULE_TYPE_ACCELEROMETER, 1, 2, 3);
    sensors_event_t out = poisoned_event();
    EXPECT_EQ(m.convert(kMag, in, &out), -11);
    EXPECT_EQ(m.convert(kMagUncal, in, &out), -1);
    const sensors_event_t untouched = poisoned_event();
    EXPECT_EQ(std::memcmp(&out, &untouched, sizeof out), 0);
}

TEST(MagnetometerAlgorithms, ZeroSampleStillDeliversOnlyTheFieldAndStatus) {
    testsupport::remove_param_file();
    LoadedModule m;
    const sensors_event_t in = make_event(kMag, 0, 0, 0);
    const sensors_event_t before = in;
    sensors_event_t out = poisoned_event();
    EXPECT_EQ(m.convert(kMag, in, &out), 0);
    EXPECT_EQ(std::memcmp(&in, &before, sizeof in), 0);
    EXPECT_EQ(out.data[0], 0.0f);
    EXPECT_EQ(out.data[2], 0.0f);
    EXPECT_EQ(out.vector.status, 0);
    sensors_event_t expected = poisoned_event();
    std::memcpy(&expected.data[0], &out.data[0], 3 * sizeof(float) + 1);
    EXPECT_EQ(std::memcmp(&out, &expected, sizeof out), 0);
}

TEST(MagnetometerAlgorithms, UncalibratedIsFieldPlusBias) {
    LoadedModule m;
    sensors_event_t in = make_event(kMag, 10, 20, 30);
    in.data[4] = 12;
    in.data[5] = 18;
    in.data[6] = 35;
    sensors_event_t out = poisoned_event();
    EXPECT_EQ(m.convert(kMagUncal, in, &out), 0);
    const float expected[6] = {12, 18, 35, 2, -2, 5};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(out.data[i], expected[i]) << i;
    const sensors_event_t poison = poisoned_event();
    EXPECT_EQ(std::memcmp(&out.data[6], &poison.data[6], 10 * sizeof(float)), 0);
    EXPECT_EQ(out.type, poison.type);
    EXPECT_EQ(m.algo(kMagUncal)->methods->config, nullptr);
}

TEST(MagnetometerAlgorithms, ConfigLogsEnableAndRateChanges) {
    LoadedModule m;
    testsupport::clear_log_records();
    EXPECT_EQ(m.config(kMag, 0, 1), 0);
    EXPECT_EQ(m.config(kMag, 1, 0, 200), 0);
    EXPECT_EQ(m.config(kMag, 2, 5, 5), 0);
    const auto &logs = testsupport::log_records();
    ASSERT_EQ(logs.size(), 2u);
    EXPECT_EQ(logs[0].priority, 3);
    EXPECT_EQ(logs[0].tag, "sensor_cal.common");
    EXPECT_EQ(logs[0].text, "Enable status changed to 1\n");
    EXPECT_EQ(logs[1].priority, 3);
    EXPECT_EQ(logs[1].text, "Polling rate changed to 200\n");
}

TEST(MagnetometerAlgorithms, InfiniteAndHugeComponentsWashOutOfTheOutput) {
    testsupport::remove_param_file();
    Module mod;
    const float bad[] = {INFINITY, -INFINITY, 3.4e38f, -1e30f, 1e-45f};
    for (float b : bad) {
        for (int axis = 0; axis < 3; ++axis) {
            sensors_event_t in = make_event(kMag, 10, 10, 10);
            in.data[axis] = b;
            sensors_event_t out = poisoned_event();
            EXPECT_EQ(mod.m.convert(kMag, in, &out), 0);
        }
    }
    // Ten good samples later the trimmed mean no longer holds a bad one.
    sensors_event_t out{};
    for (int i = 0; i < 12; ++i) out = mod.feed({20.0f, -10.0f, 30.0f});
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(std::isfinite(out.data[i])) << i;
}

TEST(MagnetometerAlgorithms, NotANumberNeverReachesTheOffset) {
    testsupport::remove_param_file();
    Module mod;
    const Vec3 truth{10.0f, 20.0f, -30.0f};
    TurningDevice device(7, truth, 45.0f, 0.3f);
    int level = 0;
    for (int i = 0; i < 6000 && level < 3; ++i) {
        Vec3 f = device.next();
        if (i % 150 == 0) f.y = NAN;  // a NaN sample now and then spoils that buffer's fit
        sensors_event_t out = poisoned_event();
        ASSERT_EQ(mod.m.convert(kMag, raw_event(f), &out), 0);
        level = out.vector.status;
    }
    // NaN samples are buffered like any other and their fits refused, so the
    // calibration still gets there from the clean buffers.
    EXPECT_EQ(level, 3);
    EXPECT_LT(distance(mod.stored_offset(), truth), 5.0f);
}

}  // namespace
