// The intermediate files of orb_module.h.
#include "sample/orb_module.h"

#include <cstdio>
#include <cstdlib>

static const char MARKER[] = "Version 2.32 NORVELL Software Intermediate Code";
namespace {
enum { BYTES_A_LINE = 32, SECTION_LIMIT = 1 << 20 };
} // namespace

static void writeBytes(Buffer *file, const Buffer *bytes)
{
    for (size_t at = 0; at < bytes->count; at++) {
        if (at % BYTES_A_LINE == 0)
            buffer_print(file, "%sbytes %zx ", at == 0 ? "" : "\n", at);
        buffer_print(file, "%02x", static_cast<uint8_t>(bytes->items[at]));
    }
    if (bytes->count != 0)
        buffer_add(file, "\n", 1);
}

void orbmodule_writeIntermediate(const OrbModule *module, Buffer *file)
{
    buffer_print(file, "%s\nchip %s\nsource %s\n", MARKER, module->chip, module->source);
    for (const OrbSection &section : module->sections) {
        buffer_print(file, "section %s %x %s\n", section.isData ? "data" : "code", section.size,
                     section.name);
        writeBytes(file, &section.bytes);
    }
    for (const OrbSymbol &symbol : module->symbols) {
        if (symbol.section == SECTION_UNDEFINED)
            buffer_print(file, "symbol - 0 %s\n", symbol.name);
        else
            buffer_print(file, "symbol %x %x %s\n", symbol.section, symbol.value, symbol.name);
    }
    buffer_print(file, "end\n");
}

// Reads hexadecimal digits at *at, and one blank after them. 0 when there are no digits or the
// number is too large for the sample's files.
static int takeNumber(const char **at, uint32_t *value)
{
    char *end;
    unsigned long number = strtoul(*at, &end, 16);
    if (end == *at || *end != ' ' || number > SECTION_LIMIT)
        return 0;
    *value = static_cast<uint32_t>(number);
    *at = end + 1;
    return 1;
}

static int readSection(OrbModule *module, const char *line)
{
    int isData = strncmp(line, "data ", 5) == 0;
    uint32_t size;
    if ((!isData && strncmp(line, "code ", 5) != 0) || module->sections.count >= SECTION_MAX)
        return 0;
    line += 5;
    if (!takeNumber(&line, &size))
        return 0;
    list_add(&module->sections, OrbSection{arena_copy(line), isData, size, {}, 0});
    return 1;
}

static int hexDigit(char c)
{
    const char *digits = "0123456789abcdef";
    const char *found = c == 0 ? nullptr : strchr(digits, c);
    return found == nullptr ? -1 : static_cast<int>(found - digits);
}

static int readBytes(OrbModule *module, const char *line)
{
    uint32_t offset;
    if (module->sections.count == 0 || !takeNumber(&line, &offset))
        return 0;
    OrbSection *section = &module->sections.items[module->sections.count - 1];
    size_t length = strlen(line) / 2;
    if (offset != section->bytes.count || length > section->size - offset)
        return 0;
    for (; *line != 0; line += 2) {
        int high = hexDigit(line[0]);
        int low = hexDigit(line[1]);
        if (high < 0 || low < 0)
            return 0;
        char byte = static_cast<char>(high << 4 | low);
        buffer_add(&section->bytes, &byte, 1);
    }
    return 1;
}

static int readSymbol(OrbModule *module, const char *line)
{
    uint32_t section = SECTION_UNDEFINED;
    uint32_t value;
    int undefined = strncmp(line, "- ", 2) == 0;
    if (undefined)
        line += 2;
    else if (!takeNumber(&line, &section) || section >= module->sections.count)
        return 0;
    if (!takeNumber(&line, &value) || *line == 0)
        return 0;
    list_add(&module->symbols, OrbSymbol{arena_copy(line), section, value, 1, 0});
    return 1;
}

// The meaning of a line's first word.
static const struct {
    const char *word;
    int (*read)(OrbModule *module, const char *rest);
} ITEMS[] = {
    {"chip ",
     [](OrbModule *module, const char *rest) {
         module->chip = arena_copy(rest);
         return 1;
     }},
    {"source ",
     [](OrbModule *module, const char *rest) {
         module->source = arena_copy(rest);
         return 1;
     }},
    {"section ", readSection},
    {"bytes ", readBytes},
    {"symbol ", readSymbol},
};

static int readLine(OrbModule *module, const char *line)
{
    for (const auto &item : ITEMS)
        if (strncmp(line, item.word, strlen(item.word)) == 0)
            return item.read(module, line + strlen(item.word));
    return 0;
}

OrbModule *orbmodule_readIntermediate(const char *text, size_t size)
{
    char *copy = arena_copyPart(text, size);
    OrbModule *module = static_cast<OrbModule *>(arena_alloc(sizeof(OrbModule)));
    *module = {};
    module->isIntermediate = 1;
    module->chip = module->source = "";
    int isFirst = 1;
    for (char *line = copy, *end; (end = strchr(line, '\n')) != nullptr; line = end + 1) {
        *end = 0;
        if (strcmp(line, "end") == 0)
            return module;
        if (isFirst ? strcmp(line, MARKER) != 0 : !readLine(module, line))
            return nullptr;
        isFirst = 0;
    }
    return nullptr;
}
