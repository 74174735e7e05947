#define MODULE "common/metadata"

#include "common/formats/metadata.h"

#include <bit>
#include <cstdlib>
#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/hash.h"
#include "common/base/sorting.h"
#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/formats/metadata_internal.h"
#include "common/trace/qzdebug.h"

namespace {
enum : uint32_t {
    ATTRIBUTE_BUCKETS = 23,
    FUNCTION_BUCKETS = 101,
    BUFFER_SIZE = 128,
};
} // namespace

static const char *const errorTexts[] = {
    "OK",
    "Null argument",
    "Empty string",
    "Out of memory",
    "Reading/writing header magic number",
    "Reading/writing header title",
    "Reading/writing header version",
    "Reading/writing header reserved area",
    "Reading/writing general attributes magic number",
    "Reading/writing general attributes list",
    "Reading/writing printf attributes magic number",
    "Reading/writing printf attributes list",
    "Bad source line-number",
    "Data stack conflict",
    "Invalid circular reference",
    "Reading/writing function list magic number",
    "Reading/writing the function list",
    "Callee has no function",
    "Callee does not exist",
    "Reading/writing function callees magic number",
    "Reading/writing fucntion callees list",
    "Invalid interrupt-level mask",
    "Reading/writing interrupt-level list magic number",
    "Reading/writing the interrupt-level list",
    "Root has no function",
    "Reading/writing root list magic number",
    "Reading/writing the root list",
    "Foreign metadata",
};
static_assert(sizeof errorTexts / sizeof errorTexts[0] == METADATA_ERROR_COUNT);

namespace {
struct KeyRow {
    const char *key;  // its name in the file
    uint64_t missing; // its value while it is absent
};
} // namespace

#define KEY_ROW(name, key, missing) {key, missing},
static const KeyRow keyRows[] = {METADATA_KEYS(KEY_ROW)};
#undef KEY_ROW
static_assert(sizeof keyRows / sizeof keyRows[0] == METADATA_KEY_COUNT);

bool metadata_fail(Metadata *metadata, uint32_t code)
{
    TRACE("metadata error %u: %s", code, metadata_errorText(code));
    metadata->error = code;
    return false;
}

uint32_t metadata_error(const Metadata *metadata)
{
    TRACE_ENTER("metadata=%p", static_cast<const void *>(metadata));
    return TRACE_RETURN("%u", metadata == nullptr ? METADATA_NULL_ARGUMENT : metadata->error);
}

const char *metadata_errorText(uint32_t code)
{
    TRACE_ENTER("code=%u", code);
    return TRACE_RETURN("\"%s\"", code < METADATA_ERROR_COUNT ? errorTexts[code] : "Unknown error");
}

// The bucket counts are small for a large file, but the hash module then finds entries without
// walking the chains.
static HashTable *newTable(uint32_t buckets)
{
    return hash_new_func(buckets, hash_string, hash_stringCompare, MODULE, __LINE__);
}

// ---- Lists by id ------------------------------------------------------------------------------

static uint32_t idOf(const void *record)
{
    return record == nullptr ? 0 : *static_cast<const uint32_t *>(record);
}

static int compareIds(const void *slotA, const void *slotB)
{
    const uint32_t a = idOf(*static_cast<void *const *>(slotA));
    const uint32_t b = idOf(*static_cast<void *const *>(slotB));
    return (a > b) - (a < b);
}

static int compareKeyToSlot(const void *key, const void *slot, size_t)
{
    const uint32_t wanted = *static_cast<const uint32_t *>(key);
    const uint32_t id = idOf(*static_cast<void *const *>(slot));
    return (wanted > id) - (wanted < id);
}

void *metadata_listAdd(MetadataList *list, const void *record, size_t size)
{
    void *copy = malloc(size);
    if (copy == nullptr)
        return nullptr;
    memcpy(copy, record, size);
    if (vec_size(list->records) == 0)
        vec_add(list->records, nullptr);
    vec_add(list->records, copy);
    if (list->next_id != 0 && idOf(copy) >= list->next_id)
        list->next_id = idOf(copy) + 1;
    return copy;
}

bool metadata_listOrder(MetadataList *list)
{
    TRACE_ENTER("list=%p", static_cast<const void *>(list));
    const uint32_t count = vec_size(list->records);
    bool sorted = true;
    for (uint32_t i = 2; i < count && sorted; ++i)
        sorted = idOf(list->records->data[i - 1]) < idOf(list->records->data[i]);
    if (sorted)
        return TRACE_RETURN("%d", true);
    vec_sort(list->records, compareIds);
    for (uint32_t i = 2; i < count; ++i)
        if (idOf(list->records->data[i - 1]) == idOf(list->records->data[i]))
            return TRACE_RETURN("%d", false);
    return TRACE_RETURN("%d", true);
}

void *metadata_listFind(const MetadataList *list, uint32_t id)
{
    const uint32_t count = vec_size(list->records);
    if (id == 0 || count == 0)
        return nullptr;
    if (id < count && idOf(list->records->data[id]) == id)
        return list->records->data[id];
    void *slot = osdep_bsearch(&id, list->records->data, count, sizeof(void *), compareKeyToSlot);
    return slot == nullptr ? nullptr : *static_cast<void **>(slot);
}

uint32_t metadata_listCount(const MetadataList *list)
{
    TRACE_ENTER("list=%p", static_cast<const void *>(list));
    const uint32_t slots = vec_size(list->records);
    if (slots == 0)
        return TRACE_RETURN("%u", 0u);
    ASSERT_AT(1, slots > 1);
    return TRACE_RETURN("%u", slots - 1);
}

static void listDestroy(MetadataList *list)
{
    TRACE_ENTER("list=%p", static_cast<const void *>(list));
    for (uint32_t i = 0; i < vec_size(list->records); ++i)
        free(list->records->data[i]);
    vec_destroy(list->records);
}

// ---- Creating and destroying ------------------------------------------------------------------

static bool formatTitle(char title[METADATA_TITLE_SIZE], const char *compiler_version)
{
    TRACE_ENTER("compiler_version=\"%s\"", compiler_version);
    char text[METADATA_TITLE_SIZE + 1];
    const int length = snprintf(
        text, sizeof text, "\nVantrix Kestrel QZM V%s program metadata\nMetadata format V%u.%u\n",
        compiler_version, METADATA_VERSION_MAJOR, METADATA_VERSION_MINOR);
    if (length <= 0 || length > static_cast<int>(METADATA_TITLE_SIZE))
        return TRACE_RETURN("%d", false);
    memcpy(title, text, static_cast<size_t>(length));
    return TRACE_RETURN("%d", true);
}

Metadata *metadata_create(const char *compiler_version)
{
    TRACE_ENTER("compiler_version=\"%s\"",
                compiler_version == nullptr ? "(null)" : compiler_version);
    if (compiler_version == nullptr)
        compiler_version = METADATA_COMPILER_VERSION;
    Metadata *metadata = static_cast<Metadata *>(calloc(1, sizeof *metadata));
    char *buffer = static_cast<char *>(malloc(BUFFER_SIZE));
    if (metadata == nullptr || buffer == nullptr ||
        !formatTitle(metadata->header.title, compiler_version)) {
        free(buffer);
        free(metadata);
        return static_cast<Metadata *>(TRACE_RETURN("%p", static_cast<void *>(nullptr)));
    }
    metadata->header.magic = METADATA_MAGIC_HEADER;
    metadata->header.version_major = METADATA_VERSION_MAJOR;
    metadata->header.version_minor = METADATA_VERSION_MINOR;
    for (HashTable *&table : metadata->attributes)
        table = newTable(ATTRIBUTE_BUCKETS);
    metadata->functions_by_name = newTable(FUNCTION_BUCKETS);
    metadata->callees = {vec_new(MODULE, __LINE__), 1};
    metadata->functions = {vec_new(MODULE, __LINE__), 1};
    metadata->roots = {vec_new(MODULE, __LINE__), 1};
    metadata->buffer = buffer;
    metadata->buffer_size = BUFFER_SIZE;
    return static_cast<Metadata *>(TRACE_RETURN("%p", static_cast<void *>(metadata)));
}

static int freeAttribute(void *, const void *, void *attribute)
{
    free(attribute);
    return 0;
}

static void destroyLevels(Metadata *metadata)
{
    TRACE_ENTER("metadata=%p", static_cast<const void *>(metadata));
    for (MetadataLevel *level : metadata->levels) {
        if (level == nullptr)
            continue;
        vec_destroy(level->roots);
        free(level);
    }
}

void metadata_destroy(Metadata *metadata)
{
    TRACE_ENTER("metadata=%p", static_cast<const void *>(metadata));
    if (metadata == nullptr)
        return;
    for (HashTable *table : metadata->attributes) {
        hash_foreach(table, nullptr, freeAttribute);
        hash_destroy(table);
    }
    hash_destroy(metadata->functions_by_name);
    for (uint32_t i = 1; i < vec_size(metadata->functions.records); ++i)
        vec_destroy(static_cast<MetadataFunction *>(metadata->functions.records->data[i])->callees);
    destroyLevels(metadata);
    listDestroy(&metadata->callees);
    listDestroy(&metadata->functions);
    listDestroy(&metadata->roots);
    free(metadata->buffer);
    free(metadata);
}

// ---- Attributes -------------------------------------------------------------------------------

static MetadataAttribute *findAttribute(const Metadata *metadata, MetadataTable table,
                                        const char *name)
{
    if (metadata == nullptr || name == nullptr)
        return nullptr;
    return static_cast<MetadataAttribute *>(hash_get(metadata->attributes[table], name));
}

bool metadata_keepAttribute(Metadata *metadata, MetadataTable table, const char *name,
                            uint64_t value)
{
    TRACE_ENTER("name=\"%s\"", name);
    MetadataAttribute *attribute = findAttribute(metadata, table, name);
    if (attribute != nullptr) {
        attribute->value = value;
        return TRACE_RETURN("%d", true);
    }
    attribute = static_cast<MetadataAttribute *>(malloc(sizeof *attribute));
    if (attribute == nullptr)
        return TRACE_RETURN("%d", false);
    *attribute = {name, value};
    hash_insert_func(metadata->attributes[table], name, attribute, MODULE, __LINE__);
    return TRACE_RETURN("%d", true);
}

bool metadata_setAttribute(Metadata *metadata, MetadataTable table, const char *name,
                           uint64_t value)
{
    TRACE_ENTER("name=\"%s\", value=%llu", name == nullptr ? "(null)" : name,
                static_cast<unsigned long long>(value));
    if (metadata == nullptr)
        return TRACE_RETURN("%d", false);
    if (name == nullptr || *name == '\0')
        return TRACE_RETURN("%d", metadata_fail(metadata, name == nullptr ? METADATA_NULL_ARGUMENT
                                                                          : METADATA_EMPTY_STRING));
    if (!metadata_keepAttribute(metadata, table, cache_string(name), value))
        return TRACE_RETURN("%d", metadata_fail(metadata, METADATA_NO_MEMORY));
    return TRACE_RETURN("%d", true);
}

uint64_t metadata_getAttribute(const Metadata *metadata, MetadataTable table, const char *name,
                               uint64_t missing)
{
    TRACE_ENTER("name=\"%s\"", name == nullptr ? "(null)" : name);
    const MetadataAttribute *attribute = findAttribute(metadata, table, name);
    const unsigned long long value = attribute == nullptr ? missing : attribute->value;
    return TRACE_RETURN("%llu", value);
}

bool metadata_hasAttribute(const Metadata *metadata, MetadataTable table, const char *name)
{
    TRACE_ENTER("name=\"%s\"", name == nullptr ? "(null)" : name);
    return TRACE_RETURN("%d", findAttribute(metadata, table, name) != nullptr);
}

bool metadata_setKey(Metadata *metadata, MetadataKey key, uint32_t value)
{
    TRACE_ENTER("key=%u, value=%u", static_cast<uint32_t>(key), value);
    ASSERT_AT(2, key < METADATA_KEY_COUNT);
    return TRACE_RETURN("%d",
                        metadata_setAttribute(metadata, METADATA_GENERAL, keyRows[key].key, value));
}

uint64_t metadata_getKey(const Metadata *metadata, MetadataKey key)
{
    TRACE_ENTER("key=%u", static_cast<uint32_t>(key));
    ASSERT_AT(3, key < METADATA_KEY_COUNT);
    const unsigned long long value =
        metadata_getAttribute(metadata, METADATA_GENERAL, keyRows[key].key, keyRows[key].missing);
    return TRACE_RETURN("%llu", value);
}

bool metadata_hasKey(const Metadata *metadata, MetadataKey key)
{
    TRACE_ENTER("key=%u", static_cast<uint32_t>(key));
    ASSERT_AT(4, key < METADATA_KEY_COUNT);
    return TRACE_RETURN("%d", metadata_hasAttribute(metadata, METADATA_GENERAL, keyRows[key].key));
}

// ---- Records ----------------------------------------------------------------------------------

MetadataFunction *metadata_functionById(const Metadata *metadata, uint32_t id)
{
    TRACE_ENTER("id=%u", id);
    void *function = metadata == nullptr ? nullptr : metadata_listFind(&metadata->functions, id);
    return static_cast<MetadataFunction *>(TRACE_RETURN("%p", function));
}

MetadataFunction *metadata_functionByName(const Metadata *metadata, const char *name)
{
    TRACE_ENTER("name=\"%s\"", name == nullptr ? "(null)" : name);
    void *function = metadata == nullptr || name == nullptr
                         ? nullptr
                         : hash_get(metadata->functions_by_name, name);
    return static_cast<MetadataFunction *>(TRACE_RETURN("%p", function));
}

// Adds the record; null in the cases of metadata_keepFunction().
static MetadataFunction *addFunctionRecord(Metadata *metadata, const MetadataFunction *function)
{
    if (hash_haskey(metadata->functions_by_name, function->name))
        return nullptr;
    auto *kept = static_cast<MetadataFunction *>(
        metadata_listAdd(&metadata->functions, function, sizeof *function));
    if (kept == nullptr)
        return nullptr;
    kept->owner = metadata;
    hash_insert_func(metadata->functions_by_name, kept->name, kept, MODULE, __LINE__);
    return kept;
}

MetadataFunction *metadata_keepFunction(Metadata *metadata, const MetadataFunction *function)
{
    TRACE_ENTER("name=\"%s\"", function->name);
    void *kept = addFunctionRecord(metadata, function);
    return static_cast<MetadataFunction *>(TRACE_RETURN("%p", kept));
}

// Adds the record; null in the cases of metadata_keepLevel().
static MetadataLevel *addLevelRecord(Metadata *metadata, const MetadataLevel *level)
{
    const auto slot = static_cast<uint32_t>(std::countr_zero(level->mask));
    if (metadata->levels[slot] != nullptr)
        return nullptr;
    auto *kept = static_cast<MetadataLevel *>(malloc(sizeof *level));
    if (kept == nullptr)
        return nullptr;
    *kept = *level;
    metadata->levels[slot] = kept;
    if (metadata->level_count <= slot)
        metadata->level_count = slot + 1;
    return kept;
}

MetadataLevel *metadata_keepLevel(Metadata *metadata, const MetadataLevel *level)
{
    TRACE_ENTER("mask=0x%X", level->mask);
    ASSERT_AT(5, level->mask != 0);
    void *kept = addLevelRecord(metadata, level);
    return static_cast<MetadataLevel *>(TRACE_RETURN("%p", kept));
}
