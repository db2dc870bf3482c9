// Orientation computation: azimuth, pitch and roll in degrees from the latest
// accelerometer (m/s²) and magnetometer (µT) vectors, plus the supervision of the
// magnetometer while the device lies still, which steers the calibration.
//
// How it moves. The computation is either Tracking (run_o = 1) or Holding
// (run_o = 0). It starts Tracking at load: every call computes fresh angles, and
// old_mag follows the smoothed field. A call is "still" when no accelerometer axis
// moved by 0.3 m/s² or more since the previous call; the 40th still call in a row
// enters Holding. While Holding the output repeats the last angles, old_mag stays
// frozen as the reference, and every call compares the field with it: a jump above
// 5 µT on some axis counts as a disturbance (small, medium or large band); none in
// the small band means the field is back, and the calibration request is dropped.
// Counted disturbances, or one jump of 2000 or more, set cali_ret, which makes the
// calibration restart on every call while it stays 1. Half of a small jump is left
// in noise_mag_delta for the calibration to subtract. Any movement returns to
// Tracking in the same call and clears the still-call count, the disturbance
// counts (except the large-band one) and cali_ret. Independently of the state,
// every call tells the calibration through cali_flag whether some accelerometer
// axis reads at least 200/1024 g upwards; if none does (face down, for example)
// no sample is admitted.
//
// Bad input: a call whose acceleration has no direction (NaN, or too small to square)
// or whose field is no reading (NaN, infinite, beyond any chip) is refused like an
// all-zero one. An infinite acceleration is clamped to one g like any other. There
// are no float-to-integer conversions and no indexes derived from the inputs.
#include <cmath>

#include "calmodule/magcal.h"
#include "calmodule/orientation.h"
#include "magcal/calibration_state.h"
#include "orientation/compass.h"
#include "orientation/orientation_internal.h"

extern "C" {

CALMODULE_API float old_acc[3] = {0.0f, 0.0f, 0.0f};
CALMODULE_API float old_mag[3] = {0.0f, 0.0f, 0.0f};
CALMODULE_API int16_t run_o = 1;
CALMODULE_API int16_t run_ret = 0;
CALMODULE_API int16_t noise_mag = 0;
CALMODULE_API int16_t noise_mag_flag = 0;
CALMODULE_API int16_t noise_mag_fflag = 0;
CALMODULE_API int16_t noise_flag_t = 0;
CALMODULE_API float o_values[3] = {0.0f, 0.0f, 0.0f};
CALMODULE_API float m_orientation[3] = {0.0f, 0.0f, 0.0f};
CALMODULE_API int16_t RunOriAngles = 0;
// (x, y, z) -> (y, z, -x) for the field and (-x, -y, z) for gravity: the axes the
// reference heading of GetAzimuth expects.
CALMODULE_API int32_t MagTrsfMatrix[9] = {0, 1, 0, 0, 0, 1, -1, 0, 0};
CALMODULE_API int32_t AccTrsfMatrix[9] = {-1, 0, 0, 0, -1, 0, 0, 0, 1};

}  // extern "C"

namespace quarvel {
namespace {

constexpr float kStandardGravity = 9.8f;                 // m/s² taken as one g

constexpr float kStillChange = 0.3f;     // m/s² per axis between calls
constexpr int16_t kStillCallsToHold = 40;  // the 40th still call holds
constexpr int16_t kStillCountLimit = 100;

// Field jumps against the frozen reference, µT.
constexpr float kSmallJump = 5.0f;
constexpr float kMediumJump = 40.0f;
constexpr float kLargeJump = 1000.0f;
constexpr float kHugeJump = 2000.0f;
// Disturbance counts that raise a calibration restart.
constexpr int16_t kLargeJumpCalls = 99;    // the 100th large-band call
constexpr int16_t kMediumJumpCalls = 300;
constexpr int16_t kSmallJumpCalls = 500;
// The half-difference is kept only for a field this small on every axis, µT.
constexpr float kDeltaFieldLimit = 150.0f;

// Some accelerometer axis must read at least 200/1024 g (0.195 g) upwards for
// the calibration to take samples.
constexpr float kUpwardsForSampling = 200.0f;
constexpr float kGScale = 1024.0f;

// Tilts beyond this many degrees skip the heading correction.
constexpr float kSteepDegrees = 60.0f;

struct AzimuthCorrection {
    float above;  // degrees, exclusive
    float below;  // degrees, exclusive
    float add;    // degrees
};
// Fixed heading corrections between the cardinal and intercardinal points.
constexpr AzimuthCorrection kCorrections[] = {
    {30.0f, 40.0f, 8.0f},     {50.0f, 60.0f, -8.0f},    {75.0f, 85.0f, 10.0f},
    {95.0f, 105.0f, -8.0f},   {120.0f, 130.0f, 18.0f},  {140.0f, 150.0f, -8.0f},
    {165.0f, 175.0f, 10.0f},  {185.0f, 195.0f, -8.0f},  {210.0f, 220.0f, 8.0f},
    {230.0f, 240.0f, -12.0f}, {255.0f, 265.0f, 8.0f},   {275.0f, 290.0f, -18.0f},
    {300.0f, 310.0f, 8.0f},   {320.0f, 330.0f, -14.0f},
};

bool all_zero(const float *v) { return v[0] == 0.0f && v[1] == 0.0f && v[2] == 0.0f; }

// Accelerometer reading (m/s²) in g, clamped to one g per axis.
float in_g(float a) {
    float g = a / kStandardGravity;
    if (g > 1.0f) g = 1.0f;
    if (g < -1.0f) g = -1.0f;
    return g;
}

// Field change against the frozen reference on one axis, recomputed from the
// current `mag` at each band.
float jump(const float *mag, const float *reference, int axis) { return fabsf(mag[axis] - reference[axis]); }

// Row-major integer remap; each row summed in single precision from 0.
void remap(const int32_t *m, const float *v, float *r) {
    for (int row = 0; row < 3; ++row) {
        float sum = 0.0f;
        for (int col = 0; col < 3; ++col) sum += static_cast<float>(m[3 * row + col]) * v[col];
        r[row] = sum;
    }
}

}  // namespace

const SupervisionState exported_supervision = {old_acc, old_mag, run_o, run_ret, noise_mag,
                                               noise_mag_flag, noise_mag_fflag, noise_flag_t,
                                               cali_ret, noise_mag_delta};

// Steps 2 to 7 of a call: stillness, and the field supervision while Holding.
void supervise(const SupervisionState &s, float *mag, const float *acc) {
    // Stillness.
    const bool still = fabsf(acc[0] - s.old_acc[0]) < kStillChange &&
                       fabsf(acc[1] - s.old_acc[1]) < kStillChange &&
                       fabsf(acc[2] - s.old_acc[2]) < kStillChange;
    if (still) {
        if (s.run_ret < kStillCountLimit) ++s.run_ret;
        if (s.run_ret >= kStillCallsToHold) s.run_o = 0;
    } else {
        s.run_ret = 0;
        s.noise_flag_t = 0;
        s.noise_mag = 0;
        s.noise_mag_flag = 0;
        s.cali_ret = 0;
        s.run_o = 1;
    }

    // Jump bands against the frozen reference, only while Holding.
    if (s.run_o == 0) {
        bool small = false;
        for (int i = 0; i < 3; ++i) {
            const float d = jump(mag, s.old_mag, i);
            small = small || (kSmallJump < d && d < kMediumJump);
        }
        if (small) {
            ++s.noise_mag;
            s.noise_flag_t = 1;
        } else {
            // The field is back where it was: forget the disturbance and carry on
            // with the reference itself (every later band then sees no change).
            s.noise_mag = 0;
            s.noise_mag_flag = 0;
            s.cali_ret = 0;
            for (int i = 0; i < 3; ++i) mag[i] = s.old_mag[i];
        }

        bool medium = false;
        for (int i = 0; i < 3; ++i) {
            const float d = jump(mag, s.old_mag, i);
            medium = medium || (kMediumJump <= d && d < kLargeJump);
        }
        if (medium) {
            ++s.noise_mag_flag;
            s.noise_flag_t = 1;
        }

        // On x the band bounds are inclusive below; on y and z exclusive.
        const float dx = jump(mag, s.old_mag, 0);
        const float dy = jump(mag, s.old_mag, 1);
        const float dz = jump(mag, s.old_mag, 2);
        const bool large = (kLargeJump <= dx && dx < kHugeJump) ||
                           (kLargeJump < dy && dy < kHugeJump) ||
                           (kLargeJump < dz && dz < kHugeJump);
        if (large) {
            ++s.noise_mag_fflag;
            s.noise_flag_t = 1;
        }

        if (jump(mag, s.old_mag, 0) >= kHugeJump || jump(mag, s.old_mag, 1) > kHugeJump ||
            jump(mag, s.old_mag, 2) > kHugeJump) {
            s.noise_flag_t = 1;
            s.cali_ret = 1;
        }
    }

    if (s.noise_mag_fflag > kLargeJumpCalls) {
        s.noise_mag_fflag = 0;
        s.cali_ret = 1;
    }
    if (s.noise_mag_flag >= kMediumJumpCalls) {
        s.noise_mag_flag = 0;
        s.cali_ret = 1;
    }

    // Half of the disturbance, for the calibration to take off its output.
    if (s.run_o == 0 && s.noise_flag_t == 1 && fabsf(mag[0]) < kDeltaFieldLimit &&
        fabsf(mag[1]) < kDeltaFieldLimit && fabsf(mag[2]) < kDeltaFieldLimit) {
        for (int i = 0; i < 3; ++i) s.noise_mag_delta[i] = (mag[i] - s.old_mag[i]) * 0.5f;
    }

    if (s.noise_mag >= kSmallJumpCalls) {
        s.noise_mag = 0;
        s.cali_ret = 1;
    }
}

float apply_correction_table(float A) {
    for (const AzimuthCorrection &row : kCorrections) {
        if (row.above < A && A < row.below) return A + row.add;
    }
    return A;
}

float blend_with_reference(float A, float R) {
    // Near north the shifts pull A off the seam, and A is averaged with R only when
    // both sit on the same side of it. Elsewhere R is averaged in wherever it lies,
    // with no wrap-around handling (25 and 355 give 190).
    if (5.0f < A && A < 13.0f) A = A - 5.0f;
    if (340.0f < A && A < 355.0f) A = A + 5.0f;
    if (20.0f < A && A < 340.0f) A = (A + R) * 0.5f;
    if (5.0f < A && A <= 20.0f && 5.0f < R && R <= 20.0f) A = (A + R) * 0.5f;
    if (340.0f < A && A < 355.0f && 340.0f < R && R < 355.0f) A = (A + R) * 0.5f;
    return A;
}

}  // namespace quarvel

extern "C" CALMODULE_API void get_oritation_values(float *mag, float *acc, float *out) {
    using namespace quarvel;

    // 1. Nothing to work with: no state changes, no output.
    if (all_zero(acc)) return;
    if (all_zero(mag)) return;
    // Nor is there in an acceleration without a direction (NaN, or too small to
    // square: unit gravity would be 0/0), nor in a field that is no reading (NaN,
    // infinite, beyond any chip). Either would stay in the heading low-pass for good.
    // Gravity in g, clamped to one g per axis; its squares summed y, x, z.
    // In single precision, as the rotation vector and the soft gyroscope convert the
    // same readings to g: the three families agree on what one reading is in g.
    float g[3] = {in_g(acc[0]), in_g(acc[1]), in_g(acc[2])};
    const float g_square = g[1] * g[1] + g[0] * g[0] + g[2] * g[2];
    if (!(g_square > 0.0f)) return;
    if (!plausible_field(mag[0]) || !plausible_field(mag[1]) || !plausible_field(mag[2])) return;

    // 2.-7. Stillness, Holding and the field supervision.
    const SupervisionState &state = exported_supervision;
    supervise(state, mag, acc);

    // 8.-9. The sampling permission, from gravity in 1/1024 g.
    float scaled[3];
    for (int i = 0; i < 3; ++i) scaled[i] = g[i] * kGScale;
    cali_flag = (scaled[0] < kUpwardsForSampling && scaled[1] < kUpwardsForSampling &&
                 scaled[2] < kUpwardsForSampling)
                    ? 0
                    : 1;

    // 11. Tracking computes fresh angles; Holding skips this and repeats the last
    //     output.
    if (state.run_o == 1) {
        // 10. Remapped axes for the reference heading, from the unsmoothed field.
        float acc_remapped[3];
        remap(AccTrsfMatrix, scaled, acc_remapped);

        // 12. Reference heading R in degrees; stays 0 when GetAzimuth has none.
        //     The field is smoothed for GetAzimuth (remapped) and for
        //     GetOrientationAngles (as it is), by one push where one serves both.
        float R = 0.0f;
        float mag_remapped[3];
        const bool smoothed = smooth_field_and_remapped(mag, MagTrsfMatrix, mag_remapped);
        if (smoothed) {
            azimuth_of_smoothed(acc_remapped, mag_remapped, &R);
        } else {
            remap(MagTrsfMatrix, mag, mag_remapped);
            azimuth_reference(acc_remapped, mag_remapped, &R);
        }

        // 13. Unit gravity; the squares summed y, x, z.
        const float n = sqrtf(g_square);
        for (float &gi : g) gi = gi / n;

        // 14. Heading, pitch and roll in radians; `mag` comes back smoothed.
        float angles[3];
        RunOriAngles = 1;
        if (smoothed) {
            angles_of_smoothed(mag, g, angles);
        } else {
            orientation_angles(mag, g, angles);
        }
        RunOriAngles = 0;

        // 15. Degrees, in double precision: azimuth clockwise from north, 0 to 360.
        const float A = static_cast<float>(360.0 - static_cast<double>(angles[0]) * kDegreesPerRadian);
        const float P = static_cast<float>(static_cast<double>(angles[1]) * kDegreesPerRadian);
        const float Q = static_cast<float>(static_cast<double>(angles[2]) * kDegreesPerRadian);
        m_orientation[0] = A;
        m_orientation[1] = P;
        m_orientation[2] = Q;

        // 16.-18. Within 60 degrees of flat, correct the heading and blend in R.
        // (A NaN pitch or roll is neither steep nor within 60 degrees: no table,
        // but the blend.)
        float azimuth = A;
        if (!(fabsf(P) >= kSteepDegrees || fabsf(Q) >= kSteepDegrees)) {
            if (fabsf(P) < kSteepDegrees && fabsf(Q) < kSteepDegrees) azimuth = apply_correction_table(azimuth);
            azimuth = blend_with_reference(azimuth, R);
        }
        o_values[0] = azimuth;
        o_values[1] = P;
        o_values[2] = Q;
    }

    // 19. Output and history.
    for (int i = 0; i < 3; ++i) out[i] = o_values[i];
    for (int i = 0; i < 3; ++i) state.old_acc[i] = acc[i];
    if (state.run_o == 1) {
        for (int i = 0; i < 3; ++i) state.old_mag[i] = mag[i];
    }
}
