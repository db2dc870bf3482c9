// Captures the module's Android log records in the test process.
#ifndef CALMODULE_TESTS_LOG_CAPTURE_H
#define CALMODULE_TESTS_LOG_CAPTURE_H

#include <string>
#include <vector>

namespace testsupport {

struct LogRecord {
    int priority;
    std::string tag;
    std::string text;  // the formatted message
};

// Every record written since the process started or since the last clear.
const std::vector<LogRecord> &log_records();
void clear_log_records();

}  // namespace testsupport

#endif
