// What every fuzz target shares: a reader over the fuzzer's bytes, a check that
// reports a broken promise as a crash, and a freshly loaded module for every input.
#ifndef CALMODULE_FUZZ_SUPPORT_H
#define CALMODULE_FUZZ_SUPPORT_H

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace fuzz {

// A broken promise of the module: print it and abort, so that libFuzzer keeps the input.
#define FUZZ_CHECK(cond)                                                                    \
    do {                                                                                    \
        if (!(cond)) {                                                                      \
            std::fprintf(stderr, "%s:%d: promise broken: %s\n", __FILE__, __LINE__, #cond); \
            std::abort();                                                                   \
        }                                                                                   \
    } while (0)

// Consumes the input front to back; past the end every value reads as zero.
class Input {
public:
    Input(const uint8_t *data, size_t size) : p_(data), n_(size) {}
    bool more() const { return n_ > 0; }
    uint8_t byte() {
        if (n_ == 0) return 0;
        --n_;
        return *p_++;
    }
    int32_t i32() {
        uint32_t v = 0;
        for (int i = 0; i < 4; ++i) v |= static_cast<uint32_t>(byte()) << (8 * i);
        return static_cast<int32_t>(v);
    }
    float f32() {
        const int32_t bits = i32();
        float f;
        std::memcpy(&f, &bits, sizeof f);
        return f;
    }

private:
    const uint8_t *p_;
    size_t n_;
};

inline bool finite3(const float *v) { return std::isfinite(v[0]) && std::isfinite(v[1]) && std::isfinite(v[2]); }

// The fuzzer's bytes as the whole content of the file at `path`.
inline void write_file(const char *path, const uint8_t *data, size_t size) {
    std::FILE *file = std::fopen(path, "wb");
    FUZZ_CHECK(file != nullptr);
    FUZZ_CHECK(std::fwrite(data, 1, size, file) == size);
    std::fclose(file);
}

// Puts the module back into its state right after load, with no parameter file on
// disk, before each input. Targets that link the module call this first.
void fresh_module();

}  // namespace fuzz

#endif
