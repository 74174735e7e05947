#define MODULE "common/osdep"
#include "common/os/osdep_posix.h"

#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/base/exitpath.h"
#include "common/base/memory.h"
#include "common/os/osdep_file.h"
#include "common/os/osdep_host.h"
#include "common/os/osdep_replace.h"
#include "common/text/osdep_path.h"
#include "common/trace/qzdebug.h"

// ---- Looking ----------------------------------------------------------------------------------

FILE *osdep_openRegularFileAt(const OsdepOpenDirectory *directory, const char *path,
                              OsdepFileFacts *facts)
{
    TRACE_ENTER("directory=%p, path=\"%s\"", static_cast<const void *>(directory), path);
    // Opened first and examined then, so that the file cannot be replaced in between. Without
    // O_NONBLOCK, opening a named pipe would wait; for a file it changes nothing.
    const int opened = path == nullptr ? -1
                                       : openat(osdep_descriptorOf(directory), path,
                                                O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    struct stat info;
    FILE *stream = nullptr;
    if (opened >= 0 && fstat(opened, &info) == 0 && S_ISREG(info.st_mode))
        stream = fdopen(opened, "rb");
    if (stream == nullptr) {
        if (opened >= 0)
            close(opened);
    } else if (facts != nullptr) {
        facts->size = static_cast<uint64_t>(info.st_size);
        facts->modified = info.st_mtime;
    }
    return TRACE_RETURN("%p", stream);
}

FILE *osdep_openRegularFile(const char *path, OsdepFileFacts *facts)
{
    TRACE_ENTER("path=\"%s\"", path);
    return TRACE_RETURN("%p", osdep_openRegularFileAt(nullptr, path, facts));
}

// The target of a link as seen from where the link is; null when `path` is no link.
static char *linkTarget(const char *path)
{
    char *target = osdep_readLink(path);
    const char *base = osdep_baseName(path);
    if (target == nullptr || *target == '/' || base == path)
        return target;
    char *directory = xstrndup_must(path, static_cast<size_t>(base - path));
    char *seen = xstrcat_free(directory, target);
    std::free(target);
    return seen;
}

char *osdep_followLinks(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    const int limit = 40; // as many links as the system follows
    char *reached = path == nullptr ? nullptr : xstrdup_must(path);
    for (int followed = 0; reached != nullptr; ++followed) {
        char *target = linkTarget(reached);
        if (target == nullptr)
            break;
        std::free(reached);
        reached = target;
        if (followed == limit) {
            std::free(reached);
            reached = nullptr;
        }
    }
    return TRACE_RETURN("\"%s\"", reached);
}

// ---- Replacing --------------------------------------------------------------------------------

// Absolute, so that the removal at the end of the run finds the file from any current directory.
static char *templateBeside(const char *path)
{
    static constexpr char ENDING[] = ".XXXXXX";
    const int longest = 200; // characters of the old name: no system has names longer than 255
    char *start = osdep_isAbsolute(path) ? xstrdup_must("") : osdep_cwd();
    if (start == nullptr)
        return nullptr;
    if (*start != '\0')
        start = xstrcat_free(start, "/");
    const char *base = osdep_baseName(path);
    char *directory = xstrndup_must(path, static_cast<size_t>(base - path));
    char *name = xstrcat_free(start, directory);
    std::free(directory);
    name = xstrcat_free(name, ".");
    char *part = xstrndup_must(base, strnlen(base, longest));
    name = xstrcat_free(name, part);
    std::free(part);
    return xstrcat_free(name, ENDING);
}

// The owner is kept where that is allowed.
static bool takePermissions(int created, const char *path)
{
    struct stat info;
    if (stat(path, &info) == 0) {
        if (fchown(created, info.st_uid, info.st_gid) != 0)
            TRACE("the owner of \"%s\" cannot be kept", path);
        return fchmod(created, info.st_mode & 0777) == 0;
    }
    const mode_t masked = umask(0);
    umask(masked);
    return fchmod(created, 0666 & ~masked) == 0;
}

int osdep_openReplacement(OsdepReplacement *replacement, const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    ASSERT_AT(41, replacement != NULL);
    *replacement = {};
    char *name = path == nullptr ? nullptr : templateBeside(path);
    const int created = name == nullptr ? -1 : osdep_createReplacement(name);
    FILE *stream = nullptr;
    if (created >= 0 && takePermissions(created, path))
        stream = fdopen(created, "w+b");
    if (stream == nullptr) {
        if (created >= 0) {
            osdep_removeReplacement(name);
            close(created);
        }
        std::free(name);
        return TRACE_RETURN("%d", -1);
    }
    *replacement = {stream, name, xstrdup_must(path)};
    return TRACE_RETURN("%d", 0);
}

static void forgetReplacement(OsdepReplacement *replacement)
{
    std::free(replacement->name);
    std::free(replacement->path);
    *replacement = {};
}

int osdep_commitReplacement(OsdepReplacement *replacement)
{
    ASSERT_AT(42, replacement != NULL);
    TRACE_ENTER("name=\"%s\", path=\"%s\"", replacement->name, replacement->path);
    bool complete = std::ferror(replacement->stream) == 0;
    complete = std::fflush(replacement->stream) == 0 && complete;
    // If the rename reached the disk before the content, a system crash could leave an empty file.
    complete = fsync(fileno(replacement->stream)) == 0 && complete;
    complete = std::fclose(replacement->stream) == 0 && complete;
    if (!complete || osdep_renameReplacement(replacement->name, replacement->path) != 0) {
        osdep_removeReplacement(replacement->name);
        complete = false;
    }
    forgetReplacement(replacement);
    return TRACE_RETURN("%d", complete ? 0 : -1);
}

void osdep_dropReplacement(OsdepReplacement *replacement)
{
    ASSERT_AT(43, replacement != NULL);
    TRACE_ENTER("name=\"%s\"", replacement->name);
    osdep_removeReplacement(replacement->name);
    std::fclose(replacement->stream);
    forgetReplacement(replacement);
}
