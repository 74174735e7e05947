// What package_zip's common half and its implementations share; not for other modules.
//
// The common half opens and checks the files. An implementation sees an archive through a
// `PackageView`, which is laid out as a plain archive: reading comes from the old package, writing
// goes to the new one, the offsets of both are those of the archive (nothing in front of it), and
// it ends with its end record, without the archive comment.
#ifndef COMMON_DIAGNOSTICS_PACKAGE_ZIP_INTERNAL_H
#define COMMON_DIAGNOSTICS_PACKAGE_ZIP_INTERNAL_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

// ---- The directory of an archive --------------------------------------------------------------

struct PackageDirectory {
    uint64_t front;       // bytes in front of the archive; all offsets below count from its start
    uint64_t offset;      // of the first entry
    uint64_t size;        // of all entries, in bytes
    uint64_t count;       // of the entries
    uint64_t end;         // where the end record ends, and the comment begins
    uint32_t commentSize; // in bytes
};

// Finds and checks the directory of the archive in `stream`, which is `size` bytes long. True when
// all of it agrees.
bool packageDirectory_read(FILE *stream, uint64_t size, PackageDirectory *directory);

// ---- What an implementation works on ----------------------------------------------------------

struct PackageView {
    FILE *old;         // the existing package, or null
    FILE *fresh;       // the growing one, or null while only reading
    uint64_t front;    // bytes in front of the archive, in both
    uint64_t readable; // bytes of the archive that can be read
    uint64_t position; // for an implementation whose accesses are sequential
};

// Read or write at an offset of the archive; return the number of bytes moved. Reading ends at the
// end record.
size_t packageView_read(const PackageView *view, uint64_t offset, void *buffer, size_t size);
size_t packageView_write(const PackageView *view, uint64_t offset, const void *data, size_t size);

struct PackageSource {
    FILE *stream;     // the file that is being added
    uint64_t size;    // when it was opened; no more than this is read
    uint64_t done;    // bytes read so far
    int64_t modified; // seconds from 1970, a date that the format has
    bool failed;      // a read has failed
};

// The next bytes of the file; 0 at its end and when reading has failed.
size_t packageSource_read(PackageSource *source, void *buffer, size_t size);

// How a member's name is to be marked.
enum PackageName : unsigned {
    PACKAGE_NAME_ASCII,
    PACKAGE_NAME_UTF8,  // and not all of it ASCII
    PACKAGE_NAME_BYTES, // anything else
};

// ---- What an implementation provides ----------------------------------------------------------

struct PackageZip; // its state

// Open what the view reads; or nothing, to start an archive. Null on failure.
PackageZip *packageZip_openReader(PackageView *view, const PackageDirectory *directory);
PackageZip *packageZip_start(PackageView *view);

// The further steps; true on success. The view must be able to write from here on.
bool packageZip_toWriter(PackageZip *zip);
bool packageZip_addFile(PackageZip *zip, const char *member, PackageName name,
                        PackageSource *source);
bool packageZip_finalise(PackageZip *zip);

// Frees the state, in whatever condition it is; null is allowed.
void packageZip_end(PackageZip *zip);

#endif
