// calhost replay and report: a session replayed through a freshly loaded module.
#include <unistd.h>

#include <cstdio>
#include <memory>

#include <fmt/format.h>

#include "commands.h"
#include "csv_sink.h"
#include "module_log.h"
#include "output_file.h"
#include "progress.h"
#include "report.h"

namespace calhost {

ReplaySummary replay_session(const ReplayRun &run) {
    SessionReader reader(run.session);
    // The module reads and writes its stored offset in this file instead of the path
    // built into it (see param_sandbox.h). Declared before the module, so that it
    // outlives it: the module's deinit still runs inside it.
    ParamFileSandbox files(run.param_file);
    Module module(run.module, files);

    std::unique_ptr<OutputFile> csv_file;
    std::unique_ptr<CsvSink> csv;
    if (!run.out_csv.empty()) {
        csv_file = std::make_unique<OutputFile>(run.out_csv);
        csv = std::make_unique<CsvSink>(*csv_file, std::max(6, reader.value_columns()));
    }
    Tee tee(csv.get(), run.extra);
    Replayer replayer(module, &tee);
    Progress progress(run.progress);

    // The module's log records carry the session time; the enable at the start is
    // stamped with the first row's.
    SessionRow row;
    bool more = reader.next(row);
    const std::int64_t first_ns = more ? row.time_ns : 0;
    start_log_clock(first_ns);
    replayer.begin();
    std::uint64_t n = 0;
    for (; more; more = reader.next(row)) {
        advance_log_clock(row.time_ns);
        replayer.feed(row);
        progress.update(reader.bytes_read(), reader.file_size(), ++n, seconds_between(first_ns, row.time_ns));
    }
    progress.finish();
    ReplaySummary summary = replayer.end(reader);
    if (run.reference) summary.set_reference(*run.reference, "command line");
    summary.param_writes = files.writes();
    summary.param_content = files.content();
    if (csv) {
        csv->flush();
        csv_file->commit();
    }
    if (!reader.time_unit_warning().empty()) {
        std::fprintf(stderr, "calhost: warning: %s\n", reader.time_unit_warning().c_str());
    }
    return summary;
}

ReplaySummary replay_with_report(ReplayRun run, const std::string &html, const std::string &plotly) {
    if (::access(plotly.c_str(), R_OK) != 0) {
        throw OutputError(fmt::format("the plotting library is missing: {} (run scripts/setup.sh, which installs it)",
                                      plotly));
    }
    // Opened before the replay, so that a page that cannot be written stops the run
    // before it starts.
    OutputFile page(html);
    ReportCollector collector;
    run.extra = &collector;
    ReplaySummary summary = replay_session(run);
    page.write(render_report(collector.data(summary), plotly));
    page.commit();
    return summary;
}

}  // namespace calhost
