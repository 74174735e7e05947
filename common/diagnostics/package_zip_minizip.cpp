// package_zip over minizip (zlib's), which opens, seeks and tells through a table of functions.
#define MODULE "common/package_zip"
#include <cstdlib>
#include <ctime>

#include <minizip/zip.h>
#include <zlib.h>

#include "common/base/memory.h"
#include "common/diagnostics/package_zip_internal.h"
#include "common/trace/qzdebug.h"

namespace {
enum : unsigned {
    LEVEL = 6,
    MADE_ON_UNIX = 3 << 8 | 20, // makes the attributes Unix permissions; format 2.0
    ATTRIBUTES = 0100644,       // a regular file, readable by all
    FLAG_UTF8_NAME = 1 << 11,
    MOST_ENTRIES = 0xfffe, // with more, minizip writes a wrong count
    CHUNK = 65536,
};
} // namespace

static constexpr uint64_t ZIP64_SIZE = 0xffffffff - CHUNK; // a margin for data that grows

struct PackageZip {
    zlib_filefunc64_def functions;
    zipFile file;   // null while reading, and once closed
    uint64_t count; // of the entries
};

// ---- The table of functions -------------------------------------------------------------------

static voidpf ZCALLBACK openView(voidpf view, const void *name, int mode)
{
    (void)name;
    (void)mode;
    static_cast<PackageView *>(view)->position = 0;
    return view;
}

static uLong ZCALLBACK readView(voidpf opaque, voidpf stream, void *buffer, uLong size)
{
    (void)opaque;
    auto *view = static_cast<PackageView *>(stream);
    const size_t done = packageView_read(view, view->position, buffer, size);
    view->position += done;
    return done;
}

static uLong ZCALLBACK writeView(voidpf opaque, voidpf stream, const void *data, uLong size)
{
    (void)opaque;
    auto *view = static_cast<PackageView *>(stream);
    const size_t done = packageView_write(view, view->position, data, size);
    view->position += done;
    return done;
}

static ZPOS64_T ZCALLBACK tellView(voidpf opaque, voidpf stream)
{
    (void)opaque;
    return static_cast<const PackageView *>(stream)->position;
}

static long ZCALLBACK seekView(voidpf opaque, voidpf stream, ZPOS64_T offset, int origin)
{
    (void)opaque;
    auto *view = static_cast<PackageView *>(stream);
    uint64_t from = 0;
    if (origin == ZLIB_FILEFUNC_SEEK_CUR)
        from = view->position;
    else if (origin == ZLIB_FILEFUNC_SEEK_END)
        from = view->readable;
    view->position = from + offset;
    return 0;
}

// The caller owns the files and checks them for errors.
static int ZCALLBACK doNothing(voidpf opaque, voidpf stream)
{
    (void)opaque;
    (void)stream;
    return 0;
}

static PackageZip *newZip(PackageView *view, uint64_t count)
{
    auto *zip = static_cast<PackageZip *>(xmalloc_must(sizeof(PackageZip)));
    zip->functions = {openView, readView,  writeView, tellView,
                      seekView, doNothing, doNothing, view};
    zip->count = count;
    return zip;
}

// ---- The steps --------------------------------------------------------------------------------

// minizip opens an archive for reading and writing at once. So nothing is opened yet: the common
// half has checked the directory, and minizip opens the archive when it is to write.
PackageZip *packageZip_openReader(PackageView *view, const PackageDirectory *directory)
{
    TRACE_ENTER("view=%p", static_cast<void *>(view));
    return TRACE_RETURN("%p", newZip(view, directory->count));
}

static bool openFile(PackageZip *zip, int append)
{
    zip->file = zipOpen2_64("", append, nullptr, &zip->functions);
    return zip->file != nullptr;
}

PackageZip *packageZip_start(PackageView *view)
{
    TRACE_ENTER("view=%p", static_cast<void *>(view));
    PackageZip *zip = newZip(view, 0);
    if (!openFile(zip, APPEND_STATUS_CREATE)) {
        std::free(zip);
        zip = nullptr;
    }
    return TRACE_RETURN("%p", zip);
}

bool packageZip_toWriter(PackageZip *zip)
{
    TRACE_ENTER("zip=%p", static_cast<void *>(zip));
    return TRACE_RETURN("%d", zip->count < MOST_ENTRIES && openFile(zip, APPEND_STATUS_ADDINZIP));
}

static zip_fileinfo infoOf(const PackageSource *source)
{
    zip_fileinfo info = {};
    info.external_fa = static_cast<uLong>(ATTRIBUTES) << 16;
    const auto seconds = static_cast<time_t>(source->modified);
    if (const tm *local = std::localtime(&seconds))
        info.tmz_date = {
            static_cast<uInt>(local->tm_sec),  static_cast<uInt>(local->tm_min),
            static_cast<uInt>(local->tm_hour), static_cast<uInt>(local->tm_mday),
            static_cast<uInt>(local->tm_mon),  static_cast<uInt>(local->tm_year + 1900)};
    return info;
}

static bool packSource(zipFile file, PackageSource *source)
{
    auto *buffer = static_cast<char *>(xmalloc_must(CHUNK));
    bool good = true;
    while (good) {
        const size_t got = packageSource_read(source, buffer, CHUNK);
        if (got == 0)
            break;
        good = zipWriteInFileInZip(file, buffer, static_cast<unsigned>(got)) == ZIP_OK;
    }
    std::free(buffer);
    return good;
}

bool packageZip_addFile(PackageZip *zip, const char *member, PackageName name,
                        PackageSource *source)
{
    TRACE_ENTER("zip=%p, member=\"%s\"", static_cast<void *>(zip), member);
    const zip_fileinfo info = infoOf(source);
    const uLong flags = name == PACKAGE_NAME_UTF8 ? uLong{FLAG_UTF8_NAME} : 0;
    const int zip64 = source->size >= ZIP64_SIZE;
    if (zip->count >= MOST_ENTRIES ||
        zipOpenNewFileInZip4_64(zip->file, member, &info, nullptr, 0, nullptr, 0, nullptr,
                                Z_DEFLATED, LEVEL, 0, -MAX_WBITS, MAX_MEM_LEVEL - 1,
                                Z_DEFAULT_STRATEGY, nullptr, 0, MADE_ON_UNIX, flags,
                                zip64) != ZIP_OK)
        return TRACE_RETURN("%d", false);
    ++zip->count;
    const bool packed = packSource(zip->file, source);
    const bool closed = zipCloseFileInZip(zip->file) == ZIP_OK;
    return TRACE_RETURN("%d", packed && closed);
}

bool packageZip_finalise(PackageZip *zip)
{
    TRACE_ENTER("zip=%p", static_cast<void *>(zip));
    const int status = zipClose(zip->file, "");
    zip->file = nullptr;
    return TRACE_RETURN("%d", status == ZIP_OK);
}

void packageZip_end(PackageZip *zip)
{
    TRACE_ENTER("zip=%p", static_cast<void *>(zip));
    if (zip != nullptr && zip->file != nullptr)
        zipClose(zip->file, ""); // frees its memory
    std::free(zip);
}
