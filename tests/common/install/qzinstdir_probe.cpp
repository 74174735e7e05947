// Run from a copy inside a scratch installation: prints what the program finds from there.
//
//     probe list          every directory kind, one a line, then the registry's
//     probe trace KIND    the trace of asking for one kind
//     probe later PATH    the version directory before and after PATH was created
//     probe moved A B     the version directory before and after A was renamed to B
#include "common/install/qzinstdir.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/stat.h>

#include "common/install/registry.h"
#include "common/trace/qzdebug.h"

static void show(const char *path)
{
    puts(path != nullptr ? path : "(null)");
}

static int list_kinds()
{
    for (int kind = QZINSTDIR_FIRST; kind < QZINSTDIR_LAST; kind++)
        show(qzinstdir(kind));
    puts("--");
    for (int kind = REG_BASE; kind <= REG_C_INCLUDE; kind++)
        show(reg_instdir(kind));
    show(reg_mkpath(REG_DAT, "en_msgs.txt"));
    show(reg_mkpath(REG_DAT, "/abs/x"));
    return 0;
}

int main(int argc, char **argv)
{
    if (argc == 2 && strcmp(argv[1], "list") == 0)
        return list_kinds();
    if (argc == 3 && strcmp(argv[1], "trace") == 0) {
        gDebugOut = stdout;
        gDebugFlags = DEBUG_TRACE;
        const char *path = qzinstdir(atoi(argv[2]));
        gDebugFlags = 0;
        return path != nullptr ? 0 : 1;
    }
    show(qzinstdir(QZINSTDIR_VERSION));
    if (argc == 3 && strcmp(argv[1], "later") == 0 && mkdir(argv[2], 0777) == 0)
        show(qzinstdir(QZINSTDIR_VERSION));
    if (argc == 4 && strcmp(argv[1], "moved") == 0 && rename(argv[2], argv[3]) == 0)
        show(qzinstdir(QZINSTDIR_VERSION));
    return 0;
}
