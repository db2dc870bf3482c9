#include "replay.h"

#include <cmath>
#include <cstring>
#include <limits>

#include <fmt/format.h>

#include "sha256.h"

namespace calhost {

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

Replayer::Replayer(const Module &module, ReplaySink *sink)
    : module_(module), sink_(sink), diagnosis_(module.calibration_state()) {
    // A HAL binds each algorithm by the sensor type of its record.
    mag_cal_ = module.algo_for(kMagneticField);
    orientation_ = module.algo_for(kOrientation);
    mag_uncal_ = module.algo_for(kMagneticFieldUncalibrated);
    pocket_ = module.algo_for(kPocket);
    summary_.module_path = module.path();
    summary_.module_id = module.info().id ? module.info().id : "";
    summary_.module_vendor = module.info().vendor ? module.info().vendor : "";
    summary_.module_version = module.info().version;
    summary_.module_sha256 = sha256_file(module.path());
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

void Replayer::emit(std::int64_t t, int type, const float *v, int count, const int *status, bool passed_on) {
    ++(passed_on ? summary_.passed_on : summary_.out)[type];
    if (!sink_) return;
    OutputEvent e;
    e.time_ns = t;
    e.type = type;
    e.has_status = status != nullptr;
    e.status = status ? *status : 0;
    e.count = count;
    e.passed_on = passed_on;
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
            emit(row.time_ns, row.type, in.data, row.count, nullptr, true);
            break;
    }
}

void Replayer::magnetometer(const SessionRow &row, const sensors_event_t &in) {
    const std::int64_t t = row.time_ns;
    const double t_s = seconds_between(first_time_, t);
    // The sample as the module scales it, in single precision.
    const float scaled[3] = {in.data[0] * kMagScale[0], in.data[1] * kMagScale[1], in.data[2] * kMagScale[2]};
    // The magnetic-field event the framework sees: the calibrated one when the module
    // calibrates, else the chip's own.
    sensors_event_t field = in;
    bool calibrated = false;
    int level = -1;
    if (mag_cal_) {
        sensors_event_t out = cleared_output(in, kMagneticField);
        diagnosis_.before_magnetometer();
        if (module_.convert(mag_cal_, in, &out) == 0) {
            field = out;
            calibrated = true;
            level = out.vector.status;
            emit(t, kMagneticField, out.data, 3, &level);
            if (level >= 0 && level <= 3) {
                auto &first = summary_.level_first_s[static_cast<std::size_t>(level)];
                if (!first) first = t_s;
                if (level >= 1) fit_accepted_ = true;
            }
            summary_.final_level = level;
        }
        diagnosis_.after_magnetometer(t_s, level, scaled);
    }
    have_offset_ = fit_accepted_ && module_.magnetic_offset(offset_);
    if (mag_uncal_ && calibrated) {
        // The uncalibrated algorithm wants the calibrated field in data[0..2] and the
        // uncalibrated one in data[4..6], and reports bias = uncalibrated − calibrated.
        // The uncalibrated field a HAL holds is the chip's reading in µT before any
        // hard-iron correction: the raw counts times the chip's scale, in single
        // precision exactly as the module scales them. The bias is then the hard-iron
        // offset plus the disturbance correction (plus what the calibrated output's
        // smoothing lags behind while the phone moves).
        sensors_event_t u = field;
        for (int i = 0; i < 3; ++i) u.data[4 + i] = scaled[i];
        sensors_event_t out = cleared_output(u, kMagneticFieldUncalibrated);
        if (module_.convert(mag_uncal_, u, &out) == 0) {
            emit(t, kMagneticFieldUncalibrated, out.data, 6);
            if (fit_accepted_) apps_offset(out.data + 3);
        }
    }
    if (sink_ && fit_accepted_ && have_offset_) sink_->fit_offset(t, offset_);
    // The orientation algorithm takes the magnetic-field event the framework gets,
    // with the accuracy level in its status byte.
    orientation(field);
}

void Replayer::apps_offset(const float *bias) {
    // What apps take for the offset is the bias of the uncalibrated event. While the
    // phone moves it also carries the lag of the calibrated output's smoothing, so the
    // bias counts once the phone has lain still (as the orientation computation sees
    // it) for kSettledSamples samples; without such a spell, the mean bias since the
    // fit's offset last changed, over which the lag averages out.
    constexpr int kSettledSamples = 30;
    const CalibrationState &st = module_.calibration_state();
    rest_run_ = (st.run_o && *st.run_o == 0) ? rest_run_ + 1 : 0;
    if (rest_run_ >= kSettledSamples) {
        summary_.apps_offset_ut = std::array<float, 3>{bias[0], bias[1], bias[2]};
        summary_.apps_offset_at_rest = true;
        return;
    }
    if (summary_.apps_offset_at_rest) return;
    if (!have_offset_ || std::memcmp(offset_, bias_offset_, sizeof offset_) != 0) {
        std::memcpy(bias_offset_, offset_, sizeof offset_);
        bias_sum_ = {};
        bias_n_ = 0;
    }
    for (std::size_t i = 0; i < 3; ++i) bias_sum_[i] += static_cast<double>(bias[i]);
    ++bias_n_;
    summary_.apps_offset_ut = std::array<float, 3>{static_cast<float>(bias_sum_[0] / bias_n_),
                                                   static_cast<float>(bias_sum_[1] / bias_n_),
                                                   static_cast<float>(bias_sum_[2] / bias_n_)};
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
    // No fit, no offset: the offset in force before the first fit is only what the
    // parameter file held (or zero), not something this session showed.
    float offset[3];
    if (fit_accepted_ && module_.magnetic_offset(offset)) {
        s.offset_ut = std::array<float, 3>{offset[0], offset[1], offset[2]};
    }
    const auto mag_rows = s.in.count(kMagneticField) ? s.in.at(kMagneticField) : 0;
    s.diagnosis = diagnosis_.finish(s.offset_ut, mag_rows, s.final_level >= 0);
    if (s.offset_ut) {
        s.radius_ut = s.diagnosis.held_radius_ut;
        s.fits = s.diagnosis.fits_held;
    }
    s.truth_offset_ut = reader.truth().offset_ut();
    s.truth_field_ut = reader.truth().field_ut();
    if (const auto ref = reader.reference().offset_ut()) s.set_reference(*ref, "session");
    return s;
}

}  // namespace calhost
