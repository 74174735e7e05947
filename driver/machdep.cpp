#define MODULE "driver/machdep"
#include "driver/machdep.h"

#include <cstdio>

#include "common/trace/qzdebug.h"

// In the order in which they are printed.
static const char *const builtins[] = {
    "__builtin_elm_cli",           "__builtin_elm_delay_cycles",
    "__builtin_elm_flash_segment", "__builtin_elm_fmul",
    "__builtin_elm_fmuls",         "__builtin_elm_fmulsu",
    "__builtin_elm_insert_bits",   "__builtin_elm_nop",
    "__builtin_elm_nops",          "__builtin_elm_sei",
    "__builtin_elm_sleep",         "__builtin_elm_swap",
    "__builtin_elm_wdr",           "__builtin_software_breakpoint",
};

void machdep_printBuiltins()
{
    TRACE_ENTER();
    for (const char *name : builtins)
        puts(name);
}
