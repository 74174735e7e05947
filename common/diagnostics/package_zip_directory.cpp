#define MODULE "common/package_zip"
#include <cstdlib>

#include "common/base/memory.h"
#include "common/diagnostics/package_zip_internal.h"
#include "common/text/osdep_bytes.h"
#include "common/trace/qzdebug.h"

namespace {
// The records of the format. Sizes are those of the fixed parts; numbers are little-endian.
enum : uint32_t {
    LOCAL_SIZE = 30,
    ENTRY_SIGNATURE = 0x02014b50,
    ENTRY_SIZE = 46,
    END_SIGNATURE = 0x06054b50,
    END_SIZE = 22,
    END64_SIGNATURE = 0x06064b50,
    END64_SIZE = 56,
    LOCATOR_SIGNATURE = 0x07064b50,
    LOCATOR_SIZE = 20,
    LONGEST_COMMENT = 0xffff,
    IN_ZIP64 = 0xffffffff, // the value is in the zip64 part of the entry
};
} // namespace

static constexpr uint64_t DIRECTORY_LIMIT = 64U << 20; // it is kept in memory

static bool readAt(FILE *stream, uint64_t offset, void *buffer, size_t size)
{
    return std::fseek(stream, static_cast<long>(offset), SEEK_SET) == 0 &&
           std::fread(buffer, 1, size, stream) == size;
}

// ---- The end of the archive -------------------------------------------------------------------

// The last record in `tail` whose comment ends where the file does, or null. The search runs from
// the end: an earlier match may be part of a member or of the comment.
static const uint8_t *findEnd(const uint8_t *tail, size_t size)
{
    if (size < END_SIZE)
        return nullptr;
    for (const uint8_t *at = tail + size - END_SIZE;; --at) {
        const auto behind = static_cast<size_t>(tail + size - at) - END_SIZE;
        if (osdep_getLEU32(at) == END_SIGNATURE && osdep_getLEU16(at + 20) == behind)
            return at;
        if (at == tail)
            return nullptr;
    }
}

// Takes over the values of the end record. `entriesEnd` is the position in the file at which the
// entries must end.
static bool takePlace(PackageDirectory *directory, uint64_t entriesEnd)
{
    if (directory->size > entriesEnd || directory->offset > entriesEnd - directory->size)
        return false;
    directory->front = entriesEnd - directory->size - directory->offset;
    return true;
}

static bool takeEnd(const uint8_t *end, uint64_t position, PackageDirectory *directory)
{
    const bool oneDisk = osdep_getLEU16(end + 4) == 0 && osdep_getLEU16(end + 6) == 0;
    directory->count = osdep_getLEU16(end + 10);
    directory->size = osdep_getLEU32(end + 12);
    directory->offset = osdep_getLEU32(end + 16);
    return oneDisk && osdep_getLEU16(end + 8) == directory->count && takePlace(directory, position);
}

// The zip64 record is directly before its locator, which is directly before the end record.
static bool takeEnd64(const uint8_t *end64, uint64_t position, PackageDirectory *directory)
{
    const uint8_t *locator = end64 + END64_SIZE;
    const bool oneDisk = osdep_getLEU32(end64 + 16) == 0 && osdep_getLEU32(end64 + 20) == 0 &&
                         osdep_getLEU32(locator + 4) == 0 && osdep_getLEU32(locator + 16) == 1;
    directory->count = osdep_getLEU64(end64 + 32);
    directory->size = osdep_getLEU64(end64 + 40);
    directory->offset = osdep_getLEU64(end64 + 48);
    return osdep_getLEU32(end64) == END64_SIGNATURE &&
           osdep_getLEU64(end64 + 4) == END64_SIZE - 12 && oneDisk &&
           osdep_getLEU64(end64 + 24) == directory->count && takePlace(directory, position) &&
           osdep_getLEU64(locator + 8) == position - directory->front;
}

// Reads the end of the file, of which `tail` is the last part.
static bool readEnd(const uint8_t *tail, size_t tailSize, uint64_t size,
                    PackageDirectory *directory)
{
    const uint8_t *end = findEnd(tail, tailSize);
    if (end == nullptr)
        return false;
    const uint64_t position = size - static_cast<uint64_t>(tail + tailSize - end);
    const size_t before = static_cast<size_t>(end - tail);
    bool good = false;
    if (before >= LOCATOR_SIZE && osdep_getLEU32(end - LOCATOR_SIZE) == LOCATOR_SIGNATURE)
        good = before >= LOCATOR_SIZE + END64_SIZE &&
               takeEnd64(end - LOCATOR_SIZE - END64_SIZE, position - LOCATOR_SIZE - END64_SIZE,
                         directory);
    else
        good = takeEnd(end, position, directory);
    directory->commentSize = osdep_getLEU16(end + 20);
    directory->end = position + END_SIZE - directory->front;
    return good;
}

// ---- The entries ------------------------------------------------------------------------------

// Whether the member can be where the entry says, before the directory.
static bool isPlaced(const uint8_t *entry, uint64_t limit)
{
    const uint64_t packed = osdep_getLEU32(entry + 20);
    const uint64_t offset = osdep_getLEU32(entry + 42);
    return packed == IN_ZIP64 || offset == IN_ZIP64 || offset + LOCAL_SIZE + packed <= limit;
}

// Whether the entries fill the directory, and are as many as it says.
static bool checkEntries(FILE *stream, const PackageDirectory *directory)
{
    uint8_t entry[ENTRY_SIZE];
    uint64_t left = directory->size;
    uint64_t count = 0;
    if (std::fseek(stream, static_cast<long>(directory->front + directory->offset), SEEK_SET) != 0)
        return false;
    for (; left >= ENTRY_SIZE; ++count) {
        if (std::fread(entry, 1, ENTRY_SIZE, stream) != ENTRY_SIZE)
            return false;
        const uint32_t rest =
            osdep_getLEU16(entry + 28) + osdep_getLEU16(entry + 30) + osdep_getLEU16(entry + 32);
        left -= ENTRY_SIZE;
        if (osdep_getLEU32(entry) != ENTRY_SIGNATURE || rest > left ||
            !isPlaced(entry, directory->offset))
            return false;
        left -= rest;
        // These bytes are nearly always in the stream's buffer already.
        for (uint32_t skipped = 0; skipped < rest; ++skipped)
            if (std::fgetc(stream) == EOF)
                return false;
    }
    return left == 0 && count == directory->count;
}

bool packageDirectory_read(FILE *stream, uint64_t size, PackageDirectory *directory)
{
    TRACE_ENTER("stream=%p, size=%llu", static_cast<void *>(stream),
                static_cast<unsigned long long>(size));
    const uint64_t longest = LONGEST_COMMENT + END_SIZE + LOCATOR_SIZE + END64_SIZE;
    const auto tailSize = static_cast<size_t>(size < longest ? size : longest);
    auto *tail = static_cast<uint8_t *>(xmalloc_must(tailSize + 1));
    *directory = {};
    const bool good = readAt(stream, size - tailSize, tail, tailSize) &&
                      readEnd(tail, tailSize, size, directory) &&
                      directory->size <= DIRECTORY_LIMIT && checkEntries(stream, directory);
    std::free(tail);
    return TRACE_RETURN("%d", good);
}
