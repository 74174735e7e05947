#define MODULE "driver/devices"
#include "driver/devices.h"

#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/diagnostics/alert.h"
#include "common/install/qzinstdir.h"
#include "common/os/osdep_file.h"
#include "common/os/osdep_host.h"
#include "common/text/osdep_path.h"
#include "common/trace/qzdebug.h"
#include "driver/devices_internal.h"
#include "driver/families.h"
#include "driver/hidden_errors.h"
#include "driver/messages.h"

// The paths of the programs, and the choice among the sources of device names.

// ---- Programs ----------------------------------------------------------------------------------

// One row per program: its directory, and its file names in order of preference.
static const struct Program {
    DriverKind kind;
    InstallDirKind directory;
    const char *subdirectory; // below that directory, or null
    const char *names[2];     // without the system's ending; the second may be null
} programs[] = {
    {DRIVER_ELM, QZINSTDIR_ELM, "bin", {"elm-gcc", nullptr}},
    {DRIVER_ORB_COMPILER, QZINSTDIR_ORB, "bin", {"orbc", "orbcd"}},
    {DRIVER_ORB18_COMPILER, QZINSTDIR_ORB, "bin", {"orbc18", "orbc18d"}},
    {DRIVER_LEGACY, QZINSTDIR_ORB, "bin", {"qzm", "qzmd"}},
    {DRIVER_QZM_CC, QZINSTDIR_BIN, nullptr, {"qzm-cc", nullptr}},
    {DRIVER_LEGACY_ASSEMBLER, QZINSTDIR_LEGASM, nullptr, {"legasm", nullptr}},
    {DRIVER_ORB_ASSEMBLER, QZINSTDIR_ORB_AS, "bin", {"orb-as", nullptr}},
};

static const char *joined(const char *directory, const char *name)
{
    TRACE_ENTER("directory=\"%s\", name=\"%s\"", directory, name);
    return TRACE_RETURN("\"%s\"", cache_adopt(osdep_pathJoin(directory, name)));
}

static const char *locate(const Program *program)
{
    TRACE_ENTER("kind=%u", static_cast<unsigned>(program->kind));
    const bool windows = (osdep_osFlags() & OSFLAG_WINDOWS) != 0;
    if (program->directory == QZINSTDIR_ORB)
        TRACE("This is %s Windows based operating system", windows ? "a" : "NOT a");
    const char *directory = qzinstdir(program->directory);
    if (program->subdirectory != nullptr)
        directory = joined(directory, program->subdirectory);
    const char *path = nullptr;
    for (const char *name : program->names) {
        if (name == nullptr)
            break;
        path = joined(directory, windows ? cache_concat(name, ".exe") : name);
        if (osdep_fileExists(path)) {
            TRACE("Found driver: \"%s\"", path);
            return TRACE_RETURN("\"%s\"", path);
        }
    }
    TRACE("Could not locate driver: \"%s\"", path);
    return TRACE_RETURN("\"%s\"", static_cast<const char *>(nullptr));
}

const char *getDriverPath(uint32_t kind)
{
    TRACE_ENTER("kind=%u", kind);
    const char *path = nullptr;
    for (const Program &program : programs) {
        if (program.kind == kind)
            path = locate(&program);
    }
    return TRACE_RETURN("\"%s\"", path);
}

// ---- Lists -------------------------------------------------------------------------------------

// A mask has the bits of the families, shifted right by one.
static_assert(DEVICES_ORB == FAMILY_ORB10 >> 1 && DEVICES_ORB18 == FAMILY_ORB18 >> 1 &&
              DEVICES_ELM == FAMILY_ELM >> 1);

bool devices_isSelected(const char *name, uint32_t mask)
{
    return ((option_DeviceType(name) >> 1) & mask) != 0;
}

// The programs that know devices, in the order in which they are queried.
static const struct DeviceProgram {
    DeviceMask family;
    DriverKind kind;
    Vector *(*ask)(const char *driver);
} devicePrograms[] = {
    {DEVICES_ORB, DRIVER_ORB_COMPILER, devices_askOrbCompiler},
    {DEVICES_ORB18, DRIVER_ORB18_COMPILER, devices_askOrbCompiler},
    {DEVICES_ELM, DRIVER_ELM, devices_askElmDriver},
};

// Adds what one program lists to `all`. It may be missing: the others can still answer.
static void addFromProgram(Vector *all, const DeviceProgram *program, uint32_t mask)
{
    TRACE_ENTER("family=%u", static_cast<unsigned>(program->family));
    Vector *names = program->ask(getDriverPath(program->kind));
    for (const char *name : vec_each<const char>(names)) {
        if (devices_isSelected(name, mask))
            vec_add(all, name);
    }
    vec_destroy(names);
}

Vector *getDeviceListFromDrivers(uint32_t mask)
{
    TRACE_ENTER("mask=%u", mask);
    HiddenErrors hidden;
    Vector *all = nullptr;
    if (hiddenErrors_begin(&hidden)) {
        all = vec_new(MODULE, __LINE__);
        for (const DeviceProgram &program : devicePrograms) {
            if ((program.family & mask) != 0)
                addFromProgram(all, &program, mask);
        }
        hiddenErrors_end(&hidden);
    }
    return TRACE_RETURN("%p", all);
}

Vector *deviceListSupported(uint32_t mask)
{
    TRACE_ENTER("mask=%u", mask);
    const char *path = joined(qzinstdir(QZINSTDIR_BIN), "deviceSupport.xml");
    const bool exists = osdep_fileExists(path) != 0;
    Vector *names = exists ? getDeviceListFromXML(mask, path) : nullptr;
    if (names == nullptr) {
        alert_print("::: warning: deviceSupport.xml %s. Supported device list may be inaccurate",
                    exists ? "could not be read" : "missing");
        names = getDeviceListFromDrivers(mask);
    }
    return TRACE_RETURN("%p", names);
}

// ---- The legacy assembler's index --------------------------------------------------------------

static int compareBytes(const void *slotA, const void *slotB)
{
    return strcmp(*static_cast<const char *const *>(slotA),
                  *static_cast<const char *const *>(slotB));
}

// A loaded message file may give the message a kind that returns; the run ends all the same.
[[noreturn]] static void indexUnusable(DriverMessage message)
{
    TRACE_ENTER("message=%u", static_cast<unsigned>(message));
    alert_raiseNumber(message);
    exitpath_leave(1);
}

Vector *deviceList8bit()
{
    TRACE_ENTER();
    const char *path = joined(qzinstdir(QZINSTDIR_LEGASM), "8bit_device.info");
    if (!osdep_fileExists(path))
        indexUnusable(MESSAGE_INDEX_MISSING);
    Vector *names = devices_readIndex(path);
    if (vec_size(names) == 0) {
        vec_destroy(names);
        indexUnusable(MESSAGE_INDEX_UNUSABLE);
    }
    vec_sort(names, compareBytes);
    return TRACE_RETURN("%p", names);
}

// ---- Order -------------------------------------------------------------------------------------

static const char *behindUnderscores(const char *name)
{
    while (*name == '_')
        ++name;
    return name;
}

int deviceNameCompare(const char *a, const char *b)
{
    if (a == nullptr || b == nullptr)
        return a == nullptr && b != nullptr ? -1 : 1;
    int order = strcmp(behindUnderscores(a), behindUnderscores(b));
    if (order == 0)
        order = strcmp(a, b);
    return order == 0 ? 1 : order;
}
