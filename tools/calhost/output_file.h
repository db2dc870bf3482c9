// Outputs that never damage a file: a regular file appears whole or not at all (written
// to a temporary file beside it and renamed over it on commit(), dropped if the run
// fails first); a symlink is followed, so that its target is what gets replaced;
// anything else (standard output as "-", a device, a FIFO, /dev/stdout, /dev/fd/N) is
// written through as it stands, never replaced.
#ifndef CALHOST_OUTPUT_FILE_H
#define CALHOST_OUTPUT_FILE_H

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "errors.h"

namespace calhost {

class OutputFile {
public:
    // Throws OutputError when the output cannot be opened.
    explicit OutputFile(const std::string &path);
    ~OutputFile();  // removes the temporary file unless committed
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    void write(std::string_view text);
    // Flushes and closes (and renames into place); a failure throws OutputError.
    void commit();
    const std::string &path() const { return path_; }

private:
    std::string path_;    // as the user named it, for messages
    std::string target_;  // the file that gets replaced: path_ with its links followed
    std::string temp_;    // empty when written through
    std::FILE *file_ = nullptr;
    bool committed_ = false;
};

// Refuses, before anything is run, an output that is an input or another output (the
// same file, links followed), and a file output whose folder does not exist. Empty
// names are skipped; "-" is standard input among the inputs and standard output among
// the outputs. Throws UsageError.
void check_outputs(const std::vector<std::string> &inputs, const std::vector<std::string> &outputs);

// Flushes standard output; a failed write (a full disk, a closed pipe) throws OutputError.
void finish_stdout();

}  // namespace calhost

#endif
