#define MODULE "common/osdep"
#include "common/text/osdep_path.h"

#include <cstdlib>
#include <cstring>

#include "common/base/memory.h"
#include "common/trace/qzdebug.h"

static char *join(const char *dir, char separator, const char *name)
{
    if (dir == nullptr || name == nullptr || *dir == '\0')
        return nullptr;
    size_t dir_length = std::strlen(dir);
    if (dir[dir_length - 1] == separator)
        --dir_length;
    if (*name == separator)
        ++name;
    const size_t name_length = std::strlen(name);
    auto *path = static_cast<char *>(xmalloc_must(uint64_t{dir_length} + name_length + 2));
    std::memcpy(path, dir, dir_length);
    path[dir_length] = separator;
    std::memcpy(path + dir_length + 1, name, name_length);
    return path;
}

char *osdep_pathJoin(const char *dir, const char *name)
{
    TRACE_ENTER("dir=\"%s\", name=\"%s\"", dir, name);
    return TRACE_RETURN("\"%s\"", join(dir, '/', name));
}

char *osdep_pathJoinFor(uint32_t flags, const char *dir, const char *name)
{
    TRACE_ENTER("flags=0x%x, dir=\"%s\", name=\"%s\"", flags, dir, name);
    return TRACE_RETURN("\"%s\"", join(dir, (flags & OSFLAG_WINDOWS) != 0 ? '\\' : '/', name));
}

// ---- Normalising ------------------------------------------------------------------------------
//
// Components are copied one by one to the result, which between two of them is empty or ends with a
// slash. Only a "." or ".." with a slash on either side is resolved: at the start or end of the
// path it is an ordinary component.

namespace {
struct NormalPath {
    char *text;
    size_t length;
};
} // namespace

static bool isText(const char *text, size_t length, const char *expected)
{
    return length == std::strlen(expected) && std::memcmp(text, expected, length) == 0;
}

static void append(NormalPath *path, const char *text, size_t length)
{
    std::memcpy(path->text + path->length, text, length);
    path->length += length;
}

// Removes the last component. Where there is none to remove, a relative path gets a "..", which
// stays, and an absolute path is already at its root.
static void climb(NormalPath *path)
{
    if (path->length == 0) {
        append(path, "../", 3);
        return;
    }
    if (path->length == 1 && path->text[0] == '/')
        return;
    size_t start = path->length - 1;
    while (start > 0 && path->text[start - 1] != '/')
        --start;
    const char *last = path->text + start;
    const size_t last_length = path->length - 1 - start;
    if (isText(last, last_length, "..")) {
        append(path, "../", 3);
        return;
    }
    const bool here = start == 0 && isText(last, last_length, ".");
    path->length = start;
    if (here)
        append(path, "../", 3);
}

static void addComponent(NormalPath *path, const char *component, size_t length, bool opens)
{
    const bool closed = component[length] == '/';
    if (!opens && closed && isText(component, length, "."))
        return;
    if (!opens && closed && isText(component, length, "..")) {
        climb(path);
        return;
    }
    append(path, component, length);
    if (closed)
        append(path, "/", 1);
}

static void dropLastSlash(NormalPath *path)
{
    const size_t length = path->length;
    if (length >= 3 && path->text[length - 1] == '/' && path->text[length - 2] != ':')
        --path->length;
}

static char *normalise(const char *source)
{
    const size_t source_length = std::strlen(source);
    // The result is at most as long as the source, except that an empty result becomes "." and one
    // "./" can become "../".
    NormalPath path = {static_cast<char *>(xmalloc_must(uint64_t{source_length} + 4)), 0};
    if (*source == '/')
        append(&path, "/", 1);
    bool opens = *source != '/';
    for (const char *at = source + std::strspn(source, "/"); *at != '\0';) {
        const size_t length = std::strcspn(at, "/");
        addComponent(&path, at, length, opens);
        opens = false;
        at += length;
        at += std::strspn(at, "/");
    }
    if (path.length == 0 && source_length != 0)
        append(&path, ".", 1); // "a/../": naming nothing would name another place
    dropLastSlash(&path);
    path.text[path.length] = '\0';
    return path.text;
}

char *osdep_normalisePath(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    return TRACE_RETURN("\"%s\"", path == nullptr ? nullptr : normalise(path));
}

int osdep_isAbsolute(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    return TRACE_RETURN("%d", path != nullptr && *path == '/');
}

// ---- Parts of a name --------------------------------------------------------------------------

static const char *baseName(const char *path)
{
    const char *slash = path == nullptr ? nullptr : std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

const char *osdep_baseName(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    return TRACE_RETURN("\"%s\"", baseName(path));
}

char *osdep_baseNameCopy(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    const char *base = baseName(path);
    char *copy = base == nullptr ? nullptr : xstrdup_must(base);
    return TRACE_RETURN("\"%s\"", copy);
}

// The base name up to its last dot, and `kept` more characters.
static char *stem(const char *path, size_t kept)
{
    const char *base = baseName(path);
    const char *dot = std::strrchr(base, '.');
    return xstrndup_must(base, dot == nullptr ? std::strlen(base)
                                              : static_cast<size_t>(dot - base) + kept);
}

char *osdep_stem(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    return TRACE_RETURN("\"%s\"", path == nullptr ? nullptr : stem(path, 0));
}

char *osdep_stemDot(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    return TRACE_RETURN("\"%s\"", path == nullptr ? nullptr : stem(path, 1));
}

const char *osdep_extension(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    const char *found = path == nullptr ? nullptr : std::strrchr(path, '.');
    if (found == nullptr && path != nullptr)
        found = "";
    return TRACE_RETURN("\"%s\"", found);
}

char *osdep_dirName(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    const char *slash = path == nullptr ? nullptr : std::strrchr(path, '/');
    char *dir = slash == nullptr ? nullptr : xstrndup_must(path, static_cast<size_t>(slash - path));
    return TRACE_RETURN("\"%s\"", dir);
}
