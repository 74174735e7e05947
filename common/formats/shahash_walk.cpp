// The walk over a directory tree. The directories being walked are kept on an explicit stack, each
// with all its names read: so neither the C stack nor the number of descriptors limits the depth.
#define MODULE "common/shahash"
#include "common/formats/shahash.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/hash.h"
#include "common/base/memory.h"
#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/formats/shahash_internal.h"
#include "common/os/osdep_directory.h"
#include "common/text/osdep_path.h"
#include "common/trace/qzdebug.h"

namespace {
// The record of a directory, kept to the end of the walk.
struct WalkedDirectory {
    OsdepIdentity identity; // its key in the table of directories
    bool open;              // is being walked by its own name
    bool behindLink;        // is being or was walked by a path that contains a link
};

// A directory being walked.
struct WalkLevel {
    char *path;                 // by which its files are opened; owned
    char *listed;               // its listed name, or null; owned
    Vector *names;              // of its entries; owned
    uint32_t next;              // index of the next name
    bool behindLink;            // there is a link in the path
    WalkedDirectory *directory; // the table's
};

struct Walk {
    const OsdepOpenDirectory *from; // paths are looked up in it; null: in the current directory
    uint32_t style;                 // of listed names
    Vector *files;                  // receives the entries
    Vector *unread;                 // receives the directories that cannot be read; or null
    Vector *levels;                 // WalkLevel: the directory at work on top
    HashTable *directories;         // WalkedDirectory by identity
};
} // namespace

// ---- The directories met ----------------------------------------------------------------------

static uint32_t identityHash(const void *key)
{
    const auto *identity = static_cast<const OsdepIdentity *>(key);
    const uint64_t mixed = (identity->number ^ identity->device << 40) * 0x9E3779B97F4A7C15U;
    return static_cast<uint32_t>(mixed >> 32);
}

static int identityCompare(const void *a, const void *b)
{
    const auto *left = static_cast<const OsdepIdentity *>(a);
    const auto *right = static_cast<const OsdepIdentity *>(b);
    return left->device != right->device || left->number != right->number;
}

static WalkedDirectory *directoryOf(Walk *walk, const OsdepIdentity *identity)
{
    TRACE_ENTER("walk=%p", static_cast<void *>(walk));
    auto *directory = static_cast<WalkedDirectory *>(hash_get(walk->directories, identity));
    if (directory == nullptr) {
        directory = static_cast<WalkedDirectory *>(xmalloc_must(sizeof(WalkedDirectory)));
        directory->identity = *identity;
        hash_insert_func(walk->directories, &directory->identity, directory, MODULE, __LINE__);
    }
    return TRACE_RETURN("%p", directory);
}

static int freeDirectory(void *context, const void *key, void *value)
{
    (void)context;
    (void)key;
    std::free(value);
    return 0;
}

// ---- Levels -----------------------------------------------------------------------------------

// The names in a directory, or null with errno set.
static Vector *readNames(const Walk *walk, const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    Vector *names = osdep_readDirectoryAt(walk->from, path);
    if (names == nullptr && walk->unread != nullptr)
        vec_add(walk->unread, cache_sprintf("\"%s\": %s", path, std::strerror(errno)));
    return TRACE_RETURN("%p", names);
}

// Takes over the two names and begins to walk the directory, unless it cannot be read or a link
// leads to a directory already walked (docs/hash-list.md has the rule).
static void enterDirectory(Walk *walk, char *path, char *listed, const OsdepIdentity *identity,
                           bool behindLink)
{
    TRACE_ENTER("path=\"%s\", listed=\"%s\", behindLink=%d", path, listed, behindLink);
    WalkedDirectory *directory = directoryOf(walk, identity);
    const bool known = behindLink && (directory->open || directory->behindLink);
    Vector *names = known ? nullptr : readNames(walk, path);
    if (names == nullptr) {
        TRACE("\"%s\" is not walked", path);
        std::free(path);
        std::free(listed);
        return;
    }
    (behindLink ? directory->behindLink : directory->open) = true;
    auto *level = static_cast<WalkLevel *>(xmalloc_must(sizeof(WalkLevel)));
    *level = {path, listed, names, 0, behindLink, directory};
    vec_add(walk->levels, level);
}

static void leaveDirectory(Walk *walk)
{
    TRACE_ENTER("walk=%p", static_cast<void *>(walk));
    auto *level = static_cast<WalkLevel *>(vec_pop(walk->levels));
    if (!level->behindLink)
        level->directory->open = false;
    osdep_freeNames(level->names);
    std::free(level->path);
    std::free(level->listed);
    std::free(level);
}

static void visitEntry(Walk *walk, WalkLevel *level, const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    char *path = osdep_pathJoin(level->path, name);
    char *listed = shahash_join(walk->style, level->listed, name);
    OsdepFileInfo info;
    switch (osdep_fileInfoAt(walk->from, path, &info)) {
    case OSDEP_DIRECTORY:
        enterDirectory(walk, path, listed, &info.identity, level->behindLink || info.isLink != 0);
        return;
    case OSDEP_FILE:
        vec_add(walk->files, shahash_newEntry(listed, shahash_digestAt(walk->from, path)));
        break;
    case OSDEP_OTHER: // opening it might wait for ever
        TRACE("\"%s\" is no file", path);
        break;
    case OSDEP_NOTHING:
        shahash_cannotOpen(path);
    }
    std::free(path);
    std::free(listed);
}

void shahash_walk(const OsdepOpenDirectory *from, uint32_t style, Vector *files, Vector *unread,
                  const char *dir, const char *prefix)
{
    TRACE_ENTER("from=%p, style=0x%x, files=%p, dir=\"%s\", prefix=\"%s\"",
                static_cast<const void *>(from), style, static_cast<void *>(files), dir, prefix);
    ASSERT_TEXT_AT(10, files != nullptr, "files != NULL");
    ASSERT_TEXT_AT(11, dir != nullptr, "dir != NULL");
    static constexpr uint32_t buckets = 199;
    Walk walk = {from,
                 style,
                 files,
                 unread,
                 vec_new(MODULE, __LINE__),
                 hash_new_func(buckets, identityHash, identityCompare, MODULE, __LINE__)};
    OsdepFileInfo info;
    osdep_fileInfoAt(from, dir, &info);
    enterDirectory(&walk, xstrdup_must(dir), prefix == nullptr ? nullptr : xstrdup_must(prefix),
                   &info.identity, false); // which finds out whether it is a directory
    while (auto *level = static_cast<WalkLevel *>(vec_top(walk.levels))) {
        if (level->next < vec_size(level->names))
            visitEntry(&walk, level,
                       static_cast<const char *>(vec_elementAt(level->names, level->next++)));
        else
            leaveDirectory(&walk);
    }
    hash_foreach(walk.directories, nullptr, freeDirectory);
    hash_destroy(walk.directories);
    vec_destroy(walk.levels);
}

void process_dir(uint32_t style, Vector *files, const char *dir, const char *prefix)
{
    TRACE_ENTER("style=0x%x, files=%p, dir=\"%s\", prefix=\"%s\"", style,
                static_cast<void *>(files), dir, prefix);
    shahash_walk(nullptr, style, files, nullptr, dir, prefix);
}
