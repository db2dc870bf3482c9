// What the orientation family's files share without exporting it: the heading
// low-pass states, the azimuth heading convention, and the azimuth correction of the
// orientation computation. Internal to the module.
#ifndef CALMODULE_ORIENTATION_INTERNAL_H
#define CALMODULE_ORIENTATION_INTERNAL_H

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

// The orientation computation's fixed correction of azimuth A (degrees) inside the
// table's open intervals; A unchanged elsewhere.
float apply_correction_table(float A);

// The near-north shifts of A and its averaging with the reference heading R
// (degrees).
float blend_with_reference(float A, float R);

}  // namespace quarvel

#endif
