// What the orientation family's files share without exporting it: the heading
// low-pass states, the azimuth heading convention, and the orientation computation's
// supervision and azimuth correction. Internal to the module.
#ifndef CALMODULE_ORIENTATION_INTERNAL_H
#define CALMODULE_ORIENTATION_INTERNAL_H

#include <cstdint>

#include "filters/low_pass.h"

namespace quarvel {

// The smoothed horizontal field pair (µT) keeps 0.8 of its memory per sample.
inline constexpr LowPassWeights kHeadingSmoothing = {0.2f, 0.8f};

// Low-pass states of GetAzimuth and GetOrientationAngles (x, y); never reset after load.
extern SeededLowPass<2> az_lp;
extern SeededLowPass<2> ori_lp;

// Compass heading in degrees, 0 to 360, of the smoothed pair (X, Y) measured from +X
// towards -Y. Leaves *out untouched for (0, 0) and for X > 0, Y = 0.
void azimuth_heading_degrees(float X, float Y, float *out);

// The field's eight-sample smoothing (field_smoothing.cpp): CalibrationXYZ's push,
// CalibrationThree's push, and one push that serves both while CalibrationThree's
// rings follow CalibrationXYZ's (false, nothing pushed, once they do not or the
// remap `remap` is no longer the load-time one). Each smooths its arrays in place.
void smooth_field(float mag[3]);
void smooth_remapped_field(float remapped[3]);
bool smooth_field_and_remapped(float mag[3], const int32_t *remap, float remapped[3]);

// GetAzimuth and GetOrientationAngles, called directly by the orientation computation:
// whole, or from the field already smoothed.
void azimuth_reference(const float acc[3], float mag[3], float *out);
void azimuth_of_smoothed(const float acc[3], const float mag[3], float *out);
void orientation_angles(float mag[3], const float g[3], float out[3]);
void angles_of_smoothed(const float mag[3], const float g[3], float out[3]);

// Everything the stillness and disturbance supervision reads and writes. The
// orientation computation binds it to the exported globals of the same names (and
// to the calibration's cali_ret and noise_mag_delta); a test can bind it to storage
// of its own.
struct SupervisionState {
    float (&old_acc)[3];          // acceleration of the previous call, m/s²
    float (&old_mag)[3];          // field reference, frozen while Holding, µT
    int16_t &run_o;               // 1 Tracking, 0 Holding
    int16_t &run_ret;             // still calls in a row, up to 100
    int16_t &noise_mag;           // calls with a small-band jump
    int16_t &noise_mag_flag;      // calls with a medium-band jump
    int16_t &noise_mag_fflag;     // calls with a large-band jump
    int16_t &noise_flag_t;        // 1 once a band fired, until the device moves
    int16_t &cali_ret;            // 1 asks the calibration to restart
    float (&noise_mag_delta)[3];  // half of the latest small jump, µT
};

// The state get_oritation_values supervises with: the exported globals.
extern const SupervisionState exported_supervision;

// One call's stillness test and, while Holding, the field supervision against the
// frozen reference. May replace mag by the reference (the field is back).
void supervise(const SupervisionState &s, float *mag, const float *acc);

// The orientation computation's fixed correction of azimuth A (degrees) inside the
// table's open intervals; A unchanged elsewhere.
float apply_correction_table(float A);

// The near-north shifts of A and its averaging with the reference heading R
// (degrees).
float blend_with_reference(float A, float R);

}  // namespace quarvel

#endif
