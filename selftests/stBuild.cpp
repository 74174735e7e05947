#define MODULE "selftests/stBuild"
#include "selftests/stBuild.h"

#include <cstring>
#include <initializer_list>

#include "common/base/memory.h"
#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/install/qzinstdir.h"
#include "common/suite/tsuite.h"
#include "common/trace/qzdebug.h"
#include "driver/devices.h"
#include "driver/families.h"
#include "selftests/stBuild_internal.h"

static constexpr char GROUP[] = "build";

// ---- Devices ----------------------------------------------------------------------------------

namespace {
// The installation's devices, read once: without a usable list, several programs are run, after a
// warning, to make one.
struct DeviceCache {
    bool read;
    const char *root; // of the installation, interned
    Vector *list;     // or null
};
} // namespace
static DeviceCache s_devices;

static Vector *devices()
{
    TRACE_ENTER();
    const char *root = qzinstdir(QZINSTDIR_VERSION);
    if (!s_devices.read || s_devices.root != root) {
        vec_destroy(s_devices.list);
        s_devices = {true, root, deviceListSupported(DEVICES_ALL)};
    }
    return TRACE_RETURN("%p", s_devices.list);
}

bool skipChip(const char *device)
{
    TRACE_ENTER("device=\"%s\"", device);
    for (const char *skipped : {"ELMw1", "ELMw2", "ELMw3"}) {
        if (strcmp(device, skipped) == 0)
            return TRACE_RETURN("%d", true);
    }
    return TRACE_RETURN("%d", false);
}

static int DeviceSupport(TestCase *test)
{
    TRACE_ENTER("test=\"%s\"", test->name);
    Vector *list = devices();
    if (list == nullptr)
        BUILD_FAIL(test, "failed device list", "Could not process deviceSupport.xml");
    else if (vec_size(list) == 0)
        BUILD_FAIL(test, "failed device list", "Could not find any supported devices");
    return TRACE_RETURN("%d", 0);
}

// ---- Cases ------------------------------------------------------------------------------------

// A case whose name ends with its device.
static void addCase(Vector *tests, const char *name, TestFunction function, const BuildTest *record)
{
    TRACE_ENTER("name=\"%s\", device=\"%s\"", name, record->device);
    auto *data = static_cast<BuildTest *>(xmalloc_must(sizeof(BuildTest)));
    *data = *record;
    vec_add(tests, tsuite_newtest(GROUP, cache_concat(name, record->device), function, data));
}

// A case for every listed device of the families.
static Vector *caseForEach(uint32_t families, const char *name, TestFunction function,
                           uint32_t standard)
{
    TRACE_ENTER("families=0x%X, name=\"%s\"", families, name);
    Vector *tests = vec_new(MODULE, __LINE__);
    for (const char *device : vec_each<const char>(devices())) {
        const uint32_t type = option_DeviceType(device);
        if ((type & families) == 0 || skipChip(device))
            continue;
        const BuildTest record = {type, device, standard, BUILD_STANDARD, nullptr, nullptr};
        addCase(tests, name, function, &record);
    }
    return TRACE_RETURN("%p", tests);
}

Vector *stBuildDeviceSupport_tests()
{
    TRACE_ENTER();
    Vector *tests = vec_new(MODULE, __LINE__);
    vec_add(tests, tsuite_newtest(GROUP, "deviceSupport.xml file exists and can be read",
                                  DeviceSupport, nullptr));
    return TRACE_RETURN("%p", tests);
}

Vector *stBuildAssembleORB_tests()
{
    TRACE_ENTER();
    return TRACE_RETURN("%p",
                        caseForEach(FAMILY_ORB, "assemble for device ", ANYORBassemble, BUILD_C99));
}

Vector *stBuildC90ORB_tests()
{
    TRACE_ENTER();
    return TRACE_RETURN(
        "%p", caseForEach(FAMILY_ORB, "C90 compile for device ", ANYORBcompile, BUILD_C90));
}

Vector *stBuildC99ORB_tests()
{
    TRACE_ENTER();
    return TRACE_RETURN(
        "%p", caseForEach(FAMILY_ORB, "C99 compile for device ", ANYORBcompile, BUILD_C99));
}

Vector *stBuildELM_tests()
{
    TRACE_ENTER();
    return TRACE_RETURN("%p",
                        caseForEach(FAMILY_ELM, "compile for device ", ELMcompile, BUILD_C99));
}

// The name of the last ORB case says the other standard, and the ORB18 device is treated as an ORB
// one.
static const struct {
    const char *device;
    uint32_t type;
    uint32_t standard;
    const char *name;
    TestFunction function;
} preprocessorCases[] = {
    {"16z10", FAMILY_ORB10, BUILD_C99, "Check macros & search paths for ", ANYORBcompile},
    {"16z20a", FAMILY_ORB10, BUILD_C99, "Check macros & search paths for ", ANYORBcompile},
    {"16z30", FAMILY_ORB10, BUILD_C99, "Check macros & C99 search paths for ", ANYORBcompile},
    {"16z30", FAMILY_ORB10, BUILD_C90, "Check macros & C90 search paths for ", ANYORBcompile},
    {"18z40", FAMILY_ORB10, BUILD_C99, "Check macros & C99 search paths for ", ANYORBcompile},
    {"18z40", FAMILY_ORB10, BUILD_C99, "Check macros & C90 search paths for ", ANYORBcompile},
    {"elmbig1", FAMILY_ELM, BUILD_C99, "Check macros & search paths for ", ELMcompile},
};

Vector *stBuildCPP_tests()
{
    TRACE_ENTER();
    Vector *tests = vec_new(MODULE, __LINE__);
    for (const auto &row : preprocessorCases) {
        Vector *extra = cache_split("-dM -Wp,-v -E", " ");
        const BuildTest record = {
            row.type, cache_string(row.device), row.standard, BUILD_APPEND, extra, check_cpp};
        addCase(tests, row.name, row.function, &record);
    }
    return TRACE_RETURN("%p", tests);
}

Vector *stBuildLib_tests()
{
    TRACE_ENTER();
    Vector *tests = vec_new(MODULE, __LINE__);
    for (const char *device : {"16z10", "16z20a", "16z30", "18z40"}) {
        const BuildTest record = {FAMILY_ORB10, cache_string(device),   BUILD_C99,
                                  BUILD_APPEND, cache_split("-c", " "), check_lib};
        addCase(tests, "Ensure objects can be added to/removed from libraries for ", ANYORBcompile,
                &record);
    }
    return TRACE_RETURN("%p", tests);
}
