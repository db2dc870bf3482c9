// The shape of the built library, checked on the target the test runs on. (The
// records a HAL reads by layout are pinned where they are declared.)
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "portable_math.h"
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

testsupport::ElfInfo module_elf() {
    testsupport::ElfInfo info;
    std::string error;
    EXPECT_TRUE(testsupport::read_elf(testsupport::module_path(), &info, &error)) << error;
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

// Math functions whose results a C library may round differently from another. Each
// one the module imports must have a portable stand-in in the identity session, or
// the session's bit-identity across targets would rest on the platform's libm.
TEST(BuiltLibrary, EveryInexactMathImportHasAPortableStandIn) {
    static const char *const kInexact[] = {
        "sin",   "cos",   "tan",   "sincos", "asin",  "acos",  "atan",  "atan2", "sinh",  "cosh",  "tanh",
        "asinh", "acosh", "atanh", "exp",    "exp2",  "exp10", "expm1", "log",   "log2",  "log10", "log1p",
        "pow",   "cbrt",  "hypot", "erf",    "erfc",  "lgamma", "tgamma", "sqrt"};
    std::set<std::string> inexact;
    for (const char *n : kInexact) {
        inexact.insert(n);
        inexact.insert(std::string(n) + "f");
        inexact.insert(std::string(n) + "l");
    }
    const std::set<std::string> interposed(std::begin(portable::kInterposedNames),
                                           std::end(portable::kInterposedNames));
    for (const auto &s : module_elf().dynamic_symbols) {
        if (s.defined || !inexact.count(s.name)) continue;
        EXPECT_TRUE(interposed.count(s.name)) << "the module calls " << s.name
                                              << ", which the identity session does not replace";
    }
}

}  // namespace
