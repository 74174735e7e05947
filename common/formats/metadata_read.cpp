#define MODULE "common/metadata"

// Reading. Each function has its twin in metadata_write.cpp, in the same order.
//
// Counts are only upper limits of loops: a record is allocated once its bytes have been read, so a
// count of four billion costs no more than the stream's actual content.

#include "common/formats/metadata.h"

#include <cstdlib>

#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/formats/metadata_internal.h"
#include "common/text/osdep_bytes.h"
#include "common/trace/qzdebug.h"

namespace {
enum : size_t {
    BUFFER_STEP = 32,
    STRING_LIMIT = 16 * 1024 * 1024, // a longer one means damage; interning it might end the run
};
} // namespace

// ---- Fields -----------------------------------------------------------------------------------

static bool readFlag(FILE *in, bool *flag)
{
    uint8_t value;
    if (osdep_readU8(in, &value) == 0)
        return false;
    *flag = value != 0;
    return true;
}

// Makes the string buffer larger: first by a small step, which suits names, and by half once it is
// large, because small steps would take quadratic time for a long string.
static bool growBuffer(Metadata *metadata)
{
    const size_t half = metadata->buffer_size / 2;
    const size_t size = metadata->buffer_size + (half > 1024 ? half : BUFFER_STEP);
    char *buffer = static_cast<char *>(realloc(metadata->buffer, size));
    if (buffer == nullptr)
        return false;
    metadata->buffer = buffer;
    metadata->buffer_size = size;
    return true;
}

// Reads a string and interns it; an empty one is null.
static bool readString(Metadata *metadata, FILE *in, const char **text)
{
    size_t length = 0;
    for (int c = getc(in); c != '\0'; c = getc(in)) {
        if (c == EOF || length == STRING_LIMIT ||
            (length == metadata->buffer_size && !growBuffer(metadata)))
            return false;
        metadata->buffer[length++] = static_cast<char>(c);
    }
    *text = length == 0 ? nullptr : cache_substring(metadata->buffer, length);
    return true;
}

static bool readMagic(Metadata *metadata, FILE *in, uint64_t magic, uint32_t unreadable,
                      uint32_t different)
{
    TRACE_ENTER("unreadable=%u, different=%u", unreadable, different);
    uint64_t value;
    if (osdep_readLEU64(in, &value) == 0)
        return TRACE_RETURN("%d", metadata_fail(metadata, unreadable));
    return TRACE_RETURN("%d", value == magic || metadata_fail(metadata, different));
}

// ---- Header and attributes --------------------------------------------------------------------

static bool readHeader(Metadata *metadata, FILE *in)
{
    TRACE_ENTER("in=%p", static_cast<void *>(in));
    MetadataHeader *header = &metadata->header;
    uint32_t code = METADATA_OK;
    if (!readMagic(metadata, in, METADATA_MAGIC_HEADER, METADATA_HEADER_MAGIC,
                   METADATA_HEADER_MAGIC))
        return TRACE_RETURN("%d", false);
    if (fread(header->title, sizeof header->title, 1, in) != 1)
        code = METADATA_HEADER_TITLE;
    else if (!osdep_readLEU16(in, &header->version_major) ||
             !osdep_readLEU16(in, &header->version_minor))
        code = METADATA_HEADER_VERSION;
    else if (fread(header->reserved, sizeof header->reserved, 1, in) != 1)
        code = METADATA_HEADER_RESERVED;
    return TRACE_RETURN("%d", code == METADATA_OK || metadata_fail(metadata, code));
}

static bool readAttribute(Metadata *metadata, FILE *in, MetadataTable table)
{
    const char *name;
    uint64_t value;
    return readString(metadata, in, &name) && name != nullptr && osdep_readLEU64(in, &value) &&
           metadata_keepAttribute(metadata, table, name, value);
}

static bool readAttributes(Metadata *metadata, FILE *in, MetadataTable table, uint64_t magic,
                           uint32_t magic_code, uint32_t list_code)
{
    TRACE_ENTER("table=%u", static_cast<uint32_t>(table));
    if (!readMagic(metadata, in, magic, magic_code, magic_code))
        return TRACE_RETURN("%d", false);
    uint32_t count;
    bool ok = osdep_readLEU32(in, &count) != 0;
    for (uint32_t i = 0; ok && i < count; ++i)
        ok = readAttribute(metadata, in, table);
    return TRACE_RETURN("%d", ok || metadata_fail(metadata, list_code));
}

// ---- Callees ----------------------------------------------------------------------------------

static bool readCallee(Metadata *metadata, FILE *in)
{
    MetadataCallee callee = {};
    return osdep_readLEU32(in, &callee.id) && callee.id != 0 &&
           osdep_readLEU32(in, &callee.function_id) && callee.function_id != 0 &&
           readFlag(in, &callee.arg_call) && readFlag(in, &callee.indirect_call) &&
           metadata_listAdd(&metadata->callees, &callee, sizeof callee) != nullptr;
}

static bool readCallees(Metadata *metadata, FILE *in)
{
    TRACE_ENTER("in=%p", static_cast<void *>(in));
    // A section with another magic gives the function list's code, because programs that read these
    // files expect it.
    if (!readMagic(metadata, in, METADATA_MAGIC_CALLEES, METADATA_CALLEE_MAGIC,
                   METADATA_FUNCTION_MAGIC))
        return TRACE_RETURN("%d", false);
    uint32_t count;
    bool ok = osdep_readLEU32(in, &count) != 0;
    for (uint32_t i = 0; ok && i < count; ++i)
        ok = readCallee(metadata, in);
    ok = metadata_listOrder(&metadata->callees) && ok;
    return TRACE_RETURN("%d", ok || metadata_fail(metadata, METADATA_CALLEE_LIST));
}

// ---- Functions --------------------------------------------------------------------------------

// Reads a list of ids and adds their records in `list` to a vector, which is created for the first
// one.
static bool readReferences(FILE *in, const MetadataList *list, Vector **records)
{
    uint32_t count;
    bool ok = osdep_readLEU32(in, &count) != 0;
    for (uint32_t i = 0; ok && i < count; ++i) {
        uint32_t id;
        void *record = osdep_readLEU32(in, &id) ? metadata_listFind(list, id) : nullptr;
        ok = record != nullptr;
        if (ok && *records == nullptr)
            *records = vec_new_size(count < 10 ? count : 10, MODULE, __LINE__);
        if (ok)
            vec_add(*records, record);
    }
    return ok;
}

static bool readFunctionFields(Metadata *metadata, FILE *in, MetadataFunction *function)
{
    return osdep_readLEU32(in, &function->id) && function->id != 0 &&
           osdep_readLEU32(in, &function->interrupt_levels) &&
           readString(metadata, in, &function->source_file) &&
           osdep_readLEU32(in, &function->source_line) &&
           readString(metadata, in, &function->text) && readFlag(in, &function->is_extern) &&
           readString(metadata, in, &function->name) && function->name != nullptr &&
           osdep_readLEU32(in, &function->hardware_stack) &&
           osdep_readLEU32(in, &function->software_stack) && readFlag(in, &function->uses_cstack) &&
           readFlag(in, &function->is_recursive) && readFlag(in, &function->is_reentrant) &&
           readFlag(in, &function->has_extern_call) &&
           readReferences(in, &metadata->callees, &function->callees) &&
           osdep_readLEU32(in, &function->duplicate_id);
}

static bool readFunction(Metadata *metadata, FILE *in)
{
    MetadataFunction function = {};
    MetadataFunction *kept = nullptr;
    if (readFunctionFields(metadata, in, &function))
        kept = metadata_keepFunction(metadata, &function);
    if (kept == nullptr) {
        vec_destroy(function.callees);
        return false;
    }
    for (uint32_t i = 0; i < vec_size(kept->callees); ++i)
        static_cast<MetadataCallee *>(kept->callees->data[i])->caller = kept;
    return true;
}

// Finds the functions that callees and duplicates refer to.
static bool resolveFunctions(Metadata *metadata)
{
    TRACE_ENTER("metadata=%p", static_cast<void *>(metadata));
    Vector *callees = metadata->callees.records;
    for (uint32_t i = 1; i < vec_size(callees); ++i) {
        auto *callee = static_cast<MetadataCallee *>(callees->data[i]);
        callee->function = metadata_functionById(metadata, callee->function_id);
        if (callee->function == nullptr)
            return TRACE_RETURN("%d", false);
    }
    Vector *functions = metadata->functions.records;
    for (uint32_t i = 1; i < vec_size(functions); ++i) {
        auto *function = static_cast<MetadataFunction *>(functions->data[i]);
        if (function->duplicate_id == 0)
            continue;
        function->duplicate = metadata_functionById(metadata, function->duplicate_id);
        if (function->duplicate == nullptr)
            return TRACE_RETURN("%d", false);
    }
    return TRACE_RETURN("%d", true);
}

static bool readFunctions(Metadata *metadata, FILE *in)
{
    TRACE_ENTER("in=%p", static_cast<void *>(in));
    if (!readMagic(metadata, in, METADATA_MAGIC_FUNCTIONS, METADATA_FUNCTION_MAGIC,
                   METADATA_FUNCTION_MAGIC))
        return TRACE_RETURN("%d", false);
    uint32_t count;
    bool ok = osdep_readLEU32(in, &count) != 0;
    for (uint32_t i = 0; ok && i < count; ++i)
        ok = readFunction(metadata, in);
    ok = metadata_listOrder(&metadata->functions) && ok && resolveFunctions(metadata);
    return TRACE_RETURN("%d", ok || metadata_fail(metadata, METADATA_FUNCTION_LIST));
}

// ---- Interrupt roots and levels ---------------------------------------------------------------

static bool readRoot(Metadata *metadata, FILE *in)
{
    TRACE_ENTER("in=%p", static_cast<void *>(in));
    MetadataRoot root = {};
    uint32_t function_id;
    const bool ok =
        osdep_readLEU32(in, &root.id) && root.id != 0 && osdep_readLEU32(in, &function_id) &&
        (root.function = metadata_functionById(metadata, function_id)) != nullptr &&
        osdep_readLEU32(in, &root.hardware_stack) && osdep_readLEU32(in, &root.software_stack) &&
        metadata_listAdd(&metadata->roots, &root, sizeof root) != nullptr;
    return TRACE_RETURN("%d", ok);
}

static bool readRoots(Metadata *metadata, FILE *in)
{
    TRACE_ENTER("in=%p", static_cast<void *>(in));
    if (!readMagic(metadata, in, METADATA_MAGIC_ROOTS, METADATA_ROOT_MAGIC, METADATA_ROOT_MAGIC))
        return TRACE_RETURN("%d", false);
    uint32_t count;
    bool ok = osdep_readLEU32(in, &count) != 0;
    for (uint32_t i = 0; ok && i < count; ++i)
        ok = readRoot(metadata, in);
    ok = metadata_listOrder(&metadata->roots) && ok;
    return TRACE_RETURN("%d", ok || metadata_fail(metadata, METADATA_ROOT_LIST));
}

static bool readLevelFields(Metadata *metadata, FILE *in, MetadataLevel *level)
{
    return osdep_readLEU32(in, &level->mask) && readString(metadata, in, &level->name) &&
           osdep_readLEU32(in, &level->hardware_stack) &&
           osdep_readLEU32(in, &level->software_stack) &&
           osdep_readLEU32(in, &level->stack_allocated) &&
           readReferences(in, &metadata->roots, &level->roots);
}

// Reads a slot. Returns the code of an error, or METADATA_OK.
static uint32_t readLevel(Metadata *metadata, FILE *in)
{
    TRACE_ENTER("in=%p", static_cast<void *>(in));
    MetadataLevel level = {};
    if (!osdep_readLEU32(in, &level.id))
        return TRACE_RETURN("%u", METADATA_LEVEL_LIST);
    if (level.id == 0)
        return TRACE_RETURN("%u", METADATA_OK);
    uint32_t code = METADATA_LEVEL_LIST;
    if (readLevelFields(metadata, in, &level)) {
        if (level.mask == 0)
            code = METADATA_BAD_MASK;
        else if (metadata_keepLevel(metadata, &level) != nullptr)
            code = METADATA_OK;
    }
    if (code != METADATA_OK)
        vec_destroy(level.roots);
    return TRACE_RETURN("%u", code);
}

static bool readLevels(Metadata *metadata, FILE *in)
{
    TRACE_ENTER("in=%p", static_cast<void *>(in));
    if (!readMagic(metadata, in, METADATA_MAGIC_LEVELS, METADATA_LEVEL_MAGIC, METADATA_LEVEL_MAGIC))
        return TRACE_RETURN("%d", false);
    uint32_t count;
    // A mask has 32 bits, so there are at most 32 slots.
    if (!osdep_readLEU32(in, &count) || count > METADATA_LEVEL_SLOTS)
        return TRACE_RETURN("%d", metadata_fail(metadata, METADATA_LEVEL_LIST));
    uint32_t code = METADATA_OK;
    for (uint32_t i = 0; code == METADATA_OK && i < count; ++i)
        code = readLevel(metadata, in);
    if (metadata->level_count < count)
        metadata->level_count = count;
    return TRACE_RETURN("%d", code == METADATA_OK || metadata_fail(metadata, code));
}

bool metadata_read(Metadata *metadata, FILE *in)
{
    TRACE_ENTER("metadata=%p, in=%p", static_cast<void *>(metadata), static_cast<void *>(in));
    if (metadata == nullptr)
        return TRACE_RETURN("%d", false);
    if (in == nullptr)
        return TRACE_RETURN("%d", metadata_fail(metadata, METADATA_NULL_ARGUMENT));
    const bool ok = readHeader(metadata, in) &&
                    readAttributes(metadata, in, METADATA_GENERAL, METADATA_MAGIC_GENERAL,
                                   METADATA_GENERAL_MAGIC, METADATA_GENERAL_LIST) &&
                    readAttributes(metadata, in, METADATA_PRINTF, METADATA_MAGIC_PRINTF,
                                   METADATA_PRINTF_MAGIC, METADATA_PRINTF_LIST) &&
                    readCallees(metadata, in) && readFunctions(metadata, in) &&
                    readRoots(metadata, in) && readLevels(metadata, in);
    return TRACE_RETURN("%d", ok);
}
