#include "sample/orb_linker.h"

#include "sample/orb_assembler.h"

// The code at the start of the program, when no module has a start of its own.
static const char STARTUP[] = "\tglobal _main\n"
                              "\tpsect reset\n"
                              "start:\tcall _main\n"
                              "\tjmp start\n"
                              "\tend start\n";

// The functions of the C library. The sample has no code for them: each one is a "ret".
static const char *const LIBRARY_FUNCTIONS[] = {
    "_abs",    "_atoi",    "_labs",   "_memcmp", "_memcpy",   "_memmove", "_memset",
    "_printf", "_putchar", "_puts",   "_rand",   "_snprintf", "_sprintf", "_srand",
    "_strcat", "_strchr",  "_strcmp", "_strcpy", "_strlen",   "_strncmp", "_strncpy",
};

uint32_t orblink_address(const OrbModule *module, const OrbSymbol *symbol)
{
    if (symbol->section == SECTION_CONSTANT)
        return symbol->value;
    return module->sections.items[symbol->section].address + symbol->value;
}

static const Definition *findDefinition(OrbProgram *program, const char *name)
{
    const uint32_t *number = symbols_find(&program->names, name);
    return number == nullptr ? nullptr : &program->definitions.items[*number];
}

static void addDefinition(OrbProgram *program, const OrbModule *module, const OrbSymbol *symbol)
{
    const Definition *known = findDefinition(program, symbol->name);
    if (known != nullptr) {
        report_error(program->report, {}, 1602, "symbol \"%s\" is defined in \"%s\" and in \"%s\"",
                     symbol->name, known->module->file, module->file);
        return;
    }
    symbols_add(&program->names, symbol->name, static_cast<uint32_t>(program->definitions.count));
    list_add(&program->definitions, Definition{symbol->name, module, symbol});
}

static void addSymbols(OrbProgram *program, const OrbModule *module)
{
    for (const OrbSymbol &symbol : module->symbols) {
        if (symbol.section == SECTION_UNDEFINED)
            list_add(&program->needs, Need{symbol.name, module});
        else if (symbol.isGlobal)
            addDefinition(program, module, &symbol);
    }
}

static void addModule(OrbProgram *program, OrbModule *module)
{
    list_add(&program->modules, module);
    addSymbols(program, module);
}

static void addStartup(OrbProgram *program)
{
    int hasC = 0;
    for (const OrbModule *module : program->modules) {
        hasC |= module->isIntermediate;
        if (module->hasStart)
            return;
    }
    if (hasC && !program->noStartup)
        addModule(program, orbasm_assemble(STARTUP, "start-up code", program->chip->name,
                                           program->report, nullptr));
}

// Whether the module defines something that is needed and that nobody has defined yet. `needed`
// holds the needed names.
static int isWanted(OrbProgram *program, SymbolTable *needed, const LibraryModule *module)
{
    for (const LibrarySymbol &symbol : module->symbols)
        if (!symbol.isNeeded && symbols_find(needed, symbol.name) != nullptr &&
            findDefinition(program, symbol.name) == nullptr)
            return 1;
    return 0;
}

static void noteNeeds(const OrbProgram *program, size_t *from, SymbolTable *needed)
{
    for (; *from < program->needs.count; (*from)++)
        if (symbols_find(needed, program->needs.items[*from].name) == nullptr)
            symbols_add(needed, program->needs.items[*from].name, 0);
}

// A module of a library may need another one, in any order, so this goes on until nothing is added.
// added.
static void addLibraryModules(OrbProgram *program)
{
    SymbolTable needed = {};
    size_t noted = 0;
    for (int added = 1; added;) {
        added = 0;
        for (LibraryModule &module : program->libraryModules) {
            noteNeeds(program, &noted, &needed);
            if (module.bytes == nullptr || !isWanted(program, &needed, &module))
                continue;
            OrbModule *read = orbmodule_read(module.name, module.bytes, module.size);
            module.bytes = nullptr; // taken
            added = 1;
            if (read == nullptr)
                report_error(program->report, {}, 133, "file \"%s\" is damaged: %s", module.name,
                             "it is no module");
            else
                addModule(program, read);
        }
    }
}

static int isLibraryFunction(const char *name)
{
    // The compiler's own helpers begin with two underscores, after the one that every C name has.
    if (strncmp(name, "___", 3) == 0)
        return 1;
    for (const char *function : LIBRARY_FUNCTIONS)
        if (strcmp(function, name) == 0)
            return 1;
    return 0;
}

static void addLibraryFunctions(OrbProgram *program)
{
    Buffer source = {};
    SymbolTable added = {};
    buffer_print(&source, "\tpsect clib\n");
    for (const Need &need : program->needs) {
        if (findDefinition(program, need.name) != nullptr || !isLibraryFunction(need.name) ||
            symbols_find(&added, need.name) != nullptr)
            continue;
        symbols_add(&added, need.name, 0);
        buffer_print(&source, "\tglobal %s\n%s:\tret\n", need.name, need.name);
    }
    if (added.count != 0 && !program->noLibrary)
        addModule(program, orbasm_assemble(buffer_text(&source), "C library", program->chip->name,
                                           program->report, nullptr));
}

// One message per name, however many modules need it.
static void checkNeeds(OrbProgram *program)
{
    SymbolTable reported = {};
    for (const Need &need : program->needs) {
        if (findDefinition(program, need.name) != nullptr ||
            symbols_find(&reported, need.name) != nullptr)
            continue;
        symbols_add(&reported, need.name, 0);
        report_error(program->report, {need.module->file, 0, 0}, 1600,
                     "symbol \"%s\" is not defined; it is used in \"%s\"", need.name,
                     need.module->file);
    }
}

static int isFirst(const OrbSection *section)
{
    return strncmp(section->name, "reset", 5) == 0;
}

// The nearest number that an address can hold: a larger one does not fit into any device anyway.
static uint32_t to32Bits(uint64_t number)
{
    return number > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(number);
}

static uint64_t placeCode(OrbProgram *program, uint64_t next, int first)
{
    for (OrbModule *module : program->modules)
        for (OrbSection &section : module->sections) {
            if (section.isData || isFirst(&section) != first)
                continue;
            section.address = to32Bits(next);
            next += (section.size + 1u) & ~1u;
        }
    return next;
}

static uint64_t placeData(OrbProgram *program)
{
    uint64_t next = program->chip->dataStart;
    for (OrbModule *module : program->modules)
        for (OrbSection &section : module->sections) {
            if (!section.isData)
                continue;
            section.address = to32Bits(next);
            next += section.size;
        }
    return next - program->chip->dataStart;
}

// The initial values of data follow the code in program memory, and start-up code fetches them from
// there.
static uint64_t valuesSize(const OrbProgram *program)
{
    uint64_t size = 0;
    for (const OrbModule *module : program->modules)
        for (const OrbSection &section : module->sections)
            size += section.isData ? section.bytes.count : 0;
    return size;
}

static int placeAll(OrbProgram *program)
{
    uint64_t next = placeCode(program, program->codeOffset, 1);
    next = placeCode(program, next, 0);
    uint64_t needed = next + valuesSize(program);
    if (needed > program->chip->programBytes)
        report_error(program->report, {}, 1658,
                     "program needs 0x%x bytes of program memory; device \"%s\" has 0x%x",
                     to32Bits(needed), program->chip->name, program->chip->programBytes);
    uint64_t data = placeData(program);
    if (data > program->chip->dataBytes)
        report_error(program->report, {}, 1659,
                     "data needs 0x%x bytes of data memory; device \"%s\" has 0x%x", to32Bits(data),
                     program->chip->name, program->chip->dataBytes);
    program->dataUsed = to32Bits(data);
    return program->report->errors == 0;
}

// Puts the section's bytes at its address, and zeros for those it lacks.
static void putSection(OrbProgram *program, const OrbSection *section)
{
    size_t at = section->address - program->codeOffset;
    size_t end = at + ((section->size + 1u) & ~1u);
    list_reserve(&program->image, end + 1);
    if (program->image.count < end) {
        memset(program->image.items + program->image.count, 0, end - program->image.count);
        program->image.count = end;
    }
    if (section->bytes.count != 0)
        memcpy(program->image.items + at, section->bytes.items, section->bytes.count);
}

static void buildImage(OrbProgram *program)
{
    for (const OrbModule *module : program->modules)
        for (const OrbSection &section : module->sections)
            if (!section.isData)
                putSection(program, &section);
    for (const OrbModule *module : program->modules)
        for (const OrbSection &section : module->sections)
            if (section.isData)
                buffer_add(&program->image, section.bytes.items, section.bytes.count);
}

static void apply(OrbProgram *program, OrbModule *module, const OrbReloc *reloc)
{
    const OrbSymbol *symbol = &module->symbols.items[reloc->symbol];
    const OrbModule *owner = module;
    if (symbol->section == SECTION_UNDEFINED) {
        const Definition *definition = findDefinition(program, symbol->name);
        owner = definition->module;
        symbol = definition->symbol;
    }
    uint32_t address = orblink_address(owner, symbol) + reloc->add;
    char *at = module->sections.items[reloc->section].bytes.items + reloc->offset;
    if (reloc->kind == RELOC_LOW_BYTE)
        *at = static_cast<char>(*at | static_cast<char>(address));
    else
        bytes_put16(at, reloc->kind == RELOC_WORD_ADDRESS ? address / 2 : address);
    uint32_t limit = reloc->kind == RELOC_WORD_ADDRESS ? 0x20000 : 0x10000;
    if (address >= limit && reloc->kind != RELOC_LOW_BYTE)
        report_error(program->report, {module->file, 0, 0}, 1649,
                     "fixup of \"%s\" at 0x%x in \"%s\": value 0x%x does not fit into %u bits",
                     symbol->name, reloc->offset, module->file, address, 16u);
}

static void findStart(OrbProgram *program)
{
    program->start = program->codeOffset;
    for (const OrbModule *module : program->modules) {
        if (!module->hasStart)
            continue;
        const OrbSymbol *symbol = &module->symbols.items[module->start];
        if (symbol->section != SECTION_UNDEFINED)
            program->start = orblink_address(module, symbol);
        return;
    }
}

int orblink(OrbProgram *program)
{
    for (const OrbModule *module : program->modules)
        addSymbols(program, module);
    addStartup(program);
    addLibraryModules(program);
    addLibraryFunctions(program);
    checkNeeds(program);
    if (program->report->errors != 0 || !placeAll(program))
        return 0;
    for (OrbModule *module : program->modules)
        for (const OrbReloc &reloc : module->relocs)
            apply(program, module, &reloc);
    buildImage(program);
    findStart(program);
    return program->report->errors == 0;
}
