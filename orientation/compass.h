// The compass arithmetic of the orientation family that the soft gyroscope's own
// orientation uses too: the tilt-compensated horizontal field and its heading, with
// the family's pi of 3.1415926. Internal to the module; inline, because it runs on
// every sensor event.
#ifndef CALMODULE_ORIENTATION_COMPASS_H
#define CALMODULE_ORIENTATION_COMPASS_H

#include <cmath>
#include <limits>

#include "numeric/narrow_to_float.h"
#include "orientation/tilt.h"

namespace quarvel {

// Degrees per radian with the family's pi: 57.295780490442965.
inline constexpr double kDegreesPerRadian = 180.0 / turn::kHalf;

// Sines and cosines of a pitch and a roll (radians), in double precision from the
// float angles: what the compensation multiplies the field by.
struct TiltTrig {
    double sin_p, cos_p, sin_r, cos_r;
};

inline TiltTrig tilt_trig(float pitch, float roll) {
    const double pd = static_cast<double>(pitch);
    const double rd = static_cast<double>(roll);
    return {std::sin(pd), std::cos(pd), std::sin(rd), std::cos(rd)};
}

// The field (µT, device axes) rotated into the horizontal plane by the tilt:
// h[0] along the device's forward direction, h[1] to its side. Double precision from
// the float inputs, the terms summed in this order.
inline void horizontal_field(const float mag[3], const TiltTrig &t, float h[2]) {
    const double mx = static_cast<double>(mag[0]);
    const double my = static_cast<double>(mag[1]);
    const double mz = static_cast<double>(mag[2]);
    const double hx = mx * t.cos_p + (my * t.sin_r) * t.sin_p + (mz * t.cos_r) * t.sin_p;
    const double hy = my * t.cos_r - mz * t.sin_r;
    // Fields near the float limit can project beyond it: infinity then, as the
    // hardware rounds, rather than an undefined conversion.
    h[0] = narrow_to_float(hx);
    h[1] = narrow_to_float(hy);
}

// Heading in radians, 0 to 2 pi, of the smoothed pair (X, Y) measured from +Y
// towards +X; 0 for (0, 0), NaN when X or Y is not a number.
inline float orientation_heading_radians(float X, float Y) {
    if (X < 0.0f) {
        if (Y == 0.0f) return turn::kThreeQuarterF;
        return static_cast<float>(turn::kThreeQuarter - std::atan(static_cast<double>(Y / X)));
    }
    if (X > 0.0f) {
        if (Y == 0.0f) return turn::kQuarterF;
        return static_cast<float>(turn::kQuarter - std::atan(static_cast<double>(Y / X)));
    }
    if (X == 0.0f) {
        if (Y < 0.0f) return turn::kHalfF;
        if (Y >= 0.0f) return 0.0f;  // due north, or no horizontal field: read as north
    }
    // Only a non-number reaches here (X NaN, or X = 0 with Y NaN): the field has no
    // direction, and neither has the heading. NaN, as every quadrant would give for it;
    // the soft gyroscope's gate then refuses the change, and the orientation output
    // carries it as the IEEE value it is. (A NaN Y beside a non-zero X gives NaN
    // through the arctangent.)
    return std::numeric_limits<float>::quiet_NaN();
}

// The reported pitch and roll of a unit gravity vector g from the tilt angles
// p = GetPitch(g) and r = GetRoll(g) already at hand for the compensation:
// GetPitchAngle is -GetRoll (0 when y and z both vanish) and GetRollAngle is
// -GetPitch, bit for bit, so each arc function runs once per event, not twice.
inline void reported_tilt(const float g[3], float p, float r, float *pitch, float *roll) {
    *pitch = (g[1] == 0.0f && g[2] == 0.0f) ? 0.0f : -r;
    *roll = -p;
}

}  // namespace quarvel

#endif
