// shahash: digests of files, hash lists of directory trees, and installation manifests.
//
//     Vector *files = vec_new(MODULE, __LINE__);      // of FileEntry
//     process_dir(osdep_osFlags(), files, ".", ".");
//
//     shahash_writeList(style, ".", "manifest");       // one line "DIGEST *NAME" per file
//     if (!shahash_checkList(root, "manifest")) ...
//
// A path style is a flag word in which OSFLAG_WINDOWS selects the backslash as separator in listed
// names; files themselves are always opened with "/". A file that exists but cannot be opened or
// read for digesting ends the run with status 1 and a message. The formats are described in
// docs/hash-list.md and docs/xml-files.md.
#ifndef COMMON_FORMATS_SHAHASH_H
#define COMMON_FORMATS_SHAHASH_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

struct OsdepOpenDirectory;
struct Vector;
struct UxmlNode;

inline constexpr size_t SHA256_SIZE = 32; // bytes of a digest; the text form is twice as long
inline constexpr size_t SHA1_SIZE = 20;

// One file of a list.
struct FileEntry {
    const char *name;   // interned
    const char *digest; // 64 lower-case hexadecimal characters, interned
};

// The digest of the rest of an open file. False on a read error and for a null argument.
bool sha256_file(FILE *file, uint8_t digest[SHA256_SIZE]);
bool sha1_file(FILE *file, uint8_t digest[SHA1_SIZE]);

// The digest text of a file, interned. Ends the run with status 1 when it cannot be opened or read,
// or is not a regular file: a named pipe or device is never opened.
const char *sha256_path(const char *path);
const char *sha1_path(const char *path);

// Adds an entry for every regular file below `dir`, recursively, in the system's order; a listed
// name is `prefix` (which may be null or empty) joined with the name below `dir`. A directory that
// cannot be opened adds nothing. Symbolic links: see docs/hash-list.md. Neither `files` nor `dir`
// may be null. The entries are the caller's, for shahash_freeEntries().
void process_dir(uint32_t style, Vector *files, const char *dir, const char *prefix);

// Frees a vector of file entries with its entries. Null is allowed.
void shahash_freeEntries(Vector *entries);

// Writes the hash list of `dir` to the file `destination`, which is replaced only when the whole
// list has been written. False when that failed; if the reason is a name with a line end, which
// cannot be listed, after a message.
bool shahash_writeList(uint32_t style, const char *dir, const char *destination);
bool shahash_writeListDefault(const char *dir, const char *destination);

// The same for an open directory, with names that begin with ".". A directory that cannot be opened
// or read to its end is not in the list; for each, `unread` (or null) gets a text for a message:
// its path in quotes and the system's reason, interned. Where that leaves nothing to list, nothing
// is written.
bool shahash_writeListOf(uint32_t style, const OsdepOpenDirectory *directory,
                         const char *destination, Vector *unread);

// The entries of a hash list in the order of its lines, each name joined to `prefix` (or as listed,
// when that is null or empty), for shahash_freeEntries(). Null when it cannot be read, is empty, or
// holds a line without a blank, with a NUL or beyond the limit of common/text/line_reader.h.
Vector *shahash_readList(const char *path, const char *prefix);

// 1 when every file of the list matches, else 0; the check stops at the first that does not. With a
// directory, the names are looked up there; the current directory does not change. An empty list
// gives 0, since it proves nothing.
int shahash_checkList(const char *directory, const char *path);

// Whether the regular file exists and has this digest. Null arguments give false.
bool shahash_checkFile(const char *digest, const char *path);

// 1 when all entries match, else 0; every existing file is digested. Null gives 0, as does a null
// entry, name or digest. An empty vector gives 1, unlike an empty list file, for which
// shahash_readList() returns null.
int shahash_checkEntries(Vector *entries);

// Writes the manifest of `dir` as "vxpSECONDS.xml" into `outputDirectory`, with the nodes `extra`
// (a vector of UxmlNode, or null; they become part of the document and are freed with it) before
// the files. False when it could not be written completely; the run ends when it cannot be opened.
bool shahash_writeManifest(uint32_t style, const char *dir, const char *outputDirectory,
                           Vector *extra);
bool shahash_writeManifestDefault(const char *dir, const char *outputDirectory, Vector *extra);

// 1 when all files named by the manifests in `manifestDirectory` match, where the newest manifest
// that names a file decides (of two of the same age, the one whose file name sorts first); else 0,
// and also without any manifest. A file "vxp...xml" that does not have a manifest's structure
// throughout is ignored; one that cannot be opened ends the run. With a directory, the names are
// looked up there; the current directory does not change.
int shahash_checkManifests(const char *directory, const char *manifestDirectory);

#endif
