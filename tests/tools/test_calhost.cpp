// calhost as an integrator uses it: load the module, simulate, import, replay, and
// refuse bad input without harming a file.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <string>

#include "calhost_runner.h"

namespace {

using calhost_test::CalhostTest;
using calhost_test::has;
using calhost_test::slurp;
namespace fs = std::filesystem;

TEST_F(CalhostTest, EveryCommandHasHelpAndTheReadmeDocumentsEveryOption) {
    const std::string readme = slurp(CALHOST_README);
    for (const std::string cmd : {"", "info", "simulate", "import", "replay", "report", "demo"}) {
        const auto r = run(cmd + " --help");
        EXPECT_EQ(r.status, 0) << cmd;
        EXPECT_TRUE(has(r.out, "Usage"));
        for (std::size_t at = r.out.find("--"); at != std::string::npos; at = r.out.find("--", at + 2)) {
            const auto end = r.out.find_first_not_of("abcdefghijklmnopqrstuvwxyz-", at + 2);
            const std::string option = r.out.substr(at, end - at);
            EXPECT_NE(readme.find("`" + option), std::string::npos) << "calhost " << cmd << " " << option;
        }
    }
    const auto info = run("info");
    EXPECT_TRUE(has(info.out, "algorithms  4")) << info.err;
    EXPECT_EQ(info.err, "") << "the module's info records stay off stderr unless asked for";
}

// What is in the scratch folder: each name with a hash of a regular file's bytes.
std::map<std::string, std::size_t> snapshot(const std::string &dir) {
    std::map<std::string, std::size_t> files;
    for (const auto &e : fs::recursive_directory_iterator(dir)) {
        files[e.path()] = e.is_regular_file() ? std::hash<std::string>()(slurp(e.path())) : 0;
    }
    return files;
}

// Every refusal or failure: its exit status, the reason on stderr (one line, or a usage
// message pointing to --help), and every file left as it was: nothing written or replaced.
TEST_F(CalhostTest, RefusalsSayWhyAndLeaveEveryFileAsItWas) {
    ASSERT_EQ(run("simulate --duration 5 -o " + file("s.csv")).status, 0);
    const std::string s = file("s.csv"), link = file("link.csv"), csv = write("m.csv", "time,x,y\n1,2,3\n");
    ASSERT_EQ(::symlink(s.c_str(), link.c_str()), 0);
    ASSERT_EQ(::mkfifo(file("fifo").c_str(), 0600), 0);
    // A module copied only in part: the loader would die of SIGBUS on the missing pages.
    const std::string module = slurp(MODULE_FILE);
    write("cut.so", module.substr(0, module.size() / 2));
    const std::string back = write("back.csv", "time_ns,type,v0,v1,v2\n5,1,0,0,0\n9,2,1,2,3\n\n7,1,0,0,0\n");
    // Phone recordings as folders of per-sensor text files, each broken on one line.
    for (const std::string rec : {"rec0", "rec1"}) fs::create_directory(file(rec));
    write("rec0/accelerometer.txt", "0.1 0 0 9.8\n");
    write("rec0/magnetometer.txt", "0.1 30 -20 50\n");
    write("rec1/accelerometer.txt", "0.2 0 0 9.8\n\n0.1 0 0 9.8\n");
    write("rec1/magnetometer.txt", "0.1 30 -20 50 1 2 3\n");
    const struct {
        std::string args;
        int status;
        std::string message, stdout_to;
    } cases[] = {
        {"", 2, "A subcommand is required", ""},
        {"frobnicate", 2, "unknown command `frobnicate`", ""},
        {"simulate --offset 1,2", 2, "--offset wants three numbers", ""},
        // Outputs that would harm an input, or cannot be written.
        {"replay " + s + " --out " + s, 2, "the output is the input", ""},
        {"replay " + link + " -o " + s, 2, "the output is the input", ""},
        {"replay " + s + " --param-file " + link, 2, "the output is the input", ""},
        {"report " + s + " -o " + file("r.html") + " --csv " + file("r.html"), 2, "two outputs in one file", ""},
        {"report " + s + " -o " + file("missing/x.html"), 2, "the folder " + file("missing") + " does not exist", ""},
        {"replay " + s + " --param-file " + dir_, 2, "is a folder", ""},
        {"replay " + s + " --param-file " + file("fifo"), 2, "is not a regular file", ""},
        {"replay " + s + " -o /dev/full", 1, "cannot write /dev/full", ""},
        {"replay " + s, 1, "cannot write standard output", "/dev/full"},
        {"simulate --duration 5", 1, "cannot write standard output", "/dev/full"},
        // Libraries that are no calibration module.
        {"replay " + s + " --module " + file("cut.so"), 2, "is cut short", ""},
        {"replay " + s + " --module " + s, 2, "cannot load module " + s, ""},
        {"replay " + s + " --module " NOT_A_MODULE, 2, "is not a calibration module: it exports no descriptor", ""},
        {"info " WRONG_TAG_MODULE, 2, "is not a calibration module: its `scmi` carries the tag", ""},
        // Sessions and recordings refused by file and line, before anything is written.
        {"report " + back + " -o " + file("r.html"), 2, back + ":5: time going backwards", ""},
        {"replay " + file("missing.csv"), 2, file("missing.csv") + ": cannot open", ""},
        {"import " + file("rec0") + " -o " + file("i.csv"), 2, "rec0/magnetometer.txt:1: 4 fields, 7 wanted", ""},
        {"import " + file("rec1") + " -o " + file("i.csv"), 2, "rec1/accelerometer.txt:3: time going backwards", ""},
        {"import --csv mag=" + csv + " -o " + file("i.csv"), 2, csv + ":1: no column `z`", ""},
        {"import -o " + file("i.csv"), 2, "a FOLDER or --csv", ""},
        {"import --csv mag=" + csv + " --csv mag=" + csv, 2, "one file per sensor", ""},
        {"import --csv mag=" + link + " -o " + s, 2, "the output is the input", ""},
    };
    const auto before = snapshot(dir_);
    for (const auto &c : cases) {
        const auto r = run(c.args, c.stdout_to);
        EXPECT_EQ(r.status, c.status) << c.args << ": " << r.err;
        EXPECT_TRUE(has(r.err, c.message)) << c.args;
        const bool one_line = r.err.rfind("calhost: ", 0) == 0 && r.err.find('\n') == r.err.size() - 1;
        EXPECT_TRUE(one_line || has(r.err, "\nRun with --help for more information.\n")) << c.args << ": " << r.err;
        EXPECT_EQ(snapshot(dir_), before) << c.args;
    }
}

TEST_F(CalhostTest, OutputsGoThroughLinksFifosAndStandardStreams) {
    const std::string s = file("s.csv");
    ASSERT_EQ(run("simulate --duration 5 -o " + s).status, 0);
    // A link to a file: the file is replaced, the link stays.
    ASSERT_EQ(::symlink("real.csv", file("link.csv").c_str()), 0);
    ASSERT_EQ(run("replay " + s + " -o " + file("link.csv")).status, 0);
    EXPECT_TRUE(fs::is_symlink(file("link.csv")));
    EXPECT_EQ(slurp(file("real.csv")).rfind("time_ns,source,status,v0,v1,v2,v3,v4,v5\n", 0), 0u);
    // A link to standard output, and `-` for standard input: written and read through;
    // the module's log records stay off standard output.
    ASSERT_EQ(::symlink("/dev/stdout", file("out").c_str()), 0);
    const auto r = run("replay - -o " + file("out") + " --log-level debug < " + s);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(fs::is_symlink(file("out")));
    EXPECT_EQ(r.out.rfind("time_ns,source,", 0), 0u);
    EXPECT_TRUE(has(r.out, "session   standard input"));
    EXPECT_TRUE(has(r.err, "    0.000 s  sensor_cal.common D Enable status changed to 1\n"));
    EXPECT_EQ(r.out.find("sensor_cal"), std::string::npos);
    // A FIFO: its reader gets the whole file.
    ASSERT_EQ(::mkfifo(file("fifo").c_str(), 0600), 0);
    const std::string cmd = "timeout 60 cat " + file("fifo") + " >" + file("got") + " & " CALHOST_EXE " replay " + s +
                            " -o " + file("fifo") + " >/dev/null 2>&1; wait";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    EXPECT_EQ(slurp(file("got")), slurp(file("real.csv")));
}

// Timestamps at both ends of int64 (their span overflows int64), and an orientation the
// module delivers before any accelerometer reading without writing it: zeros, not
// what another event left.
TEST_F(CalhostTest, ExtremeTimestampsAndAnUnwrittenOutputEvent) {
    const std::string s =
        write("x.csv", "time_ns,type,v0,v1,v2\n-9223372036854775808,2,20,-30,12\n9223372036854775807,1,0,0,9\n");
    const auto r = run("replay " + s + " -o " + file("out.csv"));
    EXPECT_TRUE(has(r.out, "(18446744073.71 s, 2 events)")) << r.err;
    EXPECT_TRUE(has(slurp(file("out.csv")), "\n-9223372036854775808,orientation,0,0,0,0,"));
}

// The demo's simulated session reaches level 3 within 5 µT of its truth; the level
// drops during the disturbance, with the restart that made it; two replays give the
// same outputs to the bit, each keeping the offset in a parameter file of its own.
TEST_F(CalhostTest, TheDemoSessionCalibratesNearItsTruthAndReplaysIdentically) {
    const auto demo = run("demo --dir " + file("demo"));
    ASSERT_EQ(demo.status, 0) << demo.err;
    EXPECT_EQ(demo.out.rfind("verdict   calibrated: level 3 since ", 0), 0u) << demo.out;
    EXPECT_TRUE(has(demo.out, "3 → 0 at "));
    EXPECT_TRUE(has(demo.out, " (restart: a magnetic disturbance while the phone lay still)"));
    const std::string replay = "replay " + file("demo/session.csv") + " --json";
    const auto a = run(replay + " -o " + file("a.csv") + " --param-file " + file("pa"));
    const auto b = run(replay + " -o " + file("b.csv") + " --param-file " + file("pb"));
    ASSERT_EQ(a.status, 0) << a.err;
    EXPECT_EQ(a.out, b.out);
    EXPECT_EQ(slurp(file("a.csv")), slurp(file("b.csv")));
    EXPECT_NE(slurp(file("a.csv")).find(",magnetic_field,3,"), std::string::npos) << "the calibrated field's level";
    const auto j = a.json();
    EXPECT_EQ(j["final_level"], 3);
    EXPECT_LT(j["offset_error_ut"].get<double>(), 5.0) << a.out;
    // Every magnetometer event comes back calibrated, with its bias, and as orientation;
    // the face-down spell and the pocket each cover and uncover.
    for (const char *out : {"magnetic_field", "magnetic_field_uncalibrated", "orientation"}) {
        EXPECT_EQ(j["out"][out], j["in"]["2"]) << out;
    }
    EXPECT_GE(j["out"].value("pocket", 0), 4);
    char kept[128];  // the module keeps its offset as "%f:" three times
    std::snprintf(kept, sizeof kept, "%f:%f:%f:", j["offset_ut"][0].get<double>(), j["offset_ut"][1].get<double>(),
                  j["offset_ut"][2].get<double>());
    EXPECT_EQ(slurp(file("pa")), kept);
}

// A session whose field is beyond what the calibration accepts: no offset is invented,
// the reason is one sentence, and truth and reference stand side by side.
TEST_F(CalhostTest, ASessionThatNeverCalibratesSaysWhyAndShowsNoOffset) {
    ASSERT_EQ(run("simulate --field 60 --duration 30 -o " + file("raw.csv")).status, 0);
    const std::string session = write("strong.csv", "# reference offset_ut=31,-21,49\n" + slurp(file("raw.csv")));
    const auto j = run("replay " + session + " --json").json();
    for (const char *absent : {"offset_ut", "radius_ut", "offset_error_ut", "reference_error_ut"}) {
        EXPECT_TRUE(j[absent].is_null()) << absent;
    }
    const std::string why = j["diagnosis"]["summary"].get<std::string>();
    EXPECT_TRUE(has(why, "fits were refused"));
    EXPECT_EQ(why.find(". "), std::string::npos) << "one sentence: " << why;
    const auto text = run("replay " + session).out;
    EXPECT_EQ(text.rfind("verdict   not calibrated: no fit held\nwhy       " + why + "\n", 0), 0u) << text;
    EXPECT_TRUE(has(text, "offset    fit        none"));
    EXPECT_TRUE(has(text, "          truth      30.00 -20.00 50.00 µT\n          reference  31.00 -21.00 49.00 µT"));
}

// The shared recording as the phone wrote it replays like the session made from it by
// hand (values rounded to six significant digits). The phone's z offset lies beyond the
// chip's range; the shared session took 380 µT off z. The shared session's replay runs
// under memcheck where valgrind is at hand and nothing else instruments calhost: no
// memory error and nothing left allocated at exit; and every output is a number.
TEST_F(CalhostTest, ThePhonesOwnFilesReplayLikeTheSharedSession) {
    const std::string folder = CALMODULE_DATA_DIR "/raw/calib_mag_Nexus5_d1";
    const std::string shared = CALMODULE_DATA_DIR "/nexus5-figure-eight.csv";
    if (!fs::exists(folder) || !fs::exists(shared)) GTEST_SKIP() << "the shared recording is absent: " << folder;
    ASSERT_EQ(run("import " + folder + " --mag-shift 0,0,-380 -o " + file("s.csv")).status, 0);
    EXPECT_NE(slurp(file("s.csv")).find("\n# reference offset_ut=57.992188,-73.75183,32.40692\n"), std::string::npos);
    const auto a = run("replay " + file("s.csv") + " --json");
    const auto b = run("replay " + shared + " --json -o " + file("out.csv"), "", CALHOST_MEMCHECK);
    ASSERT_EQ(a.status, 0) << a.err;
    ASSERT_EQ(b.status, 0) << b.err;
    for (const char *bad : {",nan", ",-nan", ",inf", ",-inf"}) {
        EXPECT_EQ(slurp(file("out.csv")).find(bad), std::string::npos) << "the module delivered " << bad;
    }
    const auto ja = a.json(), jb = b.json();
    // The phone's rotation vector is passed on under its own name, never counted as the module's.
    EXPECT_GT(ja["in"]["11"].get<int>(), 0);
    EXPECT_EQ(ja["out"]["phone_rotation_vector"], ja["in"]["11"]);
    EXPECT_EQ(ja["out"]["rotation_vector"], jb["out"]["rotation_vector"]);
    EXPECT_EQ(ja["final_level"], jb["final_level"]);
    for (const char *level : {"1", "2", "3"}) {
        EXPECT_NEAR(ja["level_first_s"][level].get<double>(), jb["level_first_s"][level].get<double>(), 0.05) << level;
    }
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(ja["offset_ut"][i].get<double>(), jb["offset_ut"][i].get<double>(), 0.05) << i;
    }
}

// CSV files as a logging app writes them: a byte-order mark, CRLF, quoted names, columns
// in any order and more than wanted; times in seconds, to below a nanosecond.
TEST_F(CalhostTest, CsvFilesMergeInTimeOrderInTheSessionsUnits) {
    write("mag.csv", "\xEF\xBB\xBF\"X\",\"bx\",\"by\",\"bz\",\"t\",\"y\",\"z\"\r\n15,1,2,3,0.5,-3,26\r\n"
                     "15.000001,4,5,16,1.0000000015,-3,26\r\n");
    write("acc.csv", "t,x,y,z,extra\n5e-1,0.1,0.2,9.8,x\n0.7500000004,0.1,0.2,9.8,x\n");
    const auto r = run("import --csv mag=" + file("mag.csv") + " --csv acc=" + file("acc.csv") + " --time-column t" +
                       " --time-unit s --bias-columns bx,by,bz --mag-shift 0,0,-13 -o " + file("s.csv"));
    ASSERT_EQ(r.status, 0) << r.err;
    // µT over the chip's scale 1.5, 1.5, 2.6 after the shift; the accelerometer first at equal times.
    EXPECT_TRUE(has(slurp(file("s.csv")), "# reference offset_ut=4,5,3\ntime_ns,type,v0,v1,v2\n"
                                          "500000000,1,0.1,0.2,9.8\n500000000,2,10,-2,5\n750000000,1,0.1,0.2,9.8\n"
                                          "1000000002,2,10.000001,-2,5\n"));
}

}  // namespace
