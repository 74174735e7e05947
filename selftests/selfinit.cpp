#define MODULE "selftests/selfinit"
#include <cstdio>
#include <cstdlib>

#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/diagnostics/listing.h"
#include "common/formats/shahash.h"
#include "common/install/qzinstdir.h"
#include "common/os/osdep_directory.h"
#include "common/os/osdep_file.h"
#include "common/os/osdep_host.h"
#include "common/text/osdep_path.h"
#include "common/trace/qzdebug.h"
#include "selftests/selftests.h"
#include "selftests/selftests_internal.h"
#include "selftests/stIntegrity.h"

static int refuse(const char *directory)
{
    TRACE_ENTER("directory=\"%s\"", directory);
    selftests_print(stderr, "A valid compiler installation could not be found at: %s\n", directory);
    return TRACE_RETURN("%d", 1);
}

// Makes the requested installation the current one. Returns its root, or null.
static const char *useInstallation(const char *directory)
{
    TRACE_ENTER("directory=\"%s\"", directory);
    int status = 0;
    if (*directory != '\0') {
        // A final "." or ".." counts as a name unless something follows it.
        char *absolute = osdep_absolutePath(cache_sprintf("%s/", directory));
        status = absolute == nullptr ? 1 : qzinstdir_set(absolute);
        free(absolute);
    }
    const char *root = status == 0 ? qzinstdir(QZINSTDIR_VERSION) : nullptr;
    return TRACE_RETURN("\"%s\"", root);
}

static bool isProgram(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    char *path = osdep_pathJoin(qzinstdir(QZINSTDIR_BIN), name);
    const bool found = osdep_fileExists(path) != 0;
    free(path);
    return TRACE_RETURN("%d", found);
}

// Determines the system that the installation is for, prints it and stores the path style of its
// hash list. False when it is not an installation.
static bool identify(uint32_t *style)
{
    TRACE_ENTER();
    const bool windows = isProgram("qzm-cc.exe");
    const bool known = windows || isProgram("qzm-cc");
    *style = windows ? uint32_t{OSFLAG_WINDOWS} : osdep_osFlags();
    if (known)
        selftests_print(stdout, "Compiler installation identified as %swindows OS\n",
                        windows ? "" : "non-");
    return TRACE_RETURN("%d", known);
}

// Whether the path can hold the list: opening a pipe for writing waits for a reader, and a device
// does not keep a list.
static bool canHoldList(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    OsdepFileInfo info;
    const OsdepKind kind = osdep_fileInfo(path, &info);
    return TRACE_RETURN("%d", kind == OSDEP_NOTHING || kind == OSDEP_FILE);
}

// Reports the directories that are missing from the list. True when none is.
static bool isWhole(Vector *unread)
{
    TRACE_ENTER("unread=%p", static_cast<void *>(unread));
    for (const char *directory : vec_each<const char>(unread))
        selftests_print(stderr, "Could not read directory: %s\n", directory);
    return TRACE_RETURN("%d", vec_size(unread) == 0);
}

static int writeManifest(const OsdepOpenDirectory *root, uint32_t style)
{
    TRACE_ENTER("style=0x%X", style);
    const char *path = selftests_manifestPath();
    const bool possible = canHoldList(path);
    Vector *unread = vec_new(MODULE, __LINE__);
    const bool written = possible && shahash_writeListOf(style, root, path, unread);
    if (written) {
        selftests_print(stdout, "done\nCompiler integrity hash file saved to: %s\n", path);
    } else {
        selftests_print(stdout, "failed\n");
        selftests_print(stderr, "Could not save the compiler integrity hash file to: %s%s\n", path,
                        possible ? "" : " (not a regular file)");
    }
    const bool whole = isWhole(unread);
    vec_destroy(unread);
    return TRACE_RETURN("%d", written && whole ? 0 : 1);
}

// The current directory does not change: there might be no way back to it.
static int generate(const char *path, uint32_t style)
{
    TRACE_ENTER("path=\"%s\"", path);
    selftests_print(stdout, "Generating installation integrity hashes...");
    OsdepOpenDirectory *root = osdep_openDirectory(path);
    int status = 1;
    if (root != nullptr)
        status = writeManifest(root, style);
    else
        selftests_print(stderr, "Could not change to directory: \"%s\"\n", path);
    osdep_closeDirectory(root);
    return TRACE_RETURN("%d", status);
}

int selfinit(const char *directory)
{
    TRACE_ENTER("directory=\"%s\"", directory);
    if (directory == nullptr)
        directory = "";
    ++gSelftest.console;
    uint32_t style = 0;
    int status = 1;
    const char *root = useInstallation(directory);
    if (root != nullptr)
        selftests_print(stdout, "Compiler installation found at: %s\n", root);
    if (root == nullptr || !identify(&style))
        status = refuse(directory);
    else
        status = generate(root, style);
    listing_finish();
    return TRACE_RETURN("%d", status);
}
