#include "driver/families.h"

#include <cstring>

#include "common/base/texts.h"
#include "common/trace/qzdebug.h"

static char lowered(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Whether `name`, in any case, begins with one of the prefixes, which are in lower case.
static bool isCalledAny(const char *name, const char *const *prefixes)
{
    for (; *prefixes != nullptr; ++prefixes) {
        size_t length = 0;
        while ((*prefixes)[length] != '\0' && lowered(name[length]) == (*prefixes)[length])
            ++length;
        if ((*prefixes)[length] == '\0')
            return true;
    }
    return false;
}

// Called for every name in a list of devices, so it interns nothing.
OptionFamily option_DeviceType(const char *option)
{
    TRACE_ENTER("\"%s\"", option);
    static const char *const elmNames[] = {"kv", "elm", nullptr};
    static const char *const orb10Names[] = {"zq", "wtx", "wty", nullptr};
    static const char *const orb[] = {"orb", nullptr};
    static const char *const orb10Cores[] = {"10", "12", "14", "16", nullptr};

    const char *equals = strchr(option, '=');
    const char *device = equals == nullptr ? option : equals + 1;
    const char *core = device + (isCalledAny(device, orb) ? 3 : 0);
    OptionFamily family = FAMILY_NONE;
    if (isCalledAny(device, elmNames)) {
        TRACE("device identified as an ELM");
        family = FAMILY_ELM;
    } else if (isCalledAny(device, orb10Names)) {
        family = FAMILY_ORB10;
    } else if (text_hasPrefix(core, "18")) {
        TRACE("device identified as a ORB18\n");
        family = FAMILY_ORB18;
    } else if (text_hasAnyPrefix(core, orb10Cores)) {
        TRACE("device identified as a ORB10/12/14/16");
        family = FAMILY_ORB10;
    } else {
        TRACE("device was not identified\n");
    }
    return TRACE_RETURN("%u", family);
}
