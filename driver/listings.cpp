#define MODULE "driver/listings"
#include <cstdio>

#include "common/base/exitpath.h"
#include "common/base/texts.h"
#include "common/base/vector.h"
#include "common/diagnostics/listing.h"
#include "common/os/osdep_process.h"
#include "common/text/line_reader.h"
#include "common/trace/qzdebug.h"
#include "driver/devices.h"
#include "driver/hidden_errors.h"
#include "driver/option_handlers.h"

// The listings that need more than the option table: devices, and parts of elm-gcc's own help.

static int compareNames(const void *slotA, const void *slotB)
{
    return deviceNameCompare(*static_cast<const char *const *>(slotA),
                             *static_cast<const char *const *>(slotB));
}

// The supported devices of the families in `mask`, in the order of listings; null when no list is
// available.
static Vector *sortedDevices(uint32_t mask)
{
    TRACE_ENTER("mask=%u", mask);
    Vector *names = deviceListSupported(mask);
    if (names != nullptr)
        vec_sort(names, compareNames);
    return TRACE_RETURN("%p", names);
}

[[noreturn]] static void endListing()
{
    TRACE_ENTER();
    listing_finish();
    exitpath_leave(0);
}

// ---- Devices -----------------------------------------------------------------------------------

[[noreturn]] static void printDevices(uint32_t mask)
{
    TRACE_ENTER("mask=%u", mask);
    Vector *names = sortedDevices(mask);
    for (const char *name : vec_each<const char>(names))
        puts(name);
    vec_destroy(names);
    endListing();
}

uint32_t option_printDevices(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    printDevices(DEVICES_ALL);
}

uint32_t option_printOrbDevices(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    printDevices(DEVICES_ORB | DEVICES_ORB18);
}

// ---- Target help -------------------------------------------------------------------------------

// Prints the sections about the target from elm-gcc's help, without the options of its assembler
// and linker, which follow each of them.
static void copySections(FILE *output)
{
    TRACE_ENTER();
    LineReader lines;
    lines_start(&lines, output);
    bool inside = false;
    bool anything = false;
    while (const char *line = lines_next(&lines)) {
        if (!inside) {
            inside = text_hasPrefix(line, "The following");
        } else if (text_hasPrefix(line, "Assembler")) {
            inside = false;
        } else {
            if (!anything)
                puts("\nThe following options are ELM target specific:\n");
            anything = true;
            puts(line);
        }
    }
    if (!lines_finish(&lines))
        TRACE("the driver's help could not be read to its end");
}

// A stream to read elm-gcc's own help from, or null.
static FILE *askElmDriver()
{
    TRACE_ENTER();
    const char *driver = getDriverPath(DRIVER_ELM);
    FILE *output = nullptr;
    if (driver == nullptr) {
        TRACE("Could not get driver name");
    } else {
        output = osdep_popen_output(driver, "--target-help", nullptr);
        if (output == nullptr) {
            osdep_restoreOutput();
            TRACE("could not create pipe to driver");
        }
    }
    return TRACE_RETURN("%p", output);
}

static void printElmHelp()
{
    TRACE_ENTER();
    HiddenErrors hidden;
    if (hiddenErrors_begin(&hidden)) {
        FILE *output = askElmDriver();
        if (output != nullptr) {
            copySections(output);
            osdep_pclose(output); // its output is useful whatever its status
        }
        hiddenErrors_end(&hidden);
    }
}

static void printNames(Vector *names)
{
    enum { NAMES_PER_LINE = 4 };
    TRACE_ENTER("%u names", vec_size(names));
    puts("Known device names:");
    uint32_t count = 0;
    for (const char *name : vec_each<const char>(names)) {
        printf("%20s ", name);
        if (++count % NAMES_PER_LINE == 0)
            putchar('\n');
    }
    if (count % NAMES_PER_LINE != 0)
        putchar('\n');
}

uint32_t option_targetHelp(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    Vector *names = sortedDevices(DEVICES_ALL);
    printf("\nThe following options are ORB10/12/14/16/18 target specific:\n");
    options_printRows(optflag::TARGET);
    // Flushed here: output still in the stream when the capture starts must be neither lost nor
    // captured.
    listing_finish();
    printElmHelp();
    printNames(names);
    vec_destroy(names);
    endListing();
}
