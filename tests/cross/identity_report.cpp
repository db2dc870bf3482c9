#include "identity_report.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
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
    auto ordered = [sign](Bits v) { return (v & sign) ? -static_cast<int64_t>(v & ~sign) - 1 : static_cast<int64_t>(v); };
    const int64_t p = ordered(x), q = ordered(y);
    return p > q ? static_cast<uint64_t>(p) - static_cast<uint64_t>(q) : static_cast<uint64_t>(q) - static_cast<uint64_t>(p);
}

std::string label_of(const std::string &line) { return line.substr(0, line.find(" = ")); }

std::vector<std::string> tokens_after_label(const std::string &line) {
    std::istringstream in(line.substr(line.find(" = ") + 3));
    std::vector<std::string> out;
    for (std::string t; in >> t;) out.push_back(t);
    return out;
}

// Distance between two tokens of one precision; UINT64_MAX when they are not comparable.
uint64_t token_ulps(const std::string &a, const std::string &b) {
    if (a == b) return 0;
    const std::string kind = a.substr(0, 2);
    if ((kind != "f:" && kind != "d:") || b.compare(0, 2, kind) != 0) return UINT64_MAX;
    const double x = std::strtod(a.c_str() + 2, nullptr), y = std::strtod(b.c_str() + 2, nullptr);
    return kind == "f:" ? ulps_between_floats(static_cast<float>(x), static_cast<float>(y)) : ulps_between_doubles(x, y);
}

std::string distance(uint64_t ulps) {
    return ulps == UINT64_MAX ? "NaN or not numeric" : "up to " + std::to_string(ulps) + " ulps";
}

}  // namespace

uint64_t ulps_between_floats(float a, float b) { return ulps_between<uint32_t>(a, b); }
uint64_t ulps_between_doubles(double a, double b) { return ulps_between<uint64_t>(a, b); }

std::string compare(const std::string &expected, const std::string &actual, int max_lines) {
    std::map<std::string, std::string> fixture;  // by label
    std::istringstream want(expected), got(actual);
    for (std::string l; std::getline(want, l);) fixture[label_of(l)] = l;
    int lines = 0, differing = 0, extra = 0, values = 0, shown = 0;
    uint64_t worst = 0;
    std::ostringstream diffs;
    auto show = [&](const std::string &text) {
        if (shown++ < max_lines) diffs << text;
    };
    for (std::string l; std::getline(got, l); ++lines) {
        const auto it = fixture.find(label_of(l));
        if (it == fixture.end()) {
            ++extra;
            show("+ " + l + "\n");
            continue;
        }
        const std::string was = it->second;
        fixture.erase(it);
        if (was == l) continue;
        ++differing;
        const auto a = tokens_after_label(was), b = tokens_after_label(l);
        uint64_t line_worst = a.size() == b.size() ? 0 : UINT64_MAX;
        for (std::size_t i = 0; i < a.size() && i < b.size(); ++i) {
            const uint64_t u = token_ulps(a[i], b[i]);
            values += u != 0;
            line_worst = std::max(line_worst, u);
        }
        worst = std::max(worst, line_worst);
        show("- " + was + "\n+ " + l + "\n  (" + distance(line_worst) + ")\n");
    }
    for (const auto &missing : fixture) show("- " + missing.second + "\n");
    std::ostringstream out;
    out << lines << " lines: " << differing << " differing (" << values << " values, " << distance(worst) << "), "
        << extra << " not in the fixture, " << fixture.size() << " of the fixture's missing\n" << diffs.str();
    if (shown > max_lines) out << "... " << (shown - max_lines) << " more\n";
    return out.str();
}

}  // namespace identity
