#define MODULE "common/qzdebug"
#include "common/trace/qzdebug.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/base/hash.h"
#include "common/base/skiplist.h"
#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/diagnostics/package_zip.h"
#include "common/diagnostics/qzdebug_internal.h"
#include "common/diagnostics/qzdebug_options.h"
#include "common/os/osdep_directory.h"
#include "common/os/osdep_file.h"
#include "common/os/osdep_host.h"
#include "common/trace/container_report.h"

static const char DRIVER[] = "qzm-cc";
static const char ROOT[] = "SYSTEM_ROOT"; // in a package, replaces the root directory

static const char *s_component; // null until the run has started its work

void qzdebug_setComponent(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    s_component = name;
}

// ---- The package ------------------------------------------------------------------------------

static const char *memberName(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    if (path[0] == '/')
        path = cache_sprintf("%s/%s", ROOT, path + 1);
    return TRACE_RETURN("\"%s\"", cache_separators(path, '/'));
}

// Opens the package for one more member. 0 when it cannot be written to.
static int openPackage(Package *package, const char *name, const char *member)
{
    TRACE_ENTER("name=\"%s\", member=\"%s\"", name, member);
    if (!package_exists(package)) {
        const int started = package_startWriter(package);
        if (!started)
            qzdebug_warning("Unable to init package zip file (%s) to add \"%s\"", name, member);
        return TRACE_RETURN("%d", started);
    }
    const int opened = package_openReader(package);
    if (!opened)
        qzdebug_warning("Unable to open package zip file (%s) for reading to append \"%s\"", name,
                        member);
    else if (!package_toWriter(package))
        qzdebug_warning("Unable to covert package zip file (%s) reader to a writer to append "
                        "\"%s\"",
                        name, member);
    return TRACE_RETURN("%d", opened);
}

static void pack(const char *name, const char *path)
{
    TRACE_ENTER("name=\"%s\", path=\"%s\"", name, path);
    const char *member = memberName(path);
    Package *package = package_claim(name);
    if (openPackage(package, name, member)) {
        if (!package_addFile(package, member, path))
            qzdebug_warning("Unable to add archive \"%s\" (from \"%s\") to package zip (%s)",
                            member, path, name);
        if (!package_finalise(package))
            qzdebug_warning("Unable to finalize package zip (%s) after adding \"%s\"", name,
                            member);
        if (!package_end(package))
            qzdebug_warning("Unable to end package zip (%s) after adding \"%s\"", name, member);
    }
    package_release(package);
}

// False only when the file is known to be gone. One that cannot be examined is packed, or the
// package reports why not.
static bool isTraceThere()
{
    TRACE_ENTER();
    const bool there = osdep_fileExists(gFilePath) != 0 || (errno != ENOENT && errno != ENOTDIR);
    return TRACE_RETURN("%d", there);
}

// Whether the run is in the directory where the option was read, or could change back to it.
// Changes only when necessary: the directory may have become inaccessible.
static bool isWhereItBegan()
{
    TRACE_ENTER();
    const char *there = gDebugSettings.directory;
    char *here = osdep_cwd();
    const bool elsewhere = there != nullptr && (here == nullptr || strcmp(here, there) != 0);
    free(here);
    return TRACE_RETURN("%d", !elsewhere || osdep_changeDirectory(there) == 0);
}

// Paths are relative to the directory where the option was read, wherever the run ends. The run
// stays there, since nothing comes after this.
static void packTrace()
{
    TRACE_ENTER();
    if (!isWhereItBegan())
        qzdebug_warning("could not go back to \"%s\" to pack \"%s\"", gDebugSettings.directory,
                        gFilePath);
    else if (isTraceThere())
        pack(gDebugSettings.package, gFilePath);
}

// ---- The end of the run -----------------------------------------------------------------------

static void reportContainers()
{
    if ((gDebugFlags & DEBUG_CONTAINERS) == 0)
        return;
    hash_report();
    skiplist_report();
    vec_report();
}

// A debug-out file that the user named is shared by the whole suite: only the driver packs it, when
// everything is done.
static bool isOurs()
{
    const bool isDriver = s_component != nullptr && strcmp(s_component, DRIVER) == 0;
    return gFilePath != nullptr && (isDriver || !gDebugSettings.outGiven);
}

void qzdebug_shutdown()
{
    static bool done;
    if (done)
        return; // a failed check below ends the run through here again
    done = true;
    if (!isOurs())
        return;
    if (gDebugOut == nullptr) {
        fflush(stdout); // a fatal message below may end the run without flushing
        trace_checkFailed("gFile != NULL", MODULE, 250);
    }
    if (gDebugSettings.package != nullptr)
        packTrace();
    reportContainers();
}
