// What a HAL's loader sees of the built module: exactly the exported names, unmangled,
// the log entry point left to the platform, no C++ runtime.
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

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;  // the sanitizer runtime adds hooks and NEEDED entries
#else
constexpr bool kSanitized = false;
#endif
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
        if (s.defined && s.is_global && !(kSanitized && is_sanitizer_symbol(s.name))) exported.insert(s.name);
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

TEST(Exports, NeedsOnlyLibcLibmAndLiblogAndLeavesTheLogEntryPointToThePlatform) {
    const ElfInfo info = module_elf();
    bool log_imported = false;
    for (const auto &s : info.dynamic_symbols) log_imported |= s.name == "__android_log_print" && !s.defined;
    EXPECT_TRUE(log_imported);
    std::set<std::string> needed;
    for (const auto &lib : info.needed) needed.insert(lib.substr(0, lib.find(".so")));
    const std::set<std::string> allowed{"libc", "libm", "liblog"};
    EXPECT_TRUE(needed.count("liblog"));
    if (!kSanitized) EXPECT_TRUE(std::includes(allowed.begin(), allowed.end(), needed.begin(), needed.end()));
}

}  // namespace
