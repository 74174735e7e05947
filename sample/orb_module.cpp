#include "sample/orb_module.h"

enum RecordType { TEXT = 1, PSECT, RELOC, SYM, START, END, IDENT, LAST_TYPE = 23 };
enum { RECORD_HEADER = 3, RECORD_MAX = 512, MODULE_MAX = 1 << 20 };

static int add_record(Buffer *file, RecordType type, const Buffer *data)
{
    if (data->count > RECORD_MAX)
        return 0;
    buffer_add16(file, static_cast<uint32_t>(data->count));
    char byte = static_cast<char>(type);
    buffer_add(file, &byte, 1);
    buffer_add(file, data->items, data->count);
    return 1;
}

static void add_byte(Buffer *data, int value)
{
    char byte = static_cast<char>(value);
    buffer_add(data, &byte, 1);
}

static void add_name(Buffer *data, const char *name)
{
    buffer_add(data, name, strlen(name) + 1);
}

static int write_section(Buffer *file, const OrbSection *section, uint32_t number)
{
    Buffer data = {};
    add_byte(&data, section->isData ? 1 : 0);
    buffer_add32(&data, section->size);
    add_name(&data, section->name);
    if (!add_record(file, PSECT, &data))
        return 0;
    for (size_t at = 0; at < section->bytes.count;) {
        size_t length = section->bytes.count - at;
        if (length > 256)
            length = 256;
        data.count = 0;
        buffer_add16(&data, number);
        buffer_add32(&data, static_cast<uint32_t>(at));
        buffer_add(&data, section->bytes.items + at, length);
        add_record(file, TEXT, &data);
        at += length;
    }
    return 1;
}

static int write_symbol(Buffer *file, const OrbSymbol *symbol)
{
    Buffer data = {};
    add_byte(&data, symbol->isGlobal ? 1 : 0);
    buffer_add16(&data, symbol->section);
    buffer_add32(&data, symbol->value);
    add_name(&data, symbol->name);
    return add_record(file, SYM, &data);
}

static void write_reloc(Buffer *file, const OrbReloc *reloc)
{
    Buffer data = {};
    add_byte(&data, reloc->kind);
    buffer_add16(&data, reloc->section);
    buffer_add32(&data, reloc->offset);
    buffer_add16(&data, reloc->symbol);
    buffer_add32(&data, reloc->add);
    add_record(file, RELOC, &data);
}

static int write_object(const OrbModule *module, Buffer *file)
{
    Buffer data = {};
    add_name(&data, module->chip);
    add_name(&data, module->source);
    int done = add_record(file, IDENT, &data);
    uint32_t number = 0;
    for (const OrbSection &section : module->sections)
        done &= write_section(file, &section, number++);
    for (const OrbSymbol &symbol : module->symbols)
        done &= write_symbol(file, &symbol);
    for (const OrbReloc &reloc : module->relocs)
        write_reloc(file, &reloc);
    data.count = 0;
    if (module->hasStart) {
        buffer_add16(&data, module->start);
        add_record(file, START, &data);
        data.count = 0;
    }
    return done & add_record(file, END, &data);
}

int orbmodule_write(const OrbModule *module, Buffer *file)
{
    if (!module->isIntermediate)
        return write_object(module, file);
    orbmodule_writeIntermediate(module, file);
    return 1;
}

// The name that ends the record, from data byte `at` on; null when its NUL is missing.
static const char *record_name(const char *data, size_t length, size_t at)
{
    if (at >= length || memchr(data + at, 0, length - at) == nullptr)
        return nullptr;
    return arena_copy(data + at);
}

static int read_ident(OrbModule *module, const char *data, size_t length)
{
    module->chip = record_name(data, length, 0);
    if (module->chip == nullptr)
        return 0;
    module->source = record_name(data, length, strlen(module->chip) + 1);
    return module->source != nullptr;
}

static int read_section(OrbModule *module, const char *data, size_t length)
{
    const char *name = record_name(data, length, 5);
    if (name == nullptr || module->sections.count >= SECTION_MAX)
        return 0;
    uint32_t size = bytes_get32(data + 1);
    if (size > MODULE_MAX)
        return 0;
    list_add(&module->sections, OrbSection{name, data[0] & 1, size, {}, 0});
    return 1;
}

static int read_text(OrbModule *module, const char *data, size_t length)
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

static int is_section(const OrbModule *module, uint32_t number)
{
    return number == SECTION_UNDEFINED || number == SECTION_CONSTANT ||
           number < module->sections.count;
}

static int read_symbol(OrbModule *module, const char *data, size_t length)
{
    const char *name = record_name(data, length, 7);
    if (name == nullptr || !is_section(module, bytes_get16(data + 1)))
        return 0;
    list_add(&module->symbols,
             OrbSymbol{name, bytes_get16(data + 1), bytes_get32(data + 3), data[0] & 1, 0});
    return 1;
}

static int read_reloc(OrbModule *module, const char *data, size_t length)
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

static int read_start(OrbModule *module, const char *data, size_t length)
{
    if (length != 2 || bytes_get16(data) >= module->symbols.count)
        return 0;
    module->hasStart = 1;
    module->start = bytes_get16(data);
    return 1;
}

static int read_record(OrbModule *module, int type, const char *data, size_t length)
{
    switch (type) {
    case IDENT:
        return read_ident(module, data, length);
    case PSECT:
        return read_section(module, data, length);
    case TEXT:
        return read_text(module, data, length);
    case SYM:
        return read_symbol(module, data, length);
    case RELOC:
        return read_reloc(module, data, length);
    case START:
        return read_start(module, data, length);
    default:
        return 0;
    }
}

static OrbModule *new_module()
{
    OrbModule *module = static_cast<OrbModule *>(arena_alloc(sizeof(OrbModule)));
    *module = {};
    module->chip = "";
    module->source = "";
    return module;
}

static OrbModule *read_object(const char *bytes, size_t size)
{
    OrbModule *module = new_module();
    for (size_t at = 0; size - at >= RECORD_HEADER;) {
        size_t length = bytes_get16(bytes + at);
        int type = static_cast<uint8_t>(bytes[at + 2]);
        at += RECORD_HEADER;
        if (length > RECORD_MAX || length > size - at)
            return nullptr;
        if (type == END)
            return length == 0 && at == size ? module : nullptr;
        if (!read_record(module, type, bytes + at, length))
            return nullptr;
        at += length;
    }
    return nullptr;
}

ModuleKind orbmodule_kind(const char *bytes, size_t size)
{
    if (size >= 7 && memcmp(bytes, "Version", 7) == 0)
        return MODULE_INTERMEDIATE;
    if (size < RECORD_HEADER || bytes_get16(bytes) > RECORD_MAX)
        return MODULE_UNKNOWN;
    int type = static_cast<uint8_t>(bytes[2]);
    return type >= TEXT && type <= LAST_TYPE ? MODULE_OBJECT : MODULE_UNKNOWN;
}

OrbModule *orbmodule_read(const char *name, const char *bytes, size_t size)
{
    ModuleKind kind = orbmodule_kind(bytes, size);
    OrbModule *module = kind == MODULE_INTERMEDIATE ? orbmodule_readIntermediate(bytes, size)
                        : kind == MODULE_OBJECT     ? read_object(bytes, size)
                                                    : nullptr;
    if (module != nullptr)
        module->file = name;
    return module;
}
