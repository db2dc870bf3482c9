// A fixed, deterministic session through the module, printed bit-exactly.
//
// The module is loaded as a HAL loads it. A synthetic phone lies still, turns about
// two axes at a time, lies face down, sees magnetic disturbances, and finally receives
// broken samples; its accelerometer, magnetometer, light and proximity events go
// through the four algorithms, and the exported estimators, tilt, matrix and AKFS_
// functions are called directly with fixed arguments. Every output is printed as an
// exact hexadecimal float, so the transcript is the same file on every target exactly
// when the module's arithmetic is.
//
// The inputs are made with float additions and multiplications only (no libm), so
// they are the same bits everywhere, whichever math library the module uses.
//
// Usage:
//   identity_session LIBRARY [--out FILE]       write the transcript (default: stdout)
//   identity_session LIBRARY --compare FIXTURE  exit 1 unless the transcript is byte-identical
//   identity_session LIBRARY --report FIXTURE   print how far the transcript is from it; exit 0
//
// Run against the library built with the reproducible math (its transcript must equal
// the fixture on every target), and against the one that calls the platform's libm
// (the differences are reported, not judged).
#include <dlfcn.h>

#include <cinttypes>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <utility>

#include "calmodule/aoc.h"
#include "calmodule/fusion.h"
#include "calmodule/magcal.h"
#include "calmodule/module.h"
#include "calmodule/orientation.h"
#include "identity_report.h"
#include "support/log_capture.h"
#include "support/module_loader.h"
#include "support/test_env.h"

namespace {

using testsupport::LoadedModule;
using testsupport::make_event;

// ---- transcript ---------------------------------------------------------------------

std::string g_out;

// One transcript line: a label, " =", then each value as an exact hexadecimal float.
class Line {
public:
    explicit Line(const char *fmt, ...) __attribute__((format(printf, 2, 3))) {
        va_list ap;
        va_start(ap, fmt);
        append(160, fmt, ap);
        va_end(ap);
        text_ += " =";
    }
    ~Line() { g_out += text_ + "\n"; }
    Line &f(float v) { return v != v ? word("f:nan") : add("f:%a", static_cast<double>(v)); }
    Line &fs(const float *v, int n) {
        for (int i = 0; i < n; ++i) f(v[i]);
        return *this;
    }
    Line &d(double v) { return v != v ? word("d:nan") : add("d:%a", v); }
    Line &i(long long v) { return add("i:%lld", v); }
    Line &word(const char *w) { return add("%s", w); }

private:
    // Labels are cut at 159 characters and values at 63, as the fixture was written.
    void append(size_t size, const char *fmt, va_list ap) {
        char buf[160];
        std::vsnprintf(buf, size, fmt, ap);
        text_ += buf;
    }
    Line &add(const char *fmt, ...) __attribute__((format(printf, 2, 3))) {
        text_ += " ";
        va_list ap;
        va_start(ap, fmt);
        append(64, fmt, ap);
        va_end(ap);
        return *this;
    }
    std::string text_;
};

// ---- the synthetic phone ------------------------------------------------------------

// A 32-bit linear congruential generator: small symmetric noise, exactly reproducible.
struct Noise {
    uint32_t state = 0x2545F491u;
    float next(float amplitude) {
        state = state * 1664525u + 1013904223u;
        const int32_t centred = static_cast<int32_t>(state >> 9) - (1 << 22);  // [-2^22, 2^22)
        return static_cast<float>(centred) * 0x1p-22f * amplitude;
    }
};

struct Mat3 {
    float m[9];
};

Mat3 multiply(const Mat3 &a, const Mat3 &b) {
    Mat3 r;
    for (int i = 0; i < 9; ++i) {
        const int row = i / 3 * 3, j = i % 3;
        r.m[i] = a.m[row] * b.m[j] + a.m[row + 1] * b.m[3 + j] + a.m[row + 2] * b.m[6 + j];
    }
    return r;
}

// Rotations by +-0.05 rad about one device axis (cos and sin rounded to float).
constexpr float kCosStep = 0x1.ff5c32p-1f;
constexpr float kSinStep = 0x1.996deap-5f;

Mat3 step_rotation(int axis, int direction) {
    const float s = direction > 0 ? kSinStep : -kSinStep;
    const float c = kCosStep;
    switch (axis) {
        case 0: return {{1, 0, 0, 0, c, -s, 0, s, c}};
        case 1: return {{c, 0, s, 0, 1, 0, -s, 0, c}};
        default: return {{c, -s, 0, s, c, 0, 0, 0, 1}};
    }
}

// World vector into the device frame: R maps device to world, so this is R^T w.
void to_device(const Mat3 &r, const float w[3], float out[3]) {
    for (int i = 0; i < 3; ++i) out[i] = r.m[i] * w[0] + r.m[3 + i] * w[1] + r.m[6 + i] * w[2];
}

constexpr float kGravity[3] = {0.0f, 0.0f, 9.80665f};  // what an accelerometer lying flat reads
constexpr float kEarthField[3] = {0.0f, 22.0f, -40.0f};  // µT: north along +y, dipping down
constexpr float kHardIron[3] = {14.0f, -9.0f, 23.0f};    // µT, fixed to the device
// The driver scales raw samples by 1.5, 1.5 and 2.6 into µT; the session feeds raw values.
constexpr float kRawPerMicrotesla[3] = {0x1.555556p-1f, 0x1.555556p-1f, 0x1.89d89ep-2f};

// A phase turns the phone by 0.05 rad per sample about up to two device axes at once
// (both axes turning keeps every field component moving, so the calibration finds
// well-spread samples), or holds it still.
struct Phase {
    int steps;
    int axis_a;  // -1: none
    int axis_b;  // -1: none
    int direction;  // +1 / -1
    const char *what;
};

constexpr Phase kPhases[] = {
    {20, -1, -1, 0, "flat and still"},
    {70, 0, 1, +1, "turning about x and y"},
    {70, 1, 2, +1, "turning about y and z"},
    {70, 2, 0, -1, "turning back about z and x"},
    {20, -1, -1, 0, "face down"},
    {60, 0, 2, +1, "turning about x and z from face down"},
    {90, -1, -1, 0, "still, with magnetic disturbances"},
    {70, 1, 0, -1, "turning back about y and x"},
    {20, -1, -1, 0, "still again"},
};

// ---- the module's exported functions, found by name --------------------------------

const LoadedModule *g_module = nullptr;

// The function or object, or null with an "absent" line in the transcript (so a
// fixture made while a family was missing differs visibly once it lands).
template <class T>
T *find(const char *name) {
    T *p = g_module->symbol<T>(name);
    if (!p) Line("absent %s", name).word("-");
    return p;
}
// The exported name, typed by its declaration in the public headers.
#define FIND(name) find<decltype(::name)>(#name)

// One event through one algorithm into a poisoned output record, printed with the
// first n values of what came out.
void convert(const LoadedModule &m, const char *what, int step, int32_t type, const sensors_event_t &in, int n) {
    sensors_event_t out = testsupport::poisoned_event();
    const int rc = m.convert(type, in, &out);
    Line("%04d %s", step, what).i(rc).fs(out.data, n).i(out.vector.status);
}

// A function's N float outputs, printed under its name.
template <int N, class Call>
void print(const char *name, Call call) {
    float out[N];
    call(out);
    Line("%s", name).fs(out, N);
}

// ---- the session ------------------------------------------------------------------

void run_events(const LoadedModule &m) {
    std::pair<const char *, decltype(::get_rv_value) *> estimators[] = {
        {"get_rv_value", nullptr}, {"get_gravity_value", nullptr}, {"get_la_value", nullptr},
        {"get_soft_gyro_value", nullptr}};
    for (auto &[name, fn] : estimators) fn = find<decltype(::get_rv_value)>(name);
    // The calibration flags the orientation computation raises and clears.
    const int16_t *cali_flag = find<const int16_t>("cali_flag");
    const int16_t *cali_ret = find<const int16_t>("cali_ret");

    static const float kLux[] = {180.0f, 2.0f, 0.0f, 320.0f, 1.5f, 45.0f};
    static const float kCentimetres[] = {5.0f, 0.0f, 0.0f, 5.0f, 0.0f, 5.0f};

    Noise noise;
    Mat3 attitude = {{1, 0, 0, 0, 1, 0, 0, 0, 1}};
    const int32_t period = 20;
    int step = 0;
    for (const Phase &phase : kPhases) {
        Line("phase %04d", step).word(phase.what);
        if (std::strcmp(phase.what, "face down") == 0) attitude = {{1, 0, 0, 0, -1, 0, 0, 0, -1}};
        for (int k = 0; k < phase.steps; ++k, ++step) {
            if (phase.axis_a >= 0) attitude = multiply(attitude, step_rotation(phase.axis_a, phase.direction));
            if (phase.axis_b >= 0) attitude = multiply(attitude, step_rotation(phase.axis_b, phase.direction));
            float acc[3];
            float field[3];
            to_device(attitude, kGravity, acc);
            to_device(attitude, kEarthField, field);
            float raw[3];
            for (int i = 0; i < 3; ++i) {
                acc[i] = acc[i] + noise.next(0.05f);
                raw[i] = (field[i] + kHardIron[i] + noise.next(0.4f)) * kRawPerMicrotesla[i];
            }
            // Once the phone has lain still long enough for the orientation to hold: a
            // magnet near it for a while, then one wild sample.
            if (std::strstr(phase.what, "disturbances")) {
                if (k >= 50 && k < 65) raw[0] = raw[0] + 30.0f;
                if (k == 75) {
                    raw[0] = raw[0] + 2500.0f;
                    raw[1] = raw[1] + 10.0f;
                }
            }

            // The HAL's order: the accelerometer event, then the magnetometer event to
            // each algorithm bound to a magnetic type.
            const sensors_event_t acc_event = make_event(CALMODULE_TYPE_ACCELEROMETER, acc[0], acc[1], acc[2]);
            convert(m, "orientation(acc)", step, CALMODULE_TYPE_ORIENTATION, acc_event, 3);

            sensors_event_t mag_event = make_event(CALMODULE_TYPE_MAGNETIC_FIELD, raw[0], raw[1], raw[2]);
            mag_event.vector.status = 1;
            mag_event.data[4] = raw[0];
            mag_event.data[5] = raw[1];
            mag_event.data[6] = raw[2];
            convert(m, "mag_cal", step, CALMODULE_TYPE_MAGNETIC_FIELD, mag_event, 3);
            convert(m, "orientation(mag)", step, CALMODULE_TYPE_ORIENTATION, mag_event, 3);
            convert(m, "mag_uncal", step, CALMODULE_TYPE_MAGNETIC_FIELD_UNCALIBRATED, mag_event, 6);

            if (step % 3 == 0) {
                const int j = (step / 3) % 6;
                const bool light = (step / 3) % 2 == 0;
                const sensors_event_t e = light ? make_event(CALMODULE_TYPE_LIGHT, kLux[j])
                                                : make_event(CALMODULE_TYPE_PROXIMITY, kCentimetres[j]);
                convert(m, light ? "pocket(light)" : "pocket(proximity)", step, CALMODULE_TYPE_POCKET, e, 1);
            }

            for (const auto &[name, fn] : estimators) {
                float v[3];
                if (!fn) continue;
                fn(acc, &period, v);
                Line("%04d %s", step, name).fs(v, 3);
            }
            Line state("%04d state", step);
            if (cali_flag) state.i(*cali_flag);
            if (cali_ret) state.i(*cali_ret);
        }
    }

    // Broken input: the module must stay defined; what it answers is part of the record.
    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float bad[][3] = {{0.0f, 0.0f, 0.0f}, {1e30f, -1e30f, 1e30f}, {inf, 0.0f, 1.0f}, {nan, 2.0f, 3.0f}};
    for (const auto &b : bad) {
        const sensors_event_t mag_event = make_event(CALMODULE_TYPE_MAGNETIC_FIELD, b[0], b[1], b[2]);
        convert(m, "bad mag_cal", step, CALMODULE_TYPE_MAGNETIC_FIELD, mag_event, 3);
        const sensors_event_t acc_event = make_event(CALMODULE_TYPE_ACCELEROMETER, b[0], b[1], b[2]);
        convert(m, "bad orientation(acc)", step, CALMODULE_TYPE_ORIENTATION, acc_event, 3);
        convert(m, "bad orientation(mag)", step, CALMODULE_TYPE_ORIENTATION, mag_event, 3);
        convert(m, "bad pocket", step, CALMODULE_TYPE_POCKET, make_event(CALMODULE_TYPE_LIGHT, b[0]), 1);
        ++step;
    }
}

void run_direct_calls() {
    // Tilt helpers on unit gravity vectors (exact in float or nearly).
    static const float kUnit[][3] = {{0.6f, 0.0f, 0.8f},  {0.0f, 0.6f, -0.8f}, {0.36f, 0.48f, 0.8f},
                                     {-0.8f, 0.6f, 0.0f}, {0.0f, 0.0f, 1.0f},  {-0.28f, -0.96f, 0.0f}};
    auto each_unit = [](const char *name, auto tilt) {
        for (int i = 0; i < 6; ++i) {
            float out = 0.0f;
            tilt(kUnit[i], &out);
            Line("%s[%d]", name, i).f(out);
        }
    };
    for (const char *name : {"GetPitch", "GetRoll", "GetPitchAngle", "GetRollAngle"}) {
        if (auto *fn = find<decltype(::GetPitch)>(name)) each_unit(name, fn);
    }
    if (auto *fn = FIND(PitchAngle)) each_unit("PitchAngle", [fn](const float *u, float *o) { fn(u[0], u[1], o); });
    if (auto *fn = FIND(RollAngle)) {
        each_unit("RollAngle", [fn](const float *u, float *o) { fn(u[0], u[1], u[2], o); });
    }
    static const float kFields[][3] = {{0.0f, 22.0f, -40.0f}, {15.5f, -3.25f, -42.0f}, {-20.0f, 0.0f, -40.0f}};
    for (const char *name : {"GetOrientationAngles", "softgy_GetOrientationAngles"}) {
        if (auto *fn = find<decltype(::GetOrientationAngles)>(name)) {
            for (int r = 0; r < 12; ++r) {  // the filters inside see a repeated stream
                float mag[3] = {kFields[r % 3][0], kFields[r % 3][1], kFields[r % 3][2]};
                float out[3] = {0.0f, 0.0f, 0.0f};
                fn(mag, kUnit[r % 6], out);
                Line("%s[%d]", name, r).fs(mag, 3).fs(out, 3);
            }
        }
    }
    if (auto *fn = FIND(GetAzimuth)) {
        for (int r = 0; r < 12; ++r) {
            const float acc[3] = {kUnit[r % 6][0] * 9.8f, kUnit[r % 6][1] * 9.8f, kUnit[r % 6][2] * 9.8f};
            float mag[3] = {kFields[r % 3][0], kFields[r % 3][1], kFields[r % 3][2]};
            float out = 0.0f;
            fn(acc, mag, &out);
            Line("GetAzimuth[%d]", r).fs(mag, 3).f(out);
        }
    }

    // Matrix utilities.
    if (auto *inv = FIND(matrix_inv)) {
        float a3[9] = {4, 1, 2, 1, 5, 3, 2, 3, 6};
        Line("matrix_inv(3x3)").i(inv(a3, 3)).fs(a3, 9);
        float a4[16] = {2, -1, 0, 3, 1, 4, -2, 0.5f, 0, 3, 5, -1, 7, 0, 1, 2};
        Line("matrix_inv(4x4)").i(inv(a4, 4)).fs(a4, 16);
        float s2[4] = {0, 0, 0, 3};
        Line("matrix_inv(singular)").i(inv(s2, 2)).fs(s2, 4);
        float p2[4] = {0, 1, 1, 0};
        Line("matrix_inv(exchange)").i(inv(p2, 2)).fs(p2, 4);
        float h3[9] = {1.0f, 0.5f, 0x1.555556p-2f, 0.5f, 0x1.555556p-2f, 0.25f, 0x1.555556p-2f, 0.25f, 0.2f};
        Line("matrix_inv(hilbert)").i(inv(h3, 3)).fs(h3, 9);
    }
    static const float kM[9] = {0.9f, -0.1f, 0.3f, 0.2f, 1.1f, -0.4f, -0.3f, 0.5f, 0.8f};
    static const float kA[3] = {1.5f, -2.25f, 0.1f};
    static const float kB[3] = {-0.3f, 0.7f, 2.0f};
    if (auto *fn = FIND(det)) Line("det").f(fn(kM));
    if (auto *fn = FIND(dot)) Line("dot").f(fn(kA, kB));
    if (auto *fn = FIND(cross)) print<3>("cross", [&](float *out) { fn(kA, kB, out); });
    if (auto *fn = FIND(matrix_norm)) Line("matrix_norm").f(fn(kM, 9));
    if (auto *fn = FIND(matrix_multiply)) print<9>("matrix_multiply", [&](float *out) { fn(kM, kM, 3, 3, 3, out); });
    if (auto *fn = FIND(init_dcm)) {
        static const float kEuler[][3] = {{0, 0, 0}, {4.0f, 0.3f, -0.2f}, {-2.5f, -1.2f, 3.0f}, {1.0f, 0.5f, 0.25f}};
        for (int i = 0; i < 4; ++i) {
            print<4>(("init_dcm[" + std::to_string(i) + "]").c_str(), [&](float *q) { fn(kEuler[i], q); });
        }
    }
    static const float kQ[4] = {0.9f, 0.1f, -0.3f, 0.2f};
    static const float kP[4] = {0.5f, -0.5f, 0.5f, 0.5f};
    if (auto *fn = FIND(Quat2DCM)) print<9>("Quat2DCM", [&](float *out) { fn(kQ, out); });
    if (auto *fn = FIND(mat_prod31)) print<3>("mat_prod31", [&](float *out) { fn(kM, kA, out); });
    if (auto *fn = FIND(QuaternionProduct)) print<4>("QuaternionProduct", [&](float *out) { fn(kQ, kP, out); });
    if (auto *fn = FIND(GradientDescent)) {
        static const float kAcc[3] = {1.2f, -0.8f, 9.6f};
        static const float kMag[3] = {5.0f, 21.0f, -38.0f};
        float q[4] = {1.0f, 0.0f, 0.0f, 0.0f};
        for (int i = 0; i < 16; ++i) {
            float next[4];
            fn(kAcc, kMag, q, 0.02f, next);
            std::memcpy(q, next, sizeof q);
            Line("GradientDescent[%02d]", i).fs(q, 4);
        }
    }

    // AKFS_: offset estimation from points on a sphere about (30, -20, 45), radius 50.
    auto *init_aoc = FIND(AKFS_InitAOC);
    auto *aoc = FIND(AKFS_AOC);
    if (init_aoc && aoc) {
        aoc_context context;
        init_aoc(&context);
        Noise noise;
        noise.state = 0x9E3779B9u;
        Mat3 attitude = {{1, 0, 0, 0, 1, 0, 0, 0, 1}};
        static const float kNorth[3] = {0.0f, 0.6f, -0.8f};
        for (int i = 0; i < 80; ++i) {
            attitude = multiply(attitude, step_rotation(i % 3, +1));
            attitude = multiply(attitude, step_rotation((i / 7) % 3, +1));
            attitude = multiply(attitude, step_rotation((i / 3) % 3, +1));
            float u[3];
            to_device(attitude, kNorth, u);
            const akfs_vec sample = {30.0f + 50.0f * u[0] + noise.next(0.5f), -20.0f + 50.0f * u[1] + noise.next(0.5f),
                                     45.0f + 50.0f * u[2] + noise.next(0.5f)};
            akfs_vec offset = {0.0f, 0.0f, 0.0f};
            const int rc = aoc(&context, &sample, &offset);
            Line("AKFS_AOC[%02d]", i).i(rc).f(offset.x).f(offset.y).f(offset.z).f(context.sphere_radius);
        }
    }
    if (auto *norm = FIND(AKFS_VbNorm)) {
        const akfs_vec data[3] = {{10.0f, -4.0f, 33.0f}, {11.5f, -3.0f, 31.0f}, {9.0f, -5.5f, 34.0f}};
        const akfs_vec offset = {1.0f, 2.0f, 3.0f};
        const akfs_vec scale = {0.9f, 1.1f, 1.3f};
        akfs_vec history[4] = {};
        Line("AKFS_VbNorm").i(norm(3, data, 3, &offset, &scale, 0.6f, 4, history))
            .f(history[0].x).f(history[0].y).f(history[0].z).f(history[2].x).f(history[2].y).f(history[2].z);
    }
    auto *direction = FIND(AKFS_Direction);
    if (direction) {
        static const akfs_vec kH[4] = {{0.0f, 20.0f, -40.0f}, {-20.0f, 0.0f, -40.0f}, {12.0f, 17.0f, -35.0f},
                                       {3.5f, -21.0f, -41.0f}};
        static const akfs_vec kAcc[4] = {{0.0f, 0.0f, 9.8f}, {1.3f, -2.1f, 9.4f}, {-4.0f, 0.5f, 8.9f},
                                         {0.2f, 6.0f, 7.7f}};
        // Each sample alone, then the four averaged (the accelerometer over three).
        for (int i = 0; i <= 4; ++i) {
            float az = 0.0f, pitch = 0.0f, roll = 0.0f;
            const int rc = i < 4 ? direction(1, &kH[i], 1, 1, &kAcc[i], 1, &az, &pitch, &roll)
                                 : direction(4, kH, 4, 4, kAcc, 3, &az, &pitch, &roll);
            Line(i < 4 ? "AKFS_Direction[%d]" : "AKFS_Direction(averaged)", i).i(rc).f(az).f(pitch).f(roll);
        }
    }
    if (auto *fn = FIND(AKFS_RotateMat)) {
        static const int16_t kMount[9] = {0, 1, 0, -1, 0, 0, 0, 0, 1};
        akfs_vec v = {1.25f, -2.5f, 3.75f};
        Line("AKFS_RotateMat").i(fn(kMount, &v)).f(v.x).f(v.y).f(v.z);
    }
}

void run_session(const char *library) {
    g_out.clear();
    testsupport::clear_log_records();
    // The driver reads the saved offset on its first sample: start from none.
    testsupport::remove_param_file();
    static LoadedModule module(library);  // never unloaded, as a HAL keeps it
    g_module = &module;
    if (!module.ok()) {
        std::fprintf(stderr, "identity session: cannot load %s: %s\n", library, dlerror());
        std::exit(2);
    }
    Line("cal_init").i(module.info()->methods->init());
    run_events(module);
    run_direct_calls();
    std::string saved;
    Line("parameter file").word(testsupport::read_param_file(&saved) ? ("'" + saved + "'").c_str() : "absent");
    int n = 0;
    for (const auto &r : testsupport::log_records()) {
        std::string text = r.text;
        while (!text.empty() && text.back() == '\n') text.pop_back();
        Line("log %05d", n++).i(r.priority).word(("'" + text + "'").c_str());
    }
}

bool read_file(const char *path, std::string *text) {
    std::ifstream f(path, std::ios::binary);
    if (!f) return false;
    std::ostringstream s;
    s << f.rdbuf();
    *text = s.str();
    return true;
}

}  // namespace

int main(int argc, char **argv) {
    const char *library = argc > 1 ? argv[1] : nullptr;
    const std::string mode = argc > 2 ? argv[2] : "";
    const char *path = argc > 3 ? argv[3] : nullptr;
    if (!library || ((mode == "--out" || mode == "--compare" || mode == "--report") && !path)) {
        std::fprintf(stderr, "usage: %s LIBRARY [--out FILE | --compare FIXTURE | --report FIXTURE]\n", argv[0]);
        return 2;
    }
    run_session(library);

    if (mode == "--out") {
        std::ofstream f(path, std::ios::binary | std::ios::trunc);
        f << g_out;
        return f ? 0 : 2;
    }
    if (mode == "--compare" || mode == "--report") {
        std::string fixture;
        if (!read_file(path, &fixture)) {
            std::fprintf(stderr, "identity session: cannot read %s\n", path);
            return mode == "--compare" ? 1 : 0;
        }
        const identity::Comparison c = identity::compare(fixture, g_out);
        if (mode == "--report") {
            std::printf("the platform's libm against the fixture: %s", identity::summarize(c, 10).c_str());
            return 0;
        }
        if (c.byte_identical) {
            std::printf("identity session: byte-identical to %s (%d lines)\n", path, c.lines);
            return 0;
        }
        std::printf("identity session differs from %s\n%s", path, identity::summarize(c, 25).c_str());
        std::printf("If the module's behaviour changed on purpose, regenerate the fixture with\n"
                    "  cmake --build --preset release --target regenerate-identity-fixture\n"
                    "and review its diff.\n");
        return 1;
    }
    std::fwrite(g_out.data(), 1, g_out.size(), stdout);
    return 0;
}
