#include "session.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include <fmt/format.h>

#include <sys/stat.h>

namespace calhost {
namespace {

// A leading '+' is allowed, once, and not before a '-': "+-5" is no number.
bool strip_plus(std::string_view &s) {
    if (s.empty() || s.front() != '+') return true;
    s.remove_prefix(1);
    return s.empty() || (s.front() != '-' && s.front() != '+');
}

template <class Int>
bool parse_int(std::string_view s, Int &out) {
    if (!strip_plus(s)) return false;
    const auto r = std::from_chars(s.data(), s.data() + s.size(), out);
    return r.ec == std::errc() && r.ptr == s.data() + s.size() && !s.empty();
}

// A value as the module will see it: a float. "nan", "inf" and values beyond the
// float range are kept as they are (beyond the range they become ±inf, the float the
// phone's HAL would hold too); only text that is no number at all is refused.
bool parse_value(std::string_view s, float &out) {
    if (!strip_plus(s)) return false;
    if (s.empty()) return false;
    double d = 0.0;
    const auto r = std::from_chars(s.data(), s.data() + s.size(), d);
    if (r.ptr != s.data() + s.size()) return false;
    if (r.ec == std::errc::result_out_of_range) {
        // from_chars leaves d untouched here; strtod gives ±HUGE_VAL or a zero.
        const std::string copy(s);
        d = std::strtod(copy.c_str(), nullptr);
    } else if (r.ec != std::errc()) {
        return false;
    }
    // A double beyond the float range must not be cast (undefined); it reads as ±inf.
    constexpr double kMax = std::numeric_limits<float>::max();
    if (std::isnan(d)) {
        out = std::signbit(d) ? -std::numeric_limits<float>::quiet_NaN()
                              : std::numeric_limits<float>::quiet_NaN();
    } else if (d > kMax) {
        out = std::numeric_limits<float>::infinity();
    } else if (d < -kMax) {
        out = -std::numeric_limits<float>::infinity();
    } else {
        out = static_cast<float>(d);
    }
    return true;
}

}  // namespace

std::string_view trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
    return s;
}

std::string shown(std::string_view s) {
    std::string out;
    for (char c : s.substr(0, 40)) {
        const auto u = static_cast<unsigned char>(c);
        out += (u >= 0x20 && u < 0x7F) ? c : '?';
    }
    if (s.size() > 40) out += "...";
    return out;
}

SessionError::SessionError(const std::string &file, std::uint64_t line, const std::string &what)
    : std::runtime_error(line ? fmt::format("{}:{}: {}", file, line, what) : fmt::format("{}: {}", file, what)),
      line_(line) {}

std::optional<std::array<double, 3>> parse_triple(std::string_view text) {
    std::array<double, 3> v{};
    int n = 0;
    std::size_t pos = 0;
    while (pos <= text.size()) {
        std::size_t end = text.find_first_of(", ", pos);
        if (end == std::string_view::npos) end = text.size();
        const std::string_view field = trim(text.substr(pos, end - pos));
        if (!field.empty()) {
            if (n == 3) return std::nullopt;
            double d = 0.0;
            const auto r = std::from_chars(field.data(), field.data() + field.size(), d);
            if (r.ec != std::errc() || r.ptr != field.data() + field.size() || !std::isfinite(d)) return std::nullopt;
            v[static_cast<std::size_t>(n++)] = d;
        }
        pos = end + 1;
    }
    if (n != 3) return std::nullopt;
    return v;
}

void Truth::add_comment(std::string_view text) {
    text = trim(text);
    if (text.substr(0, keyword_.size()) != keyword_) return;
    text.remove_prefix(keyword_.size());
    if (!text.empty() && text.front() != ' ' && text.front() != '\t') return;
    // Words "key=value"; a value runs to the next blank.
    std::size_t pos = 0;
    while (pos < text.size()) {
        while (pos < text.size() && (text[pos] == ' ' || text[pos] == '\t')) ++pos;
        std::size_t end = text.find_first_of(" \t", pos);
        if (end == std::string_view::npos) end = text.size();
        const std::string_view word = text.substr(pos, end - pos);
        const std::size_t eq = word.find('=');
        if (eq != std::string_view::npos && eq > 0) {
            const std::string key(word.substr(0, eq));
            const auto it = values_.find(key);
            if (it != values_.end()) {
                it->second = std::string(word.substr(eq + 1));
            } else if (values_.size() < kMaxKeys) {
                values_.emplace(key, std::string(word.substr(eq + 1)));
            }
        }
        pos = end;
    }
}

std::optional<std::array<double, 3>> Truth::offset_ut() const { return triple("offset_ut"); }

std::optional<double> Truth::field_ut() const {
    const auto it = values_.find("field_ut");
    if (it == values_.end()) return std::nullopt;
    char *end = nullptr;
    const double v = std::strtod(it->second.c_str(), &end);
    if (end == it->second.c_str() || *end != '\0' || !std::isfinite(v)) return std::nullopt;
    return v;
}

std::optional<std::array<double, 3>> Truth::triple(const std::string &key) const {
    const auto it = values_.find(key);
    if (it == values_.end()) return std::nullopt;
    return parse_triple(it->second);
}

SessionReader::SessionReader(const std::string &path) : path_(path == "-" ? "standard input" : path) {
    struct stat st {};
    if (path == "-") {
        file_.reset(stdin);
        if (::fstat(STDIN_FILENO, &st) != 0) st = {};
    } else {
        if (::stat(path.c_str(), &st) != 0) fail(fmt::format("cannot open: {}", std::strerror(errno)));
        if (S_ISDIR(st.st_mode)) fail("is a directory, not a session file");
        file_.reset(std::fopen(path.c_str(), "rb"));
        if (!file_) fail(fmt::format("cannot open: {}", std::strerror(errno)));
    }
    file_size_ = S_ISREG(st.st_mode) ? static_cast<std::uint64_t>(st.st_size) : 0;

    std::string_view line;
    if (next_content_line(line)) {
        parse_header(line);
        return;
    }
    if (line_no_ == 0) {
        line_no_ = 1;
        fail("empty session: missing header `time_ns,type,v0,v1,v2`");
    }
    fail("missing header `time_ns,type,v0,v1,v2`: the file holds only comments");
}

void SessionReader::fail(const std::string &what) const { throw SessionError(path_, line_no_, what); }

bool SessionReader::read_line(std::string_view &line) {
    for (;;) {
        const char *begin = buf_.data() + buf_begin_;
        const std::size_t avail = buf_end_ - buf_begin_;
        const void *nl = std::memchr(begin, '\n', avail);
        if (nl || (eof_ && avail > 0)) {
            const std::size_t len = nl ? static_cast<std::size_t>(static_cast<const char *>(nl) - begin) : avail;
            ++line_no_;
            if (len > kMaxLineBytes) fail(fmt::format("line longer than {} bytes: not a session file", kMaxLineBytes));
            line = std::string_view(begin, len);
            if (line.find('\0') != std::string_view::npos) fail("binary data (NUL byte): not a session file");
            // The UTF-8 byte-order mark some editors put at the start of a file.
            if (line_no_ == 1 && line.substr(0, 3) == "\xEF\xBB\xBF") line.remove_prefix(3);
            buf_begin_ += nl ? len + 1 : len;
            bytes_read_ += nl ? len + 1 : len;
            return true;
        }
        if (eof_) return false;
        if (avail > kMaxLineBytes) {
            ++line_no_;
            fail(fmt::format("line longer than {} bytes: not a session file", kMaxLineBytes));
        }
        // Move the partial line to the front and fill the rest of the buffer.
        std::memmove(buf_.data(), begin, avail);
        buf_begin_ = 0;
        buf_end_ = avail;
        const std::size_t got = std::fread(buf_.data() + buf_end_, 1, buf_.size() - buf_end_, file_.get());
        buf_end_ += got;
        if (got == 0) {
            if (std::ferror(file_.get())) fail(fmt::format("read error: {}", std::strerror(errno)));
            eof_ = true;
        }
    }
}

void SessionReader::parse_header(std::string_view line) {
    // Columns are found by name: time_ns, type and v0, v1, ... in any order.
    auto refuse = [&](const std::string &why) {
        fail(fmt::format("missing header `time_ns,type,v0,v1,v2` ({}; the columns may come in any order, with "
                         "more values up to v{}): found `{}`",
                         why, kMaxValueColumns - 1, shown(line)));
    };
    std::uint32_t values_seen = 0;
    bool have_time = false, have_type = false;
    std::size_t pos = 0;
    columns_ = 0;
    for (;;) {
        std::size_t end = line.find(',', pos);
        if (end == std::string_view::npos) end = line.size();
        const std::string_view name = trim(line.substr(pos, end - pos));
        if (columns_ == static_cast<int>(roles_.size())) refuse("too many columns");
        int role = 0;
        if (name == "time_ns") {
            if (have_time) refuse("`time_ns` twice");
            have_time = true;
            role = kTimeColumn;
        } else if (name == "type") {
            if (have_type) refuse("`type` twice");
            have_type = true;
            role = kTypeColumn;
        } else if (name.size() >= 2 && name[0] == 'v' && parse_int(name.substr(1), role) && name[1] != '+' &&
                   role >= 0 && role < kMaxValueColumns) {
            if (values_seen & (1u << role)) refuse(fmt::format("`{}` twice", name));
            values_seen |= 1u << role;
        } else {
            refuse(fmt::format("unknown column `{}`", shown(name)));
        }
        roles_[static_cast<std::size_t>(columns_++)] = role;
        if (end == line.size()) break;
        pos = end + 1;
    }
    // The values v0..vN-1, none missing.
    value_columns_ = 0;
    while (value_columns_ < kMaxValueColumns && (values_seen & (1u << value_columns_))) ++value_columns_;
    if (!have_time) refuse("no `time_ns`");
    if (!have_type) refuse("no `type`");
    if (value_columns_ < 3 || values_seen != (1u << value_columns_) - 1u) refuse(fmt::format("no `v{}`", value_columns_));
}

bool SessionReader::next_content_line(std::string_view &line) {
    std::string_view raw;
    while (read_line(raw)) {
        line = trim(raw);
        if (line.empty()) continue;
        if (line.front() == '#') {
            truth_.add_comment(line.substr(1));
            reference_.add_comment(line.substr(1));
            continue;
        }
        return true;
    }
    return false;
}

bool SessionReader::next(SessionRow &row) {
    std::string_view line;
    if (!next_content_line(line)) {
        settle_time_unit();
        return false;
    }
    parse_row(line, row);
    watch_spacing(row);
    return true;
}

void SessionReader::watch_spacing(const SessionRow &row) {
    if (spacing_settled_) return;
    if (spacing_count_ < 0) {  // the first row chooses the sensor
        spacing_type_ = row.type;
        spacing_last_ = row.time_ns;
        spacing_count_ = 0;
        return;
    }
    if (row.type != spacing_type_) return;
    const std::uint64_t step = static_cast<std::uint64_t>(row.time_ns) - static_cast<std::uint64_t>(spacing_last_);
    spacing_last_ = row.time_ns;
    if (step == 0 || step > (1ull << 62)) return;
    spacing_[static_cast<std::size_t>(spacing_count_++)] = static_cast<std::int64_t>(step);
    if (spacing_count_ == kSpacingSamples) settle_time_unit();
}

void SessionReader::settle_time_unit() {
    if (spacing_settled_ || spacing_count_ < 4) return;  // too few rows to tell
    spacing_settled_ = true;
    // Sensors report every 0.1 ms to 10 s. Far closer rows in "ns" are rows whose
    // clock counts in a coarser unit.
    const auto mid = spacing_.begin() + spacing_count_ / 2;
    std::nth_element(spacing_.begin(), mid, spacing_.begin() + spacing_count_);
    const double median = static_cast<double>(*mid);
    if (median >= 1e5) return;
    // Sensors report at 5 to 500 Hz: 2 to 200 in ms, 2000 to 200000 in µs.
    const char *unit = median < 1000.0 ? "ms" : "µs";
    time_unit_warning_ = fmt::format(
        "{}: rows of sensor type {} are {} apart in time_ns, {:.0f} kHz if that is ns: the timestamps look like {}; "
        "calhost takes them as ns",
        path_, spacing_type_, *mid, 1e6 / median, unit);
}

void SessionReader::parse_row(std::string_view line, SessionRow &row) {
    const int want = columns_;
    int column = 0;
    std::size_t pos = 0;
    for (;;) {
        std::size_t end = line.find(',', pos);
        if (end == std::string_view::npos) end = line.size();
        const std::string_view field = trim(line.substr(pos, end - pos));
        if (column >= want) {
            fail(fmt::format("too many columns: the header has {}", want));
        }
        const int role = roles_[static_cast<std::size_t>(column)];
        if (role == kTimeColumn) {
            if (!parse_int(field, row.time_ns)) {
                fail(fmt::format("time_ns `{}` is not an integer number of nanoseconds", shown(field)));
            }
        } else if (role == kTypeColumn) {
            if (!parse_int(field, row.type)) fail(fmt::format("type `{}` is not an integer sensor type", shown(field)));
        } else if (!parse_value(field, row.v[static_cast<std::size_t>(role)])) {
            fail(fmt::format("v{} `{}` is not a number", role, shown(field)));
        }
        ++column;
        if (end == line.size()) break;
        pos = end + 1;
    }
    if (column < want) fail(fmt::format("too few columns: {} of the header's {}", column, want));
    if (have_previous_ && row.time_ns < previous_time_) {
        fail(fmt::format("time going backwards: {} ns after {} ns", row.time_ns, previous_time_));
    }
    have_previous_ = true;
    previous_time_ = row.time_ns;
    row.count = value_columns_;
    for (std::size_t i = static_cast<std::size_t>(value_columns_); i < row.v.size(); ++i) row.v[i] = 0.0f;
}

}  // namespace calhost
