#include "identity_report.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <vector>

namespace identity {
namespace {

template <class Bits, class Real>
uint64_t ulps_between(Real a, Real b) {
    if (a != a || b != b) return (a != a && b != b) ? 0 : UINT64_MAX;
    Bits x, y;
    std::memcpy(&x, &a, sizeof x);
    std::memcpy(&y, &b, sizeof y);
    // The bits as integers ordered like the values, -0 and +0 adjacent.
    const Bits sign = Bits{1} << (8 * sizeof(Bits) - 1);
    auto ordered = [sign](Bits v) {
        return (v & sign) ? -static_cast<int64_t>(v & ~sign) - 1 : static_cast<int64_t>(v);
    };
    const int64_t p = ordered(x), q = ordered(y);
    const uint64_t up = static_cast<uint64_t>(p), uq = static_cast<uint64_t>(q);
    return p > q ? up - uq : uq - up;
}

// The line's values: the words after its label.
std::vector<std::string> values_of(const std::string &line) {
    const auto eq = line.find(" = ");
    std::istringstream in(eq == std::string::npos ? "" : line.substr(eq + 3));
    std::vector<std::string> out;
    for (std::string t; in >> t;) out.push_back(t);
    return out;
}

std::vector<std::string> lines_of(const std::string &text) {
    std::istringstream in(text);
    std::vector<std::string> lines;
    for (std::string l; std::getline(in, l);) lines.push_back(l);
    return lines;
}

// Distance between two tokens of one precision; UINT64_MAX when they are not comparable.
uint64_t token_ulps(const std::string &a, const std::string &b) {
    if (a == b) return 0;
    const std::string kind = a.substr(0, 2);
    if ((kind != "f:" && kind != "d:") || b.compare(0, 2, kind) != 0) return UINT64_MAX;
    const double x = std::strtod(a.c_str() + 2, nullptr), y = std::strtod(b.c_str() + 2, nullptr);
    if (kind == "d:") return ulps_between_doubles(x, y);
    return ulps_between_floats(static_cast<float>(x), static_cast<float>(y));
}

std::string distance(uint64_t ulps) {
    return ulps == UINT64_MAX ? "NaN or not numeric" : "up to " + std::to_string(ulps) + " ulps";
}

}  // namespace

uint64_t ulps_between_floats(float a, float b) { return ulps_between<uint32_t>(a, b); }
uint64_t ulps_between_doubles(double a, double b) { return ulps_between<uint64_t>(a, b); }

std::string compare(const std::string &expected, const std::string &actual, int max_lines) {
    const auto want = lines_of(expected), got = lines_of(actual);
    int differing = 0, values = 0;
    uint64_t worst = 0;
    std::string diffs;
    for (std::size_t i = 0; i < std::max(want.size(), got.size()); ++i) {
        const std::string a = i < want.size() ? want[i] : "", b = i < got.size() ? got[i] : "";
        if (a == b) continue;
        const auto va = values_of(a), vb = values_of(b);
        const bool same_label = a.substr(0, a.find(" = ")) == b.substr(0, b.find(" = "));
        uint64_t line_worst = same_label && va.size() == vb.size() ? 0 : UINT64_MAX;
        for (std::size_t k = 0; k < va.size() && k < vb.size(); ++k) {
            const uint64_t u = token_ulps(va[k], vb[k]);
            values += u != 0;
            line_worst = std::max(line_worst, u);
        }
        worst = std::max(worst, line_worst);
        if (differing++ < max_lines) diffs += "- " + a + "\n+ " + b + "\n  (" + distance(line_worst) + ")\n";
    }
    return std::to_string(got.size()) + " lines against the fixture's " + std::to_string(want.size()) + ": " +
           std::to_string(differing) + " differing (" + std::to_string(values) + " values, " + distance(worst) + ")\n" +
           diffs + (differing > max_lines ? "... " + std::to_string(differing - max_lines) + " more\n" : "");
}

}  // namespace identity
