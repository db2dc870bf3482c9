#include "param_sandbox.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <fmt/format.h>

namespace calhost {

// The sandbox of the module call in progress, read by the fopen interposers below.
// A plain static: the module is driven from one thread.
ParamFileSandbox *g_active = nullptr;

using FopenFn = std::FILE *(*)(const char *, const char *);

struct SandboxAccess {
    static std::FILE *open(FopenFn real, const char *path, const char *mode) {
        if (!real) return nullptr;
        ParamFileSandbox *box = g_active;
        if (!box || !path) return real(path, mode);
        std::FILE *f = real(box->path_.c_str(), mode);
        const bool writing = mode && (mode[0] == 'w' || mode[0] == 'a' || std::strchr(mode, '+'));
        if (writing) ++box->writes_;
        return f;
    }
};

}  // namespace calhost

extern "C" std::FILE *fopen(const char *path, const char *mode) {
    static const auto real = reinterpret_cast<calhost::FopenFn>(dlsym(RTLD_NEXT, "fopen"));
    return calhost::SandboxAccess::open(real, path, mode);
}

extern "C" std::FILE *fopen64(const char *path, const char *mode) {
    static const auto real = reinterpret_cast<calhost::FopenFn>(dlsym(RTLD_NEXT, "fopen64"));
    return calhost::SandboxAccess::open(real, path, mode);
}

namespace calhost {

ParamFileSandbox::ParamFileSandbox(const std::string &path) {
    if (!path.empty()) {
        path_ = path;
        return;
    }
    const char *tmp = std::getenv("TMPDIR");
    std::string templ = fmt::format("{}/calhost.XXXXXX", (tmp && *tmp) ? tmp : "/tmp");
    if (!::mkdtemp(templ.data())) {
        throw std::runtime_error(fmt::format("cannot create a temporary folder in {}: {}",
                                             (tmp && *tmp) ? tmp : "/tmp", std::strerror(errno)));
    }
    temp_dir_ = templ;
    path_ = temp_dir_ + "/param.txt";
}

ParamFileSandbox::~ParamFileSandbox() {
    if (g_active == this) g_active = nullptr;
    if (!temp_dir_.empty()) {
        std::remove(path_.c_str());
        ::rmdir(temp_dir_.c_str());
    }
}

std::string ParamFileSandbox::content() const {
    std::ifstream in(path_, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

ModuleCall::ModuleCall(ParamFileSandbox *files) : previous_(g_active) { g_active = files; }
ModuleCall::~ModuleCall() { g_active = previous_; }

}  // namespace calhost
