// Cost per event of each algorithm's path, with the module loaded through dlopen as a
// HAL loads it, on a synthetic phone turning about two axes at 200 Hz with a hard-iron
// offset; and the throughput of a replay of that session.
//
//   cmake --preset release && cmake --build --preset release --target calmodule_bench
//   build/release/bench/calmodule_bench
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
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

struct Fixture {
    // Every file the module opens goes to a private scratch file.
    calhost::ParamFileSandbox sandbox;
    std::unique_ptr<Module> module = std::make_unique<Module>(calhost::default_module_path());
    std::vector<SessionRow> rows;
    std::vector<sensors_event_t> all, mag, acc, pocket;  // in session order
    std::string session = "/tmp/calmodule-bench-" + std::to_string(::getpid()) + ".csv";

    Fixture() {
        FILE *f = std::fopen(session.c_str(), "w");
        std::fprintf(f, "time_ns,type,v0,v1,v2\n");
        for (int i = 0; i < 8000; ++i) {  // 20 s: a turn about x every 8 s, about y every 5 s
            const double t = i * 0.005, a = 0.785 * t, b = 1.257 * t;
            const double up[3] = {-std::sin(b), std::sin(a) * std::cos(b), std::cos(a) * std::cos(b)};
            const double north[3] = {std::cos(b), std::sin(a) * std::sin(b), std::cos(a) * std::sin(b)};
            SessionRow row;
            row.time_ns = static_cast<std::int64_t>(i) * 5000000;
            row.count = 3;
            row.type = 1;
            for (int k = 0; k < 3; ++k) row.v[k] = static_cast<float>(9.8 * up[k]);
            rows.push_back(row);
            row.type = 2;
            const double counts[3] = {1.5, 1.5, 2.6}, offset[3] = {30, -20, 50};
            for (int k = 0; k < 3; ++k) row.v[k] = static_cast<float>((22.5 * north[k] - 39.0 * up[k] + offset[k]) / counts[k]);
            rows.push_back(row);
        }
        for (SessionRow &row : rows) {
            sensors_event_t e{};
            e.type = row.type;
            e.timestamp = row.time_ns;
            for (int k = 0; k < 3; ++k) e.data[k] = row.v[k];
            all.push_back(e);
            (row.type == 2 ? mag : acc).push_back(e);
            std::fprintf(f, "%lld,%d,%.9g,%.9g,%.9g\n", static_cast<long long>(row.time_ns), row.type, row.v[0], row.v[1],
                         row.v[2]);
        }
        std::fclose(f);
        // Alternate light and proximity readings that flip the pocket state now and then.
        for (int i = 0; i < 64; ++i) {
            sensors_event_t e{};
            e.type = (i % 2) ? 8 : 5;
            e.data[0] = (i % 2) ? static_cast<float>((i / 8) % 2) * 5.0f : 300.0f;
            pocket.push_back(e);
        }
    }
    ~Fixture() { std::remove(session.c_str()); }
};

Fixture &fixture() {
    static Fixture f;
    return f;
}

// One algorithm's convert on events of one kind, in order, round and round.
void run_convert(benchmark::State &state, int algo_type, const std::vector<sensors_event_t> &events) {
    const Module &m = *fixture().module;
    const cal_algo *algo = m.algo_for(algo_type);
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
// Both kinds interleaved: with a constant acceleration the orientation would find the
// device still and hold its output, which costs nothing.
void BM_Orientation(benchmark::State &state) { run_convert(state, 3, fixture().all); }
void BM_UncalibratedMagnetometer(benchmark::State &state) {
    std::vector<sensors_event_t> events = fixture().mag;
    for (auto &e : events) {
        for (int i = 0; i < 3; ++i) e.data[4 + i] = e.data[i] * calhost::kMagScale[i];
    }
    run_convert(state, 14, events);
}
void BM_PocketDetection(benchmark::State &state) { run_convert(state, 0x10001, fixture().pocket); }

// An exported per-accelerometer-sample function, with a period of 5 ms (200 Hz).
void run_vector_fn(benchmark::State &state, calhost::VectorFn fn) {
    const auto &acc = fixture().acc;
    std::size_t i = 0;
    float out[3];
    const std::int32_t period = 5;
    for (auto _ : state) {
        calhost::ModuleCall call;
        fn(acc[i].data, &period, out);
        benchmark::DoNotOptimize(out);
        if (++i == acc.size()) i = 0;
    }
    state.SetItemsProcessed(state.iterations());
}
// One step of the rotation-vector estimator (through get_gravity_value, as calhost calls it).
void BM_RotationVectorGravityStep(benchmark::State &state) { run_vector_fn(state, fixture().module->gravity_fn()); }
void BM_SoftGyroscope(benchmark::State &state) { run_vector_fn(state, fixture().module->soft_gyro_fn()); }

// Every event routed as calhost replay routes it (no parsing, no output file).
void BM_ReplayRouting(benchmark::State &state) {
    for (auto _ : state) {
        calhost::Replayer replayer(*fixture().module, nullptr);
        for (const SessionRow &row : fixture().rows) replayer.feed(row);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(fixture().rows.size()));
}

// calhost replay end to end: read the file, load the module, route every event, sum up.
void BM_ReplaySessionFile(benchmark::State &state) {
    calhost::ReplayRun run;
    run.session = fixture().session;
    run.module = calhost::default_module_path();
    run.timing = false;
    for (auto _ : state) benchmark::DoNotOptimize(calhost::replay_session(run).final_level);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(fixture().rows.size()));
}

BENCHMARK(BM_MagneticCalibration);
BENCHMARK(BM_UncalibratedMagnetometer);
BENCHMARK(BM_Orientation);
BENCHMARK(BM_PocketDetection);
BENCHMARK(BM_RotationVectorGravityStep);
BENCHMARK(BM_SoftGyroscope);
BENCHMARK(BM_ReplayRouting)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReplaySessionFile)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
