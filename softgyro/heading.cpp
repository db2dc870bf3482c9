// Orientation for the soft gyroscope: a tilt-compensated heading smoothed over the
// last ten horizontal field samples, and pitch and roll from the gravity vector.
// It keeps its own smoothing history, apart from the orientation family's filters.
#include <cmath>
#include <limits>

#include "calmodule/orientation.h"
#include "calmodule/softgyro.h"
#include "softgyro/softgyro_state.h"

namespace quarvel {

TrimmedMeanChannel<10> softgy_ring_x;
TrimmedMeanChannel<10> softgy_ring_y;

}  // namespace quarvel

namespace {

// Heading constants of the orientation family's pi, 3.1415926. The axis headings are
// stored floats; the quadrant offsets are applied in double.
constexpr float kHeadingMinusY = 3.1415925f;
constexpr float kHeadingMinusX = 4.712389f;
constexpr float kHeadingPlusX = 1.5707963f;
constexpr double kThreeQuarterTurn = 4.7123889;
constexpr double kQuarterTurn = 1.5707963;

// Angle of (hx, hy) from +y towards +x, radians in [0, 2 pi).
float heading_of(float hx, float hy) {
    if (hx == 0.0f && hy < 0.0f) return kHeadingMinusY;
    if (hx == 0.0f && hy >= 0.0f) return 0.0f;
    if (hy == 0.0f && hx < 0.0f) return kHeadingMinusX;
    if (hy == 0.0f && hx > 0.0f) return kHeadingPlusX;
    const float q = hy / hx;
    if (hx < 0.0f) return static_cast<float>(kThreeQuarterTurn - std::atan(static_cast<double>(q)));
    if (hx > 0.0f) return static_cast<float>(kQuarterTurn - std::atan(static_cast<double>(q)));
    // Only a non-number reaches here (hx NaN, or hx = 0 with hy NaN): the field has
    // no direction, so neither has the heading. NaN, like every other quadrant would
    // give for it, so the soft gyroscope's gate refuses the change.
    return std::numeric_limits<float>::quiet_NaN();
}

}  // namespace

extern "C" {

CALMODULE_API void softgy_CalibrationXY(float xy[2]) {
    xy[0] = quarvel::softgy_ring_x.push(xy[0]);
    xy[1] = quarvel::softgy_ring_y.push(xy[1]);
}

CALMODULE_API void softgy_GetOrientationAngles(const float mag[3], const float acc[3],
                                               float angles[3]) {
    float p;
    float r;
    GetPitch(acc, &p);
    GetRoll(acc, &r);

    // Project the field onto the horizontal plane, in double from the float inputs.
    const double mx = static_cast<double>(mag[0]);
    const double my = static_cast<double>(mag[1]);
    const double mz = static_cast<double>(mag[2]);
    const double sin_p = std::sin(static_cast<double>(p));
    const double cos_p = std::cos(static_cast<double>(p));
    const double sin_r = std::sin(static_cast<double>(r));
    const double cos_r = std::cos(static_cast<double>(r));
    float h[2];
    h[0] = static_cast<float>(mx * cos_p + my * sin_r * sin_p + mz * cos_r * sin_p);
    h[1] = static_cast<float>(my * cos_r - mz * sin_r);

    softgy_CalibrationXY(h);

    float pitch;
    float roll;
    GetPitchAngle(acc, &pitch);
    GetRollAngle(acc, &roll);
    angles[0] = heading_of(h[0], h[1]);
    angles[1] = pitch;
    angles[2] = roll;
}

}  // extern "C"
