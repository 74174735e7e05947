#define MODULE "driver/options_process"
#include "driver/options_process.h"

#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/stringcache.h"
#include "common/base/texts.h"
#include "common/base/vector.h"
#include "common/diagnostics/alert.h"
#include "common/diagnostics/listing.h"
#include "common/formats/fileutils.h"
#include "common/install/qzinstdir.h"
#include "common/install/registry.h"
#include "common/os/osdep_file.h"
#include "common/os/osdep_host.h"
#include "common/text/osdep_path.h"
#include "common/trace/qzdebug.h"
#include "driver/families.h"
#include "driver/machdep.h"
#include "driver/messages.h"
#include "driver/option_handlers.h"
#include "driver/options.h"
#include "driver/version.h"

namespace {
// The formats of diagnostics on the ORB path: of this program and, through the environment and the
// command, of the legacy driver and the tools it runs.
enum { ERROR_FORMAT, WARNING_FORMAT, MESSAGE_FORMAT };
} // namespace
static const struct MessageFormat {
    const char *variable;
    const char *option;
    const char *format;
    bool OptionState::*given; // set when the user's options already include this one
} formats[] = {
    {"NVC_ERR_FORMAT", "--errformat", "%f:%l:%c: error: (%n) %s", &OptionState::errorFormatGiven},
    {"NVC_WARN_FORMAT", "--warnformat", "%f:%l:%c: warning: (%n) %s",
     &OptionState::warningFormatGiven},
    {"NVC_MSG_FORMAT", "--msgformat", "%f:%l:%c: advisory: (%n) %s",
     &OptionState::messageFormatGiven},
};

namespace {
// The result of scanning the arguments for a device.
struct Target {
    OptionFamily family;
    bool deviceGiven; // there is a device option, recognised or not
    bool version;     // "--version", which the legacy driver handles for any device
};
} // namespace

static Target findTarget(Vector *arguments)
{
    TRACE_ENTER();
    static const char *const deviceOptions[] = {"-mmcu", "-mcpu", "-mprocessor", nullptr};
    Target target = {FAMILY_NONE, false, false};
    for (const char *argument : vec_each<const char>(arguments)) {
        if (text_hasPrefix(argument, "--version")) {
            target.family = FAMILY_ORB10;
            target.version = true;
            break;
        }
        if (!target.deviceGiven && text_hasAnyPrefix(argument, deviceOptions)) {
            target.family = option_DeviceType(argument);
            target.deviceGiven = true;
        }
    }
    return target;
}

// ---- Input files -------------------------------------------------------------------------------

// Notes the kinds of source among the arguments: the legacy driver needs separate options for the
// passes to run.
static void classifyInput(const char *argument, OptionFamily family)
{
    TRACE_ENTER("\"%s\"", argument);
    if ((family & FAMILY_ORB) != 0 && *argument != '-') {
        const uint64_t word = fileid(argument);
        if ((word & FILEID_C) == FILEID_C)
            gOptionState.cInput = true;
        if (fileid_is_asm_fid(word)) {
            gOptionState.assemblyInput = true;
            if ((word & FILEID_S_PREPROCESS) == FILEID_S_PREPROCESS)
                gOptionState.preprocessAssembly = true;
        }
    }
}

static void appendOptions(Vector *command, Vector *arguments, OptionFamily family)
{
    TRACE_ENTER("family=%u", static_cast<unsigned>(family));
    options_initialize(optflag::ACTIVE, 1, nullptr);
    Vector *emitted = options_handler(arguments, family, nullptr, true, classifyInput);
    vec_addAll(command, emitted);
    vec_destroy(emitted);
}

// ---- The child driver --------------------------------------------------------------------------

// Joins a directory, which may be unknown (null), and the driver's file name.
static const char *driverPath(const char *directory, const char *name)
{
    TRACE_ENTER("directory=\"%s\", name=\"%s\"", directory, name);
    return TRACE_RETURN("\"%s\"", cache_adopt(osdep_pathJoin(directory, name)));
}

// The driver's path in the preferred directory or else in the program's own. Without a driver the
// run ends, whatever kind a loaded message file gives the message.
static const char *locateDriver(const char *preferred, const char *name)
{
    TRACE_ENTER("preferred=\"%s\", name=\"%s\"", preferred, name);
    if ((osdep_osFlags() & OSFLAG_WINDOWS) != 0)
        name = cache_concat(name, ".exe");
    const char *path = driverPath(preferred, name);
    if (osdep_fileExists(path))
        return TRACE_RETURN("\"%s\"", path);
    TRACE("Could not locate driver in path: \"%s\"", path);
    path = driverPath(qzinstdir(QZINSTDIR_BIN), name);
    if (osdep_fileExists(path))
        return TRACE_RETURN("\"%s\"", path);
    TRACE("Also could not locate driver in path: \"%s\"", path);
    alert_raiseNumber(MESSAGE_NO_DRIVER, name);
    exitpath_leave(1);
}

static Vector *elmCommand(Vector *arguments)
{
    TRACE_ENTER();
    const char *directory = driverPath(qzinstdir(QZINSTDIR_ELM), "bin");
    Vector *command = vec_new(MODULE, __LINE__);
    vec_add(command, locateDriver(directory, "elm-gcc"));
    appendOptions(command, arguments, FAMILY_ELM);
    vec_add(command, cache_string("-D__QZ"));
    vec_add(command, cache_string("-D__QZM"));
    vec_add(command, cache_string("-D__QZ__"));
    vec_add(command, cache_string("-D__QZM__"));
    vec_add(command, cache_sprintf("-D__QZM_VERSION=%d", PRODUCT_VERSION));
    if (gOptionState.printBuiltins) {
        machdep_printBuiltins();
        listing_finish();
    }
    return TRACE_RETURN("%p", command);
}

// This program's own diagnostics first (the environment as the user left it wins), then the
// children's.
static void installFormats()
{
    TRACE_ENTER();
    alert_reload();
    alert_setFormats(formats[ERROR_FORMAT].format, formats[WARNING_FORMAT].format,
                     formats[MESSAGE_FORMAT].format);
    alert_setFormatMode(1);
    for (const MessageFormat &format : formats)
        osdep_setenv(format.variable, format.format);
}

static Vector *orbCommand(Vector *arguments, const Target &target)
{
    TRACE_ENTER();
    Vector *command = vec_new(MODULE, __LINE__);
    vec_add(command, locateDriver(reg_instdir(REG_BIN), "qzm"));
    vec_add(command, cache_string("--qzmcc"));
    if (!target.version)
        vec_add(command, cache_string("-q"));
    vec_add(command, cache_string("--opt=none"));
    installFormats();
    appendOptions(command, arguments, target.family);
    for (const MessageFormat &format : formats) {
        if (!(gOptionState.*format.given))
            vec_add(command, cache_sprintf("%s=%s", format.option, format.format));
    }
    return TRACE_RETURN("%p", command);
}

// Without a family only options that end the process make sense; if none did, it is an error.
static Vector *noCommand(Vector *arguments, const Target &target)
{
    TRACE_ENTER();
    Vector *command = vec_new(MODULE, __LINE__);
    appendOptions(command, arguments, FAMILY_NONE);
    alert_raiseNumber(target.deviceGiven ? MESSAGE_UNKNOWN_DEVICE : MESSAGE_NO_DEVICE);
    exitpath_leave(1);
}

Vector *options_process(Vector *arguments)
{
    TRACE_ENTER("%u arguments", vec_size(arguments));
    if (arguments == nullptr) {
        TRACE("options vector was NULL");
        return TRACE_RETURN("%p", static_cast<Vector *>(nullptr));
    }
    const Target target = findTarget(arguments);
    Vector *command = nullptr;
    if ((target.family & FAMILY_ELM) != 0)
        command = elmCommand(arguments);
    else if ((target.family & FAMILY_ORB) != 0)
        command = orbCommand(arguments, target);
    else
        command = noCommand(arguments, target);
    return TRACE_RETURN("%p", command);
}
