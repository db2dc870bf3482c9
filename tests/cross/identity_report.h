// Compares a session transcript with the committed fixture, line by line.
//
// A transcript line is "<label> = <token> <token> ...", every label unique. A token is
// "f:<%a>" (a float), "d:<%a>" (a double), "i:<decimal>" or a bare word; NaNs are
// written "f:nan"/"d:nan" whatever their sign and payload (x86 and ARM make default
// NaNs of different sign, which says nothing about the module's arithmetic).
#ifndef CALMODULE_TESTS_CROSS_IDENTITY_REPORT_H
#define CALMODULE_TESTS_CROSS_IDENTITY_REPORT_H

#include <cstdint>
#include <string>
#include <vector>

namespace identity {

// Distance in units in the last place between two values of the same precision:
// 0 for identical bits (and for two NaNs), UINT64_MAX when only one is a NaN.
uint64_t ulps_between_floats(float a, float b);
uint64_t ulps_between_doubles(double a, double b);

struct LineDiff {
    std::string label;
    std::string expected;  // empty when the fixture has no such line
    std::string actual;    // empty when the session no longer prints it
    uint64_t max_ulps = 0; // over the numeric tokens that differ; UINT64_MAX for NaN/non-numeric
    int values_differing = 0;
};

struct Comparison {
    int lines = 0;           // lines of the transcript
    int identical = 0;
    int differing = 0;       // same label, other values
    int extra = 0;           // labels the fixture does not have
    int missing = 0;         // fixture labels the transcript does not have
    int values_differing = 0;
    bool byte_identical = false;
    std::vector<LineDiff> diffs;  // in transcript order, then the missing lines
    // Histogram of the differing values by distance: 1, 2, 3-15, 16 and more, NaN/other.
    int by_ulps[5] = {0, 0, 0, 0, 0};
};

Comparison compare(const std::string &expected, const std::string &actual);

// A readable summary; `max_lines` differing lines are shown in full.
std::string summarize(const Comparison &c, int max_lines);

}  // namespace identity

#endif
