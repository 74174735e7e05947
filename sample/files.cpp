#include "sample/files.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <sys/stat.h>
#include <unistd.h>

namespace {
enum { MAX_FILE = 64 << 20 };
} // namespace

static char *tempDirectory;
static Strings tempFiles;

static int readStream(FILE *file, Buffer *content)
{
    char block[1 << 15];
    for (size_t got; (got = fread(block, 1, sizeof block, file)) > 0;) {
        buffer_add(content, block, got);
        if (content->count > MAX_FILE) {
            errno = EFBIG;
            return 0;
        }
    }
    return !ferror(file);
}

int file_read(const char *path, Buffer *content)
{
    // A fifo or a device could block or never end.
    struct stat status;
    if (stat(path, &status) != 0)
        return 0;
    if (!S_ISREG(status.st_mode)) {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        return 0;
    }
    FILE *file = fopen(path, "rb");
    if (file == nullptr)
        return 0;
    int done = readStream(file, content);
    fclose(file);
    return done;
}

// Removes a partly written file; a device or a link stays.
static void removePart(const char *path)
{
    int saved = errno;
    struct stat status;
    if (lstat(path, &status) == 0 && S_ISREG(status.st_mode))
        unlink(path);
    errno = saved;
}

int file_write(const char *path, const Buffer *content)
{
    int isOutput = strcmp(path, "-") == 0;
    FILE *file = isOutput ? stdout : fopen(path, "wb");
    if (file == nullptr)
        return 0;
    int written = content->count == 0 || fwrite(content->items, 1, content->count, file) != 0;
    if (isOutput)
        return fflush(file) == 0 && !ferror(file);
    written = written && !ferror(file);
    int saved = errno;
    if (fclose(file) == 0 && written)
        return 1;
    errno = written ? errno : saved;
    removePart(path);
    return 0;
}

int file_exists(const char *path)
{
    struct stat status;
    return stat(path, &status) == 0;
}

int file_isDirectory(const char *path)
{
    struct stat status;
    return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

const char *path_join(const char *directory, const char *name)
{
    if (*directory == 0 || *name == '/')
        return name;
    const char *slash = directory[strlen(directory) - 1] == '/' ? "" : "/";
    return arena_format("%s%s%s", directory, slash, name);
}

const char *path_base(const char *path)
{
    const char *slash = strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

const char *path_extension(const char *path)
{
    const char *base = path_base(path);
    const char *dot = strrchr(base, '.');
    return dot == nullptr ? "" : dot + 1;
}

const char *path_withExtension(const char *path, const char *extension)
{
    const char *dot = strrchr(path_base(path), '.');
    size_t length = dot == nullptr ? strlen(path) : static_cast<size_t>(dot - path);
    return arena_format("%.*s.%s", static_cast<int>(length), path, extension);
}

const char *path_besideProgram(const char *name)
{
    char path[4096];
    ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0)
        return nullptr;
    path[length] = 0;
    for (int level = 0; level < 2; level++) {
        char *slash = strrchr(path, '/');
        if (slash == nullptr)
            return nullptr;
        *slash = 0;
    }
    return arena_format("%s/%s", path, name);
}

static void removeTemporary()
{
    for (const char *name : tempFiles)
        unlink(name);
    rmdir(tempDirectory);
}

const char *temp_name(const char *extension)
{
    if (tempDirectory == nullptr) {
        const char *parent = getenv("TMPDIR");
        char *created =
            arena_format("%s/qzmXXXXXX", parent != nullptr && *parent != 0 ? parent : "/tmp");
        if (mkdtemp(created) == nullptr)
            return nullptr;
        tempDirectory = created;
        atexit(removeTemporary);
    }
    const char *name = arena_format("%s/%zu.%s", tempDirectory, tempFiles.count, extension);
    list_add(&tempFiles, name);
    return name;
}
