// The rotation vector, gravity, linear acceleration and soft gyroscope with arbitrary
// accelerometer vectors and periods, between arbitrary magnetometer samples through
// the calibration driver (their field comes from there).
//
// Promises checked: the rotation vector, gravity, the starting quaternion and the
// calibrated field are finite after every call, whatever came in before; linear
// acceleration and the soft gyroscope are finite for every finite accelerometer vector.
#include "calmodule/fusion.h"
#include "calmodule/magcal.h"
#include "calmodule/softgyro.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static void (*const estimators[])(const float *, const int32_t *, float *) = {get_rv_value, get_gravity_value,
                                                                                 get_la_value, get_soft_gyro_value};
    fuzz::fresh_module();
    fuzz::Input input(data, size);
    while (input.more()) {
        const uint8_t op = input.byte();
        const float v[3] = {input.f32(), input.f32(), input.f32()};
        // Mostly periods the estimators accept (1 to 1000 ms), sometimes anything.
        const int32_t period = (op & 0x80) ? input.i32() : 1 + input.byte() % 40;
        float out[3] = {0.0f, 0.0f, 0.0f};
        const int which = op % 5;
        if (which == 0) {
            qv730_run_library(v[0], v[1], v[2]);
            get_magnetic_values(out);
        } else {
            estimators[which - 1](v, &period, out);
        }
        if (which <= 2 || fuzz::finite3(v)) FUZZ_CHECK(fuzz::finite3(out));
        FUZZ_CHECK(fuzz::finite3(update_Q) && std::isfinite(update_Q[3]) && fuzz::finite3(m_rvector));
    }
    return 0;
}
