#define MODULE "common/cmdline"
#include "common/cmdline/cmdline.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/memory.h"
#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/cmdline/cmdline_internal.h"
#include "common/diagnostics/alert.h"
#include "common/diagnostics/qzdebug_options.h"
#include "common/os/osdep_file.h"
#include "common/os/osdep_process.h"
#include "common/trace/qzdebug.h"

static constexpr uint32_t MESSAGE_INCLUDES_ITSELF = 918;
static constexpr uint32_t MESSAGE_NESTED_TOO_DEEPLY = 919;
static constexpr uint32_t MESSAGE_TOO_MUCH = 920;
static constexpr uint32_t MESSAGE_READ_FAILED = 921;

static constexpr uint32_t DEEPEST_LEVEL = 100;

// The limit on the total cost of the response files of one command line. Each file costs the memory
// of its arguments, as the reader counts it, but at least the price of opening it; and each name
// found costs its comparison with every file that is open around it. So even a few small files that
// name each other many times soon reach the limit.
static constexpr uint64_t LARGEST_COST = uint64_t{64} * 1024 * 1024;
static constexpr uint64_t COST_OF_FILE = 4096;
static constexpr uint64_t COST_OF_COMPARISON = 256;

static const char DEBUG_OPTION[] = "--qzdebug";
static const char COMPONENT[] = "qzm-cc"; // the name for the debug facility

namespace {
// A response file whose arguments are being read.
struct OpenResponseFile {
    const char *name;
    const OpenResponseFile *outer; // the file that named this one, or null
};

struct Intake {
    Vector *result;
    CmdlineVisitor visit;              // or null
    const OpenResponseFile *innermost; // null: on the command line itself
    uint32_t level;                    // response files around the current argument
    uint64_t costLeft;
};
} // namespace

static const char *s_programName;
static int s_debugSeen;

static void takeArguments(Intake *intake, Vector *arguments, bool owned);

int cmdline_debugSeen()
{
    TRACE_ENTER();
    return TRACE_RETURN("%d", s_debugSeen);
}

const char *cmdline_programName()
{
    TRACE_ENTER();
    return TRACE_RETURN("%s", s_programName);
}

// ---- Escapes ----------------------------------------------------------------------------------

static bool isEscapable(char c)
{
    return c == ' ' || c == '"' || c == '\'' || c == '\\';
}

// The argument, interned, without the backslashes that only protect the next character.
static const char *unescaped(const char *argument)
{
    TRACE_ENTER("argument=\"%s\"", argument);
    if (std::strchr(argument, '\\') == nullptr)
        return TRACE_RETURN("%s", cache_string(argument));
    char *copy = static_cast<char *>(xmalloc_must(uint64_t{std::strlen(argument)} + 1));
    char *to = copy;
    for (const char *from = argument; *from != '\0'; ++from) {
        if (*from == '\\' && isEscapable(from[1]))
            ++from;
        *to++ = *from;
    }
    const char *text = cache_string(copy);
    std::free(copy);
    return TRACE_RETURN("%s", text);
}

// ---- Response files ---------------------------------------------------------------------------

// A message file may change the kind of the message, but the run ends all the same.
[[noreturn, gnu::cold]] static void refuseFile(uint32_t message, const char *name)
{
    alert_raiseNumber(message, name);
    exitpath_leave(1);
}

// Subtracts `cost` from the remaining limit, or ends the run.
static void charge(Intake *intake, uint64_t cost, const char *name)
{
    TRACE_ENTER("cost=%llu, name=\"%s\"", static_cast<unsigned long long>(cost), name);
    if (cost > intake->costLeft)
        refuseFile(MESSAGE_TOO_MUCH, name);
    intake->costLeft -= cost;
}

static void refuseOpenFile(Intake *intake, const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    charge(intake, COST_OF_COMPARISON * intake->level, name);
    for (const OpenResponseFile *f = intake->innermost; f != nullptr; f = f->outer)
        if (osdep_sameFile(f->name, name))
            refuseFile(MESSAGE_INCLUDES_ITSELF, name);
}

// Splits standard input, which is now the file `name`, and puts the old one back, so that the child
// gets it unchanged. The vector and its strings are the caller's.
static Vector *readFile(Intake *intake, const char *name, int oldInput)
{
    TRACE_ENTER("name=\"%s\", oldInput=%d", name, oldInput);
    CmdlineReading reading = {};
    reading.keepEmpty = intake->visit != nullptr; // only the visitor sees empty ones
    reading.limit = intake->costLeft;
    cmdline_readWithin(&reading, s_programName);
    if (reading.failed || osdep_restoreInput(oldInput) != 0)
        refuseFile(MESSAGE_READ_FAILED, name);
    charge(intake, reading.cost > COST_OF_FILE ? reading.cost : COST_OF_FILE, name);
    return TRACE_RETURN("%p", cmdline_takeRead());
}

// Takes in the arguments of the file `name`. 0 when it is not a readable file.
static int takeResponseFile(Intake *intake, const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    if (intake->level != 0) {
        if (!osdep_fileExists(name))
            return TRACE_RETURN("%d", 0);
        refuseOpenFile(intake, name); // before it is opened: opening a pipe again could block
    }
    const int oldInput = osdep_redirectInput(name);
    if (oldInput < 0)
        return TRACE_RETURN("%d", 0);
    if (intake->level == DEEPEST_LEVEL)
        refuseFile(MESSAGE_NESTED_TOO_DEEPLY, name);

    Vector *arguments = readFile(intake, name, oldInput);
    const OpenResponseFile file = {name, intake->innermost};
    intake->innermost = &file;
    ++intake->level;
    takeArguments(intake, arguments, true);
    --intake->level;
    intake->innermost = file.outer;
    vec_destroy(arguments);
    return TRACE_RETURN("%d", 1);
}

// ---- Intake -----------------------------------------------------------------------------------

static void takeArgument(Intake *intake, const char *argument)
{
    TRACE_ENTER("argument=\"%s\"", argument);
    if (intake->visit != nullptr)
        intake->visit(argument);
    if (argument[0] == '@' && argument[1] != '\0') {
        if (!takeResponseFile(intake, argument + 1))
            vec_add(intake->result, cache_string(argument));
    } else if (argument[0] != '\0') {
        if (std::strncmp(argument, DEBUG_OPTION, sizeof DEBUG_OPTION - 1) == 0) {
            qzdebug_parse(argument);
            s_debugSeen = 1;
        }
        vec_add(intake->result, unescaped(argument));
    }
}

// Takes in each argument and, when `owned`, frees it.
static void takeArguments(Intake *intake, Vector *arguments, bool owned)
{
    TRACE_ENTER("count=%u, owned=%d", vec_size(arguments), owned);
    for (char *argument : vec_each<char>(arguments)) {
        takeArgument(intake, argument);
        if (owned)
            std::free(argument);
    }
}

Vector *cmdline_args(int argc, char **argv, CmdlineVisitor perArgument)
{
    TRACE_ENTER("argc=%d", argc);
    ASSERT_AT(10, argv != NULL);
    if (argc >= 1 && s_programName == nullptr) {
        s_programName = cache_string(argv[0]);
        if (s_programName != nullptr && *s_programName != '\0')
            alert_setProgramName(s_programName);
    }
    Vector *arguments = vec_new(MODULE, __LINE__);
    for (int i = 1; i < argc; ++i)
        vec_add(arguments, argv[i]);

    Intake intake = {};
    intake.result = vec_new(MODULE, __LINE__);
    intake.visit = perArgument;
    intake.costLeft = LARGEST_COST;
    takeArguments(&intake, arguments, false);
    vec_destroy(arguments);
    return TRACE_RETURN("%p", intake.result);
}

int cmdline_driver(int argc, char **argv, CmdlineProcess options_process, unsigned spawnFlag,
                   const int *verbosity)
{
    TRACE_ENTER("argc=%d, spawnFlag=%u", argc, spawnFlag);
    ASSERT_AT(20, argv != NULL);
    ASSERT_AT(21, options_process != NULL);
    osdep_installCrashHandlers();
    osdep_setSignalRoutine(qzdebug_shutdown);
    Vector *arguments = cmdline_args(argc, argv, nullptr);
    if (gDebugFlags != 0)
        trace_argv(argc, argv);

    Vector *args = options_process(arguments);
    ASSERT_AT(30, args != NULL);
    qzdebug_setComponent(COMPONENT);
    const int status = cmdline_spawn(args, spawnFlag, verbosity != nullptr ? *verbosity : 0);
    if (args != arguments)
        vec_destroy(args);
    vec_destroy(arguments);
    TRACE("Returning status: %d", status);
    qzdebug_shutdown();
    return TRACE_RETURN("%d", status);
}
