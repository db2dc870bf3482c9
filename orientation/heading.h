// Pieces shared by the two tilt-compensated headings: the first-order low-pass on
// the horizontal field pair, the two heading conventions, and the azimuth
// correction applied by the orientation computation. Internal to the module.
#ifndef CALMODULE_ORIENTATION_HEADING_H
#define CALMODULE_ORIENTATION_HEADING_H

#include <cstdint>

namespace quarvel {

// First-order low-pass on a horizontal field pair (µT). The first sample seeds it;
// every later one is blended in with weight 0.2, in single precision.
struct HeadingLowPass {
    int32_t flag = 0;  // 0 until the first sample has seeded the pair
    float x = 0.0f;
    float y = 0.0f;

    void update(float hx, float hy) {
        if (flag == 0) {
            flag = 1;
            x = hx;
            y = hy;
            return;
        }
        const float keep_x = x * 0.8f;
        x = keep_x + hx * 0.2f;
        const float keep_y = y * 0.8f;
        y = keep_y + hy * 0.2f;
    }
};

// Low-pass states of GetAzimuth and GetOrientationAngles; never reset after load.
extern HeadingLowPass az_lp;
extern HeadingLowPass ori_lp;

// Compass heading in degrees, 0 to 360, of the smoothed pair (X, Y) measured from +X
// towards -Y. Leaves *out untouched for (0, 0) and for X > 0, Y = 0.
void azimuth_heading_degrees(float X, float Y, float *out);

// Heading in radians, 0 to 2 pi, of the smoothed pair (X, Y) measured from +Y
// towards +X; 0 for (0, 0), NaN when X or Y is not a number. Shared by the
// orientation angles and the soft gyroscope's orientation.
float orientation_heading_radians(float X, float Y);

// The reported pitch and roll of a unit gravity vector g from the tilt angles
// p = GetPitch(g) and r = GetRoll(g) already at hand for the compensation:
// GetPitchAngle is -GetRoll (0 when y and z both vanish) and GetRollAngle is
// -GetPitch, bit for bit, so each arc function runs once per event, not twice.
inline void reported_tilt(const float g[3], float p, float r, float *pitch, float *roll) {
    *pitch = (g[1] == 0.0f && g[2] == 0.0f) ? 0.0f : -r;
    *roll = -p;
}

// The orientation computation's fixed correction of azimuth A (degrees) inside the
// table's open intervals; A unchanged elsewhere.
float apply_correction_table(float A);

// The near-north shifts of A and its averaging with the reference heading R
// (degrees).
float blend_with_reference(float A, float R);

}  // namespace quarvel

#endif
