#include "identity_report.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>

namespace identity {
namespace {

// Maps the bits of a value to integers ordered like the values (-0 and +0 adjacent).
int64_t ordered(uint64_t bits, int width) {
    const uint64_t sign = uint64_t{1} << (width - 1);
    const uint64_t magnitude = bits & (sign - 1);
    return (bits & sign) ? -static_cast<int64_t>(magnitude) - 1 : static_cast<int64_t>(magnitude);
}

uint64_t distance(int64_t a, int64_t b) {
    return a > b ? static_cast<uint64_t>(a) - static_cast<uint64_t>(b)
                 : static_cast<uint64_t>(b) - static_cast<uint64_t>(a);
}

std::vector<std::string> split_tokens(const std::string &s) {
    std::vector<std::string> out;
    std::istringstream in(s);
    for (std::string t; in >> t;) out.push_back(t);
    return out;
}

struct Line {
    std::string label;
    std::string values;
    std::string text;
};

std::vector<Line> parse(const std::string &text) {
    std::vector<Line> lines;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);) {
        if (l.empty() || l[0] == '#') continue;
        const auto eq = l.find(" = ");
        Line line;
        line.text = l;
        line.label = eq == std::string::npos ? l : l.substr(0, eq);
        line.values = eq == std::string::npos ? "" : l.substr(eq + 3);
        lines.push_back(line);
    }
    return lines;
}

// Distance between two tokens of the same kind; UINT64_MAX when they are not comparable.
uint64_t token_ulps(const std::string &a, const std::string &b) {
    if (a == b) return 0;
    if (a.size() < 3 || b.size() < 3 || a.compare(0, 2, b, 0, 2) != 0) return UINT64_MAX;
    const std::string kind = a.substr(0, 2);
    if (kind != "f:" && kind != "d:") return UINT64_MAX;
    const double x = std::strtod(a.c_str() + 2, nullptr);
    const double y = std::strtod(b.c_str() + 2, nullptr);
    if (kind == "f:") return ulps_between_floats(static_cast<float>(x), static_cast<float>(y));
    return ulps_between_doubles(x, y);
}

template <class Real, class Bits>
uint64_t ulps_between(Real a, Real b) {
    const bool na = a != a;
    const bool nb = b != b;
    if (na || nb) return (na && nb) ? 0 : UINT64_MAX;
    Bits ba;
    Bits bb;
    std::memcpy(&ba, &a, sizeof ba);
    std::memcpy(&bb, &b, sizeof bb);
    return distance(ordered(ba, 8 * sizeof(Bits)), ordered(bb, 8 * sizeof(Bits)));
}

int bucket(uint64_t ulps) {
    if (ulps == 1) return 0;
    if (ulps == 2) return 1;
    if (ulps < 16) return 2;
    if (ulps != UINT64_MAX) return 3;
    return 4;
}

}  // namespace

uint64_t ulps_between_floats(float a, float b) { return ulps_between<float, uint32_t>(a, b); }
uint64_t ulps_between_doubles(double a, double b) { return ulps_between<double, uint64_t>(a, b); }

Comparison compare(const std::string &expected, const std::string &actual) {
    Comparison c;
    c.byte_identical = expected == actual;
    const std::vector<Line> want = parse(expected);
    const std::vector<Line> got = parse(actual);
    std::map<std::string, const Line *> by_label;
    for (const Line &l : want) by_label[l.label] = &l;
    std::map<std::string, bool> seen;
    c.lines = static_cast<int>(got.size());
    for (const Line &l : got) {
        seen[l.label] = true;
        const auto it = by_label.find(l.label);
        if (it == by_label.end()) {
            ++c.extra;
            c.diffs.push_back({l.label, "", l.text, UINT64_MAX, 0});
            continue;
        }
        if (it->second->text == l.text) {
            ++c.identical;
            continue;
        }
        ++c.differing;
        LineDiff d{l.label, it->second->text, l.text, 0, 0};
        const auto a = split_tokens(it->second->values);
        const auto b = split_tokens(l.values);
        if (a.size() != b.size()) d.max_ulps = UINT64_MAX;
        for (std::size_t i = 0; i < a.size() && i < b.size(); ++i) {
            const uint64_t u = token_ulps(a[i], b[i]);
            if (u == 0) continue;
            ++d.values_differing;
            ++c.by_ulps[bucket(u)];
            if (u > d.max_ulps) d.max_ulps = u;
        }
        c.values_differing += d.values_differing;
        c.diffs.push_back(d);
    }
    for (const Line &l : want) {
        if (seen.count(l.label)) continue;
        ++c.missing;
        c.diffs.push_back({l.label, l.text, "", UINT64_MAX, 0});
    }
    return c;
}

std::string summarize(const Comparison &c, int max_lines) {
    std::ostringstream out;
    out << c.lines << " lines: " << c.identical << " identical, " << c.differing << " differing ("
        << c.values_differing << " values), " << c.extra << " not in the fixture, " << c.missing
        << " of the fixture's missing; " << (c.byte_identical ? "byte-identical" : "NOT byte-identical")
        << "\n";
    if (c.values_differing > 0) {
        out << "differing values by distance: 1 ulp: " << c.by_ulps[0] << ", 2 ulps: " << c.by_ulps[1]
            << ", 3-15 ulps: " << c.by_ulps[2] << ", 16+ ulps: " << c.by_ulps[3]
            << ", NaN or not numeric: " << c.by_ulps[4] << "\n";
    }
    int shown = 0;
    for (const LineDiff &d : c.diffs) {
        if (shown++ == max_lines) {
            out << "... " << (c.diffs.size() - static_cast<std::size_t>(max_lines)) << " more\n";
            break;
        }
        if (!d.expected.empty()) out << "- " << d.expected << "\n";
        if (!d.actual.empty()) out << "+ " << d.actual << "\n";
        if (!d.expected.empty() && !d.actual.empty()) {
            if (d.max_ulps == UINT64_MAX) {
                out << "  (NaN or non-numeric difference)\n";
            } else {
                out << "  (" << d.values_differing << " values, up to " << d.max_ulps << " ulps)\n";
            }
        }
    }
    return out.str();
}

}  // namespace identity
