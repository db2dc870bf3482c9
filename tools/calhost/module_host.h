// Loads a calibration module the way an Android sensors HAL does: dlopen by path,
// resolve the descriptor `scmi` by name, call init, fetch the algorithm table, and from
// then on reach every algorithm only through its method table. The module's further
// exported families (rotation vector, gravity, soft gyroscope, accessors) are resolved
// by name too, each one optional: a build that lacks one simply has no such output.
#ifndef CALHOST_MODULE_HOST_H
#define CALHOST_MODULE_HOST_H

#include <cstdint>
#include <stdexcept>
#include <string>

#include "calmodule/magcal.h"
#include "calmodule/module.h"
#include "param_sandbox.h"

namespace calhost {

// The module could not be loaded, or what was loaded is no calibration module.
class ModuleError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The path of the module built together with calhost.
const char *default_module_path();

// The calibration's exported state, read after every magnetometer event to say why a
// phone does or does not calibrate. Each pointer is null when the build lacks the name.
struct CalibrationState {
    const magcal_record *msensor = nullptr;   // Msensor: held fits and the sample buffer
    const float *latest_offset = nullptr;     // LatestOffset, µT
    const std::int16_t *cali_flag = nullptr;  // 0: sample collection stopped (face down)
    const std::int16_t *cali_ret = nullptr;   // 1: restart requested (disturbance while still)
    const std::int16_t *noise_flag = nullptr; // off-shell readings since the last report
    const std::int32_t *noise_count = nullptr;      // noiseCount: implausible readings
    const std::int16_t *l_noise_count = nullptr;    // l_noiseCount: gross readings
    const std::int32_t *optimal_flag = nullptr;     // optimalFlag
    const std::int16_t *run_o = nullptr;            // 0 while the orientation holds (device still)
};

using VectorFn = void (*)(const float acc[3], const std::int32_t *period, float out[3]);

class Module {
public:
    // Loads and initialises; throws ModuleError with a message an integrator can act on.
    // Every file the module opens during a call goes to `files` (see param_sandbox.h),
    // which must outlive the module: its deinit still runs inside it.
    Module(const std::string &path, ParamFileSandbox &files);
    ~Module();  // deinit (the module only logs), then dlclose
    Module(const Module &) = delete;
    Module &operator=(const Module &) = delete;

    const std::string &path() const { return path_; }
    const cal_module_info &info() const { return *info_; }
    const cal_algo *algos() const { return algos_; }
    unsigned algo_count() const { return info_->number; }
    // The first record bound to `type`, or null.
    const cal_algo *algo_for(int type) const;

    int convert(const cal_algo *algo, const sensors_event_t &in, sensors_event_t *out) const;
    int config(const cal_algo *algo, int cmd, std::int32_t enable, std::int32_t poll_rate) const;

    // Optional exported families; null when the build lacks them.
    VectorFn gravity_fn() const { return gravity_; }
    VectorFn soft_gyro_fn() const { return soft_gyro_; }
    const float *rotation_vector() const { return m_rvector_; }  // m_rvector, 3 floats
    const magcal_record *msensor() const { return state_.msensor; }
    const CalibrationState &calibration_state() const { return state_; }
    bool has_offset_accessor() const { return get_offset_ != nullptr; }

    void gravity(const float acc[3], std::int32_t period, float out[3]) const;
    void soft_gyro(const float acc[3], std::int32_t period, float out[3]) const;
    bool magnetic_offset(float out[3]) const;

private:
    std::string path_;
    ParamFileSandbox &files_;
    void *handle_ = nullptr;
    const cal_module_info *info_ = nullptr;
    const cal_algo *algos_ = nullptr;
    VectorFn gravity_ = nullptr;
    VectorFn soft_gyro_ = nullptr;
    const float *m_rvector_ = nullptr;
    CalibrationState state_;
    void (*get_offset_)(float *) = nullptr;
};

}  // namespace calhost

#endif
