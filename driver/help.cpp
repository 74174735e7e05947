#define MODULE "driver/help"
#include <cstdio>
#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/diagnostics/alert.h"
#include "common/diagnostics/listing.h"
#include "common/os/osdep_process.h"
#include "common/trace/qzdebug.h"
#include "driver/families.h"
#include "driver/option_handlers.h"
#include "driver/options.h"

// The help listing, printed from the option table in its order.

// The words of "--help=" and the rows they select.
static const struct {
    const char *word;
    uint32_t mask;
} helpClasses[] = {
    {"common", optflag::COMMON},     {"optimizers", optflag::OPTIMIZERS},
    {"params", optflag::PARAMS},     {"target", optflag::TARGET},
    {"warnings", optflag::WARNINGS}, {"undocumented", optflag::UNDOCUMENTED},
    {"joined", optflag::JOINED},     {"separate", optflag::SEPARATE},
};

// The rows that a plain "--help" lists.
static const uint32_t defaultMask =
    optflag::COMMON | optflag::OPTIMIZERS | optflag::PARAMS | optflag::TARGET | optflag::WARNINGS;

static uint32_t classMask(const char *words)
{
    TRACE_ENTER("\"%s\"", words);
    uint32_t mask = 0;
    Vector *list = cache_split(words, ",");
    for (const char *word : vec_each<const char>(list)) {
        for (const auto &helpClass : helpClasses) {
            if (strcmp(helpClass.word, word) == 0)
                mask |= helpClass.mask;
        }
    }
    vec_destroy(list);
    return TRACE_RETURN("0x%X", mask);
}

static bool isListed(const OptionRecord *row, uint32_t mask)
{
    return row->handler != nullptr && (row->flags & (optflag::HIDDEN | optflag::MEMBER)) == 0 &&
           (row->flags & (optflag::ACTIVE | optflag::LISTED)) != 0 && (row->flags & mask) != 0;
}

// A name that is wider than its column gets a line of its own.
static void printRow(const OptionRecord *row)
{
    enum { NAME_WIDTH = 25 };
    TRACE_ENTER("\"%s\"", row->name);
    if (strlen(row->name) <= NAME_WIDTH)
        printf("  %-25s %s\n", row->name, row->help);
    else
        printf("  %s\n  %-25s %s\n", row->name, "", row->help);
}

void options_printRows(uint32_t mask)
{
    TRACE_ENTER("0x%X", mask);
    for (const OptionRecord *row = options_table(); row->name != nullptr; ++row) {
        if (isListed(row, mask))
            printRow(row);
    }
}

uint32_t option_help(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    if ((call.family & FAMILY_ELM) != 0)
        return TRACE_RETURN("%u", option_fixed(call));
    uint32_t mask = defaultMask;
    if (strcmp(call.argument, call.row->name) != 0)
        mask = classMask(option_valueOf(call));
    printf("Usage: %s [options] file...\nOptions:\n", alert_programName());
    options_printRows(mask);
    listing_finish();
    exitpath_leave(0);
}
