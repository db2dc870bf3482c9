// An output file that appears whole or not at all: written to a temporary file beside
// the target and renamed over it on commit(); dropped if the run fails first.
#ifndef CALHOST_OUTPUT_FILE_H
#define CALHOST_OUTPUT_FILE_H

#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>

namespace calhost {

// Writing an output failed (disk full, no such folder, ...): a failure of the run.
class OutputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class OutputFile {
public:
    // "-" writes to standard output, directly.
    explicit OutputFile(const std::string &path);
    ~OutputFile();  // removes the temporary file unless committed
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    void write(std::string_view text);
    void commit();
    const std::string &path() const { return path_; }

private:
    std::string path_;
    std::string temp_;
    std::FILE *file_ = nullptr;
    bool committed_ = false;
};

}  // namespace calhost

#endif
