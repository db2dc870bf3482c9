// A shared library whose `scmi` is not a module descriptor: the tag is wrong.
#include <cstdint>
extern "C" __attribute__((visibility("default"))) const std::uint32_t scmi[13] = {0x12345678u};
