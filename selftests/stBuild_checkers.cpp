#define MODULE "selftests/stBuild_checkers"
#include "selftests/stBuild.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "common/base/exitpath.h"
#include "common/base/memory.h"
#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/diagnostics/alert.h"
#include "common/formats/fileutils.h"
#include "common/formats/shahash.h"
#include "common/install/qzinstdir.h"
#include "common/os/osdep_directory.h"
#include "common/os/osdep_file.h"
#include "common/os/osdep_host.h"
#include "common/os/osdep_temp.h"
#include "common/suite/tsuite.h"
#include "common/text/osdep_path.h"
#include "common/trace/qzdebug.h"
#include "selftests/stBuild_internal.h"

static const char *deviceOf(const TestCase *test)
{
    return static_cast<const BuildTest *>(test->data)->device;
}

// ---- Macros and search paths ------------------------------------------------------------------

// `text`, which is freed, followed by the content of a file, if it exists.
static char *withFile(char *text, const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    char *content = stBuild_readFile(path);
    if (content != nullptr)
        text = xstrcat_free(text, content);
    free(content);
    return static_cast<char *>(TRACE_RETURN("%p", static_cast<void *>(text)));
}

// Records `problem` with the tool's output, cut to the room in the record.
static void failWithText(TestCase *test, const char *message, const char *problem, const char *text)
{
    TRACE_ENTER("message=\"%s\", problem=\"%s\"", message, problem);
    char *output = xstrcat(problem, text);
    BUILD_FAIL(test, message, output);
    free(output);
}

static int checkMacro(TestCase *test, const char *text, const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    if (strstr(text, cache_sprintf("#define %s", name)) != nullptr)
        return TRACE_RETURN("%d", 1);
    failWithText(test, cache_sprintf("failed predefined macros for %s", deviceOf(test)),
                 cache_sprintf("%s not defined\n", name), text);
    return TRACE_RETURN("%d", 0);
}

static const char *skipSpace(const char *text)
{
    return text + strspn(text, " \t\r\v\f");
}

// The path on a line of the search list, interned.
static const char *pathOn(const char *line, size_t length)
{
    const char *end = line + length;
    if (end != line && end[-1] == '\r')
        --end;
    const char *start = skipSpace(line);
    return start < end ? cache_substring(start, static_cast<size_t>(end - start)) : "";
}

static int checkPath(TestCase *test, const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    if (osdep_fileExists(path))
        return TRACE_RETURN("%d", 1);
    BUILD_FAIL(test, cache_sprintf("failed include search path for %s", deviceOf(test)),
               cache_sprintf("include search path does not exists: %s", path));
    return TRACE_RETURN("%d", 0);
}

static int checkSearchPaths(TestCase *test, const char *text)
{
    static const char head[] = "#include <...> search starts here:";
    TRACE_ENTER("test=\"%s\"", test->name);
    int passed = 0;
    const char *at = strstr(text, head);
    if (at == nullptr) {
        failWithText(test, cache_sprintf("failed include search path for %s", deviceOf(test)),
                     "no include search path found\n", text);
        return TRACE_RETURN("%d", passed);
    }
    for (at += strcspn(at, "\n"); *at != '\0'; at += strcspn(at, "\n")) {
        ++at;
        const char *path = pathOn(at, strcspn(at, "\n"));
        if (strstr(path, "End of search list") != nullptr)
            break;
        if (*path != '\0')
            passed += checkPath(test, path);
    }
    return TRACE_RETURN("%d", passed);
}

int check_cpp(TestCase *test, const char *outputPath, const char *output)
{
    TRACE_ENTER("test=\"%s\", outputPath=\"%s\"", test->name, outputPath);
    if (output == nullptr || *output == '\0') {
        BUILD_FAIL(test, cache_sprintf("failed preprocess test for %s", deviceOf(test)),
                   "no compiler output found");
        return TRACE_RETURN("%d", 0);
    }
    char *text = withFile(xstrdup_must(output), outputPath);
    text = withFile(text, cache_sprintf("%s.i", outputPath));
    int passed = checkMacro(test, text, "__QZM__");
    passed += checkMacro(test, text, "__QZ");
    passed += checkSearchPaths(test, text);
    free(text);
    return TRACE_RETURN("%d", passed);
}

// ---- Libraries --------------------------------------------------------------------------------

namespace {
// The files of one library test.
struct LibraryTest {
    TestCase *test;
    const char *librarian;
    const char *directory; // the directory of all the others
    const char *object;    // the compiled object, and later the one extracted from the library
    const char *kept;      // the compiled object, under another name
    const char *library;
};
} // namespace

static const char *findLibrarian()
{
    TRACE_ENTER();
    const bool windows = (osdep_osFlags() & OSFLAG_WINDOWS) != 0;
    const char *bin = qzinstdir(QZINSTDIR_BIN);
    const char *path = nullptr;
    if (bin != nullptr)
        path = cache_adopt(osdep_pathJoin(bin, windows ? "qzm-ar.exe" : "qzm-ar"));
    return TRACE_RETURN("\"%s\"", osdep_fileExists(path) ? path : nullptr);
}

// A name that no other process uses, in the directory of the output.
static const char *libraryIn(const char *directory)
{
    TRACE_ENTER("directory=\"%s\"", directory);
    enum : uint32_t { MESSAGE_NO_TEMPORARY_FILE = 2082 };
    char *name = osdep_tempFileSuffix(".lib");
    if (name == nullptr) {
        alert_raiseNumber(MESSAGE_NO_TEMPORARY_FILE);
        exitpath_leave(1);
    }
    const char *library = cache_adopt(osdep_pathJoin(directory, osdep_baseName(name)));
    osdep_discardTemp(name);
    free(name);
    remove(library); // it rarely exists
    return TRACE_RETURN("\"%s\"", library);
}

static Vector *librarianCommand(const LibraryTest *at, const char *operation)
{
    TRACE_ENTER("operation=\"%s\"", operation);
    Vector *command = vec_new(MODULE, __LINE__);
    vec_add(command, at->librarian);
    vec_add(command, operation);
    vec_add(command, at->library);
    return TRACE_RETURN("%p", command);
}

static bool makeLibrary(const LibraryTest *at)
{
    TRACE_ENTER("library=\"%s\"", at->library);
    const char *device = deviceOf(at->test);
    Vector *command = librarianCommand(at, "-r");
    vec_add(command, at->object);
    tsuite_addTestDetail(at->test,
                         cache_sprintf("\ncommand line: %s\n", cache_join(command, 0, " ")));
    const BuildRun run = stBuild_run(command);
    bool made = false;
    if (run.output == nullptr) {
        BUILD_FAIL(at->test, cache_sprintf("failed to create library for %s", device),
                   "could not execute librarian");
    } else {
        made = run.status == 0 && fileid_is_library(at->library) != 0;
        if (!made)
            BUILD_FAIL(at->test, cache_sprintf("failed library creation for %s", device),
                       run.output);
    }
    free(run.output);
    return TRACE_RETURN("%d", made);
}

// Runs the librarian in the directory of the library, and then changes back.
static BuildRun extract(const LibraryTest *at)
{
    TRACE_ENTER("library=\"%s\"", at->library);
    BuildRun run = {-1, nullptr};
    OsdepOpenDirectory *before = osdep_openDirectory(".");
    if (before != nullptr && osdep_changeDirectory(at->directory) == 0) {
        run = stBuild_run(librarianCommand(at, "-x"));
        if (osdep_enterDirectory(before) != 0) {
            free(run.output);
            run = {-1, xsprintf("could not go back to the first directory: %s", strerror(errno))};
        }
    }
    osdep_closeDirectory(before);
    return run;
}

static bool canBeDigested(const char *path)
{
    return osdep_isRegularFile(path) && osdep_fileReadable(path);
}

static bool sameContent(const char *a, const char *b)
{
    TRACE_ENTER("a=\"%s\", b=\"%s\"", a, b);
    // Digesting ends the run when it cannot read a file.
    if (!canBeDigested(a) || !canBeDigested(b))
        return TRACE_RETURN("%d", false);
    return TRACE_RETURN("%d", strcmp(sha256_path(a), sha256_path(b)) == 0);
}

static bool takeApart(const LibraryTest *at)
{
    TRACE_ENTER("library=\"%s\"", at->library);
    const char *device = deviceOf(at->test);
    if (rename(at->object, at->kept) != 0) {
        BUILD_FAIL(at->test, cache_sprintf("failed to extract from library for %s", device),
                   cache_sprintf("could not rename object: %s", at->object));
        return TRACE_RETURN("%d", false);
    }
    const BuildRun run = extract(at);
    bool same = false;
    if (run.output == nullptr) {
        BUILD_FAIL(at->test, cache_sprintf("failed to extract from library for %s", device),
                   "could not execute librarian");
    } else {
        same = run.status == 0 && sameContent(at->object, at->kept);
        if (!same)
            BUILD_FAIL(at->test, cache_sprintf("failed library extraction for %s", device),
                       run.output);
    }
    free(run.output);
    return TRACE_RETURN("%d", same);
}

static int checkLibrary(LibraryTest *at)
{
    TRACE_ENTER("object=\"%s\"", at->object);
    at->library = libraryIn(at->directory);
    if (!makeLibrary(at))
        return TRACE_RETURN("%d", 0);
    if (!takeApart(at))
        return TRACE_RETURN("%d", 1);
    for (const char *path : {at->object, at->kept, at->library})
        remove(path); // anything left is removed with the directory
    return TRACE_RETURN("%d", 2);
}

int check_lib(TestCase *test, const char *outputPath, const char *)
{
    TRACE_ENTER("test=\"%s\", outputPath=\"%s\"", test->name, outputPath);
    LibraryTest at = {};
    at.test = test;
    at.librarian = findLibrarian();
    at.directory = cache_dirPart(outputPath);
    at.object = cache_sprintf("%s.p1", outputPath);
    at.kept = cache_sprintf("%s_orig.p1", outputPath);
    int passed = 0;
    if (at.librarian == nullptr)
        BUILD_FAIL(test, cache_sprintf("%s library test", deviceOf(test)), "Could not find qzm-ar");
    else if (!osdep_fileExists(at.object))
        BUILD_FAIL(test, cache_sprintf("failed to create library for %s", deviceOf(test)),
                   cache_sprintf("could not find object: %s", at.object));
    else
        passed = checkLibrary(&at);
    return TRACE_RETURN("%d", passed);
}
