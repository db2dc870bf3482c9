// A fixed, deterministic session through the module as a HAL loads it, printed
// bit-exactly: a synthetic phone lies still, turns, lies face down, sees magnetic
// disturbances and receives broken samples through the four algorithms, and the
// exported estimators, tilt, matrix and AKFS_ functions are called with fixed
// arguments. Inputs are made with float additions and multiplications only (no libm),
// so the transcript is the same file on every target exactly when the module's
// arithmetic is.
//   identity_session LIBRARY [--out FILE]       write the transcript (default: stdout)
//   identity_session LIBRARY --compare FIXTURE  exit 1 unless the transcript is byte-identical
//   identity_session LIBRARY --report FIXTURE   print how far the transcript is from it; exit 0
#include <dlfcn.h>

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

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

using testsupport::make_event;

std::string g_out;
const testsupport::LoadedModule *g_module = nullptr;

// One transcript line: a label (at most 159 characters), " =", then each value as an
// exact hexadecimal float, an integer or a word (at most 63 characters), as the
// fixture was written.
class Line {
public:
    explicit Line(const char *fmt, ...) __attribute__((format(printf, 2, 3))) {
        char label[160];
        va_list ap;
        va_start(ap, fmt);
        std::vsnprintf(label, sizeof label, fmt, ap);
        va_end(ap);
        text_ = std::string(label) + " =";
    }
    ~Line() { g_out += text_ + "\n"; }
    Line &word(const std::string &w) {
        text_ += " " + w.substr(0, 63);
        return *this;
    }
    Line &f(float v) {
        char hex[64];
        std::snprintf(hex, sizeof hex, "f:%a", static_cast<double>(v));
        return word(v != v ? "f:nan" : hex);
    }
    Line &fs(const float *v, int n) {
        for (int k = 0; k < n; ++k) f(v[k]);
        return *this;
    }
    Line &i(long long v) { return word("i:" + std::to_string(v)); }

private:
    std::string text_;
};

// The exported function or object; a library without it cannot give the transcript.
template <class T>
T *need(const char *name) {
    T *p = g_module->symbol<T>(name);
    if (!p) {
        std::fprintf(stderr, "identity session: the library exports no `%s`\n", name);
        std::exit(2);
    }
    return p;
}
// The exported name, typed by its declaration in the public headers.
#define FIND(name) need<decltype(::name)>(#name)

// ---- the synthetic phone ------------------------------------------------------------

// A 32-bit linear congruential generator: small symmetric noise, exactly reproducible.
struct Noise {
    uint32_t state;
    float next(float amplitude) {
        state = state * 1664525u + 1013904223u;
        const int32_t centred = static_cast<int32_t>(state >> 9) - (1 << 22);  // [-2^22, 2^22)
        return static_cast<float>(centred) * 0x1p-22f * amplitude;
    }
};

struct Mat3 {
    float m[9];
};

// `r` turned by +-0.05 rad about one device axis (cos and sin rounded to float).
Mat3 turned(const Mat3 &r, int axis, int direction) {
    const float s = direction > 0 ? 0x1.996deap-5f : -0x1.996deap-5f, c = 0x1.ff5c32p-1f;
    const Mat3 steps[3] = {
        {{1, 0, 0, 0, c, -s, 0, s, c}}, {{c, 0, s, 0, 1, 0, -s, 0, c}}, {{c, -s, 0, s, c, 0, 0, 0, 1}}};
    const float *b = steps[axis].m;
    Mat3 t;
    for (int i = 0; i < 9; ++i) {
        const int row = i / 3 * 3, j = i % 3;
        t.m[i] = r.m[row] * b[j] + r.m[row + 1] * b[3 + j] + r.m[row + 2] * b[6 + j];
    }
    return t;
}

// World vector into the device frame: R maps device to world, so this is R^T w.
void to_device(const Mat3 &r, const float w[3], float out[3]) {
    for (int i = 0; i < 3; ++i) out[i] = r.m[i] * w[0] + r.m[3 + i] * w[1] + r.m[6 + i] * w[2];
}

constexpr Mat3 kFlat = {{1, 0, 0, 0, 1, 0, 0, 0, 1}};
constexpr float kGravity[3] = {0.0f, 0.0f, 9.80665f};  // what an accelerometer lying flat reads
constexpr float kEarthField[3] = {0.0f, 22.0f, -40.0f};  // µT: north along +y, dipping down
constexpr float kHardIron[3] = {14.0f, -9.0f, 23.0f};    // µT, fixed to the device
// The driver scales raw samples by 1.5, 1.5 and 2.6 into µT; the session feeds raw values.
constexpr float kRawPerMicrotesla[3] = {0x1.555556p-1f, 0x1.555556p-1f, 0x1.89d89ep-2f};

// A phase turns the phone by 0.05 rad per sample about up to two device axes at once
// (both axes turning keeps every field component moving, so the calibration finds
// well-spread samples), or holds it still (axes -1).
constexpr struct {
    int steps, axis_a, axis_b, direction;
    const char *what;
} kPhases[] = {
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

// One event through one algorithm into a poisoned output record, printed with the
// first n values of what came out.
void convert(const char *what, int step, int32_t type, const sensors_event_t &in, int n) {
    sensors_event_t out = testsupport::poisoned_event();
    const int rc = g_module->convert(type, in, &out);
    Line("%04d %s", step, what).i(rc).fs(out.data, n).i(out.vector.status);
}

// ---- the session ------------------------------------------------------------------

void run_events() {
    const char *const estimator_names[] = {"get_rv_value", "get_gravity_value", "get_la_value", "get_soft_gyro_value"};
    decltype(::get_rv_value) *estimators[4];
    for (int e = 0; e < 4; ++e) estimators[e] = need<decltype(::get_rv_value)>(estimator_names[e]);
    // The calibration flags the orientation computation raises and clears.
    const int16_t *cali_flag = need<const int16_t>("cali_flag"), *cali_ret = need<const int16_t>("cali_ret");
    static const float kLux[] = {180.0f, 2.0f, 0.0f, 320.0f, 1.5f, 45.0f};
    static const float kCentimetres[] = {5.0f, 0.0f, 0.0f, 5.0f, 0.0f, 5.0f};
    const int32_t period = 20;

    Noise noise{0x2545F491u};
    Mat3 attitude = kFlat;
    int step = 0;
    for (const auto &phase : kPhases) {
        Line("phase %04d", step).word(phase.what);
        if (std::strcmp(phase.what, "face down") == 0) attitude = {{1, 0, 0, 0, -1, 0, 0, 0, -1}};
        for (int k = 0; k < phase.steps; ++k, ++step) {
            if (phase.axis_a >= 0) attitude = turned(attitude, phase.axis_a, phase.direction);
            if (phase.axis_b >= 0) attitude = turned(attitude, phase.axis_b, phase.direction);
            float acc[3], field[3], raw[3];
            to_device(attitude, kGravity, acc);
            to_device(attitude, kEarthField, field);
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
            convert("orientation(acc)", step, CALMODULE_TYPE_ORIENTATION,
                    make_event(CALMODULE_TYPE_ACCELEROMETER, acc[0], acc[1], acc[2]), 3);
            sensors_event_t mag_event = make_event(CALMODULE_TYPE_MAGNETIC_FIELD, raw[0], raw[1], raw[2]);
            mag_event.vector.status = 1;
            std::memcpy(&mag_event.data[4], raw, sizeof raw);
            convert("mag_cal", step, CALMODULE_TYPE_MAGNETIC_FIELD, mag_event, 3);
            convert("orientation(mag)", step, CALMODULE_TYPE_ORIENTATION, mag_event, 3);
            convert("mag_uncal", step, CALMODULE_TYPE_MAGNETIC_FIELD_UNCALIBRATED, mag_event, 6);
            if (step % 3 == 0) {
                const int j = (step / 3) % 6;
                const bool light = j % 2 == 0;
                convert(light ? "pocket(light)" : "pocket(proximity)", step, CALMODULE_TYPE_POCKET,
                        light ? make_event(CALMODULE_TYPE_LIGHT, kLux[j])
                              : make_event(CALMODULE_TYPE_PROXIMITY, kCentimetres[j]), 1);
            }
            for (int e = 0; e < 4; ++e) {
                float v[3];
                estimators[e](acc, &period, v);
                Line("%04d %s", step, estimator_names[e]).fs(v, 3);
            }
            Line("%04d state", step).i(*cali_flag).i(*cali_ret);
        }
    }

    // Broken input: the module must stay defined; what it answers is part of the record.
    const float bad[][3] = {{0.0f, 0.0f, 0.0f}, {1e30f, -1e30f, 1e30f}, {INFINITY, 0.0f, 1.0f}, {NAN, 2.0f, 3.0f}};
    for (const auto &b : bad) {
        const sensors_event_t mag_event = make_event(CALMODULE_TYPE_MAGNETIC_FIELD, b[0], b[1], b[2]);
        convert("bad mag_cal", step, CALMODULE_TYPE_MAGNETIC_FIELD, mag_event, 3);
        convert("bad orientation(acc)", step, CALMODULE_TYPE_ORIENTATION,
                make_event(CALMODULE_TYPE_ACCELEROMETER, b[0], b[1], b[2]), 3);
        convert("bad orientation(mag)", step, CALMODULE_TYPE_ORIENTATION, mag_event, 3);
        convert("bad pocket", step++, CALMODULE_TYPE_POCKET, make_event(CALMODULE_TYPE_LIGHT, b[0]), 1);
    }
}

// A function's N float outputs, printed under its name.
template <int N, class Call>
void print(const char *name, Call call) {
    float out[N];
    call(out);
    Line("%s", name).fs(out, N);
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
        each_unit(name, need<decltype(::GetPitch)>(name));
    }
    each_unit("PitchAngle", [](const float *u, float *o) { FIND(PitchAngle)(u[0], u[1], o); });
    each_unit("RollAngle", [](const float *u, float *o) { FIND(RollAngle)(u[0], u[1], u[2], o); });
    // The filters inside see a repeated stream of fields.
    static const float kFields[][3] = {{0.0f, 22.0f, -40.0f}, {15.5f, -3.25f, -42.0f}, {-20.0f, 0.0f, -40.0f}};
    for (const char *name : {"GetOrientationAngles", "softgy_GetOrientationAngles"}) {
        for (int r = 0; r < 12; ++r) {
            float mag[3], out[3] = {0.0f, 0.0f, 0.0f};
            std::memcpy(mag, kFields[r % 3], sizeof mag);
            need<decltype(::GetOrientationAngles)>(name)(mag, kUnit[r % 6], out);
            Line("%s[%d]", name, r).fs(mag, 3).fs(out, 3);
        }
    }
    for (int r = 0; r < 12; ++r) {
        const float acc[3] = {kUnit[r % 6][0] * 9.8f, kUnit[r % 6][1] * 9.8f, kUnit[r % 6][2] * 9.8f};
        float mag[3], azimuth = 0.0f;
        std::memcpy(mag, kFields[r % 3], sizeof mag);
        FIND(GetAzimuth)(acc, mag, &azimuth);
        Line("GetAzimuth[%d]", r).fs(mag, 3).f(azimuth);
    }

    // Matrix utilities.
    struct {
        const char *name;
        int n;
        float a[16];
    } inverses[] = {
        {"3x3", 3, {4, 1, 2, 1, 5, 3, 2, 3, 6}},
        {"4x4", 4, {2, -1, 0, 3, 1, 4, -2, 0.5f, 0, 3, 5, -1, 7, 0, 1, 2}},
        {"singular", 2, {0, 0, 0, 3}},
        {"exchange", 2, {0, 1, 1, 0}},
        {"hilbert", 3, {1.0f, 0.5f, 0x1.555556p-2f, 0.5f, 0x1.555556p-2f, 0.25f, 0x1.555556p-2f, 0.25f, 0.2f}},
    };
    for (auto &s : inverses) Line("matrix_inv(%s)", s.name).i(FIND(matrix_inv)(s.a, s.n)).fs(s.a, s.n * s.n);
    static const float kM[9] = {0.9f, -0.1f, 0.3f, 0.2f, 1.1f, -0.4f, -0.3f, 0.5f, 0.8f};
    static const float kA[3] = {1.5f, -2.25f, 0.1f}, kB[3] = {-0.3f, 0.7f, 2.0f};
    Line("det").f(FIND(det)(kM));
    Line("dot").f(FIND(dot)(kA, kB));
    print<3>("cross", [](float *out) { FIND(cross)(kA, kB, out); });
    Line("matrix_norm").f(FIND(matrix_norm)(kM, 9));
    print<9>("matrix_multiply", [](float *out) { FIND(matrix_multiply)(kM, kM, 3, 3, 3, out); });
    static const float kEuler[][3] = {{0, 0, 0}, {4.0f, 0.3f, -0.2f}, {-2.5f, -1.2f, 3.0f}, {1.0f, 0.5f, 0.25f}};
    for (int i = 0; i < 4; ++i) {
        float q[4];
        FIND(init_dcm)(kEuler[i], q);
        Line("init_dcm[%d]", i).fs(q, 4);
    }
    static const float kQ[4] = {0.9f, 0.1f, -0.3f, 0.2f}, kP[4] = {0.5f, -0.5f, 0.5f, 0.5f};
    print<9>("Quat2DCM", [](float *out) { FIND(Quat2DCM)(kQ, out); });
    print<3>("mat_prod31", [](float *out) { FIND(mat_prod31)(kM, kA, out); });
    print<4>("QuaternionProduct", [](float *out) { FIND(QuaternionProduct)(kQ, kP, out); });
    static const float kAcc[3] = {1.2f, -0.8f, 9.6f}, kMag[3] = {5.0f, 21.0f, -38.0f};
    float q[4] = {1.0f, 0.0f, 0.0f, 0.0f};
    for (int i = 0; i < 16; ++i) {
        float next[4];
        FIND(GradientDescent)(kAcc, kMag, q, 0.02f, next);
        std::memcpy(q, next, sizeof q);
        Line("GradientDescent[%02d]", i).fs(q, 4);
    }

    // AKFS_: offset estimation from points on a sphere about (30, -20, 45), radius 50.
    aoc_context context;
    FIND(AKFS_InitAOC)(&context);
    Noise noise{0x9E3779B9u};
    Mat3 attitude = kFlat;
    static const float kNorth[3] = {0.0f, 0.6f, -0.8f};
    for (int i = 0; i < 80; ++i) {
        attitude = turned(turned(turned(attitude, i % 3, +1), (i / 7) % 3, +1), (i / 3) % 3, +1);
        float u[3];
        to_device(attitude, kNorth, u);
        const akfs_vec sample = {30.0f + 50.0f * u[0] + noise.next(0.5f), -20.0f + 50.0f * u[1] + noise.next(0.5f),
                                 45.0f + 50.0f * u[2] + noise.next(0.5f)};
        akfs_vec offset = {0.0f, 0.0f, 0.0f};
        const int rc = FIND(AKFS_AOC)(&context, &sample, &offset);
        Line("AKFS_AOC[%02d]", i).i(rc).f(offset.x).f(offset.y).f(offset.z).f(context.sphere_radius);
    }
    const akfs_vec data[3] = {{10.0f, -4.0f, 33.0f}, {11.5f, -3.0f, 31.0f}, {9.0f, -5.5f, 34.0f}};
    const akfs_vec offset = {1.0f, 2.0f, 3.0f}, scale = {0.9f, 1.1f, 1.3f};
    akfs_vec history[4] = {};
    Line("AKFS_VbNorm").i(FIND(AKFS_VbNorm)(3, data, 3, &offset, &scale, 0.6f, 4, history))
        .f(history[0].x).f(history[0].y).f(history[0].z).f(history[2].x).f(history[2].y).f(history[2].z);
    static const akfs_vec kH[4] = {{0.0f, 20.0f, -40.0f}, {-20.0f, 0.0f, -40.0f}, {12.0f, 17.0f, -35.0f},
                                   {3.5f, -21.0f, -41.0f}};
    static const akfs_vec kG[4] = {{0.0f, 0.0f, 9.8f}, {1.3f, -2.1f, 9.4f}, {-4.0f, 0.5f, 8.9f}, {0.2f, 6.0f, 7.7f}};
    // Each sample alone, then the four averaged (the accelerometer over three).
    for (int i = 0; i <= 4; ++i) {
        float angles[3] = {0.0f, 0.0f, 0.0f};  // azimuth, pitch, roll
        const int rc = i < 4 ? FIND(AKFS_Direction)(1, &kH[i], 1, 1, &kG[i], 1, &angles[0], &angles[1], &angles[2])
                             : FIND(AKFS_Direction)(4, kH, 4, 4, kG, 3, &angles[0], &angles[1], &angles[2]);
        Line(i < 4 ? "AKFS_Direction[%d]" : "AKFS_Direction(averaged)", i).i(rc).fs(angles, 3);
    }
    static const int16_t kMount[9] = {0, 1, 0, -1, 0, 0, 0, 0, 1};
    akfs_vec v = {1.25f, -2.5f, 3.75f};
    Line("AKFS_RotateMat").i(FIND(AKFS_RotateMat)(kMount, &v)).f(v.x).f(v.y).f(v.z);
}

}  // namespace

int main(int argc, char **argv) {
    const std::string mode = argc > 2 ? argv[2] : "";
    if (argc < 2 || (!mode.empty() && argc < 4)) {
        std::fprintf(stderr, "usage: %s LIBRARY [--out FILE | --compare FIXTURE | --report FIXTURE]\n", argv[0]);
        return 2;
    }
    testsupport::remove_param_file();  // the driver reads the saved offset on its first sample: start from none
    static testsupport::LoadedModule module(argv[1]);  // never unloaded, as a HAL keeps it
    if (!module.ok()) {
        std::fprintf(stderr, "identity session: cannot load %s: %s\n", argv[1], dlerror());
        return 2;
    }
    g_module = &module;
    Line("cal_init").i(module.info()->methods->init());
    run_events();
    run_direct_calls();
    std::string saved;
    Line("parameter file").word(testsupport::read_param_file(&saved) ? "'" + saved + "'" : "absent");
    int n = 0;
    for (const auto &r : testsupport::log_records()) {
        std::string text = r.text;
        while (!text.empty() && text.back() == '\n') text.pop_back();
        Line("log %05d", n++).i(r.priority).word("'" + text + "'");
    }

    if (mode == "--out") return (std::ofstream(argv[3], std::ios::binary) << g_out) ? 0 : 2;
    if (mode.empty()) return std::fwrite(g_out.data(), 1, g_out.size(), stdout) == g_out.size() ? 0 : 2;
    std::ifstream in(argv[3], std::ios::binary);
    std::ostringstream fixture;
    fixture << in.rdbuf();
    if (mode == "--report") {
        std::printf("the platform's libm against the fixture: %s", identity::compare(fixture.str(), g_out, 10).c_str());
        return 0;
    }
    if (fixture.str() == g_out) {
        std::printf("identity session: byte-identical to %s\n", argv[3]);
        return 0;
    }
    std::printf("identity session differs from %s\n%s", argv[3], identity::compare(fixture.str(), g_out, 25).c_str());
    std::printf("If the module's behaviour changed on purpose, regenerate the fixture with\n"
                "  cmake --build --preset release --target regenerate-identity-fixture\n"
                "and review its diff.\n");
    return 1;
}
