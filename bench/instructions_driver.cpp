// Feeds a recorded session to the module along one path, for callgrind to count the
// instructions of that path alone (bench/instructions.sh). calhost loads the module as a
// HAL does and keeps its parameter file in a scratch folder, so that each run starts
// like a new phone with nothing stored (and so counts the same) and never touches the
// offset of the build's tests.
//
// Only the work inside the measured_* functions is counted (callgrind's
// --toggle-collect=measured_*): the module and the libc and libm it calls. Reading the
// session, loading and the events a path only needs for context are not.
//
//   instructions_driver MODULE SESSION PATH
//   PATH: convert   magnetometer events to the calibration (type 2)
//         routing   magnetometer events to types 2 and 3, accelerometer events to type 3
//         rv        accelerometer events to get_rv_value (period 20 ms), magnetometer
//                   events through the type-2 convert
//         softgyro  accelerometer events to get_soft_gyro_value (period 20 ms); the
//                   magnetometer events feed the calibration uncounted
// Prints "events N": the number of measured calls.
#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "module_host.h"
#include "session.h"

using StepFn = void (*)(const float *, const int32_t *, float *);

extern "C" {
// The measured calls. Kept out of line so that callgrind sees their entry and exit.
__attribute__((noinline)) int measured_convert(const cal_algo *algo, const sensors_event_t *in,
                                               sensors_event_t *out) {
    return algo->methods->convert(in, out);
}
__attribute__((noinline)) void measured_step(StepFn step, const float *acc, const int32_t *period,
                                             float *out) {
    step(acc, period, out);
}
}

int main(int argc, char **argv) try {
    const std::string path = argc == 4 ? argv[3] : "";
    const bool routing = path == "routing", rv = path == "rv", softgyro = path == "softgyro";
    if (!routing && !rv && !softgyro && path != "convert") {
        std::fprintf(stderr, "usage: instructions_driver MODULE SESSION convert|routing|rv|softgyro\n");
        return 2;
    }
    calhost::SessionReader reader(argv[2]);  // opened before any call into the module
    calhost::ParamFileSandbox files;
    const calhost::Module module(argv[1], files);
    const calhost::ModuleCall call(&files);  // every event below is a call into the module
    const cal_algo *mag = module.algo_for(CALMODULE_TYPE_MAGNETIC_FIELD);
    const cal_algo *ori = module.algo_for(CALMODULE_TYPE_ORIENTATION);
    // calhost has no use for get_rv_value; it is resolved from the loaded module itself.
    const auto rv_step = reinterpret_cast<StepFn>(dlsym(dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD), "get_rv_value"));
    const StepFn step = rv ? rv_step : module.soft_gyro_fn();
    if (!mag || !ori || !rv_step || !step) throw std::runtime_error("the module lacks an algorithm or function");

    const int32_t period = 20;  // ms, the recording's accelerometer spacing
    long events = 0;
    for (calhost::SessionRow row; reader.next(row);) {
        sensors_event_t in, out, oriented;
        std::memset(&in, 0, sizeof in);
        std::memset(&out, 0, sizeof out);
        std::memset(&oriented, 0, sizeof oriented);
        in.type = row.type;
        in.timestamp = row.time_ns;
        for (int i = 0; i < 3; ++i) in.data[i] = row.v[static_cast<std::size_t>(i)];

        if (row.type == CALMODULE_TYPE_MAGNETIC_FIELD) {
            if (softgyro) {
                mag->methods->convert(&in, &out);
                continue;
            }
            measured_convert(mag, &in, &out);
            ++events;
            if (routing) {  // the calibrated event goes on to the orientation algorithm
                out.type = CALMODULE_TYPE_MAGNETIC_FIELD;
                measured_convert(ori, &out, &oriented);
                ++events;
            }
        } else if (row.type == CALMODULE_TYPE_ACCELEROMETER) {
            float result[3];
            if (routing) {
                measured_convert(ori, &in, &oriented);
                ++events;
            } else if (rv || softgyro) {
                measured_step(step, in.data, &period, result);
                ++events;
            }
        }
    }
    std::printf("events %ld\n", events);
    return 0;
} catch (const std::exception &e) {
    std::fprintf(stderr, "instructions_driver: %s\n", e.what());
    return 2;
}
