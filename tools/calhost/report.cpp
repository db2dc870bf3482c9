#include "report.h"

#include <cmath>
#include <ctime>
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

double phone_rotation_vector_azimuth(const float *rv, int count) {
    const double x = rv[0], y = rv[1], z = rv[2];
    const double s = 1.0 - x * x - y * y - z * z;
    const double w = count >= 4 ? static_cast<double>(rv[3]) : (s > 0.0 ? std::sqrt(s) : 0.0);
    // The device's y axis (its top) projected on the east-north plane: the azimuth is
    // its angle from north, clockwise.
    const double east = 2.0 * (x * y - w * z), north = w * w - x * x + y * y - z * z;
    double az = std::atan2(east, north) * 180.0 / M_PI;
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
        if (std::isfinite(x) && std::isfinite(y) && std::isfinite(z)) {
            cloud_.push({x, y, z, t});
            raw_magnitude_.push({t, std::sqrt(x * x + y * y + z * z)});
        }
        last_mag_t_ = t;
    } else if (row.type == kRotationVector && row.count >= 3) {
        phone_heading_.push({t, phone_rotation_vector_azimuth(row.v.data(), row.count)});
    }
}

void ReportCollector::output(const OutputEvent &e) {
    if (e.passed_on) return;  // the session's own rows, drawn from input()
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
        case kMagneticFieldUncalibrated: apps_offset_.push({t, v(3), v(4), v(5)}); break;
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

void ReportCollector::fit_offset(std::int64_t time_ns, const float *o) {
    fit_offset_.push({seconds(time_ns), o[0], o[1], o[2]});
}

namespace {

// Columns of a point list, as JSON arrays of values rounded to what a plot can show
// (keeps the page small); non-finite values become null.
template <std::size_t K>
nlohmann::json columns(const std::vector<std::array<double, K>> &points) {
    nlohmann::json cols = nlohmann::json::array();
    for (std::size_t k = 0; k < K; ++k) {
        nlohmann::json c = nlohmann::json::array();
        for (const auto &p : points) {
            c.push_back(std::isfinite(p[k]) ? nlohmann::json(std::round(p[k] * 1000.0) / 1000.0)
                                            : nlohmann::json(nullptr));
        }
        cols.push_back(std::move(c));
    }
    return cols;
}

}  // namespace

nlohmann::json ReportCollector::data(const ReplaySummary &s) const {
    using nlohmann::json;
    json d;
    // The level's steps, drawn on to the last magnetometer sample.
    auto level = level_.points();
    if (!level.empty()) level.push_back({last_mag_t_, level.back()[1]});
    d["level"] = columns(level);
    d["pocket"] = columns(pocket_.points());
    d["raw_magnitude"] = columns(raw_magnitude_.points());
    d["magnitude"] = columns(magnitude_.points());
    d["fit_offset"] = columns(fit_offset_.points());
    d["apps_offset"] = columns(apps_offset_.points());
    d["cloud"] = columns(cloud_.points());
    d["orientation"] = columns(orientation_.points());
    d["rv_heading"] = columns(rv_heading_.points());
    d["phone_heading"] = columns(phone_heading_.points());
    d["summary"] = s.to_json();
    d["title"] = s.session;
    d["calhost_version"] = CALHOST_VERSION;
    const std::time_t now = std::time(nullptr);
    char date[32] = "";
    if (const std::tm *utc = std::gmtime(&now)) std::strftime(date, sizeof date, "%Y-%m-%d %H:%M UTC", utc);
    d["date"] = date;
    return d;
}

namespace {

// The page's own script: draws the verdict, the diagnosis and the plots from DATA.
// window.calhostErrors collects script errors; the body gets data-plots-rendered once
// every figure has been drawn, and data-plots-expected says how many there are.
constexpr const char *kPageScript = R"JS(
(function () {
  'use strict';
  var S = DATA.summary, D = S.diagnosis;
  function el(tag, text, cls) {
    var e = document.createElement(tag);
    if (text !== undefined) e.textContent = text;
    if (cls) e.className = cls;
    return e;
  }
  function fmt(v, d) { return v === null || v === undefined ? '–' : Number(v).toFixed(d === undefined ? 2 : d); }
  function vec(v) { return v ? v.map(function (x) { return fmt(x); }).join(', ') + ' µT' : '–'; }
  var causes = {disturbance: 'a magnetic disturbance while the phone lay still',
    implausible_readings: '33 readings beyond the plausible field or off the fitted sphere',
    gross_readings: 'three gross readings', fits_discarded: 'a fit far from the held ones (all held fits discarded)',
    unknown: 'cause not exported by this module build'};

  var top = document.getElementById('verdict');
  top.appendChild(el('p', S.verdict, 'verdict ' + (/^calibrated/.test(S.verdict) ? 'good' : 'bad')));
  top.appendChild(el('p', D.summary, 'why'));

  var table = document.getElementById('summary');
  function row(k, v) {
    var tr = el('tr'); tr.appendChild(el('th', k)); tr.appendChild(el('td', v)); table.appendChild(tr);
  }
  row('Offset of the fit', S.offset_ut ? vec(S.offset_ut) +
      (S.radius_ut !== null ? '   (field radius ' + fmt(S.radius_ut) + ' µT, ' + S.fits + ' fits held)' : '')
      : 'none: the calibration accepted no fit');
  if (S.apps_offset_ut) row('Offset apps receive', vec(S.apps_offset_ut) + '   (uncalibrated bias' +
      (S.apps_offset_at_rest ? ', at rest' : ', mean while moving') + ': the fit plus the disturbance correction)');
  if (S.truth_offset_ut) row('True offset', vec(S.truth_offset_ut) +
      (S.offset_error_ut !== null ? '   (fit error ' + fmt(S.offset_error_ut) + ' µT)' : ''));
  if (S.reference_offset_ut) row('Reference offset', vec(S.reference_offset_ut) +
      (S.reference_error_ut !== null ? '   (fit differs by ' + fmt(S.reference_error_ut) + ' µT)' : '') +
      '   from the ' + S.reference_source);
  row('Level changes', D.level_changes.map(function (c) {
    return (c.from === null ? '' : c.from + ' → ') + c.to + ' at ' + fmt(c.t_s) + ' s' +
      (c.cause ? ' (restart: ' + causes[c.cause] + ')' : '');
  }).join(', ') + (D.level_changes_unlisted ? ', and ' + D.level_changes_unlisted + ' more' : '') || 'none');
  if (!D.unavailable.length) {
    row('Restarts', D.restarts.length ? D.restarts.map(function (r) {
      return fmt(r.t_s) + ' s ' + causes[r.cause];
    }).join('; ') + (D.restarts_unlisted ? '; and ' + D.restarts_unlisted + ' more' : '') : 'none');
    var n = D.samples.not_admitted;
    row('Samples', D.samples.offered + ' offered, ' + D.samples.admitted + ' admitted; not admitted: ' +
        n.collection_stopped + ' collection stopped, ' + n.restart_requested + ' restart requested, ' +
        n.implausible + ' implausible, ' + n.gross + ' gross, ' + n.off_shell + ' off the sphere');
    row('Collection stopped', fmt(D.collection_stopped_s) + ' s face down, ' + fmt(D.restart_requested_s) +
        ' s restart requested, of ' + fmt(D.magnetometer_s) + ' s');
    row('Fits', D.fits.attempted + ' attempted, ' + D.fits.kept + ' kept, ' + D.fits.discarded +
        ' discards; ' + D.fits.held + ' held at the end');
  } else {
    row('Diagnosis', 'unavailable: the module does not export ' + D.unavailable.join(', '));
  }
  if (D.coverage.share !== null) row('Directions covered', fmt(D.coverage.share * 100, 0) + '% of ' +
      D.coverage.cells + ' around the ' + D.coverage.centre);
  row('Session', S.session + ' (' + fmt(S.duration_s) + ' s, ' + S.events + ' events)');
  row('Module', S.module.id + ' version ' + S.module.version + ' by ' + S.module.vendor + ' (' + S.module.path + ')');
  row('Module SHA-256', S.module.sha256 || '–');
  row('calhost', DATA.calhost_version + ', report written ' + DATA.date);
  row('Parameter file', S.param_file.writes ? 'written ' + S.param_file.writes + ' times, holds "' +
      S.param_file.content + '"' : 'never written');
  S.absent.forEach(function (a) { row('Absent', a + ': not exported by this module build'); });
  var counts = [];
  Object.keys(S.in).forEach(function (k) { counts.push('in ' + k + ': ' + S.in[k]); });
  Object.keys(S.out).forEach(function (k) { counts.push(k + ': ' + S.out[k]); });
  row('Events', counts.join(', '));

  // Marks on every time plot: level changes, restarts and disturbances.
  var shapes = [], marks = [];
  D.level_changes.forEach(function (c) {
    if (c.from === null) return;  // the first level is no change
    shapes.push({type: 'line', xref: 'x', yref: 'paper', x0: c.t_s, x1: c.t_s, y0: 0, y1: 1,
                 line: {color: c.to === 0 && c.from > 0 ? '#d62728' : '#2ca02c', width: 1, dash: 'dot'}});
  });
  D.restarts.forEach(function (r) {
    shapes.push({type: 'line', xref: 'x', yref: 'paper', x0: r.t_s, x1: r.t_s, y0: 0, y1: 1,
                 line: {color: r.cause === 'disturbance' ? '#ff7f0e' : '#d62728', width: 2}});
  });
  var notes = [], plots = [], linked = [];
  var cfg = {responsive: true, displaylogo: false};
  function layout(ytitle, extra) {
    var l = {margin: {t: 10, r: 10}, xaxis: {title: {text: 'time (s)'}}, yaxis: {title: {text: ytitle}},
             shapes: shapes, legend: {orientation: 'h'}};
    for (var k in (extra || {})) l[k] = extra[k];
    return l;
  }
  function section(title, id, empty, why) {
    if (empty) { notes.push(title + ': ' + why); return null; }
    var box = document.getElementById('plots');
    box.appendChild(el('h2', title));
    var div = el('div', undefined, id === 'plot-cloud' ? 'plot cloud' : 'plot');
    div.id = id;
    box.appendChild(div);
    return div;
  }
  function timePlot(title, id, traces, ytitle, why, extra) {
    var empty = !traces.some(function (t) { return t.x.length; });
    var div = section(title, id, empty, why);
    if (!div) return;
    plots.push(Plotly.newPlot(div, traces, layout(ytitle, extra), cfg));
    linked.push(div);
  }
  // An angle drawn as a line without the vertical stroke at each wrap: the line breaks.
  function unwrapBreaks(x, y) {
    var xs = [], ys = [];
    for (var i = 0; i < x.length; i++) {
      if (i && y[i] !== null && y[i - 1] !== null && Math.abs(y[i] - y[i - 1]) > 180) { xs.push(null); ys.push(null); }
      xs.push(x[i]); ys.push(y[i]);
    }
    return {x: xs, y: ys};
  }
  function line(x, y, name, extra) {
    var t = {x: x, y: y, mode: 'lines', name: name};
    for (var k in (extra || {})) t[k] = extra[k];
    return t;
  }
  function angle(x, y, name) { var u = unwrapBreaks(x, y); return line(u.x, u.y, name); }

  timePlot('Accuracy level', 'plot-level', [line(DATA.level[0], DATA.level[1], 'level', {line: {shape: 'hv', width: 3}})],
           'accuracy level', 'no calibrated magnetometer output in this replay', {yaxis: {title: {text: 'accuracy level'}, range: [-0.2, 3.2], dtick: 1}});

  var axes = ['x', 'y', 'z'], colours = ['#1f77b4', '#ff7f0e', '#2ca02c'], off = [];
  for (var a = 0; a < 3; a++) {
    off.push(line(DATA.fit_offset[0], DATA.fit_offset[a + 1], 'fit ' + axes[a], {line: {color: colours[a]}}));
    off.push(line(DATA.apps_offset[0], DATA.apps_offset[a + 1], 'apps ' + axes[a], {line: {color: colours[a], dash: 'dot', width: 1}}));
  }
  timePlot('Offset per axis: the fit and what apps receive', 'plot-offset', off, 'offset (µT)', 'the calibration accepted no fit');

  var magExtra = {};
  var lines = [];
  if (S.radius_ut !== null) lines.push({v: S.radius_ut, name: 'fitted radius', c: '#d62728'});
  if (S.truth_field_ut !== null) lines.push({v: S.truth_field_ut, name: 'true field', c: '#2ca02c'});
  var mag = [line(DATA.raw_magnitude[0], DATA.raw_magnitude[1], '|B| raw', {line: {color: '#aaaaaa', width: 1}}),
             line(DATA.magnitude[0], DATA.magnitude[1], '|B| calibrated', {line: {color: '#1f77b4'}})];
  var t0 = DATA.raw_magnitude[0].length ? DATA.raw_magnitude[0][0] : 0;
  var t1 = DATA.raw_magnitude[0].length ? DATA.raw_magnitude[0][DATA.raw_magnitude[0].length - 1] : 1;
  lines.forEach(function (h) { mag.push(line([t0, t1], [h.v, h.v], h.name, {line: {color: h.c, dash: 'dash'}})); });
  timePlot('Field magnitude before and after calibration', 'plot-magnitude', mag, 'field magnitude (µT)',
           'no magnetometer samples', magExtra);

  // The raw samples in 3D, coloured by time, with the spheres that can be toggled.
  var cloudDiv = section('Raw magnetometer samples (µT) and the spheres', 'plot-cloud', !DATA.cloud[0].length,
                         'no magnetometer samples');
  if (cloudDiv) {
    var cloud = [{type: 'scatter3d', mode: 'markers', name: 'raw samples', x: DATA.cloud[0], y: DATA.cloud[1],
      z: DATA.cloud[2], customdata: DATA.cloud[3],
      hovertemplate: 'x %{x:.1f}<br>y %{y:.1f}<br>z %{z:.1f} µT<br>t %{customdata:.2f} s<extra></extra>',
      marker: {size: 2, color: DATA.cloud[3], colorscale: 'Viridis', opacity: 0.8, showscale: true,
               colorbar: {title: {text: 'time (s)'}, x: 1.0}}}];
    function sphere(c, r, name, colour) {
      var xs = [], ys = [], zs = [], i, j;
      for (i = 1; i < 12; i++) {  // circles of latitude
        var th = Math.PI * i / 12;
        for (j = 0; j <= 36; j++) {
          var ph = 2 * Math.PI * j / 36;
          xs.push(c[0] + r * Math.sin(th) * Math.cos(ph)); ys.push(c[1] + r * Math.sin(th) * Math.sin(ph));
          zs.push(c[2] + r * Math.cos(th));
        }
        xs.push(null); ys.push(null); zs.push(null);
      }
      for (j = 0; j < 12; j++) {  // meridians
        var ph2 = Math.PI * j / 6;
        for (i = 0; i <= 24; i++) {
          var th2 = Math.PI * i / 24;
          xs.push(c[0] + r * Math.sin(th2) * Math.cos(ph2)); ys.push(c[1] + r * Math.sin(th2) * Math.sin(ph2));
          zs.push(c[2] + r * Math.cos(th2));
        }
        xs.push(null); ys.push(null); zs.push(null);
      }
      cloud.push({type: 'scatter3d', mode: 'lines', x: xs, y: ys, z: zs, name: name, hoverinfo: 'skip',
                  line: {color: colour, width: 1}, opacity: 0.5, legendgroup: name});
      cloud.push({type: 'scatter3d', mode: 'markers', x: [c[0]], y: [c[1]], z: [c[2]], name: name + ' centre',
                  marker: {size: 5, color: colour, symbol: 'diamond'}, legendgroup: name, showlegend: false});
    }
    if (S.offset_ut && S.radius_ut !== null) sphere(S.offset_ut, S.radius_ut, 'fitted sphere', '#d62728');
    if (S.truth_offset_ut && S.truth_field_ut !== null) sphere(S.truth_offset_ut, S.truth_field_ut, 'true sphere', '#2ca02c');
    if (S.reference_offset_ut) {
      cloud.push({type: 'scatter3d', mode: 'markers', x: [S.reference_offset_ut[0]], y: [S.reference_offset_ut[1]],
                  z: [S.reference_offset_ut[2]], name: 'reference offset', marker: {size: 5, color: '#9467bd', symbol: 'cross'}});
    }
    if (!S.offset_ut) notes.push('3D cloud: no fitted sphere, because the calibration accepted no fit');
    plots.push(Plotly.newPlot(cloudDiv, cloud, {margin: {t: 10, l: 0, r: 0, b: 0}, legend: {x: 0, y: 1},
      scene: {aspectmode: 'data', xaxis: {title: {text: 'x (µT)'}}, yaxis: {title: {text: 'y (µT)'}},
              zaxis: {title: {text: 'z (µT)'}}}}, cfg));
  }

  var o = DATA.orientation;
  timePlot('Azimuth, pitch and roll', 'plot-orientation', [angle(o[0], o[1], 'azimuth'), angle(o[0], o[2], 'pitch'),
           angle(o[0], o[3], 'roll')], 'degrees', 'no orientation output in this replay');
  timePlot('Heading: orientation, the module\'s rotation vector and the phone\'s own', 'plot-heading',
           [angle(o[0], o[1], 'orientation azimuth'), angle(DATA.rv_heading[0], DATA.rv_heading[1], 'module rotation vector'),
            angle(DATA.phone_heading[0], DATA.phone_heading[1], 'phone rotation vector')],
           'degrees', 'neither orientation nor a rotation vector in this replay',
           {yaxis: {title: {text: 'degrees'}, range: [0, 360], dtick: 90}});
  if (!DATA.phone_heading[0].length) notes.push('Heading: the session holds no rotation vector of the phone\'s own (sensor type 11)');
  if (!DATA.rv_heading[0].length) notes.push('Heading: this module build exports no rotation vector');
  timePlot('Pocket state', 'plot-pocket', [line(DATA.pocket[0], DATA.pocket[1], 'pocket', {mode: 'lines+markers', line: {shape: 'hv'}})],
           'covered (1) / uncovered (0)', 'no pocket reports in this replay',
           {yaxis: {title: {text: 'covered (1) / uncovered (0)'}, range: [-0.2, 1.2]}});

  var ul = document.getElementById('notes');
  notes.forEach(function (n) { ul.appendChild(el('li', n)); });
  document.body.setAttribute('data-plots-expected', String(plots.length));

  // One time axis: zooming or panning one time plot moves them all.
  var syncing = false;
  linked.forEach(function (src) {
    src.on('plotly_relayout', function (ev) {
      if (syncing) return;
      var upd = {};
      if (ev['xaxis.range[0]'] !== undefined) upd['xaxis.range'] = [ev['xaxis.range[0]'], ev['xaxis.range[1]']];
      else if (ev['xaxis.range']) upd['xaxis.range'] = ev['xaxis.range'];
      else if (ev['xaxis.autorange']) upd['xaxis.autorange'] = true;
      else return;
      syncing = true;
      Promise.all(linked.filter(function (d) { return d !== src; }).map(function (d) { return Plotly.relayout(d, upd); }))
        .then(function () { syncing = false; }, function () { syncing = false; });
    });
  });

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

// JSON inside a <script> element: no "<", ">" or "&" may appear as such, or a string
// such as a file name "x<!--<script>.csv" would end the element or change how the
// browser reads it. Inside JSON they only occur in strings, where \u escapes mean the same.
std::string script_safe(const std::string &json) {
    std::string out;
    out.reserve(json.size());
    for (char c : json) {
        switch (c) {
            case '<': out += "\\u003c"; break;
            case '>': out += "\\u003e"; break;
            case '&': out += "\\u0026"; break;
            default: out += c;
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
.plot { height: 320px; } .plot.cloud { height: 600px; }
.verdict { font-size: 1.3em; font-weight: bold; margin: 0.3em 0; } .good { color: #176117; } .bad { color: #a11; }
.why { font-size: 1.1em; margin: 0.3em 0 1em; }
#notes { color: #666; font-style: italic; }
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
    page += R"(<div id="verdict"></div>
<table id="summary"></table>
<ul id="notes"></ul>
<div id="plots"></div>
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
