// The failures calhost tells apart by its exit status.
#ifndef CALHOST_ERRORS_H
#define CALHOST_ERRORS_H

#include <stdexcept>

namespace calhost {

// Bad usage: an option's value, or an output refused before the run starts. Exit 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Writing an output failed (disk full, ...): a failure of the run. Exit 1.
class OutputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace calhost

#endif
