#include "support/elf_reader.h"

#include <elf.h>

#include <cstring>
#include <fstream>
#include <iterator>

namespace testsupport {
namespace {

template <class Ehdr, class Shdr, class Phdr, class Sym, class Dyn, int Bits>
bool parse(const std::vector<char> &f, ElfInfo *info, std::string *error) {
    auto in_bounds = [&](uint64_t off, uint64_t len) { return off <= f.size() && len <= f.size() - off; };
    if (!in_bounds(0, sizeof(Ehdr))) return (*error = "truncated header", false);
    Ehdr eh;
    std::memcpy(&eh, f.data(), sizeof eh);
    info->elf_class = Bits;
    info->machine = eh.e_machine;

    std::vector<Shdr> sh(eh.e_shnum);
    if (!in_bounds(eh.e_shoff, uint64_t(eh.e_shnum) * sizeof(Shdr))) return (*error = "bad section table", false);
    std::memcpy(sh.data(), f.data() + eh.e_shoff, sh.size() * sizeof(Shdr));
    auto str_at = [&](const Shdr &strtab, uint64_t idx) -> std::string {
        if (idx >= strtab.sh_size || !in_bounds(strtab.sh_offset, strtab.sh_size)) return {};
        const char *p = f.data() + strtab.sh_offset + idx;
        return std::string(p, strnlen(p, strtab.sh_size - idx));
    };

    for (const Shdr &s : sh) {
        if (s.sh_link >= sh.size() || !in_bounds(s.sh_offset, s.sh_size)) continue;
        const Shdr &strtab = sh[s.sh_link];
        if (s.sh_type == SHT_DYNSYM) {
            for (uint64_t off = sizeof(Sym); off + sizeof(Sym) <= s.sh_size; off += sizeof(Sym)) {
                Sym sym;
                std::memcpy(&sym, f.data() + s.sh_offset + off, sizeof sym);
                ElfSymbol e;
                e.name = str_at(strtab, sym.st_name);
                e.defined = sym.st_shndx != SHN_UNDEF;
                const unsigned bind = sym.st_info >> 4;
                e.is_global = bind == STB_GLOBAL || bind == STB_WEAK;
                info->dynamic_symbols.push_back(e);
            }
        } else if (s.sh_type == SHT_DYNAMIC) {
            for (uint64_t off = 0; off + sizeof(Dyn) <= s.sh_size; off += sizeof(Dyn)) {
                Dyn d;
                std::memcpy(&d, f.data() + s.sh_offset + off, sizeof d);
                if (d.d_tag == DT_NULL) break;
                if (d.d_tag == DT_NEEDED) info->needed.push_back(str_at(strtab, d.d_un.d_val));
            }
        }
    }

    if (!in_bounds(eh.e_phoff, uint64_t(eh.e_phnum) * sizeof(Phdr))) return (*error = "bad program headers", false);
    for (unsigned i = 0; i < eh.e_phnum; ++i) {
        Phdr ph;
        std::memcpy(&ph, f.data() + eh.e_phoff + i * sizeof(Phdr), sizeof ph);
        if (ph.p_type == PT_LOAD) info->load_alignments.push_back(ph.p_align);
    }
    return true;
}

}  // namespace

bool read_elf(const std::string &path, ElfInfo *info, std::string *error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return (*error = "cannot open " + path, false);
    std::vector<char> f((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (f.size() < EI_NIDENT || std::memcmp(f.data(), ELFMAG, SELFMAG) != 0) return (*error = "not ELF", false);
    if (f[EI_DATA] != ELFDATA2LSB) return (*error = "not little-endian", false);
    if (f[EI_CLASS] == ELFCLASS32)
        return parse<Elf32_Ehdr, Elf32_Shdr, Elf32_Phdr, Elf32_Sym, Elf32_Dyn, 32>(f, info, error);
    if (f[EI_CLASS] == ELFCLASS64)
        return parse<Elf64_Ehdr, Elf64_Shdr, Elf64_Phdr, Elf64_Sym, Elf64_Dyn, 64>(f, info, error);
    return (*error = "unknown ELF class", false);
}

}  // namespace testsupport
