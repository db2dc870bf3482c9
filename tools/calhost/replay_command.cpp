// calhost replay and report: a session replayed through a freshly loaded module.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>

#include <fmt/format.h>

#include "commands.h"
#include "csv_sink.h"
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
    if (run.reference) summary.set_reference(*run.reference);
    summary.param_writes = files.writes();
    summary.param_content = files.content();
    if (csv) {
        csv->flush();
        csv_file->commit();
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;
    // Timing goes to stderr: standard output stays the same from one replay to the next.
    if (run.timing) {
        std::fprintf(stderr, "calhost: replayed %llu events in %.3f s\n", static_cast<unsigned long long>(n),
                     took.count());
    }
    return summary;
}

ReplaySummary replay_with_report(ReplayRun run, const std::string &html, const std::string &plotly) {
    if (::access(plotly.c_str(), R_OK) != 0) {
        throw OutputError(fmt::format("the plotting library is missing: {} (run scripts/setup.sh, which installs it)",
                                      plotly));
    }
    ReportCollector collector;
    run.extra = &collector;
    ReplaySummary summary = replay_session(run);
    OutputFile page(html);
    page.write(render_report(collector.data(summary), plotly));
    page.commit();
    return summary;
}

}  // namespace calhost
