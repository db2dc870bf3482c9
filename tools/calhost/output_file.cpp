#include "output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <fmt/format.h>

namespace calhost {
namespace {

// Temporary files being written, so that an interrupted run (Ctrl-C, a kill) removes
// them too and leaves nothing half-written behind. A few at a time at most.
constexpr int kMaxPending = 8;
const char *volatile g_pending[kMaxPending] = {};

extern "C" void remove_pending_and_exit(int sig) {
    for (const char *volatile &p : g_pending) {
        if (p) ::unlink(p);  // async-signal-safe
    }
    std::signal(sig, SIG_DFL);
    std::raise(sig);
}

void track(const char *temp) {
    static const bool installed = [] {
        for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) std::signal(sig, remove_pending_and_exit);
        return true;
    }();
    (void)installed;
    for (const char *volatile &p : g_pending) {
        if (!p) {
            p = temp;
            return;
        }
    }
}

void untrack(const char *temp) {
    for (const char *volatile &p : g_pending) {
        if (p == temp) p = nullptr;
    }
}

// The descriptor a name stands for when it names one of this process's own: "-",
// /dev/stdout, /dev/stderr, /dev/fd/N, /proc/self/fd/N. Else -1.
int own_descriptor(const std::string &path) {
    if (path == "-" || path == "/dev/stdout") return STDOUT_FILENO;
    if (path == "/dev/stderr") return STDERR_FILENO;
    for (const char *prefix : {"/dev/fd/", "/proc/self/fd/"}) {
        const std::size_t n = std::strlen(prefix);
        if (path.compare(0, n, prefix) == 0 && path.size() > n) {
            char *end = nullptr;
            const long fd = std::strtol(path.c_str() + n, &end, 10);
            if (*end == '\0' && fd >= 0 && fd < INT_MAX) return static_cast<int>(fd);
        }
    }
    return -1;
}

std::string folder_of(const std::string &path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// Where an output really goes: its symlinks followed one by one (a link may dangle,
// naming a file still to be made), stopping at a descriptor of this process.
struct Target {
    std::string path;
    int fd = -1;           // one of this process's descriptors, written through
    bool exists = false;
    struct stat st {};
};

Target resolve(const std::string &name) {
    Target t;
    t.path = name;
    for (int hops = 0; hops < 40; ++hops) {
        t.fd = own_descriptor(t.path);
        if (t.fd >= 0) {
            t.exists = ::fstat(t.fd, &t.st) == 0;
            return t;
        }
        struct stat st {};
        if (::lstat(t.path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) break;
        char buf[PATH_MAX];
        const ssize_t n = ::readlink(t.path.c_str(), buf, sizeof buf - 1);
        if (n <= 0) break;
        const std::string link(buf, static_cast<std::size_t>(n));
        t.path = link[0] == '/' ? link : folder_of(t.path) + "/" + link;
    }
    t.exists = ::stat(t.path.c_str(), &t.st) == 0;
    return t;
}

bool written_through(const Target &t) { return t.fd >= 0 || (t.exists && !S_ISREG(t.st.st_mode)); }

// What makes two names one file: the same inode, or for a file still to be made the
// same name in the same folder.
std::string identity(const Target &t) {
    if (t.exists) return fmt::format("{}:{}", t.st.st_dev, t.st.st_ino);
    char buf[PATH_MAX];
    const std::string folder = folder_of(t.path);
    const std::string base = t.path.substr(t.path.rfind('/') == std::string::npos ? 0 : t.path.rfind('/') + 1);
    return fmt::format("{}/{}", ::realpath(folder.c_str(), buf) ? buf : folder, base);
}

}  // namespace

void check_outputs(const std::vector<std::string> &inputs, const std::vector<std::string> &outputs) {
    struct Seen {
        std::string id, name;
        bool input;
    };
    std::vector<Seen> seen;
    for (const std::string &in : inputs) {
        if (in.empty()) continue;
        Target t;
        if (in == "-") {
            t.fd = STDIN_FILENO;
            t.exists = ::fstat(t.fd, &t.st) == 0;
        } else {
            t = resolve(in);
        }
        // A terminal or /dev/null may well be input and output at once; nothing is lost.
        if (t.exists && !S_ISCHR(t.st.st_mode)) seen.push_back({identity(t), in, true});
    }
    for (const std::string &out : outputs) {
        if (out.empty()) continue;
        const Target t = resolve(out);
        if (!written_through(t)) {
            const std::string folder = folder_of(t.path);
            struct stat st {};
            if (::stat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
                throw UsageError(fmt::format("cannot write {}: the folder {} does not exist", out, folder));
            }
        }
        if (t.exists && S_ISCHR(t.st.st_mode)) continue;
        const std::string id = identity(t);
        for (const Seen &other : seen) {
            if (id != other.id) continue;
            const std::string which = other.name == out ? out : fmt::format("{} and {}", out, other.name);
            throw UsageError(other.input ? fmt::format("{}: the output is the input, which it would overwrite", which)
                                         : fmt::format("{}: two outputs in one file", which));
        }
        seen.push_back({id, out, false});
    }
}

OutputFile::OutputFile(const std::string &path) : path_(path == "-" ? "standard output" : path) {
    const Target t = resolve(path);
    target_ = t.path;
    if (t.fd >= 0) {
        // A descriptor of its own, so that closing it reports a failed write while the
        // process's standard output stays open.
        const int fd = ::dup(t.fd);
        file_ = fd >= 0 ? ::fdopen(fd, "wb") : nullptr;
        if (!file_) {
            if (fd >= 0) ::close(fd);
            throw OutputError(fmt::format("cannot write {}: {}", path_, std::strerror(errno)));
        }
        return;
    }
    if (written_through(t)) {
        file_ = std::fopen(target_.c_str(), "wb");
        if (!file_) throw OutputError(fmt::format("cannot write {}: {}", path_, std::strerror(errno)));
        return;
    }
    temp_ = target_ + ".tmp.XXXXXX";
    const int fd = ::mkstemp(temp_.data());
    if (fd < 0) throw OutputError(fmt::format("cannot write {}: {}", path_, std::strerror(errno)));
    // mkstemp creates the file private to its owner; an output is an ordinary file, or
    // keeps the permissions of the file it replaces.
    const mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(fd, t.exists ? (t.st.st_mode & 07777) : (0666 & ~mask));
    file_ = ::fdopen(fd, "wb");
    if (!file_) {
        const int err = errno;
        ::close(fd);
        ::unlink(temp_.c_str());
        throw OutputError(fmt::format("cannot write {}: {}", path_, std::strerror(err)));
    }
    track(temp_.c_str());
}

OutputFile::~OutputFile() {
    if (file_) std::fclose(file_);
    if (!temp_.empty()) {
        untrack(temp_.c_str());
        if (!committed_) ::unlink(temp_.c_str());
    }
}

void OutputFile::write(std::string_view text) {
    if (text.empty()) return;
    if (std::fwrite(text.data(), 1, text.size(), file_) != text.size()) {
        throw OutputError(fmt::format("cannot write {}: {}", path_, std::strerror(errno)));
    }
}

void OutputFile::commit() {
    std::FILE *f = file_;
    file_ = nullptr;
    errno = 0;
    const bool flushed = std::fflush(f) == 0 && !std::ferror(f);
    const int err = errno;
    if (std::fclose(f) != 0 || !flushed) {
        throw OutputError(fmt::format("cannot write {}: {}", path_, std::strerror(flushed ? errno : err)));
    }
    if (!temp_.empty() && std::rename(temp_.c_str(), target_.c_str()) != 0) {
        throw OutputError(fmt::format("cannot write {}: {}", path_, std::strerror(errno)));
    }
    committed_ = true;
    if (!temp_.empty()) untrack(temp_.c_str());
}

void finish_stdout() {
    errno = 0;
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
        throw OutputError(fmt::format("cannot write standard output: {}", std::strerror(errno ? errno : EIO)));
    }
}

}  // namespace calhost
