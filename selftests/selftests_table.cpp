#define MODULE "selftests/selftests_table"
#include <cstring>
#include <iterator>

#include "common/base/exitpath.h"
#include "common/base/stringcache.h"
#include "common/base/texts.h"
#include "common/base/vector.h"
#include "common/diagnostics/listing.h"
#include "common/trace/qzdebug.h"
#include "selftests/selftests_internal.h"
#include "selftests/stBuild.h"
#include "selftests/stDocumentation.h"
#include "selftests/stIntegrity.h"

SelftestState gSelftest;

static void keywordHelp(Selection *selection);
static void keywordAll(Selection *selection);
static void keywordNone(Selection *selection);
static void keywordDefault(Selection *selection);

static void setupVerbose()
{
    ++gSelftest.console;
}

static void setupBatch()
{
    ++gSelftest.batch;
}

static void setupXmlReport()
{
    gSelftest.xmlReport = true;
}

static void setupTextReport()
{
    gSelftest.textReport = true;
}

static constexpr bool YES = true;
static constexpr bool NO = false;

// One row per word: name, help; whether it is a group, whether it is in the default set; keyword,
// setup, tests. The order is that of the help and of the tests. A row belongs to the group that its
// name begins with; nothing else says so.
// clang-format off
static const SelftestRow s_table[] = {
    {"help", "Display a list of available options", NO, NO,
     keywordHelp, nullptr, nullptr},
    {"verbose", "Display self test progress and information", NO, YES,
     nullptr, setupVerbose, nullptr},
    {"batchverbose", "Display self test progress suitable for automated environments", NO, NO,
     nullptr, setupBatch, nullptr},
    {"xmlreport", "Report results in a JUnit xml file", NO, NO,
     nullptr, setupXmlReport, nullptr},
    {"txtreport", "Report results in a text file", NO, YES,
     nullptr, setupTextReport, nullptr},
    {"docs_readme", "Ensure readme files are present", NO, YES,
     nullptr, nullptr, stDocsReadme_tests},
    {"docs_userguide", "Ensure user guide files are present", NO, YES,
     nullptr, nullptr, stDocsUG_tests},
    {"docs", "All document related tests", YES, YES,
     nullptr, nullptr, stDocs_tests},
    {"integrity_manifest", "Ensure manifest is present and valid", NO, YES,
     nullptr, nullptr, stIntegrityManifest_tests},
    {"integrity_sha", "SHA check installed files", NO, YES,
     nullptr, nullptr, stIntegritySHA_tests},
    {"integrity_detailedsha", "SHA check installed files and note failed files", NO, NO,
     nullptr, nullptr, stIntegritySHAdetailed_tests},
    {"integrity_extra", "Check for extraneous files", NO, YES,
     nullptr, nullptr, stIntegrityExtra_tests},
    {"integrity", "All integrity related tests", YES, YES,
     nullptr, nullptr, stIntegrity_tests},
    {"build_devicesupport", "The device support file exists and is valid", NO, YES,
     nullptr, nullptr, stBuildDeviceSupport_tests},
    {"build_assembleORB", "Assemble a test file (orb-as) for all ORB devices", NO, YES,
     nullptr, nullptr, stBuildAssembleORB_tests},
    {"build_C90ORB", "C90 compile a test file for all ORB devices", NO, YES,
     nullptr, nullptr, stBuildC90ORB_tests},
    {"build_C99ORB", "C99 compile a test file for all ORB devices", NO, YES,
     nullptr, nullptr, stBuildC99ORB_tests},
    {"build_CPP", "Check for predefined macros and search paths", NO, YES,
     nullptr, nullptr, stBuildCPP_tests},
    {"build_lib", "Ensure objects can be added to/removed from libraries", NO, YES,
     nullptr, nullptr, stBuildLib_tests},
    {"build_ELM", "Compile a test file for all ELM devices", NO, YES,
     nullptr, nullptr, stBuildELM_tests},
    {"build", "All build related tests", YES, YES,
     nullptr, nullptr, stBuild_tests},
    {"", "", NO, NO,
     nullptr, nullptr, nullptr},
    {"all", "All of the above", NO, NO,
     keywordAll, nullptr, nullptr},
    {"none", "None of the above", NO, NO,
     keywordNone, nullptr, nullptr},
    {"default", "Default values (*)", NO, NO,
     keywordDefault, nullptr, nullptr},
};
// clang-format on

static constexpr uint32_t ROWS = std::size(s_table);

const SelftestRow *selftests_table(uint32_t *count)
{
    *count = ROWS;
    return s_table;
}

// ---- Groups -----------------------------------------------------------------------------------

static bool belongsTo(const SelftestRow &row, const char *group)
{
    return text_hasPrefix(row.name, group);
}

// The tests of the rows of a group, in the order of the table. A row that is not in the default set
// repeats at length what another one tests: it runs only when it is named.
static Vector *testsOfGroup(const char *group)
{
    TRACE_ENTER("group=\"%s\"", group);
    Vector *tests = vec_new(MODULE, __LINE__);
    for (const SelftestRow &row : s_table) {
        if (row.group || !row.standard || !belongsTo(row, group))
            continue;
        Vector *more = row.tests();
        vec_addAll(tests, more);
        vec_destroy(more);
    }
    return TRACE_RETURN("%p", tests);
}

Vector *stDocs_tests()
{
    TRACE_ENTER();
    return TRACE_RETURN("%p", testsOfGroup("docs"));
}

Vector *stIntegrity_tests()
{
    TRACE_ENTER();
    return TRACE_RETURN("%p", testsOfGroup("integrity"));
}

Vector *stBuild_tests()
{
    TRACE_ENTER();
    return TRACE_RETURN("%p", testsOfGroup("build"));
}

// ---- Selecting --------------------------------------------------------------------------------

// The rows selected so far. Removing a row only notes the length of the list, which takes constant
// time.
struct Selection {
    Vector *rows;           // of const SelftestRow, removed ones included
    uint32_t removed[ROWS]; // by row: its occurrences before this index are removed
};

static void append(Selection *selection, const SelftestRow *row)
{
    vec_add(selection->rows, row);
}

static void removeRow(Selection *selection, const SelftestRow *row)
{
    selection->removed[row - s_table] = vec_size(selection->rows);
}

static bool doesSomething(const SelftestRow *row)
{
    return row->setup != nullptr || row->tests != nullptr;
}

static void keywordAll(Selection *selection)
{
    TRACE_ENTER();
    for (const SelftestRow &row : s_table) {
        if (doesSomething(&row) && !row.group)
            append(selection, &row);
    }
}

static void keywordNone(Selection *selection)
{
    TRACE_ENTER();
    vec_removeAll(selection->rows);
    memset(selection->removed, 0, sizeof selection->removed);
}

static void keywordDefault(Selection *selection)
{
    TRACE_ENTER();
    for (const SelftestRow &row : s_table) {
        if (doesSomething(&row) && row.standard && !row.group)
            append(selection, &row);
    }
}

static void keywordHelp(Selection *)
{
    TRACE_ENTER();
    ++gSelftest.console;
    selftests_print(stdout, "     %-25s %s\n\n", "Option", "Description");
    for (const SelftestRow &row : s_table)
        selftests_print(stdout, "  %s  %-25s %s\n", row.standard ? "*" : " ", row.name, row.help);
    selftests_print(stdout, "\n\n");
    listing_finish();
    exitpath_leave(0);
}

static const SelftestRow *findRow(const char *name)
{
    for (const SelftestRow &row : s_table) {
        if (strcmp(row.name, name) == 0)
            return &row;
    }
    return nullptr;
}

static void removeNamed(Selection *selection, const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    const SelftestRow *named = findRow(name);
    if (named != nullptr)
        removeRow(selection, named);
    if (named != nullptr && named->group) {
        for (const SelftestRow &row : s_table) {
            if (belongsTo(row, name))
                removeRow(selection, &row);
        }
    }
}

static void applyWord(Selection *selection, const char *word)
{
    TRACE_ENTER("word=\"%s\"", word);
    if (*word == '-') {
        removeNamed(selection, word + 1);
    } else {
        const SelftestRow *row = findRow(*word == '+' ? word + 1 : word);
        if (row != nullptr && row->keyword != nullptr && *word != '+')
            row->keyword(selection);
        else if (row != nullptr)
            append(selection, row);
    }
}

// The rows that are still selected, in a new vector.
static Vector *remaining(const Selection *selection)
{
    Vector *rows = vec_new(MODULE, __LINE__);
    uint32_t index = 0;
    for (const SelftestRow *row : vec_each<const SelftestRow>(selection->rows)) {
        if (index++ >= selection->removed[row - s_table])
            vec_add(rows, row);
    }
    return rows;
}

Vector *selftests_choose(const char *list)
{
    TRACE_ENTER("list=\"%s\"", list);
    Selection selection = {};
    selection.rows = vec_new(MODULE, __LINE__);
    if (list == nullptr || *list == '\0') {
        keywordDefault(&selection);
    } else {
        Vector *words = cache_split(list, ",");
        for (const char *word : vec_each<const char>(words))
            applyWord(&selection, word);
        vec_destroy(words);
    }
    Vector *rows = remaining(&selection);
    vec_destroy(selection.rows);
    return TRACE_RETURN("%p", rows);
}
