#include "orientation/compass.h"

#include <cmath>
#include <limits>

#include "magcal/magcal_internal.h"

namespace quarvel {

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

void horizontal_field(const float mag[3], float pitch, float roll, float h[2]) {
    const double pd = static_cast<double>(pitch);
    const double rd = static_cast<double>(roll);
    const double mx = static_cast<double>(mag[0]);
    const double my = static_cast<double>(mag[1]);
    const double mz = static_cast<double>(mag[2]);
    const double sin_p = std::sin(pd);
    const double hx = mx * std::cos(pd) + (my * std::sin(rd)) * sin_p + (mz * std::cos(rd)) * sin_p;
    const double hy = my * std::cos(rd) - mz * std::sin(rd);
    // Fields near the float limit can project beyond it: infinity then, as the
    // hardware rounds, rather than an undefined conversion.
    h[0] = narrow_to_float(hx);
    h[1] = narrow_to_float(hy);
}

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
