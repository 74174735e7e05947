// Installation manifests; docs/xml-files.md has the format.
#define MODULE "common/shahash"
#include "common/formats/shahash.h"

#include <cinttypes>
#include <cstdlib>
#include <cstring>

#include "common/base/hash.h"
#include "common/base/memory.h"
#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/formats/shahash_internal.h"
#include "common/os/osdep_directory.h"
#include "common/os/osdep_file.h"
#include "common/os/osdep_host.h"
#include "common/text/uxml2.h"
#include "common/trace/qzdebug.h"

static const char rootElement[] = "package";
static const char contentElement[] = "content";
static const char fileElement[] = "file";
static const char hashElement[] = "hash";
static const char dateAttribute[] = "datestamp";
static const char nameAttribute[] = "name";
static const char namePrefix[] = "vxp";
static const char nameSuffix[] = "xml";

// ---- Writing ----------------------------------------------------------------------------------

static UxmlNode *fileNode(const FileEntry *entry)
{
    TRACE_ENTER("entry=%p", static_cast<const void *>(entry));
    UxmlNode *file = uxml_node_new(fileElement);
    uxml_add_attr(file, nameAttribute, entry->name);
    UxmlNode *hash = uxml_node_new(hashElement);
    uxml_set_text(hash, entry->digest);
    uxml_add_child(file, hash);
    return TRACE_RETURN("%p", file);
}

// The document, the caller's to free; it takes over the nodes of `extra`.
static UxmlNode *makeDocument(const char *datestamp, Vector *extra, Vector *entries)
{
    TRACE_ENTER("datestamp=\"%s\"", datestamp);
    UxmlNode *package = uxml_node_new(rootElement);
    UxmlNode *content = uxml_node_new(contentElement);
    uxml_add_child(package, content);
    uxml_add_attr(content, dateAttribute, datestamp);
    for (UxmlNode *node : vec_each<UxmlNode>(extra))
        uxml_add_child(content, node);
    for (const FileEntry *entry : vec_each<const FileEntry>(entries))
        uxml_add_child(content, fileNode(entry));
    return TRACE_RETURN("%p", package);
}

// Writes the document to "vxpDATESTAMP.xml" in the directory.
static bool writeDocument(const UxmlNode *package, const char *directory, const char *datestamp)
{
    TRACE_ENTER("directory=\"%s\", datestamp=\"%s\"", directory, datestamp);
    char *name = xsprintf("%s%s.%s", namePrefix, datestamp, nameSuffix);
    char *path = shahash_join(0, directory, name);
    FILE *file = std::fopen(path, "w+");
    if (file == nullptr)
        shahash_cannotOpen(path);
    const bool written = uxml_write(file, package);
    const bool closed = std::fclose(file) == 0;
    std::free(path);
    std::free(name);
    return TRACE_RETURN("%d", written && closed);
}

bool shahash_writeManifest(uint32_t style, const char *dir, const char *outputDirectory,
                           Vector *extra)
{
    TRACE_ENTER("style=0x%x, dir=\"%s\", outputDirectory=\"%s\"", style, dir, outputDirectory);
    Vector *entries = vec_new(MODULE, __LINE__);
    process_dir(style, entries, dir, dir);
    char *datestamp = xsprintf("%" PRId64, osdep_wallTime().seconds);
    UxmlNode *package = makeDocument(datestamp, extra, entries);
    shahash_freeEntries(entries);
    const bool written = writeDocument(package, outputDirectory, datestamp);
    uxml_node_free(package);
    std::free(datestamp);
    return TRACE_RETURN("%d", written);
}

bool shahash_writeManifestDefault(const char *dir, const char *outputDirectory, Vector *extra)
{
    TRACE_ENTER("dir=\"%s\", outputDirectory=\"%s\"", dir, outputDirectory);
    return TRACE_RETURN("%d", shahash_writeManifest(osdep_osFlags(), dir, outputDirectory, extra));
}

// ---- The shape of a document ------------------------------------------------------------------

static bool isNamed(const UxmlNode *node, const char *name)
{
    return std::strcmp(uxml_name(node), name) == 0;
}

// The value of the first attribute of that name, or null. If it is given twice, the first one
// counts, as for everything else that a manifest should have once.
static const char *attribute(const UxmlNode *node, const char *name)
{
    TRACE_ENTER("node=%p, name=\"%s\"", static_cast<const void *>(node), name);
    for (const UxmlAttribute *found : vec_each<const UxmlAttribute>(uxml_attributes(node)))
        if (std::strcmp(uxml_attr_name(found), name) == 0)
            return TRACE_RETURN("\"%s\"", uxml_attr_value(found));
    return TRACE_RETURN("\"%s\"", static_cast<const char *>(nullptr));
}

static bool isFile(const UxmlNode *node)
{
    TRACE_ENTER("node=%p", static_cast<const void *>(node));
    bool good = isNamed(node, fileElement) && attribute(node, nameAttribute) != nullptr;
    for (const UxmlNode *child : vec_each<const UxmlNode>(uxml_children(node)))
        good = good && isNamed(child, hashElement);
    return TRACE_RETURN("%d", good);
}

static bool isContent(const UxmlNode *node)
{
    TRACE_ENTER("node=%p", static_cast<const void *>(node));
    bool good = isNamed(node, contentElement);
    for (const UxmlNode *child : vec_each<const UxmlNode>(uxml_children(node)))
        good = good && isFile(child);
    return TRACE_RETURN("%d", good);
}

// Whether the whole document is a manifest.
static bool isManifest(const UxmlNode *package)
{
    TRACE_ENTER("package=%p", static_cast<const void *>(package));
    Vector *contents = uxml_children(package);
    bool good = vec_size(contents) != 0;
    for (const UxmlNode *child : vec_each<const UxmlNode>(contents))
        good = good && isContent(child);
    return TRACE_RETURN("%d", good);
}

// ---- Reading ----------------------------------------------------------------------------------

namespace {
struct Manifest {
    int64_t datestamp;
    char *name;      // of the file; owned
    Vector *entries; // owned
};
} // namespace

static void freeManifests(Vector *manifests)
{
    TRACE_ENTER("manifests=%p", static_cast<void *>(manifests));
    for (Manifest *manifest : vec_each<Manifest>(manifests)) {
        shahash_freeEntries(manifest->entries);
        std::free(manifest->name);
        std::free(manifest);
    }
    vec_destroy(manifests);
}

// A file without a digest gets an empty one, which never matches.
static FileEntry *entryOf(const UxmlNode *file)
{
    TRACE_ENTER("file=%p", static_cast<const void *>(file));
    const auto *hash = static_cast<const UxmlNode *>(vec_elementAt(uxml_children(file), 0));
    return TRACE_RETURN("%p", shahash_newEntry(attribute(file, nameAttribute),
                                               hash == nullptr ? "" : uxml_text(hash)));
}

// The part of a document to be kept. Only one document is in memory at a time.
static Manifest *manifestOf(const UxmlNode *package, const char *name)
{
    TRACE_ENTER("package=%p, name=\"%s\"", static_cast<const void *>(package), name);
    auto *manifest = static_cast<Manifest *>(xmalloc_must(sizeof(Manifest)));
    Vector *contents = uxml_children(package);
    const char *datestamp =
        attribute(static_cast<const UxmlNode *>(vec_elementAt(contents, 0)), dateAttribute);
    manifest->datestamp = datestamp == nullptr ? 0 : std::strtoll(datestamp, nullptr, 10);
    manifest->name = xstrdup_must(name);
    manifest->entries = vec_new(MODULE, __LINE__);
    for (const UxmlNode *content : vec_each<const UxmlNode>(contents))
        for (const UxmlNode *file : vec_each<const UxmlNode>(uxml_children(content)))
            vec_add(manifest->entries, entryOf(file));
    return TRACE_RETURN("%p", manifest);
}

static bool isManifestName(const char *name)
{
    static constexpr size_t prefixLength = sizeof namePrefix - 1;
    static constexpr size_t suffixLength = sizeof nameSuffix - 1;
    const size_t length = std::strlen(name);
    return length >= prefixLength + suffixLength &&
           std::memcmp(name, namePrefix, prefixLength) == 0 &&
           std::strcmp(name + length - suffixLength, nameSuffix) == 0;
}

// The document in the file, the caller's to free; null when it is not one of the dialect.
static UxmlNode *readDocument(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    OsdepFileInfo info;
    const OsdepKind kind = osdep_fileInfo(path, &info);
    if (kind == OSDEP_DIRECTORY || kind == OSDEP_OTHER)
        return TRACE_RETURN("%p", static_cast<UxmlNode *>(nullptr));
    FILE *file = osdep_openRegularFile(path, nullptr);
    if (file == nullptr)
        shahash_cannotOpen(path);
    UxmlNode *package = uxml_read(file);
    std::fclose(file);
    return TRACE_RETURN("%p", package);
}

static void readManifest(Vector *manifests, const char *directory, const char *name)
{
    TRACE_ENTER("directory=\"%s\", name=\"%s\"", directory, name);
    char *path = shahash_join(0, directory, name);
    UxmlNode *package = readDocument(path);
    if (package != nullptr && isManifest(package))
        vec_add(manifests, manifestOf(package, name));
    else
        TRACE("\"%s\" is no manifest", path);
    uxml_node_free(package);
    std::free(path);
}

// Newest first, and by name among those of the same age, so that the order never depends on the
// system.
static int compareAges(const void *slotA, const void *slotB)
{
    const auto *a = *static_cast<const Manifest *const *>(slotA);
    const auto *b = *static_cast<const Manifest *const *>(slotB);
    if (a->datestamp != b->datestamp)
        return a->datestamp > b->datestamp ? -1 : 1;
    return std::strcmp(a->name, b->name);
}

static Vector *readManifests(const char *directory)
{
    TRACE_ENTER("directory=\"%s\"", directory);
    Vector *manifests = vec_new(MODULE, __LINE__);
    Vector *names = osdep_readDirectory(directory);
    for (const char *name : vec_each<const char>(names))
        if (isManifestName(name))
            readManifest(manifests, directory, name);
    osdep_freeNames(names);
    vec_sort(manifests, compareAges);
    return TRACE_RETURN("%p", manifests);
}

// ---- Checking ---------------------------------------------------------------------------------

// A new vector of the entries that decide; the manifests still own them.
static Vector *mergeManifests(Vector *manifests)
{
    TRACE_ENTER("manifests=%p", static_cast<void *>(manifests));
    static constexpr uint32_t buckets = 7000;
    HashTable *seen = hash_new_func(buckets, hash_string, hash_stringCompare, MODULE, __LINE__);
    Vector *merged = vec_new(MODULE, __LINE__);
    for (const Manifest *manifest : vec_each<const Manifest>(manifests))
        for (const FileEntry *entry : vec_each<const FileEntry>(manifest->entries))
            if (hash_insert_func(seen, entry->name, entry, MODULE, __LINE__) != 0)
                vec_add(merged, entry);
    hash_destroy(seen);
    return TRACE_RETURN("%p", merged);
}

int shahash_checkManifests(const char *directory, const char *manifestDirectory)
{
    TRACE_ENTER("directory=\"%s\", manifestDirectory=\"%s\"", directory, manifestDirectory);
    Vector *manifests = readManifests(manifestDirectory);
    Vector *merged = mergeManifests(manifests);
    int result = 0;
    OsdepOpenDirectory *opened = nullptr;
    if (vec_size(manifests) != 0 && shahash_openDirectory(directory, &opened))
        result = shahash_checkEntriesAt(opened, merged);
    osdep_closeDirectory(opened);
    vec_destroy(merged);
    freeManifests(manifests);
    return TRACE_RETURN("%d", result);
}
