// Soft gyroscope: stands in for a gyroscope on devices without one. Each call takes
// the orientation from the raw acceleration and the latest calibrated field, compares
// it with a snapshot taken every third call, low-pass filters the change and reports
// a large change on one axis alone, small changes only after a quiet spell.
//
// The values are angle changes in degrees between snapshot and call, not rates: the
// caller sets the time base by how often it calls.
#include <cmath>
#include <cstdint>

#include "calmodule/softgyro.h"
#include "magcal/calibration_state.h"
#include "orientation/compass.h"
#include "softgyro/softgyro_state.h"

namespace quarvel {

SeededLowPass<3> rota_filter;  // azimuth, pitch, roll

}  // namespace quarvel

extern "C" {
CALMODULE_API float gyro_values_static[3] = {0.0f, 0.0f, 0.0f};
CALMODULE_API float old_rota[3] = {0.0f, 0.0f, 0.0f};
CALMODULE_API int16_t lock_temp = 0;
CALMODULE_API int16_t or_flag = 0;
CALMODULE_API int16_t game_flag = 0;
}

namespace {

constexpr int32_t kPeriodMin = 1;
constexpr int32_t kPeriodMax = 1000;
constexpr float kGravity = 9.8f;                      // m/s² per g
constexpr double kFullTurn = 360.0;
constexpr float kGate = 35.0f;              // degrees; larger steps are not rotations
constexpr quarvel::LowPassWeights kChangeSmoothing = {0.2f, 0.8f};
constexpr float kTiltThreshold = 1.5f;      // degrees, pitch and roll
constexpr float kAzimuthThreshold = 1.8f;   // degrees
constexpr int16_t kQuietCalls = 3;
constexpr int16_t kLockCeiling = 10;
constexpr float kTiltLimit = 3.0f;          // m/s² on raw x or y
constexpr int16_t kSnapshotSpacing = 3;

float clamp_unit(float v) {
    if (v > 1.0f) return 1.0f;
    if (v < -1.0f) return -1.0f;
    return v;  // NaN passes through unchanged
}

bool beyond(float v, float limit) { return std::fabs(v) > limit; }

void write_zero(float result[3]) {
    result[0] = 0.0f;
    result[1] = 0.0f;
    result[2] = 0.0f;
}

}  // namespace

extern "C" {

CALMODULE_API void get_soft_gyro_value(const float acc[3], const int32_t *period, float result[3]) {
    using quarvel::kDegreesPerRadian;

    if (result == nullptr) return;
    // A missing period or vector is refused like a period out of range.
    if (acc == nullptr || period == nullptr || *period < kPeriodMin || *period > kPeriodMax) {
        write_zero(result);
        return;
    }

    // Gravity direction: in g, clamped to +-1 g per axis, then scaled to unit length.
    // Single precision throughout, g taken as the float 9.8.
    float unit[3];
    for (int i = 0; i < 3; ++i) unit[i] = clamp_unit(acc[i] / kGravity);
    const float length = sqrtf(unit[1] * unit[1] + unit[0] * unit[0] + unit[2] * unit[2]);
    // A zero vector (or one too small to square) has no direction: 0/0 would feed
    // non-numbers into the snapshot and the heading history and gate out the calls
    // after it. Such a sample is refused like a period out of range: (0, 0, 0), no
    // state touched.
    if (length == 0.0f) {
        write_zero(result);
        return;
    }
    for (float &c : unit) c = c / length;

    float mag[3] = {quarvel::cali_mag_values[0], quarvel::cali_mag_values[1],
                    quarvel::cali_mag_values[2]};
    float angles[3];  // heading, pitch, roll in radians
    quarvel::soft_gyro_angles(mag, unit, angles);

    game_flag = 0;

    const float azimuth =
        static_cast<float>(kFullTurn - static_cast<double>(angles[0]) * kDegreesPerRadian);
    const float pitch = static_cast<float>(static_cast<double>(angles[1]) * kDegreesPerRadian);
    const float roll = static_cast<float>(static_cast<double>(angles[2]) * kDegreesPerRadian);

    // Older minus newer: positive when the angle has decreased since the snapshot.
    const float d_pitch = old_rota[1] - pitch;
    const float d_roll = old_rota[2] - roll;
    const float d_azimuth = old_rota[0] - azimuth;

    // A step of 35 degrees or more is no rotation between two snapshots: it is the
    // azimuth wrapping across 0/360, or a non-number. Either way keep the estimate.
    const bool accepted = std::fabs(d_pitch) < kGate && std::fabs(d_roll) < kGate &&
                          std::fabs(d_azimuth) < kGate;
    if (accepted) {
        // First-order low-pass in single precision, seeded with the first change.
        float filtered[3] = {d_azimuth, d_pitch, d_roll};
        quarvel::rota_filter.filter(filtered, kChangeSmoothing);
        const float f_azimuth = filtered[0];
        const float f_pitch = filtered[1];
        const float f_roll = filtered[2];

        if (lock_temp < kLockCeiling) lock_temp = static_cast<int16_t>(lock_temp + 1);

        // A large change is reported on its axis alone, roll first; small changes on
        // all axes only once the estimate has been held for the quiet calls.
        if (beyond(f_roll, kTiltThreshold)) {
            gyro_values_static[0] = 0.0f;
            gyro_values_static[1] = f_roll;
            gyro_values_static[2] = 0.0f;
            lock_temp = 0;
        } else if (beyond(f_pitch, kTiltThreshold)) {
            gyro_values_static[0] = f_pitch;
            gyro_values_static[1] = 0.0f;
            gyro_values_static[2] = 0.0f;
            lock_temp = 0;
        } else if (beyond(f_azimuth, kAzimuthThreshold)) {
            gyro_values_static[0] = 0.0f;
            gyro_values_static[1] = 0.0f;
            gyro_values_static[2] = f_azimuth;
            lock_temp = 0;
        } else if (lock_temp >= kQuietCalls) {
            gyro_values_static[0] = f_pitch;
            gyro_values_static[1] = f_roll;
            gyro_values_static[2] = f_azimuth;
        }

        // Strongly tilted (more than about 0.3 g on x or y): the heading is not to be
        // trusted, so no azimuth change is reported.
        if (std::fabs(acc[0]) > kTiltLimit || std::fabs(acc[1]) > kTiltLimit) {
            gyro_values_static[0] = f_pitch;
            gyro_values_static[1] = f_roll;
            gyro_values_static[2] = 0.0f;
            lock_temp = 0;
        }
    }

    result[0] = gyro_values_static[0];
    result[1] = gyro_values_static[1];
    result[2] = gyro_values_static[2];

    // The snapshot is the unfiltered orientation of every third computing call, so a
    // change spans one, two or three calls.
    or_flag = static_cast<int16_t>(or_flag + 1);
    if (or_flag % kSnapshotSpacing == 0) {
        old_rota[0] = azimuth;
        old_rota[1] = pitch;
        old_rota[2] = roll;
        or_flag = 0;
    }
}

}  // extern "C"
