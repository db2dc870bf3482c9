// The work behind each calhost command, apart from parsing the command line.
#ifndef CALHOST_COMMANDS_H
#define CALHOST_COMMANDS_H

#include <array>
#include <optional>
#include <string>

#include "replay.h"

namespace calhost {

// Exit statuses.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailed = 1;    // the run failed (writing an output, ...)
inline constexpr int kExitBadInput = 2;  // bad usage, a refused session or module

struct ReplayRun {
    std::string session;
    std::string module;
    std::string out_csv;     // empty: no output file
    std::string param_file;  // empty: a fresh, private one
    bool progress = false;   // a progress bar on stderr for replays over a second
    std::optional<std::array<double, 3>> reference;  // an offset to compare with, µT
    ReplaySink *extra = nullptr;
};

// replay: replays a session; the output file appears only when the whole replay
// succeeded. Throws SessionError, ModuleError (bad input) or OutputError (failed run).
ReplaySummary replay_session(const ReplayRun &run);

// report: replays with the report's collector attached and writes the page, whole or
// not at all.
ReplaySummary replay_with_report(ReplayRun run, const std::string &html, const std::string &plotly);

// info: the module's descriptor and algorithm table. Throws ModuleError.
std::string describe_module(const std::string &path);

}  // namespace calhost

#endif
