// The compass arithmetic of the orientation family that the soft gyroscope's own
// orientation uses too: the tilt-compensated horizontal field and its heading, with
// the family's pi of 3.1415926. Internal to the module.
#ifndef CALMODULE_ORIENTATION_COMPASS_H
#define CALMODULE_ORIENTATION_COMPASS_H

namespace quarvel {

// Degrees per radian with the family's pi: 57.295780490442965.
inline constexpr double kDegreesPerRadian = 180.0 / 3.1415926;

// The field (µT, device axes) rotated into the horizontal plane by pitch and roll
// (radians): h[0] along the device's forward direction, h[1] to its side. Double
// precision from the float inputs, the terms summed in this order.
void horizontal_field(const float mag[3], float pitch, float roll, float h[2]);

// Heading in radians, 0 to 2 pi, of the smoothed pair (X, Y) measured from +Y
// towards +X; 0 for (0, 0), NaN when X or Y is not a number.
float orientation_heading_radians(float X, float Y);

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
