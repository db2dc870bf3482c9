#include "param_sandbox.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <fmt/format.h>

#include "errors.h"

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
        // A FIFO or a device would block or swallow the module's stored offset: the
        // module finds no file, as on a new phone.
        struct stat st {};
        if (::stat(box->path_.c_str(), &st) == 0 && !S_ISREG(st.st_mode)) {
            errno = EINVAL;
            return nullptr;
        }
        std::FILE *f = real(box->path_.c_str(), mode);
        const bool writing = mode && (mode[0] == 'w' || mode[0] == 'a' || std::strchr(mode, '+'));
        if (f && writing) ++box->writes_;
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
        // Refused here, before the replay, rather than found out by the module in the
        // middle of it.
        struct stat st {};
        if (::stat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode)) {
            throw UsageError(fmt::format("--param-file {}: {}", path,
                                         S_ISDIR(st.st_mode) ? "is a folder, not a file" : "is not a regular file"));
        }
        const std::size_t slash = path.rfind('/');
        const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
        if (::stat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
            throw UsageError(fmt::format("--param-file {}: the folder {} does not exist", path, folder));
        }
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
