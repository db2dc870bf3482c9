#include "module_host.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include <fmt/format.h>

#ifndef CALHOST_DEFAULT_MODULE
#define CALHOST_DEFAULT_MODULE "libcalmodule_quarvel.so"
#endif

namespace calhost {
namespace {

// Sandbox state, read by the fopen interposers below. Plain statics: the module is
// driven from one thread.
int g_module_calls = 0;
const std::string *g_redirect = nullptr;
std::uint64_t g_writes = 0;

using FopenFn = std::FILE *(*)(const char *, const char *);

std::FILE *sandboxed_open(FopenFn real, const char *path, const char *mode) {
    if (g_module_calls > 0 && g_redirect && path) {
        if (mode && (mode[0] == 'w' || mode[0] == 'a' || std::strchr(mode, '+'))) ++g_writes;
        path = g_redirect->c_str();
    }
    return real ? real(path, mode) : nullptr;
}

}  // namespace
}  // namespace calhost

// The module opens its parameter file with fopen. calhost is linked with its symbols
// exported, so the dynamic linker binds the module's fopen to these definitions first;
// outside a call into the module they hand straight on to the C library's.
extern "C" std::FILE *fopen(const char *path, const char *mode) {
    static const auto real = reinterpret_cast<calhost::FopenFn>(dlsym(RTLD_NEXT, "fopen"));
    return calhost::sandboxed_open(real, path, mode);
}

extern "C" std::FILE *fopen64(const char *path, const char *mode) {
    static const auto real = reinterpret_cast<calhost::FopenFn>(dlsym(RTLD_NEXT, "fopen64"));
    return calhost::sandboxed_open(real, path, mode);
}

namespace calhost {

const char *default_module_path() { return CALHOST_DEFAULT_MODULE; }

ParamFileSandbox::ParamFileSandbox(const std::string &path) {
    if (path.empty()) {
        const char *tmp = std::getenv("TMPDIR");
        std::string templ = fmt::format("{}/calhost.XXXXXX", (tmp && *tmp) ? tmp : "/tmp");
        if (!::mkdtemp(templ.data())) {
            throw std::runtime_error(fmt::format("cannot create a temporary folder in {}: {}",
                                                 (tmp && *tmp) ? tmp : "/tmp", std::strerror(errno)));
        }
        temp_dir_ = templ;
        path_ = temp_dir_ + "/param.txt";
    } else {
        path_ = path;
    }
    g_redirect = &path_;
    g_writes = 0;
}

ParamFileSandbox::~ParamFileSandbox() {
    g_redirect = nullptr;
    if (!temp_dir_.empty()) {
        std::remove(path_.c_str());
        ::rmdir(temp_dir_.c_str());
    }
}

std::uint64_t ParamFileSandbox::writes() const { return g_writes; }

std::string ParamFileSandbox::content() const {
    std::ifstream in(path_, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

ModuleCall::ModuleCall() { ++g_module_calls; }
ModuleCall::~ModuleCall() { --g_module_calls; }

Module::Module(const std::string &path) : path_(path) {
    if (::access(path.c_str(), R_OK) != 0) {
        throw ModuleError(fmt::format("cannot load module {}: {}", path, std::strerror(errno)));
    }
    // A path without a slash would make dlopen search the library path; the module is
    // named by its file, as a HAL names it.
    const std::string file = path.find('/') == std::string::npos ? "./" + path : path;
    handle_ = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle_) {
        const char *err = dlerror();
        throw ModuleError(fmt::format("cannot load module {}: {}", path, err ? err : "unknown error"));
    }
    auto refuse = [&](const std::string &why) {
        dlclose(handle_);
        handle_ = nullptr;
        return ModuleError(fmt::format("{} is not a calibration module: {}", path, why));
    };
    info_ = static_cast<const cal_module_info *>(dlsym(handle_, "scmi"));
    if (!info_) throw refuse("it exports no descriptor `scmi`");
    if (info_->tag != CALMODULE_MODULE_TAG) {
        throw refuse(fmt::format("its `scmi` carries the tag {:#010x}, not \"scmt\"", info_->tag));
    }
    if (!info_->methods || !info_->methods->init || !info_->methods->get_algo_list) {
        throw refuse("its `scmi` has no init or get-algorithm-list method");
    }
    if (info_->number == 0 || info_->number > 64) {
        throw refuse(fmt::format("its `scmi` announces {} algorithms", info_->number));
    }
    {
        ModuleCall call;
        info_->methods->init();
        if (info_->methods->get_algo_list(&algos_) != 0 || !algos_) {
            throw refuse("its get-algorithm-list method gave no table");
        }
    }
    for (unsigned i = 0; i < info_->number; ++i) {
        const cal_algo &a = algos_[i];
        if (a.tag != CALMODULE_ALGO_TAG) {
            throw refuse(fmt::format("algorithm record {} carries the tag {:#010x}, not \"scat\"", i, a.tag));
        }
        if (!a.methods || !a.methods->convert) throw refuse(fmt::format("algorithm record {} has no convert method", i));
    }
    gravity_ = reinterpret_cast<VectorFn>(dlsym(handle_, "get_gravity_value"));
    soft_gyro_ = reinterpret_cast<VectorFn>(dlsym(handle_, "get_soft_gyro_value"));
    m_rvector_ = static_cast<const float *>(dlsym(handle_, "m_rvector"));
    state_.msensor = static_cast<const magcal_record *>(dlsym(handle_, "Msensor"));
    state_.latest_offset = static_cast<const float *>(dlsym(handle_, "LatestOffset"));
    state_.cali_flag = static_cast<const std::int16_t *>(dlsym(handle_, "cali_flag"));
    state_.cali_ret = static_cast<const std::int16_t *>(dlsym(handle_, "cali_ret"));
    state_.noise_flag = static_cast<const std::int16_t *>(dlsym(handle_, "noise_flag"));
    state_.noise_count = static_cast<const std::int32_t *>(dlsym(handle_, "noiseCount"));
    state_.l_noise_count = static_cast<const std::int16_t *>(dlsym(handle_, "l_noiseCount"));
    state_.optimal_flag = static_cast<const std::int32_t *>(dlsym(handle_, "optimalFlag"));
    state_.run_o = static_cast<const std::int16_t *>(dlsym(handle_, "run_o"));
    get_offset_ = reinterpret_cast<void (*)(float *)>(dlsym(handle_, "get_magnetic_offset"));
}

Module::~Module() {
    if (!handle_) return;
    if (info_->methods->deinit) {
        ModuleCall call;
        info_->methods->deinit();
    }
    dlclose(handle_);
}

const cal_algo *Module::algo_for(int type) const {
    for (unsigned i = 0; i < info_->number; ++i) {
        if (algos_[i].type == type) return &algos_[i];
    }
    return nullptr;
}

int Module::convert(const cal_algo *algo, const sensors_event_t &in, sensors_event_t *out) const {
    ModuleCall call;
    return algo->methods->convert(&in, out);
}

int Module::config(const cal_algo *algo, int cmd, std::int32_t enable, std::int32_t poll_rate) const {
    if (!algo->methods->config) return 0;
    cal_algo_args args{enable, poll_rate};
    ModuleCall call;
    return algo->methods->config(cmd, &args);
}

void Module::gravity(const float acc[3], std::int32_t period, float out[3]) const {
    ModuleCall call;
    gravity_(acc, &period, out);
}

void Module::soft_gyro(const float acc[3], std::int32_t period, float out[3]) const {
    ModuleCall call;
    soft_gyro_(acc, &period, out);
}

bool Module::magnetic_offset(float out[3]) const {
    if (!get_offset_) return false;
    ModuleCall call;
    get_offset_(out);
    return true;
}

}  // namespace calhost
