#define MODULE "common/qzdebug"
#include "common/trace/qzdebug.h"

#include <cstdio>
#include <cstdlib>

#include "common/base/exitpath.h"
#include "common/base/hash.h"
#include "common/base/vector.h"
#include "common/diagnostics/qzdebug_internal.h"
#include "common/diagnostics/qzdebug_options.h"
#include "common/os/osdep_file.h"
#include "common/os/osdep_process.h"
#include "common/os/osdep_temp.h"
#include "common/text/osdep_path.h"

static const char DEBUGGER[] = "/usr/bin/lldb";

// Stops at a failed assertion and at the start of the program, which is told that it runs under a
// debugger.
static const char SCRIPT[] = "break set --name db_assert\nbreak set --name main\n"
                             "break command add 2\nexpr gInDebugger=1\nDONE\nrun";
static_assert(sizeof SCRIPT - 1 == 96);

// Adds a null entry to the arguments for the run and removes it again.
static int execute(const char *program, Vector *args)
{
    TRACE_ENTER("program=\"%s\"", program);
    vec_add(args, nullptr);
    const int status = osdep_spawn(program, reinterpret_cast<char *const *>(args->data));
    vec_pop(args);
    return TRACE_RETURN("%d", status);
}

static bool debuggerIsAvailable()
{
    static enum { UNKNOWN, AVAILABLE, MISSING } state = UNKNOWN;
    TRACE_ENTER();
    if (state == UNKNOWN) {
        state = osdep_fileExists(DEBUGGER) ? AVAILABLE : MISSING;
        if (state == MISSING)
            qzdebug_warning("Debugger \"%s\" is not available", DEBUGGER);
    }
    return TRACE_RETURN("%d", state == AVAILABLE);
}

static bool isDebugged(const char *program)
{
    TRACE_ENTER("program=\"%s\"", program);
    if (gDebugSettings.debugged == nullptr || program == nullptr || !debuggerIsAvailable())
        return TRACE_RETURN("%d", false);
    char *name = osdep_stem(program);
    const bool listed = hash_haskey(gDebugSettings.debugged, name) != 0;
    free(name);
    return TRACE_RETURN("%d", listed);
}

static char *writeScript()
{
    TRACE_ENTER();
    char *name = osdep_tempFile();
    ASSERT_TEXT_AT(230, name != nullptr, "cmdfile != NULL");
    FILE *file = fopen(name, "w");
    ASSERT_TEXT_AT(231, file != nullptr, "fp != NULL");
    fputs(SCRIPT, file);
    if (fclose(file) != 0)
        qzdebug_warning("could not write debugger command file \"%s\"", name);
    return TRACE_RETURN("\"%s\"", name);
}

static int executeDebugged(const char *program, const Vector *args)
{
    TRACE_ENTER("program=\"%s\"", program);
    char *script = writeScript();
    Vector *command = vec_new(MODULE, __LINE__);
    vec_add(command, DEBUGGER);
    vec_add(command, "-s");
    vec_add(command, script);
    vec_add(command, "--");
    vec_add(command, program);
    for (uint32_t i = 1; i < vec_size(args); ++i)
        vec_add(command, vec_elementAt(args, i));
    const int status = execute(DEBUGGER, command);
    remove(script);
    vec_destroy(command);
    free(script);
    return TRACE_RETURN("%d", status);
}

int qzdebug_run(const char *program, Vector *args, unsigned flags)
{
    TRACE_ENTER("program=\"%s\", args=%p, flags=%u", program, static_cast<void *>(args), flags);
    Vector *own = nullptr;
    if (args == nullptr) {
        args = own = vec_new(MODULE, __LINE__);
        vec_add(own, program);
    }
    const int status =
        isDebugged(program) ? executeDebugged(program, args) : execute(program, args);
    vec_destroy(own);
    return TRACE_RETURN("%d", status);
}
