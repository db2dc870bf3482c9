// The progress bar of a long replay, on stderr when stderr is a terminal.
#ifndef CALHOST_PROGRESS_H
#define CALHOST_PROGRESS_H

#include <chrono>
#include <cstdint>

namespace calhost {

// Whether a progress bar may be drawn: stderr is a terminal.
bool stderr_is_terminal();

// A bar on stderr, drawn only once the replay has run for a second.
class Progress {
public:
    explicit Progress(bool enabled) : enabled_(enabled), start_(std::chrono::steady_clock::now()) {}
    ~Progress() { finish(); }
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void update(std::uint64_t done, std::uint64_t total, std::uint64_t events);
    // Clears the bar's line.
    void finish();

private:
    bool enabled_;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point last_{};
};

}  // namespace calhost

#endif
