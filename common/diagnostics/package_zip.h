// package_zip: adds files to a zip package, in steps whose failures the caller words. One of two
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
// Each step returns 1 when it succeeded and 0 when it failed; a step that is out of turn fails. A
// null package is a broken contract and ends the run unless a function says otherwise; a null name
// is like an empty one.
//
// An existing package is never written to. The new one grows beside it (as ".NAME.XXXXXX") and
// takes its place in one step at the end, when every step before has succeeded and the result has
// been read back: all old members and the new ones. Whoever stops this program at any point leaves
// the old package or the new one, whole; what was growing is removed at the end of the run, except
// after a kill that nobody can answer. Its permissions are kept, its archive comment, and what
// stands in front of the archive (a self-extractor). A symbolic link stays, its target is replaced;
// other hard links keep the old package.
//
// Programs that write to packages in the same directory wait for each other, from the claim to the
// release. So claim only for a moment, and one package at a time: a second claim would wait for the
// first for ever.
#ifndef COMMON_DIAGNOSTICS_PACKAGE_ZIP_H
#define COMMON_DIAGNOSTICS_PACKAGE_ZIP_H

struct Package;

// Waits until nobody else writes to the package at `path`. Always returns a record, which
// package_release() frees: where the directory cannot be locked (it does not exist, cannot be read,
// or its file system has no locks) the steps that open fail.
Package *package_claim(const char *path);

// Whether there is anything of that name, links followed.
int package_exists(const Package *package);

// Opens the existing package for reading and checks its directory. Fails for what is no regular
// file, cannot be read, or is not a complete zip archive on one disk whose directory agrees with
// itself (number of entries, their sizes and places, at most 64 MiB of it).
int package_openReader(Package *package);

// Turns the reader into a writer that goes on behind the last member. Fails without an open reader,
// when the package may not be written to, or when the new one cannot be made beside it.
int package_toWriter(Package *package);

// Starts a new package where there is none. Fails when it cannot be made.
int package_startWriter(Package *package);

// Adds the file at `path` as `member` (compression level 6, the file's time), as long as it is now:
// what is written to it meanwhile is left out. Names are bytes; a package may hold one twice. Fails
// without a writer, for a name that is empty, longer than 65535 bytes or that the implementation
// does not take, and when the file is no regular one, cannot be read, or the package cannot be
// written.
int package_addFile(Package *package, const char *member, const char *path);

// Writes the package's directory. Fails without a writer and when it cannot be written.
int package_finalise(Package *package);

// Ends the writer and puts the new package in its place. After a failure of an earlier step the old
// package stays (or there is still none), and this step succeeds all the same. Fails without a
// writer that package_finalise() was called for; and, with the old package as it was, when the new
// one does not read back whole or cannot take its place.
int package_end(Package *package);

// Removes what has not come into place, lets others go on and frees the record. Null is allowed.
void package_release(Package *package);

#endif
