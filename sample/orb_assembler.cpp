#include "sample/orb_assembler.h"

#include <cstdlib>

#include "sample/symbol_table.h"

namespace {
enum Operand { NONE, BYTE, DATA_ADDRESS, CODE_ADDRESS };
} // namespace

static const struct Instruction {
    const char *name;
    Operand operand;
    uint16_t word; // the operand goes into its low byte, a code address into a second word
} INSTRUCTIONS[] = {
    {"nop", NONE, 0x0000},         {"ret", NONE, 0x0001},         {"reti", NONE, 0x0002},
    {"sleep", NONE, 0x0003},       {"ldk", BYTE, 0x1000},         {"addk", BYTE, 0x1100},
    {"andk", BYTE, 0x1200},        {"orrk", BYTE, 0x1300},        {"ld", DATA_ADDRESS, 0x2000},
    {"st", DATA_ADDRESS, 0x2100},  {"clr", DATA_ADDRESS, 0x2200}, {"inc", DATA_ADDRESS, 0x2300},
    {"dec", DATA_ADDRESS, 0x2400}, {"jmp", CODE_ADDRESS, 0x3000}, {"call", CODE_ADDRESS, 0x3100},
    {"jz", CODE_ADDRESS, 0x3200},  {"jnz", CODE_ADDRESS, 0x3300},
};

namespace {
struct Assembly {
    OrbModule *module;
    Report *report;
    Buffer *listing;
    Place place;
    SymbolTable names; // of the module's symbols, to their numbers
    uint32_t section;  // the current one; SECTION_UNDEFINED before the first
    const char *at;    // the rest of the line, still to be read
    int ended;         // "end" was seen
};

struct Value {
    uint32_t number;
    uint32_t symbol; // number of a symbol to add, or NO_SYMBOL
};

enum : uint32_t { NO_SYMBOL = UINT32_MAX };
} // namespace

static int isNameCharacter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '.' || c == '$' || c == '?';
}

static void skipBlanks(Assembly *assembly)
{
    assembly->at += strspn(assembly->at, " \t\r");
}

// The name at the reading point, or null.
static const char *takeName(Assembly *assembly)
{
    skipBlanks(assembly);
    const char *start = assembly->at;
    if (*start >= '0' && *start <= '9')
        return nullptr;
    while (isNameCharacter(*assembly->at))
        assembly->at++;
    size_t length = static_cast<size_t>(assembly->at - start);
    return length == 0 ? nullptr : arena_copyPart(start, length);
}

static int takeCharacter(Assembly *assembly, char c)
{
    skipBlanks(assembly);
    if (*assembly->at != c)
        return 0;
    assembly->at++;
    return 1;
}

// The number of the symbol. A new symbol is added, not yet defined.
static uint32_t symbolNumber(Assembly *assembly, const char *name)
{
    uint32_t *known = symbols_find(&assembly->names, name);
    if (known != nullptr)
        return *known;
    uint32_t number = static_cast<uint32_t>(assembly->module->symbols.count);
    list_add(&assembly->module->symbols, OrbSymbol{name, SECTION_UNDEFINED, 0, 0, 0});
    symbols_add(&assembly->names, name, number);
    return number;
}

static OrbSymbol *symbolNamed(Assembly *assembly, const char *name)
{
    // Looking up a name may add it, and so move the list.
    uint32_t number = symbolNumber(assembly, name);
    return &assembly->module->symbols.items[number];
}

static void define(Assembly *assembly, const char *name, uint32_t section, uint32_t value)
{
    OrbSymbol *symbol = symbolNamed(assembly, name);
    if (symbol->section != SECTION_UNDEFINED) {
        report_error(assembly->report, assembly->place, 1248,
                     "symbol \"%s\" is defined more than once; the first definition is in line %u",
                     name, symbol->line);
        return;
    }
    symbol->section = section;
    symbol->value = value;
    symbol->line = assembly->place.line;
}

// The current section; null after an error message when there is none.
static OrbSection *currentSection(Assembly *assembly, const char *what)
{
    if (assembly->section != SECTION_UNDEFINED)
        return &assembly->module->sections.items[assembly->section];
    report_error(assembly->report, assembly->place, 1242, "\"%s\" must stand inside a section",
                 what);
    return nullptr;
}

static int takeNumber(Assembly *assembly, uint32_t *number)
{
    skipBlanks(assembly);
    const char *at = assembly->at;
    if (at[0] == '\'' && at[1] != 0 && at[2] == '\'') {
        *number = static_cast<uint8_t>(at[1]);
        assembly->at += 3;
        return 1;
    }
    if (*at < '0' || *at > '9')
        return 0;
    char *end;
    *number = static_cast<uint32_t>(strtoul(at, &end, 0));
    assembly->at = end;
    return 1;
}

// Reads a value; an error is reported when there is none.
static int takeValue(Assembly *assembly, Value *value)
{
    *value = {0, NO_SYMBOL};
    int minus = takeCharacter(assembly, '-');
    if (!takeNumber(assembly, &value->number)) {
        const char *name = minus ? nullptr : takeName(assembly);
        if (name == nullptr) {
            report_error(assembly->report, assembly->place, 1262,
                         "an operand was expected, found \"%s\"", assembly->at);
            return 0;
        }
        value->symbol = symbolNumber(assembly, name);
        const OrbSymbol *symbol = &assembly->module->symbols.items[value->symbol];
        if (symbol->section == SECTION_CONSTANT)
            *value = {symbol->value, NO_SYMBOL};
    }
    if (minus)
        value->number = 0 - value->number;
    uint32_t more;
    if (takeCharacter(assembly, '+') && takeNumber(assembly, &more))
        value->number += more;
    else if (takeCharacter(assembly, '-') && takeNumber(assembly, &more))
        value->number -= more;
    return 1;
}

static void checkWidth(Assembly *assembly, uint32_t number, unsigned bits)
{
    if (number >> bits != 0 && ~number >> (bits - 1) != 0)
        report_error(assembly->report, assembly->place, 1260,
                     "value 0x%x does not fit into %u bits", number, bits);
}

// Places `width` bytes of `word` with the value in its low bytes.
static void placeValue(Assembly *assembly, OrbSection *section, uint32_t word, unsigned width,
                       Value value, RelocKind kind)
{
    unsigned bits = kind == RELOC_LOW_BYTE ? 8 : 16;
    if (value.symbol == NO_SYMBOL)
        checkWidth(assembly, value.number, bits);
    else
        list_add(&assembly->module->relocs,
                 OrbReloc{kind, assembly->section, static_cast<uint32_t>(section->bytes.count),
                          value.symbol, value.number});
    if (value.symbol == NO_SYMBOL) {
        uint32_t number = kind == RELOC_WORD_ADDRESS ? value.number / 2 : value.number;
        word |= number & ((1u << bits) - 1);
    }
    char bytes[2];
    bytes_put16(bytes, word);
    buffer_add(&section->bytes, bytes, width);
    section->size = static_cast<uint32_t>(section->bytes.count);
}

static void assembleInstruction(Assembly *assembly, const Instruction *instruction)
{
    OrbSection *section = currentSection(assembly, instruction->name);
    Value value = {0, NO_SYMBOL};
    if (section == nullptr || (instruction->operand != NONE && !takeValue(assembly, &value)))
        return;
    if (instruction->operand != CODE_ADDRESS) {
        placeValue(assembly, section, instruction->word, 2, value, RELOC_LOW_BYTE);
        return;
    }
    placeValue(assembly, section, instruction->word, 2, {0, NO_SYMBOL}, RELOC_LOW_BYTE);
    placeValue(assembly, section, 0, 2, value, RELOC_WORD_ADDRESS);
}

static void directivePsect(Assembly *assembly)
{
    const char *name = takeName(assembly);
    int isData = 0;
    while (takeCharacter(assembly, ',')) {
        const char *attribute = takeName(assembly);
        isData |= attribute != nullptr && strcmp(attribute, "data") == 0;
        if (takeCharacter(assembly, '='))
            (void)takeName(assembly);
    }
    if (name == nullptr) {
        report_error(assembly->report, assembly->place, 1237,
                     "directive \"psect\" needs an argument");
        return;
    }
    OrbModule *module = assembly->module;
    for (assembly->section = 0; assembly->section < module->sections.count; assembly->section++)
        if (strcmp(module->sections.items[assembly->section].name, name) == 0)
            return;
    list_add(&module->sections, OrbSection{name, isData, 0, {}, 0});
}

static void directiveGlobal(Assembly *assembly)
{
    do {
        const char *name = takeName(assembly);
        if (name == nullptr) {
            report_error(assembly->report, assembly->place, 1237,
                         "directive \"global\" needs an argument");
            return;
        }
        symbolNamed(assembly, name)->isGlobal = 1;
    } while (takeCharacter(assembly, ','));
}

static void placeList(Assembly *assembly, const char *name, unsigned width, RelocKind kind)
{
    OrbSection *section = currentSection(assembly, name);
    Value value;
    if (section == nullptr)
        return;
    do {
        if (!takeValue(assembly, &value))
            return;
        placeValue(assembly, section, 0, width, value, kind);
    } while (takeCharacter(assembly, ','));
}

static void directiveDb(Assembly *assembly)
{
    placeList(assembly, "db", 1, RELOC_LOW_BYTE);
}

static void directiveDw(Assembly *assembly)
{
    placeList(assembly, "dw", 2, RELOC_ADDRESS);
}

static void directiveDs(Assembly *assembly)
{
    OrbSection *section = currentSection(assembly, "ds");
    uint32_t size;
    if (section == nullptr)
        return;
    if (!takeNumber(assembly, &size) || size > 0x10000 || section->size > 0x20000) {
        report_error(assembly->report, assembly->place, 1239,
                     "argument 1 of directive \"ds\" must be a constant");
        return;
    }
    static const char ZEROS[64] = {};
    for (uint32_t left = size; left != 0;) {
        uint32_t part = left < sizeof ZEROS ? left : uint32_t{sizeof ZEROS};
        buffer_add(&section->bytes, ZEROS, part);
        left -= part;
    }
    section->size = static_cast<uint32_t>(section->bytes.count);
}

static void directiveEnd(Assembly *assembly)
{
    const char *name = takeName(assembly);
    assembly->ended = 1;
    if (name == nullptr)
        return;
    assembly->module->start = symbolNumber(assembly, name);
    assembly->module->hasStart = 1;
}

// Names the device; the command line has precedence.
static void directiveProcessor(Assembly *assembly)
{
    assembly->at += strlen(assembly->at);
}

static const struct Directive {
    const char *name;
    void (*assemble)(Assembly *assembly);
} DIRECTIVES[] = {
    {"psect", directivePsect},
    {"global", directiveGlobal},
    {"db", directiveDb},
    {"dw", directiveDw},
    {"ds", directiveDs},
    {"end", directiveEnd},
    {"processor", directiveProcessor},
};

static void assembleStatement(Assembly *assembly, const char *name)
{
    for (const Instruction &instruction : INSTRUCTIONS)
        if (strcmp(instruction.name, name) == 0)
            return assembleInstruction(assembly, &instruction);
    for (const Directive &directive : DIRECTIVES)
        if (strcmp(directive.name, name) == 0)
            return directive.assemble(assembly);
    report_error(assembly->report, assembly->place, 1210, "instruction \"%s\" is not known", name);
    assembly->at += strlen(assembly->at);
}

static void defineConstant(Assembly *assembly, const char *name)
{
    Value value;
    if (!takeValue(assembly, &value))
        return;
    if (value.symbol == NO_SYMBOL)
        define(assembly, name, SECTION_CONSTANT, value.number);
    else
        report_error(assembly->report, assembly->place, 1239,
                     "argument 1 of directive \"equ\" must be a constant");
}

static void assembleLine(Assembly *assembly)
{
    const char *name = takeName(assembly);
    while (name != nullptr && takeCharacter(assembly, ':')) {
        OrbSection *section = currentSection(assembly, name);
        if (section != nullptr)
            define(assembly, name, assembly->section, section->size);
        name = takeName(assembly);
    }
    const char *afterName = assembly->at;
    const char *second = name == nullptr ? nullptr : takeName(assembly);
    if (second != nullptr && strcmp(second, "equ") == 0) {
        defineConstant(assembly, name);
    } else if (name != nullptr) {
        assembly->at = afterName;
        assembleStatement(assembly, name);
    }
    skipBlanks(assembly);
    if (*assembly->at != 0)
        report_error(assembly->report, assembly->place, 1262,
                     "an operand was expected, found \"%s\"", assembly->at);
}

// A line `# 12 "file"` of the preprocessor: the next line is line 12 of that file.
static void followMarker(Assembly *assembly, const char *line)
{
    char *end;
    unsigned long number = strtoul(line + 1, &end, 10);
    const char *quote = strchr(end, '"');
    const char *last = quote == nullptr ? nullptr : strchr(quote + 1, '"');
    if (end == line + 1 || last == nullptr)
        return;
    assembly->place.file = arena_copyPart(quote + 1, static_cast<size_t>(last - quote - 1));
    assembly->place.line = static_cast<unsigned>(number) - 1;
}

// Cuts the comment off the line.
static void cutComment(char *line)
{
    for (; *line != 0; line++) {
        if (line[0] == '\'' && line[1] != 0 && line[2] == '\'')
            line += 2;
        else if (line[0] == ';' || (line[0] == '/' && line[1] == '/'))
            *line = 0;
        if (*line == 0)
            return;
    }
}

static void listLine(Assembly *assembly, const char *line, uint32_t section, size_t from)
{
    if (assembly->listing == nullptr)
        return;
    buffer_print(assembly->listing, "%5u  ", assembly->place.line);
    const OrbSection *now = assembly->section == SECTION_UNDEFINED
                                ? nullptr
                                : &assembly->module->sections.items[assembly->section];
    if (section != assembly->section)
        from = now == nullptr ? 0 : now->bytes.count;
    buffer_print(assembly->listing, "%04zx  ", from);
    size_t shown = 0;
    for (size_t at = from; now != nullptr && at < now->bytes.count && shown < 4; at++, shown++)
        buffer_print(assembly->listing, "%02x", static_cast<uint8_t>(now->bytes.items[at]));
    buffer_print(assembly->listing, "%*s%s\n", static_cast<int>(10 - 2 * shown), "", line);
}

static void takeLine(Assembly *assembly, char *line)
{
    if (*line == '#') {
        followMarker(assembly, line);
        return;
    }
    uint32_t section = assembly->section;
    size_t from =
        section == SECTION_UNDEFINED ? 0 : assembly->module->sections.items[section].bytes.count;
    const char *whole = assembly->listing == nullptr ? line : arena_copy(line);
    cutComment(line);
    assembly->at = line;
    assembleLine(assembly);
    listLine(assembly, whole, section, from);
}

// Names that are used must be defined here or be global.
static void checkSymbols(Assembly *assembly)
{
    for (const OrbSymbol &symbol : assembly->module->symbols)
        if (symbol.section == SECTION_UNDEFINED && !symbol.isGlobal)
            report_error(assembly->report, {assembly->module->file, 0, 0}, 1247,
                         "symbol \"%s\" is not defined", symbol.name);
}

OrbModule *orbasm_assemble(const char *text, const char *file, const char *chip, Report *report,
                           Buffer *listing)
{
    Assembly assembly = {};
    assembly.module = static_cast<OrbModule *>(arena_alloc(sizeof(OrbModule)));
    *assembly.module = {};
    assembly.module->file = assembly.module->source = file;
    assembly.module->chip = chip;
    assembly.report = report;
    assembly.listing = listing;
    assembly.place = {file, 0, 0};
    assembly.section = SECTION_UNDEFINED;
    unsigned before = report->errors;
    char *line = arena_copy(text);
    while (*line != 0 && !assembly.ended) {
        char *end = line + strcspn(line, "\n");
        int more = *end != 0;
        *end = 0;
        assembly.place.line++;
        takeLine(&assembly, line);
        line = end + more;
    }
    checkSymbols(&assembly);
    return report->errors == before ? assembly.module : nullptr;
}
