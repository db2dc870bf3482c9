#include "support/recording.h"

#include <cstdio>

#include "support/test_env.h"

namespace testsupport {

std::string figure_eight_path() { return std::string(data_dir()) + "/nexus5-figure-eight.csv"; }

bool read_figure_eight(std::vector<RecordedEvent> *events) {
    FILE *csv = std::fopen(figure_eight_path().c_str(), "r");
    if (!csv) return false;
    char line[256];
    RecordedEvent e;
    while (std::fgets(line, sizeof line, csv)) {
        // Comment lines and anything malformed do not parse as five fields.
        if (std::sscanf(line, "%lld,%d,%f,%f,%f", &e.t_ns, &e.type, &e.v[0], &e.v[1], &e.v[2]) == 5) {
            events->push_back(e);
        }
    }
    std::fclose(csv);
    return true;
}

}  // namespace testsupport
