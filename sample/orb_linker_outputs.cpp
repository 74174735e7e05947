// The files that the linker writes.
#include "sample/orb_linker.h"

namespace {
enum HexType { HEX_DATA = 0, HEX_END = 1, HEX_UPPER_ADDRESS = 4 };
enum { HEX_BYTES = 16 };
} // namespace

static void hexLine(Buffer *file, HexType type, uint32_t address, const char *bytes, size_t count)
{
    uint32_t sum = static_cast<uint32_t>(count) + (address >> 8) + address + type;
    buffer_print(file, ":%02zX%04X%02X", count, address & 0xFFFF, type);
    for (size_t i = 0; i < count; i++) {
        sum += static_cast<uint8_t>(bytes[i]);
        buffer_print(file, "%02X", static_cast<uint8_t>(bytes[i]));
    }
    buffer_print(file, "%02X\n", (0u - sum) & 0xFF);
}

static void hexUpper(Buffer *file, uint32_t upper)
{
    char bytes[2] = {static_cast<char>(upper >> 8), static_cast<char>(upper)};
    hexLine(file, HEX_UPPER_ADDRESS, 0, bytes, sizeof bytes);
}

void orblink_writeHex(const OrbProgram *program, int startsWithZero, Buffer *file)
{
    uint32_t upper = 0;
    if (startsWithZero)
        hexUpper(file, 0);
    for (size_t at = 0; at < program->image.count;) {
        uint32_t address = program->codeOffset + static_cast<uint32_t>(at);
        if (address >> 16 != upper)
            hexUpper(file, upper = address >> 16);
        size_t count = HEX_BYTES - address % HEX_BYTES;
        if (count > program->image.count - at)
            count = program->image.count - at;
        hexLine(file, HEX_DATA, address & 0xFFFF, program->image.items + at, count);
        at += count;
    }
    hexLine(file, HEX_END, 0, nullptr, 0);
}

void orblink_writeElf(const OrbProgram *program, Buffer *file)
{
    static const char IDENT[16] = {0x7F, 'E', 'L', 'F', 1, 1, 1};
    enum { EXECUTABLE = 2, ORB_MACHINE = 204, HEADER = 52, SEGMENT = 32, LOAD = 1, READ_RUN = 5 };
    uint32_t size = static_cast<uint32_t>(program->image.count);
    buffer_add(file, IDENT, sizeof IDENT);
    buffer_add16(file, EXECUTABLE);
    buffer_add16(file, ORB_MACHINE);
    buffer_add32(file, 1);
    buffer_add32(file, program->start);
    buffer_add32(file, HEADER); // where the segment's header is
    buffer_add32(file, 0);      // no sections
    buffer_add32(file, 0);      // no flags
    const uint32_t sizes[] = {HEADER, SEGMENT, 1, 0, 0, 0};
    for (uint32_t value : sizes)
        buffer_add16(file, value);
    const uint32_t segment[] = {
        LOAD, HEADER + SEGMENT, program->codeOffset, program->codeOffset, size, size, READ_RUN, 2};
    for (uint32_t value : segment)
        buffer_add32(file, value);
    buffer_add(file, program->image.items, program->image.count);
}

void orblink_writeMap(const OrbProgram *program, Buffer *file)
{
    buffer_print(file, "Map of %s for device %s\n\nSections\n", program->name, program->chip->name);
    for (const OrbModule *module : program->modules)
        for (const OrbSection &section : module->sections)
            buffer_print(file, "  %05x  %5x  %s  %-20s %s\n", section.address, section.size,
                         section.isData ? "data" : "code", section.name, module->file);
    buffer_print(file, "\nSymbols\n");
    for (const Definition &definition : program->definitions)
        buffer_print(file, "  %05x  %-30s %s\n",
                     orblink_address(definition.module, definition.symbol), definition.name,
                     definition.module->file);
    buffer_print(file, "\nThe program starts at %05x.\n", program->start);
}

static unsigned percent(size_t part, size_t whole)
{
    return whole == 0 ? 0 : static_cast<unsigned>(part * 100 / whole);
}

void orblink_writeSummary(const OrbProgram *program, Buffer *file)
{
    size_t code = program->image.count;
    buffer_print(file, "Memory summary of %s for device %s\n", program->name, program->chip->name);
    buffer_print(file, "    Program space  used %6zx of %6x bytes (%3u%%)\n", code,
                 program->chip->programBytes, percent(code, program->chip->programBytes));
    buffer_print(file, "    Data space     used %6x of %6x bytes (%3u%%)\n", program->dataUsed,
                 program->chip->dataBytes, percent(program->dataUsed, program->chip->dataBytes));
}

static void xmlText(Buffer *file, const char *text)
{
    for (; *text != 0; text++) {
        const char *name = *text == '<'   ? "&lt;"
                           : *text == '>' ? "&gt;"
                           : *text == '&' ? "&amp;"
                           : *text == '"' ? "&quot;"
                                          : nullptr;
        buffer_add(file, name == nullptr ? text : name, name == nullptr ? 1 : strlen(name));
    }
}

static void xmlMemory(Buffer *file, const char *name, size_t used, size_t length)
{
    buffer_print(file,
                 "    <memory name=\"%s\">\n"
                 "      <units>bytes</units>\n"
                 "      <length>%zu</length>\n"
                 "      <used>%zu</used>\n"
                 "      <free>%zu</free>\n"
                 "    </memory>\n",
                 name, length, used, length - used);
}

void orblink_writeXml(const OrbProgram *program, Buffer *file)
{
    buffer_print(file, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<project>\n"
                       "  <executable name=\"");
    xmlText(file, program->name);
    buffer_print(file, "\" device=\"%s\">\n", program->chip->name);
    xmlMemory(file, "data", program->dataUsed, program->chip->dataBytes);
    xmlMemory(file, "program", program->image.count, program->chip->programBytes);
    buffer_print(file, "  </executable>\n</project>\n");
}
