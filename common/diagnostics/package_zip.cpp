#define MODULE "common/package_zip"
#include "common/diagnostics/package_zip.h"

#include <cstdlib>
#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/memory.h"
#include "common/diagnostics/package_zip_internal.h"
#include "common/os/osdep_directory.h"
#include "common/os/osdep_file.h"
#include "common/os/osdep_replace.h"
#include "common/text/osdep_path.h"
#include "common/trace/qzdebug.h"

namespace {
enum PackageStage : unsigned {
    STAGE_CLAIMED,
    STAGE_READING,
    STAGE_WRITING,
    STAGE_FINALISED,
    STAGE_ENDED,
};
} // namespace

struct Package {
    char *path; // of the package, links followed; owned; null when it has none
    int lock;   // on its directory, or -1
    PackageStage stage;
    bool failed;                  // a step has failed: the new package must not replace the old one
    uint64_t added;               // members
    PackageView view;             // through which the existing package is read
    PackageDirectory directory;   // of the existing package
    OsdepReplacement replacement; // the growing package; its stream is null while there is none
    PackageZip *zip;              // the implementation's state, or null
};

static constexpr size_t CHUNK = 65536;
static constexpr size_t LONGEST_NAME = 0xffff;

// The format's dates are local and go from 1980 to 2107; this leaves a day for time zones.
static constexpr int64_t FIRST_TIME = 315619200;
static constexpr int64_t LAST_TIME = 4354732800;

// ---- The view and the source ------------------------------------------------------------------

static bool seekTo(FILE *stream, uint64_t offset)
{
    return std::fseek(stream, static_cast<long>(offset), SEEK_SET) == 0;
}

size_t packageView_read(const PackageView *view, uint64_t offset, void *buffer, size_t size)
{
    if (view->old == nullptr || offset >= view->readable)
        return 0;
    if (size > view->readable - offset)
        size = static_cast<size_t>(view->readable - offset);
    if (!seekTo(view->old, view->front + offset))
        return 0;
    return std::fread(buffer, 1, size, view->old);
}

size_t packageView_write(const PackageView *view, uint64_t offset, const void *data, size_t size)
{
    if (view->fresh == nullptr)
        return 0;
    // A seek to the current position would empty the stream's buffer.
    const uint64_t position = view->front + offset;
    if (static_cast<uint64_t>(std::ftell(view->fresh)) != position &&
        !seekTo(view->fresh, position))
        return 0;
    return std::fwrite(data, 1, size, view->fresh);
}

size_t packageSource_read(PackageSource *source, void *buffer, size_t size)
{
    if (size > source->size - source->done)
        size = static_cast<size_t>(source->size - source->done);
    const size_t got = std::fread(buffer, 1, size, source->stream);
    source->failed = source->failed || std::ferror(source->stream) != 0;
    source->done += got;
    return got;
}

// ---- Claiming ---------------------------------------------------------------------------------

static int lockDirectoryOf(const char *path)
{
    char *directory = xstrndup_must(path, static_cast<size_t>(osdep_baseName(path) - path));
    const int lock = osdep_lockDirectory(*directory == '\0' ? "." : directory);
    std::free(directory);
    return lock;
}

Package *package_claim(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    auto *package = static_cast<Package *>(xmalloc_must(sizeof(Package)));
    package->path = path == nullptr || *path == '\0' ? nullptr : osdep_followLinks(path);
    package->lock = package->path == nullptr ? -1 : lockDirectoryOf(package->path);
    return TRACE_RETURN("%p", package);
}

int package_exists(const Package *package)
{
    ASSERT_AT(11, package != NULL);
    TRACE_ENTER("path=\"%s\"", package->path);
    return TRACE_RETURN("%d", osdep_fileExists(package->path));
}

static void dropReplacement(Package *package)
{
    if (package->replacement.stream != nullptr)
        osdep_dropReplacement(&package->replacement);
    package->view.fresh = nullptr;
}

void package_release(Package *package)
{
    if (package == nullptr)
        return;
    TRACE_ENTER("path=\"%s\"", package->path);
    packageZip_end(package->zip);
    dropReplacement(package);
    if (package->view.old != nullptr)
        std::fclose(package->view.old);
    osdep_unlockDirectory(package->lock);
    std::free(package->path);
    std::free(package);
}

// Called at the end of every step.
static int concluded(Package *package, bool good)
{
    package->failed = package->failed || !good;
    return good ? 1 : 0;
}

// ---- Opening ----------------------------------------------------------------------------------

static bool openReader(Package *package)
{
    OsdepFileFacts facts;
    if (package->lock < 0 || package->stage != STAGE_CLAIMED)
        return false;
    package->view.old = osdep_openRegularFile(package->path, &facts);
    if (package->view.old == nullptr ||
        !packageDirectory_read(package->view.old, facts.size, &package->directory))
        return false;
    package->view.front = package->directory.front;
    package->view.readable = package->directory.end;
    package->zip = packageZip_openReader(&package->view, &package->directory);
    return package->zip != nullptr;
}

int package_openReader(Package *package)
{
    ASSERT_AT(12, package != NULL);
    TRACE_ENTER("path=\"%s\"", package->path);
    const bool good = openReader(package);
    if (good)
        package->stage = STAGE_READING;
    return TRACE_RETURN("%d", concluded(package, good));
}

// A file that may not be written to must not be replaced either.
static bool isWritable(const char *path)
{
    FILE *stream = std::fopen(path, "r+b");
    return stream != nullptr && std::fclose(stream) == 0;
}

static bool startReplacement(Package *package)
{
    if (osdep_openReplacement(&package->replacement, package->path) != 0)
        return false;
    package->view.fresh = package->replacement.stream;
    return true;
}

// Copies `size` bytes from `offset` of one stream to the position of the other.
static bool copyBytes(FILE *from, uint64_t offset, uint64_t size, FILE *to)
{
    auto *buffer = static_cast<char *>(xmalloc_must(CHUNK));
    bool good = seekTo(from, offset);
    while (good && size > 0) {
        const size_t part = size < CHUNK ? static_cast<size_t>(size) : CHUNK;
        good =
            std::fread(buffer, 1, part, from) == part && std::fwrite(buffer, 1, part, to) == part;
        size -= part;
    }
    std::free(buffer);
    return good;
}

static bool toWriter(Package *package)
{
    return package->stage == STAGE_READING && isWritable(package->path) &&
           startReplacement(package) &&
           copyBytes(package->view.old, 0, package->view.front + package->directory.offset,
                     package->view.fresh) &&
           packageZip_toWriter(package->zip);
}

int package_toWriter(Package *package)
{
    ASSERT_AT(13, package != NULL);
    TRACE_ENTER("path=\"%s\"", package->path);
    const bool good = toWriter(package);
    if (good)
        package->stage = STAGE_WRITING;
    return TRACE_RETURN("%d", concluded(package, good));
}

static bool startWriter(Package *package)
{
    if (package->lock < 0 || package->stage != STAGE_CLAIMED || osdep_fileExists(package->path) ||
        !startReplacement(package))
        return false;
    package->zip = packageZip_start(&package->view);
    return package->zip != nullptr;
}

int package_startWriter(Package *package)
{
    ASSERT_AT(14, package != NULL);
    TRACE_ENTER("path=\"%s\"", package->path);
    const bool good = startWriter(package);
    if (good)
        package->stage = STAGE_WRITING;
    return TRACE_RETURN("%d", concluded(package, good));
}

// ---- Adding -----------------------------------------------------------------------------------

// The length of the UTF-8 sequence at `text`, or 0 when there is none. Overlong forms and
// surrogates are not sequences, as readers that decode names see it.
static size_t sequenceLength(const unsigned char *text)
{
    const unsigned first = text[0];
    const size_t length = first < 0x80                     ? 1
                          : first >= 0xc2 && first <= 0xdf ? 2
                          : first >= 0xe0 && first <= 0xef ? 3
                          : first >= 0xf0 && first <= 0xf4 ? 4
                                                           : 0;
    for (size_t i = 1; i < length; ++i)
        if ((text[i] & 0xc0) != 0x80)
            return 0;
    const bool overlong = (first == 0xe0 && text[1] < 0xa0) || (first == 0xf0 && text[1] < 0x90);
    const bool none = (first == 0xed && text[1] > 0x9f) || (first == 0xf4 && text[1] > 0x8f);
    return overlong || none ? 0 : length;
}

static PackageName kindOfName(const char *member)
{
    PackageName kind = PACKAGE_NAME_ASCII;
    for (const auto *at = reinterpret_cast<const unsigned char *>(member); *at != '\0';) {
        const size_t length = sequenceLength(at);
        if (length == 0)
            return PACKAGE_NAME_BYTES;
        if (length > 1)
            kind = PACKAGE_NAME_UTF8;
        at += length;
    }
    return kind;
}

static bool addStream(Package *package, const char *member, FILE *stream,
                      const OsdepFileFacts *facts)
{
    const int64_t modified = facts->modified < FIRST_TIME  ? FIRST_TIME
                             : facts->modified > LAST_TIME ? LAST_TIME
                                                           : facts->modified;
    PackageSource source = {stream, facts->size, 0, modified, false};
    const bool added = packageZip_addFile(package->zip, member, kindOfName(member), &source);
    return added && !source.failed && std::ferror(package->view.fresh) == 0;
}

static bool addFile(Package *package, const char *member, const char *path)
{
    if (package->stage != STAGE_WRITING || member == nullptr || *member == '\0' ||
        std::strlen(member) > LONGEST_NAME)
        return false;
    OsdepFileFacts facts;
    FILE *stream = osdep_openRegularFile(path, &facts);
    if (stream == nullptr)
        return false;
    const bool good = addStream(package, member, stream, &facts);
    std::fclose(stream);
    ++package->added;
    return good;
}

int package_addFile(Package *package, const char *member, const char *path)
{
    ASSERT_AT(15, package != NULL);
    TRACE_ENTER("package=\"%s\", member=\"%s\", path=\"%s\"", package->path, member, path);
    return TRACE_RETURN("%d", concluded(package, addFile(package, member, path)));
}

// ---- Finishing --------------------------------------------------------------------------------

// The implementations drop the comment. Its length is the last value of the end record.
static bool restoreComment(Package *package)
{
    FILE *fresh = package->view.fresh;
    const uint32_t size = package->directory.commentSize;
    const unsigned char length[] = {static_cast<unsigned char>(size),
                                    static_cast<unsigned char>(size >> 8)};
    return size == 0 || (std::fseek(fresh, -2, SEEK_END) == 0 &&
                         std::fwrite(length, 1, sizeof length, fresh) == sizeof length &&
                         copyBytes(package->view.old, package->view.front + package->directory.end,
                                   size, fresh));
}

static bool finalise(Package *package)
{
    if (package->stage != STAGE_WRITING)
        return false;
    package->stage = STAGE_FINALISED;
    return packageZip_finalise(package->zip) && restoreComment(package) &&
           std::fflush(package->view.fresh) == 0;
}

int package_finalise(Package *package)
{
    ASSERT_AT(16, package != NULL);
    TRACE_ENTER("path=\"%s\"", package->path);
    return TRACE_RETURN("%d", concluded(package, finalise(package)));
}

static bool sameBytes(FILE *left, uint64_t leftOffset, FILE *right, uint64_t rightOffset,
                      uint64_t size)
{
    auto *buffer = static_cast<char *>(xmalloc_must(2 * CHUNK));
    bool same = seekTo(left, leftOffset) && seekTo(right, rightOffset);
    while (same && size > 0) {
        const size_t part = size < CHUNK ? static_cast<size_t>(size) : CHUNK;
        same = std::fread(buffer, 1, part, left) == part &&
               std::fread(buffer + CHUNK, 1, part, right) == part &&
               std::memcmp(buffer, buffer + CHUNK, part) == 0;
        size -= part;
    }
    std::free(buffer);
    return same;
}

// Whether the new package has the old entries, byte by byte, and the new ones, and the comment.
static bool readsBack(Package *package)
{
    const PackageDirectory *old = &package->directory;
    FILE *fresh = package->view.fresh;
    PackageDirectory now;
    if (std::fseek(fresh, 0, SEEK_END) != 0 ||
        !packageDirectory_read(fresh, static_cast<uint64_t>(std::ftell(fresh)), &now))
        return false;
    if (now.front != old->front || now.count != old->count + package->added ||
        now.commentSize != old->commentSize || now.size < old->size)
        return false;
    return package->view.old == nullptr || sameBytes(package->view.old, old->front + old->offset,
                                                     fresh, now.front + now.offset, old->size);
}

static bool end(Package *package)
{
    if (package->stage != STAGE_FINALISED)
        return false;
    package->stage = STAGE_ENDED;
    packageZip_end(package->zip);
    package->zip = nullptr;
    if (!package->failed && readsBack(package)) {
        package->view.fresh = nullptr;
        return osdep_commitReplacement(&package->replacement) == 0;
    }
    dropReplacement(package);
    return package->failed;
}

int package_end(Package *package)
{
    ASSERT_AT(17, package != NULL);
    TRACE_ENTER("path=\"%s\"", package->path);
    return TRACE_RETURN("%d", concluded(package, end(package)));
}
