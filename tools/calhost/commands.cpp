#include "commands.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>

#include <fmt/format.h>

#include "output_file.h"

namespace calhost {
namespace {

// Writes every output event as a CSV row: time_ns,source,status,v0,v1,...
// A status is written for the events that carry one (magnetic field, orientation);
// values a source does not have stay empty. Floats are written in their shortest
// exact form, so the file reproduces the module's bits.
class CsvSink : public ReplaySink {
public:
    CsvSink(OutputFile &file, int columns) : file_(file), columns_(columns) {
        std::string header = "time_ns,source,status";
        for (int i = 0; i < columns_; ++i) header += fmt::format(",v{}", i);
        header += '\n';
        file_.write(header);
    }
    void output(const OutputEvent &e) override {
        fmt::format_to(std::back_inserter(buf_), "{},{},", e.time_ns, type_name(e.type));
        if (e.has_status) fmt::format_to(std::back_inserter(buf_), "{}", e.status);
        for (int i = 0; i < columns_; ++i) {
            buf_ += ',';
            if (i < e.count) fmt::format_to(std::back_inserter(buf_), "{}", e.v[static_cast<std::size_t>(i)]);
        }
        buf_ += '\n';
        if (buf_.size() > 1 << 16) flush();
    }
    void flush() {
        file_.write(buf_);
        buf_.clear();
    }

private:
    OutputFile &file_;
    int columns_;
    std::string buf_;
};

class Tee : public ReplaySink {
public:
    Tee(ReplaySink *a, ReplaySink *b) : a_(a), b_(b) {}
    void input(const SessionRow &row) override {
        if (a_) a_->input(row);
        if (b_) b_->input(row);
    }
    void output(const OutputEvent &e) override {
        if (a_) a_->output(e);
        if (b_) b_->output(e);
    }
    void fit_offset(std::int64_t t, const float *offset) override {
        if (a_) a_->fit_offset(t, offset);
        if (b_) b_->fit_offset(t, offset);
    }

private:
    ReplaySink *a_;
    ReplaySink *b_;
};

// A bar on stderr, drawn only once the replay has run for a second.
class Progress {
public:
    explicit Progress(bool enabled) : enabled_(enabled), start_(std::chrono::steady_clock::now()) {}
    ~Progress() { finish(); }
    void update(std::uint64_t done, std::uint64_t total, std::uint64_t events) {
        if (!enabled_ || (events & 0x3FFF) != 0) return;
        const auto now = std::chrono::steady_clock::now();
        if (now - start_ < std::chrono::seconds(1) || now - last_ < std::chrono::milliseconds(100)) return;
        last_ = now;
        const double f = total ? static_cast<double>(done) / static_cast<double>(total) : 0.0;
        const int filled = static_cast<int>(f * 30.0);
        std::fprintf(stderr, "\rreplaying [%-30s] %3d%%  %llu events", std::string(static_cast<std::size_t>(filled), '#').c_str(),
                     static_cast<int>(f * 100.0), static_cast<unsigned long long>(events));
        drawn_ = true;
    }
    void finish() {
        if (drawn_) std::fprintf(stderr, "\r%60s\r", "");
        drawn_ = false;
    }

private:
    bool enabled_;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point last_{};
};

}  // namespace

bool stderr_is_terminal() { return ::isatty(STDERR_FILENO) == 1; }

ReplaySummary replay_session(const ReplayRun &run) {
    SessionReader reader(run.session);
    // The sandbox outlives the module, so that its deinit still runs inside it.
    ParamFileSandbox sandbox(run.param_file);
    Module module(run.module);

    std::unique_ptr<OutputFile> csv_file;
    std::unique_ptr<CsvSink> csv;
    if (!run.out_csv.empty()) {
        csv_file = std::make_unique<OutputFile>(run.out_csv);
        csv = std::make_unique<CsvSink>(*csv_file, std::max(6, reader.value_columns()));
    }
    Tee tee(csv.get(), run.extra);
    Replayer replayer(module, &tee);
    Progress progress(run.progress);
    const auto started = std::chrono::steady_clock::now();

    replayer.begin();
    SessionRow row;
    std::uint64_t n = 0;
    while (reader.next(row)) {
        replayer.feed(row);
        progress.update(reader.bytes_read(), reader.file_size(), ++n);
    }
    progress.finish();
    ReplaySummary summary = replayer.end(reader);
    if (run.reference) summary.set_reference(*run.reference, "command line");
    summary.param_writes = sandbox.writes();
    summary.param_content = sandbox.content();
    if (csv) {
        csv->flush();
        csv_file->commit();
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;
    // Timing goes to stderr: standard output stays the same from one replay to the next.
    if (run.timing) std::fprintf(stderr, "calhost: replayed %llu events in %.3f s\n", static_cast<unsigned long long>(n), took.count());
    return summary;
}

std::string describe_module(const std::string &path) {
    Module m(path);
    const cal_module_info &info = m.info();
    std::string s;
    s += fmt::format("module      {}\n", info.id ? info.id : "(no id)");
    s += fmt::format("vendor      {}\n", info.vendor ? info.vendor : "(no vendor)");
    s += fmt::format("version     {}\n", info.version);
    s += fmt::format("file        {}\n", path);
    s += fmt::format("algorithms  {}\n", info.number);
    s += fmt::format("  {:>7}  {:<28} {:<8} {:<7} {}\n", "type", "sensor", "convert", "config", "compatible");
    for (unsigned i = 0; i < m.algo_count(); ++i) {
        const cal_algo &a = m.algos()[i];
        std::string names;
        for (const char *const *c = a.compatible; c && *c; ++c) {
            if (!names.empty()) names += ", ";
            names += fmt::format("\"{}\"", *c);
        }
        s += fmt::format("  {:>7}  {:<28} {:<8} {:<7} {}\n", a.type, type_name(a.type),
                         a.methods->convert ? "yes" : "no", a.methods->config ? "yes" : "no",
                         names.empty() ? "(none)" : names);
    }
    s += "exported families calhost uses\n";
    s += fmt::format("  rotation vector, gravity, linear acceleration  {}\n",
                     m.gravity_fn() && m.rotation_vector() ? "yes" : "no");
    s += fmt::format("  soft gyroscope                                 {}\n", m.soft_gyro_fn() ? "yes" : "no");
    s += fmt::format("  offset and fit record                          {}\n",
                     m.has_offset_accessor() && m.msensor() ? "yes" : "no");
    return s;
}

}  // namespace calhost
