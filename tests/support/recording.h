// The real phone recording in data_dir(): one row per sensor event, in time order.
#ifndef CALMODULE_TESTS_RECORDING_H
#define CALMODULE_TESTS_RECORDING_H

#include <string>
#include <vector>

namespace testsupport {

struct RecordedEvent {
    long long t_ns;
    int type;  // sensor type: 1 accelerometer (m/s^2), 2 magnetometer (raw counts)
    float v[3];
};

// The figure-eight recording's path, for skip messages.
std::string figure_eight_path();
// Its events; false (and nothing read) when the file is absent.
bool read_figure_eight(std::vector<RecordedEvent> *events);

}  // namespace testsupport

#endif
