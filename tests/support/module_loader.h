// Loads the built module as a HAL does: dlopen by path, resolve `scmi` by name, walk
// the algorithm table, and call methods through it.
#ifndef CALMODULE_TESTS_MODULE_LOADER_H
#define CALMODULE_TESTS_MODULE_LOADER_H

#include <dlfcn.h>

#include <cstring>

#include "calmodule/module.h"
#include "support/test_env.h"

namespace testsupport {

class LoadedModule {
public:
    explicit LoadedModule(const char *path = module_path()) : handle_(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
        if (handle_) info_ = static_cast<const cal_module_info *>(dlsym(handle_, "scmi"));
        if (info_) info_->methods->get_algo_list(&algos_);
    }
    // Never unloaded inside a test process: the module's state lives until exit.
    bool ok() const { return handle_ && info_ && algos_; }
    const cal_module_info *info() const { return info_; }
    const cal_algo *algos() const { return algos_; }

    // The first record bound to `type`, or null.
    const cal_algo *algo(int type) const {
        for (unsigned i = 0; algos_ && i < info_->number; ++i) {
            if (algos_[i].type == type) return &algos_[i];
        }
        return nullptr;
    }
    int convert(int algo_type, const sensors_event_t &in, sensors_event_t *out) const {
        return algo(algo_type)->methods->convert(&in, out);
    }
    int config(int algo_type, int cmd, int32_t enable, int32_t poll_rate = 0) const {
        cal_algo_args args{enable, poll_rate};
        return algo(algo_type)->methods->config(cmd, &args);
    }
    template <class T>
    T *symbol(const char *name) const {
        return reinterpret_cast<T *>(dlsym(handle_, name));
    }

private:
    void *handle_ = nullptr;
    const cal_module_info *info_ = nullptr;
    const cal_algo *algos_ = nullptr;
};

// An event of `type` with data[0..2] set and every other byte zero.
inline sensors_event_t make_event(int type, float x, float y = 0.0f, float z = 0.0f) {
    sensors_event_t e;
    std::memset(&e, 0, sizeof e);
    e.version = static_cast<int32_t>(sizeof e);
    e.type = type;
    e.data[0] = x;
    e.data[1] = y;
    e.data[2] = z;
    return e;
}

// An output record filled with a recognisable pattern, to see what a method writes.
inline sensors_event_t poisoned_event() {
    sensors_event_t e;
    std::memset(&e, 0xA5, sizeof e);
    return e;
}

}  // namespace testsupport

#endif
