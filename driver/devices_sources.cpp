#define MODULE "driver/devices"
#include "driver/devices.h"

#include <cstdio>
#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/stringcache.h"
#include "common/base/texts.h"
#include "common/base/vector.h"
#include "common/os/osdep_file.h"
#include "common/os/osdep_process.h"
#include "common/text/line_reader.h"
#include "common/text/uxml2.h"
#include "common/trace/qzdebug.h"
#include "driver/devices_internal.h"

// The sources of device names: the programs, and two kinds of file.

// ---- Programs ----------------------------------------------------------------------------------

namespace {
// The output of a program, read line by line.
struct ProgramOutput {
    const char *program;
    FILE *stream;
    LineReader lines;
};
} // namespace

// Runs the program with one argument. False when there is no output to read; the descriptors are
// then restored.
static bool startProgram(ProgramOutput *output, const char *program, const char *argument)
{
    TRACE_ENTER("program=\"%s\", argument=\"%s\"", program, argument);
    output->program = program;
    output->stream = osdep_popen_command(program, argument, nullptr);
    if (output->stream == nullptr) {
        osdep_restoreOutput();
        TRACE("Could not open pipe");
        return TRACE_RETURN("%d", false);
    }
    lines_start(&output->lines, output->stream);
    return TRACE_RETURN("%d", true);
}

// Its status is ignored: devices that a failed program has listed still count.
static void endProgram(ProgramOutput *output)
{
    TRACE_ENTER("program=\"%s\"", output->program);
    if (!lines_finish(&output->lines))
        TRACE("the output of \"%s\" could not be read to its end", output->program);
    const int status = osdep_pclose(output->stream);
    if (status != 0)
        TRACE("\"%s\" ended with status %d", output->program, status);
}

static void addChip(Vector *names, const char *name)
{
    const char *chip = cache_lower(name);
    TRACE("found chip: \"%s\"", chip);
    vec_add(names, chip);
}

Vector *devices_askOrbCompiler(const char *driver)
{
    TRACE_ENTER("driver=\"%s\"", driver);
    ProgramOutput output;
    if (!startProgram(&output, driver, "--chipinforaw"))
        return TRACE_RETURN("%p", static_cast<Vector *>(nullptr));
    Vector *names = vec_new(MODULE, __LINE__);
    while (const char *line = lines_next(&output.lines)) {
        const size_t length = strcspn(line, ":\r");
        if (length != 0)
            addChip(names, cache_substring(line, length));
    }
    endProgram(&output);
    return TRACE_RETURN("%p", names);
}

Vector *getORBDeviceList_helper(uint32_t kind)
{
    TRACE_ENTER("kind=%u", kind);
    const char *driver = getDriverPath(kind);
    ASSERT_TEXT_AT(10, driver != nullptr, "driver != NULL");
    return TRACE_RETURN("%p", devices_askOrbCompiler(driver));
}

Vector *getORBDeviceList()
{
    TRACE_ENTER();
    return TRACE_RETURN("%p", getORBDeviceList_helper(DRIVER_ORB_COMPILER));
}

Vector *getORB18DeviceList()
{
    TRACE_ENTER();
    return TRACE_RETURN("%p", getORBDeviceList_helper(DRIVER_ORB18_COMPILER));
}

static bool skipTo(LineReader *lines, const char *front)
{
    TRACE_ENTER("front=\"%s\"", front);
    const char *line = nullptr;
    do {
        line = lines_next(lines);
    } while (line != nullptr && !text_hasPrefix(line, front));
    return TRACE_RETURN("%d", line != nullptr);
}

// Adds the devices on a line of the ELM driver's output, which also lists an architecture; that one
// is skipped.
static void addChipsOf(Vector *names, const char *line)
{
    TRACE_ENTER("\"%s\"", line);
    Vector *words = cache_split(line, " \t\r");
    for (const char *word : vec_each<const char>(words)) {
        if (strcmp(word, "elm1") == 0)
            TRACE("ignoring: \"%s\"", word);
        else
            addChip(names, word);
    }
    vec_destroy(words);
}

Vector *devices_askElmDriver(const char *driver)
{
    TRACE_ENTER("driver=\"%s\"", driver);
    ProgramOutput output;
    if (!startProgram(&output, driver, "--target-help"))
        return TRACE_RETURN("%p", static_cast<Vector *>(nullptr));
    Vector *names = vec_new(MODULE, __LINE__);
    if (skipTo(&output.lines, "Known MCU names")) {
        TRACE("Found \"Known MCU names\"");
        const char *line = nullptr;
        while ((line = lines_next(&output.lines)) != nullptr && !text_hasPrefix(line, "Linker"))
            addChipsOf(names, line);
    }
    endProgram(&output);
    return TRACE_RETURN("%p", names);
}

Vector *getELMDeviceList()
{
    TRACE_ENTER();
    return TRACE_RETURN("%p", devices_askElmDriver(getDriverPath(DRIVER_ELM)));
}

// ---- Files -------------------------------------------------------------------------------------

static void addAttributes(Vector *names, const UxmlNode *device, uint32_t mask)
{
    for (const UxmlAttribute *attribute : vec_each<UxmlAttribute>(uxml_attributes(device))) {
        const char *name = uxml_attr_value(attribute);
        if (devices_isSelected(name, mask))
            vec_add(names, cache_lower(name));
    }
}

// The devices are two levels below the root element: its grandchildren.
static Vector *namesBelow(const UxmlNode *root, uint32_t mask)
{
    TRACE_ENTER("mask=%u", mask);
    Vector *names = vec_new(MODULE, __LINE__);
    for (const UxmlNode *group : vec_each<UxmlNode>(uxml_children(root))) {
        for (const UxmlNode *device : vec_each<UxmlNode>(uxml_children(group)))
            addAttributes(names, device, mask);
    }
    return TRACE_RETURN("%p", names);
}

Vector *getDeviceListFromXML(uint32_t mask, const char *path)
{
    TRACE_ENTER("mask=%u, path=\"%s\"", mask, path);
    FILE *file = osdep_openRegularFile(path, nullptr);
    if (file == nullptr) {
        TRACE("could not open xmlfile \"%s\"", path);
        return TRACE_RETURN("%p", static_cast<Vector *>(nullptr));
    }
    UxmlNode *root = uxml_read(file);
    fclose(file);
    Vector *names = root == nullptr ? nullptr : namesBelow(root, mask);
    uxml_node_free(root);
    return TRACE_RETURN("%p", names);
}

// The text before the name on a line of the index; and the text that ends the index, where the
// sections of the single parts begin.
static constexpr char indexMark[] = "<PARTS_INDEX_TYPE><";
static constexpr char sectionMark[] = "<PART_INFO_TYPE>";

static const char *nameInIndexLine(const char *line)
{
    TRACE_ENTER("\"%s\"", line);
    const char *name = line + strlen(indexMark);
    const char *end = strchr(name, '>');
    ASSERT_TEXT_AT(20, end != nullptr, "cp != NULL");
    return TRACE_RETURN("\"%s\"", cache_substring(name, static_cast<size_t>(end - name)));
}

Vector *devices_readIndex(const char *path)
{
    TRACE_ENTER("\"%s\"", path);
    FILE *file = osdep_openRegularFile(path, nullptr);
    if (file == nullptr)
        return TRACE_RETURN("%p", static_cast<Vector *>(nullptr));
    Vector *names = vec_new(MODULE, __LINE__);
    LineReader lines;
    lines_start(&lines, file);
    const char *line = nullptr;
    while ((line = lines_next(&lines)) != nullptr && !text_hasPrefix(line, sectionMark)) {
        if (text_hasPrefix(line, indexMark))
            vec_add(names, nameInIndexLine(line));
    }
    if (!lines_finish(&lines)) {
        TRACE("\"%s\" could not be read to its end", path);
        vec_destroy(names);
        names = nullptr;
    }
    fclose(file);
    return TRACE_RETURN("%p", names);
}

Vector *getDeviceListFrom8bit_device_info(const char *path)
{
    TRACE_ENTER("\"%s\"", path);
    Vector *names = devices_readIndex(path);
    if (names != nullptr)
        ASSERT_TEXT_AT(30, vec_size(names) != 0, "vec_size(devlist) != 0");
    return TRACE_RETURN("%p", names);
}
