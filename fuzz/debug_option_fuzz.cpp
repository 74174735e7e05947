// The parser of the debug option, given any list of sub-options in a scratch directory. It returns
// with the feature bits of its table, each file that it makes has a name from the list, and the
// option for a child configures the child in the same way.
#include <cstring>

#include "common/base/hash.h"
#include "common/base/skiplist.h"
#include "common/base/vector.h"
#include "common/diagnostics/alert.h"
#include "common/diagnostics/qzdebug_internal.h"
#include "common/diagnostics/qzdebug_options.h"
#include "common/os/osdep_directory.h"
#include "common/trace/qzdebug.h"
#include "fuzz/support.h"

static constexpr uint32_t ALL_FLAGS =
    DEBUG_TRACE | DEBUG_SDB | DEBUG_DWARF | DEBUG_ALERTS | DEBUG_CONTAINERS;

// A name without a directory is a file in the scratch directory, wherever the process is. Nothing
// else has such a name: libFuzzer's own files have a directory. (The linker replaces the functions
// of these names by these.)
static std::string inScratch(const char *name)
{
    return std::strchr(name, '/') == nullptr ? scratchDirectory() + "/" + name : name;
}

extern "C" {
FILE *__real_fopen(const char *name, const char *mode);
FILE *__wrap_fopen(const char *name, const char *mode)
{
    const Noting off(false);
    return __real_fopen(inScratch(name).c_str(), mode);
}
int __real_remove(const char *name);
int __wrap_remove(const char *name)
{
    const Noting off(false);
    return __real_remove(inScratch(name).c_str());
}
int __real__Z16osdep_fileExistsPKc(const char *name);
int __wrap__Z16osdep_fileExistsPKc(const char *name)
{
    const Noting off(false);
    return __real__Z16osdep_fileExistsPKc(inScratch(name).c_str());
}
int __real__Z19osdep_isRegularFilePKc(const char *name);
int __wrap__Z19osdep_isRegularFilePKc(const char *name)
{
    const Noting off(false);
    return __real__Z19osdep_isRegularFilePKc(inScratch(name).c_str());
}
}

static void ignore(const char *) {}

// The state of a process that has not seen the option; the files that it has opened are closed and
// removed.
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
    Vector *names = osdep_readDirectory(scratchDirectory().c_str());
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

// The part of the configuration that a child shares with its parent.
static std::string shared()
{
    std::string text = std::to_string(gDebugFlags) + " " + std::to_string(gDebugAssertMode) + " " +
                       textOrNone(gDebugSettings.package);
    if (gDebugSettings.outGiven)
        text += " " + textOrNone(gFilePath);
    return text;
}

// Makes everything that is made once and kept, while strings are interned.
static void prepare()
{
    alert_setOutputHook(ignore);
    alert_setErrorLimit(UINT32_MAX);
    qzdebug_parse("--qzdebug=on,unknown,out");
    qzdebug_childOption(DBC_QZM, "qzm");
    reset();
    removeFiles("");
}

static void checkParsing(const std::string &list)
{
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
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool prepared = (prepare(), true);
    const std::string list(reinterpret_cast<const char *>(data),
                           strnlen(reinterpret_cast<const char *>(data), size));
    // This target must not write to other directories.
    if (size == 0 || list.find('/') != std::string::npos)
        return 0;
    require(prepared);
    noting([&] { checkParsing(list); });
    freeNoted();
    removeFiles(list);
    return 0;
}
