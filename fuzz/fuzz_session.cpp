// calhost's session reader on arbitrary file contents.
//
// Promises checked: the reader either hands out rows or refuses the file with
// "file:line: what", never anything else; every row carries the session's number of
// value columns (3 to 16), and time never goes backwards.
#include <unistd.h>

#include <cstdio>
#include <string>

#include "fuzz_support.h"
#include "session.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const std::string path = "/tmp/calmodule-fuzz-session-" + std::to_string(getpid()) + ".csv";
    std::FILE *file = std::fopen(path.c_str(), "wb");
    FUZZ_CHECK(file != nullptr);
    FUZZ_CHECK(std::fwrite(data, 1, size, file) == size);
    std::fclose(file);

    try {
        calhost::SessionReader reader(path);
        const int columns = reader.value_columns();
        FUZZ_CHECK(columns >= 3 && columns <= calhost::kMaxValueColumns);
        calhost::SessionRow row;
        bool first = true;
        int64_t previous = 0;
        while (reader.next(row)) {
            FUZZ_CHECK(row.count == columns);
            FUZZ_CHECK(first || row.time_ns >= previous);
            previous = row.time_ns;
            first = false;
        }
    } catch (const calhost::SessionError &e) {
        const std::string what = e.what();
        FUZZ_CHECK(what.rfind(path + ":", 0) == 0);
    }
    return 0;
}
