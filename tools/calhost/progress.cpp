#include "progress.h"

#include <unistd.h>

#include <cstdio>
#include <string>

namespace calhost {

bool stderr_is_terminal() { return ::isatty(STDERR_FILENO) == 1; }

void Progress::update(std::uint64_t done, std::uint64_t total, std::uint64_t events) {
    if (!enabled_ || (events & 0x3FFF) != 0) return;
    const auto now = std::chrono::steady_clock::now();
    if (now - start_ < std::chrono::seconds(1) || now - last_ < std::chrono::milliseconds(100)) return;
    last_ = now;
    const double f = total ? static_cast<double>(done) / static_cast<double>(total) : 0.0;
    const int filled = static_cast<int>(f * 30.0);
    std::fprintf(stderr, "\rreplaying [%-30s] %3d%%  %llu events",
                 std::string(static_cast<std::size_t>(filled), '#').c_str(), static_cast<int>(f * 100.0),
                 static_cast<unsigned long long>(events));
    drawn_ = true;
}

void Progress::finish() {
    if (drawn_) std::fprintf(stderr, "\r%60s\r", "");
    drawn_ = false;
}

}  // namespace calhost
