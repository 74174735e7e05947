// Shared by package_zip's common half and its implementations; not for other modules.
//
// The common half opens and checks the files. An implementation sees an archive through a
// `PackageView`, which is laid out as a plain archive: reads come from the old package and writes
// go to the new one; offsets in both count from the start of the archive, without any data before
// it; and it ends with its end record, without the archive comment.
#ifndef COMMON_DIAGNOSTICS_PACKAGE_ZIP_INTERNAL_H
#define COMMON_DIAGNOSTICS_PACKAGE_ZIP_INTERNAL_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

// ---- The directory of an archive --------------------------------------------------------------

struct PackageDirectory {
    uint64_t front;  // bytes before the archive; all offsets below count from the archive's start
    uint64_t offset; // of the first entry
    uint64_t size;   // of all entries, in bytes
    uint64_t count;  // of the entries
    uint64_t end;    // where the end record ends, and the comment begins
    uint32_t commentSize; // in bytes
};

// Finds and checks the directory of the archive in `stream`, which is `size` bytes long. True when
// it is consistent.
bool packageDirectory_read(FILE *stream, uint64_t size, PackageDirectory *directory);

// ---- The data of an implementation -------------------------------------------------------------

struct PackageView {
    FILE *old;         // the existing package, or null
    FILE *fresh;       // the growing package, or null while only reading
    uint64_t front;    // bytes before the archive, in both
    uint64_t readable; // bytes of the archive that can be read
    uint64_t position; // for an implementation whose accesses are sequential
};

// Read or write at an offset of the archive; return the number of bytes moved. Reading ends at the
// end record.
size_t packageView_read(const PackageView *view, uint64_t offset, void *buffer, size_t size);
size_t packageView_write(const PackageView *view, uint64_t offset, const void *data, size_t size);

struct PackageSource {
    FILE *stream;     // the file that is being added
    uint64_t size;    // at the time it was opened; no more is read
    uint64_t done;    // bytes read so far
    int64_t modified; // seconds from 1970, within the format's range
    bool failed;      // a read has failed
};

// The next bytes of the file; 0 at its end and when reading has failed.
size_t packageSource_read(PackageSource *source, void *buffer, size_t size);

// How a member's name is to be marked.
enum PackageName : unsigned {
    PACKAGE_NAME_ASCII,
    PACKAGE_NAME_UTF8,  // UTF-8, and not all of it ASCII
    PACKAGE_NAME_BYTES, // anything else
};

// ---- The functions of an implementation --------------------------------------------------------

struct PackageZip; // its state

// Open the archive that the view reads, or start a new one. Null on failure.
PackageZip *packageZip_openReader(PackageView *view, const PackageDirectory *directory);
PackageZip *packageZip_start(PackageView *view);

// The further steps; true on success. The view must be able to write from here on.
bool packageZip_toWriter(PackageZip *zip);
bool packageZip_addFile(PackageZip *zip, const char *member, PackageName name,
                        PackageSource *source);
bool packageZip_finalise(PackageZip *zip);

// Frees the state, whatever condition it is in. Null is allowed.
void packageZip_end(PackageZip *zip);

#endif
