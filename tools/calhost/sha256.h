// SHA-256 of a file, so that a report names exactly which module build produced it.
#ifndef CALHOST_SHA256_H
#define CALHOST_SHA256_H

#include <string>

namespace calhost {

// The digest as 64 lowercase hex digits; "" when the file cannot be read.
std::string sha256_file(const std::string &path);
// The digest of a byte string (for checking against published test vectors).
std::string sha256_hex(const std::string &bytes);

}  // namespace calhost

#endif
