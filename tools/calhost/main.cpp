// calhost: loads a calibration module as an Android sensors HAL does, and simulates,
// imports, replays and reports sensor sessions through it.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <optional>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "commands.h"
#include "errors.h"
#include "import.h"
#include "module_log.h"
#include "output_file.h"
#include "report.h"
#include "progress.h"
#include "simulate.h"

using namespace calhost;

namespace {

std::string absolute(const std::string &path) {
    char buf[PATH_MAX];
    if (::realpath(path.c_str(), buf)) return buf;
    return path;
}

void make_dirs(const std::string &dir) {
    std::string partial;
    std::size_t pos = 0;
    while (pos != std::string::npos) {
        pos = dir.find('/', pos + 1);
        partial = dir.substr(0, pos);
        if (partial.empty()) continue;
        if (::mkdir(partial.c_str(), 0777) != 0 && errno != EEXIST) {
            throw OutputError(fmt::format("cannot create the folder {}: {}", partial, std::strerror(errno)));
        }
    }
}

void print_summary(const ReplaySummary &s, bool json) {
    if (json) {
        std::cout << s.to_json().dump(2) << '\n';
    } else {
        std::cout << s.to_text();
    }
}

SimOptions parse_offset(SimOptions o, const std::string &offset) {
    if (offset.empty()) return o;
    const auto v = parse_triple(offset);
    if (!v) throw UsageError(fmt::format("--offset wants three numbers x,y,z in µT, got `{}`", offset));
    o.offset_ut = *v;
    return o;
}

void add_sim_options(CLI::App *cmd, SimOptions &o, std::string &offset) {
    // Read as unsigned, "-1" would wrap to 2^64 - 1 without a word.
    const CLI::Validator non_negative(
        [](std::string &s) { return s.find('-') == std::string::npos ? std::string() : "wants a whole number, 0 or more"; },
        "0 or more");
    cmd->add_option("--seed", o.seed, "Seed of the noise and of the starting heading")
        ->check(non_negative)
        ->capture_default_str();
    cmd->add_option("--duration", o.duration_s, "Length of the session, s; the script stretches to it")
        ->capture_default_str();
    cmd->add_option("--field", o.field_ut, "Strength of the earth's field, µT")->capture_default_str();
    cmd->add_option("--inclination", o.inclination_deg, "Dip of the field below the horizon, degrees")
        ->capture_default_str();
    cmd->add_option("--offset", offset, "Hard-iron offset x,y,z in µT (default 30,-20,50)");
    cmd->add_option("--mag-noise", o.mag_noise_ut, "Magnetometer noise, µT (standard deviation per axis)")
        ->capture_default_str();
    cmd->add_option("--acc-noise", o.acc_noise, "Accelerometer noise, m/s² (standard deviation per axis)")
        ->capture_default_str();
    cmd->add_option("--mag-rate", o.mag_hz, "Magnetometer rate, Hz")->capture_default_str();
    cmd->add_option("--acc-rate", o.acc_hz, "Accelerometer rate, Hz")->capture_default_str();
    cmd->add_option("--light-rate", o.light_hz, "Light sensor rate, Hz")->capture_default_str();
}

// The lowest priority of the module's log records that reach stderr.
void add_log_option(CLI::App *cmd, std::string &level) {
    cmd->add_option("--log-level", level,
                    "The module's log records shown on stderr, from this priority up: verbose, debug, info, warn, "
                    "error or silent (default: warn)")
        ->check(CLI::IsMember({"verbose", "debug", "info", "warn", "error", "silent"}));
}

// CLI11 would say "A subcommand is required" or "not expected" for a misspelt command.
std::string unknown_command(const CLI::App &app, int argc, char **argv) {
    if (argc < 2 || argv[1][0] == '-') return {};
    std::string names;
    for (const CLI::App *c : app.get_subcommands([](const CLI::App *) { return true; })) {
        if (c->get_name() == argv[1]) return {};
        names += (names.empty() ? "" : ", ") + c->get_name();
    }
    return fmt::format("unknown command `{}`; the commands are {} (calhost --help)", argv[1], names);
}

}  // namespace

int main(int argc, char **argv) {
    CLI::App app{
        "calhost: loads a sensor calibration module as an Android sensors HAL does, and simulates,\n"
        "imports, replays and reports sensor sessions through it. Exit status: 0 success, 1 the\n"
        "run failed, 2 bad usage or input."};
    app.require_subcommand(1);
    app.fallthrough(false);
    app.set_version_flag("--version", fmt::format("calhost {}", CALHOST_VERSION));

    std::string module = default_module_path();
    const std::string module_help = fmt::format("The module to load (default: the one built with calhost, {})", module);

    // info
    auto *info = app.add_subcommand("info", "Load a module, call init and print its descriptor and algorithm table");
    info->add_option("module", module, "The module .so (default: the one built with calhost)");

    // simulate
    SimOptions sim;
    std::string sim_offset, sim_out = "-";
    auto *simulate_cmd = app.add_subcommand(
        "simulate", "Write a deterministic synthetic session: a handset turned through many attitudes, still spells,\n"
                    "face down, a passing magnetic disturbance and a trip into a pocket; the truth goes into comments");
    simulate_cmd->add_option("-o,--out", sim_out, "Session file to write (default: standard output)");
    add_sim_options(simulate_cmd, sim, sim_offset);

    // import
    ImportOptions import_options;
    auto *import_cmd = add_import_command(app, import_options);

    // replay
    std::string session, out_csv, param_file, reference;
    const char *reference_help =
        "Compare the final offset with this one, x,y,z in µT (e.g. the phone's own estimate), instead of the "
        "session's truth";
    bool json = false;
    std::string log_level;
    auto *replay = app.add_subcommand(
        "replay", "Replay a session through the module, routing every event as a HAL does, and print a summary");
    const char *session_help = "Session file (CSV: time_ns,type,v0,v1,v2; - for standard input)";
    replay->add_option("session", session, session_help)->required();
    replay->add_option("--module", module, module_help);
    replay->add_option("-o,--out", out_csv, "Write every output event as CSV: time_ns,source,status,v0,...");
    replay->add_option("--param-file", param_file,
                       "The module's parameter file (its stored offset) for this replay (default: none stored, "
                       "as on a new phone)");
    replay->add_option("--reference-offset", reference, reference_help);
    replay->add_flag("--json", json, "Print the summary as JSON");
    add_log_option(replay, log_level);

    // report
    std::string html, plotly = default_plotly_path();
    auto *report = app.add_subcommand("report", "Replay a session and write a self-contained HTML report");
    report->add_option("session", session, session_help)->required();
    report->add_option("-o,--out", html, "The HTML file to write")->required();
    report->add_option("--module", module, module_help);
    report->add_option("--csv", out_csv, "Also write every output event as CSV");
    report->add_option("--param-file", param_file, "The module's parameter file for this replay");
    report->add_option("--plotly", plotly, "The plotly.js bundle to embed")->capture_default_str();
    report->add_option("--reference-offset", reference, reference_help);
    report->add_flag("--json", json, "Print the summary as JSON");
    add_log_option(report, log_level);

    // demo
    std::string demo_dir = "calhost-demo";
    SimOptions demo_sim;
    std::string demo_offset;
    auto *demo = app.add_subcommand("demo", "Simulate a session, replay it and write the report, in one go");
    demo->add_option("-o,--out,--dir", demo_dir, "Folder for session.csv, outputs.csv and report.html")
        ->capture_default_str();
    demo->add_option("--module", module, module_help);
    demo->add_option("--param-file", param_file, "The module's parameter file for this replay");
    demo->add_option("--plotly", plotly, "The plotly.js bundle to embed")->capture_default_str();
    add_sim_options(demo, demo_sim, demo_offset);
    add_log_option(demo, log_level);

    if (const std::string why = unknown_command(app, argc, argv); !why.empty()) {
        std::cerr << "calhost: " << why << '\n';
        return kExitBadInput;
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        const int rc = app.exit(e);
        return rc == 0 ? kExitOk : kExitBadInput;
    }

    // Everything a command does once its options are read; errors leave as exceptions.
    std::optional<std::uint64_t> replayed_events;
    auto run_command = [&]() -> int {
        if (*info) {
            std::cout << describe_module(module);
            return kExitOk;
        }
        if (*import_cmd) {
            import_recording(import_options);
            return kExitOk;
        }
        if (*simulate_cmd) {
            check_outputs({}, {sim_out});
            const SimOptions o = parse_offset(sim, sim_offset);
            if (const std::string why = check(o); !why.empty()) throw UsageError(why);
            OutputFile out(sim_out);
            simulate(o, out);
            out.commit();
            return kExitOk;
        }
        ReplayRun run;
        run.module = module;
        run.param_file = param_file;
        run.progress = stderr_is_terminal();
        if (!reference.empty()) {
            run.reference = parse_triple(reference);
            if (!run.reference) {
                throw UsageError(fmt::format("--reference-offset wants three numbers x,y,z in µT, got `{}`", reference));
            }
        }
        // Outputs that would overwrite the session, the parameter file or each other, or
        // that have no folder to go to, are refused before anything is replayed.
        if (*replay) {
            check_outputs({session}, {out_csv, param_file});
            run.session = session;
            run.out_csv = out_csv;
            const ReplaySummary s = replay_session(run);
            replayed_events = s.events;
            print_summary(s, json);
            return kExitOk;
        }
        if (*report) {
            check_outputs({session}, {html, out_csv, param_file});
            run.session = session;
            run.out_csv = out_csv;
            const ReplaySummary s = replay_with_report(run, html, plotly);
            replayed_events = s.events;
            print_summary(s, json);
            if (!json) std::cout << "report    " << absolute(html) << '\n';
            return kExitOk;
        }
        if (*demo) {
            const SimOptions o = parse_offset(demo_sim, demo_offset);
            if (const std::string why = check(o); !why.empty()) throw UsageError(why);
            make_dirs(demo_dir);
            const std::string session_path = demo_dir + "/session.csv";
            run.session = session_path;
            run.out_csv = demo_dir + "/outputs.csv";
            const std::string html_path = demo_dir + "/report.html";
            check_outputs({}, {session_path, run.out_csv, html_path, param_file});
            {
                OutputFile out(session_path);
                simulate(o, out);
                out.commit();
            }
            const ReplaySummary s = replay_with_report(run, html_path, plotly);
            replayed_events = s.events;
            print_summary(s, false);
            std::cout << "session   " << absolute(session_path) << '\n';
            std::cout << "outputs   " << absolute(run.out_csv) << '\n';
            std::cout << "report    " << absolute(html_path) << '\n';
            return kExitOk;
        }
        return kExitBadInput;
    };

    if (!log_level.empty()) set_log_priority(log_priority_named(log_level.c_str()));
    try {
        const auto started = std::chrono::steady_clock::now();
        const int status = run_command();
        // The summary went to standard output: a full disk or a closed pipe there fails
        // the run like any other output.
        std::cout.flush();
        finish_stdout();
        // Timing goes to stderr, after everything else went well: standard output stays
        // the same from one replay to the next.
        if (replayed_events) {
            const std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;
            std::cerr << fmt::format("calhost: replayed {} events in {:.3f} s\n", *replayed_events, took.count());
        }
        return status;
    } catch (const SessionError &e) {
        std::cerr << "calhost: " << e.what() << '\n';
        return kExitBadInput;
    } catch (const ModuleError &e) {
        std::cerr << "calhost: " << e.what() << '\n';
        return kExitBadInput;
    } catch (const UsageError &e) {
        std::cerr << "calhost: " << e.what() << '\n';
        return kExitBadInput;
    } catch (const std::exception &e) {
        std::cerr << "calhost: " << e.what() << '\n';
        return kExitFailed;
    }
}
