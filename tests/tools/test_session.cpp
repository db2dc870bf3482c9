// The session reader: what it accepts, and each refusal with the line it names.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "session.h"

namespace {

using calhost::SessionRow;

// One process per test case: the process id makes the file the test's own.
const std::string kPath = ::testing::TempDir() + "calhost-session-" + std::to_string(::getpid()) + ".csv";

std::vector<SessionRow> read_all(const std::string &bytes) {
    std::ofstream(kPath, std::ios::binary) << bytes;
    calhost::SessionReader reader(kPath);
    std::vector<SessionRow> rows;
    for (SessionRow row; reader.next(row);) rows.push_back(row);
    std::remove(kPath.c_str());
    return rows;
}

// A byte-order mark, CRLF, comments and blank lines anywhere, columns in any order with
// blanks around values, a last line without a line break; non-finite values as they
// came, and values beyond the float range infinite as the float a HAL holds, never wrapped.
TEST(SessionReader, ReadsWhatPhonesAndPeopleWrite) {
    std::string rows;
    for (const auto &r : read_all("\xEF\xBB\xBF# a phone\n\ntype, v2,time_ns,v0,v1\r\n"
                                  "1,9.78464,151880509,-0.432434,0.84758\r\n# a comment between rows\n"
                                  " 2 ,nan,156915910,inf,-inf\n2,1e-50,156915910,1e39,-1e400\n"
                                  "5,-0,156915911,3.4e38,+7\n")) {
        char row[128];
        std::snprintf(row, sizeof row, "%lld %d %d: %g %g %g\n", static_cast<long long>(r.time_ns), r.type, r.count,
                      static_cast<double>(r.v[0]), static_cast<double>(r.v[1]), static_cast<double>(r.v[2]));
        rows += row;
    }
    EXPECT_EQ(rows, "151880509 1 3: -0.432434 0.84758 9.78464\n156915910 2 3: inf -inf nan\n"
                    "156915910 2 3: inf -inf 0\n156915911 5 3: 3.4e+38 7 -0\n");
    const auto wide = read_all("time_ns,type,v0,v1,v2,v3,v4\n1,42,1,2,3,4,5");
    ASSERT_EQ(wide.size(), 1u);
    EXPECT_EQ(wide[0].count, 5);
    EXPECT_EQ(wide[0].v[4], 5.0f);
}

// Every refusal names the file and the line at fault, and says what is wrong.
TEST(SessionReader, RefusesMalformedFilesNamingTheLine) {
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
        {"time_ns,type,v0,v1,v2,v1\n", 1, "`v1` twice"},
        {header + "1,1,0,0,0\n2,1,0,0\n", 3, "too few columns"},
        {header + "1,1,0,0,0,0\n", 2, "too many columns"},
        {header + "1,1,0,,0\n", 2, ""},
        {header + "1,1,0,0,0\n\n2,1,0,abc,0\n", 4, "v1 `abc` is not a number"},
        {header + "1.5,1,0,0,0\n", 2, "time_ns `1.5`"},
        {header + "1,acc,0,0,0\n", 2, "type `acc`"},
        {header + "1,1,+-5,0,0\n", 2, "v0 `+-5`"},
        {header + "99999999999999999999,1,0,0,0\n", 2, ""},
        {header + "100,1,0,0,0\n200,2,0,0,0\n150,1,0,0,0\n", 4, "time going backwards"},
        {std::string("time_ns,type,v0,v1,v2\n1,1,0,0,0\n\x7f" "ELF\0\0\x01\n", 40), 3, "binary"},
        {std::string(200000, 'x'), 1, "longer than"},
    };
    for (const auto &c : cases) {
        std::string message = "accepted";
        try {
            read_all(c.bytes);
        } catch (const calhost::SessionError &e) {
            message = e.what();
        }
        std::remove(kPath.c_str());
        const std::string where = kPath + ":" + std::to_string(c.line) + ": ";
        EXPECT_EQ(message.rfind(where, 0), 0u) << c.bytes.substr(0, 60) << " -> " << message;
        EXPECT_NE(message.find(c.what), std::string::npos) << c.bytes.substr(0, 60) << " -> " << message;
    }
}

}  // namespace
