#include "report.h"

#include <cmath>
#include <fstream>
#include <sstream>

#include <fmt/format.h>

#include "output_file.h"

#ifndef CALHOST_PLOTLY_JS
#define CALHOST_PLOTLY_JS "plotly.min.js"
#endif

namespace calhost {

const char *default_plotly_path() { return CALHOST_PLOTLY_JS; }

double rotation_vector_azimuth(const float rv[3]) {
    // The quaternion's scalar part is not published; the vector part of a unit
    // quaternion gives it back (non-negative, as the estimator keeps it).
    const double q1 = rv[0], q2 = rv[1], q3 = rv[2];
    const double s = 1.0 - q1 * q1 - q2 * q2 - q3 * q3;
    const double q0 = s > 0.0 ? std::sqrt(s) : 0.0;
    // The rotation about the vertical, as the estimator's own Euler heading. The
    // estimator takes the magnetometer with its x and y axes exchanged, a mirror image,
    // so this heading turns clockwise seen from above, the way a compass azimuth does:
    // with the device flat and its top at azimuth A, the heading is A (or A - 360).
    const double heading = std::atan2(2.0 * (q0 * q3 + q1 * q2), q0 * q0 + q1 * q1 - q2 * q2 - q3 * q3) * 180.0 / M_PI;
    double az = std::fmod(heading, 360.0);
    if (az < 0.0) az += 360.0;
    return az;
}

double ReportCollector::seconds(std::int64_t t) {
    if (!have_first_) {
        have_first_ = true;
        first_ = t;
    }
    return seconds_between(first_, t);
}

void ReportCollector::input(const SessionRow &row) {
    const double t = seconds(row.time_ns);
    if (row.type == kMagneticField) {
        const double x = static_cast<double>(row.v[0] * kMagScale[0]);
        const double y = static_cast<double>(row.v[1] * kMagScale[1]);
        const double z = static_cast<double>(row.v[2] * kMagScale[2]);
        if (std::isfinite(x) && std::isfinite(y) && std::isfinite(z)) cloud_.push({x, y, z});
        last_level_t_ = t;
    }
}

void ReportCollector::output(const OutputEvent &e) {
    const double t = seconds(e.time_ns);
    const auto v = [&](int i) { return static_cast<double>(e.v[static_cast<std::size_t>(i)]); };
    switch (e.type) {
        case kMagneticField:
            if (e.status != last_level_) {
                level_.push({t, static_cast<double>(e.status)});
                last_level_ = e.status;
            }
            magnitude_.push({t, std::sqrt(v(0) * v(0) + v(1) * v(1) + v(2) * v(2))});
            break;
        case kOrientation: orientation_.push({t, v(0), v(1), v(2)}); break;
        case kRotationVector: {
            const float rv[3] = {e.v[0], e.v[1], e.v[2]};
            rv_heading_.push({t, rotation_vector_azimuth(rv)});
            break;
        }
        case kPocket: pocket_.push({t, v(0)}); break;
        default: break;
    }
}

namespace {

// Columns of a point list, as JSON arrays (non-finite values become null).
template <std::size_t K>
nlohmann::json columns(const std::vector<std::array<double, K>> &points) {
    nlohmann::json cols = nlohmann::json::array();
    for (std::size_t k = 0; k < K; ++k) {
        nlohmann::json c = nlohmann::json::array();
        for (const auto &p : points) c.push_back(std::isfinite(p[k]) ? nlohmann::json(p[k]) : nlohmann::json(nullptr));
        cols.push_back(std::move(c));
    }
    return cols;
}

std::string fmt_opt(const std::optional<double> &v, const char *unit) {
    return v ? fmt::format("{:.2f}{}", *v, unit) : std::string("–");
}

}  // namespace

nlohmann::json ReportCollector::data(const ReplaySummary &s) const {
    using nlohmann::json;
    json d;
    // The level's steps, drawn on to the last magnetometer sample.
    auto level = level_.points();
    if (!level.empty()) level.push_back({last_level_t_, level.back()[1]});
    d["level"] = columns(level);
    d["pocket"] = columns(pocket_.points());
    d["magnitude"] = columns(magnitude_.points());
    d["cloud"] = columns(cloud_.points());
    d["orientation"] = columns(orientation_.points());
    d["rv_heading"] = columns(rv_heading_.points());

    // The fitted sphere: centred on the final offset, with the held fits' mean radius;
    // without a radius from the module, the mean distance of the samples to the offset.
    if (s.offset_ut) {
        const double cx = (*s.offset_ut)[0], cy = (*s.offset_ut)[1], cz = (*s.offset_ut)[2];
        double r = s.radius_ut.value_or(0.0);
        if (!s.radius_ut && !cloud_.points().empty()) {
            for (const auto &p : cloud_.points()) r += std::hypot(p[0] - cx, p[1] - cy, p[2] - cz);
            r /= static_cast<double>(cloud_.points().size());
        }
        if (std::isfinite(cx) && std::isfinite(cy) && std::isfinite(cz) && std::isfinite(r) && r > 0.0) {
            d["sphere"] = {{"centre", {cx, cy, cz}}, {"radius", r}, {"from_fits", s.radius_ut.has_value()}};
        }
    }
    if (s.truth_offset_ut) {
        d["truth_offset"] = *s.truth_offset_ut;
        d["truth_label"] = s.truth_is_reference ? "reference offset" : "true offset";
    }

    json rows = json::array();
    auto row = [&](const std::string &k, const std::string &v) { rows.push_back({k, v}); };
    row("Session", fmt::format("{} ({:.2f} s, {} events)", s.session, s.duration_s, s.events));
    row("Module", fmt::format("{} version {} by {} ({})", s.module_id, s.module_version, s.module_vendor, s.module_path));
    for (const auto &[type, n] : s.in) row(fmt::format("In: {} {}", type, type_name(type)), std::to_string(n));
    for (const auto &[type, n] : s.out) row(fmt::format("Out: {} {}", type, type_name(type)), std::to_string(n));
    for (std::size_t i = 0; i < s.level_first_s.size(); ++i) {
        row(fmt::format("Level {} first reached", i), fmt_opt(s.level_first_s[i], " s"));
    }
    row("Final level", s.final_level < 0 ? std::string("–") : std::to_string(s.final_level));
    row("Offset", s.offset_ut ? fmt::format("{:.2f}, {:.2f}, {:.2f} µT", (*s.offset_ut)[0], (*s.offset_ut)[1],
                                            (*s.offset_ut)[2])
                              : std::string("–"));
    row("Field radius", s.radius_ut ? fmt::format("{:.2f} µT (mean of {} held fits)", *s.radius_ut, s.fits)
                                    : std::string("–"));
    if (s.truth_offset_ut) {
        row(s.truth_is_reference ? "Reference offset" : "True offset", fmt::format("{:.2f}, {:.2f}, {:.2f} µT", (*s.truth_offset_ut)[0], (*s.truth_offset_ut)[1],
                                       (*s.truth_offset_ut)[2]));
        row("Offset error", fmt_opt(s.offset_error_ut, " µT"));
    }
    row("Parameter file", s.param_writes ? fmt::format("written {} times, holds \"{}\"", s.param_writes, s.param_content)
                                         : std::string("never written"));
    for (const auto &a : s.absent) row("Absent", a + ": not exported by this module build");
    d["summary"] = rows;
    d["title"] = s.session;
    return d;
}

namespace {

// The page's own script: builds the table and the plots from DATA. Every plot is a
// plotly.js figure; window.calhostErrors collects script errors, and the body gets
// data-plots-rendered once every figure has been drawn.
constexpr const char *kPageScript = R"JS(
(function () {
  'use strict';
  var table = document.getElementById('summary');
  DATA.summary.forEach(function (r) {
    var tr = document.createElement('tr');
    var th = document.createElement('th'); th.textContent = r[0];
    var td = document.createElement('td'); td.textContent = r[1];
    tr.appendChild(th); tr.appendChild(td); table.appendChild(tr);
  });
  var cfg = {responsive: true, displaylogo: false};
  var time = {title: {text: 'time (s)'}};
  function note(id, text) {
    var el = document.getElementById(id + '-note');
    if (el) el.textContent = text;
  }
  var plots = [];
  plots.push(Plotly.newPlot('plot-level', [{
    x: DATA.level[0], y: DATA.level[1], mode: 'lines', line: {shape: 'hv', width: 3}, name: 'level'
  }], {margin: {t: 20}, xaxis: time, yaxis: {title: {text: 'accuracy level'}, range: [-0.2, 3.2], dtick: 1}}, cfg));
  if (!DATA.level[0].length) note('plot-level', 'No calibrated magnetometer output in this replay.');

  plots.push(Plotly.newPlot('plot-magnitude', [{
    x: DATA.magnitude[0], y: DATA.magnitude[1], mode: 'lines', name: '|B| calibrated'
  }], {margin: {t: 20}, xaxis: time, yaxis: {title: {text: 'calibrated field magnitude (µT)'}}}, cfg));

  var cloud = [{
    type: 'scatter3d', mode: 'markers', name: 'raw samples',
    x: DATA.cloud[0], y: DATA.cloud[1], z: DATA.cloud[2],
    marker: {size: 2, color: DATA.cloud[0].map(function (_, i) { return i; }), colorscale: 'Viridis', opacity: 0.8}
  }];
  if (DATA.sphere) {
    var c = DATA.sphere.centre, r = DATA.sphere.radius, xs = [], ys = [], zs = [];
    for (var i = 0; i <= 18; i++) {
      var th = Math.PI * i / 18, rx = [], ry = [], rz = [];
      for (var j = 0; j <= 36; j++) {
        var ph = 2 * Math.PI * j / 36;
        rx.push(c[0] + r * Math.sin(th) * Math.cos(ph));
        ry.push(c[1] + r * Math.sin(th) * Math.sin(ph));
        rz.push(c[2] + r * Math.cos(th));
      }
      xs.push(rx); ys.push(ry); zs.push(rz);
    }
    cloud.push({type: 'surface', x: xs, y: ys, z: zs, opacity: 0.25, showscale: false,
                colorscale: [[0, '#d62728'], [1, '#d62728']], name: 'fitted sphere', hoverinfo: 'skip'});
    cloud.push({type: 'scatter3d', mode: 'markers', x: [c[0]], y: [c[1]], z: [c[2]], name: 'offset',
                marker: {size: 6, color: '#d62728', symbol: 'diamond'}});
  }
  if (DATA.truth_offset) {
    var t0 = DATA.truth_offset;
    cloud.push({type: 'scatter3d', mode: 'markers', x: [t0[0]], y: [t0[1]], z: [t0[2]], name: DATA.truth_label,
                marker: {size: 6, color: '#2ca02c', symbol: 'cross'}});
  }
  plots.push(Plotly.newPlot('plot-cloud', cloud, {
    margin: {t: 20, l: 0, r: 0, b: 0},
    scene: {aspectmode: 'data', xaxis: {title: {text: 'x (µT)'}}, yaxis: {title: {text: 'y (µT)'}},
            zaxis: {title: {text: 'z (µT)'}}}
  }, cfg));

  plots.push(Plotly.newPlot('plot-orientation', [
    {x: DATA.orientation[0], y: DATA.orientation[1], mode: 'lines', name: 'azimuth'},
    {x: DATA.orientation[0], y: DATA.orientation[2], mode: 'lines', name: 'pitch'},
    {x: DATA.orientation[0], y: DATA.orientation[3], mode: 'lines', name: 'roll'}
  ], {margin: {t: 20}, xaxis: time, yaxis: {title: {text: 'degrees'}}}, cfg));
  if (!DATA.orientation[0].length) note('plot-orientation', 'No orientation output in this replay.');

  plots.push(Plotly.newPlot('plot-heading', [
    {x: DATA.orientation[0], y: DATA.orientation[1], mode: 'lines', name: 'orientation azimuth'},
    {x: DATA.rv_heading[0], y: DATA.rv_heading[1], mode: 'lines', name: 'rotation-vector heading'}
  ], {margin: {t: 20}, xaxis: time, yaxis: {title: {text: 'degrees'}, range: [0, 360]}}, cfg));
  if (!DATA.rv_heading[0].length) note('plot-heading', 'This module build exports no rotation vector.');

  plots.push(Plotly.newPlot('plot-pocket', [{
    x: DATA.pocket[0], y: DATA.pocket[1], mode: 'lines+markers', line: {shape: 'hv'}, name: 'pocket'
  }], {margin: {t: 20}, xaxis: time, yaxis: {title: {text: 'covered (1) / uncovered (0)'}, range: [-0.2, 1.2]}}, cfg));
  if (!DATA.pocket[0].length) note('plot-pocket', 'No pocket reports in this replay.');

  Promise.all(plots).then(function () {
    document.body.setAttribute('data-plots-rendered', String(plots.length));
  }, function (e) {
    window.calhostError(String(e));
  });
})();
)JS";

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw OutputError(fmt::format("the plotting library is missing: {} (run scripts/setup.sh, which installs it)",
                                      path));
    }
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

std::string html_escape(const std::string &s) {
    std::string out;
    for (char c : s) {
        switch (c) {
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '&': out += "&amp;"; break;
            case '"': out += "&quot;"; break;
            default: out += c;
        }
    }
    return out;
}

// JSON inside a <script> element: "</" must not appear, or the element would end.
std::string script_safe(std::string json) {
    std::string out;
    out.reserve(json.size());
    for (std::size_t i = 0; i < json.size(); ++i) {
        if (json[i] == '<' && i + 1 < json.size() && json[i + 1] == '/') {
            out += "<\\/";
            ++i;
        } else {
            out += json[i];
        }
    }
    return out;
}

}  // namespace

std::string render_report(const nlohmann::json &data, const std::string &plotly_path) {
    const std::string plotly = read_file(plotly_path);
    if (plotly.find("</script") != std::string::npos) {
        throw OutputError(fmt::format("{} cannot be embedded in a page: it contains \"</script\"", plotly_path));
    }
    const std::string title = html_escape(data.value("title", std::string("session")));
    std::string page;
    page.reserve(plotly.size() + 200000);
    page += "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n";
    page += "<title>calhost report: " + title + "</title>\n";
    page += R"(<style>
body { font-family: system-ui, sans-serif; margin: 1.5em auto; max-width: 1100px; padding: 0 1em; color: #222; }
h1 { font-size: 1.4em; } h2 { font-size: 1.1em; margin-top: 1.6em; }
.plot { height: 360px; } #plot-cloud { height: 560px; }
.note { color: #666; font-style: italic; }
table { border-collapse: collapse; } th, td { border: 1px solid #ccc; padding: 3px 10px; text-align: left; }
th { background: #f4f4f4; font-weight: normal; }
#errors { color: #b00; }
</style>
<script>
window.calhostErrors = [];
window.calhostError = function (message) {
  window.calhostErrors.push(message);
  var el = document.getElementById('errors');
  if (el) el.textContent = window.calhostErrors.join('\n');
  document.documentElement.setAttribute('data-script-errors', String(window.calhostErrors.length));
};
window.addEventListener('error', function (e) { window.calhostError(String(e.message)); });
window.addEventListener('unhandledrejection', function (e) { window.calhostError(String(e.reason)); });
</script>
)";
    page += "<script>\n" + plotly + "\n</script>\n</head>\n<body>\n";
    page += "<h1>calhost report: " + title + "</h1>\n";
    page += R"(<h2>Summary</h2>
<table id="summary"></table>
<h2>Accuracy level over time</h2>
<div id="plot-level" class="plot"></div><p id="plot-level-note" class="note"></p>
<h2>Calibrated field magnitude over time</h2>
<div id="plot-magnitude" class="plot"></div>
<h2>Raw magnetometer samples (µT) and the fitted sphere around the offset</h2>
<div id="plot-cloud"></div>
<h2>Azimuth, pitch and roll over time</h2>
<div id="plot-orientation" class="plot"></div><p id="plot-orientation-note" class="note"></p>
<h2>Rotation-vector heading against the orientation azimuth</h2>
<div id="plot-heading" class="plot"></div><p id="plot-heading-note" class="note"></p>
<h2>Pocket state</h2>
<div id="plot-pocket" class="plot"></div><p id="plot-pocket-note" class="note"></p>
<pre id="errors"></pre>
<script>
)";
    page += "const DATA = " + script_safe(data.dump()) + ";\n";
    page += kPageScript;
    page += R"(
</script>
</body>
</html>
)";
    return page;
}

}  // namespace calhost
