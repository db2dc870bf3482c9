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

// Collects what the report draws while a replay runs.
class ReportCollector : public ReplaySink {
public:
    void input(const SessionRow &row) override;
    void output(const OutputEvent &event) override;
    nlohmann::json data(const ReplaySummary &summary) const;

private:
    double seconds(std::int64_t t);
    bool have_first_ = false;
    std::int64_t first_ = 0;
    int last_level_ = -2;
    double last_level_t_ = 0.0;
    Thinned<2> level_{4000};                     // t, level: each change
    Thinned<2> pocket_{4000};                    // t, state: each report
    Thinned<2> magnitude_{4000};                 // t, |calibrated field| µT
    Thinned<3> cloud_{3000};                     // raw samples, µT
    Thinned<4> orientation_{4000};               // t, azimuth, pitch, roll
    Thinned<2> rv_heading_{4000};                // t, azimuth from the rotation vector
};

// The rotation vector's heading as a compass azimuth in degrees, 0 to 360.
double rotation_vector_azimuth(const float rv[3]);

// The whole HTML page. Throws OutputError when the plotting library is missing.
std::string render_report(const nlohmann::json &data, const std::string &plotly_path);

}  // namespace calhost

#endif
