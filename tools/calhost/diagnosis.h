// Why a phone does or does not calibrate: after every magnetometer event calhost reads
// the calibration's exported state and notes level changes, restarts and their causes,
// time with sample collection stopped, samples offered and admitted, the fits held and
// the directions the samples cover. Everything is read from the module; nothing of the
// calibration is computed again here. Memory stays bounded whatever the session's length.
#ifndef CALHOST_DIAGNOSIS_H
#define CALHOST_DIAGNOSIS_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "module_host.h"

namespace calhost {

// A time series thinned to a bounded number of points, whatever the session's length:
// every point is taken until the list holds 2 × cap, then every other one is dropped
// and from then on only every second (fourth, ...) point is taken.
template <std::size_t K>
class Thinned {
public:
    explicit Thinned(std::size_t cap) : cap_(cap) {}
    void push(const std::array<double, K> &p) {
        if (seen_++ % stride_ != 0) return;
        points_.push_back(p);
        if (points_.size() >= 2 * cap_) {
            std::size_t j = 0;
            for (std::size_t i = 0; i < points_.size(); i += 2) points_[j++] = points_[i];
            points_.resize(j);
            stride_ *= 2;
        }
    }
    const std::vector<std::array<double, K>> &points() const { return points_; }

private:
    std::size_t cap_;
    std::uint64_t seen_ = 0;
    std::uint64_t stride_ = 1;
    std::vector<std::array<double, K>> points_;
};

// What emptied the calibration, as the module's own counters show it.
enum class RestartCause {
    kDisturbance,    // cali_ret: the field jumped while the phone lay still
    kImplausible,    // noiseCount reached 33: readings beyond the plausible field or off the sphere
    kGross,          // l_noiseCount reached 3: gross readings
    kFitsDiscarded,  // fitCount fell to 0 at a fit: its radius was far from the held ones
    kUnknown,        // the level fell to 0 and the module exports no state to say why
};
inline constexpr int kRestartCauses = 5;
const char *cause_key(RestartCause c);          // "disturbance", ... (JSON)
const char *cause_description(RestartCause c);  // "a magnetic disturbance while the phone lay still", ...

struct LevelChange {
    double t_s = 0.0;
    int from = -1;  // -1: before the first output
    int to = 0;
    std::optional<RestartCause> cause;  // the restart that made it, if one did
};

struct Restart {
    double t_s = 0.0;
    RestartCause cause = RestartCause::kUnknown;
};

// Lists kept to this many entries; the rest are only counted.
inline constexpr std::size_t kListedEvents = 50;

struct Diagnosis {
    std::vector<std::string> unavailable;  // exported names this build lacks
    std::vector<LevelChange> level_changes;
    std::uint64_t level_changes_unlisted = 0;
    std::vector<Restart> restarts;
    std::uint64_t restarts_unlisted = 0;
    std::array<std::uint64_t, kRestartCauses> restarts_by_cause{};
    std::optional<double> level3_since_s;  // the last change to level 3, when it lasted to the end
    double magnetometer_s = 0.0;           // time covered by magnetometer samples
    double collection_stopped_s = 0.0;     // cali_flag 0 (face down)
    double restart_requested_s = 0.0;      // cali_ret 1 (disturbance while still)
    std::uint64_t offered = 0;             // nonzero samples handed to the calibration
    std::uint64_t admitted = 0;            // of these, buffered for a fit
    // Why offered samples were not admitted, where the module's state tells.
    std::uint64_t not_admitted_stopped = 0, not_admitted_restart = 0, not_admitted_implausible = 0,
                  not_admitted_gross = 0, not_admitted_off_shell = 0;
    std::uint64_t fits_attempted = 0, fits_kept = 0, fits_discarded = 0;
    int fits_held = 0;                     // at the end
    std::optional<double> held_radius_ut;  // mean radius of the last fits held
    // Directions seen from the centre: cells of a sphere the raw samples fall into.
    std::optional<double> coverage;        // 0..1
    int coverage_cells = 0;
    std::string coverage_centre;           // "final offset" or "middle of the samples"
    std::optional<double> sample_radius_ut;  // mean distance of the samples from that centre
    std::string summary;                   // one plain sentence

    bool has_state() const { return unavailable.empty(); }
};

class DiagnosisTracker {
public:
    explicit DiagnosisTracker(const CalibrationState &state);
    // Around each magnetometer sample's trip through the calibration. `level` is the
    // status of the calibrated output (-1 when there was none); `scaled` the sample, µT.
    void before_magnetometer();
    void after_magnetometer(double t_s, int level, const float scaled[3]);
    // The whole diagnosis; `offset` is the final one when a fit was ever accepted.
    Diagnosis finish(const std::optional<std::array<float, 3>> &offset, std::uint64_t magnetometer_rows,
                     bool calibrates);

private:
    struct Snapshot {
        std::int32_t fit_count = 0, dots_count = 0, dots_full = 0;
        std::int16_t cali_flag = 1, cali_ret = 0, noise_flag = 0, l_noise = 0;
        std::int32_t noise_count = 0;
    };
    Snapshot read() const;
    void restart(double t_s, RestartCause cause);

    CalibrationState state_;
    bool complete_ = false;  // every name the diagnosis reads is exported
    Snapshot before_;
    Diagnosis d_;
    int level_ = -1;
    bool have_time_ = false;
    double last_t_ = 0.0;
    bool requested_ = false;  // cali_ret seen at the previous sample
    std::optional<RestartCause> pending_cause_;
    Thinned<3> cloud_{2048};
    std::array<double, 3> lo_{}, hi_{};
    bool have_box_ = false;
};

}  // namespace calhost

#endif
