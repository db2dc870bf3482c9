// The records a HAL reads by layout, and the shape of the built library, checked on
// the target the test runs on: on 32-bit ARM every descriptor field is one word; on
// 64-bit targets the same declarations take their natural layout. The event record
// is 104 bytes everywhere.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <set>
#include <string>

#include "calmodule/module.h"
#include "support/elf_reader.h"
#include "support/module_loader.h"
#include "support/test_env.h"

namespace {

constexpr bool kWordTarget = sizeof(void *) == 4;

struct Field {
    const char *name;
    std::size_t offset;
    std::size_t offset32;  // one 32-bit word per field
    std::size_t offset64;  // natural alignment, 8-byte pointers
};

void expect_layout(const char *record, const Field *fields, std::size_t n, std::size_t size, std::size_t size32,
                   std::size_t size64) {
    for (std::size_t i = 0; i < n; ++i) {
        EXPECT_EQ(fields[i].offset, kWordTarget ? fields[i].offset32 : fields[i].offset64)
            << record << "." << fields[i].name;
    }
    EXPECT_EQ(size, kWordTarget ? size32 : size64) << "sizeof " << record;
}

#define FIELD(type, member, o32, o64) {#member, offsetof(type, member), o32, o64}

TEST(Layout, ModuleInfoIsThirteenWordsOnThirtyTwoBitTargets) {
    const Field fields[] = {
        FIELD(cal_module_info, tag, 0, 0),          FIELD(cal_module_info, id, 4, 8),
        FIELD(cal_module_info, version, 8, 16),     FIELD(cal_module_info, vendor, 12, 24),
        FIELD(cal_module_info, handle, 16, 32),     FIELD(cal_module_info, number, 20, 40),
        FIELD(cal_module_info, methods, 24, 48),    FIELD(cal_module_info, reserved[0], 28, 56),
        FIELD(cal_module_info, reserved[1], 32, 60), FIELD(cal_module_info, reserved[2], 36, 64),
        FIELD(cal_module_info, reserved[3], 40, 68), FIELD(cal_module_info, reserved[4], 44, 72),
        FIELD(cal_module_info, reserved[5], 48, 76),
    };
    // On 32-bit targets, 13 words: every field at 4 x its index.
    expect_layout("cal_module_info", fields, sizeof fields / sizeof fields[0], sizeof(cal_module_info), 52, 80);
}

TEST(Layout, AlgorithmRecordIsSixWordsOnThirtyTwoBitTargets) {
    const Field fields[] = {
        FIELD(cal_algo, tag, 0, 0),         FIELD(cal_algo, version, 4, 4), FIELD(cal_algo, type, 8, 8),
        FIELD(cal_algo, compatible, 12, 16), FIELD(cal_algo, module, 16, 24), FIELD(cal_algo, methods, 20, 32),
    };
    expect_layout("cal_algo", fields, 6, sizeof(cal_algo), 24, 40);
    // The table is walked by stride: four records back to back.
    EXPECT_EQ(sizeof(cal_algo[4]), 4 * (kWordTarget ? 24u : 40u));

    const Field methods[] = {FIELD(cal_algo_methods, convert, 0, 0), FIELD(cal_algo_methods, config, 4, 8)};
    expect_layout("cal_algo_methods", methods, 2, sizeof(cal_algo_methods), 8, 16);
    const Field module_methods[] = {FIELD(cal_module_methods, init, 0, 0), FIELD(cal_module_methods, deinit, 4, 8),
                                    FIELD(cal_module_methods, get_algo_list, 8, 16)};
    expect_layout("cal_module_methods", module_methods, 3, sizeof(cal_module_methods), 12, 24);
}

TEST(Layout, SensorEventIsTheSameOnEveryTarget) {
    const Field fields[] = {
        FIELD(sensors_event_t, version, 0, 0),       FIELD(sensors_event_t, sensor, 4, 4),
        FIELD(sensors_event_t, type, 8, 8),          FIELD(sensors_event_t, reserved0, 12, 12),
        FIELD(sensors_event_t, timestamp, 16, 16),   FIELD(sensors_event_t, data, 24, 24),
        FIELD(sensors_event_t, data[3], 36, 36),     FIELD(sensors_event_t, data[15], 84, 84),
        FIELD(sensors_event_t, vector.status, 36, 36), FIELD(sensors_event_t, flags, 88, 88),
        FIELD(sensors_event_t, reserved1, 92, 92),
    };
    expect_layout("sensors_event_t", fields, sizeof fields / sizeof fields[0], sizeof(sensors_event_t), 104, 104);
    const Field args[] = {FIELD(cal_algo_args, enable, 0, 0), FIELD(cal_algo_args, poll_rate, 4, 4)};
    expect_layout("cal_algo_args", args, 2, sizeof(cal_algo_args), 8, 8);

}

#undef FIELD

// Reads a field the way a host that knows only the layout does (every target is little-endian).
uint64_t word_at(const void *base, std::size_t offset, std::size_t width) {
    uint64_t v = 0;
    std::memcpy(&v, static_cast<const unsigned char *>(base) + offset, width);
    return v;
}
const void *pointer_at(const void *base, std::size_t offset) {
    return reinterpret_cast<const void *>(static_cast<uintptr_t>(word_at(base, offset, sizeof(void *))));
}

TEST(Layout, HostReadingTheDescriptorByOffsetFindsTheModule) {
    testsupport::LoadedModule m;
    ASSERT_TRUE(m.ok());
    const void *scmi = m.info();
    const std::size_t p = sizeof(void *);
    // Tag, id, version, vendor, handle, number, methods, reserved: field i at i pointers.
    EXPECT_EQ(word_at(scmi, 0, 4), 0x746D6373u);
    EXPECT_STREQ(static_cast<const char *>(pointer_at(scmi, 1 * p)), "cal_module_quarvel");
    EXPECT_EQ(word_at(scmi, 2 * p, 4), 1u);
    EXPECT_STREQ(static_cast<const char *>(pointer_at(scmi, 3 * p)), "Quarvel");
    EXPECT_EQ(word_at(scmi, 4 * p, p), 0u);
    EXPECT_EQ(word_at(scmi, 5 * p, 4), 4u);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(word_at(scmi, 7 * p + 4 * i, 4), 0u) << "reserved word " << i;

    const cal_module_methods *methods = static_cast<const cal_module_methods *>(pointer_at(scmi, 6 * p));
    const cal_algo *list = nullptr;
    ASSERT_EQ(methods->get_algo_list(&list), 0);
    // cal_algo: tag, version, type, then three pointers.
    const std::size_t stride = kWordTarget ? 24 : 40;
    const std::size_t module_at = kWordTarget ? 16 : 24;
    const int32_t types[] = {2, 3, 14, 0x10001};
    for (int i = 0; i < 4; ++i) {
        const void *record = reinterpret_cast<const unsigned char *>(list) + stride * i;
        EXPECT_EQ(word_at(record, 0, 4), 0x74616373u) << "record " << i;
        EXPECT_EQ(word_at(record, 4, 4), 1u) << "record " << i;
        EXPECT_EQ(static_cast<int32_t>(word_at(record, 8, 4)), types[i]) << "record " << i;
        EXPECT_EQ(pointer_at(record, module_at), scmi) << "record " << i;
    }
}

// ---- the built library ----------------------------------------------------------

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
