// Reads the host's relocatable files: 64-bit ELF in the host's byte order.
#include <cstdio>

#include <elf.h>

#include "sample/host_compiler.h"

namespace {
struct ElfFile {
    const Buffer *bytes;
    Elf64_Ehdr header;
    uint32_t *numbers; // of each section, as a section of the module
};
} // namespace

// Copies `size` bytes at `offset`; 0 when the file has fewer.
static int take(const ElfFile *elf, uint64_t offset, void *to, size_t size)
{
    if (offset > elf->bytes->count || elf->bytes->count - offset < size)
        return 0;
    memcpy(to, elf->bytes->items + offset, size);
    return 1;
}

static int takeSection(const ElfFile *elf, unsigned number, Elf64_Shdr *section)
{
    return number < elf->header.e_shnum &&
           take(elf, elf->header.e_shoff + uint64_t{number} * sizeof *section, section,
                sizeof *section);
}

// The text at `offset` of the string section; "" when the offset is outside of it.
static const char *nameAt(const ElfFile *elf, const Elf64_Shdr *strings, uint64_t offset)
{
    uint64_t start = strings->sh_offset + offset;
    if (offset >= strings->sh_size || start >= elf->bytes->count)
        return "";
    // A buffer ends with a NUL of its own.
    return elf->bytes->items + start;
}

static int addSection(ElfFile *elf, OrbModule *module, const Elf64_Shdr *from, const char *name)
{
    OrbSection section = {};
    section.name = arena_copy(*name == '.' ? name + 1 : name);
    section.isData = (from->sh_flags & SHF_WRITE) != 0;
    section.size = static_cast<uint32_t>(from->sh_size);
    if (from->sh_type == SHT_PROGBITS) {
        if (from->sh_offset > elf->bytes->count ||
            elf->bytes->count - from->sh_offset < from->sh_size)
            return 0;
        buffer_add(&section.bytes, elf->bytes->items + from->sh_offset, from->sh_size);
    }
    list_add(&module->sections, section);
    return 1;
}

static int addSections(ElfFile *elf, OrbModule *module)
{
    Elf64_Shdr names;
    if (!takeSection(elf, elf->header.e_shstrndx, &names))
        return 0;
    elf->numbers =
        static_cast<uint32_t *>(arena_alloc((elf->header.e_shnum + 1u) * sizeof(uint32_t)));
    for (unsigned i = 0; i < elf->header.e_shnum; i++) {
        Elf64_Shdr section;
        if (!takeSection(elf, i, &section))
            return 0;
        elf->numbers[i] = SECTION_UNDEFINED;
        int kept = section.sh_type == SHT_PROGBITS || section.sh_type == SHT_NOBITS;
        if (!kept || (section.sh_flags & SHF_ALLOC) == 0 || section.sh_size == 0)
            continue;
        elf->numbers[i] = static_cast<uint32_t>(module->sections.count);
        if (section.sh_size > 1 << 20 ||
            !addSection(elf, module, &section, nameAt(elf, &names, section.sh_name)))
            return 0;
    }
    return 1;
}

static void addSymbol(const ElfFile *elf, OrbModule *module, const Elf64_Sym *symbol,
                      const char *name)
{
    unsigned binding = ELF64_ST_BIND(symbol->st_info);
    if ((binding != STB_GLOBAL && binding != STB_WEAK) || *name == 0)
        return;
    uint32_t section = symbol->st_shndx < elf->header.e_shnum ? elf->numbers[symbol->st_shndx]
                                                              : uint32_t{SECTION_UNDEFINED};
    uint32_t value = section == SECTION_UNDEFINED ? 0 : static_cast<uint32_t>(symbol->st_value);
    list_add(&module->symbols, OrbSymbol{arena_format("_%s", name), section, value, 1, 0});
}

static int addSymbols(const ElfFile *elf, OrbModule *module, const Elf64_Shdr *table)
{
    Elf64_Shdr strings;
    if (!takeSection(elf, table->sh_link, &strings))
        return 0;
    for (uint64_t at = 0; at + sizeof(Elf64_Sym) <= table->sh_size; at += sizeof(Elf64_Sym)) {
        Elf64_Sym symbol;
        if (!take(elf, table->sh_offset + at, &symbol, sizeof symbol))
            return 0;
        addSymbol(elf, module, &symbol, nameAt(elf, &strings, symbol.st_name));
    }
    return 1;
}

int host_readObject(const Buffer *file, OrbModule *module)
{
    ElfFile elf = {};
    elf.bytes = file;
    if (!take(&elf, 0, &elf.header, sizeof elf.header) ||
        memcmp(elf.header.e_ident, ELFMAG, SELFMAG) != 0 ||
        elf.header.e_ident[EI_CLASS] != ELFCLASS64 || !addSections(&elf, module))
        return 0;
    for (unsigned i = 0; i < elf.header.e_shnum; i++) {
        Elf64_Shdr section;
        if (takeSection(&elf, i, &section) && section.sh_type == SHT_SYMTAB)
            return addSymbols(&elf, module, &section);
    }
    return 1;
}
