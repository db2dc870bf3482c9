// calhost as an integrator uses it: load the module, simulate, replay, refuse bad input.
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "calhost_runner.h"

namespace {

using calhost_test::CalhostTest;
using calhost_test::has;
using calhost_test::slurp;


double distance(const nlohmann::json &a, const double b[3]) {
    double sq = 0.0;
    for (int i = 0; i < 3; ++i) {
        const double d = a.at(static_cast<std::size_t>(i)).get<double>() - b[i];
        sq += d * d;
    }
    return std::sqrt(sq);
}

TEST_F(CalhostTest, InfoPrintsTheModuleAndItsFourAlgorithms) {
    const auto r = run("info");
    ASSERT_EQ(r.status, 0) << r.err;
    for (const char *line : {"cal_module_quarvel", "Quarvel", "algorithms  4", "2  magnetic_field", "3  orientation",
                             "14  magnetic_field_uncalibrated", "65537  pocket", "\"qv730\"",
                             "\"ltr553-pocket\", \"ap3426-pocket\", \"oem-pocket\""}) {
        EXPECT_TRUE(has(r.out, line));
    }
    // The module's info records (its deinit) stay off stderr unless asked for.
    EXPECT_EQ(r.err, "");
}

TEST_F(CalhostTest, EveryCommandHasHelpAndBadUsageExitsWithTwo) {
    for (const char *cmd : {"", "info", "simulate", "import", "replay", "report", "demo"}) {
        const auto r = run(std::string(cmd) + " --help");
        EXPECT_EQ(r.status, 0) << cmd;
        EXPECT_TRUE(has(r.out, "Usage"));
    }
    for (const char *args : {"", "frobnicate", "replay", "report x.csv", "simulate --duration -1", "simulate --seed -1",
                             "simulate --offset 1,2", "simulate --mag-rate 0", "replay a.csv --no-such-option"}) {
        const auto r = run(args);
        EXPECT_EQ(r.status, 2) << args << ": " << r.err;
        EXPECT_FALSE(r.err.empty()) << args;
    }
}

// The options each command's --help lists are the ones the README documents.
TEST_F(CalhostTest, TheReadmeDocumentsEveryOptionOfEveryCommand) {
    const std::string readme = slurp(CALHOST_README);
    ASSERT_FALSE(readme.empty());
    for (const char *cmd : {"", "info", "simulate", "import", "replay", "report", "demo"}) {
        const std::string help = run(std::string(cmd) + " --help").out;
        for (std::size_t at = help.find("--"); at != std::string::npos; at = help.find("--", at + 2)) {
            const std::string option = help.substr(at, help.find_first_not_of("abcdefghijklmnopqrstuvwxyz-", at + 2) - at);
            EXPECT_NE(readme.find("`" + option), std::string::npos) << "calhost " << cmd << " " << option;
        }
    }
}

// Every refusal or failure: its exit status, one line on stderr with the reason and
// nothing before it, and no file written or replaced.
TEST_F(CalhostTest, RefusesOrFailsWithOneLineAndLeavesEveryFileAsItWas) {
    ASSERT_EQ(run("simulate --duration 5 -o " + file("s.csv")).status, 0);
    const std::string s = file("s.csv"), session = slurp(s);
    ASSERT_EQ(::symlink(s.c_str(), file("link.csv").c_str()), 0);
    ASSERT_EQ(::mkfifo(file("fifo").c_str(), 0600), 0);
    // A module copied only in part: the loader would die of SIGBUS on the missing pages.
    const std::string module = slurp(MODULE_FILE);
    write("cut.so", module.substr(0, module.size() / 2));
    const struct {
        std::string args;
        int status;
        std::string message;
        std::string stdout_to;
    } cases[] = {
        {"frobnicate", 2, "unknown command `frobnicate`", ""},
        {"replay " + s + " --out " + s, 2, "the output is the input", ""},
        {"replay " + file("link.csv") + " -o " + s, 2, "the output is the input", ""},
        {"replay " + s + " --param-file " + file("link.csv"), 2, "the output is the input", ""},
        {"report " + s + " -o " + file("r.html") + " --csv " + file("r.html"), 2, "two outputs in one file", ""},
        {"report " + s + " -o " + file("missing/x.html"), 2, "the folder " + file("missing") + " does not exist", ""},
        {"replay " + s + " --param-file " + dir_, 2, "is a folder", ""},
        {"replay " + s + " --param-file " + file("missing/p.txt"), 2, "does not exist", ""},
        {"replay " + s + " --param-file " + file("fifo"), 2, "is not a regular file", ""},
        {"replay " + s + " --module " + file("cut.so"), 2, "is cut short", ""},
        {"replay " + s + " -o /dev/full", 1, "cannot write /dev/full", ""},
        {"replay " + s, 1, "cannot write standard output", "/dev/full"},
        {"simulate --duration 5", 1, "cannot write standard output", "/dev/full"},
    };
    const auto before = entries();
    for (const auto &c : cases) {
        const auto r = run(c.args, c.stdout_to);
        EXPECT_EQ(r.status, c.status) << c.args << ": " << r.err;
        EXPECT_EQ(r.err.rfind("calhost: ", 0), 0u) << c.args << ": " << r.err;
        EXPECT_TRUE(has(r.err, c.message)) << c.args;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << c.args << ": " << r.err;
        EXPECT_EQ(slurp(s), session) << c.args;
        EXPECT_EQ(entries(), before) << c.args;
    }
}

TEST_F(CalhostTest, OutputsGoThroughLinksFifosAndStandardStreams) {
    ASSERT_EQ(run("simulate --duration 5 -o " + file("s.csv")).status, 0);
    const std::string s = file("s.csv");
    // A link to a file: the file is replaced, the link stays.
    ASSERT_EQ(::symlink("real.csv", file("link.csv").c_str()), 0);
    ASSERT_EQ(run("replay " + s + " -o " + file("link.csv")).status, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(file("link.csv")));
    EXPECT_EQ(slurp(file("real.csv")).rfind("time_ns,source,", 0), 0u);
    // A link to standard output, and `-` for standard input: written and read through.
    ASSERT_EQ(::symlink("/dev/stdout", file("out").c_str()), 0);
    auto r = run("replay - -o " + file("out") + " < " + s);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(std::filesystem::is_symlink(file("out")));
    EXPECT_EQ(r.out.rfind("time_ns,source,", 0), 0u);
    EXPECT_TRUE(has(r.out, "session   standard input"));
    // A FIFO: its reader gets the whole file.
    ASSERT_EQ(::mkfifo(file("fifo").c_str(), 0600), 0);
    const std::string cmd = "timeout 60 cat " + file("fifo") + " >" + file("got") + " & " + CALHOST_EXE + " replay " +
                            s + " -o " + file("fifo") + " >/dev/null 2>&1; wait";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    EXPECT_EQ(slurp(file("got")), slurp(file("real.csv")));
}

// Timestamps at both ends of int64, and an orientation the module delivers before any
// accelerometer reading without writing it: zeros, not what another event left.
TEST_F(CalhostTest, ExtremeTimestampsAndAnUnwrittenOutputEvent) {
    const std::string s =
        write("ext.csv", "time_ns,type,v0,v1,v2\n-9223372036854775808,2,20,-30,12\n9223372036854775807,1,0,0,9.8\n");
    const auto r = run("replay " + s + " -o " + file("out.csv"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(has(r.out, "(18446744073.71 s, 2 events)"));
    EXPECT_TRUE(has(slurp(file("out.csv")), "\n-9223372036854775808,orientation,0,0,0,0,"));
}

TEST_F(CalhostTest, RefusedSessionsExitWithTwoNameTheLineAndWriteNothing) {
    // The reader's every refusal and its line are checked in test_session.cpp; here, that
    // the program stops on one before it writes anything.
    const struct {
        const char *name;
        std::string bytes;
        const char *where;
        const char *what;
    } cases[] = {
        {"empty.csv", "", ":1: ", "missing header"},
        {"binary.csv", std::string("\x7f" "ELF\x02\x01\x01\0\0\0\0\0\0\0\0\0\x03\0>\0", 20), ":1: ", "binary"},
        {"backwards.csv", "time_ns,type,v0,v1,v2\n5,1,0,0,0\n9,2,1,2,3\n\n7,1,0,0,0\n", ":5: ", "time going backwards"},
    };
    for (const auto &c : cases) {
        const std::string session = write(c.name, c.bytes);
        const auto before = entries();
        for (const std::string cmd : {"replay " + session + " --out " + file("out.csv"),
                                      "report " + session + " -o " + file("r.html")}) {
            const auto r = run(cmd);
            EXPECT_EQ(r.status, 2) << cmd;
            EXPECT_TRUE(has(r.err, session + c.where));
            EXPECT_TRUE(has(r.err, c.what));
            EXPECT_EQ(entries(), before) << cmd << ": an output appeared";
        }
    }
    const auto r = run("replay " + file("missing.csv"));
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(has(r.err, file("missing.csv") + ": cannot open"));
    EXPECT_EQ(run("replay " + dir_).status, 2);
}

TEST_F(CalhostTest, ALibraryThatIsNoCalibrationModuleIsRefused) {
    const std::string session = write("s.csv", "time_ns,type,v0,v1,v2\n1,2,1,2,3\n");
    const std::pair<std::string, std::string> cases[] = {
        {"replay " + session + " --module " + session, "cannot load module " + session},
        {"replay " + session + " --module " + NOT_A_MODULE,
         "is not a calibration module: it exports no descriptor `scmi`"},
        {"info " + std::string(WRONG_TAG_MODULE), "is not a calibration module: its `scmi` carries the tag"},
        {"info " + file("nothing-here.so"), "No such file"},
    };
    for (const auto &[cmd, message] : cases) {
        const auto r = run(cmd);
        EXPECT_EQ(r.status, 2) << cmd;
        EXPECT_TRUE(has(r.err, message)) << cmd;
    }
}

TEST_F(CalhostTest, NonFiniteAndHugeReadingsGoToTheModuleAndTheReplayGoesOn) {
    // GIVEN good readings, then bad values on every type, then good readings again
    std::string text = "time_ns,type,v0,v1,v2\n";
    long t = 0;
    auto row = [&](int type, const std::string &values) {
        text += std::to_string(t += 5000000) + "," + std::to_string(type) + "," + values + "\n";
    };
    for (int i = 0; i < 120; ++i) {
        if (i == 60) {
            for (const char *bad : {"nan,nan,nan", "inf,-inf,inf", "1e39,-1e39,3e38", "-3e38,1e30,nan", "0,0,0"}) {
                for (int type : {1, 2, 5, 8, 77}) row(type, bad);
            }
        }
        row(1, "0.1,0.2,9.8");
        row(2, "20,-30,12");
    }
    const auto r = run("replay " + write("bad-values.csv", text) + " --json --out " + file("out.csv"));
    ASSERT_EQ(r.status, 0) << r.err;
    const auto j = r.json();
    EXPECT_EQ(j["events"].get<int>(), 240 + 25);
    EXPECT_EQ(j["in"]["2"].get<int>(), 125);
    EXPECT_EQ(j["in"]["77"].get<int>(), 5);
    // Other sensor types go to the framework as they came.
    EXPECT_EQ(j["out"]["phone_type_77"].get<int>(), 5);
    EXPECT_TRUE(has(slurp(file("out.csv")), ",phone_type_77,,nan,nan,nan,"));
}

TEST_F(CalhostTest, TheModulesLogRecordsGoToStderrFromTheChosenPriorityStampedWithSessionTime) {
    const std::string session =
        write("pocket.csv", "time_ns,type,v0,v1,v2\n1000,5,500,0,0\n1500001000,8,0,0,0\n1500002000,42,1,2,3\n");
    auto r = run("replay " + session + " --log-level debug");
    ASSERT_EQ(r.status, 0) << r.err;
    // A HAL enables each algorithm with a config method before the first event; one line a record.
    EXPECT_TRUE(has(r.err, "    0.000 s  sensor_cal.common D Enable status changed to 1\n"));
    EXPECT_TRUE(has(r.err, "    1.500 s  sensor_cal.common D last_light:500.000000 last_proximity:0.000000\n"));
    EXPECT_EQ(r.err.find("\n\n"), std::string::npos) << r.err;
    EXPECT_EQ(r.out.find("last_light"), std::string::npos) << "log records must stay off stdout";
    r = run("replay " + session + " --log-level silent");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err.find("sensor_cal.common"), std::string::npos) << r.err;
}

// A seed makes one session; its replay reaches level 3 with the offset near the truth
// in its comments, and two replays give the same outputs to the bit.
TEST_F(CalhostTest, SimulatedSessionsCalibrateNearTheirTruthAndReplayIdentically) {
    for (const char *seed : {"1", "2"}) {
        SCOPED_TRACE(std::string("seed ") + seed);
        const std::string session = file(std::string("sim") + seed + ".csv");
        const std::string simulate = std::string("simulate --seed ") + seed + " --offset 25,-35,40";
        ASSERT_EQ(run(simulate + " -o " + session).status, 0);
        const std::string text = slurp(session);
        EXPECT_EQ(run(simulate).out, text) << "standard output without -o: the same session";
        EXPECT_TRUE(has(text, "# truth offset_ut=25,-35,40 field_ut=45 inclination_deg=60"));
        EXPECT_TRUE(has(text, "\ntime_ns,type,v0,v1,v2\n"));
        if (seed[0] == '2') EXPECT_NE(text, slurp(file("sim1.csv"))) << "two seeds, one session";
        // Each replay keeps its offset in a parameter file of its own.
        const std::string replay = "replay " + session + " --json";
        const auto first = run(replay + " --out " + file("out1.csv") + " --param-file " + file("p1"));
        const auto second = run(replay + " --out " + file("out2.csv") + " --param-file " + file("p2"));
        ASSERT_EQ(first.status, 0) << first.err;
        ASSERT_EQ(second.status, 0) << second.err;
        EXPECT_EQ(first.out, second.out);
        const std::string csv = slurp(file("out1.csv"));
        EXPECT_EQ(csv, slurp(file("out2.csv")));
        EXPECT_EQ(csv.rfind("time_ns,source,status,v0,v1,v2,v3,v4,v5\n", 0), 0u);
        // The calibrated field carries its level; the uncalibrated one six values, no status.
        EXPECT_TRUE(has(csv, ",magnetic_field,3,"));
        EXPECT_TRUE(has(csv, ",magnetic_field_uncalibrated,,"));

        const auto j = first.json();
        ASSERT_TRUE(j["offset_ut"].is_array()) << first.out;
        EXPECT_EQ(j["final_level"].get<int>(), 3) << first.out;
        ASSERT_FALSE(j["level_first_s"]["3"].is_null()) << first.out;
        const double truth[3] = {25.0, -35.0, 40.0};
        EXPECT_LT(distance(j["offset_ut"], truth), 5.0) << first.out;
        EXPECT_LT(j["offset_error_ut"].get<double>(), 5.0);
        // Every magnetometer event comes back calibrated, as field plus bias, and as orientation.
        const int mag_in = j["in"]["2"].get<int>();
        EXPECT_EQ(j["out"]["magnetic_field"].get<int>(), mag_in);
        EXPECT_EQ(j["out"]["magnetic_field_uncalibrated"].get<int>(), mag_in);
        EXPECT_EQ(j["out"]["orientation"].get<int>(), mag_in);
        // Covered and uncovered: the face-down spell and the pocket each make two changes.
        EXPECT_GE(j["out"].value("pocket", 0), 4) << first.out;
        // The module keeps its offset as "%f:" three times.
        ASSERT_GT(j["param_file"]["writes"].get<int>(), 0) << first.out;
        char kept[128];
        std::snprintf(kept, sizeof kept, "%f:%f:%f:", j["offset_ut"][0].get<double>(), j["offset_ut"][1].get<double>(),
                      j["offset_ut"][2].get<double>());
        EXPECT_EQ(slurp(file("p1")), kept);
        EXPECT_EQ(j["param_file"]["content"].get<std::string>(), kept);
    }
}

// A session whose field is beyond what the calibration accepts: no offset is invented,
// the reason is one sentence, and truth and reference stand side by side.
TEST_F(CalhostTest, ASessionThatNeverCalibratesSaysWhyAndShowsNoOffset) {
    const std::string session = file("strong.csv");
    ASSERT_EQ(run("simulate --field 60 --duration 30 -o " + session).status, 0);
    const std::string text = "# reference offset_ut=31,-21,49\n" + slurp(session);
    write("strong.csv", text);
    const auto j = run("replay " + session + " --json").json();
    EXPECT_TRUE(j["offset_ut"].is_null());
    EXPECT_TRUE(j["radius_ut"].is_null());
    EXPECT_TRUE(j["offset_error_ut"].is_null());
    EXPECT_TRUE(j["reference_error_ut"].is_null());
    EXPECT_TRUE(j["truth_offset_ut"].is_array());
    EXPECT_TRUE(j["reference_offset_ut"].is_array());
    EXPECT_EQ(j["reference_source"], "session");
    const std::string why = j["diagnosis"]["summary"].get<std::string>();
    EXPECT_TRUE(has(why, "fits were refused")) << why;
    EXPECT_EQ(why.find(". "), std::string::npos) << "one sentence: " << why;
    EXPECT_EQ(j["diagnosis"]["fits"]["kept"].get<int>(), 0);
    EXPECT_GT(j["diagnosis"]["samples"]["admitted"].get<int>(), 12);

    const auto t = run("replay " + session);
    EXPECT_EQ(t.out.rfind("verdict   not calibrated: no fit held\nwhy       " + why + "\n", 0), 0u) << t.out;
    EXPECT_TRUE(has(t.out, "offset    fit        none"));
    EXPECT_TRUE(has(t.out, "          truth      30.00 -20.00 50.00 µT\n          reference  31.00 -21.00 49.00 µT"));
}

TEST_F(CalhostTest, DemoSimulatesReplaysAndReports) {
    const auto r = run("demo --dir " + file("demo"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(has(slurp(file("demo") + "/session.csv"), "# truth offset_ut=30,-20,50 field_ut=45 inclination_deg=60"))
        << "the simulation's defaults";
    for (const char *name : {"session.csv", "outputs.csv", "report.html"}) {
        EXPECT_TRUE(std::filesystem::exists(file("demo") + "/" + name)) << name;
    }
    EXPECT_TRUE(has(r.out, "report    " + file("demo") + "/report.html"));
    // The verdict first; the level's drop during the disturbance, with the restart that made it.
    EXPECT_EQ(r.out.rfind("verdict   calibrated: level 3 since ", 0), 0u) << r.out;
    EXPECT_TRUE(has(r.out, "3 → 0 at ")) << r.out;
    EXPECT_TRUE(has(r.out, " (restart: a magnetic disturbance while the phone lay still)")) << r.out;
}

}  // namespace
