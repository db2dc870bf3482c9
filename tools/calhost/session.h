// Sensor sessions: the CSV text a phone's sensor log is kept in.
//
//   # comment lines (the session's ground truth may be given as `# truth key=value ...`,
//   # an offset estimated elsewhere, the phone's own say, as `# reference offset_ut=x,y,z`)
//   time_ns,type,v0,v1,v2[,v3...]
//   151880509,1,-0.432434,0.84758,9.78464
//
// One row per sensor event in time order: timestamp in ns, Android sensor type
// (1 accelerometer m/s², 2 magnetometer raw counts, 5 light lux, 8 proximity cm, any
// other type is passed on), then the values. The header names the columns, in any
// order; a UTF-8 byte-order mark and CRLF line ends are accepted, as spreadsheets write
// them. The reader streams: it holds one line at a time, so a session of any length
// takes the same memory.
#ifndef CALHOST_SESSION_H
#define CALHOST_SESSION_H

#include <array>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace calhost {

// The most value columns a row may carry: a sensor event has 16 data floats.
inline constexpr int kMaxValueColumns = 16;
// Longer lines are refused: a sensor row is well under a hundred bytes, and a file
// without line breaks (a binary, say) must not be read into memory whole.
inline constexpr std::size_t kMaxLineBytes = 4096;

struct SessionRow {
    std::int64_t time_ns = 0;
    std::int32_t type = 0;
    int count = 0;  // value columns of the session
    std::array<float, kMaxValueColumns> v{};
};

// A session the reader refuses. what() reads "file:line: what is wrong".
class SessionError : public std::runtime_error {
public:
    SessionError(const std::string &file, std::uint64_t line, const std::string &what);
    std::uint64_t line() const { return line_; }

private:
    std::uint64_t line_;
};

// Seconds from `earlier` to `later` (later >= earlier: rows come in time order), free of
// the signed overflow a plain subtraction has at the int64 extremes.
inline double seconds_between(std::int64_t earlier, std::int64_t later) {
    return static_cast<double>(static_cast<std::uint64_t>(later) - static_cast<std::uint64_t>(earlier)) * 1e-9;
}

// `# KEYWORD key=value key=value` comments (KEYWORD "truth" or "reference"), gathered
// wherever they appear; a later value of a key replaces the earlier one. At most
// kMaxKeys keys are kept, so a file of comments takes bounded memory.
class Truth {
public:
    static constexpr std::size_t kMaxKeys = 32;
    explicit Truth(std::string_view keyword = "truth") : keyword_(keyword) {}
    // Takes a comment's text (after the `#`) if it starts with the keyword.
    void add_comment(std::string_view text);
    bool empty() const { return values_.empty(); }
    const std::map<std::string, std::string> &values() const { return values_; }
    // The hard-iron offset the session was made with, µT (`offset_ut=x,y,z`).
    std::optional<std::array<double, 3>> offset_ut() const;
    // The true field strength, µT (`field_ut=`).
    std::optional<double> field_ut() const;

private:
    std::string keyword_;
    std::optional<std::array<double, 3>> triple(const std::string &key) const;
    std::map<std::string, std::string> values_;
};

// A field without the blanks (and carriage return) around it.
std::string_view trim(std::string_view s);
// A field shown in a message: printable, and short, whatever the file holds.
std::string shown(std::string_view s);

// Parses "x,y,z" (or "x y z") into three finite numbers.
std::optional<std::array<double, 3>> parse_triple(std::string_view text);

class SessionReader {
public:
    // Opens the file ("-": standard input) and reads up to and including the header.
    // Throws SessionError.
    explicit SessionReader(const std::string &path);
    SessionReader(const SessionReader &) = delete;
    SessionReader &operator=(const SessionReader &) = delete;

    // The next event row; false at the end of the file. Throws SessionError.
    bool next(SessionRow &row);

    const std::string &path() const { return path_; }
    int value_columns() const { return value_columns_; }
    const Truth &truth() const { return truth_; }
    // `# reference offset_ut=x,y,z`: an offset to compare with, e.g. the phone's own.
    const Truth &reference() const { return reference_; }
    // A warning when the rows' spacing suggests timestamps in µs or ms rather than ns
    // (every level would then seem reached "at 0.00 s"); empty otherwise. Settled once
    // a few rows of one sensor have been read.
    const std::string &time_unit_warning() const { return time_unit_warning_; }
    std::uint64_t line_number() const { return line_no_; }
    std::uint64_t bytes_read() const { return bytes_read_; }
    std::uint64_t file_size() const { return file_size_; }

private:
    bool read_line(std::string_view &line);
    // The next line that is neither blank nor a comment, trimmed; comments feed the truth.
    bool next_content_line(std::string_view &line);
    [[noreturn]] void fail(const std::string &what) const;
    void parse_header(std::string_view line);
    void parse_row(std::string_view line, SessionRow &row);
    void watch_spacing(const SessionRow &row);
    void settle_time_unit();

    std::string path_;
    struct Closer {
        void operator()(std::FILE *f) const {
            if (f != stdin) std::fclose(f);
        }
    };
    std::unique_ptr<std::FILE, Closer> file_;
    std::uint64_t file_size_ = 0;
    std::uint64_t bytes_read_ = 0;
    std::uint64_t line_no_ = 0;
    // A fixed read buffer; lines are handed out as views into it.
    std::array<char, 64 * 1024> buf_{};
    std::size_t buf_begin_ = 0;
    std::size_t buf_end_ = 0;
    bool eof_ = false;
    int value_columns_ = 0;
    // What each column of the header holds: kTimeColumn, kTypeColumn or a value index.
    static constexpr int kTimeColumn = -1, kTypeColumn = -2;
    std::array<int, kMaxValueColumns + 2> roles_{};
    int columns_ = 0;
    bool have_previous_ = false;
    std::int64_t previous_time_ = 0;
    Truth truth_{"truth"};
    Truth reference_{"reference"};
    // The spacing of the first rows of the first row's sensor, for the unit warning.
    static constexpr int kSpacingSamples = 16;
    std::int32_t spacing_type_ = 0;
    std::int64_t spacing_last_ = 0;
    int spacing_count_ = -1;  // -1: no row yet
    bool spacing_settled_ = false;
    std::array<std::int64_t, kSpacingSamples> spacing_{};
    std::string time_unit_warning_;
};

}  // namespace calhost

#endif
