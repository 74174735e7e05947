// The parser of the debug option over any list of sub-options, in a scratch directory: it comes
// back with the feature bits of its table, every file it makes has a name that the list gives, and
// the option for a child configures the child in the same way.
#include "common/qzdebug_options.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <unistd.h>

#include "common/alert.h"
#include "common/hash.h"
#include "common/osdep.h"
#include "common/qzdebug.h"
#include "common/qzdebug_internal.h"
#include "common/skiplist.h"
#include "common/vector.h"

static constexpr uint32_t ALL_FLAGS =
    DEBUG_TRACE | DEBUG_SDB | DEBUG_DWARF | DEBUG_ALERTS | DEBUG_CONTAINERS;

static char s_directory[] = "/tmp/qzfuzzXXXXXX";

static void require(bool condition)
{
    if (!condition)
        abort();
}

static void ignore(const char *) {}

static void removeDirectory()
{
    rmdir(s_directory);
}

static void prepare()
{
    static bool prepared;
    if (prepared)
        return;
    prepared = true;
    require(mkdtemp(s_directory) != nullptr && chdir(s_directory) == 0);
    atexit(removeDirectory);
    alert_setOutputHook(ignore);
    alert_setErrorLimit(UINT32_MAX);
}

// As in a process that has not seen the option; what it has opened is closed and removed.
static void reset()
{
    gDebugFlags = 0;
    if (gDebugOut != nullptr)
        fclose(gDebugOut);
    gDebugOut = nullptr;
    gFilePath = nullptr;
    gDebugAssertMode = 0;
    hash_debugEnable(0);
    skiplist_debugEnable(0);
    vec_debugEnable(0);
    if (gDebugSettings.debugged != nullptr)
        hash_destroy(gDebugSettings.debugged);
    gDebugSettings = {false, false, nullptr, nullptr, 1, nullptr};
}

static void removeFiles(const std::string &list)
{
    Vector *names = osdep_readDirectory(".");
    for (const char *name : vec_each<const char>(names)) {
        const bool isDefault = strncmp(name, "qzm-cc-", 7) == 0;
        require(isDefault || list.find(name) != std::string::npos);
        require(remove(name) == 0);
    }
    osdep_freeNames(names);
}

static std::string textOrNone(const char *text)
{
    return text == nullptr ? "(none)" : text;
}

// The configuration that a child has in common with its parent.
static std::string shared()
{
    std::string text = std::to_string(gDebugFlags) + " " + std::to_string(gDebugAssertMode) + " " +
                       textOrNone(gDebugSettings.package);
    if (gDebugSettings.outGiven)
        text += " " + textOrNone(gFilePath);
    return text;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string list(reinterpret_cast<const char *>(data),
                           strnlen(reinterpret_cast<const char *>(data), size));
    // Other directories are not this target's to write to.
    if (size == 0 || list.find('/') != std::string::npos)
        return 0;
    prepare();
    qzdebug_parse(("--qzdebug=" + list).c_str());
    require((gDebugFlags & ~ALL_FLAGS) == 0 && gDebugAssertMode <= 3);
    require(gDebugFlags == 0 || gDebugOut != nullptr);
    const std::string before = shared();
    const bool handsOn = gDebugFlags != 0 || gDebugAssertMode != 0 || gDebugSettings.outGiven ||
                         gDebugSettings.package != nullptr;
    const char *option = qzdebug_childOption(DBC_QZM, "qzm");
    require(option != nullptr || !handsOn);
    reset();
    if (option != nullptr) {
        qzdebug_parse(option);
        require(shared() == before);
        reset();
    }
    removeFiles(list);
    return 0;
}
