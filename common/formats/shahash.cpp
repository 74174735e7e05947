#define MODULE "common/shahash"
#include "common/formats/shahash.h"

#include <cstdlib>
#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/memory.h"
#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/formats/sha.h"
#include "common/formats/shahash_internal.h"
#include "common/os/osdep_directory.h"
#include "common/os/osdep_file.h"
#include "common/text/osdep_path.h"
#include "common/trace/qzdebug.h"

void shahash_cannotOpen(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    std::fprintf(stderr, "!! Cannot open file \"%s\"\n", path);
    exitpath_leave(1);
}

// ---- Digests of files -------------------------------------------------------------------------

static constexpr size_t READ_SIZE = 16384;

static bool digestFile(FILE *file, const ShaAlgorithm *algorithm, uint8_t *digest)
{
    TRACE_ENTER("file=%p", static_cast<void *>(file));
    if (file == nullptr || digest == nullptr)
        return TRACE_RETURN("%d", false);
    uint8_t block[READ_SIZE];
    ShaState state;
    sha_start(&state, algorithm);
    size_t size = 0;
    do {
        size = std::fread(block, 1, sizeof block, file);
        sha_update(&state, block, size);
    } while (size == sizeof block);
    sha_finish(&state, digest);
    return TRACE_RETURN("%d", std::ferror(file) == 0);
}

bool sha256_file(FILE *file, uint8_t digest[SHA256_SIZE])
{
    TRACE_ENTER("file=%p", static_cast<void *>(file));
    return TRACE_RETURN("%d", digestFile(file, &SHA_256, digest));
}

bool sha1_file(FILE *file, uint8_t digest[SHA1_SIZE])
{
    TRACE_ENTER("file=%p", static_cast<void *>(file));
    return TRACE_RETURN("%d", digestFile(file, &SHA_1, digest));
}

static const char *hexadecimal(const uint8_t *bytes, size_t count)
{
    TRACE_ENTER("count=%zu", count);
    static const char digits[] = "0123456789abcdef";
    char text[2 * SHA256_SIZE];
    for (size_t i = 0; i < count; ++i) {
        text[2 * i] = digits[bytes[i] >> 4];
        text[2 * i + 1] = digits[bytes[i] & 0xF];
    }
    return TRACE_RETURN("\"%s\"", cache_substring(text, 2 * count));
}

static const char *digestPath(const OsdepOpenDirectory *from, const char *path,
                              const ShaAlgorithm *algorithm, size_t size)
{
    TRACE_ENTER("path=\"%s\"", path);
    uint8_t digest[SHA256_SIZE];
    FILE *file = osdep_openRegularFileAt(from, path, nullptr);
    if (file == nullptr)
        shahash_cannotOpen(path);
    std::setvbuf(file, nullptr, _IONBF, 0); // blocks come straight from the descriptor
    const bool whole = digestFile(file, algorithm, digest);
    std::fclose(file);
    if (!whole)
        shahash_cannotOpen(path);
    return TRACE_RETURN("\"%s\"", hexadecimal(digest, size));
}

const char *sha256_path(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    return TRACE_RETURN("\"%s\"", shahash_digestAt(nullptr, path));
}

const char *shahash_digestAt(const OsdepOpenDirectory *from, const char *path)
{
    TRACE_ENTER("from=%p, path=\"%s\"", static_cast<const void *>(from), path);
    return TRACE_RETURN("\"%s\"", digestPath(from, path, &SHA_256, SHA256_SIZE));
}

const char *sha1_path(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    return TRACE_RETURN("\"%s\"", digestPath(nullptr, path, &SHA_1, SHA1_SIZE));
}

// ---- Entries ----------------------------------------------------------------------------------

FileEntry *shahash_newEntry(const char *name, const char *digest)
{
    TRACE_ENTER("name=\"%s\", digest=\"%s\"", name, digest);
    auto *entry = static_cast<FileEntry *>(xmalloc_must(sizeof(FileEntry)));
    entry->name = cache_string(name);
    entry->digest = cache_string(digest);
    return TRACE_RETURN("%p", entry);
}

void shahash_freeEntries(Vector *entries)
{
    TRACE_ENTER("entries=%p", static_cast<void *>(entries));
    for (FileEntry *entry : vec_each<FileEntry>(entries))
        std::free(entry);
    vec_destroy(entries);
}

bool shahash_checkFileAt(const OsdepOpenDirectory *from, const char *digest, const char *path)
{
    TRACE_ENTER("from=%p, digest=\"%s\", path=\"%s\"", static_cast<const void *>(from), digest,
                path);
    OsdepFileInfo info;
    if (digest == nullptr || osdep_fileInfoAt(from, path, &info) != OSDEP_FILE) {
        TRACE("no file \"%s\"", path);
        return TRACE_RETURN("%d", false);
    }
    return TRACE_RETURN("%d", std::strcmp(digest, shahash_digestAt(from, path)) == 0);
}

bool shahash_checkFile(const char *digest, const char *path)
{
    TRACE_ENTER("digest=\"%s\", path=\"%s\"", digest, path);
    return TRACE_RETURN("%d", shahash_checkFileAt(nullptr, digest, path));
}

static bool entryMatches(const OsdepOpenDirectory *from, const FileEntry *entry)
{
    TRACE_ENTER("entry=%p", static_cast<const void *>(entry));
    if (entry == nullptr || entry->name == nullptr || entry->name[0] == '\0')
        return TRACE_RETURN("%d", false);
    return TRACE_RETURN("%d", shahash_checkFileAt(from, entry->digest, entry->name));
}

int shahash_checkEntriesAt(const OsdepOpenDirectory *from, Vector *entries)
{
    TRACE_ENTER("from=%p, entries=%p", static_cast<const void *>(from),
                static_cast<void *>(entries));
    int result = entries != nullptr;
    for (const FileEntry *entry : vec_each<const FileEntry>(entries))
        if (!entryMatches(from, entry))
            result = 0;
    return TRACE_RETURN("%d", result);
}

int shahash_checkEntries(Vector *entries)
{
    TRACE_ENTER("entries=%p", static_cast<void *>(entries));
    return TRACE_RETURN("%d", shahash_checkEntriesAt(nullptr, entries));
}

// ---- Directories and names --------------------------------------------------------------------

char *shahash_join(uint32_t style, const char *prefix, const char *name)
{
    TRACE_ENTER("style=0x%x, prefix=\"%s\", name=\"%s\"", style, prefix, name);
    if (prefix == nullptr || prefix[0] == '\0')
        return TRACE_RETURN("\"%s\"", xstrdup_must(name));
    return TRACE_RETURN("\"%s\"", osdep_pathJoinFor(style, prefix, name));
}

bool shahash_openDirectory(const char *directory, OsdepOpenDirectory **opened)
{
    TRACE_ENTER("directory=\"%s\"", directory);
    *opened = directory == nullptr ? nullptr : osdep_openDirectory(directory);
    return TRACE_RETURN("%d", directory == nullptr || *opened != nullptr);
}
