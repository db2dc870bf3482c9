// Rotation vector without a gyroscope.
//
// One call is one estimator step on one accelerometer sample and the latest calibrated
// field:
//   accelerometer in g, each axis clamped to +-1 g, normalised
//   -> ten-sample trimmed means (acc and field), then a 0.2 / 0.8 low-pass
//   -> ten gradient-descent steps from the previous quaternion (update_Q)
//   -> Euler angles of the new quaternion (angle_q, degrees)
//   -> blend of the new vector part with the previous output, weighted by heading and
//      roll; the blended vector is published and becomes the next starting quaternion.
// The first accepted call only seeds the previous output; publishing starts with the
// second. Rejected calls (period outside 1..1000, all-zero accelerometer) return the
// last published vector and change nothing. The period is the caller's sampling period;
// we read it as milliseconds (1 ms to 1 s), but only its range matters here.
//
// Bad input: an accelerometer sample without a direction (NaN, or too small to
// square) is rejected like an all-zero one; an infinite one is clamped like any
// other. The field comes from the calibration driver, which admits only plausible
// fields. So every state below stays finite and a bad sample is forgotten at once.
#include <cmath>

#include "fusion/rv_state.h"
#include "magcal/calibration_state.h"

extern "C" {
CALMODULE_API float update_Q[4] = {1.0f, 0.0f, 0.0f, 0.0f};
CALMODULE_API float m_rvector[3] = {0.0f, 0.0f, 0.0f};
CALMODULE_API float angle_q[3] = {0.0f, 0.0f, 0.0f};
CALMODULE_API int16_t q_l_flag = 0;
CALMODULE_API float q_l_old[3] = {0.0f, 0.0f, 0.0f};
CALMODULE_API int16_t RunRVFlag = 0;
}

namespace {

using quarvel::BlendWeights;

constexpr int32_t kMinPeriod = 1;     // accepted sampling periods, inclusive
constexpr int32_t kMaxPeriod = 1000;
constexpr float kOneG = 9.8f;         // m/s^2 per g for the accelerometer direction
constexpr quarvel::LowPassWeights kInputLowPass = {0.2f, 0.8f};  // new sample, state
constexpr float kDescentStep = 0.02f; // quaternion distance per gradient step
constexpr float kHalfTurn = 3.1416f;  // this family's pi, radians

// Blend bands, degrees. Heading bands are closed at the top up to 162 degrees; the two
// last bands are open at both ends, so 168 and 174 and above take no blend.
struct Band {
    float low;
    float high;
    bool low_closed;
    bool high_closed;
    BlendWeights w;
};

constexpr Band kHeadingBands[] = {
    {0.0f, 120.0f, true, true, {0.9f, 0.1f}},
    {120.0f, 126.0f, false, true, {0.8f, 0.2f}},
    {126.0f, 132.0f, false, true, {0.7f, 0.3f}},
    {132.0f, 138.0f, false, true, {0.6f, 0.4f}},
    {138.0f, 144.0f, false, true, {0.5f, 0.5f}},
    {144.0f, 150.0f, false, true, {0.4f, 0.6f}},
    {150.0f, 156.0f, false, true, {0.3f, 0.7f}},
    {156.0f, 162.0f, false, true, {0.2f, 0.8f}},
    {162.0f, 168.0f, false, false, {0.1f, 0.9f}},
    {168.0f, 174.0f, false, false, {0.05f, 0.95f}},
};

// Roll bands, used upside down (|roll| from 134 degrees) and at roll exactly 0, where
// no band matches. There is no even split.
constexpr Band kRollBands[] = {
    {134.0f, 137.0f, true, false, {0.9f, 0.1f}},
    {137.0f, 140.0f, true, false, {0.8f, 0.2f}},
    {140.0f, 143.0f, true, false, {0.7f, 0.3f}},
    {143.0f, 147.0f, true, false, {0.6f, 0.4f}},
    {147.0f, 150.0f, true, false, {0.4f, 0.6f}},
    {150.0f, 156.0f, true, false, {0.3f, 0.7f}},
    {156.0f, 162.0f, true, false, {0.2f, 0.8f}},
    {162.0f, 168.0f, true, false, {0.1f, 0.9f}},
    {168.0f, 174.0f, true, false, {0.05f, 0.95f}},
};

constexpr float kRollLimit = 134.0f;  // below this tilt the heading decides the blend

// The signed angle against the band and its mirror image; NaN matches nothing.
bool in_band(float angle, const Band &b) {
    const bool above_low = b.low_closed ? angle >= b.low : angle > b.low;
    const bool below_high = b.high_closed ? angle <= b.high : angle < b.high;
    const bool above_neg_high = b.high_closed ? angle >= -b.high : angle > -b.high;
    const bool below_neg_low = b.low_closed ? angle <= -b.low : angle < -b.low;
    return (above_low && below_high) || (above_neg_high && below_neg_low);
}

template <int N>
bool lookup(const Band (&bands)[N], float angle, BlendWeights *w) {
    for (const Band &b : bands) {
        if (in_band(angle, b)) {
            *w = b.w;
            return true;
        }
    }
    return false;
}

// Euler angle in degrees: the inverse trigonometry and the scaling in double.
float degrees(double radians) {
    return static_cast<float>(radians * 180.0 / static_cast<double>(kHalfTurn));
}

}  // namespace

namespace quarvel {

RvLowPass rv_low_pass;

bool rv_blend_weights(float heading, float roll, BlendWeights *w) {
    const bool upright = (roll > 0.0f && roll < kRollLimit) || (roll < 0.0f && roll > -kRollLimit);
    return upright ? lookup(kHeadingBands, heading, w) : lookup(kRollBands, roll, w);
}

}  // namespace quarvel

extern "C" {

CALMODULE_API void get_rv_value(const float acc[3], const int32_t *period, float out[3]) {
    using quarvel::rv_low_pass;

    // 1. Busy marker for the gravity functions; identity as the descent's fallback.
    RunRVFlag = 1;
    float q[4] = {1.0f, 0.0f, 0.0f, 0.0f};

    // 4. Accelerometer direction: g units, each axis clamped to +-1 g, then unit length.
    float a[3];
    for (int i = 0; i < 3; ++i) {
        a[i] = acc[i] / kOneG;
        if (a[i] > 1.0f) a[i] = 1.0f;
        if (a[i] < -1.0f) a[i] = -1.0f;
    }
    const float a_sq = a[0] * a[0] + a[1] * a[1] + a[2] * a[2];

    // 2.-3. Rejected samples return the last published vector. A sample whose square
    //       is zero (underflow included) or NaN has no direction: normalising it would
    //       put 0/0 into the smoothing rings and the low-pass state for good.
    const bool period_ok = *period >= kMinPeriod && *period <= kMaxPeriod;
    if (!period_ok || (acc[0] == 0.0f && acc[1] == 0.0f && acc[2] == 0.0f) || !(a_sq > 0.0f)) {
        for (int i = 0; i < 3; ++i) out[i] = m_rvector[i];
        RunRVFlag = 0;
        return;
    }
    const float a_norm = static_cast<float>(std::sqrt(static_cast<double>(a_sq)));
    for (float &c : a) c = c / a_norm;

    // 5. The calibrated field in the accelerometer's axes: x and y exchanged.
    float m[3] = {quarvel::cali_mag_values[1], quarvel::cali_mag_values[0],
                  quarvel::cali_mag_values[2]};

    // 6. Spike removal.
    acc_calibration_func(a);
    mag_calibration_func(m);

    // 7. Low-pass, seeded by the first smoothed sample.
    rv_low_pass.acc.filter(a, kInputLowPass);
    rv_low_pass.mag.filter(m, kInputLowPass);

    // 8.-9. Refine the previous attitude.
    GradientDescent(a, m, update_Q, kDescentStep, q);
    for (int i = 0; i < 4; ++i) update_Q[i] = q[i];

    // 10. Heading (about z), pitch (about y), roll (about x) of the new estimate.
    const float q0 = q[0], q1 = q[1], q2 = q[2], q3 = q[3];
    const float heading_y = 2.0f * (q0 * q3 + q1 * q2);
    const float heading_x = q0 * q0 + q1 * q1 - q2 * q2 - q3 * q3;
    const float pitch_s = -2.0f * (q1 * q3 - q0 * q2);
    const float roll_y = 2.0f * (q0 * q1 + q2 * q3);
    const float roll_x = q0 * q0 - q1 * q1 - q2 * q2 + q3 * q3;
    angle_q[0] = degrees(std::atan2(static_cast<double>(heading_y), static_cast<double>(heading_x)));
    angle_q[1] = degrees(std::asin(static_cast<double>(pitch_s)));
    angle_q[2] = degrees(std::atan2(static_cast<double>(roll_y), static_cast<double>(roll_x)));

    // 11. The unblended rotation vector.
    out[0] = q1;
    out[1] = q2;
    out[2] = q3;

    // 12. The first output only becomes the blend partner.
    if (q_l_flag == 0) {
        for (int i = 0; i < 3; ++i) q_l_old[i] = out[i];
        q_l_flag = 1;
        RunRVFlag = 0;
        return;
    }

    // 13. Blend with the previous output.
    quarvel::BlendWeights w;
    if (quarvel::rv_blend_weights(angle_q[0], angle_q[2], &w)) {
        for (int i = 0; i < 3; ++i) out[i] = q[i + 1] * w.w_new + q_l_old[i] * w.w_old;
    }

    // 14. Publish, and restart the next descent from the published attitude with a
    //     non-negative scalar part.
    for (int i = 0; i < 3; ++i) {
        q_l_old[i] = out[i];
        m_rvector[i] = out[i];
        update_Q[i + 1] = out[i];
    }
    //     Rounding can push the blended vector part just past unit length half a turn
    //     away; its scalar part is then 0, not the NaN of a negative square root.
    const float scalar_sq = 1.0f - out[0] * out[0] - out[1] * out[1] - out[2] * out[2];
    update_Q[0] = sqrtf(scalar_sq > 0.0f ? scalar_sq : 0.0f);

    RunRVFlag = 0;
}

}  // extern "C"
