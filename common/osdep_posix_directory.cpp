#define MODULE "common/osdep"
#include "common/osdep.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/memory.h"
#include "common/osdep_posix.h"
#include "common/qzdebug.h"
#include "common/vector.h"

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

Vector *osdep_readDirectory(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    Vector *names = nullptr;
    DIR *directory = path == nullptr ? nullptr : opendir(path);
    if (directory != nullptr) {
        names = vec_new(MODULE, __LINE__);
        while (const dirent *entry = nextEntry(directory))
            if (!osdep_isSelfOrParent(entry->d_name))
                vec_add(names, xstrdup_must(entry->d_name));
        if (errno != 0) { // some of the names would look like all of them
            osdep_freeNames(names);
            names = nullptr;
        }
        closedir(directory);
    }
    return TRACE_RETURN("%p", names);
}

void osdep_freeNames(Vector *names)
{
    TRACE_ENTER("names=%p", static_cast<void *>(names));
    for (char *name : vec_each<char>(names))
        std::free(name);
    vec_destroy(names);
    TRACE_LEAVE();
}

int osdep_changeDirectory(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    return TRACE_RETURN("%d", path == nullptr ? -1 : chdir(path));
}

// ---- Identity ---------------------------------------------------------------------------------

static OsdepKind kindOf(mode_t mode)
{
    if (S_ISREG(mode))
        return OSDEP_FILE;
    return S_ISDIR(mode) ? OSDEP_DIRECTORY : OSDEP_OTHER;
}

OsdepKind osdep_fileInfo(const char *path, OsdepFileInfo *info)
{
    TRACE_ENTER("path=\"%s\"", path);
    *info = {};
    struct stat found;
    bool there = path != nullptr && lstat(path, &found) == 0;
    if (there && S_ISLNK(found.st_mode)) {
        info->isLink = 1;
        there = stat(path, &found) == 0;
    }
    if (there) {
        info->kind = kindOf(found.st_mode);
        info->identity = {found.st_dev, found.st_ino};
    }
    return TRACE_RETURN("%u", info->kind);
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
    TRACE_LEAVE();
}
