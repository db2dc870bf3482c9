// The transcript comparison that the identity test prints on a mismatch: it must
// count a one-ulp change as one ulp, tell a NaN from a number, and name the lines
// that appeared or disappeared.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "identity_report.h"

namespace {

TEST(IdentityReport, IdenticalTranscriptsAreByteIdentical) {
    const std::string t = "a = f:0x1p+0 i:3\nb = d:-0x1.8p+1\n";
    const identity::Comparison c = identity::compare(t, t);
    EXPECT_TRUE(c.byte_identical);
    EXPECT_EQ(c.identical, 2);
    EXPECT_EQ(c.differing + c.extra + c.missing, 0);
}

TEST(IdentityReport, DifferencesAreMeasuredInUnitsInTheLastPlace) {
    // GIVEN a float one ulp up, a double across zero, a NaN and a changed code
    const std::string expected = "x = f:0x1p+0 d:0x1p-1074\ny = f:0x1p+0\nz = i:0\ngone = i:1\n";
    const std::string actual = "x = f:0x1.000002p+0 d:-0x1p-1074\ny = f:nan\nz = i:-1\nnew = i:2\n";
    // WHEN they are compared
    const identity::Comparison c = identity::compare(expected, actual);
    // THEN each kind of change lands in its bucket and the summary names the lines
    EXPECT_FALSE(c.byte_identical);
    EXPECT_EQ(c.differing, 3);
    EXPECT_EQ(c.extra, 1);
    EXPECT_EQ(c.missing, 1);
    EXPECT_EQ(c.values_differing, 4);
    EXPECT_EQ(c.by_ulps[0], 1);  // the float, 1 ulp
    EXPECT_EQ(c.by_ulps[2], 1);  // the smallest doubles either side of zero: +0 and -0 lie between
    EXPECT_EQ(c.by_ulps[4], 2);  // NaN against a number, and an integer code
    const std::string s = identity::summarize(c, 10);
    EXPECT_NE(s.find("- gone = i:1"), std::string::npos) << s;
    EXPECT_NE(s.find("+ new = i:2"), std::string::npos) << s;
    EXPECT_NE(s.find("NOT byte-identical"), std::string::npos) << s;
}

TEST(IdentityReport, UlpDistanceIsOrderedAcrossZero) {
    EXPECT_EQ(identity::ulps_between_floats(0.0f, -0.0f), 1u);
    EXPECT_EQ(identity::ulps_between_floats(0x1p-149f, -0x1p-149f), 3u);
    EXPECT_EQ(identity::ulps_between_doubles(1.0, 1.0), 0u);
    EXPECT_EQ(identity::ulps_between_floats(1.0f, 0x1.fffffep-1f), 1u);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(identity::ulps_between_doubles(1.0, nan), UINT64_MAX);
    EXPECT_EQ(identity::ulps_between_doubles(nan, -nan), 0u);  // NaNs of either sign are alike
}

}  // namespace
