// Time per event of the paths the instruction check counts, on the real phone
// recording, with the module loaded through dlopen as a HAL loads it; and the
// throughput of a whole replay.
//
//   cmake --preset release && cmake --build --preset release --target calmodule_bench
//   build/release/bench/calmodule_bench
// CALMODULE_BENCH_MODULE=PATH measures another build of the module instead, for
// example the one with the reproducible math that the cross tests link.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "module_host.h"
#include "replay.h"
#include "session.h"

namespace {

using calhost::Module;
using calhost::SessionRow;

const std::string kRecording = std::string(CALMODULE_DATA_DIR) + "/nexus5-figure-eight.csv";

const char *module_under_test() {
    const char *path = std::getenv("CALMODULE_BENCH_MODULE");
    return path && *path ? path : calhost::default_module_path();
}

struct Fixture {
    // Every file the module opens goes to a private scratch file, never to the
    // parameter file of the build's tests.
    calhost::ParamFileSandbox sandbox;  // declared first: it outlives the module
    std::unique_ptr<Module> module;
    std::vector<sensors_event_t> all, mag, acc;  // in recorded order
    std::string error;

    Fixture() {
        try {
            module = std::make_unique<Module>(module_under_test(), sandbox);
            calhost::SessionReader reader(kRecording);
            SessionRow row;
            while (reader.next(row)) {
                sensors_event_t e;
                std::memset(&e, 0, sizeof e);
                e.type = row.type;
                e.timestamp = row.time_ns;
                for (int i = 0; i < 3; ++i) e.data[i] = row.v[static_cast<std::size_t>(i)];
                all.push_back(e);
                (row.type == 2 ? mag : acc).push_back(e);
            }
        } catch (const std::exception &e) {
            error = e.what();
        }
    }
};

Fixture &fixture() {
    static Fixture f;
    return f;
}

bool ready(benchmark::State &state) {
    Fixture &f = fixture();
    if (!f.error.empty() || f.mag.empty() || f.acc.empty()) {
        state.SkipWithError(f.error.empty() ? "the recording holds no events" : f.error.c_str());
        return false;
    }
    return true;
}

// One algorithm's convert on the recording's events of one kind, in order, round and round.
void run_convert(benchmark::State &state, int algo_type, const std::vector<sensors_event_t> &events) {
    if (!ready(state)) return;
    const Module &m = *fixture().module;
    const cal_algo *algo = m.algo_for(algo_type);
    if (!algo) {
        state.SkipWithError("the module has no such algorithm");
        return;
    }
    std::size_t i = 0;
    sensors_event_t out;
    for (auto _ : state) {
        out = events[i];
        benchmark::DoNotOptimize(m.convert(algo, events[i], &out));
        benchmark::ClobberMemory();
        if (++i == events.size()) i = 0;
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_MagneticCalibration(benchmark::State &state) { run_convert(state, 2, fixture().mag); }
// The orientation algorithm sees both kinds, interleaved as recorded: with a constant
// acceleration it would find the device still and hold its output, which costs nothing.
void BM_Orientation(benchmark::State &state) { run_convert(state, 3, fixture().all); }

// An exported per-accelerometer-sample function, on the recording's accelerometer
// events in order, with a period of 5 ms (the recording's 200 Hz).
void run_vector_fn(benchmark::State &state, calhost::VectorFn fn, const char *name) {
    if (!ready(state)) return;
    if (!fn) {
        state.SkipWithError((std::string("the module exports no ") + name).c_str());
        return;
    }
    const auto &acc = fixture().acc;
    std::size_t i = 0;
    float out[3];
    const std::int32_t period = 5;
    for (auto _ : state) {
        calhost::ModuleCall call(&fixture().sandbox);
        fn(acc[i].data, &period, out);
        benchmark::DoNotOptimize(out);
        if (++i == acc.size()) i = 0;
    }
    state.SetItemsProcessed(state.iterations());
}

// One step of the rotation-vector estimator (through get_gravity_value, as calhost calls it).
void BM_RotationVectorGravityStep(benchmark::State &state) {
    run_vector_fn(state, fixture().module ? fixture().module->gravity_fn() : nullptr, "get_gravity_value");
}

void BM_SoftGyroscope(benchmark::State &state) {
    run_vector_fn(state, fixture().module ? fixture().module->soft_gyro_fn() : nullptr, "get_soft_gyro_value");
}

// calhost replay end to end: read the file, load the module, route every event, sum up.
void BM_ReplaySessionFile(benchmark::State &state) {
    if (!ready(state)) return;
    calhost::ReplayRun run;
    run.session = kRecording;
    run.module = module_under_test();
    std::uint64_t events = 0;
    for (auto _ : state) {
        const auto summary = calhost::replay_session(run);
        events = summary.events;
        benchmark::DoNotOptimize(summary.final_level);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(events));
}

BENCHMARK(BM_MagneticCalibration);
BENCHMARK(BM_Orientation);
BENCHMARK(BM_RotationVectorGravityStep);
BENCHMARK(BM_SoftGyroscope);
BENCHMARK(BM_ReplaySessionFile)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
