// Shared by the two modes of the self-test: the rows that can be selected, the groups of them, how
// a list of words selects them, and printing on the console.
//
//     Vector *rows = selftests_choose("default,-docs");      // of const SelftestRow
//     for (const SelftestRow *row : vec_each<const SelftestRow>(rows)) ...
#ifndef SELFTESTS_SELFTESTS_INTERNAL_H
#define SELFTESTS_SELFTESTS_INTERNAL_H

#include <cstdint>
#include <cstdio>

struct Selection;
struct Vector;

// The requests of the selected rows' setup actions. All start at 0.
struct SelftestState {
    int console; // nothing is printed while this is 0
    int batch;   // above 0: the display is for a log, not for a terminal
    bool xmlReport;
    bool textReport;
};
extern SelftestState gSelftest;

// One word that "--selftest=" understands. A row with neither setup nor tests is only for the help.
struct SelftestRow {
    const char *name;
    const char *help;
    // Stands for all rows whose name begins with its own: their tests, as far as they are in the
    // default set, are its tests, and they are removed with it.
    bool group;
    bool standard; // in the default set
    // The effect of the bare word on the selection; null: it selects the row.
    void (*keyword)(Selection *selection);
    void (*setup)();    // run before the tests are gathered; or null
    Vector *(*tests)(); // a new vector of TestCase; or null
};

// The table and its length.
const SelftestRow *selftests_table(uint32_t *count);

// The test cases of the group rows: each a new vector of TestCase, the caller's to destroy.
Vector *stDocs_tests();
Vector *stIntegrity_tests();
Vector *stBuild_tests();

// The rows that `list` (null or empty: the default set) selects, in order, repeated ones repeated:
// a new vector of const SelftestRow. "help" in the list prints the help and ends the run with
// status 0.
Vector *selftests_choose(const char *list);

// Prints to `stream` and flushes it, while the console is wanted.
[[gnu::format(printf, 2, 3)]] void selftests_print(FILE *stream, const char *format, ...);

#endif
