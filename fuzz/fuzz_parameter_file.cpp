// The parameter-file reader on arbitrary file contents, then the calibration's start
// from whatever it read.
//
// Promises checked: the reader answers 8 or one of its refusals (-18 to -22); a file
// outside 21 to 42 bytes is refused as such (-20); after the first magnetometer sample
// the offset in use and the delivered field are finite, whatever the file held.
#include "calmodule/magcal.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::fresh_module();
    fuzz::write_file(CALMODULE_PARAM_FILE_PATH, data, size);

    float values[3] = {0.0f, 0.0f, 0.0f};
    const int32_t rc = ReadParameterFromFile(values);
    FUZZ_CHECK(rc == 8 || (rc >= -22 && rc <= -18));
    if (size < 21 || size > 42) FUZZ_CHECK(rc == -20);

    qv730_run_library(20.0f, -10.0f, 15.0f);  // the first sample reads the file
    float offset[3], field[3];
    get_magnetic_offset(offset);
    get_magnetic_values(field);
    FUZZ_CHECK(fuzz::finite3(offset) && fuzz::finite3(field));
    return 0;
}
