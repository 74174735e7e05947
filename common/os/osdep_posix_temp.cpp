#define MODULE "common/osdep"
#include "common/os/osdep_posix.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/base/memory.h"
#include "common/base/vector.h"
#include "common/os/osdep_temp.h"
#include "common/trace/qzdebug.h"

static constexpr char NAME_TEMPLATE[] = "/tmp/qzXXXXXXX";
static constexpr size_t TEMPLATE_LENGTH = sizeof NAME_TEMPLATE - 1;
static constexpr size_t LONGEST_SUFFIX = 4096; // no system has longer names

namespace {
// The names of the temporary objects. The signal handler reads it: it changes only while signals
// are blocked.
struct Registry {
    Vector *files;       // of char *, owned
    Vector *directories; // of char *, owned
    pid_t owner;         // the process that created the objects; 0 while there are no lists
};
} // namespace

static Registry s_registry;
static volatile sig_atomic_t s_keep;
static bool s_removalAtExit;

// ---- Removing a tree --------------------------------------------------------------------------
//
// A tree may be deeper than there are descriptors or characters in a path. So nothing recurses: the
// directories found inside a directory of the root are moved up into the root and removed from
// there later. readdir() is not used: it needs the heap, which the signal that led here may have
// interrupted.

namespace {
struct TreeRemoval {
    int root;              // descriptor of the tree's root
    unsigned long renamed; // number in the name of the directory moved up last
};

using EntryVisitor = bool (*)(TreeRemoval *removal, int directory, const char *name);
} // namespace

// Removes anything but a directory that is not empty.
static bool removeSimple(int directory, const char *name)
{
    if (unlinkat(directory, name, 0) == 0)
        return true;
    if (errno != EISDIR && errno != EPERM)
        return false;
    return unlinkat(directory, name, AT_REMOVEDIR) == 0;
}

static void numberName(char *name, unsigned long number)
{
    *name++ = 'q';
    *name++ = 'z';
    for (; number != 0; number /= 10)
        *name++ = static_cast<char>('0' + number % 10);
    *name = '\0';
}

static bool moveUp(TreeRemoval *removal, int directory, const char *name)
{
    char moved[32];
    do {
        numberName(moved, ++removal->renamed);
        if (renameat(directory, name, removal->root, moved) == 0)
            return true;
    } while (errno == ENOTEMPTY || errno == EEXIST || errno == ENOTDIR); // that name is in use
    return false;
}

// Visits the entries of a directory in one pass. Returns their number, or -1 when a visit failed.
static long visitEntries(TreeRemoval *removal, int directory, EntryVisitor visit)
{
    alignas(dirent64) char buffer[4096];
    long visited = 0;
    for (;;) {
        const ssize_t filled = getdents64(directory, buffer, sizeof buffer);
        if (filled <= 0)
            return filled < 0 ? -1 : visited;
        for (ssize_t at = 0; at < filled;) {
            const auto *entry = reinterpret_cast<const dirent64 *>(buffer + at);
            at += entry->d_reclen;
            if (osdep_isSelfOrParent(entry->d_name))
                continue;
            if (!visit(removal, directory, entry->d_name))
                return -1;
            ++visited;
        }
    }
}

// Each visit removes its entry, and a pass may miss some meanwhile, so it is repeated until it
// finds nothing.
static bool emptyDirectory(TreeRemoval *removal, int directory, EntryVisitor visit)
{
    long visited = 0;
    do {
        visited = visitEntries(removal, directory, visit);
    } while (visited > 0 && lseek(directory, 0, SEEK_SET) == 0);
    return visited == 0;
}

static bool clearNestedEntry(TreeRemoval *removal, int directory, const char *name)
{
    if (removeSimple(directory, name))
        return true;
    return (errno == ENOTEMPTY || errno == EEXIST) && moveUp(removal, directory, name);
}

static bool clearRootEntry(TreeRemoval *removal, int root, const char *name)
{
    if (removeSimple(root, name))
        return true;
    if (errno != ENOTEMPTY && errno != EEXIST)
        return false;
    const int nested = openat(root, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (nested < 0)
        return false;
    const bool emptied = emptyDirectory(removal, nested, clearNestedEntry);
    close(nested);
    return emptied && unlinkat(root, name, AT_REMOVEDIR) == 0;
}

static int removeTree(const char *path)
{
    if (rmdir(path) == 0) // an empty one needs no descriptor, and none may be left
        return 0;
    const int root = open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (root < 0)
        return -1;
    TreeRemoval removal = {root, 0};
    const bool emptied = emptyDirectory(&removal, root, clearRootEntry);
    close(root);
    return emptied ? rmdir(path) : -1;
}

int osdep_removeTree(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    return TRACE_RETURN("%d", path == nullptr ? -1 : removeTree(path));
}

// ---- The registry -----------------------------------------------------------------------------

static void dropList(Vector **list)
{
    for (uint32_t i = 0; i < vec_size(*list); ++i)
        std::free(vec_elementAt(*list, i));
    vec_destroy(*list);
    *list = nullptr;
}

static void dropRegistry()
{
    dropList(&s_registry.files);
    dropList(&s_registry.directories);
    s_registry.owner = 0;
}

static bool startRegistry()
{
    if (s_registry.owner != getpid()) {
        dropRegistry(); // a forked child inherits names that are not its own
        s_registry.files = vec_new(MODULE, __LINE__);
        s_registry.directories = vec_new(MODULE, __LINE__);
        s_registry.owner = getpid();
    }
    if (!s_removalAtExit)
        s_removalAtExit = std::atexit(osdep_removeTempFiles) == 0;
    return s_removalAtExit;
}

// Leaves the lists unchanged: a signal may have interrupted anything that uses them.
static void removeObjects()
{
    for (uint32_t i = 0; i < vec_size(s_registry.files); ++i)
        std::remove(static_cast<const char *>(vec_elementAt(s_registry.files, i)));
    for (uint32_t i = 0; i < vec_size(s_registry.directories); ++i)
        removeTree(static_cast<const char *>(vec_elementAt(s_registry.directories, i)));
}

void osdep_keepTempFiles(int keep)
{
    TRACE_ENTER("keep=%d", keep);
    s_keep = keep != 0;
}

void osdep_removeTempFiles()
{
    TRACE_ENTER();
    if (s_registry.owner == getpid()) {
        if (!s_keep)
            removeObjects();
        sigset_t saved;
        osdep_holdSignals(&saved);
        dropRegistry();
        osdep_releaseSignals(&saved);
    }
}

// The index of `path` in the list, or -1. Searched from the end: objects discarded early are mostly
// the newest.
static int64_t indexOf(Vector *list, const char *path)
{
    for (uint32_t i = vec_size(list); i-- > 0;)
        if (std::strcmp(static_cast<const char *>(vec_elementAt(list, i)), path) == 0)
            return i;
    return -1;
}

static void forget(Vector *list, const char *path)
{
    const int64_t index = indexOf(list, path);
    if (index < 0)
        return;
    auto *name = static_cast<char *>(vec_elementAt(list, static_cast<uint32_t>(index)));
    vec_removeAt(list, static_cast<uint32_t>(index));
    std::free(name);
}

// Removes `path` if it is on the list. An object that cannot be removed now stays on it until the
// end of the run: a descriptor may be free by then.
static void discard(Vector *list, const char *path, int (*removeObject)(const char *))
{
    if (indexOf(list, path) >= 0 && (removeObject(path) == 0 || errno == ENOENT))
        forget(list, path);
}

void osdep_discardTemp(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    if (path != nullptr && !s_keep && s_registry.owner == getpid()) {
        sigset_t saved;
        osdep_holdSignals(&saved);
        discard(s_registry.files, path, std::remove);
        discard(s_registry.directories, path, removeTree);
        osdep_releaseSignals(&saved);
    }
}

void osdep_removeTempFilesOnSignal()
{
    if (s_registry.owner == getpid() && !s_keep)
        removeObjects();
    s_registry.owner = 0; // so the exit handler, which would free the lists, does nothing
}

// ---- Creating ---------------------------------------------------------------------------------

static char *templateName(const char *suffix, size_t suffix_length)
{
    auto *name = static_cast<char *>(xmalloc_must(TEMPLATE_LENGTH + suffix_length + 1));
    std::memcpy(name, NAME_TEMPLATE, TEMPLATE_LENGTH);
    std::memcpy(name + TEMPLATE_LENGTH, suffix, suffix_length);
    return name;
}

static char *createFile(const char *suffix, size_t suffix_length, int *descriptor)
{
    char *name = templateName(suffix, suffix_length);
    *descriptor = mkostemps(name, static_cast<int>(suffix_length), O_CLOEXEC);
    if (*descriptor < 0) {
        std::free(name);
        return nullptr;
    }
    vec_add(s_registry.files, name);
    return xstrdup_must(name);
}

char *osdep_createTempFile(const char *suffix, int *descriptor)
{
    TRACE_ENTER("suffix=\"%s\"", suffix);
    if (suffix == nullptr)
        suffix = "";
    const size_t suffix_length = std::strlen(suffix);
    int created = -1;
    char *name = nullptr;
    if (suffix_length <= LONGEST_SUFFIX) {
        // A signal between creation and registration would leave the file on the disk.
        sigset_t saved;
        osdep_holdSignals(&saved);
        if (startRegistry())
            name = createFile(suffix, suffix_length, &created);
        osdep_releaseSignals(&saved);
    }
    if (descriptor != nullptr)
        *descriptor = created;
    else if (created >= 0)
        close(created);
    return TRACE_RETURN("\"%s\"", name);
}

char *osdep_tempFileSuffix(const char *suffix)
{
    TRACE_ENTER("suffix=\"%s\"", suffix);
    return TRACE_RETURN("\"%s\"", osdep_createTempFile(suffix, nullptr));
}

char *osdep_tempFile()
{
    TRACE_ENTER();
    return TRACE_RETURN("\"%s\"", osdep_createTempFile("", nullptr));
}

static char *createDirectory()
{
    char *name = templateName("", 0);
    if (mkdtemp(name) == nullptr) {
        std::free(name);
        return nullptr;
    }
    vec_add(s_registry.directories, name);
    return xstrdup_must(name);
}

char *osdep_tempDir()
{
    TRACE_ENTER();
    sigset_t saved;
    osdep_holdSignals(&saved);
    char *name = startRegistry() ? createDirectory() : nullptr;
    osdep_releaseSignals(&saved);
    return TRACE_RETURN("\"%s\"", name);
}

// ---- Files that take the place of others ------------------------------------------------------

int osdep_createReplacement(char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    sigset_t saved;
    osdep_holdSignals(&saved);
    const int created = startRegistry() ? mkostemp(name, O_CLOEXEC) : -1;
    if (created >= 0)
        vec_add(s_registry.files, xstrdup_must(name));
    osdep_releaseSignals(&saved);
    return TRACE_RETURN("%d", created);
}

int osdep_renameReplacement(const char *name, const char *path)
{
    TRACE_ENTER("name=\"%s\", path=\"%s\"", name, path);
    sigset_t saved;
    osdep_holdSignals(&saved);
    const int result = std::rename(name, path);
    if (result == 0)
        forget(s_registry.files, name);
    osdep_releaseSignals(&saved);
    return TRACE_RETURN("%d", result);
}

void osdep_removeReplacement(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    sigset_t saved;
    osdep_holdSignals(&saved);
    discard(s_registry.files, name, std::remove);
    osdep_releaseSignals(&saved);
}
