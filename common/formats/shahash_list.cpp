// Hash lists; docs/hash-list.md has the format.
#define MODULE "common/shahash"
#include "common/formats/shahash.h"

#include <cstdlib>
#include <cstring>

#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/diagnostics/alert.h"
#include "common/formats/fileutils.h"
#include "common/formats/shahash_internal.h"
#include "common/os/osdep_directory.h"
#include "common/os/osdep_file.h"
#include "common/os/osdep_host.h"
#include "common/os/osdep_temp.h"
#include "common/text/line_reader.h"
#include "common/trace/qzdebug.h"

// ---- Writing ----------------------------------------------------------------------------------

static bool writeLines(FILE *file, Vector *entries)
{
    TRACE_ENTER("file=%p", static_cast<void *>(file));
    for (const FileEntry *entry : vec_each<const FileEntry>(entries)) {
        if (std::strchr(entry->name, '\n') != nullptr) {
            alert_print("The name \"%s\" holds a line end and cannot be listed", entry->name);
            return TRACE_RETURN("%d", false);
        }
        if (std::fprintf(file, "%s *%s\n", entry->digest, entry->name) < 0)
            return TRACE_RETURN("%d", false);
    }
    return TRACE_RETURN("%d", true);
}

namespace {
// The tree that a list describes.
struct ListedTree {
    uint32_t style;
    const OsdepOpenDirectory *from; // `dir` is looked up in it; null: in the current directory
    const char *dir;
    Vector *unread; // or null
};
} // namespace

// Writes the list of the tree to the existing file `path`.
static bool writeListTo(const ListedTree *tree, const char *path)
{
    TRACE_ENTER("dir=\"%s\", path=\"%s\"", tree->dir, path);
    FILE *file = std::fopen(path, "w");
    if (file == nullptr)
        return TRACE_RETURN("%d", false);
    Vector *entries = vec_new(MODULE, __LINE__);
    shahash_walk(tree->from, tree->style, entries, tree->unread, tree->dir, tree->dir);
    // Where nothing could be read there is nothing to check by.
    const bool useful = vec_size(entries) != 0 || vec_size(tree->unread) == 0;
    const bool written = useful && writeLines(file, entries);
    const bool closed = std::fclose(file) == 0;
    shahash_freeEntries(entries);
    return TRACE_RETURN("%d", written && closed);
}

static bool writeList(const ListedTree *tree, const char *destination)
{
    TRACE_ENTER("dir=\"%s\", destination=\"%s\"", tree->dir, destination);
    char *temporary = osdep_tempFile();
    const bool isNew = !osdep_fileExists(destination);
    const bool reached = temporary != nullptr && writeListTo(tree, temporary) &&
                         copyfile_helper(temporary, destination, "copied") != 0;
    if (!reached && isNew)
        std::remove(destination); // a partial list is worse than none
    std::free(temporary);
    return TRACE_RETURN("%d", reached);
}

bool shahash_writeList(uint32_t style, const char *dir, const char *destination)
{
    TRACE_ENTER("style=0x%x, dir=\"%s\", destination=\"%s\"", style, dir, destination);
    const ListedTree tree = {style, nullptr, dir, nullptr};
    return TRACE_RETURN("%d", writeList(&tree, destination));
}

bool shahash_writeListOf(uint32_t style, const OsdepOpenDirectory *directory,
                         const char *destination, Vector *unread)
{
    TRACE_ENTER("style=0x%x, directory=%p, destination=\"%s\"", style,
                static_cast<const void *>(directory), destination);
    const ListedTree tree = {style, directory, ".", unread};
    return TRACE_RETURN("%d", writeList(&tree, destination));
}

bool shahash_writeListDefault(const char *dir, const char *destination)
{
    TRACE_ENTER("dir=\"%s\", destination=\"%s\"", dir, destination);
    return TRACE_RETURN("%d", shahash_writeList(osdep_osFlags(), dir, destination));
}

// ---- Reading ----------------------------------------------------------------------------------

namespace {
struct ListLine {
    const char *digest; // interned
    const char *name;   // within the line
};
} // namespace

static bool isWhiteSpace(char character)
{
    return character != '\0' && std::strchr(" \t\n\v\f\r", character) != nullptr;
}

// Splits a line of `length` characters. False when it contains a NUL or no blank.
static bool splitLine(const char *line, size_t length, ListLine *parts)
{
    TRACE_ENTER("line=\"%s\"", line);
    const char *blank = std::strchr(line, ' ');
    if (blank == nullptr || std::strlen(line) != length)
        return TRACE_RETURN("%d", false);
    const char *name = blank + 1;
    while (isWhiteSpace(*name))
        ++name;
    if (*name == '*')
        ++name;
    *parts = {cache_substring(line, static_cast<size_t>(blank - line)), name};
    return TRACE_RETURN("%d", true);
}

// An empty name stays empty: with a prefix it would name the directory.
static FileEntry *entryOf(const ListLine *parts, const char *prefix)
{
    TRACE_ENTER("name=\"%s\", prefix=\"%s\"", parts->name, prefix);
    char *name = shahash_join(0, parts->name[0] == '\0' ? nullptr : prefix, parts->name);
    FileEntry *entry = shahash_newEntry(name, parts->digest);
    std::free(name);
    return TRACE_RETURN("%p", entry);
}

Vector *shahash_readList(const char *path, const char *prefix)
{
    TRACE_ENTER("path=\"%s\", prefix=\"%s\"", path, prefix);
    FILE *file = osdep_openRegularFile(path, nullptr);
    if (file == nullptr)
        return TRACE_RETURN("%p", static_cast<Vector *>(nullptr));
    Vector *entries = vec_new(MODULE, __LINE__);
    LineReader reader;
    ListLine parts;
    bool good = true;
    lines_start(&reader, file);
    while (const char *line = good ? lines_next(&reader) : nullptr) {
        good = splitLine(line, reader.length, &parts);
        if (good)
            vec_add(entries, entryOf(&parts, prefix));
    }
    good = lines_finish(&reader) && good && vec_size(entries) != 0;
    std::fclose(file);
    if (!good) {
        shahash_freeEntries(entries);
        entries = nullptr;
    }
    return TRACE_RETURN("%p", entries);
}

// ---- Checking ---------------------------------------------------------------------------------

static bool lineMatches(const OsdepOpenDirectory *from, const char *line, size_t length)
{
    TRACE_ENTER("line=\"%s\"", line);
    ListLine parts;
    const bool matches = splitLine(line, length, &parts) && parts.digest[0] != '\0' &&
                         parts.name[0] != '\0' &&
                         shahash_checkFileAt(from, parts.digest, parts.name);
    return TRACE_RETURN("%d", matches);
}

// 1 when there is at least one line and all match.
static int checkLines(const OsdepOpenDirectory *from, FILE *file)
{
    TRACE_ENTER("file=%p", static_cast<void *>(file));
    LineReader reader;
    bool good = true;
    bool any = false;
    lines_start(&reader, file);
    while (const char *line = good ? lines_next(&reader) : nullptr) {
        any = true;
        good = lineMatches(from, line, reader.length);
    }
    good = lines_finish(&reader) && good && any;
    return TRACE_RETURN("%d", good ? 1 : 0);
}

int shahash_checkList(const char *directory, const char *path)
{
    TRACE_ENTER("directory=\"%s\", path=\"%s\"", directory, path);
    FILE *file = osdep_openRegularFile(path, nullptr);
    if (file == nullptr)
        return TRACE_RETURN("%d", 0);
    int result = 0;
    OsdepOpenDirectory *opened = nullptr;
    if (shahash_openDirectory(directory, &opened))
        result = checkLines(opened, file);
    osdep_closeDirectory(opened);
    std::fclose(file);
    return TRACE_RETURN("%d", result);
}
