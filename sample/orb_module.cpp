#include "sample/orb_module.h"

namespace {
enum RecordType { TEXT = 1, PSECT, RELOC, SYM, START, END, IDENT };
enum { RECORD_HEADER = 3, RECORD_MAX = 512, MODULE_MAX = 1 << 20 };
} // namespace

static int addRecord(Buffer *file, RecordType type, const Buffer *data)
{
    if (data->count > RECORD_MAX)
        return 0;
    buffer_add16(file, static_cast<uint32_t>(data->count));
    char byte = static_cast<char>(type);
    buffer_add(file, &byte, 1);
    buffer_add(file, data->items, data->count);
    return 1;
}

static void addByte(Buffer *data, int value)
{
    char byte = static_cast<char>(value);
    buffer_add(data, &byte, 1);
}

static void addName(Buffer *data, const char *name)
{
    buffer_add(data, name, strlen(name) + 1);
}

static int writeSection(Buffer *file, const OrbSection *section, uint32_t number)
{
    Buffer data = {};
    addByte(&data, section->isData ? 1 : 0);
    buffer_add32(&data, section->size);
    addName(&data, section->name);
    if (!addRecord(file, PSECT, &data))
        return 0;
    for (size_t at = 0; at < section->bytes.count;) {
        size_t length = section->bytes.count - at;
        if (length > 256)
            length = 256;
        data.count = 0;
        buffer_add16(&data, number);
        buffer_add32(&data, static_cast<uint32_t>(at));
        buffer_add(&data, section->bytes.items + at, length);
        addRecord(file, TEXT, &data);
        at += length;
    }
    return 1;
}

static int writeSymbol(Buffer *file, const OrbSymbol *symbol)
{
    Buffer data = {};
    addByte(&data, symbol->isGlobal ? 1 : 0);
    buffer_add16(&data, symbol->section);
    buffer_add32(&data, symbol->value);
    addName(&data, symbol->name);
    return addRecord(file, SYM, &data);
}

static void writeReloc(Buffer *file, const OrbReloc *reloc)
{
    Buffer data = {};
    addByte(&data, reloc->kind);
    buffer_add16(&data, reloc->section);
    buffer_add32(&data, reloc->offset);
    buffer_add16(&data, reloc->symbol);
    buffer_add32(&data, reloc->add);
    addRecord(file, RELOC, &data);
}

static int writeObject(const OrbModule *module, Buffer *file)
{
    Buffer data = {};
    addName(&data, module->chip);
    addName(&data, module->source);
    int done = addRecord(file, IDENT, &data);
    uint32_t number = 0;
    for (const OrbSection &section : module->sections)
        done &= writeSection(file, &section, number++);
    for (const OrbSymbol &symbol : module->symbols)
        done &= writeSymbol(file, &symbol);
    for (const OrbReloc &reloc : module->relocs)
        writeReloc(file, &reloc);
    data.count = 0;
    if (module->hasStart) {
        buffer_add16(&data, module->start);
        addRecord(file, START, &data);
        data.count = 0;
    }
    return done & addRecord(file, END, &data);
}

int orbmodule_write(const OrbModule *module, Buffer *file)
{
    if (!module->isIntermediate)
        return writeObject(module, file);
    orbmodule_writeIntermediate(module, file);
    return 1;
}

// The name at the end of the record, from data byte `at` on; null when its NUL is missing.
static const char *recordName(const char *data, size_t length, size_t at)
{
    if (at >= length || memchr(data + at, 0, length - at) == nullptr)
        return nullptr;
    return arena_copy(data + at);
}

static int readIdent(OrbModule *module, const char *data, size_t length)
{
    module->chip = recordName(data, length, 0);
    if (module->chip == nullptr)
        return 0;
    module->source = recordName(data, length, strlen(module->chip) + 1);
    return module->source != nullptr;
}

static int readSection(OrbModule *module, const char *data, size_t length)
{
    const char *name = recordName(data, length, 5);
    if (name == nullptr || module->sections.count >= SECTION_MAX)
        return 0;
    uint32_t size = bytes_get32(data + 1);
    if (size > MODULE_MAX)
        return 0;
    list_add(&module->sections, OrbSection{name, data[0] & 1, size, {}, 0});
    return 1;
}

static int readText(OrbModule *module, const char *data, size_t length)
{
    if (length < 6 || bytes_get16(data) >= module->sections.count)
        return 0;
    OrbSection *section = &module->sections.items[bytes_get16(data)];
    // Bytes come in order and without gaps.
    if (bytes_get32(data + 2) != section->bytes.count ||
        length - 6 > section->size - section->bytes.count)
        return 0;
    buffer_add(&section->bytes, data + 6, length - 6);
    return 1;
}

static int isSection(const OrbModule *module, uint32_t number)
{
    return number == SECTION_UNDEFINED || number == SECTION_CONSTANT ||
           number < module->sections.count;
}

static int readSymbol(OrbModule *module, const char *data, size_t length)
{
    const char *name = recordName(data, length, 7);
    if (name == nullptr || !isSection(module, bytes_get16(data + 1)))
        return 0;
    list_add(&module->symbols,
             OrbSymbol{name, bytes_get16(data + 1), bytes_get32(data + 3), data[0] & 1, 0});
    return 1;
}

static int readReloc(OrbModule *module, const char *data, size_t length)
{
    if (length != 13)
        return 0;
    OrbReloc reloc = {static_cast<RelocKind>(data[0]), bytes_get16(data + 1), bytes_get32(data + 3),
                      bytes_get16(data + 7), bytes_get32(data + 9)};
    uint32_t width = reloc.kind == RELOC_LOW_BYTE ? 1 : 2;
    if (reloc.kind < RELOC_WORD_ADDRESS || reloc.kind > RELOC_ADDRESS ||
        reloc.section >= module->sections.count || reloc.symbol >= module->symbols.count)
        return 0;
    size_t size = module->sections.items[reloc.section].bytes.count;
    if (reloc.offset > size || size - reloc.offset < width)
        return 0;
    list_add(&module->relocs, reloc);
    return 1;
}

static int readStart(OrbModule *module, const char *data, size_t length)
{
    if (length != 2 || bytes_get16(data) >= module->symbols.count)
        return 0;
    module->hasStart = 1;
    module->start = bytes_get16(data);
    return 1;
}

static int readRecord(OrbModule *module, int type, const char *data, size_t length)
{
    switch (type) {
    case IDENT:
        return readIdent(module, data, length);
    case PSECT:
        return readSection(module, data, length);
    case TEXT:
        return readText(module, data, length);
    case SYM:
        return readSymbol(module, data, length);
    case RELOC:
        return readReloc(module, data, length);
    case START:
        return readStart(module, data, length);
    default:
        return 0;
    }
}

static OrbModule *newModule()
{
    OrbModule *module = static_cast<OrbModule *>(arena_alloc(sizeof(OrbModule)));
    *module = {};
    module->chip = "";
    module->source = "";
    return module;
}

static OrbModule *readObject(const char *bytes, size_t size)
{
    OrbModule *module = newModule();
    for (size_t at = 0; size - at >= RECORD_HEADER;) {
        size_t length = bytes_get16(bytes + at);
        int type = static_cast<uint8_t>(bytes[at + 2]);
        at += RECORD_HEADER;
        if (length > RECORD_MAX || length > size - at)
            return nullptr;
        if (type == END)
            return length == 0 && at == size ? module : nullptr;
        if (!readRecord(module, type, bytes + at, length))
            return nullptr;
        at += length;
    }
    return nullptr;
}

OrbModule *orbmodule_read(const char *name, const char *bytes, size_t size)
{
    int isIntermediate = size >= 7 && memcmp(bytes, "Version", 7) == 0;
    OrbModule *module =
        isIntermediate ? orbmodule_readIntermediate(bytes, size) : readObject(bytes, size);
    if (module != nullptr)
        module->file = name;
    return module;
}
