#define MODULE "common/fileutils"

// The type of a file by its content: ELF, intermediate code, object records, library, metadata.

#include "common/formats/fileutils.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "common/formats/fileutils_internal.h"
#include "common/formats/metadata.h"
#include "common/os/osdep_file.h"
#include "common/text/osdep_bytes.h"
#include "common/trace/qzdebug.h"

FILE *fileid_open(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    FILE *stream = nullptr;
    if (osdep_isRegularFile(name) || !osdep_fileExists(name))
        stream = fopen(name, "rb");
    else
        errno = EINVAL;
    return static_cast<FILE *>(TRACE_RETURN("%p", static_cast<void *>(stream)));
}

// ---- ELF --------------------------------------------------------------------------------------

namespace {
enum : uint32_t {
    ELF_HEADER_SIZE = 52,
    ELF_CLASS_AT = 4,
    ELF_CLASS_32 = 1,
    ELF_MACHINE_AT = 18,
};

struct MachineRow {
    uint16_t machine;
    uint64_t type;
    const char *found; // the text for the trace
};
} // namespace

static const MachineRow machineRows[] = {
    {204, FILEID_ELF_ORB, "found ORB ELF file"},   {83, FILEID_ELF_ELM, "found ELM ELF file"},
    {118, FILEID_ELF_KORB, "found KORB ELF file"}, {8, FILEID_ELF_MIPS, "found MIPS ELF file"},
    {40, FILEID_ELF_ARM, "found ARM ELF file"},
};

static uint64_t typeOfMachine(uint16_t machine)
{
    TRACE_ENTER("machine=%u", machine);
    for (const MachineRow &row : machineRows) {
        if (row.machine != machine)
            continue;
        TRACE("%s", row.found);
        return TRACE_RETURN("0x%lX", static_cast<unsigned long>(row.type));
    }
    TRACE("found ELF file");
    return TRACE_RETURN("0x%lX", static_cast<unsigned long>(FILEID_ELF));
}

static uint64_t elfType(FILE *stream, const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    uint8_t header[ELF_HEADER_SIZE];
    if (fread(header, sizeof header, 1, stream) != 1) {
        TRACE("could not read input file \"%s\"", name);
        return TRACE_RETURN("0x%lX", 0ul);
    }
    if (memcmp(header, "\177ELF", 4) != 0) {
        TRACE("did not recognize ELF magic number");
        return TRACE_RETURN("0x%lX", 0ul);
    }
    if (header[ELF_CLASS_AT] != ELF_CLASS_32) {
        TRACE("did not recognize ELF class");
        return TRACE_RETURN("0x%lX", 0ul);
    }
    const uint64_t type = typeOfMachine(osdep_getLEU16(header + ELF_MACHINE_AT));
    return TRACE_RETURN("0x%lX", static_cast<unsigned long>(type));
}

uint64_t which_elf_fp(FILE *stream)
{
    TRACE_ENTER("stream=%p", static_cast<void *>(stream));
    if (stream == nullptr) {
        TRACE("not a valid file pointer");
        return TRACE_RETURN("0x%lX", 0ul);
    }
    return TRACE_RETURN("0x%lX", static_cast<unsigned long>(elfType(stream, "(stream)")));
}

uint64_t which_elf(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name == nullptr ? "(null)" : name);
    if (name == nullptr) {
        TRACE("input file name was NULL");
        return TRACE_RETURN("0x%lX", 0ul);
    }
    FILE *stream = fileid_open(name);
    if (stream == nullptr) {
        TRACE("could not open input file \"%s\"", name);
        return TRACE_RETURN("0x%lX", 0ul);
    }
    const uint64_t type = elfType(stream, name);
    fclose(stream);
    return TRACE_RETURN("0x%lX", static_cast<unsigned long>(type));
}

// ---- Intermediate files -----------------------------------------------------------------------

namespace {
enum : size_t { MARKER_READ = 60, MARKER_LEAST = 42 };
} // namespace

static const char markerStart[] = "Version";
static const char markerText[] = "NORVELL Software Intermediate Code";
static_assert(sizeof markerStart - 1 + 1 + sizeof markerText - 1 == MARKER_LEAST);

static bool isLetter(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

static bool hasMarkers(const char *text, size_t length)
{
    size_t at = sizeof markerStart - 1;
    if (memcmp(text, markerStart, at) != 0)
        return false;
    while (at < length && !isLetter(text[at]))
        ++at;
    return length - at >= sizeof markerText - 1 &&
           memcmp(text + at, markerText, sizeof markerText - 1) == 0;
}

// Tests the file or module that consists of the next `limit` bytes of the stream.
static int isIntermediate(FILE *stream, uint64_t limit)
{
    TRACE_ENTER("stream=%p", static_cast<void *>(stream));
    char text[MARKER_READ];
    const size_t length = fread(text, 1, limit < sizeof text ? limit : sizeof text, stream);
    if (length < MARKER_LEAST) {
        TRACE("short read from file");
        return TRACE_RETURN("%d", 0);
    }
    if (!hasMarkers(text, length)) {
        TRACE("file doesn't have p1 markers");
        return TRACE_RETURN("%d", 0);
    }
    TRACE("file identified as a p1 file");
    return TRACE_RETURN("%d", 1);
}

int fileid_is_p1_fp(FILE *stream)
{
    TRACE_ENTER("stream=%p", static_cast<void *>(stream));
    if (stream == nullptr) {
        TRACE("not a valid file pointer");
        return TRACE_RETURN("%d", 0);
    }
    return TRACE_RETURN("%d", isIntermediate(stream, UINT64_MAX));
}

int fileid_is_p1(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name == nullptr ? "(null)" : name);
    if (name == nullptr) {
        TRACE("input file name is NULL");
        return TRACE_RETURN("%d", 0);
    }
    if (!valid_ext(name, "p1:o")) {
        TRACE("file \"%s\" does not have a valid extention", name);
        return TRACE_RETURN("%d", 0);
    }
    FILE *stream = fileid_open(name);
    if (stream == nullptr) {
        TRACE("could not open file \"%s\"", name);
        return TRACE_RETURN("%d", 0);
    }
    const int found = fileid_is_p1_fp(stream);
    fclose(stream);
    return TRACE_RETURN("%d", found);
}

// ---- Object files -----------------------------------------------------------------------------

namespace {
enum : uint32_t { RECORD_HEADER_SIZE = 3 };
} // namespace

static const char *const recordNames[] = {
    "TEXT",    "PSECT",    "RELOC",     "SYM",    "START",   "END",      "IDENT",      "XPSECT",
    "SEGMENT", "XSYM",     "SIGNAT",    "FNINFO", "FNCONF",  "SEGSTART", "PSECTLIM",   "LISTRELOC",
    "LR_TEXT", "LR_RELOC", "COND_EXPR", "DABS",   "Unknown", "FNALIGN",  "PSECTBOUND", "RECRANGE",
};
static_assert(sizeof recordNames / sizeof recordNames[0] == RECORD_RANGE);

int getrec(FILE *stream, ObjectRecord *record)
{
    TRACE_ENTER("stream=%p", static_cast<void *>(stream));
    if (stream == nullptr || record == nullptr) {
        TRACE("no valid file pointer");
        return TRACE_RETURN("%d", 0);
    }
    uint8_t header[RECORD_HEADER_SIZE];
    if (fread(header, sizeof header, 1, stream) != 1)
        return TRACE_RETURN("%d", 0);
    record->length = osdep_getLEU16(header);
    record->type = header[2];
    if (record->type < RECORD_TEXT || record->type > RECORD_LAST) {
        TRACE("Unknown record type: %d", record->type);
        return TRACE_RETURN("%d", 0);
    }
    if (record->length > RECORD_MAX_LENGTH) {
        TRACE("Record too long: \"%s\" (%d)", recordNames[record->type - 1], record->length);
        return TRACE_RETURN("%d", 0);
    }
    if (fread(record->data, 1, record->length, stream) != record->length) {
        TRACE("Incomplete record: \"%s\" (%d)", recordNames[record->type - 1], record->length);
        return TRACE_RETURN("%d", 0);
    }
    return TRACE_RETURN("%d", 1);
}

// Tests the file or module that consists of the next `limit` bytes of the stream.
static int isObject(FILE *stream, uint64_t limit)
{
    TRACE_ENTER("stream=%p", static_cast<void *>(stream));
    ObjectRecord record;
    while (limit >= RECORD_HEADER_SIZE && getrec(stream, &record) &&
           record.length <= limit - RECORD_HEADER_SIZE) {
        TRACE("\tRECORD: %s", recordNames[record.type - 1]);
        if (record.type == RECORD_END) {
            TRACE("Identified file as an object file");
            return TRACE_RETURN("%d", 1);
        }
        limit -= RECORD_HEADER_SIZE + record.length;
    }
    TRACE("Bad record type");
    return TRACE_RETURN("%d", 0);
}

int fileid_is_obj_fp(FILE *stream)
{
    TRACE_ENTER("stream=%p", static_cast<void *>(stream));
    if (stream == nullptr) {
        TRACE("no valid file pointer");
        return TRACE_RETURN("%d", 0);
    }
    return TRACE_RETURN("%d", isObject(stream, UINT64_MAX));
}

int fileid_is_obj(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name == nullptr ? "(null)" : name);
    if (name == nullptr) {
        TRACE("input file name is NULL");
        return TRACE_RETURN("%d", 0);
    }
    if (!valid_ext(name, "obj:o")) {
        TRACE("file \"%s\" doe not have a known extension", name);
        return TRACE_RETURN("%d", 0);
    }
    FILE *stream = fileid_open(name);
    if (stream == nullptr) {
        TRACE("Could not open: \"%s\"", name);
        return TRACE_RETURN("%d", 0);
    }
    const int found = fileid_is_obj_fp(stream);
    fclose(stream);
    return TRACE_RETURN("%d", found);
}

// ---- Libraries --------------------------------------------------------------------------------

namespace {
enum : uint32_t {
    LIBRARY_HEADER_SIZE = 4,
    LIBRARY_COUNT_AT = 2,
    MODULE_ENTRY_SIZE = 12,
    MODULE_SYMBOLS_AT = 2,
    MODULE_SIZE_AT = 4,
    LIBRARY_OBJECT = 1, // bits of the answer
    LIBRARY_INTERMEDIATE = 2,
};
} // namespace

// Reads past a symbol: one byte, then a name that is not empty.
static bool skipSymbol(FILE *stream)
{
    if (getc(stream) == EOF)
        return false;
    char *name = getString(stream);
    const bool ok = name != nullptr && *name != '\0';
    free(name);
    return ok;
}

// Reads a module's entry in the directory; false when there is no whole entry.
static bool readModule(FILE *stream, uint32_t *size)
{
    TRACE_ENTER("stream=%p", static_cast<void *>(stream));
    uint8_t entry[MODULE_ENTRY_SIZE];
    if (fread(entry, sizeof entry, 1, stream) != 1)
        return TRACE_RETURN("%d", false);
    char *name = getString(stream);
    if (name == nullptr)
        return TRACE_RETURN("%d", false);
    TRACE("Found module: \"%s\"", name);
    free(name);
    *size = osdep_getLEU32(entry + MODULE_SIZE_AT);
    bool ok = true;
    const uint32_t symbols = osdep_getLEU16(entry + MODULE_SYMBOLS_AT);
    for (uint32_t i = 0; ok && i < symbols; ++i)
        ok = skipSymbol(stream);
    return TRACE_RETURN("%d", ok);
}

// Tests the module of `size` bytes at `offset`; the bit of its kind, or 0.
static int kindOfModule(FILE *stream, long offset, uint32_t size)
{
    TRACE_ENTER("offset=%ld, size=%u", offset, size);
    if (fseek(stream, offset, SEEK_SET) == 0 && isIntermediate(stream, size))
        return TRACE_RETURN("%d", static_cast<int>(LIBRARY_INTERMEDIATE));
    if (fseek(stream, offset, SEEK_SET) == 0 && isObject(stream, size))
        return TRACE_RETURN("%d", static_cast<int>(LIBRARY_OBJECT));
    return TRACE_RETURN("%d", 0);
}

// Tests the modules, which follow the directory back to back, until both kinds have been seen.
// Modules do not overlap, so nothing is read more than once.
static int visitModules(FILE *stream, const uint32_t *sizes, uint32_t count)
{
    TRACE_ENTER("count=%u", count);
    long offset = ftell(stream);
    int kinds = 0;
    for (uint32_t i = 0; i < count && kinds != (LIBRARY_OBJECT | LIBRARY_INTERMEDIATE); ++i) {
        if (offset < 0 || sizes[i] > static_cast<unsigned long>(LONG_MAX - offset))
            break;
        kinds |= kindOfModule(stream, offset, sizes[i]);
        offset += static_cast<long>(sizes[i]);
    }
    return TRACE_RETURN("%d", kinds);
}

static int libraryKinds(FILE *stream)
{
    TRACE_ENTER("stream=%p", static_cast<void *>(stream));
    uint8_t header[LIBRARY_HEADER_SIZE];
    if (fread(header, sizeof header, 1, stream) != 1)
        return TRACE_RETURN("%d", 0);
    const uint32_t count = osdep_getLEU16(header + LIBRARY_COUNT_AT);
    // 256 KB at most, however large the count.
    auto *sizes = static_cast<uint32_t *>(calloc(count + 1, sizeof(uint32_t)));
    bool ok = sizes != nullptr;
    for (uint32_t i = 0; ok && i < count; ++i)
        ok = readModule(stream, &sizes[i]);
    const int kinds = ok ? visitModules(stream, sizes, count) : 0;
    free(sizes);
    return TRACE_RETURN("%d", kinds);
}

int fileid_is_library_fp(FILE *stream)
{
    TRACE_ENTER("stream=%p", static_cast<void *>(stream));
    static const char *const found[] = {
        nullptr,
        "Identified as a library containing obj files",
        "Identified as a library containing p1 files",
        "Identified as a library containing p1 and obj files",
    };
    if (stream == nullptr) {
        TRACE("no valid file pointer");
        return TRACE_RETURN("%d", 0);
    }
    const int kinds = libraryKinds(stream);
    if (kinds != 0)
        TRACE("%s", found[kinds]);
    return TRACE_RETURN("%d", kinds);
}

int fileid_is_library(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name == nullptr ? "(null)" : name);
    if (name == nullptr) {
        TRACE("input file name is NULL");
        return TRACE_RETURN("%d", 0);
    }
    if (!valid_ext(name, "lib:lpp:a"))
        return TRACE_RETURN("%d", 0);
    FILE *stream = fileid_open(name);
    if (stream == nullptr) {
        TRACE("Cannot open file: \"%s\"", name);
        return TRACE_RETURN("%d", 0);
    }
    const int kinds = fileid_is_library_fp(stream);
    fclose(stream);
    return TRACE_RETURN("%d", kinds);
}

// ---- Metadata ---------------------------------------------------------------------------------

int fileid_is_metadata(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name == nullptr ? "(null)" : name);
    if (name == nullptr) {
        TRACE("input file name is NULL");
        return TRACE_RETURN("%d", 0);
    }
    FILE *stream = fileid_open(name);
    if (stream == nullptr) {
        TRACE("Could not open: \"%s\"", name);
        return TRACE_RETURN("%d", 0);
    }
    Metadata *metadata = metadata_create(nullptr);
    const bool found = metadata_read(metadata, stream);
    metadata_destroy(metadata);
    fclose(stream);
    TRACE("File \"%s\" %s a metadata file", name, found ? "is" : "is not");
    return TRACE_RETURN("%d", found ? 1 : 0);
}
