#define MODULE "common/fileutils"

#include "common/formats/fileutils.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "common/formats/fileutils_internal.h"
#include "common/os/osdep_file.h"
#include "common/trace/qzdebug.h"

// ---- Extensions -------------------------------------------------------------------------------

// The text after the last "." of a name, or null when there is no ".".
static const char *extensionOf(const char *name)
{
    const char *dot = strrchr(name, '.');
    return dot == nullptr ? nullptr : dot + 1;
}

// Whether the list's entry at `entry`, which is `length` long, is the extension.
static bool isEntry(const char *extension, const char *entry, size_t length)
{
    return length != 0 && strncmp(extension, entry, length) == 0 && extension[length] == '\0';
}

int valid_ext(const char *name, const char *list)
{
    TRACE_ENTER("name=\"%s\", list=\"%s\"", name == nullptr ? "(null)" : name,
                list == nullptr ? "(null)" : list);
    if (name == nullptr) {
        TRACE("input file name was NULL");
        return TRACE_RETURN("%d", 0);
    }
    const char *extension = extensionOf(name);
    if (extension == nullptr) {
        TRACE("file \"%s\" has no extension", name);
        return TRACE_RETURN("%d", 0);
    }
    if (list == nullptr)
        list = "";
    for (const char *entry = list; *entry != '\0';) {
        const size_t length = strcspn(entry, ",;:");
        if (isEntry(extension, entry, length)) {
            TRACE("found extension \"%s\"", extension);
            return TRACE_RETURN("%d", 1);
        }
        entry += length + (entry[length] != '\0');
    }
    TRACE("file \"%s\" does not match extension \"%s\"", name, list);
    return TRACE_RETURN("%d", 0);
}

// ---- The classifier ---------------------------------------------------------------------------

// Tests for the types that do not depend on the name: returns the word of an intermediate file, an
// object file or an ELF file, or FILEID_UNKNOWN.
static uint64_t scanStream(FILE *stream)
{
    TRACE_ENTER("stream=%p", static_cast<void *>(stream));
    uint64_t type = FILEID_UNKNOWN;
    if (fileid_is_p1_fp(stream)) {
        TRACE("found p1 file");
        type = FILEID_P1;
    } else if (rewind(stream), fileid_is_obj_fp(stream)) {
        TRACE("found object file");
        type = FILEID_OBJECT;
    } else if (rewind(stream), (type = which_elf_fp(stream)) != 0) {
        TRACE("found ELF file");
    }
    return TRACE_RETURN("0x%lX", static_cast<unsigned long>(type));
}

static uint64_t scanContent(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    TRACE("scan \"%s\"", name);
    FILE *stream = fileid_open(name);
    uint64_t type = FILEID_UNKNOWN;
    if (stream == nullptr)
        TRACE("Could not open: \"%s\"", name);
    else
        type = scanStream(stream);
    if (stream != nullptr)
        fclose(stream);
    return TRACE_RETURN("0x%lX", static_cast<unsigned long>(type));
}

static uint64_t classifyLibrary(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    static const uint64_t types[] = {FILEID_LIBRARY_BAD, FILEID_LIBRARY_OBJECT,
                                     FILEID_LIBRARY_INTERMEDIATE, FILEID_LIBRARY_BOTH};
    return TRACE_RETURN("0x%lX", static_cast<unsigned long>(types[fileid_is_library(name)]));
}

static uint64_t classifyDat(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    const uint64_t type = fileid_is_metadata(name) ? FILEID_METADATA : scanContent(name);
    return TRACE_RETURN("0x%lX", static_cast<unsigned long>(type));
}

static uint64_t classifyO(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    uint64_t type = FILEID_O_UNKNOWN;
    if (fileid_is_p1(name))
        type = FILEID_O_INTERMEDIATE;
    else if (fileid_is_obj(name))
        type = FILEID_OBJECT;
    return TRACE_RETURN("0x%lX", static_cast<unsigned long>(type));
}

static uint64_t classifyObj(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    const uint64_t type = fileid_is_obj(name) ? FILEID_OBJECT : FILEID_O_UNKNOWN;
    return TRACE_RETURN("0x%lX", static_cast<unsigned long>(type));
}

static uint64_t classifyP1(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    const uint64_t type = fileid_is_p1(name) ? FILEID_P1 : scanContent(name);
    return TRACE_RETURN("0x%lX", static_cast<unsigned long>(type));
}

namespace {
struct ExtensionRow {
    const char *extension;
    uint64_t type;                          // its word, when the extension is enough
    uint64_t (*classify)(const char *name); // examines the file, when it is not
};
} // namespace

static constexpr ExtensionRow extensionRows[] = {
    {"S", FILEID_S_PREPROCESS, nullptr},
    {"a", 0, classifyLibrary},
    {"as", FILEID_AS, nullptr},
    {"asm", FILEID_ASM, nullptr},
    {"c", FILEID_C, nullptr},
    {"cfgdata", FILEID_CFGDATA, nullptr},
    {"cfgmap", FILEID_CFGMAP, nullptr},
    {"cmf", FILEID_CMF, nullptr},
    {"cof", FILEID_COFF, nullptr},
    {"crf", FILEID_CRF, nullptr},
    {"dat", 0, classifyDat},
    {"dep", FILEID_DEP, nullptr},
    {"dmp", FILEID_DMP, nullptr},
    {"elf", 0, which_elf},
    {"h", FILEID_H, nullptr},
    {"hex", FILEID_HEX, nullptr},
    {"hxl", FILEID_HXL, nullptr},
    {"i", FILEID_I, nullptr},
    {"inc", FILEID_INC, nullptr},
    {"ini", FILEID_INI, nullptr},
    {"lib", 0, classifyLibrary},
    {"lkr", FILEID_LKR, nullptr},
    {"lpp", 0, classifyLibrary},
    {"lst", FILEID_LST, nullptr},
    {"map", FILEID_MAP, nullptr},
    {"o", 0, classifyO},
    {"obj", 0, classifyObj},
    {"p1", 0, classifyP1},
    {"pre", FILEID_PRE, nullptr},
    {"qzmapp", FILEID_QZMAPP, nullptr},
    {"rlf", FILEID_RLF, nullptr},
    {"s", FILEID_S, nullptr},
    {"sdb", FILEID_SDB, nullptr},
    {"sx", FILEID_S_PREPROCESS, nullptr},
    {"sym", FILEID_SYM, nullptr},
    {"usb", FILEID_USB, nullptr},
    {"xml", FILEID_XML, nullptr},
};

static constexpr bool comesBefore(const char *a, const char *b)
{
    while (*a != '\0' && *a == *b) {
        ++a;
        ++b;
    }
    return *a < *b;
}

static constexpr bool rowsAscend()
{
    for (size_t i = 1; i < sizeof extensionRows / sizeof extensionRows[0]; ++i)
        if (!comesBefore(extensionRows[i - 1].extension, extensionRows[i].extension))
            return false;
    return true;
}
static_assert(rowsAscend(), "the rows are in the order of their extensions, each there once");

static const ExtensionRow *findRow(const char *extension)
{
    for (const ExtensionRow &row : extensionRows)
        if (row.extension[0] == extension[0] && strcmp(row.extension, extension) == 0)
            return &row;
    return nullptr;
}

uint64_t fileid(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name == nullptr ? "(null)" : name);
    if (name == nullptr) {
        TRACE("input file name was NULL");
        return TRACE_RETURN("0x%lX", 0ul);
    }
    const char *extension = extensionOf(name);
    const ExtensionRow *row = extension == nullptr ? nullptr : findRow(extension);
    uint64_t type;
    if (row == nullptr)
        type = scanContent(name);
    else
        type = row->classify == nullptr ? row->type : row->classify(name);
    if ((type & FILE_MISSING) == 0 && !osdep_fileExists(name))
        type |= FILE_MISSING;
    return TRACE_RETURN("0x%lX", static_cast<unsigned long>(type));
}

int fileid_is_asm_fid(uint64_t flags)
{
    TRACE_ENTER("flags=0x%lX", static_cast<unsigned long>(flags));
    // The bits that only the assembly sources have: their words without the properties that they
    // share with ".inc".
    constexpr uint64_t shared = 0xFFFF;
    constexpr uint64_t assembly =
        (FILEID_AS | FILEID_ASM | FILEID_S | FILEID_S_PREPROCESS) & ~shared;
    const int found = (flags & assembly) != 0;
    TRACE("%s", found ? "found asm file" : "did not find asm file");
    return TRACE_RETURN("%d", found);
}

// ---- Copying ----------------------------------------------------------------------------------

static bool copyBytes(FILE *source, FILE *destination)
{
    TRACE_ENTER("source=%p, destination=%p", static_cast<void *>(source),
                static_cast<void *>(destination));
    char buffer[16384];
    size_t length;
    while ((length = fread(buffer, 1, sizeof buffer, source)) != 0)
        if (fwrite(buffer, 1, length, destination) != length)
            return TRACE_RETURN("%d", false);
    return TRACE_RETURN("%d", ferror(source) == 0 && fflush(destination) == 0);
}

// Copies between two open streams and closes both. Whether all of it succeeded.
static bool copyStreams(FILE *source, const char *sourceName, FILE *destination,
                        const char *destinationName)
{
    TRACE_ENTER("source=\"%s\", destination=\"%s\"", sourceName, destinationName);
    bool ok = copyBytes(source, destination);
    if (!ok)
        TRACE("error copying file");
    if (fclose(source) != 0) {
        TRACE("could not close source file \"%s\", error: %d", sourceName, errno);
        ok = false;
    }
    if (fclose(destination) != 0) {
        TRACE("could not close destination file \"%s\", error: %d", destinationName, errno);
        ok = false;
    }
    return TRACE_RETURN("%d", ok);
}

// The fopen() mode of the destination for a mode of copyfile_helper(); null for an unknown mode.
static const char *openingOf(const char *mode)
{
    TRACE_ENTER("mode=\"%s\"", mode == nullptr ? "(null)" : mode);
    const char *opening = nullptr;
    if (mode != nullptr && strcmp(mode, "copied") == 0)
        opening = "wb";
    else if (mode != nullptr && strcmp(mode, "appended") == 0)
        opening = "ab";
    return TRACE_RETURN("\"%s\"", opening);
}

int copyfile_helper(const char *source, const char *destination, const char *mode)
{
    TRACE_ENTER("source=\"%s\", destination=\"%s\", mode=\"%s\"",
                source == nullptr ? "(null)" : source,
                destination == nullptr ? "(null)" : destination, mode == nullptr ? "(null)" : mode);
    if (source == nullptr || destination == nullptr) {
        TRACE("input file name was NULL");
        return TRACE_RETURN("%d", 0);
    }
    const char *opening = openingOf(mode);
    if (opening == nullptr) {
        TRACE("a file is \"copied\" or \"appended\"");
        return TRACE_RETURN("%d", 0);
    }
    if (strcmp(source, destination) == 0 || osdep_sameFile(source, destination)) {
        TRACE("source and destination files seem to be the same");
        return TRACE_RETURN("%d", 0);
    }
    FILE *in = fileid_open(source);
    if (in == nullptr) {
        TRACE("could not open source file \"%s\", error: %d", source, errno);
        return TRACE_RETURN("%d", 0);
    }
    FILE *out = fopen(destination, opening);
    if (out == nullptr) {
        TRACE("could not open destination file \"%s\", error: %d", destination, errno);
        fclose(in);
        return TRACE_RETURN("%d", 0);
    }
    const bool ok = copyStreams(in, source, out, destination);
    if (ok)
        TRACE("file \"%s\" was successfully %s to \"%s\"", source, mode, destination);
    return TRACE_RETURN("%d", ok ? 1 : 0);
}

// ---- Long strings -----------------------------------------------------------------------------

namespace {
enum : uint32_t { STRING_FIRST_SIZE = 64, STRING_LIMIT = 65535 };
} // namespace

// Replaces a full buffer of `size` bytes with one of twice the size. The old one is freed in any
// case.
static char *largerBuffer(char *buffer, uint32_t size)
{
    TRACE_ENTER("buffer=%p, size=%u", static_cast<void *>(buffer), size);
    char *larger = static_cast<char *>(malloc(size_t{2} * size));
    if (larger == nullptr) {
        TRACE("could not allocate %d bytes", static_cast<int>(2 * size));
    } else {
        TRACE("copying string to new, larger buffer, deallocating old buffer");
        memcpy(larger, buffer, size);
    }
    free(buffer);
    return static_cast<char *>(TRACE_RETURN("%p", static_cast<void *>(larger)));
}

static char *readString(FILE *stream)
{
    uint32_t size = STRING_FIRST_SIZE;
    char *buffer = static_cast<char *>(malloc(size));
    if (buffer == nullptr) {
        TRACE("could not allocate %d bytes", static_cast<int>(size));
        return nullptr;
    }
    int c = EOF;
    for (uint32_t length = 0; length <= STRING_LIMIT && (c = getc(stream)) != EOF; ++length) {
        if (length == size) {
            buffer = largerBuffer(buffer, size);
            size *= 2;
        }
        if (buffer == nullptr)
            return nullptr;
        buffer[length] = static_cast<char>(c);
        if (c == '\0')
            return buffer;
    }
    if (c != EOF)
        TRACE("expected string has exceeded reasonable length");
    free(buffer);
    return nullptr;
}

char *getString(FILE *stream)
{
    TRACE_ENTER("stream=%p", static_cast<void *>(stream));
    if (stream == nullptr) {
        TRACE("not a valid file pointer");
        return static_cast<char *>(TRACE_RETURN("%p", static_cast<void *>(nullptr)));
    }
    char *text = readString(stream);
    TRACE("text=\"%s\"", text == nullptr ? "(null)" : text);
    return static_cast<char *>(TRACE_RETURN("%p", static_cast<void *>(text)));
}
