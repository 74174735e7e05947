#define MODULE "common/registry"

#include "common/install/registry.h"

#include "common/base/exitpath.h"
#include "common/base/stringcache.h"
#include "common/install/qzinstdir.h"
#include "common/os/osdep_file.h"
#include "common/text/osdep_path.h"
#include "common/trace/qzdebug.h"

namespace {
struct RegistryRow {
    const char *subdirectory; // below the kind's root; null: the root itself
    const char *overrideName; // what the trace calls the kind's own root; null: it has none
    int rootKind;             // the kind under whose own root this one lies
    bool holdsLibraries;      // it has a subdirectory per standard C library
};
} // namespace

static const RegistryRow rows[] = {
    {nullptr, nullptr, REG_BASE, false},     {"bin", "bin", REG_BIN, false},
    {"lib", "lib", REG_LIB, true},           {"help", nullptr, REG_HELP, false},
    {"include", "inc", REG_INCLUDE, false},  {"dat", "dat", REG_DAT, false},
    {"sources", "src", REG_SOURCES, true},   {"resources", nullptr, REG_RESOURCES, false},
    {"docs", nullptr, REG_DOCS, false},      {"qzm", nullptr, REG_QZM, false},
    {"include", nullptr, REG_INCLUDE, true},
};

static constexpr int KINDS = sizeof rows / sizeof rows[0];
static_assert(KINDS == REG_C_INCLUDE + 1, "one row a kind");

// The kinds' own roots, interned; null: the base directory.
static const char *s_overrides[KINDS];

static const char *s_standardLibrary = nullptr;

// The directory above all kinds without a root of their own, or null.
static const char *baseDirectory()
{
    TRACE_ENTER();
    const char *base = qzinstdir(QZINSTDIR_VERSION);
    if (base == nullptr)
        TRACE("Could not locate installation directory");
    else if (qzinstdir_hasOrb())
        base = qzinstdir(QZINSTDIR_ORB);
    return TRACE_RETURN("\"%s\"", base);
}

static const char *join(const char *directory, const char *name)
{
    TRACE_ENTER("directory=\"%s\", name=\"%s\"", directory, name);
    TRACE("Returning concatenation of path: \"%s\" and \"%s\"", directory, name);
    return TRACE_RETURN("\"%s\"", cache_adopt(osdep_pathJoin(directory, name)));
}

const char *reg_instdir(int kind)
{
    TRACE_ENTER("kind=%d", kind);
    ASSERT_AT(10, kind >= REG_BASE && kind <= REG_C_INCLUDE);
    const RegistryRow *row = &rows[kind];
    const char *path = s_overrides[row->rootKind];
    if (path == nullptr)
        path = baseDirectory();
    if (path != nullptr && row->subdirectory != nullptr)
        path = join(path, row->subdirectory);
    if (path != nullptr && row->holdsLibraries && s_standardLibrary != nullptr)
        path = join(path, s_standardLibrary);
    return TRACE_RETURN("\"%s\"", path);
}

const char *reg_mkpath(int kind, const char *name)
{
    TRACE_ENTER("kind=%d, name=\"%s\"", kind, name);
    TRACE("type: %d, name: \"%s\"", kind, name);
    if (osdep_isAbsolute(name)) {
        TRACE("Returning absolute path: \"%s\"", name);
        return TRACE_RETURN("\"%s\"", cache_string(name));
    }
    const char *directory = reg_instdir(kind);
    const char *path = nullptr;
    if (directory != nullptr && name != nullptr) {
        path = cache_adopt(osdep_pathJoin(directory, name));
        TRACE("Returning path: \"%s\"", path);
    }
    return TRACE_RETURN("\"%s\"", path);
}

int reg_set_path(int kind, const char *path)
{
    TRACE_ENTER("kind=%d, path=\"%s\"", kind, path);
    if (kind < 0 || kind >= KINDS || rows[kind].overrideName == nullptr)
        return TRACE_RETURN("%d", 0);
    if (path != nullptr && !osdep_fileExists(path)) {
        TRACE("Path does not exist: \"%s\"", path);
        return TRACE_RETURN("%d", 0);
    }
    if (path != nullptr && !osdep_isDirectory(path)) {
        TRACE("Path is not a directory: \"%s\"", path);
        return TRACE_RETURN("%d", 0);
    }
    s_overrides[kind] = cache_string(path);
    TRACE("%s path now set to: \"%s\"", rows[kind].overrideName, s_overrides[kind]);
    return TRACE_RETURN("%d", 1);
}

void reg_set_c_stdlib(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    s_standardLibrary = cache_string(name);
    TRACE("standard C library is now set to: \"%s\"", s_standardLibrary);
}

const char *reg_get_c_stdlib()
{
    TRACE_ENTER();
    TRACE("standard C library is presently: \"%s\"", s_standardLibrary);
    return TRACE_RETURN("\"%s\"", s_standardLibrary);
}
