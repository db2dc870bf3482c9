// What a HAL's loader sees of the built module: exactly the exported names, unmangled,
// the log entry point left to the platform, no C++ runtime, constant descriptor data.
#include <gtest/gtest.h>

#include <dirent.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <string>

#include "support/elf_reader.h"
#include "support/test_env.h"

namespace {

using testsupport::ElfInfo;

// The expected names, one file per subsystem (exports_<subsystem>.txt), one name a line.
std::set<std::string> expected_exports() {
    std::set<std::string> names;
    DIR *dir = opendir(CALMODULE_EXPORT_LISTS);
    if (!dir) return names;
    while (dirent *e = readdir(dir)) {
        const std::string file = e->d_name;
        if (file.rfind("exports_", 0) != 0 || file.size() < 4 || file.substr(file.size() - 4) != ".txt") continue;
        std::ifstream in(std::string(CALMODULE_EXPORT_LISTS) + "/" + file);
        for (std::string line; std::getline(in, line);) {
            if (!line.empty() && line[0] != '#') names.insert(line);
        }
    }
    closedir(dir);
    return names;
}

ElfInfo module_elf() {
    ElfInfo info;
    std::string error;
    EXPECT_TRUE(testsupport::read_elf(testsupport::module_path(), &info, &error)) << error;
    return info;
}

bool sanitized_build() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_UNDEFINED__)
    return true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(undefined_behavior_sanitizer)
    return true;
#endif
#endif
    return false;
}

// ASan adds its own hooks and one-definition-rule indicators (__odr_asan.<name>).
bool is_sanitizer_symbol(const std::string &name) {
    for (const char *prefix : {"__asan", "___asan", "__odr_asan", "__ubsan", "__sanitizer"}) {
        if (name.rfind(prefix, 0) == 0) return true;
    }
    return false;
}

TEST(Exports, DynamicSymbolTableHoldsExactlyTheInterface) {
    const std::set<std::string> expected = expected_exports();
    ASSERT_FALSE(expected.empty());
    std::set<std::string> exported;
    for (const auto &s : module_elf().dynamic_symbols) {
        if (!s.defined || !s.is_global) continue;
        // Sanitizer runtimes add their own hooks to an instrumented build.
        if (sanitized_build() && is_sanitizer_symbol(s.name)) continue;
        exported.insert(s.name);
    }
    std::set<std::string> missing, extra;
    std::set_difference(expected.begin(), expected.end(), exported.begin(), exported.end(),
                        std::inserter(missing, missing.end()));
    std::set_difference(exported.begin(), exported.end(), expected.begin(), expected.end(),
                        std::inserter(extra, extra.end()));
    std::string report;
    for (const auto &n : missing) report += " missing:" + n;
    for (const auto &n : extra) report += " extra:" + n;
    EXPECT_TRUE(missing.empty() && extra.empty()) << report;
    for (const auto &n : exported) EXPECT_EQ(n.rfind("_Z", 0), std::string::npos) << "mangled: " << n;
}

TEST(Exports, LogEntryPointIsLeftToThePlatform) {
    bool found = false;
    for (const auto &s : module_elf().dynamic_symbols) {
        if (s.name == "__android_log_print") {
            found = true;
            EXPECT_FALSE(s.defined);
        }
    }
    EXPECT_TRUE(found);
}

TEST(Exports, NeedsOnlyLibcLibmAndLiblog) {
    if (sanitized_build()) GTEST_SKIP() << "sanitizer runtimes are extra NEEDED entries by design";
    const ElfInfo info = module_elf();
    for (const auto &lib : info.needed) {
        const bool allowed = lib.rfind("libc.so", 0) == 0 || lib.rfind("libm.so", 0) == 0 ||
                             lib.rfind("liblog.so", 0) == 0;
        EXPECT_TRUE(allowed) << "unexpected NEEDED " << lib;
    }
    EXPECT_NE(std::find_if(info.needed.begin(), info.needed.end(),
                           [](const std::string &l) { return l.rfind("liblog.so", 0) == 0; }),
              info.needed.end());
}

TEST(Exports, DescriptorLivesInReadOnlyMemoryAfterRelocation) {
    for (const auto &s : module_elf().dynamic_symbols) {
        if (s.name != "scmi") continue;
        EXPECT_TRUE(s.is_object);
        EXPECT_TRUE(s.section == ".data.rel.ro" || s.section == ".rodata") << s.section;
        return;
    }
    FAIL() << "scmi not found";
}

}  // namespace
