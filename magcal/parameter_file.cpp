// Parameter file: the offset survives restarts as three "%f:" values, no newline,
// e.g. "12.500000:-3.250000:40.000000:". Every path that opens the file closes it.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "calmodule/magcal.h"
#include "magcal/magcal_internal.h"

namespace {

constexpr const char kParamFile[] = CALMODULE_PARAM_FILE_PATH;

// A stored offset takes 27 bytes at (0, 0, 0); other sizes outside these limits are
// not a file this module wrote.
constexpr long kMinFileSize = 21;
constexpr long kMaxFileSize = 42;
constexpr int kLineBuffer = 200;
constexpr int kFieldBuffer = 32;  // 31 characters and the terminator
constexpr int kColons = 3;

}  // namespace

extern "C" {

CALMODULE_API int32_t SaveParameterNumber(FILE *file, const float *values) {
    for (int i = 0; i < 3; ++i) {
        if (std::fprintf(file, "%f:", static_cast<double>(values[i])) < 0) return -16;
    }
    return 6;
}

CALMODULE_API int32_t WriteParameterToFile(const float *values) {
    FILE *file = std::fopen(kParamFile, "w+");
    if (!file) return -17;
    // A failed print leaves a truncated file that the reader rejects or parses in part;
    // only opening and closing decide the result.
    SaveParameterNumber(file, values);
    if (std::fclose(file) != 0) return -18;
    return 7;
}

CALMODULE_API int32_t ReadParameterFromFile(float *values) {
    char line[kLineBuffer];
    char field[kFieldBuffer];
    int32_t colon[kColons] = {0, 0, 0};  // positions not found count as 0
    std::memset(line, 0, sizeof line);
    std::memset(field, 0, sizeof field);

    FILE *file = std::fopen(kParamFile, "r");
    if (!file) return -19;

    long size = -1;
    if (std::fseek(file, 0, SEEK_END) == 0) size = std::ftell(file);
    std::rewind(file);
    // A failed position query (-1) lands below the lower limit.
    if (size < kMinFileSize || size > kMaxFileSize) {
        std::fclose(file);
        return -20;
    }
    const int n = static_cast<int>(size);

    // Lines of at most `size` characters, each stored from the start of the buffer: the
    // last line wins, with any remains of longer earlier lines behind it.
    while (!std::feof(file)) {
        if (!std::fgets(line, n + 1, file)) break;
    }

    int found = 0;
    for (int i = 0; i < n && found < kColons; ++i) {
        if (line[i] == ':') colon[found++] = i;
    }

    for (int f = 0; f < 3; ++f) {
        const int32_t start = f == 0 ? 0 : colon[f - 1] + 1;
        const int32_t length = colon[f] - start;
        if (length < 0 || length > kFieldBuffer - 1) {
            std::fclose(file);
            return f == 0 ? -21 : -22;
        }
        std::memcpy(field, line + start, static_cast<size_t>(length));
        field[length] = '\0';
        values[f] = quarvel::narrow_to_float(std::atof(field));
    }

    if (std::fclose(file) != 0) return -18;
    return 8;
}

}  // extern "C"
