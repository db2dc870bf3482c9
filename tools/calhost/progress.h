// The progress bar of a long replay, on stderr when stderr is a terminal.
#ifndef CALHOST_PROGRESS_H
#define CALHOST_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <string>

namespace calhost {

// Whether a progress bar may be drawn: stderr is a terminal.
bool stderr_is_terminal();

// The bar's text, at most `width` - 1 columns (a terminal wraps a line that fills its
// last column): the session time reached, and when the session's size is known
// (`fraction` >= 0) a bar, the share done and an estimate of the time left.
std::string progress_line(int width, double fraction, double session_s, double elapsed_s);

// A bar on stderr, drawn only once the replay has run for a second, and cleared again.
class Progress {
public:
    explicit Progress(bool enabled) : enabled_(enabled), start_(std::chrono::steady_clock::now()) {}
    ~Progress() { finish(); }
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    // `total` 0: the size is unknown (standard input, a pipe).
    void update(std::uint64_t done, std::uint64_t total, std::uint64_t events, double session_s);
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
