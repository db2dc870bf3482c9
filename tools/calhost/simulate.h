// Synthetic sensor sessions of a handset with a known hard-iron offset.
#ifndef CALHOST_SIMULATE_H
#define CALHOST_SIMULATE_H

#include <array>
#include <cstdint>
#include <string>

#include "output_file.h"

namespace calhost {

struct SimOptions {
    std::uint64_t seed = 1;
    double duration_s = 60.0;
    double field_ut = 45.0;                        // strength of the earth's field
    double inclination_deg = 60.0;                 // dip below the horizon
    std::array<double, 3> offset_ut{30.0, -20.0, 50.0};  // the handset's hard iron
    double mag_noise_ut = 0.3;                     // standard deviation per axis
    double acc_noise = 0.05;                       // m/s², standard deviation per axis
    double mag_hz = 50.0;
    double acc_hz = 100.0;
    double light_hz = 5.0;
};

// A reason why the options make no session, or empty when they are fine.
std::string check(const SimOptions &options);

// Writes the session: comments with the truth and the script, the header, the rows.
//
// The script, stretched to the duration (times given for 60 s): the handset lies flat
// (0-3 s), is waved through a figure-eight while its heading turns once (3-15 s), is
// turned once about its x, y and z axes (15-21 s), lies still (21-24 s), lies face
// down (24-28 s), lies still again (28-33 s) while a magnetic disturbance passes
// (about 31.5 s), is waved again (33-44 s), goes into a pocket (44-50 s: dark, the
// proximity sensor covered, walking sway) and is waved once more and turned (50-60 s).
void simulate(const SimOptions &options, OutputFile &out);

}  // namespace calhost

#endif
