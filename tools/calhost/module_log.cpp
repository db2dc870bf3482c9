#include "module_log.h"

#include <android/log.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "session.h"

namespace calhost {
namespace {

// Only the replay's thread logs.
int g_min_priority = ANDROID_LOG_WARN;
bool g_clock_started = false;
std::int64_t g_first_ns = 0;
std::int64_t g_now_ns = 0;

char priority_letter(int priority) {
    static const char kLetters[] = "??VDIWEFS";
    return priority >= 0 && priority < 9 ? kLetters[priority] : '?';
}

void emit(int priority, const char *tag, const char *text) {
    if (priority < g_min_priority || priority >= ANDROID_LOG_SILENT) return;
    // The module ends its messages with a line break; one record is one line.
    std::size_t n = std::strlen(text);
    while (n > 0 && (text[n - 1] == '\n' || text[n - 1] == '\r')) --n;
    if (g_clock_started) {
        std::fprintf(stderr, "%9.3f s  %s %c %.*s\n", seconds_between(g_first_ns, g_now_ns), tag ? tag : "",
                     priority_letter(priority), static_cast<int>(n), text);
    } else {
        std::fprintf(stderr, "%s %c %.*s\n", tag ? tag : "", priority_letter(priority), static_cast<int>(n), text);
    }
}

}  // namespace

void set_log_priority(int priority) { g_min_priority = priority; }

int log_priority_named(const char *name) {
    static const struct {
        const char *name;
        int priority;
    } kLevels[] = {{"verbose", ANDROID_LOG_VERBOSE}, {"debug", ANDROID_LOG_DEBUG}, {"info", ANDROID_LOG_INFO},
                   {"warn", ANDROID_LOG_WARN},       {"error", ANDROID_LOG_ERROR}, {"silent", ANDROID_LOG_SILENT}};
    for (const auto &l : kLevels) {
        if (std::strcmp(name, l.name) == 0) return l.priority;
    }
    return -1;
}

void start_log_clock(std::int64_t first_ns) {
    g_clock_started = true;
    g_first_ns = g_now_ns = first_ns;
}

void advance_log_clock(std::int64_t now_ns) { g_now_ns = now_ns; }

}  // namespace calhost

extern "C" int __android_log_write(int priority, const char *tag, const char *text) {
    calhost::emit(priority, tag, text ? text : "");
    return 1;
}

extern "C" int __android_log_vprint(int priority, const char *tag, const char *format, va_list ap) {
    char text[1024];
    std::vsnprintf(text, sizeof text, format ? format : "", ap);
    calhost::emit(priority, tag, text);
    return 1;
}

extern "C" int __android_log_print(int priority, const char *tag, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    const int r = __android_log_vprint(priority, tag, format, ap);
    va_end(ap);
    return r;
}
