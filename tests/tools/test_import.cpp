// calhost import: phone recordings become sessions that replay like the phone's data.
#include <cmath>
#include <filesystem>
#include <string>

#include "calhost_runner.h"

namespace {

using calhost_test::CalhostTest;
using calhost_test::has;
using calhost_test::slurp;

// The shared recording as the phone wrote it, and the session made from it by hand
// (its values rounded to six significant digits).
TEST_F(CalhostTest, ThePhonesOwnFilesReplayLikeTheSharedSession) {
    const std::string data = CALMODULE_DATA_DIR;
    const std::string folder = data + "/raw/calib_mag_Nexus5_d1", shared = data + "/nexus5-figure-eight.csv";
    if (!std::filesystem::exists(folder) || !std::filesystem::exists(shared)) {
        GTEST_SKIP() << "the shared recording is absent: " << folder;
    }
    // The phone's z offset lies beyond the chip's range; the session it is compared
    // with took 380 µT off z.
    const auto imported = run("import " + folder + " --mag-shift 0,0,-380 -o " + file("s.csv"));
    ASSERT_EQ(imported.status, 0) << imported.err;
    EXPECT_TRUE(has(slurp(file("s.csv")), "\n# reference offset_ut=57.992188,-73.75183,32.40692\n"));

    const auto a = run("replay " + file("s.csv") + " --json"), b = run("replay " + shared + " --json");
    ASSERT_EQ(a.status, 0) << a.err;
    ASSERT_EQ(b.status, 0) << b.err;
    const auto ja = a.json(), jb = b.json();
    // The phone's rotation vector is passed on under its own name, never counted as the module's.
    EXPECT_GT(ja["in"]["11"].get<int>(), 0);
    EXPECT_EQ(ja["out"]["phone_rotation_vector"], ja["in"]["11"]);
    EXPECT_EQ(ja["out"]["rotation_vector"], jb["out"]["rotation_vector"]);
    EXPECT_EQ(ja["final_level"], jb["final_level"]);
    for (const char *level : {"0", "1", "2", "3"}) {
        ASSERT_FALSE(jb["level_first_s"][level].is_null()) << level;
        EXPECT_NEAR(ja["level_first_s"][level].get<double>(), jb["level_first_s"][level].get<double>(), 0.05) << level;
    }
    double sq = 0.0;
    for (std::size_t i = 0; i < 3; ++i) {
        sq += std::pow(ja["offset_ut"][i].get<double>() - jb["offset_ut"][i].get<double>(), 2);
    }
    EXPECT_LT(std::sqrt(sq), 0.1) << a.out << b.out;
}

TEST_F(CalhostTest, CsvFilesMergeInTimeOrderInTheSessionsUnits) {
    // As a logging app writes them: a byte-order mark, CRLF, quoted names, columns in
    // any order and more than wanted; times in seconds, to below a nanosecond.
    write("mag.csv",
          "\xEF\xBB\xBF\"X\",\"bx\",\"by\",\"bz\",\"t\",\"y\",\"z\"\r\n"
          "15,1,2,3,0.5,-3,26\r\n"
          "15.000001,4,5,16,1.0000000015,-3,26\r\n");
    write("acc.csv", "t,x,y,z,extra\n5e-1,0.1,0.2,9.8,x\n0.7500000004,0.1,0.2,9.8,x\n");
    const auto r = run("import --csv mag=" + file("mag.csv") + " --csv acc=" + file("acc.csv") +
                       " --time-column t --time-unit s --bias-columns bx,by,bz --mag-shift 0,0,-13 -o " +
                       file("s.csv"));
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string text = slurp(file("s.csv"));
    // µT over the chip's scale 1.5, 1.5, 2.6 after the shift; the accelerometer first at equal times.
    EXPECT_TRUE(has(text, "# reference offset_ut=4,5,3\n"
                          "time_ns,type,v0,v1,v2\n"
                          "500000000,1,0.1,0.2,9.8\n"
                          "500000000,2,10,-2,5\n"
                          "750000000,1,0.1,0.2,9.8\n"
                          "1000000002,2,10.000001,-2,5\n"));
    EXPECT_EQ(run("replay " + file("s.csv")).status, 0);
}

TEST_F(CalhostTest, ImportRefusesBadRecordingsWithFileAndLineAndWritesNothing) {
    const std::string acc = "0.1 0 0 9.8\n0.2 0 0 9.8\n";
    const std::string mag = "0.1 30 -20 50 1 2 3\n";
    const struct {
        std::string acc, mag;
        const char *where, *what;
    } folders[] = {
        {acc, "0.1 30 -20 50\n", "magnetometer.txt:1: ", "4 fields, 7 wanted"},
        {"0.2 0 0 9.8\n\n0.1 0 0 9.8\n", mag, "accelerometer.txt:3: ", "time going backwards"},
        {acc, "0.1 30 -20 5O 1 2 3\n", "magnetometer.txt:1: ", "field 4, `5O`, is not a number"},
        {acc + "0,3 0 0 9.8\n", mag, "accelerometer.txt:3: ", "time `0,3` is not a number"},
        {acc + std::string("0.3 0\0 0 9.8\n", 13), mag, "accelerometer.txt:3: ", "binary data"},
    };
    int n = 0;
    for (const auto &c : folders) {
        const std::string folder = file("rec" + std::to_string(n++));
        std::filesystem::create_directory(folder);
        write(folder.substr(dir_.size() + 1) + "/accelerometer.txt", c.acc);
        write(folder.substr(dir_.size() + 1) + "/magnetometer.txt", c.mag);
        const auto r = run("import " + folder + " -o " + file("s.csv"));
        EXPECT_EQ(r.status, 2) << c.what;
        EXPECT_TRUE(has(r.err, folder + "/" + c.where + c.what));
        EXPECT_FALSE(std::filesystem::exists(file("s.csv")));
    }
    const std::string csv = write("m.csv", "time,x,y\n1,2,3\n");
    const std::pair<std::string, std::string> usage[] = {
        {"", "a FOLDER or --csv"},
        {file("rec0") + " --csv mag=" + csv, "excludes"},
        {"--csv gyro=" + csv, "wants mag=FILE"},
        {"--csv mag=" + csv + " --csv mag=" + csv, "one file per sensor"},
        {file("rec0") + " --mag-shift 1,2", "three numbers"},
        {file("rec0") + " --time-unit ms", "requires --csv"},
        {"--csv mag=" + csv, csv + ":1: no column `z`"},
        {file("nothing"), file("nothing") + "/accelerometer.txt: cannot open"},
    };
    for (const auto &[args, message] : usage) {
        const auto r = run("import " + args + " -o " + file("s.csv"));
        EXPECT_EQ(r.status, 2) << args;
        EXPECT_TRUE(has(r.err, message)) << args;
        EXPECT_FALSE(std::filesystem::exists(file("s.csv")));
    }
    // A session written over the recording it comes from, through a link too.
    std::filesystem::create_symlink(csv, file("link.csv"));
    for (const std::string &out : {csv, file("link.csv")}) {
        const auto r = run("import --csv mag=" + csv + " -o " + out);
        EXPECT_EQ(r.status, 2) << out;
        EXPECT_TRUE(has(r.err, "the output is the input")) << r.err;
        EXPECT_EQ(slurp(csv), "time,x,y\n1,2,3\n");
    }
}

}  // namespace
