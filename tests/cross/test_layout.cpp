// The shape of the built library, checked on the target the test runs on. (The
// records a HAL reads by layout are pinned where they are declared.)
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <set>
#include <string>

#include "calmodule/module.h"
#include "support/elf_reader.h"
#include "support/test_env.h"

namespace {

uint16_t this_machine() {
#if defined(__x86_64__)
    return 62;  // EM_X86_64
#elif defined(__aarch64__)
    return 183;  // EM_AARCH64
#elif defined(__arm__)
    return 40;  // EM_ARM
#else
    return 0;
#endif
}

testsupport::ElfInfo module_elf(const char *path = testsupport::module_path()) {
    testsupport::ElfInfo info;
    std::string error;
    EXPECT_TRUE(testsupport::read_elf(path, &info, &error)) << error;
    return info;
}

TEST(BuiltLibrary, IsBuiltForThisTargetAndItsPageSize) {
    const testsupport::ElfInfo elf = module_elf();
    EXPECT_EQ(elf.elf_class, static_cast<int>(8 * sizeof(void *)));
    EXPECT_EQ(elf.machine, this_machine());
    ASSERT_FALSE(elf.load_alignments.empty());
    // arm64 devices with 16 KiB pages load only a library whose LOAD segments allow them.
#if defined(__aarch64__)
    const uint64_t required = 16384;
#else
    const uint64_t required = 4096;
#endif
    for (uint64_t a : elf.load_alignments) EXPECT_GE(a, required);
}

// Math functions whose results a C library may round differently from another.
std::set<std::string> inexact_math_names() {
    static const char *const kInexact[] = {
        "sin",   "cos",   "tan",   "sincos", "asin",  "acos",  "atan",  "atan2", "sinh",  "cosh",  "tanh",
        "asinh", "acosh", "atanh", "exp",    "exp2",  "exp10", "expm1", "log",   "log2",  "log10", "log1p",
        "pow",   "cbrt",  "hypot", "erf",    "erfc",  "lgamma", "tgamma", "sqrt"};
    std::set<std::string> names;
    for (const char *n : kInexact) {
        names.insert(n);
        names.insert(std::string(n) + "f");
        names.insert(std::string(n) + "l");
    }
    return names;
}

// By default the module calls the platform's libm. Built with the reproducible math,
// it imports none of it (every call binds to the portable versions inside) and still
// exports exactly the same names.
TEST(BuiltLibrary, MathComesFromThePlatformByDefaultAndFromWithinWithTheReproducibleMath) {
    const std::set<std::string> inexact = inexact_math_names();
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
