// The HTML report of a replay: one self-contained file with the plotting library
// embedded, readable offline.
#ifndef CALHOST_REPORT_H
#define CALHOST_REPORT_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "replay.h"

namespace calhost {

// The plotly.js bundle installed by scripts/setup.sh (its version is pinned in
// tools/report/package.json).
const char *default_plotly_path();

// Collects what the report draws while a replay runs; every series is thinned to a
// bounded number of points.
class ReportCollector : public ReplaySink {
public:
    void input(const SessionRow &row) override;
    void output(const OutputEvent &event) override;
    void fit_offset(std::int64_t time_ns, const float *offset) override;
    nlohmann::json data(const ReplaySummary &summary) const;

private:
    double seconds(std::int64_t t);
    bool have_first_ = false;
    std::int64_t first_ = 0;
    int last_level_ = -2;
    double last_mag_t_ = 0.0;
    Thinned<2> level_{2000};        // t, level: each change
    Thinned<2> pocket_{2000};       // t, state: each report
    Thinned<2> raw_magnitude_{2000};  // t, |raw field| µT
    Thinned<2> magnitude_{2000};    // t, |calibrated field| µT
    Thinned<4> fit_offset_{1500};   // t, x, y, z µT
    Thinned<4> apps_offset_{1500};  // t, x, y, z µT: the uncalibrated event's bias
    Thinned<4> cloud_{2500};        // raw samples x, y, z µT, and t
    Thinned<4> orientation_{2000};  // t, azimuth, pitch, roll
    Thinned<2> rv_heading_{2000};   // t, azimuth from the module's rotation vector
    Thinned<2> phone_heading_{2000};  // t, azimuth from the phone's own rotation vector
};

// The module's rotation vector's heading as a compass azimuth in degrees, 0 to 360.
double rotation_vector_azimuth(const float rv[3]);
// The same for a phone's own rotation vector (x, y, z and, when given, the scalar part),
// whose reference frame is east-north-up.
double phone_rotation_vector_azimuth(const float *rv, int count);

// The whole HTML page. Throws OutputError when the plotting library is missing.
std::string render_report(const nlohmann::json &data, const std::string &plotly_path);

}  // namespace calhost

#endif
