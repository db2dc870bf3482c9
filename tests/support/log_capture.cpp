// The test executable defines __android_log_print itself and exports it, so the
// module's undefined reference binds here instead of to liblog.
#include "support/log_capture.h"

#include <cstdarg>
#include <cstdio>

namespace testsupport {
namespace {
std::vector<LogRecord> &records() {
    static std::vector<LogRecord> r;
    return r;
}
}  // namespace

const std::vector<LogRecord> &log_records() { return records(); }
void clear_log_records() { records().clear(); }

}  // namespace testsupport

extern "C" __attribute__((visibility("default"))) int __android_log_print(int prio, const char *tag,
                                                                          const char *fmt, ...) {
    char buf[1024];
    va_list ap;
    va_start(ap, fmt);
    const int n = std::vsnprintf(buf, sizeof buf, fmt, ap);
    va_end(ap);
    testsupport::records().push_back({prio, tag ? tag : "", buf});
    return n;
}
