// Compares a session transcript with the committed fixture, line by line.
//
// A transcript line is "<label> = <token> <token> ...". A token is
// "f:<%a>" (a float), "d:<%a>" (a double), "i:<decimal>" or a bare word; NaNs are
// written "f:nan"/"d:nan" whatever their sign and payload (x86 and ARM make default
// NaNs of different sign, which says nothing about the module's arithmetic).
#ifndef CALMODULE_TESTS_CROSS_IDENTITY_REPORT_H
#define CALMODULE_TESTS_CROSS_IDENTITY_REPORT_H

#include <cstdint>
#include <string>

namespace identity {

// Distance in units in the last place between two values of the same precision:
// 0 for identical bits (and for two NaNs), UINT64_MAX when only one is a NaN.
uint64_t ulps_between_floats(float a, float b);
uint64_t ulps_between_doubles(double a, double b);

// How far `actual` lies from `expected`, line by line: a summary, then up to
// `max_lines` differing lines in full, each with its distance in ulps.
std::string compare(const std::string &expected, const std::string &actual, int max_lines);

}  // namespace identity

#endif
