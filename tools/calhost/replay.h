// Replays a sensor session through a loaded module, routing every event as a sensors
// HAL does, and sums up what came out.
#ifndef CALHOST_REPLAY_H
#define CALHOST_REPLAY_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "calmodule/magcal.h"
#include "diagnosis.h"
#include "module_host.h"
#include "session.h"
#include "summary.h"

namespace calhost {

// Android sensor types of the outputs calhost reports. The four algorithms produce
// their own record's type; the exported families are reported under the type of the
// Android sensor they stand in for.
enum OutputType : int {
    kAccelerometer = CALMODULE_TYPE_ACCELEROMETER,
    kMagneticField = CALMODULE_TYPE_MAGNETIC_FIELD,
    kOrientation = CALMODULE_TYPE_ORIENTATION,
    kLight = CALMODULE_TYPE_LIGHT,
    kProximity = CALMODULE_TYPE_PROXIMITY,
    kMagneticFieldUncalibrated = CALMODULE_TYPE_MAGNETIC_FIELD_UNCALIBRATED,
    kPocket = CALMODULE_TYPE_POCKET,
    // Android's types of the sensors the exported families stand in for.
    kGyroscope = 4,  // the soft gyroscope
    kGravity = 9,
    kLinearAcceleration = 10,
    kRotationVector = 11,
};

// The scale the magnetometer chip's driver applies to raw counts, giving µT; the
// module applies the same factors (single precision) before calibrating.
inline constexpr const float (&kMagScale)[3] = calmodule::kChipScale;

struct OutputEvent {
    std::int64_t time_ns = 0;
    int type = 0;  // one of OutputType, or a passed-on input type
    bool has_status = false;
    int status = 0;  // the signed status byte of a vector event
    int count = 0;
    bool passed_on = false;  // an input row the module has no algorithm for, handed on unchanged
    std::array<float, kMaxValueColumns> v{};
};

// Receives every input row and every output event, in order.
class ReplaySink {
public:
    virtual ~ReplaySink() = default;
    virtual void input(const SessionRow &) {}
    virtual void output(const OutputEvent &event) = 0;
    // After each magnetometer event, once the calibration has accepted a fit: the
    // fit's offset in force, µT.
    virtual void fit_offset(std::int64_t /*time_ns*/, const float * /*offset*/) {}
};

class Replayer {
public:
    Replayer(const Module &module, ReplaySink *sink);
    // What a HAL does when the sensors are switched on: init, then enable.
    void begin();
    void feed(const SessionRow &row);
    // Disable, then sum up. The parameter-file fields are the caller's to fill.
    ReplaySummary end(const SessionReader &reader);

private:
    void emit(std::int64_t t, int type, const float *v, int count, const int *status = nullptr,
              bool passed_on = false);
    void magnetometer(const SessionRow &row, const sensors_event_t &in);
    void apps_offset(const float *bias);
    void accelerometer(const SessionRow &row, const sensors_event_t &in);
    void pocket(const sensors_event_t &in);
    void orientation(const sensors_event_t &in);

    const Module &module_;
    ReplaySink *sink_;
    const cal_algo *mag_cal_ = nullptr;
    const cal_algo *mag_uncal_ = nullptr;
    const cal_algo *orientation_ = nullptr;
    const cal_algo *pocket_ = nullptr;
    bool have_first_ = false;
    std::int64_t first_time_ = 0;
    std::int64_t last_time_ = 0;
    bool have_previous_acc_ = false;
    std::int64_t previous_acc_time_ = 0;
    ReplaySummary summary_;
    DiagnosisTracker diagnosis_;
    bool fit_accepted_ = false;  // the level has been 1 or more
    bool have_offset_ = false;
    float offset_[3] = {};       // the fit's offset after the latest magnetometer event
    // The offset apps receive (see apps_offset).
    int rest_run_ = 0;
    float bias_offset_[3] = {};
    std::array<double, 3> bias_sum_{};
    std::uint64_t bias_n_ = 0;
};

}  // namespace calhost

#endif
