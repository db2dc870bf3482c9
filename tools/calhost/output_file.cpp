#include "output_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
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

}  // namespace

OutputFile::OutputFile(const std::string &path) : path_(path) {
    if (path == "-") {
        file_ = stdout;
        return;
    }
    temp_ = path + ".tmp.XXXXXX";
    const int fd = ::mkstemp(temp_.data());
    if (fd < 0) throw OutputError(fmt::format("cannot write {}: {}", path, std::strerror(errno)));
    // mkstemp creates the file private to its owner; an output is an ordinary file.
    const mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(fd, 0666 & ~mask);
    file_ = ::fdopen(fd, "wb");
    if (!file_) {
        const int err = errno;
        ::close(fd);
        ::unlink(temp_.c_str());
        throw OutputError(fmt::format("cannot write {}: {}", path, std::strerror(err)));
    }
    track(temp_.c_str());
}

OutputFile::~OutputFile() {
    if (file_ && file_ != stdout) std::fclose(file_);
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
    if (file_ == stdout) {
        std::fflush(stdout);
        committed_ = true;
        return;
    }
    std::FILE *f = file_;
    file_ = nullptr;
    const bool flushed = std::fflush(f) == 0 && !std::ferror(f);
    const int err = errno;
    if (std::fclose(f) != 0 || !flushed) {
        throw OutputError(fmt::format("cannot write {}: {}", path_, std::strerror(flushed ? errno : err)));
    }
    if (std::rename(temp_.c_str(), path_.c_str()) != 0) {
        throw OutputError(fmt::format("cannot write {}: {}", path_, std::strerror(errno)));
    }
    committed_ = true;
    untrack(temp_.c_str());
}

}  // namespace calhost
