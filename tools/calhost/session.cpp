#include "session.h"

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

std::string_view trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
    return s;
}

// A field shown in a message: printable, and short, whatever the file holds.
std::string shown(std::string_view s) {
    std::string out;
    for (char c : s.substr(0, 40)) {
        const auto u = static_cast<unsigned char>(c);
        out += (u >= 0x20 && u < 0x7F) ? c : '?';
    }
    if (s.size() > 40) out += "...";
    return out;
}

template <class Int>
bool parse_int(std::string_view s, Int &out) {
    if (!s.empty() && s.front() == '+') s.remove_prefix(1);
    const auto r = std::from_chars(s.data(), s.data() + s.size(), out);
    return r.ec == std::errc() && r.ptr == s.data() + s.size() && !s.empty();
}

// A value as the module will see it: a float. "nan", "inf" and values beyond the
// float range are kept as they are (beyond the range they become ±inf, the float the
// phone's HAL would hold too); only text that is no number at all is refused.
bool parse_value(std::string_view s, float &out) {
    if (!s.empty() && s.front() == '+') s.remove_prefix(1);
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
    // `# truth ...` is what the session was made with; `# reference ...` is another
    // estimate to compare with (the phone's own), kept under "reference:" keys.
    std::string prefix;
    constexpr std::string_view kTruth = "truth", kReference = "reference";
    if (text.substr(0, kTruth.size()) == kTruth) {
        text.remove_prefix(kTruth.size());
    } else if (text.substr(0, kReference.size()) == kReference) {
        text.remove_prefix(kReference.size());
        prefix = "reference:";
    } else {
        return;
    }
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
            values_[prefix + std::string(word.substr(0, eq))] = std::string(word.substr(eq + 1));
        }
        pos = end;
    }
}

std::optional<std::array<double, 3>> Truth::offset_ut() const { return triple("offset_ut"); }

std::optional<std::array<double, 3>> Truth::reference_offset_ut() const { return triple("reference:offset_ut"); }

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

SessionReader::SessionReader(const std::string &path) : path_(path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) fail(fmt::format("cannot open: {}", std::strerror(errno)));
    if (S_ISDIR(st.st_mode)) fail("is a directory, not a session file");
    file_.reset(std::fopen(path.c_str(), "rb"));
    if (!file_) fail(fmt::format("cannot open: {}", std::strerror(errno)));
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
    static constexpr std::string_view kExpected = "time_ns,type,v0,v1,v2";
    std::size_t pos = 0;
    int column = 0;
    bool ok = true;
    for (;;) {
        std::size_t end = line.find(',', pos);
        if (end == std::string_view::npos) end = line.size();
        const std::string_view name = trim(line.substr(pos, end - pos));
        std::string expected;
        if (column == 0) expected = "time_ns";
        else if (column == 1) expected = "type";
        else expected = fmt::format("v{}", column - 2);
        if (name != expected) {
            ok = false;
            break;
        }
        ++column;
        if (end == line.size()) break;
        pos = end + 1;
    }
    if (!ok || column < 5) {
        fail(fmt::format("missing header: expected `{}` (more value columns v3, v4, ... allowed), found `{}`",
                         kExpected, shown(line)));
    }
    value_columns_ = column - 2;
    if (value_columns_ > kMaxValueColumns) {
        fail(fmt::format("{} value columns; a sensor event carries at most {}", value_columns_, kMaxValueColumns));
    }
}

bool SessionReader::next_content_line(std::string_view &line) {
    std::string_view raw;
    while (read_line(raw)) {
        line = trim(raw);
        if (line.empty()) continue;
        if (line.front() == '#') {
            truth_.add_comment(line.substr(1));
            continue;
        }
        return true;
    }
    return false;
}

bool SessionReader::next(SessionRow &row) {
    std::string_view line;
    if (!next_content_line(line)) return false;
    parse_row(line, row);
    return true;
}

void SessionReader::parse_row(std::string_view line, SessionRow &row) {
    const int want = value_columns_ + 2;
    int column = 0;
    std::size_t pos = 0;
    for (;;) {
        std::size_t end = line.find(',', pos);
        if (end == std::string_view::npos) end = line.size();
        const std::string_view field = trim(line.substr(pos, end - pos));
        if (column >= want) {
            fail(fmt::format("too many columns: the header has {}", want));
        }
        if (column == 0) {
            if (!parse_int(field, row.time_ns)) {
                fail(fmt::format("time_ns `{}` is not an integer number of nanoseconds", shown(field)));
            }
        } else if (column == 1) {
            if (!parse_int(field, row.type)) fail(fmt::format("type `{}` is not an integer sensor type", shown(field)));
        } else if (!parse_value(field, row.v[static_cast<std::size_t>(column - 2)])) {
            fail(fmt::format("v{} `{}` is not a number", column - 2, shown(field)));
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
