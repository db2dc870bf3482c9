// Feeds a recorded session to the module along one path, for callgrind to count the
// instructions of that path alone (bench/instructions.sh). The module is loaded with
// dlopen and reached through `scmi` and its algorithm table, as a sensors HAL does.
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

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "calmodule/module.h"

using StepFn = void (*)(const float *, const int32_t *, float *);

// The module keeps its offset in a file. Once the session is open, every fopen goes
// to /dev/null instead, so that each run starts like a new phone with nothing stored
// (and so counts the same) and never touches the offset of the build's tests.
using FopenFn = FILE *(*)(const char *, const char *);
bool g_redirect = false;
extern "C" FILE *fopen(const char *path, const char *mode) {
    static const auto real = reinterpret_cast<FopenFn>(dlsym(RTLD_NEXT, "fopen"));
    return real(g_redirect ? "/dev/null" : path, mode);
}
extern "C" FILE *fopen64(const char *path, const char *mode) {
    static const auto real = reinterpret_cast<FopenFn>(dlsym(RTLD_NEXT, "fopen64"));
    return real(g_redirect ? "/dev/null" : path, mode);
}

extern "C" {
// The measured calls. Kept out of line so that callgrind sees their entry and exit.
__attribute__((noinline)) int measured_convert(const cal_algo_methods *m, const sensors_event_t *in,
                                               sensors_event_t *out) {
    return m->convert(in, out);
}
__attribute__((noinline)) void measured_step(StepFn step, const float *acc, const int32_t *period,
                                             float *out) {
    step(acc, period, out);
}
}

namespace {

const cal_algo_methods *find_methods(const cal_module_info *info, int32_t type) {
    const cal_algo *list = nullptr;
    info->methods->get_algo_list(&list);
    for (uint32_t i = 0; list && i < info->number; ++i) {
        if (list[i].type == type) return list[i].methods;
    }
    return nullptr;
}

int fail(const char *what) {
    std::fprintf(stderr, "instructions_driver: %s\n", what);
    return 2;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 4) return fail("usage: instructions_driver MODULE SESSION convert|routing|rv|softgyro");
    const std::string path = argv[3];
    const bool convert = path == "convert", routing = path == "routing", rv = path == "rv",
               softgyro = path == "softgyro";
    if (!convert && !routing && !rv && !softgyro) return fail("unknown path");

    FILE *session = std::fopen(argv[2], "r");
    if (!session) return fail("cannot read the session");
    g_redirect = true;

    void *lib = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (!lib) return fail(dlerror());
    const auto *info = static_cast<const cal_module_info *>(dlsym(lib, "scmi"));
    if (!info) return fail("no scmi");
    info->methods->init();
    const cal_algo_methods *mag = find_methods(info, CALMODULE_TYPE_MAGNETIC_FIELD);
    const cal_algo_methods *ori = find_methods(info, CALMODULE_TYPE_ORIENTATION);
    const auto rv_step = reinterpret_cast<StepFn>(dlsym(lib, "get_rv_value"));
    const auto gyro_step = reinterpret_cast<StepFn>(dlsym(lib, "get_soft_gyro_value"));
    if (!mag || !ori || !rv_step || !gyro_step) return fail("the module lacks an algorithm or function");

    const int32_t period = 20;  // ms, the recording's accelerometer spacing
    long events = 0;
    char line[512];
    bool header_seen = false;
    while (std::fgets(line, sizeof line, session)) {
        if (line[0] == '#') continue;
        if (!header_seen) {  // time_ns,type,v0,v1,v2
            header_seen = true;
            continue;
        }
        long long time_ns = 0;
        int type = 0;
        float v[3] = {0.0f, 0.0f, 0.0f};
        if (std::sscanf(line, "%lld,%d,%f,%f,%f", &time_ns, &type, &v[0], &v[1], &v[2]) != 5) continue;

        sensors_event_t in, out, oriented;
        std::memset(&in, 0, sizeof in);
        std::memset(&out, 0, sizeof out);
        std::memset(&oriented, 0, sizeof oriented);
        in.type = type;
        in.timestamp = time_ns;
        for (int i = 0; i < 3; ++i) in.data[i] = v[i];

        if (type == CALMODULE_TYPE_MAGNETIC_FIELD) {
            if (softgyro) {
                mag->convert(&in, &out);
            } else {
                measured_convert(mag, &in, &out);
                ++events;
            }
            if (routing) {
                // The calibrated event goes on to the orientation algorithm.
                out.type = CALMODULE_TYPE_MAGNETIC_FIELD;
                measured_convert(ori, &out, &oriented);
                ++events;
            }
        } else if (type == CALMODULE_TYPE_ACCELEROMETER) {
            float result[3];
            if (routing) {
                measured_convert(ori, &in, &oriented);
                ++events;
            } else if (rv || softgyro) {
                measured_step(rv ? rv_step : gyro_step, in.data, &period, result);
                ++events;
            }
        }
    }
    std::fclose(session);
    info->methods->deinit();
    std::printf("events %ld\n", events);
    return 0;
}
