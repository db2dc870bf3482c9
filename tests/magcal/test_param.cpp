// The parameter file and the driver's first read of it, through the exported names.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>

#include "calmodule/magcal.h"
#include "calmodule/module.h"
#include "support/test_env.h"

namespace {

using testsupport::param_file_path;
using testsupport::read_param_file;
using testsupport::remove_param_file;
using testsupport::write_param_file;

std::string file_text() {
    std::string bytes;
    EXPECT_TRUE(read_param_file(&bytes));
    return bytes;
}

TEST(ParameterFile, WritesThreePrintedValuesAndReadsThemBack) {
    const float offset[3] = {12.5f, -3.25f, 40.0f};
    ASSERT_EQ(WriteParameterToFile(offset), 7);
    EXPECT_EQ(file_text(), "12.500000:-3.250000:40.000000:");
    float back[3] = {};
    EXPECT_EQ(ReadParameterFromFile(back), 8);
    EXPECT_EQ(back[0], 12.5f);
    EXPECT_EQ(back[1], -3.25f);
    EXPECT_EQ(back[2], 40.0f);

    const float zero[3] = {0.0f, -0.0f, 0.0f};
    ASSERT_EQ(WriteParameterToFile(zero), 7);
    EXPECT_EQ(file_text(), "0.000000:-0.000000:0.000000:");

    // Rewriting truncates: a shorter offset leaves nothing of the longer one.
    const float small[3] = {1.0f, 2.0f, 3.0f};
    ASSERT_EQ(WriteParameterToFile(small), 7);
    EXPECT_EQ(file_text(), "1.000000:2.000000:3.000000:");
}

TEST(ParameterFile, TooLongToReadBackIsStillWritten) {
    const float far[3] = {-100000.0f, -100000.0f, -100000.0f};
    EXPECT_EQ(WriteParameterToFile(far), 7);
    EXPECT_EQ(file_text().size(), 45u);
    float back[3] = {};
    EXPECT_EQ(ReadParameterFromFile(back), -20);
}

struct ReaderCase {
    const char *what;
    std::string bytes;
    int32_t code;
    float values[3];  // what the caller's buffer holds afterwards; it starts as 77s
};

TEST(ParameterFile, ReaderCodesForMalformedFiles) {
    const float u = 77.0f;  // untouched
    const ReaderCase cases[] = {
        {"longer first field", "-123.456789:5.000000:7.000000:", 8, {-123.456789f, 5.0f, 7.0f}},
        {"trailing newline", "1.000000:2.000000:3.000000:\n", 8, {1, 2, 3}},
        {"empty", "", -20, {u, u, u}},
        {"20 bytes", "1.00000:2.00000:3.0:", -20, {u, u, u}},
        {"43 bytes", "1.0000000000000:2.000000000000:3.000000000:", -20, {u, u, u}},
        {"two colons", "11.000000:22.000000:3", -22, {11, 22, u}},
        {"33-character field", "000000000000000000000000000000000:1:2:", -21, {u, u, u}},
        {"no colon at all", "123456789012345678901234", -22, {0, u, u}},
        {"binary", std::string("\0\0\xff\x01:\x80\0:\n\n:\0\0\0\0\0\0\0\0\0\0\xfe", 23), -22, {0, u, u}},
        {"second line shorter", "1.000000:2.000000:3.000000:\n9:", 8, {9, 0, 2}},
        {"last line wins", "11.500000:22.500000:\n7:8:9:\n", 8, {7, 8, 9}},
    };
    for (const ReaderCase &c : cases) {
        write_param_file(c.bytes);
        float v[3] = {u, u, u};
        EXPECT_EQ(ReadParameterFromFile(v), c.code) << c.what;
        for (int i = 0; i < 3; ++i) EXPECT_EQ(v[i], c.values[i]) << c.what << " value " << i;
    }
}

TEST(ParameterFile, MissingFileLeavesTheValuesAlone) {
    remove_param_file();
    float v[3] = {1.0f, 2.0f, 3.0f};
    EXPECT_EQ(ReadParameterFromFile(v), -19);
    EXPECT_EQ(v[0], 1.0f);
    EXPECT_EQ(v[2], 3.0f);
}

TEST(ParameterFile, SaveStopsAtTheFirstFailedPrint) {
    FILE *ro = std::fopen(param_file_path(), "w+");
    ASSERT_NE(ro, nullptr);
    std::fclose(ro);
    ro = std::fopen(param_file_path(), "r");  // printing to a read-only stream fails
    ASSERT_NE(ro, nullptr);
    const float v[3] = {1, 2, 3};
    EXPECT_EQ(SaveParameterNumber(ro, v), -16);
    std::fclose(ro);
    FILE *tmp = std::tmpfile();
    ASSERT_NE(tmp, nullptr);
    EXPECT_EQ(SaveParameterNumber(tmp, v), 6);
    std::fclose(tmp);
}

// ---- the driver's use of the file --------------------------------------------------

TEST(Driver, GivenAStoredOffsetThenTheFirstRealSampleLoadsItOnce) {
    write_param_file("99.000000:99.000000:99.000000:");
    float offset[3] = {-1, -1, -1};
    EXPECT_EQ(qv730_run_library(0.0f, 0.0f, 0.0f), -15);  // not a sample: no read
    get_magnetic_offset(offset);
    EXPECT_EQ(offset[0], 0.0f);

    write_param_file("12.500000:-3.250000:40.000000:");
    EXPECT_EQ(qv730_run_library(1.0f, 0.0f, 0.0f), 5);
    get_magnetic_offset(offset);
    EXPECT_EQ(offset[0], 12.5f);
    EXPECT_EQ(offset[1], -3.25f);
    EXPECT_EQ(offset[2], 40.0f);
    EXPECT_EQ(LatestOffset[1], -3.25f);

    // Read once per load, whatever happens to the file or the module afterwards.
    write_param_file("1.000000:1.000000:1.000000:");
    scmi.methods->init();
    EXPECT_EQ(qv730_run_library(30.0f, 20.0f, 10.0f), 5);
    get_magnetic_offset(offset);
    EXPECT_EQ(offset[0], 12.5f);
    int32_t level = -1;
    get_calilevel_value(&level);
    EXPECT_EQ(level, 0);
}

TEST(Driver, ScalesRawCountsToMicrotesla) {
    remove_param_file();
    EXPECT_EQ(qv730_run_library(2.0f, -2.0f, 1.0f), 5);
    EXPECT_EQ(Msensor.dots[0][0], 3.0f);
    EXPECT_EQ(Msensor.dots[0][1], -3.0f);
    EXPECT_EQ(Msensor.dots[0][2], 0x1.4ccccc8p+1f);  // 2.6f: 2.5999999046325684
    float offset[3] = {-1, -1, -1};
    get_magnetic_offset(offset);
    for (float o : offset) EXPECT_EQ(o, 0.0f);
}

TEST(Driver, ReaderFailureStartsFromWhatWasParsed) {
    write_param_file("11.000000:22.000000:3");
    EXPECT_EQ(qv730_run_library(5.0f, 5.0f, 5.0f), 5);
    EXPECT_EQ(LatestOffset[0], 11.0f);  // in force for the calibration...
    EXPECT_EQ(LatestOffset[1], 22.0f);
    float offset[3] = {-1, -1, -1};
    get_magnetic_offset(offset);        // ...but not reported as a stored offset
    EXPECT_EQ(offset[0], 0.0f);
}

}  // namespace
