#include "sample/orb_library.h"

namespace {
enum { LIBRARY_HEADER = 4, MODULE_HEADER = 12, COUNT_MAX = 0xFFFF };
} // namespace

// The text at *at, which is moved past its NUL; null when the NUL or the text is missing.
static const char *takeName(const Buffer *file, size_t *at)
{
    const char *name = file->items + *at;
    const void *end = *at < file->count ? memchr(name, 0, file->count - *at) : nullptr;
    if (end == nullptr || *name == 0)
        return nullptr;
    *at += strlen(name) + 1;
    return name;
}

static int readEntry(const Buffer *file, size_t *at, LibraryModule *module)
{
    if (file->count - *at < MODULE_HEADER)
        return 0;
    uint32_t symbols = bytes_get16(file->items + *at + 2);
    module->size = bytes_get32(file->items + *at + 4);
    *at += MODULE_HEADER;
    module->name = takeName(file, at);
    if (module->name == nullptr)
        return 0;
    for (; symbols != 0; symbols--) {
        if (*at >= file->count)
            return 0;
        int isNeeded = file->items[(*at)++] != 0;
        const char *name = takeName(file, at);
        if (name == nullptr)
            return 0;
        list_add(&module->symbols, LibrarySymbol{name, isNeeded});
    }
    return 1;
}

int orblibrary_read(const Buffer *file, Library *library)
{
    if (file->count < LIBRARY_HEADER || bytes_get16(file->items) != 0)
        return 0;
    size_t at = LIBRARY_HEADER;
    for (uint32_t left = bytes_get16(file->items + 2); left != 0; left--) {
        LibraryModule module = {};
        if (!readEntry(file, &at, &module))
            return 0;
        list_add(library, module);
    }
    for (LibraryModule &module : *library) {
        if (module.size > file->count - at)
            return 0;
        module.bytes = file->items + at;
        at += module.size;
    }
    return at == file->count;
}

static void writeEntry(const LibraryModule *module, Buffer *file)
{
    buffer_add16(file, 0);
    buffer_add16(file, static_cast<uint32_t>(module->symbols.count));
    buffer_add32(file, static_cast<uint32_t>(module->size));
    buffer_add32(file, 0);
    buffer_add(file, module->name, strlen(module->name) + 1);
    for (const LibrarySymbol &symbol : module->symbols) {
        buffer_add(file, symbol.isNeeded ? "\1" : "\0", 1);
        buffer_add(file, symbol.name, strlen(symbol.name) + 1);
    }
}

int orblibrary_write(const Library *library, Buffer *file)
{
    if (library->count > COUNT_MAX)
        return 0;
    buffer_add16(file, 0);
    buffer_add16(file, static_cast<uint32_t>(library->count));
    for (const LibraryModule &module : *library) {
        if (module.symbols.count > COUNT_MAX)
            return 0;
        writeEntry(&module, file);
    }
    for (const LibraryModule &module : *library)
        buffer_add(file, module.bytes, module.size);
    return 1;
}

int orblibrary_entry(const char *name, const Buffer *file, LibraryModule *entry)
{
    const OrbModule *module = orbmodule_read(name, file->items, file->count);
    if (module == nullptr)
        return 0;
    *entry = {name, {}, file->items, file->count};
    for (const OrbSymbol &symbol : module->symbols)
        if (symbol.isGlobal)
            list_add(&entry->symbols,
                     LibrarySymbol{symbol.name, symbol.section == SECTION_UNDEFINED});
    return 1;
}
