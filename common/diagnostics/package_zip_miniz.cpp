// package_zip over miniz, which reads and writes through two functions.
#define MODULE "common/package_zip"
#include <cstdlib>

#include <miniz.h>

#include "common/base/memory.h"
#include "common/diagnostics/package_zip_internal.h"
#include "common/trace/qzdebug.h"

namespace {
enum PackageLevel : unsigned {
    LEVEL_AND_FLAGS = 6 | MZ_ZIP_FLAG_CASE_SENSITIVE,
};
} // namespace

struct PackageZip {
    mz_zip_archive archive;
};

static size_t readView(void *view, mz_uint64 offset, void *buffer, size_t size)
{
    return packageView_read(static_cast<const PackageView *>(view), offset, buffer, size);
}

static size_t writeView(void *view, mz_uint64 offset, const void *data, size_t size)
{
    return packageView_write(static_cast<const PackageView *>(view), offset, data, size);
}

// Called for the parts of the file in sequence.
static size_t readSource(void *source, mz_uint64 offset, void *buffer, size_t size)
{
    (void)offset;
    return packageSource_read(static_cast<PackageSource *>(source), buffer, size);
}

static PackageZip *newZip(PackageView *view)
{
    auto *zip = static_cast<PackageZip *>(xmalloc_must(sizeof(PackageZip)));
    mz_zip_zero_struct(&zip->archive);
    zip->archive.m_pRead = readView;
    zip->archive.m_pWrite = writeView;
    zip->archive.m_pIO_opaque = view;
    return zip;
}

static PackageZip *unlessFailed(PackageZip *zip, mz_bool good)
{
    if (good)
        return zip;
    std::free(zip);
    return nullptr;
}

PackageZip *packageZip_openReader(PackageView *view, const PackageDirectory *directory)
{
    TRACE_ENTER("view=%p", static_cast<void *>(view));
    PackageZip *zip = newZip(view);
    const mz_bool good = mz_zip_reader_init(&zip->archive, directory->end,
                                            MZ_ZIP_FLAG_DO_NOT_SORT_CENTRAL_DIRECTORY);
    return TRACE_RETURN("%p", unlessFailed(zip, good));
}

PackageZip *packageZip_start(PackageView *view)
{
    TRACE_ENTER("view=%p", static_cast<void *>(view));
    PackageZip *zip = newZip(view);
    return TRACE_RETURN("%p", unlessFailed(zip, mz_zip_writer_init(&zip->archive, 0)));
}

bool packageZip_toWriter(PackageZip *zip)
{
    TRACE_ENTER("zip=%p", static_cast<void *>(zip));
    return TRACE_RETURN("%d", mz_zip_writer_init_from_reader(&zip->archive, nullptr) != MZ_FALSE);
}

bool packageZip_addFile(PackageZip *zip, const char *member, PackageName name,
                        PackageSource *source)
{
    TRACE_ENTER("zip=%p, member=\"%s\"", static_cast<void *>(zip), member);
    // Without this flag a name is marked as UTF-8; readers refuse the whole package when it is not.
    const mz_uint flags = name == PACKAGE_NAME_BYTES ? mz_uint{MZ_ZIP_FLAG_ASCII_FILENAME} : 0;
    const auto modified = static_cast<MZ_TIME_T>(source->modified);
    const mz_bool good = mz_zip_writer_add_read_buf_callback(
        &zip->archive, member, readSource, source, source->size, &modified, nullptr, 0,
        LEVEL_AND_FLAGS | flags, nullptr, 0, nullptr, 0);
    return TRACE_RETURN("%d", good != MZ_FALSE);
}

bool packageZip_finalise(PackageZip *zip)
{
    TRACE_ENTER("zip=%p", static_cast<void *>(zip));
    return TRACE_RETURN("%d", mz_zip_writer_finalize_archive(&zip->archive) != MZ_FALSE);
}

void packageZip_end(PackageZip *zip)
{
    TRACE_ENTER("zip=%p", static_cast<void *>(zip));
    if (zip != nullptr) {
        if (mz_zip_get_mode(&zip->archive) == MZ_ZIP_MODE_READING)
            mz_zip_reader_end(&zip->archive);
        else
            mz_zip_writer_end(&zip->archive);
        std::free(zip);
    }
}
