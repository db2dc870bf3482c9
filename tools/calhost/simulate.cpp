#include "simulate.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include <fmt/format.h>

#include "calmodule/magcal.h"

namespace calhost {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDeg = kPi / 180.0;
constexpr double kGravity = 9.80665;  // m/s²
using calmodule::kChipScale;  // µT per raw count

struct Vec {
    double x = 0, y = 0, z = 0;
};
Vec operator+(Vec a, Vec b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
Vec operator*(double k, Vec a) { return {k * a.x, k * a.y, k * a.z}; }

// Device-to-world rotation (world: x east, y north, z up; device: Android axes).
struct Mat {
    double m[3][3];
    // The world vector seen in device axes: the transpose applied.
    Vec to_device(Vec w) const {
        return {m[0][0] * w.x + m[1][0] * w.y + m[2][0] * w.z, m[0][1] * w.x + m[1][1] * w.y + m[2][1] * w.z,
                m[0][2] * w.x + m[1][2] * w.y + m[2][2] * w.z};
    }
};

Mat mul(const Mat &a, const Mat &b) {
    Mat r{};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            for (int k = 0; k < 3; ++k) r.m[i][j] += a.m[i][k] * b.m[k][j];
    return r;
}
Mat rot_x(double a) { return {{{1, 0, 0}, {0, std::cos(a), -std::sin(a)}, {0, std::sin(a), std::cos(a)}}}; }
Mat rot_y(double a) { return {{{std::cos(a), 0, std::sin(a)}, {0, 1, 0}, {-std::sin(a), 0, std::cos(a)}}}; }
Mat rot_z(double a) { return {{{std::cos(a), -std::sin(a), 0}, {std::sin(a), std::cos(a), 0}, {0, 0, 1}}}; }

// 0 → 1 without a jerk.
double smoothstep(double u) {
    u = u < 0 ? 0 : (u > 1 ? 1 : u);
    return u * u * (3 - 2 * u);
}
// 0 at both ends of a span of length len, 1 in between, with ramps of `ramp` seconds.
double window(double tau, double len, double ramp) { return smoothstep(tau / ramp) * smoothstep((len - tau) / ramp); }

// Gaussian noise from a generator whose sequence the C++ standard fixes, so a seed
// gives the same session with every compiler (Box-Muller, not std::normal_distribution).
class Noise {
public:
    explicit Noise(std::uint64_t seed) : rng_(seed) {}
    double uniform() { return static_cast<double>(rng_() >> 11) * 0x1.0p-53; }
    double gauss() {
        if (have_spare_) {
            have_spare_ = false;
            return spare_;
        }
        double u1 = uniform();
        while (u1 <= 0.0) u1 = uniform();
        const double u2 = uniform();
        const double r = std::sqrt(-2.0 * std::log(u1));
        spare_ = r * std::sin(2 * kPi * u2);
        have_spare_ = true;
        return r * std::cos(2 * kPi * u2);
    }

private:
    std::mt19937_64 rng_;
    double spare_ = 0.0;
    bool have_spare_ = false;
};

enum class Phase { Still, Wave, TurnX, TurnY, TurnZ, FaceDown, Pocket };
struct Segment {
    double from, to;  // seconds, for a 60 s session
    Phase phase;
    const char *what;
};
constexpr Segment kScript[] = {
    {0, 3, Phase::Still, "lying flat"},
    {3, 15, Phase::Wave, "figure-eight wave, heading turning once"},
    {15, 17, Phase::TurnX, "one turn about the x axis"},
    {17, 19, Phase::TurnY, "one turn about the y axis"},
    {19, 21, Phase::TurnZ, "one turn about the z axis"},
    {21, 24, Phase::Still, "lying flat"},
    {24, 28, Phase::FaceDown, "lying face down"},
    {28, 33, Phase::Still, "lying flat; a magnetic disturbance passes"},
    {33, 44, Phase::Wave, "figure-eight wave, heading turning once"},
    {44, 50, Phase::Pocket, "in a pocket: dark, proximity covered, walking"},
    {50, 56, Phase::Wave, "figure-eight wave, heading turning once"},
    {56, 58, Phase::TurnX, "one turn about the x axis"},
    {58, 60, Phase::TurnY, "one turn about the y axis"},
};
constexpr double kScriptLength = 60.0;
constexpr double kDisturbanceAt = 31.5;  // s, for a 60 s session

struct State {
    Mat attitude;
    Vec linear;  // world-frame linear acceleration, m/s²
    bool covered = false;
    bool in_pocket = false;
};

class Handset {
public:
    Handset(const SimOptions &o, double heading) : stretch_(o.duration_s / kScriptLength), heading_(heading) {}

    State at(double t) const {
        const double base_t = t / stretch_;
        const Segment *seg = &kScript[0];
        for (const Segment &s : kScript) {
            if (base_t >= s.from) seg = &s;
        }
        const double tau = t - seg->from * stretch_;
        const double len = (seg->to - seg->from) * stretch_;
        const double u = len > 0 ? tau / len : 0.0;
        const double ramp = std::min(0.5, len / 4);
        State s;
        double yaw = heading_, pitch = 0, roll = 0;
        switch (seg->phase) {
            case Phase::Still: break;
            case Phase::Wave: {
                // A figure-eight of the wrist: pitch at twice the rate of roll, the
                // heading turning once over the segment.
                const double w = 2 * kPi / 4.0;
                const double env = window(tau, len, ramp);
                pitch = 70 * kDeg * std::sin(2 * w * tau) * env;
                roll = 80 * kDeg * std::sin(w * tau) * env;
                yaw = heading_ + 2 * kPi * smoothstep(u);
                s.linear = 0.8 * env * Vec{std::sin(w * tau), 0.5 * std::sin(2 * w * tau), 0.0};
                break;
            }
            case Phase::TurnX: pitch = 2 * kPi * smoothstep(u); break;
            case Phase::TurnY: roll = 2 * kPi * smoothstep(u); break;
            case Phase::TurnZ: yaw = heading_ + 2 * kPi * smoothstep(u); break;
            case Phase::FaceDown:
                pitch = kPi * window(tau, len, ramp);
                s.covered = tau > ramp && tau < len - ramp;
                break;
            case Phase::Pocket: {
                const double env = window(tau, len, ramp);
                const double step = 2 * kPi * 1.8 * tau;  // walking cadence
                pitch = (90 * kDeg + 8 * kDeg * std::sin(step)) * env;
                roll = 6 * kDeg * std::sin(0.5 * step) * env;
                s.linear = env * Vec{0.0, 0.0, 1.2 * std::sin(step)};
                s.covered = tau > ramp && tau < len - ramp;
                s.in_pocket = s.covered;
                break;
            }
        }
        s.attitude = mul(rot_z(yaw), mul(rot_x(pitch), rot_y(roll)));
        return s;
    }

    // The disturbance, world frame, µT: something magnetic passing by.
    Vec disturbance(double t) const {
        const double centre = kDisturbanceAt * stretch_;
        const double width = 0.5 * stretch_;
        const double k = 40.0 * std::exp(-((t - centre) / width) * ((t - centre) / width));
        return k * Vec{0.6, 0.6, -0.529};
    }

private:
    double stretch_;
    double heading_;
};

std::string num(double v) { return fmt::format("{:.4f}", v); }

}  // namespace

std::string check(const SimOptions &o) {
    auto bad_rate = [](double hz) { return !(hz > 0.0 && hz <= 10000.0); };
    if (!(o.duration_s > 0.0 && o.duration_s <= 86400.0)) return "the duration must lie in (0, 86400] s";
    if (!(o.field_ut > 0.0 && o.field_ut <= 1000.0)) return "the field strength must lie in (0, 1000] µT";
    if (!(o.inclination_deg >= -90.0 && o.inclination_deg <= 90.0)) return "the inclination must lie in [-90, 90] degrees";
    for (double v : o.offset_ut)
        if (!(std::fabs(v) <= 10000.0)) return "each offset component must lie within ±10000 µT";
    if (!(o.mag_noise_ut >= 0.0 && o.mag_noise_ut <= 100.0)) return "the magnetometer noise must lie in [0, 100] µT";
    if (!(o.acc_noise >= 0.0 && o.acc_noise <= 100.0)) return "the accelerometer noise must lie in [0, 100] m/s²";
    if (bad_rate(o.mag_hz) || bad_rate(o.acc_hz) || bad_rate(o.light_hz)) return "rates must lie in (0, 10000] Hz";
    return {};
}

void simulate(const SimOptions &o, OutputFile &out) {
    Noise noise(o.seed);
    const double heading = 360.0 * noise.uniform() * kDeg;
    const Handset handset(o, heading);
    const double incl = o.inclination_deg * kDeg;
    const Vec field{0.0, o.field_ut * std::cos(incl), -o.field_ut * std::sin(incl)};

    std::string text;
    text += "# A handset simulated by calhost: turned through many attitudes, with still spells,\n";
    text += "# a face-down spell, a passing magnetic disturbance and a trip into a pocket.\n";
    text += "# Magnetometer rows are raw counts: the field in device axes plus the hard-iron\n";
    text += "# offset plus noise, in µT, divided by the chip's scale (1.5, 1.5, 2.6).\n";
    // The compass azimuth of the device's top while it lies flat: the heading turns the
    // device counter-clockwise seen from above, the azimuth counts clockwise.
    const double flat_azimuth = std::fmod(360.0 - heading / kDeg, 360.0);
    text += fmt::format("# truth offset_ut={},{},{} field_ut={} inclination_deg={} flat_azimuth_deg={:.2f}\n",
                        o.offset_ut[0], o.offset_ut[1], o.offset_ut[2], o.field_ut, o.inclination_deg, flat_azimuth);
    text += fmt::format("# truth seed={} duration_s={} mag_noise_ut={} acc_noise={} mag_hz={} acc_hz={} light_hz={}\n",
                        o.seed, o.duration_s, o.mag_noise_ut, o.acc_noise, o.mag_hz, o.acc_hz, o.light_hz);
    const double stretch = o.duration_s / kScriptLength;
    for (const Segment &s : kScript) {
        text += fmt::format("# script {:7.2f} - {:7.2f} s: {}\n", s.from * stretch, s.to * stretch, s.what);
    }
    text += fmt::format("# script disturbance of 40 µT peaking at {:.2f} s\n", kDisturbanceAt * stretch);
    text += "time_ns,type,v0,v1,v2\n";
    out.write(text);
    text.clear();

    // The four streams, each on its own clock; merged in time order. The magnetometer
    // and light clocks are shifted a little so that no two rows share a timestamp.
    const auto end_ns = static_cast<std::int64_t>(std::llround(o.duration_s * 1e9));
    struct Stream {
        double hz;
        std::int64_t shift_ns;
        std::int64_t k = 0;
        std::int64_t next(void) const { return shift_ns + static_cast<std::int64_t>(std::llround(k * 1e9 / hz)); }
    };
    Stream acc{o.acc_hz, 0};
    Stream mag{o.mag_hz, 370000};
    Stream light{o.light_hz, 1130000};
    bool prox_near = false;
    bool prox_reported = false;

    for (;;) {
        const std::int64_t ta = acc.next(), tm = mag.next(), tl = light.next();
        const std::int64_t t = std::min(ta, std::min(tm, tl));
        if (t >= end_ns) break;
        const double ts = static_cast<double>(t) * 1e-9;
        const State s = handset.at(ts);
        if (t == ta) {
            const Vec a = s.attitude.to_device(Vec{0, 0, kGravity} + s.linear);
            text += fmt::format("{},1,{},{},{}\n", t, num(a.x + o.acc_noise * noise.gauss()),
                                num(a.y + o.acc_noise * noise.gauss()), num(a.z + o.acc_noise * noise.gauss()));
            ++acc.k;
        } else if (t == tm) {
            const Vec b = s.attitude.to_device(field + handset.disturbance(ts));
            const double ut[3] = {b.x + o.offset_ut[0] + o.mag_noise_ut * noise.gauss(),
                                  b.y + o.offset_ut[1] + o.mag_noise_ut * noise.gauss(),
                                  b.z + o.offset_ut[2] + o.mag_noise_ut * noise.gauss()};
            text += fmt::format("{},2,{},{},{}\n", t, num(ut[0] / kChipScale[0]), num(ut[1] / kChipScale[1]),
                                num(ut[2] / kChipScale[2]));
            ++mag.k;
        } else {
            // Light, lux: daylight indoors, dim face down, dark in a pocket.
            const double lux = s.in_pocket ? 0.5 : (s.covered ? 3.0 : 320.0 * (1.0 + 0.03 * noise.gauss()));
            text += fmt::format("{},5,{},0,0\n", t, num(lux));
            // Proximity, cm, reported on change as the sensor does: 0 near, 5 far.
            if (!prox_reported || s.covered != prox_near) {
                prox_near = s.covered;
                prox_reported = true;
                text += fmt::format("{},8,{},0,0\n", t, prox_near ? "0.0000" : "5.0000");
            }
            ++light.k;
        }
        if (text.size() > 60000) {
            out.write(text);
            text.clear();
        }
    }
    out.write(text);
}

}  // namespace calhost
