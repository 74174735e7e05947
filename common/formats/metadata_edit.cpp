#define MODULE "common/metadata"

#include "common/formats/metadata.h"

#include <bit>

#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/formats/metadata_internal.h"
#include "common/trace/qzdebug.h"

// ---- Adding -----------------------------------------------------------------------------------

// Appends to a vector that is created when it is first needed.
static void addTo(Vector **vector, const void *element)
{
    if (*vector == nullptr)
        *vector = vec_new(MODULE, __LINE__);
    vec_add(*vector, element);
}

// The code that says why the list cannot take another record, or METADATA_OK.
static uint32_t checkList(const MetadataList *list, uint32_t list_code)
{
    return list->next_id == 0 ? list_code : METADATA_OK;
}

static MetadataFunction *addFunction(Metadata *metadata, const char *name)
{
    if (metadata == nullptr)
        return nullptr;
    uint32_t code = checkList(&metadata->functions, METADATA_FUNCTION_LIST);
    if (name == nullptr)
        code = METADATA_NULL_ARGUMENT;
    else if (*name == '\0')
        code = METADATA_EMPTY_STRING;
    else if (metadata_functionByName(metadata, name) != nullptr)
        code = METADATA_FUNCTION_LIST;
    if (code != METADATA_OK) {
        metadata_fail(metadata, code);
        return nullptr;
    }
    MetadataFunction function = {};
    function.id = metadata->functions.next_id;
    function.name = cache_string(name);
    MetadataFunction *kept = metadata_keepFunction(metadata, &function);
    if (kept == nullptr)
        metadata_fail(metadata, METADATA_NO_MEMORY);
    return kept;
}

MetadataFunction *metadata_addFunction(Metadata *metadata, const char *name)
{
    TRACE_ENTER("name=\"%s\"", name == nullptr ? "(null)" : name);
    void *function = addFunction(metadata, name);
    return static_cast<MetadataFunction *>(TRACE_RETURN("%p", function));
}

static MetadataCallee *addCallee(Metadata *metadata, MetadataFunction *caller,
                                 MetadataFunction *function)
{
    if (metadata == nullptr)
        return nullptr;
    uint32_t code = checkList(&metadata->callees, METADATA_CALLEE_LIST);
    if (caller == nullptr || function == nullptr)
        code = METADATA_NULL_ARGUMENT;
    else if (caller->owner != metadata || function->owner != metadata)
        code = METADATA_FOREIGN;
    if (code != METADATA_OK) {
        metadata_fail(metadata, code);
        return nullptr;
    }
    const MetadataCallee callee = {
        metadata->callees.next_id, function->id, function, caller, false, false};
    auto *kept =
        static_cast<MetadataCallee *>(metadata_listAdd(&metadata->callees, &callee, sizeof callee));
    if (kept == nullptr)
        metadata_fail(metadata, METADATA_NO_MEMORY);
    else
        addTo(&caller->callees, kept);
    return kept;
}

MetadataCallee *metadata_addCallee(Metadata *metadata, MetadataFunction *caller,
                                   MetadataFunction *function)
{
    TRACE_ENTER("caller=%p, function=%p", static_cast<void *>(caller),
                static_cast<void *>(function));
    void *callee = addCallee(metadata, caller, function);
    return static_cast<MetadataCallee *>(TRACE_RETURN("%p", callee));
}

static MetadataRoot *addRoot(Metadata *metadata, MetadataFunction *function)
{
    if (metadata == nullptr)
        return nullptr;
    uint32_t code = checkList(&metadata->roots, METADATA_ROOT_LIST);
    if (function == nullptr)
        code = METADATA_NULL_ARGUMENT;
    else if (function->owner != metadata)
        code = METADATA_FOREIGN;
    if (code != METADATA_OK) {
        metadata_fail(metadata, code);
        return nullptr;
    }
    const MetadataRoot root = {metadata->roots.next_id, function, 0, 0};
    auto *kept =
        static_cast<MetadataRoot *>(metadata_listAdd(&metadata->roots, &root, sizeof root));
    if (kept == nullptr)
        metadata_fail(metadata, METADATA_NO_MEMORY);
    return kept;
}

MetadataRoot *metadata_addRoot(Metadata *metadata, MetadataFunction *function)
{
    TRACE_ENTER("function=%p", static_cast<void *>(function));
    void *root = addRoot(metadata, function);
    return static_cast<MetadataRoot *>(TRACE_RETURN("%p", root));
}

static MetadataLevel *addLevel(Metadata *metadata, uint32_t mask, const char *name)
{
    if (metadata == nullptr)
        return nullptr;
    if (mask == 0) {
        metadata_fail(metadata, METADATA_BAD_MASK);
        return nullptr;
    }
    const auto slot = static_cast<uint32_t>(std::countr_zero(mask));
    if (metadata->levels[slot] != nullptr) {
        metadata_fail(metadata, METADATA_LEVEL_LIST);
        return nullptr;
    }
    const MetadataLevel level = {slot + 1, mask, cache_string(name), 0, 0, 0, nullptr};
    MetadataLevel *kept = metadata_keepLevel(metadata, &level);
    if (kept == nullptr)
        metadata_fail(metadata, METADATA_NO_MEMORY);
    return kept;
}

MetadataLevel *metadata_addLevel(Metadata *metadata, uint32_t mask, const char *name)
{
    TRACE_ENTER("mask=0x%X, name=\"%s\"", mask, name == nullptr ? "(null)" : name);
    void *level = addLevel(metadata, mask, name);
    return static_cast<MetadataLevel *>(TRACE_RETURN("%p", level));
}

bool metadata_addLevelRoot(Metadata *metadata, MetadataLevel *level, MetadataRoot *root)
{
    TRACE_ENTER("level=%p, root=%p", static_cast<void *>(level), static_cast<void *>(root));
    if (metadata == nullptr)
        return TRACE_RETURN("%d", false);
    if (level == nullptr || root == nullptr)
        return TRACE_RETURN("%d", metadata_fail(metadata, METADATA_NULL_ARGUMENT));
    if (metadata_listFind(&metadata->roots, root->id) != root)
        return TRACE_RETURN("%d", metadata_fail(metadata, METADATA_FOREIGN));
    addTo(&level->roots, root);
    return TRACE_RETURN("%d", true);
}

// ---- Checking ---------------------------------------------------------------------------------

// The code of a mistake within a function record, or METADATA_OK.
static uint32_t checkFunction(const Metadata *metadata, const MetadataFunction *function)
{
    TRACE_ENTER("function=(%u) %s", function->id, function->name);
    if (function->source_file != nullptr && function->source_line == 0)
        return TRACE_RETURN("%u", METADATA_BAD_LINE);
    if (function->uses_cstack && function->is_reentrant)
        return TRACE_RETURN("%u", METADATA_STACK_CONFLICT);
    if (function->duplicate != nullptr && function->duplicate->owner != metadata)
        return TRACE_RETURN("%u", METADATA_FOREIGN);
    for (MetadataCallee *callee : vec_each<MetadataCallee>(function->callees))
        if (callee == nullptr || metadata_listFind(&metadata->callees, callee->id) != callee)
            return TRACE_RETURN("%u", METADATA_NO_SUCH_CALLEE);
    return TRACE_RETURN("%u", METADATA_OK);
}

// Whether the chain of duplicates from `function` comes back to itself. Each walk marks the
// functions it passes and stops at one that an earlier walk has marked, so that all walks together
// take linear time.
static bool isCircular(MetadataFunction *function, uint32_t walk)
{
    while (function != nullptr && function->walk == 0) {
        function->walk = walk;
        function = function->duplicate;
    }
    return function != nullptr && function->walk == walk;
}

static uint32_t checkFunctions(const Metadata *metadata)
{
    TRACE_ENTER("metadata=%p", static_cast<const void *>(metadata));
    Vector *functions = metadata->functions.records;
    for (uint32_t i = 1; i < vec_size(functions); ++i) {
        auto *function = static_cast<MetadataFunction *>(functions->data[i]);
        function->walk = 0;
        const uint32_t code = checkFunction(metadata, function);
        if (code != METADATA_OK)
            return TRACE_RETURN("%u", code);
    }
    for (uint32_t i = 1; i < vec_size(functions); ++i)
        if (isCircular(static_cast<MetadataFunction *>(functions->data[i]), i))
            return TRACE_RETURN("%u", METADATA_CIRCULAR);
    return TRACE_RETURN("%u", METADATA_OK);
}

// Checks the function of a callee or a root. Gives `code` when it is missing.
static uint32_t checkTarget(const Metadata *metadata, const MetadataFunction *function,
                            uint32_t code)
{
    if (function == nullptr)
        return code;
    return function->owner == metadata ? METADATA_OK : METADATA_FOREIGN;
}

static uint32_t checkTargets(const Metadata *metadata)
{
    TRACE_ENTER("metadata=%p", static_cast<const void *>(metadata));
    uint32_t code = METADATA_OK;
    Vector *callees = metadata->callees.records;
    for (uint32_t i = 1; code == METADATA_OK && i < vec_size(callees); ++i)
        code = checkTarget(metadata, static_cast<MetadataCallee *>(callees->data[i])->function,
                           METADATA_CALLEE_WITHOUT_FUNCTION);
    Vector *roots = metadata->roots.records;
    for (uint32_t i = 1; code == METADATA_OK && i < vec_size(roots); ++i)
        code = checkTarget(metadata, static_cast<MetadataRoot *>(roots->data[i])->function,
                           METADATA_ROOT_WITHOUT_FUNCTION);
    return TRACE_RETURN("%u", code);
}

static uint32_t checkLevels(const Metadata *metadata)
{
    TRACE_ENTER("metadata=%p", static_cast<const void *>(metadata));
    for (uint32_t slot = 0; slot < METADATA_LEVEL_SLOTS; ++slot) {
        const MetadataLevel *level = metadata->levels[slot];
        if (level == nullptr)
            continue;
        if (static_cast<uint32_t>(std::countr_zero(level->mask)) != slot)
            return TRACE_RETURN("%u", METADATA_BAD_MASK);
        for (MetadataRoot *root : vec_each<MetadataRoot>(level->roots))
            if (root == nullptr || metadata_listFind(&metadata->roots, root->id) != root)
                return TRACE_RETURN("%u", METADATA_FOREIGN);
    }
    return TRACE_RETURN("%u", METADATA_OK);
}

bool metadata_verify(Metadata *metadata)
{
    TRACE_ENTER("metadata=%p", static_cast<void *>(metadata));
    if (metadata == nullptr)
        return TRACE_RETURN("%d", false);
    uint32_t code = checkFunctions(metadata);
    if (code == METADATA_OK)
        code = checkTargets(metadata);
    if (code == METADATA_OK)
        code = checkLevels(metadata);
    return TRACE_RETURN("%d", code == METADATA_OK || metadata_fail(metadata, code));
}
