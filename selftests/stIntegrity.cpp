#define MODULE "selftests/stIntegrity"
#include "selftests/stIntegrity.h"

#include <cerrno>
#include <cstring>

#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/diagnostics/alert.h"
#include "common/formats/shahash.h"
#include "common/install/qzinstdir.h"
#include "common/os/osdep_directory.h"
#include "common/os/osdep_file.h"
#include "common/suite/tsuite.h"
#include "common/text/osdep_path.h"
#include "common/trace/qzdebug.h"

static constexpr uint32_t MESSAGE_NOT_READ = 104;
static constexpr char HASH_LIST[] = "manifest"; // in the root of the installation

static constexpr char GROUP[] = "integrity";
static constexpr char FAILURE[] = "integrity test";

// The entries in the root of an installation, including the hash list.
static const char *const expectedNames[] = {
    "elm", "bin", "dfp", "docs", "etc", "manifest", "orb", "orb-as",
};

// Parts of the names of files that installing and uninstalling leave, in lower case.
static const char *const expectedParts[] = {"uninstall", "rollback"};

const char *selftests_manifestPath()
{
    TRACE_ENTER();
    const char *root = qzinstdir(QZINSTDIR_VERSION);
    const char *path = root == nullptr ? nullptr : cache_adopt(osdep_pathJoin(root, HASH_LIST));
    return TRACE_RETURN("\"%s\"", path);
}

// The entries of the hash list, or null.
static Vector *readManifest()
{
    TRACE_ENTER();
    const char *path = selftests_manifestPath();
    Vector *entries =
        path == nullptr ? nullptr : shahash_readList(path, qzinstdir(QZINSTDIR_VERSION));
    return TRACE_RETURN("%p", entries);
}

static int Manifest(TestCase *test)
{
    TRACE_ENTER("test=\"%s\"", test->name);
    const char *path = selftests_manifestPath();
    const char *problem = nullptr;
    if (!osdep_fileExists(path)) {
        problem = "The manifest file could not be found";
    } else if (!osdep_fileReadable(path)) {
        problem = "The manifest file could not be opened";
    } else {
        Vector *entries = readManifest();
        if (entries == nullptr)
            problem = "The manifest file is corrupted";
        shahash_freeEntries(entries);
    }
    if (problem != nullptr)
        TSUITE_FAIL(test, FAILURE, "manifest check", problem);
    return TRACE_RETURN("%d", 0);
}

static int QuickIntegrityTest(TestCase *test)
{
    TRACE_ENTER("test=\"%s\"", test->name);
    const char *root = qzinstdir(QZINSTDIR_VERSION);
    TRACE("Test integrity of installation: \"%s\"", trace_shown(root));
    // Without a root the check would use the current directory.
    if (root == nullptr || shahash_checkList(root, selftests_manifestPath()) != 1)
        TSUITE_FAIL(test, FAILURE, "failed verification",
                    "The integrity test did not successfully validate");
    return TRACE_RETURN("%d", 0);
}

static int DetailedIntegrityTest(TestCase *test)
{
    TRACE_ENTER("test=\"%s\"", test->name);
    const auto *entry = static_cast<const FileEntry *>(test->data);
    if (entry == nullptr)
        TSUITE_FAIL(test, FAILURE, "failed verification",
                    "The integrity test did not successfully validate");
    else if (!shahash_checkFile(entry->digest, entry->name))
        TSUITE_FAIL(test, FAILURE, "failed verification",
                    cache_sprintf("Hash did not match file for file: %s", entry->name));
    return TRACE_RETURN("%d", 0);
}

static bool isExpected(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    for (const char *expected : expectedNames) {
        if (strcmp(name, expected) == 0)
            return TRACE_RETURN("%d", true);
    }
    const char *lower = cache_lower(name);
    for (const char *part : expectedParts) {
        if (strstr(lower, part) != nullptr)
            return TRACE_RETURN("%d", true);
    }
    return TRACE_RETURN("%d", false);
}

static int ExtraFiles(TestCase *test)
{
    TRACE_ENTER("test=\"%s\"", test->name);
    Vector *names = osdep_readDirectory(qzinstdir(QZINSTDIR_VERSION));
    for (const char *name : vec_each<const char>(names)) {
        if (!isExpected(name))
            TSUITE_FAIL(test, FAILURE, "extraneous files",
                        cache_sprintf("found unexpected file \"%s\"", name));
    }
    osdep_freeNames(names);
    return TRACE_RETURN("%d", 0);
}

static Vector *oneTest(const char *name, TestFunction function)
{
    TRACE_ENTER("name=\"%s\"", name);
    Vector *tests = vec_new(MODULE, __LINE__);
    vec_add(tests, tsuite_newtest(GROUP, name, function, nullptr));
    return TRACE_RETURN("%p", tests);
}

Vector *stIntegrityManifest_tests()
{
    TRACE_ENTER();
    return TRACE_RETURN("%p", oneTest("manifest file exists and can be read", Manifest));
}

Vector *stIntegritySHA_tests()
{
    TRACE_ENTER();
    return TRACE_RETURN("%p", oneTest("SHA256 check", QuickIntegrityTest));
}

Vector *stIntegrityExtra_tests()
{
    TRACE_ENTER();
    return TRACE_RETURN("%p", oneTest("extraneous installation files", ExtraFiles));
}

// The entries become the data of the test cases.
Vector *stIntegritySHAdetailed_tests()
{
    TRACE_ENTER();
    Vector *tests = vec_new(MODULE, __LINE__);
    errno = 0;
    Vector *entries = readManifest();
    // A list that is missing or corrupted is another test's to report.
    if (entries == nullptr && errno != 0 && errno != ENOENT)
        alert_raiseNumber(MESSAGE_NOT_READ, HASH_LIST);
    for (FileEntry *entry : vec_each<FileEntry>(entries)) {
        const char *name = cache_sprintf("SHA256 check %s", osdep_baseName(entry->name));
        vec_add(tests, tsuite_newtest(GROUP, name, DetailedIntegrityTest, entry));
    }
    vec_destroy(entries);
    return TRACE_RETURN("%p", tests);
}
