// calhost's session reader on arbitrary file contents.
//
// Promises checked: the reader either hands out rows or refuses the file with
// "file:line: what", never anything else; every row carries the session's number of
// value columns (3 to 16), and time never goes backwards.
#include <unistd.h>

#include <string>

#include "fuzz_support.h"
#include "session.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const std::string path = "/tmp/calmodule-fuzz-session-" + std::to_string(getpid()) + ".csv";
    fuzz::write_file(path.c_str(), data, size);

    try {
        calhost::SessionReader reader(path);
        const int columns = reader.value_columns();
        FUZZ_CHECK(columns >= 3 && columns <= calhost::kMaxValueColumns);
        int64_t previous = INT64_MIN;
        for (calhost::SessionRow row; reader.next(row); previous = row.time_ns) {
            FUZZ_CHECK(row.count == columns);
            FUZZ_CHECK(row.time_ns >= previous);
        }
    } catch (const calhost::SessionError &e) {
        const std::string what = e.what();
        FUZZ_CHECK(what.rfind(path + ":", 0) == 0);
    }
    return 0;
}
