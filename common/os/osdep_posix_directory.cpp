#define MODULE "common/osdep"
#include "common/os/osdep_posix.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/base/exitpath.h"
#include "common/base/memory.h"
#include "common/base/vector.h"
#include "common/os/osdep_directory.h"
#include "common/trace/qzdebug.h"

// ---- Reading ----------------------------------------------------------------------------------

bool osdep_isSelfOrParent(const char *name)
{
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

// The next entry, or null at the end and, with errno set, when it cannot be read.
static const dirent *nextEntry(DIR *directory)
{
    errno = 0;
    return readdir(directory);
}

static DIR *openStream(const OsdepOpenDirectory *directory, const char *path)
{
    const int opened = openat(osdep_descriptorOf(directory), path,
                              O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC);
    DIR *stream = opened < 0 ? nullptr : fdopendir(opened);
    if (stream == nullptr && opened >= 0)
        close(opened);
    return stream;
}

Vector *osdep_readDirectoryAt(const OsdepOpenDirectory *directory, const char *path)
{
    TRACE_ENTER("directory=%p, path=\"%s\"", static_cast<const void *>(directory), path);
    DIR *stream = path == nullptr ? nullptr : openStream(directory, path);
    if (stream == nullptr)
        return TRACE_RETURN("%p", static_cast<Vector *>(nullptr));
    Vector *names = vec_new(MODULE, __LINE__);
    while (const dirent *entry = nextEntry(stream))
        if (!osdep_isSelfOrParent(entry->d_name))
            vec_add(names, xstrdup_must(entry->d_name));
    const int error = errno;
    closedir(stream);
    if (error != 0) { // an incomplete list would look like a complete one
        osdep_freeNames(names);
        names = nullptr;
    }
    errno = error;
    return TRACE_RETURN("%p", names);
}

Vector *osdep_readDirectory(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    return TRACE_RETURN("%p", osdep_readDirectoryAt(nullptr, path));
}

void osdep_freeNames(Vector *names)
{
    TRACE_ENTER("names=%p", static_cast<void *>(names));
    for (char *name : vec_each<char>(names))
        std::free(name);
    vec_destroy(names);
}

// ---- Open directories -------------------------------------------------------------------------

// A system that cannot look up names in an open directory would store the absolute path next to the
// handle, and join paths: there, an open handle keeps the directory from being moved.
struct OsdepOpenDirectory {
    int descriptor;
};

// Opened without the right to read: a directory may be searchable and not readable.
#if defined(O_SEARCH)
static constexpr int FOR_SEARCH = O_SEARCH;
#elif defined(O_PATH)
static constexpr int FOR_SEARCH = O_PATH;
#else
static constexpr int FOR_SEARCH = O_RDONLY;
#endif

// O_PATH needs no right at all, so a directory that may not be searched would fail only later, at
// each name.
static bool mayBeSearched(int descriptor)
{
    struct stat info;
    return fstatat(descriptor, ".", &info, 0) == 0;
}

OsdepOpenDirectory *osdep_openDirectory(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    const int opened = path == nullptr ? -1 : open(path, FOR_SEARCH | O_DIRECTORY | O_CLOEXEC);
    OsdepOpenDirectory *directory = nullptr;
    if (opened >= 0 && mayBeSearched(opened)) {
        directory = static_cast<OsdepOpenDirectory *>(xmalloc_must(sizeof(OsdepOpenDirectory)));
        directory->descriptor = opened;
    } else if (opened >= 0) {
        const int error = errno;
        close(opened);
        errno = error;
    }
    return TRACE_RETURN("%p", directory);
}

void osdep_closeDirectory(OsdepOpenDirectory *directory)
{
    TRACE_ENTER("directory=%p", static_cast<void *>(directory));
    if (directory != nullptr)
        close(directory->descriptor);
    std::free(directory);
}

int osdep_descriptorOf(const OsdepOpenDirectory *directory)
{
    return directory == nullptr ? AT_FDCWD : directory->descriptor;
}

// ---- The current directory --------------------------------------------------------------------

int osdep_changeDirectory(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    return TRACE_RETURN("%d", path == nullptr ? -1 : chdir(path));
}

int osdep_enterDirectory(const OsdepOpenDirectory *directory)
{
    TRACE_ENTER("directory=%p", static_cast<const void *>(directory));
    return TRACE_RETURN("%d", directory == nullptr ? -1 : fchdir(directory->descriptor));
}

// ---- Identity ---------------------------------------------------------------------------------

static OsdepKind kindOf(mode_t mode)
{
    if (S_ISREG(mode))
        return OSDEP_FILE;
    return S_ISDIR(mode) ? OSDEP_DIRECTORY : OSDEP_OTHER;
}

OsdepKind osdep_fileInfoAt(const OsdepOpenDirectory *directory, const char *path,
                           OsdepFileInfo *info)
{
    TRACE_ENTER("directory=%p, path=\"%s\"", static_cast<const void *>(directory), path);
    ASSERT_AT(40, info != NULL);
    *info = {};
    const int from = osdep_descriptorOf(directory);
    struct stat found;
    bool there = path != nullptr && fstatat(from, path, &found, AT_SYMLINK_NOFOLLOW) == 0;
    if (there && S_ISLNK(found.st_mode)) {
        info->isLink = 1;
        there = fstatat(from, path, &found, 0) == 0;
    }
    if (there) {
        info->kind = kindOf(found.st_mode);
        info->identity = {found.st_dev, found.st_ino};
    }
    return TRACE_RETURN("%u", info->kind);
}

OsdepKind osdep_fileInfo(const char *path, OsdepFileInfo *info)
{
    TRACE_ENTER("path=\"%s\"", path);
    return TRACE_RETURN("%u", osdep_fileInfoAt(nullptr, path, info));
}

// ---- Locking ----------------------------------------------------------------------------------

int osdep_lockDirectory(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    const int opened = path == nullptr ? -1 : open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    int locked = -1;
    if (opened >= 0) {
        do {
            locked = flock(opened, LOCK_EX);
        } while (locked != 0 && errno == EINTR);
        if (locked != 0)
            close(opened);
    }
    return TRACE_RETURN("%d", locked == 0 ? opened : -1);
}

void osdep_unlockDirectory(int lock)
{
    TRACE_ENTER("lock=%d", lock);
    if (lock >= 0)
        close(lock);
}
