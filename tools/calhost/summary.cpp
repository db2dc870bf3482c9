#include "summary.h"

#include <cmath>

#include <fmt/format.h>

#include "calmodule/module.h"

namespace calhost {

std::string type_name(int type) {
    switch (type) {
        case CALMODULE_TYPE_ACCELEROMETER: return "accelerometer";
        case CALMODULE_TYPE_MAGNETIC_FIELD: return "magnetic_field";
        case CALMODULE_TYPE_ORIENTATION: return "orientation";
        case 4: return "soft_gyroscope";
        case CALMODULE_TYPE_LIGHT: return "light";
        case CALMODULE_TYPE_PROXIMITY: return "proximity";
        case 9: return "gravity";
        case 10: return "linear_acceleration";
        case 11: return "rotation_vector";
        case CALMODULE_TYPE_MAGNETIC_FIELD_UNCALIBRATED: return "magnetic_field_uncalibrated";
        case CALMODULE_TYPE_POCKET: return "pocket";
        default: return fmt::format("type_{}", type);
    }
}

std::string passed_on_name(int type) {
    // Type 4 from the module is the soft gyroscope; from the phone it is a real one.
    return "phone_" + (type == 4 ? std::string("gyroscope") : type_name(type));
}

namespace {

template <class T>
std::optional<double> distance(const std::optional<std::array<float, 3>> &a, const std::optional<std::array<T, 3>> &b) {
    if (!a || !b) return std::nullopt;
    double sq = 0.0;
    for (std::size_t i = 0; i < 3; ++i) {
        const double d = static_cast<double>((*a)[i]) - static_cast<double>((*b)[i]);
        sq += d * d;
    }
    return std::sqrt(sq);
}

template <class T>
nlohmann::json opt(const std::optional<T> &v) {
    return v ? nlohmann::json(*v) : nlohmann::json(nullptr);
}

template <class T>
std::string triple(const std::array<T, 3> &v) {
    return fmt::format("{:.2f} {:.2f} {:.2f} µT", static_cast<double>(v[0]), static_cast<double>(v[1]),
                       static_cast<double>(v[2]));
}

std::string level_change(const LevelChange &c) {
    std::string s = c.from < 0 ? fmt::format("{} at {:.2f} s", c.to, c.t_s)
                               : fmt::format("{} → {} at {:.2f} s", c.from, c.to, c.t_s);
    if (c.cause) s += fmt::format(" (restart: {})", cause_description(*c.cause));
    return s;
}

}  // namespace

void ReplaySummary::set_reference(const std::array<double, 3> &offset, const std::string &source) {
    reference_offset_ut = offset;
    reference_source = source;
}

std::optional<double> ReplaySummary::truth_error_ut() const { return distance(offset_ut, truth_offset_ut); }
std::optional<double> ReplaySummary::reference_error_ut() const { return distance(offset_ut, reference_offset_ut); }

std::string ReplaySummary::verdict() const {
    if (final_level < 0) return "no calibrated magnetometer output";
    if (diagnosis.level3_since_s) return fmt::format("calibrated: level 3 since {:.2f} s", *diagnosis.level3_since_s);
    if (level_first_s[3]) {
        return fmt::format("calibration lost: level {} at the end, after level 3 at {:.2f} s", final_level,
                           *level_first_s[3]);
    }
    int best = 0;
    for (int i = 0; i < 4; ++i) {
        if (level_first_s[static_cast<std::size_t>(i)]) best = i;
    }
    return best == 0 ? "not calibrated: no fit held" : fmt::format("not calibrated: level {} at best", best);
}

nlohmann::json ReplaySummary::to_json() const {
    using nlohmann::json;
    const Diagnosis &d = diagnosis;
    json j;
    j["verdict"] = verdict();
    json diag;
    diag["summary"] = d.summary;
    json changes = json::array();
    for (const auto &c : d.level_changes) {
        changes.push_back({{"t_s", c.t_s}, {"from", c.from < 0 ? json(nullptr) : json(c.from)}, {"to", c.to},
                           {"cause", c.cause ? json(cause_key(*c.cause)) : json(nullptr)}});
    }
    diag["level_changes"] = changes;
    diag["level_changes_unlisted"] = d.level_changes_unlisted;
    json restarts = json::array();
    for (const auto &r : d.restarts) restarts.push_back({{"t_s", r.t_s}, {"cause", cause_key(r.cause)}});
    diag["restarts"] = restarts;
    diag["restarts_unlisted"] = d.restarts_unlisted;
    json by = json::object();
    for (int i = 0; i < kRestartCauses; ++i) by[cause_key(static_cast<RestartCause>(i))] = d.restarts_by_cause[static_cast<std::size_t>(i)];
    diag["restarts_by_cause"] = by;
    diag["magnetometer_s"] = d.magnetometer_s;
    diag["collection_stopped_s"] = d.collection_stopped_s;
    diag["restart_requested_s"] = d.restart_requested_s;
    diag["samples"] = {{"offered", d.offered},
                       {"admitted", d.admitted},
                       {"not_admitted",
                        {{"collection_stopped", d.not_admitted_stopped},
                         {"restart_requested", d.not_admitted_restart},
                         {"implausible", d.not_admitted_implausible},
                         {"gross", d.not_admitted_gross},
                         {"off_shell", d.not_admitted_off_shell}}}};
    diag["fits"] = {{"attempted", d.fits_attempted}, {"kept", d.fits_kept}, {"discarded", d.fits_discarded},
                    {"held", d.fits_held}};
    diag["coverage"] = {{"share", opt(d.coverage)},
                        {"cells", d.coverage_cells},
                        {"centre", d.coverage_centre},
                        {"sample_radius_ut", opt(d.sample_radius_ut)}};
    diag["unavailable"] = d.unavailable;
    j["diagnosis"] = diag;

    j["session"] = session;
    j["module"] = {{"path", module_path}, {"id", module_id},         {"vendor", module_vendor},
                   {"version", module_version}, {"sha256", module_sha256}};
    j["events"] = events;
    j["duration_s"] = duration_s;
    json jin = json::object();
    for (const auto &[type, n] : in) jin[std::to_string(type)] = n;
    j["in"] = jin;
    json jout = json::object();
    for (const auto &[type, n] : out) jout[type_name(type)] = n;
    for (const auto &[type, n] : passed_on) jout[passed_on_name(type)] = n;
    j["out"] = jout;
    json levels = json::object();
    for (std::size_t i = 0; i < level_first_s.size(); ++i) levels[std::to_string(i)] = opt(level_first_s[i]);
    j["level_first_s"] = levels;
    j["final_level"] = final_level < 0 ? json(nullptr) : json(final_level);
    j["offset_ut"] = opt(offset_ut);
    j["apps_offset_ut"] = opt(apps_offset_ut);
    j["apps_offset_at_rest"] = apps_offset_at_rest;
    j["radius_ut"] = opt(radius_ut);
    j["fits"] = fits;
    j["truth_offset_ut"] = opt(truth_offset_ut);
    j["truth_field_ut"] = opt(truth_field_ut);
    j["offset_error_ut"] = opt(truth_error_ut());
    j["reference_offset_ut"] = opt(reference_offset_ut);
    j["reference_source"] = reference_offset_ut ? json(reference_source) : json(nullptr);
    j["reference_error_ut"] = opt(reference_error_ut());
    j["param_file"] = {{"writes", param_writes}, {"content", param_content}};
    j["absent"] = absent;
    return j;
}

std::string ReplaySummary::to_text() const {
    const Diagnosis &d = diagnosis;
    std::string s;
    s += fmt::format("verdict   {}\n", verdict());
    s += fmt::format("why       {}\n", d.summary);
    if (offset_ut) {
        s += fmt::format("offset    fit        {}", triple(*offset_ut));
        if (radius_ut) s += fmt::format("   field radius {:.2f} µT (mean of {} held fits)", *radius_ut, fits);
        s += "\n";
    } else {
        s += "offset    fit        none: the calibration accepted no fit\n";
    }
    if (apps_offset_ut) {
        s += fmt::format("          apps       {}   (uncalibrated event's bias{}: the fit plus the disturbance "
                         "correction)\n",
                         triple(*apps_offset_ut), apps_offset_at_rest ? ", at rest" : ", mean while moving");
    }
    if (truth_offset_ut) {
        s += fmt::format("          truth      {}", triple(*truth_offset_ut));
        if (const auto e = truth_error_ut()) s += fmt::format("   fit error {:.2f} µT", *e);
        s += "\n";
    }
    if (reference_offset_ut) {
        s += fmt::format("          reference  {}", triple(*reference_offset_ut));
        if (const auto e = reference_error_ut()) s += fmt::format("   fit differs by {:.2f} µT", *e);
        s += fmt::format("   (from the {})\n", reference_source);
    }
    if (final_level >= 0) {
        std::string changes;
        for (const auto &c : d.level_changes) changes += (changes.empty() ? "" : ", ") + level_change(c);
        if (d.level_changes_unlisted) changes += fmt::format(", and {} more", d.level_changes_unlisted);
        s += fmt::format("levels    {}; final {}\n", changes.empty() ? "none" : changes, final_level);
    }
    if (d.has_state()) {
        std::uint64_t restarts = 0;
        for (auto n : d.restarts_by_cause) restarts += n;
        s += fmt::format("restarts  {}", restarts);
        for (const auto &r : d.restarts) s += fmt::format("{}{:.2f} s {}", &r == &d.restarts.front() ? ": " : "; ", r.t_s, cause_description(r.cause));
        if (d.restarts_unlisted) s += fmt::format("; and {} more", d.restarts_unlisted);
        s += "\n";
        s += fmt::format("samples   {} offered, {} admitted; not admitted: {} collection stopped, {} restart requested, "
                         "{} implausible, {} gross, {} off the sphere, the rest too close to a buffered one\n",
                         d.offered, d.admitted, d.not_admitted_stopped, d.not_admitted_restart,
                         d.not_admitted_implausible, d.not_admitted_gross, d.not_admitted_off_shell);
        s += fmt::format("stopped   collection stopped (face down) {:.2f} s, restart requested (disturbance) {:.2f} s, "
                         "of {:.2f} s\n",
                         d.collection_stopped_s, d.restart_requested_s, d.magnetometer_s);
        s += fmt::format("fits      {} attempted, {} kept, {} discards; {} held at the end\n", d.fits_attempted,
                         d.fits_kept, d.fits_discarded, d.fits_held);
    } else {
        s += fmt::format("diagnosis unavailable: the module does not export {}\n", fmt::join(d.unavailable, ", "));
    }
    if (d.coverage) {
        s += fmt::format("coverage  {:.0f}% of {} directions around the {}", *d.coverage * 100.0, d.coverage_cells,
                         d.coverage_centre);
        if (d.sample_radius_ut) s += fmt::format(", samples {:.1f} µT from it on average", *d.sample_radius_ut);
        s += "\n";
    }
    s += fmt::format("session   {}  ({:.2f} s, {} events)\n", session, duration_s, events);
    s += fmt::format("module    {} version {} by {}  ({})\n", module_id, module_version, module_vendor, module_path);
    if (!module_sha256.empty()) s += fmt::format("          sha256 {}\n", module_sha256);
    s += fmt::format("events    {:<34} {:>9} {:>9}\n", "sensor type", "in", "out");
    std::map<int, bool> types;
    for (const auto &kv : in) types[kv.first] = true;
    for (const auto &kv : out) types[kv.first] = true;
    auto count = [](const std::map<int, std::uint64_t> &m, int type) {
        const auto it = m.find(type);
        return it == m.end() ? std::string("-") : std::to_string(it->second);
    };
    auto row = [&s](int type, const std::string &name, const std::string &n_in, const std::string &n_out) {
        s += fmt::format("          {:<34} {:>9} {:>9}\n", fmt::format("{:>5} {}", type, name), n_in, n_out);
    };
    for (const auto &kv : types) {
        const int type = kv.first;
        // A type the phone delivers itself and the module computes too (the rotation
        // vector) gets a row for each, so the two are never summed.
        if (passed_on.count(type)) {
            row(type, passed_on_name(type), count(in, type), count(passed_on, type));
            if (out.count(type)) row(type, type_name(type), "-", count(out, type));
        } else {
            row(type, type_name(type), count(in, type), count(out, type));
        }
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
