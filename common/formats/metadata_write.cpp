#define MODULE "common/metadata"

// Writing. Each function has its twin in metadata_read.cpp, in the same order.

#include "common/formats/metadata.h"

#include <cstring>

#include "common/base/hash.h"
#include "common/base/vector.h"
#include "common/formats/metadata_internal.h"
#include "common/text/osdep_bytes.h"
#include "common/trace/qzdebug.h"

// ---- Fields -----------------------------------------------------------------------------------

static bool writeFlag(FILE *out, bool flag)
{
    return osdep_writeU8(out, flag) != 0;
}

static bool writeString(FILE *out, const char *text)
{
    if (text == nullptr)
        text = "";
    return fwrite(text, strlen(text) + 1, 1, out) == 1;
}

static bool writeMagic(Metadata *metadata, FILE *out, uint64_t magic, uint32_t code)
{
    TRACE_ENTER("code=%u", code);
    return TRACE_RETURN("%d", osdep_writeLEU64(out, magic) != 0 || metadata_fail(metadata, code));
}

// ---- Header and attributes --------------------------------------------------------------------

static bool writeHeader(Metadata *metadata, FILE *out)
{
    TRACE_ENTER("out=%p", static_cast<void *>(out));
    const MetadataHeader *header = &metadata->header;
    uint32_t code = METADATA_OK;
    if (!writeMagic(metadata, out, METADATA_MAGIC_HEADER, METADATA_HEADER_MAGIC))
        return TRACE_RETURN("%d", false);
    if (fwrite(header->title, sizeof header->title, 1, out) != 1)
        code = METADATA_HEADER_TITLE;
    else if (!osdep_writeLEU16(out, header->version_major) ||
             !osdep_writeLEU16(out, header->version_minor))
        code = METADATA_HEADER_VERSION;
    else if (fwrite(header->reserved, sizeof header->reserved, 1, out) != 1)
        code = METADATA_HEADER_RESERVED;
    return TRACE_RETURN("%d", code == METADATA_OK || metadata_fail(metadata, code));
}

static int writeAttribute(void *out, const void *name, void *attribute)
{
    FILE *stream = static_cast<FILE *>(out);
    const bool ok =
        writeString(stream, static_cast<const char *>(name)) &&
        osdep_writeLEU64(stream, static_cast<const MetadataAttribute *>(attribute)->value) != 0;
    return !ok;
}

static bool writeAttributes(Metadata *metadata, FILE *out, MetadataTable table, uint64_t magic,
                            uint32_t magic_code, uint32_t list_code)
{
    TRACE_ENTER("table=%u", static_cast<uint32_t>(table));
    if (!writeMagic(metadata, out, magic, magic_code))
        return TRACE_RETURN("%d", false);
    const HashTable *attributes = metadata->attributes[table];
    const bool ok = osdep_writeLEU32(out, hash_count(attributes)) != 0 &&
                    hash_foreach(attributes, out, writeAttribute) == 0;
    return TRACE_RETURN("%d", ok || metadata_fail(metadata, list_code));
}

// ---- Callees ----------------------------------------------------------------------------------

// Writes a callee. Returns the code of an error, or METADATA_OK.
static uint32_t writeCallee(FILE *out, const MetadataCallee *callee)
{
    if (callee->function == nullptr)
        return METADATA_CALLEE_WITHOUT_FUNCTION;
    const bool ok = osdep_writeLEU32(out, callee->id) &&
                    osdep_writeLEU32(out, callee->function->id) &&
                    writeFlag(out, callee->arg_call) && writeFlag(out, callee->indirect_call);
    return ok ? METADATA_OK : METADATA_CALLEE_LIST;
}

static bool writeCallees(Metadata *metadata, FILE *out)
{
    TRACE_ENTER("out=%p", static_cast<void *>(out));
    if (!writeMagic(metadata, out, METADATA_MAGIC_CALLEES, METADATA_CALLEE_MAGIC))
        return TRACE_RETURN("%d", false);
    const uint32_t count = metadata_listCount(&metadata->callees);
    uint32_t code = osdep_writeLEU32(out, count) ? METADATA_OK : METADATA_CALLEE_LIST;
    for (uint32_t i = 1; code == METADATA_OK && i <= count; ++i)
        code = writeCallee(out, static_cast<MetadataCallee *>(metadata->callees.records->data[i]));
    return TRACE_RETURN("%d", code == METADATA_OK || metadata_fail(metadata, code));
}

// ---- Functions --------------------------------------------------------------------------------

// Writes a list of the ids of records.
static bool writeReferences(FILE *out, const Vector *records)
{
    const uint32_t count = vec_size(records);
    bool ok = osdep_writeLEU32(out, count) != 0;
    for (uint32_t i = 0; ok && i < count; ++i)
        ok = osdep_writeLEU32(out, *static_cast<const uint32_t *>(records->data[i])) != 0;
    return ok;
}

static bool writeFunction(FILE *out, const MetadataFunction *function)
{
    const MetadataFunction *duplicate = function->duplicate;
    return osdep_writeLEU32(out, function->id) &&
           osdep_writeLEU32(out, function->interrupt_levels) &&
           writeString(out, function->source_file) &&
           osdep_writeLEU32(out, function->source_line) && writeString(out, function->text) &&
           writeFlag(out, function->is_extern) && writeString(out, function->name) &&
           osdep_writeLEU32(out, function->hardware_stack) &&
           osdep_writeLEU32(out, function->software_stack) &&
           writeFlag(out, function->uses_cstack) && writeFlag(out, function->is_recursive) &&
           writeFlag(out, function->is_reentrant) && writeFlag(out, function->has_extern_call) &&
           writeReferences(out, function->callees) &&
           osdep_writeLEU32(out, duplicate == nullptr ? 0 : duplicate->id);
}

static bool writeFunctions(Metadata *metadata, FILE *out)
{
    TRACE_ENTER("out=%p", static_cast<void *>(out));
    if (!writeMagic(metadata, out, METADATA_MAGIC_FUNCTIONS, METADATA_FUNCTION_MAGIC))
        return TRACE_RETURN("%d", false);
    // Every function has a name, so the table by name has as many entries as the list.
    const uint32_t count = hash_count(metadata->functions_by_name);
    bool ok = osdep_writeLEU32(out, count) != 0;
    for (uint32_t i = 1; ok && i <= count; ++i)
        ok = writeFunction(out,
                           static_cast<MetadataFunction *>(metadata->functions.records->data[i]));
    return TRACE_RETURN("%d", ok || metadata_fail(metadata, METADATA_FUNCTION_LIST));
}

// ---- Interrupt roots and levels ---------------------------------------------------------------

// Writes a root. Returns the code of an error, or METADATA_OK.
static uint32_t writeRoot(FILE *out, const MetadataRoot *root)
{
    TRACE_ENTER("root=%u", root->id);
    if (root->function == nullptr)
        return TRACE_RETURN("%u", METADATA_ROOT_WITHOUT_FUNCTION);
    const bool ok = osdep_writeLEU32(out, root->id) && osdep_writeLEU32(out, root->function->id) &&
                    osdep_writeLEU32(out, root->hardware_stack) &&
                    osdep_writeLEU32(out, root->software_stack);
    return TRACE_RETURN("%u", ok ? METADATA_OK : METADATA_ROOT_LIST);
}

static bool writeRoots(Metadata *metadata, FILE *out)
{
    TRACE_ENTER("out=%p", static_cast<void *>(out));
    if (!writeMagic(metadata, out, METADATA_MAGIC_ROOTS, METADATA_ROOT_MAGIC))
        return TRACE_RETURN("%d", false);
    const uint32_t count = metadata_listCount(&metadata->roots);
    uint32_t code = osdep_writeLEU32(out, count) ? METADATA_OK : METADATA_ROOT_LIST;
    for (uint32_t i = 1; code == METADATA_OK && i <= count; ++i)
        code = writeRoot(out, static_cast<MetadataRoot *>(metadata->roots.records->data[i]));
    return TRACE_RETURN("%d", code == METADATA_OK || metadata_fail(metadata, code));
}

static bool writeLevel(FILE *out, const MetadataLevel *level)
{
    TRACE_ENTER("level=%p", static_cast<const void *>(level));
    if (level == nullptr)
        return TRACE_RETURN("%d", osdep_writeLEU32(out, 0) != 0);
    const bool ok = osdep_writeLEU32(out, level->id) && osdep_writeLEU32(out, level->mask) &&
                    writeString(out, level->name) && osdep_writeLEU32(out, level->hardware_stack) &&
                    osdep_writeLEU32(out, level->software_stack) &&
                    osdep_writeLEU32(out, level->stack_allocated) &&
                    writeReferences(out, level->roots);
    return TRACE_RETURN("%d", ok);
}

static bool writeLevels(Metadata *metadata, FILE *out)
{
    TRACE_ENTER("out=%p", static_cast<void *>(out));
    if (!writeMagic(metadata, out, METADATA_MAGIC_LEVELS, METADATA_LEVEL_MAGIC))
        return TRACE_RETURN("%d", false);
    bool ok = osdep_writeLEU32(out, metadata->level_count) != 0;
    for (uint32_t slot = 0; ok && slot < metadata->level_count; ++slot)
        ok = writeLevel(out, metadata->levels[slot]);
    ok = ok && fflush(out) == 0;
    return TRACE_RETURN("%d", ok || metadata_fail(metadata, METADATA_LEVEL_LIST));
}

bool metadata_write(Metadata *metadata, FILE *out)
{
    TRACE_ENTER("metadata=%p, out=%p", static_cast<void *>(metadata), static_cast<void *>(out));
    if (metadata == nullptr)
        return TRACE_RETURN("%d", false);
    if (out == nullptr)
        return TRACE_RETURN("%d", metadata_fail(metadata, METADATA_NULL_ARGUMENT));
    const bool ok = writeHeader(metadata, out) &&
                    writeAttributes(metadata, out, METADATA_GENERAL, METADATA_MAGIC_GENERAL,
                                    METADATA_GENERAL_MAGIC, METADATA_GENERAL_LIST) &&
                    writeAttributes(metadata, out, METADATA_PRINTF, METADATA_MAGIC_PRINTF,
                                    METADATA_PRINTF_MAGIC, METADATA_PRINTF_LIST) &&
                    writeCallees(metadata, out) && writeFunctions(metadata, out) &&
                    writeRoots(metadata, out) && writeLevels(metadata, out);
    return TRACE_RETURN("%d", ok);
}
