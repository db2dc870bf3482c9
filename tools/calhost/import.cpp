#include "import.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "output_file.h"
#include "replay.h"
#include "session.h"

namespace calhost {
namespace {

bool same_name(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) {
            return false;
        }
    }
    return true;
}

// "x,y,z" into its names.
std::vector<std::string> names_of(std::string_view list) {
    std::vector<std::string> names;
    std::size_t pos = 0;
    for (;;) {
        const std::size_t end = std::min(list.find(',', pos), list.size());
        names.emplace_back(trim(list.substr(pos, end - pos)));
        if (end == list.size()) return names;
        pos = end + 1;
    }
}

// A decimal time times 10^exponent, in whole nanoseconds. Done on the digits, not in
// floating point, so that "0.594995744" s is 594995744 ns exactly; digits below a
// nanosecond round half away from zero.
bool decimal_to_ns(std::string_view s, int exponent, std::int64_t &out) {
    bool negative = false;
    if (!s.empty() && (s.front() == '-' || s.front() == '+')) {
        negative = s.front() == '-';
        s.remove_prefix(1);
    }
    std::string digits;
    int fraction = 0;
    std::size_t i = 0;
    for (; i < s.size() && std::isdigit(static_cast<unsigned char>(s[i])); ++i) digits += s[i];
    if (i < s.size() && s[i] == '.') {
        for (++i; i < s.size() && std::isdigit(static_cast<unsigned char>(s[i])); ++i, ++fraction) digits += s[i];
    }
    if (digits.empty()) return false;
    if (i < s.size() && (s[i] == 'e' || s[i] == 'E')) {
        int e = 0;
        std::string_view rest = s.substr(i + 1);
        if (!rest.empty() && rest.front() == '+') rest.remove_prefix(1);
        const auto r = std::from_chars(rest.data(), rest.data() + rest.size(), e);
        if (r.ec != std::errc() || r.ptr != rest.data() + rest.size() || std::abs(e) > 40) return false;
        exponent += e;
        i = s.size();
    }
    if (i != s.size()) return false;
    exponent -= fraction;
    bool round_up = false;
    if (exponent < 0) {
        const auto drop = static_cast<std::size_t>(-exponent);
        // Dropping more digits than there are drops leading zeros too: no rounding up.
        round_up = drop <= digits.size() && digits[digits.size() - drop] >= '5';
        digits.resize(digits.size() - std::min(drop, digits.size()));
    } else {
        digits.append(static_cast<std::size_t>(exponent), '0');
    }
    const std::size_t first = digits.find_first_not_of('0');
    digits.erase(0, std::min(first, digits.size()));
    if (digits.size() > 19) return false;
    std::uint64_t v = 0;
    if (!digits.empty()) std::from_chars(digits.data(), digits.data() + digits.size(), v);
    if (round_up) ++v;
    if (v > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) return false;
    out = negative ? -static_cast<std::int64_t>(v) : static_cast<std::int64_t>(v);
    return true;
}

bool parse_number(std::string_view s, double &out) {
    if (!s.empty() && s.front() == '+') s.remove_prefix(1);
    const auto r = std::from_chars(s.data(), s.data() + s.size(), out);
    return !s.empty() && r.ec == std::errc() && r.ptr == s.data() + s.size();
}

// The float a HAL would hold: beyond the float range a value is ±infinity (a cast
// would be undefined).
float to_float(double d) {
    constexpr double kMax = std::numeric_limits<float>::max();
    if (d > kMax) return std::numeric_limits<float>::infinity();
    if (d < -kMax) return -std::numeric_limits<float>::infinity();
    return static_cast<float>(d);
}

// A recording's file, one line at a time, so that its length costs no memory.
class Lines {
public:
    explicit Lines(const std::string &path) : path_(path) {
        struct stat st {};
        if (::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) fail("is a folder, not a recording's file");
        file_.reset(std::fopen(path.c_str(), "rb"));
        if (!file_) fail(fmt::format("cannot open: {}", std::strerror(errno)));
    }

    // The next line without its line break (CRLF too) and, on the first, without a
    // byte-order mark; false at the end of the file.
    bool next(std::string_view &line) {
        int c = getc_unlocked(file_.get());
        if (c == EOF) {
            if (std::ferror(file_.get())) fail(fmt::format("read error: {}", std::strerror(errno)));
            return false;
        }
        ++line_no_;
        text_.clear();
        for (; c != EOF && c != '\n'; c = getc_unlocked(file_.get())) {
            if (c == '\0') fail("binary data (NUL byte): not a text file");
            if (text_.size() == kMaxLineBytes) fail(fmt::format("line longer than {} bytes: not a text file", kMaxLineBytes));
            text_ += static_cast<char>(c);
        }
        line = text_;
        if (line_no_ == 1 && line.substr(0, 3) == "\xEF\xBB\xBF") line.remove_prefix(3);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        return true;
    }

    [[noreturn]] void fail(const std::string &what) const { throw SessionError(path_, line_no_, what); }
    const std::string &path() const { return path_; }

private:
    struct Closer {
        void operator()(std::FILE *f) const { std::fclose(f); }
    };
    std::string path_;
    std::unique_ptr<std::FILE, Closer> file_;
    std::uint64_t line_no_ = 0;
    std::string text_;
};

// Where a sensor's samples are, and how to read them.
struct Input {
    std::string path;
    int type = 0;  // the session's sensor type
    // A text file has blank-separated fields at fixed places; a CSV file has a header
    // and comma-separated fields found by name.
    bool csv = false;
    int time_exponent = 9;  // the time times 10^this is in ns
    int time_field = 0;
    std::vector<int> value_fields, bias_fields;
    std::string time_name;
    std::vector<std::string> value_names, bias_names;
};

struct Sample {
    std::int64_t time_ns = 0;
    int type = 0;
    int count = 0;
    std::array<double, kMaxValueColumns> v{};
    std::optional<std::array<double, 3>> bias_ut;
};

class Source {
public:
    explicit Source(const Input &in) : in_(in), lines_(in.path) {
        if (in_.csv) read_header();
        last_field_ = in_.time_field;
        for (int f : in_.value_fields) last_field_ = std::max(last_field_, f);
        for (int f : in_.bias_fields) last_field_ = std::max(last_field_, f);
    }

    const Input &input() const { return in_; }

    // The next sample in the recording's units; false at the end. Blank lines and
    // lines starting with '#' are skipped.
    bool next(Sample &s) {
        std::string_view line;
        do {
            if (!lines_.next(line)) return false;
            line = trim(line);
        } while (line.empty() || line.front() == '#');
        split(line);
        if (static_cast<int>(fields_.size()) <= last_field_) {
            lines_.fail(fmt::format("{} fields, {} wanted", fields_.size(), last_field_ + 1));
        }
        const std::string_view time = fields_[static_cast<std::size_t>(in_.time_field)];
        if (!decimal_to_ns(time, in_.time_exponent, s.time_ns)) {
            lines_.fail(fmt::format("time `{}` is not a number (or not one that fits in ns)", shown(time)));
        }
        if (have_previous_ && s.time_ns < previous_ns_) {
            lines_.fail(fmt::format("time going backwards: {} ns after {} ns", s.time_ns, previous_ns_));
        }
        have_previous_ = true;
        previous_ns_ = s.time_ns;
        s.type = in_.type;
        s.count = static_cast<int>(in_.value_fields.size());
        for (std::size_t i = 0; i < in_.value_fields.size(); ++i) s.v[i] = number(in_.value_fields[i]);
        s.bias_ut.reset();
        if (!in_.bias_fields.empty()) {
            s.bias_ut.emplace();
            for (std::size_t i = 0; i < 3; ++i) (*s.bias_ut)[i] = number(in_.bias_fields[i]);
        }
        return true;
    }

private:
    void split(std::string_view line) {
        fields_.clear();
        if (in_.csv) {
            std::size_t pos = 0;
            for (;;) {
                const std::size_t end = std::min(line.find(',', pos), line.size());
                std::string_view f = trim(line.substr(pos, end - pos));
                // Some apps quote every field.
                if (f.size() >= 2 && f.front() == '"' && f.back() == '"') f = f.substr(1, f.size() - 2);
                fields_.push_back(f);
                if (end == line.size()) return;
                pos = end + 1;
            }
        }
        std::size_t pos = 0;
        while ((pos = line.find_first_not_of(" \t", pos)) != std::string_view::npos) {
            const std::size_t end = std::min(line.find_first_of(" \t", pos), line.size());
            fields_.push_back(line.substr(pos, end - pos));
            pos = end;
        }
    }

    double number(int field) {
        const std::string_view f = fields_[static_cast<std::size_t>(field)];
        double d = 0.0;
        if (!parse_number(f, d)) lines_.fail(fmt::format("field {}, `{}`, is not a number", field + 1, shown(f)));
        return d;
    }

    // The header names the columns; the options say which are wanted.
    void read_header() {
        std::string_view line;
        do {
            if (!lines_.next(line)) lines_.fail("empty: no header naming the columns");
            line = trim(line);
        } while (line.empty());
        split(line);
        in_.value_fields.clear();
        in_.bias_fields.clear();
        auto find = [&](const std::string &name) {
            for (std::size_t i = 0; i < fields_.size(); ++i) {
                if (same_name(fields_[i], name)) return static_cast<int>(i);
            }
            lines_.fail(fmt::format("no column `{}` in the header `{}`", shown(name), shown(line)));
        };
        in_.time_field = find(in_.time_name);
        for (const auto &n : in_.value_names) in_.value_fields.push_back(find(n));
        for (const auto &n : in_.bias_names) in_.bias_fields.push_back(find(n));
    }

    Input in_;
    Lines lines_;
    std::vector<std::string_view> fields_;
    int last_field_ = 0;
    bool have_previous_ = false;
    std::int64_t previous_ns_ = 0;
};

// The sensors of a recording, in the order they go first at equal times: the
// accelerometer before the magnetometer, so that a field meets the gravity of its own
// instant, as on the phone.
std::vector<Input> folder_inputs(const std::string &folder) {
    std::vector<Input> inputs;
    auto add = [&](const char *name, int type, std::vector<int> values, std::vector<int> bias) {
        Input in;
        in.path = folder + "/" + name;
        in.type = type;
        in.value_fields = std::move(values);
        in.bias_fields = std::move(bias);
        inputs.push_back(std::move(in));
    };
    add("accelerometer.txt", kAccelerometer, {1, 2, 3}, {});
    add("magnetometer.txt", kMagneticField, {1, 2, 3}, {4, 5, 6});
    // x, y, z, w and the estimated heading accuracy.
    const std::string rv = folder + "/rotation-vector.txt";
    if (::access(rv.c_str(), F_OK) == 0) add("rotation-vector.txt", kRotationVector, {1, 2, 3, 4, 5}, {});
    return inputs;
}

int time_exponent(const std::string &unit) {
    if (unit == "s") return 9;
    if (unit == "ms") return 6;
    if (unit == "us") return 3;
    return 0;
}

std::vector<Input> csv_inputs(const ImportOptions &o) {
    std::vector<Input> inputs;
    for (const char *kind : {"acc", "mag", "rv"}) {
        for (const std::string &kind_file : o.csv) {
            const std::size_t eq = kind_file.find('=');
            if (kind_file.compare(0, eq, kind) != 0) continue;
            Input in;
            in.path = kind_file.substr(eq + 1);
            in.csv = true;
            in.time_exponent = time_exponent(o.time_unit);
            in.time_name = o.time_column;
            if (kind_file[0] == 'r') {
                in.type = kRotationVector;
                in.value_names = names_of(o.rv_columns);
            } else {
                in.type = kind_file[0] == 'm' ? kMagneticField : kAccelerometer;
                in.value_names = names_of(o.columns);
                if (in.type == kMagneticField && !o.bias_columns.empty()) in.bias_names = names_of(o.bias_columns);
            }
            inputs.push_back(std::move(in));
        }
    }
    return inputs;
}

std::string floats(const std::array<double, 3> &v) {
    return fmt::format("{},{},{}", to_float(v[0]), to_float(v[1]), to_float(v[2]));
}

// Warns when a sensor's mean sampling interval is no phone's: the time unit is likely wrong.
void check_rate(const Input &in, std::uint64_t samples, std::int64_t first, std::int64_t last) {
    if (samples < 10) return;
    const double interval_s = static_cast<double>(last - first) * 1e-9 / static_cast<double>(samples - 1);
    if (interval_s < 1e-4 || interval_s > 5.0) {
        std::fprintf(stderr, "calhost: warning: %s: samples %g s apart on average: is the time unit right?\n",
                     in.path.c_str(), interval_s);
    }
}

}  // namespace

void import_recording(const ImportOptions &o) {
    const std::vector<Input> inputs = o.folder.empty() ? csv_inputs(o) : folder_inputs(o.folder);
    // The session must not replace one of the files it is made from.
    std::vector<std::string> paths;
    for (const Input &in : inputs) paths.push_back(in.path);
    check_outputs(paths, {o.out});
    std::array<double, 3> shift{};
    if (!o.mag_shift.empty()) shift = *parse_triple(o.mag_shift);

    // Every file opens (and a CSV header names its columns) before anything is written.
    std::vector<std::unique_ptr<Source>> sources;
    for (const Input &in : inputs) sources.push_back(std::make_unique<Source>(in));

    // The phone's own hard-iron estimate is its last; it goes into the comments, before
    // the rows, so the magnetometer is read through once first.
    std::optional<std::array<double, 3>> reference;
    int columns = 3;
    for (const auto &source : sources) {
        const Input &in = source->input();
        columns = std::max(columns, static_cast<int>(in.value_fields.size()));
        if (in.type != kMagneticField || in.bias_fields.empty()) continue;
        Source first_pass(in);
        Sample s;
        while (first_pass.next(s)) reference = s.bias_ut;
    }

    std::string from = o.folder;
    for (const std::string &kind_file : o.csv) from += (from.empty() ? "" : " ") + kind_file;
    std::string text = "# Imported by calhost from " + from + ".\n";
    text += fmt::format("# Magnetometer rows: the phone's uncalibrated field in uT{}, divided by the chip's scale\n"
                        "# ({}, {}, {}) into raw counts. Accelerometer rows: m/s^2.\n",
                        o.mag_shift.empty() ? "" : fmt::format(" shifted by {},{},{} uT", shift[0], shift[1], shift[2]),
                        kMagScale[0], kMagScale[1], kMagScale[2]);
    if (columns > 3) {
        text += fmt::format("# Type {} rows: the phone's own rotation vector x, y, z, w{}, passed on by a replay.\n",
                            static_cast<int>(kRotationVector), columns > 4 ? ", heading accuracy in rad" : "");
    }
    if (reference) {
        text += "# The phone's own final hard-iron estimate, shifted the same way:\n";
        for (std::size_t i = 0; i < 3; ++i) (*reference)[i] += shift[i];
        text += "# reference offset_ut=" + floats(*reference) + "\n";
    }
    text += "time_ns,type";
    for (int i = 0; i < columns; ++i) text += fmt::format(",v{}", i);
    text += '\n';

    OutputFile out(o.out);
    out.write(text);

    // Merge in time order: one pending sample per sensor.
    const std::size_t n = sources.size();
    std::vector<Sample> pending(n);
    std::vector<bool> live(n);
    std::vector<std::uint64_t> count(n, 0);
    std::vector<std::int64_t> first(n, 0), last(n, 0);
    for (std::size_t i = 0; i < n; ++i) live[i] = sources[i]->next(pending[i]);
    for (;;) {
        std::size_t k = n;
        for (std::size_t i = 0; i < n; ++i) {
            if (live[i] && (k == n || pending[i].time_ns < pending[k].time_ns)) k = i;
        }
        if (k == n) break;
        Sample &s = pending[k];
        if (count[k]++ == 0) first[k] = s.time_ns;
        last[k] = s.time_ns;
        text.clear();
        fmt::format_to(std::back_inserter(text), "{},{}", s.time_ns, s.type);
        for (int i = 0; i < columns; ++i) {
            double v = i < s.count ? s.v[static_cast<std::size_t>(i)] : 0.0;
            // Raw counts are what the module multiplies by the chip's scale in single
            // precision; dividing by those very floats gives the field back best.
            if (s.type == kMagneticField && i < 3) v = (v + shift[i]) / static_cast<double>(kMagScale[i]);
            fmt::format_to(std::back_inserter(text), ",{}", to_float(v));
        }
        text += '\n';
        out.write(text);
        live[k] = sources[k]->next(s);
    }
    out.commit();
    for (std::size_t i = 0; i < n; ++i) check_rate(sources[i]->input(), count[i], first[i], last[i]);
}

namespace {

// A CLI11 check that the text is three numbers.
std::string check_triple(std::string &text) {
    return parse_triple(text) ? "" : "wants three numbers x,y,z in µT, got `" + text + "`";
}

CLI::Validator names(std::size_t least, std::size_t most) {
    return CLI::Validator(
        [least, most](std::string &text) -> std::string {
            const auto list = names_of(text);
            for (const auto &n : list) {
                if (n.empty()) return "an empty column name in `" + text + "`";
            }
            if (list.size() < least || list.size() > most) {
                return fmt::format("wants {} column names, got `{}`",
                                   least == most ? fmt::format("{}", least) : fmt::format("{} or {}", least, most),
                                   text);
            }
            return "";
        },
        "NAMES");
}

}  // namespace

CLI::App *add_import_command(CLI::App &app, ImportOptions &o) {
    auto *cmd = app.add_subcommand(
        "import",
        "Turn a phone's recording into a session: a folder of per-sensor text files (magnetometer.txt,\n"
        "accelerometer.txt, rotation-vector.txt), or per-sensor CSV files with a header (--csv)");
    auto *folder = cmd->add_option("folder", o.folder, "The recording's folder of per-sensor text files");
    cmd->add_option("-o,--out", o.out, "Session file to write (default: standard output)");
    cmd->add_option("--mag-shift", o.mag_shift,
                    "Added to the magnetometer and its bias before scaling, x,y,z in µT: brings a phone's offset "
                    "into the chip's range")
        ->check(CLI::Validator(check_triple, "X,Y,Z"));
    auto *csv = cmd->add_option("--csv", o.csv,
                                "A sensor's CSV file: mag=FILE (µT), acc=FILE (m/s²) or rv=FILE (rotation vector); "
                                "once per sensor")
                    ->check(CLI::Validator(
                        [](std::string &kind_file) -> std::string {
                            const std::size_t eq = kind_file.find('=');
                            const std::string kind = kind_file.substr(0, eq);
                            if (eq == std::string::npos || eq + 1 == kind_file.size() ||
                                (kind != "mag" && kind != "acc" && kind != "rv")) {
                                return "wants mag=FILE, acc=FILE or rv=FILE, got `" + kind_file + "`";
                            }
                            return "";
                        },
                        "KIND=FILE"))
                    ->excludes(folder);
    cmd->add_option("--time-column", o.time_column, "The CSV files' time column")->capture_default_str()->needs(csv);
    cmd->add_option("--time-unit", o.time_unit, "The unit of the time column: ns, us, ms or s")
        ->capture_default_str()
        ->check(CLI::IsMember({"ns", "us", "ms", "s"}))
        ->needs(csv);
    cmd->add_option("--columns", o.columns, "The magnetometer's and accelerometer's value columns")
        ->capture_default_str()
        ->check(names(3, 3))
        ->needs(csv);
    cmd->add_option("--rv-columns", o.rv_columns,
                    "The rotation vector's value columns: x, y, z, w and optionally the heading accuracy")
        ->capture_default_str()
        ->check(names(4, 5))
        ->needs(csv);
    cmd->add_option("--bias-columns", o.bias_columns,
                    "The phone's own hard-iron bias in the magnetometer file, µT: its last value becomes the "
                    "session's reference offset")
        ->check(names(3, 3))
        ->needs(csv);
    cmd->parse_complete_callback([cmd, &o] {
        if (o.folder.empty() && o.csv.empty()) {
            throw CLI::ValidationError(cmd->get_name(), "give the recording: a FOLDER or --csv KIND=FILE");
        }
        for (std::size_t i = 0; i < o.csv.size(); ++i) {
            for (std::size_t j = 0; j < i; ++j) {
                if (o.csv[i].substr(0, o.csv[i].find('=')) == o.csv[j].substr(0, o.csv[j].find('='))) {
                    throw CLI::ValidationError("--csv", "one file per sensor: `" + o.csv[j] + "` and `" +
                                                            o.csv[i] + "`");
                }
            }
        }
    });
    return cmd;
}

}  // namespace calhost
