// package_zip: appends one file to a zip package. One of two implementations is built, over miniz
// or over minizip; docs/debugging.md says how to choose.
//
//     if (package_append("qzm_package.zip", "qzm-cc-1.out", "qzm-cc-1.out") != PACKAGE_DONE) ...
//
// A package is never damaged: the new one is written beside the old and takes its place when it is
// complete. Programs that append to the same package at the same time wait for each other.
#ifndef COMMON_PACKAGE_ZIP_H
#define COMMON_PACKAGE_ZIP_H

// The first step that failed, in the order of the steps.
enum PackageResult : unsigned {
    PACKAGE_DONE,
    PACKAGE_NOT_OPENED,    // the existing package could not be opened for reading
    PACKAGE_NOT_CONVERTED, // its reader could not be turned into a writer
    PACKAGE_NOT_STARTED,   // a new package could not be started
    PACKAGE_NOT_ADDED,     // the file could not be added
    PACKAGE_NOT_FINALIZED, // the directory could not be written
    PACKAGE_NOT_ENDED,     // the package could not be completed
};

// Adds the file `path` as `member` (compression level 6) to the zip file `package`, which is
// created when it does not exist. On any failure an existing package is as it was.
PackageResult package_append(const char *package, const char *member, const char *path);

#endif
