#include "replay.h"

#include <cmath>
#include <cstring>
#include <limits>

#include <fmt/format.h>

namespace calhost {

std::string type_name(int type) {
    switch (type) {
        case kAccelerometer: return "accelerometer";
        case kMagneticField: return "magnetic_field";
        case kOrientation: return "orientation";
        case kGyroscope: return "soft_gyroscope";
        case kLight: return "light";
        case kProximity: return "proximity";
        case kGravity: return "gravity";
        case kLinearAcceleration: return "linear_acceleration";
        case kRotationVector: return "rotation_vector";
        case kMagneticFieldUncalibrated: return "magnetic_field_uncalibrated";
        case kPocket: return "pocket";
        default: return fmt::format("type_{}", type);
    }
}

namespace {

sensors_event_t event_from_row(const SessionRow &row) {
    sensors_event_t e;
    std::memset(&e, 0, sizeof e);
    e.version = static_cast<std::int32_t>(sizeof e);
    e.sensor = row.type;  // calhost's handles: one per sensor type
    e.type = row.type;
    e.timestamp = row.time_ns;
    for (int i = 0; i < row.count && i < kMaxValueColumns; ++i) e.data[i] = row.v[static_cast<std::size_t>(i)];
    return e;
}

// The output record a HAL hands a convert method: cleared, with only the header filled,
// so that an output the method leaves unwritten (the orientation before any
// accelerometer event) is delivered as zeros, never as another event's leftovers.
sensors_event_t cleared_output(const sensors_event_t &in, int type) {
    sensors_event_t e;
    std::memset(&e, 0, sizeof e);
    e.version = in.version;
    e.sensor = in.sensor;
    e.type = type;
    e.timestamp = in.timestamp;
    return e;
}

// The period the rotation-vector and soft-gyroscope functions take, in whole ms, from
// the spacing of two accelerometer timestamps, rounded to the nearest ms. Session
// times never go backwards (the reader refuses that); a gap beyond the int32 range
// is clamped, the functions refuse anything above 1000 ms anyway.
std::int32_t period_ms(std::int64_t previous, std::int64_t now) {
    const std::uint64_t d = static_cast<std::uint64_t>(now) - static_cast<std::uint64_t>(previous);
    const std::uint64_t ms = d / 1000000u + (d % 1000000u >= 500000u ? 1u : 0u);
    const auto max = static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max());
    return static_cast<std::int32_t>(ms > max ? max : ms);
}

}  // namespace

Replayer::Replayer(const Module &module, ReplaySink *sink) : module_(module), sink_(sink) {
    // A HAL binds each algorithm by the sensor type of its record.
    mag_cal_ = module.algo_for(kMagneticField);
    orientation_ = module.algo_for(kOrientation);
    mag_uncal_ = module.algo_for(kMagneticFieldUncalibrated);
    pocket_ = module.algo_for(kPocket);
    summary_.module_path = module.path();
    summary_.module_id = module.info().id ? module.info().id : "";
    summary_.module_vendor = module.info().vendor ? module.info().vendor : "";
    summary_.module_version = module.info().version;
    if (!module.gravity_fn()) summary_.absent.emplace_back("get_gravity_value (gravity, linear acceleration)");
    if (!module.rotation_vector()) summary_.absent.emplace_back("m_rvector (rotation vector)");
    if (!module.soft_gyro_fn()) summary_.absent.emplace_back("get_soft_gyro_value (soft gyroscope)");
    if (!module.has_offset_accessor()) summary_.absent.emplace_back("get_magnetic_offset (offset)");
}

void Replayer::begin() {
    // The sensors are switched on: each algorithm with a config method hears of it.
    for (unsigned i = 0; i < module_.algo_count(); ++i) {
        module_.config(&module_.algos()[i], CALMODULE_CMD_ENABLE, 1, 0);
    }
}

void Replayer::emit(std::int64_t t, int type, const float *v, int count, const int *status) {
    ++summary_.out[type];
    if (!sink_) return;
    OutputEvent e;
    e.time_ns = t;
    e.type = type;
    e.has_status = status != nullptr;
    e.status = status ? *status : 0;
    e.count = count;
    for (int i = 0; i < count; ++i) e.v[static_cast<std::size_t>(i)] = v[i];
    sink_->output(e);
}

void Replayer::feed(const SessionRow &row) {
    if (!have_first_) {
        have_first_ = true;
        first_time_ = row.time_ns;
    }
    last_time_ = row.time_ns;
    ++summary_.events;
    ++summary_.in[row.type];
    if (sink_) sink_->input(row);

    const sensors_event_t in = event_from_row(row);
    switch (row.type) {
        case kMagneticField: magnetometer(row, in); break;
        case kAccelerometer: accelerometer(row, in); break;
        case kLight:
        case kProximity: pocket(in); break;
        default:
            // Sensors the module has no algorithm for go to the framework unchanged.
            emit(row.time_ns, row.type, in.data, row.count);
            break;
    }
}

void Replayer::magnetometer(const SessionRow &row, const sensors_event_t &in) {
    const std::int64_t t = row.time_ns;
    // The magnetic-field event the framework sees: the calibrated one when the module
    // calibrates, else the chip's own.
    sensors_event_t field = in;
    bool calibrated = false;
    if (mag_cal_) {
        sensors_event_t out = cleared_output(in, kMagneticField);
        if (module_.convert(mag_cal_, in, &out) == 0) {
            field = out;
            calibrated = true;
            const int status = out.vector.status;
            emit(t, kMagneticField, out.data, 3, &status);
            if (status >= 0 && status <= 3) {
                auto &first = summary_.level_first_s[static_cast<std::size_t>(status)];
                if (!first) first = seconds_between(first_time_, t);
            }
            summary_.final_level = status;
        }
    }
    if (mag_uncal_ && calibrated) {
        // The uncalibrated algorithm wants the calibrated field in data[0..2] and the
        // uncalibrated one in data[4..6], and reports bias = uncalibrated − calibrated.
        // The uncalibrated field a HAL holds is the chip's reading in µT before any
        // hard-iron correction: the raw counts times the chip's scale, in single
        // precision exactly as the module scales them. The bias is then the hard-iron
        // offset (plus what the calibrated output's smoothing lags behind).
        sensors_event_t u = field;
        for (int i = 0; i < 3; ++i) u.data[4 + i] = in.data[i] * kMagScale[i];
        sensors_event_t out = cleared_output(u, kMagneticFieldUncalibrated);
        if (module_.convert(mag_uncal_, u, &out) == 0) emit(t, kMagneticFieldUncalibrated, out.data, 6);
    }
    // The orientation algorithm takes the magnetic-field event the framework gets,
    // with the accuracy level in its status byte.
    orientation(field);
}

void Replayer::accelerometer(const SessionRow &row, const sensors_event_t &in) {
    const std::int64_t t = row.time_ns;
    // Updates the algorithm's cached acceleration; it delivers only on magnetic events.
    orientation(in);
    // The first sample only sets the time base: with no earlier sample there is no
    // period to give the estimators.
    const bool have_period = have_previous_acc_;
    const std::int32_t period = have_period ? period_ms(previous_acc_time_, t) : 0;
    have_previous_acc_ = true;
    previous_acc_time_ = t;
    if (!have_period) return;

    const float acc[3] = {in.data[0], in.data[1], in.data[2]};
    if (module_.gravity_fn()) {
        // Each call of get_rv_value, get_gravity_value or get_la_value runs one step of
        // the attitude estimator and pushes the sample into its smoothing filters. So
        // per sample only get_gravity_value is called: the rotation vector of the same
        // step is then read from the exported m_rvector, and the linear acceleration is
        // formed here as acc − gravity, the single-precision subtraction get_la_value
        // itself performs.
        float g[3];
        module_.gravity(acc, period, g);
        if (const float *rv = module_.rotation_vector()) emit(t, kRotationVector, rv, 3);
        emit(t, kGravity, g, 3);
        const float la[3] = {acc[0] - g[0], acc[1] - g[1], acc[2] - g[2]};
        emit(t, kLinearAcceleration, la, 3);
    }
    if (module_.soft_gyro_fn()) {
        float w[3];
        module_.soft_gyro(acc, period, w);
        emit(t, kGyroscope, w, 3);
    }
}

void Replayer::orientation(const sensors_event_t &in) {
    if (!orientation_) return;
    sensors_event_t out = cleared_output(in, kOrientation);
    if (module_.convert(orientation_, in, &out) == 0) {
        const int status = out.vector.status;
        emit(in.timestamp, kOrientation, out.data, 3, &status);
    }
}

void Replayer::pocket(const sensors_event_t &in) {
    if (!pocket_) return;
    sensors_event_t out = cleared_output(in, kPocket);
    if (module_.convert(pocket_, in, &out) == 0) emit(in.timestamp, kPocket, out.data, 1);
}

ReplaySummary Replayer::end(const SessionReader &reader) {
    for (unsigned i = 0; i < module_.algo_count(); ++i) {
        module_.config(&module_.algos()[i], CALMODULE_CMD_ENABLE, 0, 0);
    }
    ReplaySummary s = summary_;
    s.session = reader.path();
    s.duration_s = have_first_ ? seconds_between(first_time_, last_time_) : 0.0;
    float offset[3];
    if (module_.magnetic_offset(offset)) s.offset_ut = std::array<float, 3>{offset[0], offset[1], offset[2]};
    if (const MsensorView *m = module_.msensor()) {
        const int n = m->fitCount;
        if (n > 0 && n <= 60) {
            double sum = 0.0;
            for (int i = 0; i < n; ++i) sum += static_cast<double>(m->radius[i]);
            s.radius_ut = sum / n;
            s.fits = n;
        }
    }
    if (const auto truth = reader.truth().offset_ut()) {
        s.set_reference(*truth);
        s.truth_is_reference = false;
    }
    return s;
}

void ReplaySummary::set_reference(const std::array<double, 3> &offset) {
    truth_offset_ut = offset;
    truth_is_reference = true;
    offset_error_ut.reset();
    if (offset_ut) {
        double sq = 0.0;
        for (std::size_t i = 0; i < 3; ++i) {
            const double d = static_cast<double>((*offset_ut)[i]) - offset[i];
            sq += d * d;
        }
        offset_error_ut = std::sqrt(sq);
    }
}

nlohmann::json ReplaySummary::to_json() const {
    using nlohmann::json;
    json j;
    j["session"] = session;
    j["module"] = {{"path", module_path}, {"id", module_id}, {"vendor", module_vendor}, {"version", module_version}};
    j["events"] = events;
    j["duration_s"] = duration_s;
    json jin = json::object();
    for (const auto &[type, n] : in) jin[std::to_string(type)] = n;
    j["in"] = jin;
    json jout = json::object();
    for (const auto &[type, n] : out) jout[type_name(type)] = n;
    j["out"] = jout;
    json levels = json::object();
    for (std::size_t i = 0; i < level_first_s.size(); ++i) {
        levels[std::to_string(i)] = level_first_s[i] ? json(*level_first_s[i]) : json(nullptr);
    }
    j["level_first_s"] = levels;
    j["final_level"] = final_level;
    j["offset_ut"] = offset_ut ? json(*offset_ut) : json(nullptr);
    j["radius_ut"] = radius_ut ? json(*radius_ut) : json(nullptr);
    j["fits"] = fits;
    j["truth_offset_ut"] = truth_offset_ut ? json(*truth_offset_ut) : json(nullptr);
    j["truth_is_reference"] = truth_is_reference;
    j["offset_error_ut"] = offset_error_ut ? json(*offset_error_ut) : json(nullptr);
    j["param_file"] = {{"writes", param_writes}, {"content", param_content}};
    j["absent"] = absent;
    return j;
}

std::string ReplaySummary::to_text() const {
    std::string s;
    s += fmt::format("session   {}  ({:.2f} s, {} events)\n", session, duration_s, events);
    s += fmt::format("module    {} version {} by {}  ({})\n", module_id, module_version, module_vendor, module_path);
    s += fmt::format("events    {:<34} {:>9} {:>9}\n", "sensor type", "in", "out");
    std::map<int, bool> types;
    for (const auto &kv : in) types[kv.first] = true;
    for (const auto &kv : out) types[kv.first] = true;
    for (const auto &kv : types) {
        const auto i = in.find(kv.first);
        const auto o = out.find(kv.first);
        s += fmt::format("          {:<34} {:>9} {:>9}\n", fmt::format("{:>5} {}", kv.first, type_name(kv.first)),
                         i == in.end() ? std::string("-") : std::to_string(i->second),
                         o == out.end() ? std::string("-") : std::to_string(o->second));
    }
    if (final_level < 0) {
        s += "accuracy  no calibrated magnetometer output\n";
    } else {
        std::string levels;
        for (std::size_t i = 0; i < level_first_s.size(); ++i) {
            if (!levels.empty()) levels += ", ";
            levels += level_first_s[i] ? fmt::format("{} at {:.2f} s", i, *level_first_s[i])
                                       : fmt::format("{} never", i);
        }
        s += fmt::format("accuracy  level {}; final level {}\n", levels, final_level);
    }
    if (offset_ut) {
        s += fmt::format("offset    {:.2f} {:.2f} {:.2f} µT", (*offset_ut)[0], (*offset_ut)[1], (*offset_ut)[2]);
        if (radius_ut) s += fmt::format("   field radius {:.2f} µT (mean of {} held fits)", *radius_ut, fits);
        s += "\n";
    }
    if (truth_offset_ut) {
        s += fmt::format("{}{:.2f} {:.2f} {:.2f} µT", truth_is_reference ? "reference " : "truth     ",
                         (*truth_offset_ut)[0], (*truth_offset_ut)[1], (*truth_offset_ut)[2]);
        if (offset_error_ut) s += fmt::format("   offset error {:.2f} µT", *offset_error_ut);
        s += "\n";
    }
    if (param_writes > 0) {
        s += fmt::format("stored    the module wrote its parameter file {} times; it holds \"{}\"\n", param_writes,
                         param_content);
    } else {
        s += "stored    the module never wrote its parameter file\n";
    }
    for (const auto &a : absent) s += fmt::format("absent    {}: not exported by this module build\n", a);
    return s;
}

}  // namespace calhost
