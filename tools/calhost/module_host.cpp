#include "module_host.h"

#include <dlfcn.h>
#include <elf.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fmt/format.h>

#ifndef CALHOST_DEFAULT_MODULE
#define CALHOST_DEFAULT_MODULE "libcalmodule_quarvel.so"
#endif

namespace calhost {
namespace {

// The bytes an ELF file's own headers say it holds: its program headers, its section
// headers and every segment's file image.
template <class Ehdr, class Phdr>
std::uint64_t elf_extent(std::FILE *f, const unsigned char *ident) {
    Ehdr eh;
    std::memcpy(&eh, ident, sizeof eh);
    std::uint64_t need = std::max<std::uint64_t>(eh.e_phoff + std::uint64_t{eh.e_phnum} * eh.e_phentsize,
                                                 eh.e_shoff + std::uint64_t{eh.e_shnum} * eh.e_shentsize);
    if (eh.e_phentsize != sizeof(Phdr)) return need;
    for (unsigned i = 0; i < eh.e_phnum; ++i) {
        Phdr ph;
        if (std::fseek(f, static_cast<long>(eh.e_phoff + std::uint64_t{i} * sizeof ph), SEEK_SET) != 0 ||
            std::fread(&ph, sizeof ph, 1, f) != 1) {
            break;  // beyond the end: `need` already says so
        }
        if (ph.p_type == PT_LOAD) need = std::max<std::uint64_t>(need, ph.p_offset + std::uint64_t{ph.p_filesz});
    }
    return need;
}

// A file cut short (a copy interrupted, a full disk) maps fine, and the loader then dies
// of SIGBUS touching the missing pages: measure it against its own headers first. Files
// that are no ELF of this machine's class are left to dlopen, which says why.
void refuse_truncated(const std::string &path) {
    std::FILE *f = std::fopen(path.c_str(), "rb");
    if (!f) return;
    unsigned char ident[sizeof(Elf64_Ehdr)] = {};
    struct stat st {};
    std::uint64_t need = 0;
    if (::fstat(::fileno(f), &st) == 0 && S_ISREG(st.st_mode) &&
        std::fread(ident, 1, sizeof ident, f) >= sizeof(Elf32_Ehdr) && std::memcmp(ident, ELFMAG, SELFMAG) == 0) {
        if (ident[EI_CLASS] == ELFCLASS64 && sizeof(void *) == 8) need = elf_extent<Elf64_Ehdr, Elf64_Phdr>(f, ident);
        if (ident[EI_CLASS] == ELFCLASS32 && sizeof(void *) == 4) need = elf_extent<Elf32_Ehdr, Elf32_Phdr>(f, ident);
    }
    std::fclose(f);
    if (need > static_cast<std::uint64_t>(st.st_size)) {
        throw ModuleError(fmt::format("cannot load module {}: the file is cut short ({} bytes; its headers describe {})",
                                      path, st.st_size, need));
    }
}

}  // namespace

const char *default_module_path() { return CALHOST_DEFAULT_MODULE; }

Module::Module(const std::string &path, ParamFileSandbox &files) : path_(path), files_(files) {
    if (::access(path.c_str(), R_OK) != 0) {
        throw ModuleError(fmt::format("cannot load module {}: {}", path, std::strerror(errno)));
    }
    refuse_truncated(path);
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
        ModuleCall call(&files_);
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
        ModuleCall call(&files_);
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
    ModuleCall call(&files_);
    return algo->methods->convert(&in, out);
}

int Module::config(const cal_algo *algo, int cmd, std::int32_t enable, std::int32_t poll_rate) const {
    if (!algo->methods->config) return 0;
    cal_algo_args args{enable, poll_rate};
    ModuleCall call(&files_);
    return algo->methods->config(cmd, &args);
}

void Module::gravity(const float acc[3], std::int32_t period, float out[3]) const {
    ModuleCall call(&files_);
    gravity_(acc, &period, out);
}

void Module::soft_gyro(const float acc[3], std::int32_t period, float out[3]) const {
    ModuleCall call(&files_);
    soft_gyro_(acc, &period, out);
}

bool Module::magnetic_offset(float out[3]) const {
    if (!get_offset_) return false;
    ModuleCall call(&files_);
    get_offset_(out);
    return true;
}

}  // namespace calhost
