// calhost import: turns recordings made on phones into sessions.
//
// Two kinds of recording are read:
//  - a folder of per-sensor text files, one sample per line, fields separated by blanks,
//    the time in seconds first: `magnetometer.txt` (uncalibrated field x, y, z in µT,
//    then the phone's own hard-iron bias x, y, z in µT), `accelerometer.txt` (m/s²)
//    and, when present, `rotation-vector.txt` (x, y, z, w, heading accuracy in rad);
//  - per-sensor CSV files with a header, as phone logging apps write them, the time
//    column, its unit and the value columns named on the command line.
// The magnetometer becomes the chip's raw counts (µT divided by the chip's scale, after
// an optional shift), the phone's own final bias the session's reference offset, and
// the phone's rotation vector rows of its own sensor type, which a replay passes on.
// Each file is read a line at a time and the sensors are merged in time order, so a
// recording of any length takes the same memory.
#ifndef CALHOST_IMPORT_H
#define CALHOST_IMPORT_H

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace calhost {

struct ImportOptions {
    std::string folder;             // a folder of per-sensor text files
    std::vector<std::string> csv;   // or CSV files, each "mag=FILE", "acc=FILE" or "rv=FILE"
    std::string time_column = "time";
    std::string time_unit = "ns";   // of the CSV files: ns, us, ms or s
    std::string columns = "x,y,z";  // the magnetometer's and accelerometer's value columns
    std::string rv_columns = "x,y,z,w";
    std::string bias_columns;       // the phone's own hard-iron bias in the magnetometer file
    std::string mag_shift;          // µT added to the field and the bias, "x,y,z"
    std::string out = "-";
};

// Adds the `import` command and its options to the command line; every option that
// cannot be right is refused while parsing.
CLI::App *add_import_command(CLI::App &app, ImportOptions &options);

// Writes the session, whole or not at all. Throws SessionError ("file:line: what") for
// a recording it refuses and OutputError when the session cannot be written.
void import_recording(const ImportOptions &options);

}  // namespace calhost

#endif
