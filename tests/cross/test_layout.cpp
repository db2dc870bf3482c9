// The shape of the built library, checked on the target the test runs on. (The
// records a HAL reads by layout are pinned where they are declared.)
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>

#include "support/elf_reader.h"
#include "support/test_env.h"

namespace {

testsupport::ElfInfo module_elf(const char *path) {
    testsupport::ElfInfo info;
    std::string error;
    EXPECT_TRUE(testsupport::read_elf(path, &info, &error)) << error;
    return info;
}

TEST(BuiltLibrary, IsBuiltForThisTargetAndItsPageSize) {
    const testsupport::ElfInfo elf = module_elf(testsupport::module_path());
    EXPECT_EQ(elf.elf_class, static_cast<int>(8 * sizeof(void *)));
    // arm64 devices with 16 KiB pages load only a library whose LOAD segments allow them.
#if defined(__x86_64__)
    const uint16_t machine = 62;  // EM_X86_64
    const uint64_t page = 4096;
#elif defined(__aarch64__)
    const uint16_t machine = 183;  // EM_AARCH64
    const uint64_t page = 16384;
#else
    const uint16_t machine = 40;  // EM_ARM
    const uint64_t page = 4096;
#endif
    EXPECT_EQ(elf.machine, machine);
    ASSERT_FALSE(elf.load_alignments.empty());
    for (uint64_t a : elf.load_alignments) EXPECT_GE(a, page);
}

// By default the module calls the platform's libm. Built with the reproducible math,
// it imports none of the math functions whose results a C library may round its own
// way (every call binds to the portable versions inside) and still exports exactly
// the same names.
TEST(BuiltLibrary, MathComesFromThePlatformByDefaultAndFromWithinWithTheReproducibleMath) {
    std::set<std::string> inexact;
    for (const char *n : {"sin", "cos", "tan", "sincos", "asin", "acos", "atan", "atan2", "sinh", "cosh", "tanh",
                          "asinh", "acosh", "atanh", "exp", "exp2", "exp10", "expm1", "log", "log2", "log10", "log1p",
                          "pow", "cbrt", "hypot", "erf", "erfc", "lgamma", "tgamma", "sqrt"}) {
        inexact.insert({n, std::string(n) + "f", std::string(n) + "l"});
    }
    std::set<std::string> platform_imports, platform_exports, reproducible_exports;
    for (const auto &s : module_elf(CALMODULE_PLATFORM_MATH_SO_PATH).dynamic_symbols) {
        if (!s.defined && inexact.count(s.name)) platform_imports.insert(s.name);
        if (s.defined && s.is_global) platform_exports.insert(s.name);
    }
    for (const char *always_called : {"powf", "atan2f", "asinf", "atanf"}) {
        EXPECT_TRUE(platform_imports.count(always_called)) << always_called << " not taken from the platform";
    }
    for (const auto &s : module_elf(CALMODULE_REPRODUCIBLE_SO_PATH).dynamic_symbols) {
        EXPECT_FALSE(inexact.count(s.name)) << s.name << (s.defined ? " exported" : " still taken from the platform");
        if (s.defined && s.is_global) reproducible_exports.insert(s.name);
    }
    EXPECT_EQ(reproducible_exports, platform_exports);
}

}  // namespace
