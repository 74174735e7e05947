// package_zip: adds files to a zip package, in steps whose failures the caller reports. One of two
// implementations is built, over miniz or over minizip; docs/debugging.md says how to choose.
//
//     Package *package = package_claim("qzm_package.zip");
//     int open = 0;
//     if (package_exists(package)) {
//         open = package_openReader(package);
//         if (open && !package_toWriter(package))
//             ... cannot be appended to; the later steps will fail, too ...
//     } else {
//         open = package_startWriter(package);
//     }
//     if (open) {
//         if (!package_addFile(package, "build/qzm-cc-1.out", "build/qzm-cc-1.out")) ...
//         if (!package_finalise(package)) ...
//         if (!package_end(package)) ...
//     }
//     package_release(package);
//
// Each step returns 1 when it succeeded and 0 when it failed; a step out of order fails. A null
// package is a broken contract and ends the run unless a function says otherwise; a null name
// counts as an empty one.
//
// An existing package is never written to. The new one grows beside it (as ".NAME.XXXXXX") and
// takes its place in one step at the end, when every step before has succeeded and the result has
// been read back: all old members and the new ones. Wherever this program is stopped, either the
// old package or the new one is there, whole. The unfinished file is removed at the end of the run,
// except after a kill signal that cannot be caught. The new package keeps the old one's
// permissions, its archive comment, and any data before the archive (a self-extractor). A symbolic
// link stays and its target is replaced; other hard links keep the old package.
//
// Programs that write to packages in the same directory wait for each other, from the claim to the
// release. So claim a package only briefly, and only one at a time: a second claim would wait for
// the first for ever.
#ifndef COMMON_DIAGNOSTICS_PACKAGE_ZIP_H
#define COMMON_DIAGNOSTICS_PACKAGE_ZIP_H

struct Package;

// Waits until no other process writes to the package at `path`. Always returns a record, which
// package_release() frees: where the directory cannot be locked (it does not exist, cannot be read,
// or its file system has no locks) the steps that open fail.
Package *package_claim(const char *path);

// Whether the path exists, links followed.
int package_exists(const Package *package);

// Opens the existing package for reading and checks its directory. Fails when it is not a regular
// file, cannot be read, or is not a complete zip archive on one disk whose directory is consistent
// (number of entries, their sizes and positions) and has at most 64 MiB.
int package_openReader(Package *package);

// Turns the reader into a writer that appends after the last member. Fails without an open reader,
// when the package may not be written to, or when the new one cannot be created beside it.
int package_toWriter(Package *package);

// Starts a new package where none exists. Fails when it cannot be created.
int package_startWriter(Package *package);

// Adds the file at `path` as `member` (compression level 6, the file's time), at its current
// length: data appended to it meanwhile is left out. Names are bytes; a package may hold the same
// name twice. Fails without a writer, for a name that is empty, longer than 65535 bytes or that the
// implementation does not take, and when the file is not a regular one or cannot be read, or the
// package cannot be written.
int package_addFile(Package *package, const char *member, const char *path);

// Writes the package's directory. Fails without a writer and when it cannot be written.
int package_finalise(Package *package);

// Ends the writer and puts the new package in its place. After a failure of an earlier step the old
// package stays (or there is still none), and this step succeeds all the same. Fails without a
// writer that package_finalise() was called for; and, leaving the old package unchanged, when the
// new one does not read back whole or cannot take its place.
int package_end(Package *package);

// Removes an unfinished package, releases the lock and frees the record. Null is allowed.
void package_release(Package *package);

#endif
