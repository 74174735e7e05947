// The part of the operating-system layer that is the same for every system.
#define MODULE "common/osdep"
#include <cstdlib>
#include <cstring>

#include "common/base/memory.h"
#include "common/os/osdep_file.h"
#include "common/os/osdep_host.h"
#include "common/text/osdep_path.h"
#include "common/trace/qzdebug.h"

size_t osdep_maxCommandLine()
{
    TRACE_ENTER();
    const uint32_t flags = osdep_osFlags();
    size_t limit = 65535;
    if ((flags & OSFLAG_WINDOWS) != 0)
        limit = (flags & OSFLAG_LONG_COMMAND_LINE) != 0 ? 7191 : 2047;
    return TRACE_RETURN("%zu", limit);
}

// ---- Paths and the current directory ----------------------------------------------------------

static char *absolutePath(const char *path)
{
    if (path == nullptr)
        return nullptr;
    if (osdep_isAbsolute(path))
        return osdep_normalisePath(path);
    char *cwd = osdep_cwd();
    char *joined = osdep_pathJoin(cwd, path);
    char *result = osdep_normalisePath(joined);
    std::free(joined);
    std::free(cwd);
    return result;
}

char *osdep_absolutePath(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    return TRACE_RETURN("\"%s\"", absolutePath(path));
}

// The part of `path` below `dir`; null when `path` is not below it.
static const char *below(const char *path, const char *dir)
{
    size_t length = std::strlen(dir);
    if (length == 1) // the root: its slash is the one before the name
        length = 0;
    if (std::strncmp(path, dir, length) != 0)
        return nullptr;
    if (path[length] == '\0')
        return path + length;
    return path[length] == '/' ? path + length + 1 : nullptr;
}

static char *relativePath(const char *path)
{
    char *absolute = absolutePath(path);
    char *cwd = absolute == nullptr ? nullptr : osdep_cwd();
    const char *rest = cwd == nullptr ? nullptr : below(absolute, cwd);
    std::free(cwd);
    if (rest == nullptr)
        return absolute;
    char *result = *rest == '\0' ? xstrdup_must(".") : xstrdup_must(rest);
    std::free(absolute);
    return result;
}

char *osdep_relativePath(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    return TRACE_RETURN("\"%s\"", relativePath(path));
}
