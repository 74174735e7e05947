#define MODULE "common/metadata"

#include "common/formats/metadata.h"

#include <cinttypes>

#include "common/base/hash.h"
#include "common/base/vector.h"
#include "common/formats/metadata_internal.h"
#include "common/trace/qzdebug.h"

static const char undefinedText[] = "<undefined>";

// ---- Pieces -----------------------------------------------------------------------------------

static void dumpRule(FILE *out)
{
    static const char rule[] = "========================================"
                               "========================================\n";
    static_assert(sizeof rule == 80 + 2);
    fputs(rule, out);
}

static void dumpTitle(FILE *out, const char *title)
{
    TRACE_ENTER("title=\"%s\"", title);
    dumpRule(out);
    fprintf(out, "%s\n", title);
}

static void dumpBytes(FILE *out, const char *label, const void *bytes, size_t size)
{
    TRACE_ENTER("label=\"%s\"", label);
    const auto *byte = static_cast<const unsigned char *>(bytes);
    fprintf(out, "\t%s :", label);
    for (size_t i = 0; i < size; ++i) {
        if (byte[i] >= 32 && byte[i] <= 126)
            fprintf(out, " '%c'", byte[i]);
        else
            fprintf(out, " %02X", byte[i]);
    }
    fputc('\n', out);
}

static void dumpMagic(FILE *out, uint64_t magic)
{
    TRACE_ENTER("magic=0x%llX", static_cast<unsigned long long>(magic));
    unsigned char bytes[8];
    for (unsigned i = 0; i < sizeof bytes; ++i)
        bytes[i] = static_cast<unsigned char>(magic >> (8 * i));
    dumpBytes(out, "magic", bytes, sizeof bytes);
}

static void dumpSection(FILE *out, const char *title, uint64_t magic, uint32_t count)
{
    TRACE_ENTER("title=\"%s\"", title);
    dumpTitle(out, title);
    dumpMagic(out, magic);
    fprintf(out, "\tcount : %u\n", count);
}

static const char *nameOf(const MetadataFunction *function)
{
    return function == nullptr ? undefinedText : function->name;
}

static uint32_t idOf(const MetadataFunction *function)
{
    return function == nullptr ? 0 : function->id;
}

// ---- Header and attributes --------------------------------------------------------------------

static void dumpHeader(FILE *out, const MetadataHeader *header)
{
    TRACE_ENTER("out=%p", static_cast<void *>(out));
    dumpTitle(out, "HEADER:");
    dumpMagic(out, header->magic);
    dumpBytes(out, "title", header->title, sizeof header->title);
    dumpBytes(out, "reserved", header->reserved, sizeof header->reserved);
    fprintf(out, "\tversion.major: %u\n", header->version_major);
    fprintf(out, "\tversion.minor: %u\n", header->version_minor);
}

static int dumpAttribute(void *out, const void *name, void *attribute)
{
    fprintf(static_cast<FILE *>(out), "\t\t%s => 0x%" PRIX64 "\n", static_cast<const char *>(name),
            static_cast<const MetadataAttribute *>(attribute)->value);
    return 0;
}

static void dumpAttributes(FILE *out, const char *title, uint64_t magic, const HashTable *table)
{
    TRACE_ENTER("title=\"%s\"", title);
    dumpSection(out, title, magic, hash_count(table));
    hash_foreach(table, out, dumpAttribute);
}

// ---- Callees and functions --------------------------------------------------------------------

static void dumpCallee(FILE *out, const MetadataCallee *callee)
{
    TRACE_ENTER("callee=%u", callee->id);
    fprintf(out, "\tcallee: (%u)\n", callee->id);
    fprintf(out, "\t\tfunction      : (%u) %s\n", callee->function_id, nameOf(callee->function));
    fprintf(out, "\t\targ call      : %u\n", callee->arg_call);
    fprintf(out, "\t\tindirect call : %u\n", callee->indirect_call);
}

static void dumpCallees(FILE *out, const Metadata *metadata)
{
    TRACE_ENTER("out=%p", static_cast<void *>(out));
    const uint32_t count = metadata_listCount(&metadata->callees);
    dumpSection(out, "FCALLEES:", METADATA_MAGIC_CALLEES, count);
    for (uint32_t i = 1; i <= count; ++i)
        dumpCallee(out, static_cast<MetadataCallee *>(metadata->callees.records->data[i]));
}

// Prints the function that this one duplicates. It follows only one step, so functions that
// duplicate one another in a circle are printed like any other.
static void dumpDuplicate(FILE *out, const MetadataFunction *duplicate)
{
    TRACE_ENTER("out=%p", static_cast<void *>(out));
    fputs("\t\tduplicates      : ", out);
    if (duplicate == nullptr)
        fputs("<nothing>\n", out);
    else
        fprintf(out, "(%u) %s\n", duplicate->id, duplicate->name);
}

static void dumpFunction(FILE *out, const MetadataFunction *function)
{
    TRACE_ENTER("function=(%u) %s", function->id, function->name);
    fprintf(out, "\tFunction: (%u) %s\n", function->id, function->name);
    fprintf(out, "\t\tintlevels       : 0x%X\n", function->interrupt_levels);
    fputs("\t\tsource          : ", out);
    if (function->source_file == nullptr)
        fputs("<unknown>\n", out);
    else
        fprintf(out, "%s:%u\n", function->source_file, function->source_line);
    fprintf(out, "\t\ts/w stack used  : %u bytes\n", function->software_stack);
    fprintf(out, "\t\tuses cstack     : %u\n", function->uses_cstack);
    fprintf(out, "\t\th/w stack used  : %u levels\n", function->hardware_stack);
    fprintf(out, "\t\tis recursive    : %u\n", function->is_recursive);
    fprintf(out, "\t\tis reentrant    : %u\n", function->is_reentrant);
    fprintf(out, "\t\tis extern       : %u\n", function->is_extern);
    fprintf(out, "\t\thas extern call : %u\n", function->has_extern_call);
    dumpDuplicate(out, function->duplicate);
    for (MetadataCallee *callee : vec_each<MetadataCallee>(function->callees))
        fprintf(out, "\t\t\t(%u) %s (%u)\n", callee->id, nameOf(callee->function),
                callee->function_id);
}

static void dumpFunctions(FILE *out, const Metadata *metadata)
{
    TRACE_ENTER("out=%p", static_cast<void *>(out));
    const uint32_t count = metadata_listCount(&metadata->functions);
    dumpSection(out, "FUNCTIONS:", METADATA_MAGIC_FUNCTIONS, count);
    for (uint32_t i = 1; i <= count; ++i)
        dumpFunction(out, static_cast<MetadataFunction *>(metadata->functions.records->data[i]));
}

// ---- Interrupt roots and levels ---------------------------------------------------------------

static void dumpRoots(FILE *out, const Metadata *metadata)
{
    TRACE_ENTER("out=%p", static_cast<void *>(out));
    const uint32_t count = metadata_listCount(&metadata->roots);
    dumpSection(out, "ROOTS:", METADATA_MAGIC_ROOTS, count);
    for (uint32_t i = 1; i <= count; ++i) {
        const auto *root = static_cast<MetadataRoot *>(metadata->roots.records->data[i]);
        fprintf(out, "\troot : (%u)\n", root->id);
        fprintf(out, "\t\tfunction : %s (%u)\n", nameOf(root->function), idOf(root->function));
        fprintf(out, "\t\thwstack.used : %u levels\n", root->hardware_stack);
        fprintf(out, "\t\tswstack.used : %u bytes\n", root->software_stack);
    }
}

static void dumpLevel(FILE *out, const MetadataLevel *level)
{
    TRACE_ENTER("level=%u", level->id);
    fprintf(out, "(%u)\n", level->id);
    fprintf(out, "\t\tmask          : 0x%X\n", level->mask);
    fprintf(out, "\t\tname          : \"%s\"\n",
            level->name == nullptr ? undefinedText : level->name);
    fprintf(out, "\t\thwstack.used  : %u levels\n", level->hardware_stack);
    fprintf(out, "\t\tswstack.used  : %u bytes\n", level->software_stack);
    fprintf(out, "\t\tswstack.alloc : %u bytes\n", level->stack_allocated);
    fprintf(out, "\t\troots         : %u\n", vec_size(level->roots));
    for (MetadataRoot *root : vec_each<MetadataRoot>(level->roots))
        fprintf(out, "\t\t\t(%u) %s (%u)\n", root->id, nameOf(root->function),
                idOf(root->function));
}

static void dumpLevels(FILE *out, const Metadata *metadata)
{
    TRACE_ENTER("out=%p", static_cast<void *>(out));
    dumpSection(out, "INTLEVELS:", METADATA_MAGIC_LEVELS, metadata->level_count);
    for (uint32_t slot = 0; slot < metadata->level_count; ++slot) {
        fprintf(out, "\tinlevel: %u ", slot);
        if (metadata->levels[slot] == nullptr)
            fprintf(out, "%s\n", undefinedText);
        else
            dumpLevel(out, metadata->levels[slot]);
    }
}

bool metadata_dump(Metadata *metadata, FILE *out)
{
    TRACE_ENTER("metadata=%p, out=%p", static_cast<void *>(metadata), static_cast<void *>(out));
    if (metadata == nullptr)
        return TRACE_RETURN("%d", false);
    if (out == nullptr)
        return TRACE_RETURN("%d", metadata_fail(metadata, METADATA_NULL_ARGUMENT));
    dumpTitle(out, "QZM METADATA DUMP");
    dumpHeader(out, &metadata->header);
    dumpAttributes(out, "GENERAL ATTRIBUTES:", METADATA_MAGIC_GENERAL,
                   metadata->attributes[METADATA_GENERAL]);
    dumpAttributes(out, "PRINTF ATTRIBUTES:", METADATA_MAGIC_PRINTF,
                   metadata->attributes[METADATA_PRINTF]);
    dumpCallees(out, metadata);
    dumpFunctions(out, metadata);
    dumpRoots(out, metadata);
    dumpLevels(out, metadata);
    dumpRule(out);
    return TRACE_RETURN("%d", fflush(out) == 0 && ferror(out) == 0);
}
