// Heading, pitch and roll in radians from a magnetometer vector and a unit gravity
// vector, both in the device's own axes.
#include <cmath>
#include <limits>

#include "calmodule/orientation.h"
#include "magcal/magcal_internal.h"
#include "orientation/heading.h"

namespace quarvel {

HeadingLowPass ori_lp;

namespace {
// Quarter, half and three-quarter turns from the family's pi of 3.1415926. The float
// constants are the floats nearest to the derived values (3.1415925, 1.5707963,
// 4.712389). The doubles are the decimal values 1.5707963 and 4.7123889 as written:
// 3.0 * 3.1415926 / 2.0 evaluated in double is one ulp above 4.7123889.
constexpr float kHalfTurnF = 3.1415926f;
constexpr float kQuarterTurnF = 1.5707963f;
constexpr float kThreeQuarterTurnF = 4.7123889f;
constexpr double kQuarterTurn = 1.5707963;
constexpr double kThreeQuarterTurn = 4.7123889;
}  // namespace

float orientation_heading_radians(float X, float Y) {
    if (X == 0.0f && Y < 0.0f) return kHalfTurnF;
    if (X == 0.0f && Y > 0.0f) return 0.0f;
    if (Y == 0.0f && X < 0.0f) return kThreeQuarterTurnF;
    if (Y == 0.0f && X > 0.0f) return kQuarterTurnF;
    if (X < 0.0f) return static_cast<float>(kThreeQuarterTurn - std::atan(static_cast<double>(Y / X)));
    if (X > 0.0f) return static_cast<float>(kQuarterTurn - std::atan(static_cast<double>(Y / X)));
    if (X == 0.0f && Y == 0.0f) return 0.0f;  // no horizontal field: read as north
    // Only a non-number reaches here (X NaN, or X = 0 with Y NaN): the field has no
    // direction, and neither has the heading. NaN, as every quadrant would give for it;
    // the soft gyroscope's gate then refuses the change, and the orientation output
    // carries it as the IEEE value it is.
    return std::numeric_limits<float>::quiet_NaN();
}

}  // namespace quarvel

extern "C" CALMODULE_API void GetOrientationAngles(float mag[3], const float g[3], float out[3]) {
    // 1. Smooth the field in place: the caller keeps the smoothed vector.
    CalibrationXYZ(mag);

    // 2. Tilt angles for the compensation.
    float p = 0.0f;
    float r = 0.0f;
    GetPitch(g, &p);
    GetRoll(g, &r);

    // 3. Horizontal field in double precision, terms summed in this order.
    const double pd = static_cast<double>(p);
    const double rd = static_cast<double>(r);
    const double mx = static_cast<double>(mag[0]);
    const double my = static_cast<double>(mag[1]);
    const double mz = static_cast<double>(mag[2]);
    const double sin_p = std::sin(pd);
    const double hx = mx * std::cos(pd) + (my * std::sin(rd)) * sin_p + (mz * std::cos(rd)) * sin_p;
    const double hy = my * std::cos(rd) - mz * std::sin(rd);
    // Fields near the float limit can project beyond it: infinity then, as the
    // hardware rounds, rather than an undefined conversion.
    float horizontal[2] = {quarvel::narrow_to_float(hx), quarvel::narrow_to_float(hy)};

    // 4.-5. Trimmed mean, then the 0.8/0.2 low-pass.
    CalibrationXY(horizontal);
    quarvel::ori_lp.update(horizontal[0], horizontal[1]);

    // 6.-8. Heading of the low-passed pair; reported pitch and roll.
    out[0] = quarvel::orientation_heading_radians(quarvel::ori_lp.x, quarvel::ori_lp.y);
    GetPitchAngle(g, &out[1]);
    GetRollAngle(g, &out[2]);
}
