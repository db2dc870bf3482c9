// Reads what a HAL's loader sees of a shared library: dynamic symbols, NEEDED
// entries and LOAD segment alignment. Works on 32- and 64-bit
// little-endian ELF files, so the same checks run for every target.
#ifndef CALMODULE_TESTS_ELF_READER_H
#define CALMODULE_TESTS_ELF_READER_H

#include <cstdint>
#include <string>
#include <vector>

namespace testsupport {

struct ElfSymbol {
    std::string name;
    bool defined = false;
    bool is_global = false;  // global or weak binding
};

struct ElfInfo {
    int elf_class = 0;  // 32 or 64
    uint16_t machine = 0;
    std::vector<ElfSymbol> dynamic_symbols;
    std::vector<std::string> needed;
    std::vector<uint64_t> load_alignments;
};

bool read_elf(const std::string &path, ElfInfo *info, std::string *error);

}  // namespace testsupport

#endif
