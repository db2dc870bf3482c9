// What a replay came to: one model, printed as text, written as JSON and embedded in the
// HTML report (whose page draws its verdict and tables from that same JSON).
#ifndef CALHOST_SUMMARY_H
#define CALHOST_SUMMARY_H

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "diagnosis.h"

namespace calhost {

// "magnetic_field", "orientation", ...; "type_N" for types calhost has no name for.
std::string type_name(int type);
// The name of an input row the module has no algorithm for, handed on unchanged:
// "phone_rotation_vector" beside the module's own "rotation_vector".
std::string passed_on_name(int type);

struct ReplaySummary {
    std::string session;
    std::string module_path;
    std::string module_id;
    std::string module_vendor;
    unsigned module_version = 0;
    std::string module_sha256;
    std::uint64_t events = 0;
    double duration_s = 0.0;
    std::map<int, std::uint64_t> in;   // rows per input sensor type
    std::map<int, std::uint64_t> out;  // the module's outputs per output type
    std::map<int, std::uint64_t> passed_on;  // input rows handed on unchanged, per type
    std::array<std::optional<double>, 4> level_first_s;  // seconds from the first row
    int final_level = -1;                                // -1: no magnetometer output
    // The fit's offset: only when the calibration accepted a fit during the replay.
    std::optional<std::array<float, 3>> offset_ut;
    // What apps receive: the uncalibrated event's bias (the fit's offset plus the
    // disturbance correction), taken at rest where the output's smoothing has settled.
    std::optional<std::array<float, 3>> apps_offset_ut;
    bool apps_offset_at_rest = false;
    std::optional<double> radius_ut;  // mean radius of the held fits
    int fits = 0;
    std::optional<std::array<double, 3>> truth_offset_ut;  // what the session was made with
    std::optional<double> truth_field_ut;
    std::optional<std::array<double, 3>> reference_offset_ut;  // another estimate, e.g. the phone's own
    std::string reference_source;                              // "command line" or "session"
    std::uint64_t param_writes = 0;
    std::string param_content;
    std::vector<std::string> absent;  // exported families this build lacks
    Diagnosis diagnosis;

    void set_reference(const std::array<double, 3> &offset_ut, const std::string &source);
    // |offset − truth| and |offset − reference|, µT; none without a fit.
    std::optional<double> truth_error_ut() const;
    std::optional<double> reference_error_ut() const;
    // One line, first of everything: calibrated or not, and since when.
    std::string verdict() const;

    nlohmann::json to_json() const;
    std::string to_text() const;
};

}  // namespace calhost

#endif
