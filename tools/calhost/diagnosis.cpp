#include "diagnosis.h"

#include <cmath>

#include <fmt/format.h>

namespace calhost {

const char *cause_key(RestartCause c) {
    switch (c) {
        case RestartCause::kDisturbance: return "disturbance";
        case RestartCause::kImplausible: return "implausible_readings";
        case RestartCause::kGross: return "gross_readings";
        case RestartCause::kFitsDiscarded: return "fits_discarded";
        case RestartCause::kUnknown: break;
    }
    return "unknown";
}

const char *cause_description(RestartCause c) {
    switch (c) {
        case RestartCause::kDisturbance: return "a magnetic disturbance while the phone lay still";
        case RestartCause::kImplausible: return "33 readings beyond the plausible field or off the fitted sphere";
        case RestartCause::kGross: return "three gross readings";
        case RestartCause::kFitsDiscarded: return "a fit far from the held ones (all held fits discarded)";
        case RestartCause::kUnknown: break;
    }
    return "a cause this module build does not export";
}

DiagnosisTracker::DiagnosisTracker(const CalibrationState &state) : state_(state) {
    const std::pair<const void *, const char *> names[] = {
        {state.msensor, "Msensor"},         {state.cali_flag, "cali_flag"},   {state.cali_ret, "cali_ret"},
        {state.noise_flag, "noise_flag"},   {state.noise_count, "noiseCount"}, {state.l_noise_count, "l_noiseCount"},
    };
    for (const auto &[p, name] : names) {
        if (!p) d_.unavailable.emplace_back(name);
    }
    complete_ = d_.unavailable.empty();
}

DiagnosisTracker::Snapshot DiagnosisTracker::read() const {
    Snapshot s;
    if (!complete_) return s;
    s.fit_count = state_.msensor->fitCount;
    s.dots_count = state_.msensor->dotsCount;
    s.dots_full = state_.msensor->dotsFull;
    s.cali_flag = *state_.cali_flag;
    s.cali_ret = *state_.cali_ret;
    s.noise_flag = *state_.noise_flag;
    s.l_noise = *state_.l_noise_count;
    s.noise_count = *state_.noise_count;
    return s;
}

void DiagnosisTracker::before_magnetometer() { before_ = read(); }

void DiagnosisTracker::restart(double t_s, RestartCause cause) {
    ++d_.restarts_by_cause[static_cast<std::size_t>(cause)];
    if (d_.restarts.size() < kListedEvents) {
        d_.restarts.push_back({t_s, cause});
    } else {
        ++d_.restarts_unlisted;
    }
    pending_cause_ = cause;
}

void DiagnosisTracker::after_magnetometer(double t_s, int level, const float scaled[3]) {
    const double dt = have_time_ ? t_s - last_t_ : 0.0;
    have_time_ = true;
    last_t_ = t_s;
    d_.magnetometer_s += dt;
    pending_cause_.reset();
    const bool offered = scaled[0] != 0.0f || scaled[1] != 0.0f || scaled[2] != 0.0f;

    if (complete_ && offered) {
        const Snapshot &b = before_;
        const Snapshot a = read();
        ++d_.offered;
        // The flags as the calibration saw them during this sample: the orientation
        // computation only writes them after the magnetometer event has been calibrated.
        if (b.cali_flag == 0) d_.collection_stopped_s += dt;
        if (b.cali_ret == 1) d_.restart_requested_s += dt;

        const bool fit_attempt = b.dots_full == 0 && a.dots_full == 1;
        if (fit_attempt) {
            ++d_.fits_attempted;
            if (a.fit_count > b.fit_count) ++d_.fits_kept;
        }
        // The buffer grew: the sample was admitted (or brought it to twelve, for the fit).
        if (a.dots_count > b.dots_count) {
            ++d_.admitted;
        } else if (b.cali_flag == 0) {
            ++d_.not_admitted_stopped;
        } else if (b.cali_ret == 1) {
            ++d_.not_admitted_restart;
        } else if (a.l_noise != b.l_noise) {
            ++d_.not_admitted_gross;
        } else if (a.noise_flag != b.noise_flag) {
            ++d_.not_admitted_off_shell;
        } else if (a.noise_count != b.noise_count) {
            ++d_.not_admitted_implausible;
        }

        // Restarts, in the order the calibration's supervision tests them.
        if (b.l_noise >= 2 && a.l_noise == 0) {
            restart(t_s, RestartCause::kGross);
        } else if (b.noise_count >= 32 && b.noise_count < 100 && a.noise_count == 0 && a.l_noise == b.l_noise) {
            restart(t_s, RestartCause::kImplausible);
        } else if (b.cali_ret == 1 && !requested_) {
            // While the request stands every sample restarts; one episode, one restart.
            restart(t_s, RestartCause::kDisturbance);
        } else if (fit_attempt && b.fit_count > 0 && a.fit_count == 0) {
            restart(t_s, RestartCause::kFitsDiscarded);
            ++d_.fits_discarded;
        }
        requested_ = b.cali_ret == 1;
        if ((fit_attempt || a.fit_count != b.fit_count) && a.fit_count > 0 && a.fit_count <= MAGCAL_MAX_FITS) {
            double sum = 0.0;
            for (int i = 0; i < a.fit_count; ++i) sum += static_cast<double>(state_.msensor->radius[i]);
            d_.held_radius_ut = sum / a.fit_count;
        }
        d_.fits_held = a.fit_count;
    } else if (offered) {
        ++d_.offered;
    }

    if (level >= 0 && level != level_) {
        // Without the module's counters a fall to level 0 is a restart of unknown cause.
        if (!complete_ && level == 0 && level_ > 0) restart(t_s, RestartCause::kUnknown);
        LevelChange c{t_s, level_, level, level == 0 ? pending_cause_ : std::nullopt};
        if (d_.level_changes.size() < kListedEvents) {
            d_.level_changes.push_back(c);
        } else {
            ++d_.level_changes_unlisted;
        }
        if (level == 3) d_.level3_since_s = t_s;
        level_ = level;
    }
    if (level_ != 3) d_.level3_since_s.reset();

    const std::array<double, 3> p{scaled[0], scaled[1], scaled[2]};
    if (offered && std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2])) {
        cloud_.push(p);
        for (std::size_t i = 0; i < 3; ++i) {
            lo_[i] = have_box_ ? std::min(lo_[i], p[i]) : p[i];
            hi_[i] = have_box_ ? std::max(hi_[i], p[i]) : p[i];
        }
        have_box_ = true;
    }
}

namespace {

// Directions as 6 bands of equal height in z (equal areas, by Archimedes) times 12
// sectors around z: 72 cells of equal area.
constexpr int kBands = 6, kSectors = 12;

std::string seconds(double t) { return fmt::format("{:.1f} s", t); }

}  // namespace

Diagnosis DiagnosisTracker::finish(const std::optional<std::array<float, 3>> &offset,
                                   std::uint64_t magnetometer_rows, bool calibrates) {
    Diagnosis d = d_;
    if (have_box_) {
        std::array<double, 3> c{};
        if (offset) {
            for (std::size_t i = 0; i < 3; ++i) c[i] = (*offset)[i];
            d.coverage_centre = "final offset";
        } else {
            for (std::size_t i = 0; i < 3; ++i) c[i] = 0.5 * (lo_[i] + hi_[i]);
            d.coverage_centre = "middle of the samples";
        }
        std::array<bool, kBands * kSectors> seen{};
        double radius_sum = 0.0;
        std::size_t n = 0;
        for (const auto &p : cloud_.points()) {
            const double x = p[0] - c[0], y = p[1] - c[1], z = p[2] - c[2];
            const double r = std::sqrt(x * x + y * y + z * z);
            if (!(r > 0.0)) continue;
            radius_sum += r;
            ++n;
            const int band = std::min(kBands - 1, static_cast<int>((z / r + 1.0) * 0.5 * kBands));
            const int sector =
                std::min(kSectors - 1, static_cast<int>((std::atan2(y, x) + M_PI) / (2.0 * M_PI) * kSectors));
            seen[static_cast<std::size_t>(std::max(0, band) * kSectors + std::max(0, sector))] = true;
        }
        int covered = 0;
        for (bool s : seen) covered += s ? 1 : 0;
        d.coverage_cells = kBands * kSectors;
        d.coverage = static_cast<double>(covered) / d.coverage_cells;
        if (n) d.sample_radius_ut = radius_sum / static_cast<double>(n);
    }

    // One plain sentence: the verdict's reason.
    const auto &by = d.restarts_by_cause;
    std::size_t top = 0;
    for (std::size_t i = 1; i < by.size(); ++i) {
        if (by[i] > by[top]) top = i;
    }
    std::uint64_t restarts = 0;
    for (auto n : by) restarts += n;
    double last_restart = 0.0;
    for (const auto &r : d.restarts) {
        if (static_cast<std::size_t>(r.cause) == top) last_restart = r.t_s;
    }
    const auto restart_sentence = [&](const char *lead) {
        return fmt::format("{} {} time{}, the last at {}, on {}.", lead, restarts, restarts == 1 ? "" : "s",
                           seconds(last_restart), cause_description(static_cast<RestartCause>(top)));
    };
    const double stopped_share = d.magnetometer_s > 0.0 ? d.collection_stopped_s / d.magnetometer_s : 0.0;
    const bool reached3 = [&] {
        for (const auto &c : d.level_changes) {
            if (c.to == 3) return true;
        }
        return d.level_changes_unlisted > 0;
    }();

    if (magnetometer_rows == 0) {
        d.summary = "The session has no magnetometer samples, so there was nothing to calibrate.";
    } else if (!calibrates) {
        d.summary = "The module gave no calibrated magnetometer output.";
    } else if (d.offered == 0) {
        d.summary = "Every magnetometer sample was (0, 0, 0), which the calibration ignores.";
    } else if (d.level3_since_s) {
        d.summary = fmt::format("Calibrated: level 3 from {} to the end, {} fits held.", seconds(*d.level3_since_s),
                                d.fits_held);
        if (restarts > 0) d.summary += " " + restart_sentence("It restarted");
    } else if (reached3) {
        d.summary = restarts > 0 ? restart_sentence("Calibrated, then lost: the calibration restarted")
                                 : "Calibrated, then lost level 3 before the end.";
    } else if (!d.has_state()) {
        d.summary = "The calibration never reached level 3; this module build does not export the state that would say why.";
    } else if (stopped_share >= 0.5) {
        d.summary = fmt::format(
            "Sample collection was stopped for {} of {} because no accelerometer axis pointed up by more than "
            "0.2 g (the phone lay face down).",
            seconds(d.collection_stopped_s), seconds(d.magnetometer_s));
    } else if (d.fits_attempted > d.fits_kept && (d.fits_kept == 0 || restarts == 0)) {
        const bool radius_out = d.sample_radius_ut && (*d.sample_radius_ut < 25.0 || *d.sample_radius_ut > 55.0);
        d.summary = radius_out ? fmt::format("{} of {} sphere fits were refused: the samples lie about {:.0f} µT from "
                                             "their centre, outside the 25 to 55 µT radius the calibration accepts.",
                                             d.fits_attempted - d.fits_kept, d.fits_attempted, *d.sample_radius_ut)
                               : fmt::format("{} of {} sphere fits were refused or left out: their radii disagree "
                                             "(a field that changed during the session, or noisy samples).",
                                             d.fits_attempted - d.fits_kept, d.fits_attempted);
    } else if (restarts > 0) {
        d.summary = restart_sentence("The calibration restarted");
    } else if (d.coverage && *d.coverage < 0.5) {
        d.summary = fmt::format("Only {} of {} samples were admitted and they cover {:.0f}% of directions: the phone "
                                "was not turned through enough attitudes (turn it in a figure eight).",
                                d.admitted, d.offered, *d.coverage * 100.0);
    } else {
        d.summary = fmt::format("The session ended before three fits were held ({} held after {} attempts, {} of {} "
                                "samples admitted).",
                                d.fits_held, d.fits_attempted, d.admitted, d.offered);
    }
    return d;
}

}  // namespace calhost
