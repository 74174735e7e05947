// Shared by the parts of the debug facility; not for other modules.
#ifndef COMMON_DIAGNOSTICS_QZDEBUG_INTERNAL_H
#define COMMON_DIAGNOSTICS_QZDEBUG_INTERNAL_H

#include <cstdint>

struct HashTable;

// The settings of "--qzdebug" other than the trace's own state.
struct DebugSettings {
    bool parsed;           // an option has been processed
    bool outGiven;         // the user named the debug-out file
    const char *package;   // path of the package, or null
    HashTable *debugged;   // names of the programs to run under the debugger, or null
    uint32_t number;       // in the default name of the debug-out file
    const char *directory; // current when the option was read, for relative paths; or null
};
extern DebugSettings gDebugSettings;

#endif
