// A freshly loaded module for every input.
//
// The module keeps all its state in static storage from load to unload, so "freshly
// loaded" means exactly: its .data and .bss as the loader left them. Unloading and
// loading the library per input does not mix with libFuzzer (an instrumented library
// takes its coverage counters and sanitizer metadata along, and the next load hands
// out new ones). So the library is linked normally, the two sections are copied once
// before the first input (nothing of the module has run yet) and copied back before
// every input. The coverage counters live in sections of their own.
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "fuzz_support.h"

namespace fuzz {
namespace {

struct Section {
    unsigned char *at;
    std::vector<unsigned char> saved;
};

// Byte by byte and uninstrumented: the sections hold the redzones the address
// sanitizer put around the module's globals, which instrumented code may not touch.
__attribute__((no_sanitize("address"))) void copy(const unsigned char *from, unsigned char *to, size_t n) {
    const volatile unsigned char *src = from;
    volatile unsigned char *dst = to;
    for (size_t i = 0; i < n; ++i) dst[i] = src[i];
}

// .data and .bss of the loaded module, located through the file's section headers.
std::vector<Section> module_state() {
    std::pair<ElfW(Addr), std::string> found;  // load address and file
    dl_iterate_phdr(
        [](struct dl_phdr_info *info, size_t, void *out) {
            if (!info->dlpi_name || !std::strstr(info->dlpi_name, "libcalmodule_quarvel")) return 0;
            *static_cast<std::pair<ElfW(Addr), std::string> *>(out) = {info->dlpi_addr, info->dlpi_name};
            return 1;
        },
        &found);
    const int fd = open(found.second.c_str(), O_RDONLY);
    FUZZ_CHECK(fd >= 0);
    auto read_at = [fd](off_t offset, void *buf, size_t size) {
        FUZZ_CHECK(pread(fd, buf, size, offset) == static_cast<ssize_t>(size));
    };
    ElfW(Ehdr) eh;
    read_at(0, &eh, sizeof eh);
    std::vector<ElfW(Shdr)> sh(eh.e_shnum);
    read_at(static_cast<off_t>(eh.e_shoff), sh.data(), sh.size() * sizeof(ElfW(Shdr)));
    std::vector<char> names(sh[eh.e_shstrndx].sh_size + 1, '\0');
    read_at(static_cast<off_t>(sh[eh.e_shstrndx].sh_offset), names.data(), names.size() - 1);
    close(fd);

    std::vector<Section> state;
    for (const ElfW(Shdr) &s : sh) {
        const char *name = names.data() + s.sh_name;
        if (std::strcmp(name, ".data") != 0 && std::strcmp(name, ".bss") != 0) continue;
        auto *at = reinterpret_cast<unsigned char *>(found.first + s.sh_addr);
        state.push_back({at, std::vector<unsigned char>(s.sh_size)});
        copy(at, state.back().saved.data(), s.sh_size);
    }
    FUZZ_CHECK(!state.empty());
    return state;
}

}  // namespace

void fresh_module() {
    static const std::vector<Section> state = module_state();
    for (const Section &s : state) copy(s.saved.data(), s.at, s.saved.size());
    std::remove(CALMODULE_PARAM_FILE_PATH);
}

}  // namespace fuzz
