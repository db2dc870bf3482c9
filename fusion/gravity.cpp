// Gravity and linear acceleration from the rotation-vector estimate: the earth-frame
// gravity reference turned into the device frame by the current quaternion, and the
// accelerometer sample minus that.
//
// Both entry points run an estimator step of their own first, unless one is visibly in
// progress (RunRVFlag): a caller wanting several outputs for one sample still feeds
// the sample once per call.
#include "calmodule/fusion.h"

namespace {

// Earth-frame gravity as an accelerometer at rest reads it, m/s^2.
constexpr float kGravity = 9.79f;
const float gravity_ref[3] = {0.0f, 0.0f, kGravity};
// The latest device-frame gravity vector, m/s^2.
float gravity_vec[3] = {0.0f, 0.0f, kGravity};

void update_gravity(const float acc[3], const int32_t *period) {
    if (RunRVFlag == 0) {
        float rotation_vector[3];
        get_rv_value(acc, period, rotation_vector);
    }
    const float q[4] = {update_Q[0], update_Q[1], update_Q[2], update_Q[3]};
    float earth_to_device[9];
    Quat2DCM(q, earth_to_device);
    mat_prod31(earth_to_device, gravity_ref, gravity_vec);
}

}  // namespace

extern "C" {

CALMODULE_API void get_gravity_value(const float acc[3], const int32_t *period, float out[3]) {
    update_gravity(acc, period);
    for (int i = 0; i < 3; ++i) out[i] = gravity_vec[i];
}

CALMODULE_API void get_la_value(const float acc[3], const int32_t *period, float out[3]) {
    update_gravity(acc, period);
    for (int i = 0; i < 3; ++i) out[i] = acc[i] - gravity_vec[i];
}

// The diagonal is written 2(q0^2 + qi^2) - 1, equal to the textbook form only for a
// unit quaternion; q is used as it comes.
CALMODULE_API void Quat2DCM(const float q[4], float out[9]) {
    const float q0 = q[0], q1 = q[1], q2 = q[2], q3 = q[3];
    out[0] = 2.0f * (q0 * q0 + q1 * q1) - 1.0f;
    out[1] = 2.0f * (q1 * q2 + q0 * q3);
    out[2] = 2.0f * (q1 * q3 - q0 * q2);
    out[3] = 2.0f * (q1 * q2 - q0 * q3);
    out[4] = 2.0f * (q0 * q0 + q2 * q2) - 1.0f;
    out[5] = 2.0f * (q2 * q3 + q0 * q1);
    out[6] = 2.0f * (q1 * q3 + q0 * q2);
    out[7] = 2.0f * (q2 * q3 - q0 * q1);
    out[8] = 2.0f * (q0 * q0 + q3 * q3) - 1.0f;
}

CALMODULE_API void mat_prod31(const float m[9], const float v[3], float out[3]) {
    for (int i = 0; i < 3; ++i) {
        float sum = 0.0f;
        for (int j = 0; j < 3; ++j) sum += m[3 * i + j] * v[j];
        out[i] = sum;
    }
}

}  // extern "C"
