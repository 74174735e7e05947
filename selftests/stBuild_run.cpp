#define MODULE "selftests/stBuild_run"
#include "selftests/stBuild.h"

#include <cstdlib>

#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/os/osdep_temp.h"
#include "common/suite/tsuite.h"
#include "common/text/osdep_path.h"
#include "common/trace/qzdebug.h"
#include "driver/devices.h"
#include "driver/families.h"
#include "selftests/stBuild_internal.h"

namespace {
// The differences between assembling, compiling for ORB and compiling for ELM.
struct BuildKind {
    uint32_t driver; // DriverKind
    BuildSource source;
    char *(*makeRoom)();                             // a new temporary object for the output
    const char *noDriver;                            // recorded when the driver does not exist
    const char *notRun;                              // recorded when it could not be run
    const char *(*missing)(const BuildTest *record); // the message for the first of these
    const char *(*failed)(const BuildTest *record);  // and for everything else
    // Gives the output's path from the temporary object and the source.
    const char *(*output)(const char *room, const char *source);
    // Adds the standard command's arguments.
    void (*arguments)(Vector *command, const BuildTest *record, const char *source,
                      const char *output);
};
} // namespace

// ---- Commands ---------------------------------------------------------------------------------

static void addRom(Vector *command, const BuildTest *record)
{
    TRACE_ENTER("deviceType=%u", record->deviceType);
    if (record->deviceType != FAMILY_ORB10)
        vec_add(command, "-mrom=default,0-100");
}

static void addOutputAndSource(Vector *command, const char *output, const char *source)
{
    TRACE_ENTER("output=\"%s\", source=\"%s\"", output, source);
    vec_add(command, cache_sprintf("-o%s", output));
    vec_add(command, source);
}

static void assembleArguments(Vector *command, const BuildTest *record, const char *source,
                              const char *output)
{
    TRACE_ENTER("device=\"%s\"", record->device);
    vec_add(command, "-v");
    vec_add(command, "-v");
    vec_add(command, cache_sprintf("-mcpu=%s", record->device));
    addRom(command, record);
    addOutputAndSource(command, output, source);
}

static void compileArguments(Vector *command, const BuildTest *record, const char *source,
                             const char *output)
{
    TRACE_ENTER("device=\"%s\"", record->device);
    vec_add(command, "-v");
    vec_add(command, "-v");
    vec_add(command, record->standard == BUILD_C90 ? "-std=c90" : "-std=c99");
    vec_add(command, cache_sprintf("-mcpu=%s", record->device));
    addRom(command, record);
    addOutputAndSource(command, output, source);
}

static void elmArguments(Vector *command, const BuildTest *record, const char *source,
                         const char *output)
{
    TRACE_ENTER("device=\"%s\"", record->device);
    vec_add(command, "-v");
    vec_add(command, cache_sprintf("-mcpu=%s", record->device));
    vec_add(command, source);
    vec_add(command, cache_sprintf("-o%s", output));
}

// ---- Outputs ----------------------------------------------------------------------------------

// `name`, which is freed, in the directory `room`.
static const char *inRoom(const char *room, char *name)
{
    const char *path = cache_adopt(osdep_pathJoin(room, name));
    free(name);
    return path;
}

static const char *assembleOutput(const char *room, const char *source)
{
    TRACE_ENTER("room=\"%s\", source=\"%s\"", room, source);
    return TRACE_RETURN("\"%s\"", inRoom(room, osdep_stemDot(source)));
}

static const char *compileOutput(const char *room, const char *source)
{
    TRACE_ENTER("room=\"%s\", source=\"%s\"", room, source);
    return TRACE_RETURN("\"%s\"", inRoom(room, osdep_stem(source)));
}

static const char *elmOutput(const char *room, const char *)
{
    TRACE_ENTER("room=\"%s\"", room);
    return TRACE_RETURN("\"%s\"", cache_string(room));
}

// ---- Messages ---------------------------------------------------------------------------------

static const char *familyName(const BuildTest *record)
{
    return record->deviceType == FAMILY_ORB10 ? "ORB" : "ORB18";
}

static const char *assembleMissing(const BuildTest *record)
{
    return cache_sprintf("%s assemble", familyName(record));
}

static const char *assembleFailed(const BuildTest *record)
{
    return cache_sprintf("failed to assemble for %s", record->device);
}

static const char *compileMissing(const BuildTest *record)
{
    return cache_sprintf("%s compile", familyName(record));
}

static const char *compileFailed(const BuildTest *record)
{
    return cache_sprintf("failed %s compile for %s", record->standard == BUILD_C90 ? "C90" : "C99",
                         record->device);
}

static const char *elmMissing(const BuildTest *)
{
    return "ELM compile";
}

static const char *elmFailed(const BuildTest *record)
{
    return cache_sprintf("failed to compile for %s", record->device);
}

// ---- Running a case ---------------------------------------------------------------------------

static Vector *commandOf(const BuildKind *kind, const BuildTest *record, const char *driver,
                         const char *source, const char *output)
{
    TRACE_ENTER("driver=\"%s\"", driver);
    Vector *command = vec_new(MODULE, __LINE__);
    if (record->mode != BUILD_REPLACE) {
        vec_add(command, driver);
        kind->arguments(command, record, source, output);
    }
    if (record->mode != BUILD_STANDARD && record->extra != nullptr)
        vec_addAll(command, record->extra);
    return TRACE_RETURN("%p", command);
}

static void describe(TestCase *test, const BuildKind *kind, Vector *command, const char *source)
{
    TRACE_ENTER("source=\"%s\"", source);
    const char *words = cache_join(command, 0, " ");
    tsuite_addTestDetail(
        test, cache_sprintf("\ncommand line: %s\n-> test file (%s) contents:\n%s\n", words,
                            osdep_baseName(source), stBuild_sourceLines(kind->source)));
}

// A failure of the tool itself replaces the checker's records.
static void runTool(TestCase *test, const BuildKind *kind, const char *driver, const char *source,
                    const char *output)
{
    TRACE_ENTER("test=\"%s\", output=\"%s\"", test->name, output);
    const auto *record = static_cast<const BuildTest *>(test->data);
    Vector *command = commandOf(kind, record, driver, source, output);
    describe(test, kind, command, source);
    const BuildRun run = stBuild_run(command);
    if (run.output == nullptr) {
        BUILD_FAIL(test, kind->failed(record), kind->notRun);
    } else {
        if (record->checker != nullptr)
            record->checker(test, output, run.output);
        if (run.status != 0)
            BUILD_FAIL(test, kind->failed(record), run.output);
    }
    free(run.output);
}

// The tool's output is deleted with each case: there may be thousands.
static int runCase(TestCase *test, const BuildKind *kind)
{
    TRACE_ENTER("test=\"%s\"", test->name);
    const auto *record = static_cast<const BuildTest *>(test->data);
    const char *driver = getDriverPath(kind->driver);
    if (driver == nullptr) {
        BUILD_FAIL(test, kind->missing(record), kind->noDriver);
        return TRACE_RETURN("%d", 0);
    }
    const char *source = stBuild_sourcePath(kind->source);
    char *room = kind->makeRoom();
    if (source == nullptr || room == nullptr)
        BUILD_FAIL(test, kind->failed(record), "could not create a temporary file");
    else
        runTool(test, kind, driver, source, kind->output(room, source));
    osdep_discardTemp(room);
    free(room);
    return TRACE_RETURN("%d", 0);
}

static const BuildKind assembling = {
    DRIVER_ORB_ASSEMBLER,
    BUILD_SOURCE_ASSEMBLER,
    osdep_tempDir,
    "Could not find orb-as driver",
    "could not execute assembler",
    assembleMissing,
    assembleFailed,
    assembleOutput,
    assembleArguments,
};

static const BuildKind compiling = {
    DRIVER_QZM_CC,
    BUILD_SOURCE_C,
    osdep_tempDir,
    "Could not find qzm-cc driver",
    "could not execute compiler",
    compileMissing,
    compileFailed,
    compileOutput,
    compileArguments,
};

static const BuildKind elmCompiling = {
    DRIVER_QZM_CC,
    BUILD_SOURCE_C,
    osdep_tempFile,
    "Could not find qzm-cc driver",
    "could not execute compiler",
    elmMissing,
    elmFailed,
    elmOutput,
    elmArguments,
};

int ANYORBassemble(TestCase *test)
{
    TRACE_ENTER("test=\"%s\"", test->name);
    return TRACE_RETURN("%d", runCase(test, &assembling));
}

int ANYORBcompile(TestCase *test)
{
    TRACE_ENTER("test=\"%s\"", test->name);
    return TRACE_RETURN("%d", runCase(test, &compiling));
}

int ELMcompile(TestCase *test)
{
    TRACE_ENTER("test=\"%s\"", test->name);
    return TRACE_RETURN("%d", runCase(test, &elmCompiling));
}
