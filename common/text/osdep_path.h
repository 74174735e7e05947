// Path arithmetic: paths are taken apart and put together as text; nothing is looked up on the
// disk.
//
//     char *path = osdep_pathJoin(directory, "main.c");
//     char *name = osdep_stem(path);                        // "main"
//
// Results are new strings, the caller's to free(), unless it says otherwise. A null path gives null
// (or 0).
#ifndef COMMON_TEXT_OSDEP_PATH_H
#define COMMON_TEXT_OSDEP_PATH_H

#include <cstdint>

enum OsFlag : uint32_t {
    OSFLAG_WINDOWS = 0x10000, // backslash separates paths, programs end in ".exe"
    OSFLAG_POSIX = 0x80000,
    OSFLAG_UNKNOWN = 0x100000,            // the system could not be identified
    OSFLAG_LONG_COMMAND_LINE = 0x1000000, // Windows: the newer command-line limit
};

// dir + "/" + name. One "/" at the end of dir and one at the start of name are dropped, so that
// "a/" and "/b" give "a/b"; further ones stay. An empty name leaves the "/" at the end; an empty
// dir gives null. The second form joins with a backslash, and drops backslashes, when `flags` say
// Windows.
char *osdep_pathJoin(const char *dir, const char *name);
char *osdep_pathJoinFor(uint32_t flags, const char *dir, const char *name);

// Collapses repeated slashes, drops "/./", resolves "/../" (never above the start) and drops one
// trailing "/", except that of a drive root or of a result shorter than three characters. A "." or
// ".." at the start or end of the path stays; so does the ".." of a relative path that climbs above
// its start. Links are not followed. Only an empty path gives an empty result.
char *osdep_normalisePath(const char *path);

// Whether the path begins at the root.
int osdep_isAbsolute(const char *path);

// The text after the last "/": a pointer into the argument, or a copy.
const char *osdep_baseName(const char *path);
char *osdep_baseNameCopy(const char *path);

// The base name without its extension; and the same with the extension's dot kept.
char *osdep_stem(const char *path);
char *osdep_stemDot(const char *path);

// A pointer to the last "." of the path, or to an empty string.
const char *osdep_extension(const char *path);

// Everything before the last "/", or null when there is none.
char *osdep_dirName(const char *path);

#endif
