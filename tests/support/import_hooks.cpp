#include "support/import_hooks.hpp"

#include <elf.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace kel_test {
namespace {

#if defined(__x86_64__)
using Relocation = ElfW(Rela);
constexpr auto table_tag = DT_RELA, table_size_tag = DT_RELASZ;
constexpr auto symbol_of = [](const Relocation& r) { return ELF64_R_SYM(r.r_info); };
constexpr auto is_address = [](const Relocation& r) {
    auto type = ELF64_R_TYPE(r.r_info);
    return type == R_X86_64_JUMP_SLOT || type == R_X86_64_GLOB_DAT || type == R_X86_64_64;
};
#elif defined(__arm__)
using Relocation = ElfW(Rel);
constexpr auto table_tag = DT_REL, table_size_tag = DT_RELSZ;
constexpr auto symbol_of = [](const Relocation& r) { return ELF32_R_SYM(r.r_info); };
constexpr auto is_address = [](const Relocation& r) {
    auto type = ELF32_R_TYPE(r.r_info);
    return type == R_ARM_JUMP_SLOT || type == R_ARM_GLOB_DAT || type == R_ARM_ABS32;
};
#else
#error "Say here how this processor's relocations look."
#endif

struct Search {
    const char* library;
    const char* symbol;
    std::vector<void**> found;
};

struct Table {
    const Relocation* rows = nullptr;
    std::size_t bytes = 0;
};

int visit(dl_phdr_info* object, std::size_t, void* argument) {
    auto& search = *static_cast<Search*>(argument);
    const char* name = std::strrchr(object->dlpi_name, '/');
    if (!std::strstr(name ? name : object->dlpi_name, search.library)) return 0;
    const ElfW(Dyn)* dynamic = nullptr;
    for (int i = 0; i < object->dlpi_phnum; ++i)
        if (object->dlpi_phdr[i].p_type == PT_DYNAMIC)
            dynamic = reinterpret_cast<const ElfW(Dyn)*>(object->dlpi_addr + object->dlpi_phdr[i].p_vaddr);
    const ElfW(Sym)* symbols = nullptr;
    const char* strings = nullptr;
    Table tables[2];
    for (; dynamic && dynamic->d_tag != DT_NULL; ++dynamic) {
        auto* address = reinterpret_cast<void*>(dynamic->d_un.d_ptr);
        if (dynamic->d_tag == DT_SYMTAB) symbols = static_cast<const ElfW(Sym)*>(address);
        if (dynamic->d_tag == DT_STRTAB) strings = static_cast<const char*>(address);
        if (dynamic->d_tag == DT_JMPREL) tables[0].rows = static_cast<const Relocation*>(address);
        if (dynamic->d_tag == DT_PLTRELSZ) tables[0].bytes = dynamic->d_un.d_val;
        if (dynamic->d_tag == table_tag) tables[1].rows = static_cast<const Relocation*>(address);
        if (dynamic->d_tag == table_size_tag) tables[1].bytes = dynamic->d_un.d_val;
    }
    for (const Table& table : tables)
        for (std::size_t i = 0; i < table.bytes / sizeof(Relocation); ++i) {
            const Relocation& row = table.rows[i];
            if (!is_address(row) ||
                std::strcmp(strings + symbols[symbol_of(row)].st_name, search.symbol) != 0)
                continue;
            search.found.push_back(reinterpret_cast<void**>(object->dlpi_addr + row.r_offset));
        }
    return 0;
}

// The slots are read-only after start-up (RELRO); they stay writable once touched.
void store(void** slot, void* value) {
    auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    auto* start = reinterpret_cast<void*>(reinterpret_cast<std::uintptr_t>(slot) & ~(page - 1));
    if (mprotect(start, page, PROT_READ | PROT_WRITE) != 0) {
        std::perror("mprotect of an import slot");
        std::abort();
    }
    __atomic_store_n(slot, value, __ATOMIC_RELEASE);
}

}  // namespace

ImportHook::ImportHook(const char* symbol, void* replacement, const char* library) {
    Search search{library, symbol, {}};
    dl_iterate_phdr(visit, &search);
    for (void** slot : search.found) {
        slots_.push_back({slot, *slot});
        store(slot, replacement);
    }
}

ImportHook::ImportHook(ImportHook&& other) noexcept : slots_(std::exchange(other.slots_, {})) {}

ImportHook::~ImportHook() {
    for (const Slot& slot : slots_) store(slot.address, slot.saved);
}

}  // namespace kel_test
