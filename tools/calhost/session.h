// Sensor sessions: the CSV text a phone's sensor log is kept in.
//
//   # comment lines (the session's ground truth may be given as `# truth key=value ...`,
//   #   another estimate to compare with as `# reference offset_ut=x,y,z`)
//   time_ns,type,v0,v1,v2[,v3...]
//   151880509,1,-0.432434,0.84758,9.78464
//
// One row per sensor event in time order: timestamp in ns, Android sensor type
// (1 accelerometer m/s², 2 magnetometer raw counts, 5 light lux, 8 proximity cm, any
// other type is passed on), then the values. The reader streams: it holds one line at a
// time, so a session of any length takes the same memory.
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

// `# truth key=value key=value` and `# reference key=value` comments, gathered wherever
// they appear.
class Truth {
public:
    void add_comment(std::string_view text);
    bool empty() const { return values_.empty(); }
    const std::map<std::string, std::string> &values() const { return values_; }
    // The hard-iron offset the session was made with, µT (`offset_ut=x,y,z`).
    std::optional<std::array<double, 3>> offset_ut() const;
    // The true field strength, µT (`field_ut=`).
    std::optional<double> field_ut() const;
    // An offset to compare with, µT (`# reference offset_ut=x,y,z`), e.g. the phone's own.
    std::optional<std::array<double, 3>> reference_offset_ut() const;

private:
    std::optional<std::array<double, 3>> triple(const std::string &key) const;
    std::map<std::string, std::string> values_;
};

// Parses "x,y,z" (or "x y z") into three finite numbers.
std::optional<std::array<double, 3>> parse_triple(std::string_view text);

class SessionReader {
public:
    // Opens the file and reads up to and including the header. Throws SessionError.
    explicit SessionReader(const std::string &path);
    SessionReader(const SessionReader &) = delete;
    SessionReader &operator=(const SessionReader &) = delete;

    // The next event row; false at the end of the file. Throws SessionError.
    bool next(SessionRow &row);

    const std::string &path() const { return path_; }
    int value_columns() const { return value_columns_; }
    const Truth &truth() const { return truth_; }
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

    std::string path_;
    struct Closer {
        void operator()(std::FILE *f) const { std::fclose(f); }
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
    bool have_previous_ = false;
    std::int64_t previous_time_ = 0;
    Truth truth_;
};

}  // namespace calhost

#endif
