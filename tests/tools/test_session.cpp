// The session reader: what it accepts, and each refusal with the line it names.
#include <gtest/gtest.h>

#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "param_sandbox.h"
#include "progress.h"
#include "report.h"
#include "session.h"

namespace {

using calhost::SessionError;
using calhost::SessionReader;
using calhost::SessionRow;

class SessionFile : public ::testing::Test {
protected:
    // One process per test case: the process id makes the file the test's own.
    void TearDown() override { std::remove(path_.c_str()); }
    const std::string &write(const std::string &bytes) {
        std::ofstream(path_, std::ios::binary) << bytes;
        return path_;
    }
    std::vector<SessionRow> read_all(const std::string &bytes) {
        SessionReader r(write(bytes));
        std::vector<SessionRow> rows;
        SessionRow row;
        while (r.next(row)) rows.push_back(row);
        return rows;
    }
    // The message of the refusal, or "" when the whole file was accepted.
    std::string refusal(const std::string &bytes) {
        try {
            read_all(bytes);
        } catch (const SessionError &e) {
            return e.what();
        }
        return "";
    }
    std::string at(int line) const { return path_ + ":" + std::to_string(line) + ": "; }

    const std::string path_ = ::testing::TempDir() + "calhost-session-" + std::to_string(::getpid()) + ".csv";
};

TEST_F(SessionFile, ReadsRowsAfterCommentsBlankLinesAndTheHeaderWithUpToSixteenValues) {
    auto rows = read_all(
        "# a phone\n"
        "\n"
        "time_ns,type,v0,v1,v2\r\n"
        "151880509,1,-0.432434,0.84758,9.78464\r\n"
        "# a comment between rows\n"
        "156915910, 2 ,55.2134,-51.8514,-2.44012\n"
        "156915910,5,300,0,0");  // last line without a line break, equal time
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0].time_ns, 151880509);
    EXPECT_EQ(rows[0].type, 1);
    EXPECT_EQ(rows[0].count, 3);
    EXPECT_EQ(rows[0].v[2], 9.78464f);
    EXPECT_EQ(rows[1].type, 2);
    EXPECT_EQ(rows[1].v[1], -51.8514f);
    EXPECT_EQ(rows[2].v[0], 300.0f);
    rows = read_all("time_ns,type,v0,v1,v2,v3,v4\n1,42,1,2,3,4,5\n");
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].count, 5);
    EXPECT_EQ(rows[0].v[4], 5.0f);
}

TEST_F(SessionFile, ReadsAByteOrderMarkCrlfAndColumnsInAnyOrder) {
    const auto rows = read_all("\xEF\xBB\xBFtype, v2,time_ns,v0,v1\r\n2,3,1000,1,2\r\n");
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].time_ns, 1000);
    EXPECT_EQ(rows[0].type, 2);
    EXPECT_EQ(rows[0].v[0], 1.0f);
    EXPECT_EQ(rows[0].v[2], 3.0f);
}

// Rows µs or ms apart read as a sensor at tens of kHz: the reader says which unit it looks like.
TEST_F(SessionFile, WarnsWhenRowsAreSpacedLikeMicrosecondsOrMilliseconds) {
    for (const auto &[step, unit] : {std::pair<long, const char *>{20, "like ms"}, {20000, "like µs"}, {20000000, ""}}) {
        std::string text = "time_ns,type,v0,v1,v2\n";
        for (long i = 0; i < 40; ++i) text += std::to_string(i * step) + (i % 3 ? ",2,1,2,3\n" : ",1,0,0,9.8\n");
        SessionReader r(write(text));
        SessionRow row;
        while (r.next(row)) {
        }
        if (*unit) {
            EXPECT_NE(r.time_unit_warning().find(unit), std::string::npos) << step << ": " << r.time_unit_warning();
        } else {
            EXPECT_EQ(r.time_unit_warning(), "") << step;
        }
    }
}

TEST_F(SessionFile, PassesNanInfinityAndHugeValuesOnAsTheModuleWillSeeThem) {
    const auto rows = read_all("time_ns,type,v0,v1,v2\n1,2,nan,inf,-inf\n2,2,1e39,-1e400,1e-50\n3,2,3.4e38,-0,+7\n");
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_TRUE(std::isnan(rows[0].v[0]));
    EXPECT_EQ(rows[0].v[1], INFINITY);
    EXPECT_EQ(rows[0].v[2], -INFINITY);
    // Beyond the float range: infinite, as the float a HAL holds; never a wrapped value.
    EXPECT_EQ(rows[1].v[0], INFINITY);
    EXPECT_EQ(rows[1].v[1], -INFINITY);
    EXPECT_EQ(rows[1].v[2], 0.0f);
    EXPECT_EQ(rows[2].v[0], 3.4e38f);
    EXPECT_TRUE(std::signbit(rows[2].v[1]));
    EXPECT_EQ(rows[2].v[2], 7.0f);
}

TEST_F(SessionFile, GathersTheTruthFromCommentsAnywhere) {
    SessionReader r(write("# truth offset_ut=30,-20,50 field_ut=45\ntime_ns,type,v0,v1,v2\n1,2,0,0,0\n"
                          "# truth seed=7\n# truthful remark=1\n"));
    SessionRow row;
    while (r.next(row)) {
    }
    const auto offset = r.truth().offset_ut();
    ASSERT_TRUE(offset.has_value());
    EXPECT_EQ(*offset, (std::array<double, 3>{30.0, -20.0, 50.0}));
    EXPECT_EQ(r.truth().values().at("field_ut"), "45");
    EXPECT_EQ(r.truth().values().at("seed"), "7");
    EXPECT_EQ(r.truth().values().count("remark"), 0u);
}

// A file of comments must not grow memory: only the first keys are kept, and the
// reference offset is read beside the truth.
TEST_F(SessionFile, KeepsABoundedNumberOfCommentKeysAndTheReferenceOffset) {
    std::string text = "# reference offset_ut=57.99,-73.75,32.41\ntime_ns,type,v0,v1,v2\n";
    for (int i = 0; i < 1000; ++i) text += "# truth key" + std::to_string(i) + "=" + std::string(100, 'x') + "\n";
    SessionReader r(write(text));
    SessionRow row;
    while (r.next(row)) {
    }
    EXPECT_EQ(r.truth().values().size(), calhost::Truth::kMaxKeys);
    EXPECT_FALSE(r.truth().offset_ut());
    EXPECT_EQ(*r.reference().offset_ut(), (std::array<double, 3>{57.99, -73.75, 32.41}));
}

// Every refusal names the file and the line at fault, and says what is wrong.
TEST_F(SessionFile, RefusesMalformedFilesNamingTheLine) {
    const std::string header = "time_ns,type,v0,v1,v2\n";
    std::string wide = "time_ns,type";
    for (int i = 0; i < 17; ++i) wide += ",v" + std::to_string(i);
    const struct {
        std::string bytes;
        int line;
        const char *what;
    } cases[] = {
        {"", 1, "missing header"},
        {"# comment\n1,2,3,4,5\n", 2, "missing header"},
        {"# only comments\n# here\n", 2, "holds only comments"},
        {"time_ns,type,x,y,z\n", 1, ""},
        {"time_ns,type,v0,v1\n1,1,0,0\n", 1, ""},
        {wide + "\n", 1, "up to v15"},
        {header + "1,1,0,0,0\n2,1,0,0\n", 3, "too few columns"},
        {header + "1,1,0,0,0,0\n", 2, "too many columns"},
        {header + "1,1,0,,0\n", 2, ""},
        {header + "1,1,0,0,0\n\n2,1,0,abc,0\n", 4, "v1 `abc` is not a number"},
        {header + "1,1,0x1p3,0,0\n", 2, "v0"},
        {header + "1.5,1,0,0,0\n", 2, "time_ns `1.5`"},
        {header + "1,acc,0,0,0\n", 2, "type `acc`"},
        {header + "1,1,+-5,0,0\n", 2, "v0 `+-5`"},
        {header + "+-1,1,0,0,0\n", 2, "time_ns `+-1`"},
        {"time_ns,type,v0,v1,v2,v1\n", 1, "`v1` twice"},
        {"time_ns,type,v0,v2,v3\n", 1, "no `v1`"},
        {header + "99999999999999999999,1,0,0,0\n", 2, ""},
        {header + "100,1,0,0,0\n200,2,0,0,0\n150,1,0,0,0\n", 4, "time going backwards"},
        {std::string("time_ns,type,v0,v1,v2\n1,1,0,0,0\n\x7f" "ELF\0\0\x01\n", 40), 3, "binary"},
        {std::string(200000, 'x'), 1, "longer than"},
    };
    for (const auto &c : cases) {
        const std::string msg = refusal(c.bytes);
        EXPECT_EQ(msg.rfind(at(c.line), 0), 0u) << c.bytes.substr(0, 60) << " -> " << msg;
        EXPECT_NE(msg.find(c.what), std::string::npos) << c.bytes.substr(0, 60) << " -> " << msg;
    }
    EXPECT_THROW(SessionReader("/nonexistent/session.csv"), SessionError);
}

TEST_F(SessionFile, StreamsAMillionRowsAcrossItsReadBuffer) {
    std::string text = "time_ns,type,v0,v1,v2\n";
    text.reserve(30u * 1000000u);
    for (int i = 0; i < 1000000; ++i) text += std::to_string(i) + ",99,1.5,-2.25,3\n";
    SessionReader r(write(text));
    SessionRow row;
    std::uint64_t n = 0;
    double sum = 0.0;
    while (r.next(row)) {
        ++n;
        sum += static_cast<double>(row.v[1]);
    }
    EXPECT_EQ(n, 1000000u);
    EXPECT_EQ(sum, -2.25e6);
    EXPECT_EQ(r.bytes_read(), text.size());
}

TEST(Progress, FitsTheTerminalAndSaysWhatIsLeft) {
    for (int width : {20, 60, 200}) {
        for (double fraction : {-1.0, 0.0, 0.5}) {
            const std::string line = calhost::progress_line(width, fraction, 125.0, 10.0);
            EXPECT_LT(line.size(), static_cast<std::size_t>(width)) << line;
            if (width >= 60) {
                EXPECT_NE(line.find("2 min 05 s"), std::string::npos) << line;
                if (fraction > 0) {
                    EXPECT_NE(line.find("about 10 s left"), std::string::npos) << line;
                }
            }
        }
    }
}

// The module's parameter file: only the opens that succeed count as writes.
TEST(ParamFileSandbox, CountsOnlyTheWritesThatOpened) {
    const std::string link = ::testing::TempDir() + "calhost-param-" + std::to_string(::getpid());
    ASSERT_EQ(::symlink("/nonexistent/folder/param.txt", link.c_str()), 0);
    calhost::ParamFileSandbox files(link);
    {
        calhost::ModuleCall call(&files);
        EXPECT_EQ(std::fopen("/data/misc/any.txt", "w"), nullptr);
    }
    std::remove(link.c_str());
    EXPECT_EQ(files.writes(), 0u);
}

TEST(ParseTriple, TakesThreeFiniteNumbers) {
    for (const char *good : {"30,-20,50", "57.99 -73.75 32.41"}) EXPECT_TRUE(calhost::parse_triple(good)) << good;
    for (const char *bad : {"1,2", "1,2,3,4", "1,nan,3", "1,x,3"}) EXPECT_FALSE(calhost::parse_triple(bad)) << bad;
}

TEST(RotationVectorAzimuth, TurnsClockwiseLikeACompass) {
    // A rotation vector (0, 0, sin(h/2)) is a heading h about the vertical.
    for (const auto &[heading, azimuth] : {std::pair{0.0, 0.0}, {90.0, 90.0}, {-90.0, 270.0}, {179.0, 179.0}}) {
        const float rv[3] = {0.0f, 0.0f, static_cast<float>(std::sin(heading * M_PI / 360.0))};
        EXPECT_NEAR(calhost::rotation_vector_azimuth(rv), azimuth, 1e-3) << heading;
    }
    // A vector longer than a unit quaternion allows still gives an angle, not NaN.
    const float too_long[3] = {1.0f, 1.0f, 1.0f};
    EXPECT_FALSE(std::isnan(calhost::rotation_vector_azimuth(too_long)));
}

TEST(Thinned, KeepsASessionOfAnyLengthWithinTwiceItsCap) {
    calhost::Thinned<1> series(100);
    for (int i = 0; i < 100000; ++i) series.push({static_cast<double>(i)});
    EXPECT_LT(series.points().size(), 200u);
    EXPECT_GE(series.points().size(), 100u);
    EXPECT_EQ(series.points().front()[0], 0.0);
    // Evenly spaced: every kept point is the same stride from the one before.
    const double stride = series.points()[1][0] - series.points()[0][0];
    for (std::size_t i = 1; i < series.points().size(); ++i) {
        EXPECT_EQ(series.points()[i][0] - series.points()[i - 1][0], stride);
    }
}

}  // namespace
