#define MODULE "common/qzinstdir"

#include "common/install/qzinstdir.h"

#include <cstdlib>
#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/memory.h"
#include "common/base/stringcache.h"
#include "common/os/osdep_file.h"
#include "common/os/osdep_host.h"
#include "common/text/osdep_path.h"
#include "common/trace/qzdebug.h"

// By kind. The names of the first two kinds are not used in paths: their directories are stored
// whole.
static const char *const kindNames[QZINSTDIR_LAST] = {
    "qzm", "v*", "bin", "docs", "include", "etc", "orb", "elm", "legasm", "orb-as",
};

static const char *s_versionDirectory = nullptr;
static const char *s_installDirectory = nullptr;

// Set once "orb" was found in the version directory.
static bool s_orbSeen = false;

// The directory above `path`, the caller's to free; null for a root and for a single name.
static char *parentDirectory(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    char *parent = strcmp(path, "/") == 0 ? nullptr : osdep_dirName(path);
    if (parent != nullptr && *parent == '\0') {
        free(parent);
        parent = xstrdup_must("/");
    }
    return TRACE_RETURN("\"%s\"", parent);
}

// Frees `path` and returns the directory above it, or null.
static char *upFrom(char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    char *parent = parentDirectory(path);
    if (parent == nullptr)
        TRACE("ERROR - path not deep enough?");
    free(path);
    return TRACE_RETURN("\"%s\"", parent);
}

// The last name of `path`, a pointer into it; null when it has none.
static const char *lastName(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    const char *name = osdep_baseName(path);
    if (name == nullptr || *name == '\0') {
        TRACE("ERROR - couldn't get a basename from the path: \"%s\"", path);
        name = nullptr;
    }
    return TRACE_RETURN("\"%s\"", name);
}

// The directory that the program runs from, the caller's to free, or null.
static char *programDirectory()
{
    TRACE_ENTER();
    char *program = osdep_exePath();
    char *directory = program != nullptr ? osdep_dirName(program) : nullptr;
    free(program);
    size_t length = directory != nullptr ? strlen(directory) : 0;
    while (length > 0 && (directory[length - 1] == '.' || directory[length - 1] == '/'))
        directory[--length] = '\0';
    if (length == 0) {
        TRACE("ERROR - couldn't get a path based on progname");
        free(directory);
        directory = nullptr;
    } else {
        TRACE("Application appears to be running from directory: \"%s\"", directory);
    }
    return TRACE_RETURN("\"%s\"", directory);
}

// Takes a "bin" directory and returns the one above it, or null. Frees `path`.
static char *leaveBin(char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    const char *name = lastName(path);
    if (name == nullptr || strcmp(name, "bin") != 0) {
        if (name != nullptr)
            TRACE("ERROR - the application is not running from a 'bin' directory");
        free(path);
        return TRACE_RETURN("\"%s\"", static_cast<char *>(nullptr));
    }
    return TRACE_RETURN("\"%s\"", upFrom(path));
}

// Takes the directory above "bin" and returns the version directory, which is the same one or the
// one above; null on failure. Frees `path`.
static char *leaveToolTree(char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    // A name with an extension is neither of the two, so the extension need not be taken off.
    const char *name = lastName(path);
    if (name == nullptr) {
        free(path);
        return TRACE_RETURN("\"%s\"", static_cast<char *>(nullptr));
    }
    if (strcmp(name, "orb") == 0)
        TRACE("Identified as running from the 'orb' directory: \"%s\"", path);
    else if (strcmp(name, "orb-as") == 0)
        TRACE("Identified as running from the 'orb-as' directory: \"%s\"", path);
    else
        return TRACE_RETURN("\"%s\"", path);
    return TRACE_RETURN("\"%s\"", upFrom(path));
}

// 1 when `version` contains the directory "orb".
static int holdsOrb(const char *version)
{
    TRACE_ENTER("version=\"%s\"", version);
    char *orb = osdep_pathJoin(version, kindNames[QZINSTDIR_ORB]);
    int found = osdep_isDirectory(orb);
    if (found)
        TRACE("Identified 'orb' directory: \"%s\"", orb);
    else
        TRACE("The 'orb' directory could not be found: \"%s\"", orb);
    free(orb);
    return TRACE_RETURN("%d", found);
}

// Stores both directories and takes over `version`. 0, with nothing stored, when it has no parent.
static int storeDirectories(char *version)
{
    TRACE_ENTER("version=\"%s\"", version);
    s_versionDirectory = cache_adopt(version);
    TRACE("qzinstall_ver has been set to: \"%s\"", s_versionDirectory);
    s_installDirectory = cache_adopt(parentDirectory(s_versionDirectory));
    if (s_installDirectory == nullptr) {
        s_versionDirectory = nullptr;
        return TRACE_RETURN("%d", 0);
    }
    TRACE("qzinstall_dir has been set to: \"%s\"", s_installDirectory);
    return TRACE_RETURN("%d", 1);
}

// Determines the two directories from the location of the program. 1 on success.
static int setQzinstallPaths()
{
    TRACE_ENTER();
    char *path = programDirectory();
    if (path != nullptr)
        path = leaveBin(path);
    if (path != nullptr)
        path = leaveToolTree(path);
    if (path == nullptr)
        return TRACE_RETURN("%d", 0);
    if (!holdsOrb(path)) {
        free(path);
        return TRACE_RETURN("%d", 0);
    }
    int stored = storeDirectories(path);
    s_orbSeen = stored != 0;
    return TRACE_RETURN("%d", stored);
}

const char *qzinstdir(int kind)
{
    TRACE_ENTER("kind=%d", kind);
    ASSERT_TEXT_AT(10, kind >= QZINSTDIR_FIRST && kind < QZINSTDIR_LAST,
                   "(path >= QZINSTDIR_FIRST) && (path < QZINSTDIR_LAST)");
    if ((s_versionDirectory == nullptr || s_installDirectory == nullptr) && !setQzinstallPaths())
        return TRACE_RETURN("\"%s\"", static_cast<const char *>(nullptr));
    if (kind == QZINSTDIR_INSTALL) {
        TRACE("Returning install directory: \"%s\"", s_installDirectory);
        return TRACE_RETURN("\"%s\"", s_installDirectory);
    }
    if (kind == QZINSTDIR_VERSION) {
        TRACE("Returning ver directory: \"%s\"", s_versionDirectory);
        return TRACE_RETURN("\"%s\"", s_versionDirectory);
    }
    TRACE("Returning concatenation of \"%s\" and \"%s\"", s_versionDirectory, kindNames[kind]);
    return TRACE_RETURN("\"%s\"", cache_adopt(osdep_pathJoin(s_versionDirectory, kindNames[kind])));
}

int qzinstdir_hasOrb()
{
    TRACE_ENTER();
    if (!s_orbSeen)
        s_orbSeen = osdep_isDirectory(qzinstdir(QZINSTDIR_ORB)) != 0;
    return TRACE_RETURN("%d", s_orbSeen ? 1 : 0);
}

int qzinstdir_set(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    if (!osdep_fileExists(path)) {
        TRACE("Path doesn't exist: \"%s\"", path);
        return TRACE_RETURN("%d", 1);
    }
    char *version = osdep_absolutePath(path);
    char *parent = version != nullptr ? parentDirectory(version) : nullptr;
    if (!osdep_fileExists(parent)) {
        TRACE("Path doesn't exist: \"%s\"", parent);
        free(version);
        free(parent);
        return TRACE_RETURN("%d", 1);
    }
    s_versionDirectory = cache_adopt(version);
    s_installDirectory = cache_adopt(parent);
    s_orbSeen = false;
    TRACE("Install dir set to: \"%s\"", s_versionDirectory);
    return TRACE_RETURN("%d", 0);
}
