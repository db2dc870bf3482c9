#include "progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include <fmt/format.h>

namespace calhost {
namespace {

int terminal_width() {
    struct winsize ws {};
    if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &ws) == 0 && ws.ws_col > 0) return ws.ws_col;
    return 80;
}

std::string duration(double s) {
    if (s < 60.0) return fmt::format("{:.0f} s", s);
    if (s < 3600.0) {
        const int whole = static_cast<int>(s);
        return fmt::format("{} min {:02} s", whole / 60, whole % 60);
    }
    return fmt::format("{:.1f} h", s / 3600.0);
}

}  // namespace

bool stderr_is_terminal() { return ::isatty(STDERR_FILENO) == 1; }

std::string progress_line(int width, double fraction, double session_s, double elapsed_s) {
    const std::size_t room = static_cast<std::size_t>(std::max(width - 1, 0));
    std::string head = fmt::format("replaying: session at {}", duration(session_s));
    if (fraction < 0.0) return head.substr(0, room);
    fraction = std::clamp(fraction, 0.0, 1.0);
    std::string tail = fmt::format(" {:3.0f}%", fraction * 100.0);
    if (fraction > 0.0) tail += fmt::format(", about {} left", duration(elapsed_s * (1.0 - fraction) / fraction));
    // The bar takes what is left of the line, between 10 and 40 columns, or goes.
    const std::size_t used = head.size() + tail.size() + 4;
    const std::size_t bar = room > used ? std::min<std::size_t>(room - used, 40) : 0;
    if (bar >= 10) {
        const auto filled = static_cast<std::size_t>(fraction * static_cast<double>(bar));
        head += "  [" + std::string(filled, '#') + std::string(bar - filled, ' ') + "]";
    }
    return (head + tail).substr(0, room);
}

void Progress::update(std::uint64_t done, std::uint64_t total, std::uint64_t events, double session_s) {
    if (!enabled_ || (events & 0x3FFF) != 0) return;
    const auto now = std::chrono::steady_clock::now();
    if (now - start_ < std::chrono::seconds(1) || now - last_ < std::chrono::milliseconds(100)) return;
    last_ = now;
    const double fraction = total ? static_cast<double>(done) / static_cast<double>(total) : -1.0;
    const std::chrono::duration<double> elapsed = now - start_;
    // "\r" and erase-line: the new text replaces the old whole, whatever their lengths.
    std::fprintf(stderr, "\r\033[K%s", progress_line(terminal_width(), fraction, session_s, elapsed.count()).c_str());
    std::fflush(stderr);
    drawn_ = true;
}

void Progress::finish() {
    if (drawn_) std::fputs("\r\033[K", stderr);
    drawn_ = false;
}

}  // namespace calhost
