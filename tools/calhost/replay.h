// Replays a sensor session through a loaded module, routing every event as a sensors
// HAL does, and sums up what came out.
#ifndef CALHOST_REPLAY_H
#define CALHOST_REPLAY_H

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "calmodule/magcal.h"
#include "module_host.h"
#include "session.h"

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

// "magnetic_field", "orientation", ...; "type_N" for types calhost has no name for.
std::string type_name(int type);

// The scale the magnetometer chip's driver applies to raw counts, giving µT; the
// module applies the same factors (single precision) before calibrating.
inline constexpr const float (&kMagScale)[3] = calmodule::kChipScale;

struct OutputEvent {
    std::int64_t time_ns = 0;
    int type = 0;  // one of OutputType, or a passed-on input type
    bool has_status = false;
    int status = 0;  // the signed status byte of a vector event
    int count = 0;
    std::array<float, kMaxValueColumns> v{};
};

// Receives every input row and every output event, in order.
class ReplaySink {
public:
    virtual ~ReplaySink() = default;
    virtual void input(const SessionRow &) {}
    virtual void output(const OutputEvent &event) = 0;
};

struct ReplaySummary {
    std::string session;
    std::string module_path;
    std::string module_id;
    std::string module_vendor;
    unsigned module_version = 0;
    std::uint64_t events = 0;
    double duration_s = 0.0;
    std::map<int, std::uint64_t> in;   // rows per input sensor type
    std::map<int, std::uint64_t> out;  // outputs per output type
    std::array<std::optional<double>, 4> level_first_s;  // seconds from the first row
    int final_level = -1;                                // -1: no magnetometer output
    std::optional<std::array<float, 3>> offset_ut;       // get_magnetic_offset
    std::optional<double> radius_ut;                     // mean radius of the held fits
    int fits = 0;
    std::optional<std::array<double, 3>> truth_offset_ut;  // the session's truth, or a reference
    bool truth_is_reference = false;  // given on the command line (e.g. the phone's own estimate)
    std::optional<double> offset_error_ut;
    std::uint64_t param_writes = 0;
    std::string param_content;
    std::vector<std::string> absent;  // exported families this build lacks

    // Compares the final offset with this one instead of the session's truth.
    void set_reference(const std::array<double, 3> &offset_ut);
    nlohmann::json to_json() const;
    std::string to_text() const;
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
    void emit(std::int64_t t, int type, const float *v, int count, const int *status = nullptr);
    void magnetometer(const SessionRow &row, const sensors_event_t &in);
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
};

}  // namespace calhost

#endif
