// Holds the table of the self-test's words to its rules, and the language that selects its rows.
#include <chrono>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/base/vector.h"
#include "selftests/selftests_internal.h"
#include "selftests/stBuild.h"
#include "selftests/stDocumentation.h"
#include "selftests/stIntegrity.h"

namespace {

using Strings = std::vector<std::string>;

struct ExpectedRow {
    const char *name;
    const char *help;
    bool group;
    bool standard;
    Vector *(*tests)();
};

// clang-format off
const ExpectedRow expectedRows[] = {
    {"help", "Display a list of available options", false, false, nullptr},
    {"verbose", "Display self test progress and information", false, true, nullptr},
    {"batchverbose", "Display self test progress suitable for automated environments", false, false,
     nullptr},
    {"xmlreport", "Report results in a JUnit xml file", false, false, nullptr},
    {"txtreport", "Report results in a text file", false, true, nullptr},
    {"docs_readme", "Ensure readme files are present", false, true, stDocsReadme_tests},
    {"docs_userguide", "Ensure user guide files are present", false, true, stDocsUG_tests},
    {"docs", "All document related tests", true, true, stDocs_tests},
    {"integrity_manifest", "Ensure manifest is present and valid", false, true,
     stIntegrityManifest_tests},
    {"integrity_sha", "SHA check installed files", false, true, stIntegritySHA_tests},
    {"integrity_detailedsha", "SHA check installed files and note failed files", false, false,
     stIntegritySHAdetailed_tests},
    {"integrity_extra", "Check for extraneous files", false, true, stIntegrityExtra_tests},
    {"integrity", "All integrity related tests", true, true, stIntegrity_tests},
    {"build_devicesupport", "The device support file exists and is valid", false, true,
     stBuildDeviceSupport_tests},
    {"build_assembleORB", "Assemble a test file (orb-as) for all ORB devices", false, true,
     stBuildAssembleORB_tests},
    {"build_C90ORB", "C90 compile a test file for all ORB devices", false, true,
     stBuildC90ORB_tests},
    {"build_C99ORB", "C99 compile a test file for all ORB devices", false, true,
     stBuildC99ORB_tests},
    {"build_CPP", "Check for predefined macros and search paths", false, true, stBuildCPP_tests},
    {"build_lib", "Ensure objects can be added to/removed from libraries", false, true,
     stBuildLib_tests},
    {"build_ELM", "Compile a test file for all ELM devices", false, true, stBuildELM_tests},
    {"build", "All build related tests", true, true, stBuild_tests},
    {"", "", false, false, nullptr},
    {"all", "All of the above", false, false, nullptr},
    {"none", "None of the above", false, false, nullptr},
    {"default", "Default values (*)", false, false, nullptr},
};
// clang-format on

TEST(SelftestTable, RowsAreInTheirOrderWithEverythingTheySay)
{
    uint32_t count = 0;
    const SelftestRow *rows = selftests_table(&count);
    ASSERT_EQ(count, std::size(expectedRows));
    for (uint32_t i = 0; i < count; ++i) {
        EXPECT_STREQ(rows[i].name, expectedRows[i].name);
        EXPECT_STREQ(rows[i].help, expectedRows[i].help);
        EXPECT_EQ(rows[i].group, expectedRows[i].group) << rows[i].name;
        EXPECT_EQ(rows[i].standard, expectedRows[i].standard) << rows[i].name;
        EXPECT_EQ(rows[i].tests, expectedRows[i].tests) << rows[i].name;
    }
}

TEST(SelftestTable, FourRowsSetSomethingUp)
{
    uint32_t count = 0;
    const SelftestRow *rows = selftests_table(&count);
    std::string seen;
    for (uint32_t i = 0; i < count; ++i) {
        if (rows[i].setup == nullptr)
            continue;
        gSelftest = {};
        rows[i].setup();
        rows[i].setup();
        seen += std::string(rows[i].name) + ": " + std::to_string(gSelftest.console) +
                std::to_string(gSelftest.batch) + std::to_string(gSelftest.xmlReport) +
                std::to_string(gSelftest.textReport) + "\n";
    }
    gSelftest = {};
    EXPECT_EQ(seen, "verbose: 2000\nbatchverbose: 0200\nxmlreport: 0010\ntxtreport: 0001\n");
}

// ---- Selecting --------------------------------------------------------------------------------

Strings selected(const char *list)
{
    Strings names;
    Vector *rows = selftests_choose(list);
    for (const SelftestRow *row : vec_each<const SelftestRow>(rows))
        names.emplace_back(row->name);
    vec_destroy(rows);
    return names;
}

const Strings DEFAULT = {"verbose",
                         "txtreport",
                         "docs_readme",
                         "docs_userguide",
                         "integrity_manifest",
                         "integrity_sha",
                         "integrity_extra",
                         "build_devicesupport",
                         "build_assembleORB",
                         "build_C90ORB",
                         "build_C99ORB",
                         "build_CPP",
                         "build_lib",
                         "build_ELM"};
const Strings ALL = {"verbose",
                     "batchverbose",
                     "xmlreport",
                     "txtreport",
                     "docs_readme",
                     "docs_userguide",
                     "integrity_manifest",
                     "integrity_sha",
                     "integrity_detailedsha",
                     "integrity_extra",
                     "build_devicesupport",
                     "build_assembleORB",
                     "build_C90ORB",
                     "build_C99ORB",
                     "build_CPP",
                     "build_lib",
                     "build_ELM"};

Strings without(Strings names, const std::string &prefix)
{
    std::erase_if(names, [&](const std::string &name) { return name.rfind(prefix, 0) == 0; });
    return names;
}

Strings joined(Strings front, const Strings &back)
{
    front.insert(front.end(), back.begin(), back.end());
    return front;
}

TEST(Selection, WithoutAListIsTheDefaultSet)
{
    EXPECT_EQ(selected(nullptr), DEFAULT);
    EXPECT_EQ(selected(""), DEFAULT);
    EXPECT_EQ(selected("default"), DEFAULT);
}

TEST(Selection, AllIsEveryRowThatDoesSomethingButTheGroups)
{
    EXPECT_EQ(selected("all"), ALL);
}

TEST(Selection, AListWithoutWordsSelectsNothing)
{
    EXPECT_EQ(selected(","), Strings{});
    EXPECT_EQ(selected(",,,"), Strings{});
}

TEST(Selection, WordsSelectTheirRowsInTheOrderGiven)
{
    EXPECT_EQ(selected("build_lib,docs,xmlreport"), (Strings{"build_lib", "docs", "xmlreport"}));
    EXPECT_EQ(selected(",build_lib,,docs,"), (Strings{"build_lib", "docs"}));
}

TEST(Selection, ARowSelectedTwiceIsThereTwice)
{
    EXPECT_EQ(selected("docs,docs"), (Strings{"docs", "docs"}));
    EXPECT_EQ(selected("docs_readme,default"), joined({"docs_readme"}, DEFAULT));
}

TEST(Selection, APlusSelectsTheRowOfThatName)
{
    EXPECT_EQ(selected("+docs,+xmlreport"), (Strings{"docs", "xmlreport"}));
}

TEST(Selection, KeywordsBehindAPlusAreOnlyNamesOfRows)
{
    EXPECT_EQ(selected("docs,+help,+all,+default,+none"),
              (Strings{"docs", "help", "all", "default", "none"}));
}

TEST(Selection, WordsThatNameNoRowAreIgnored)
{
    EXPECT_EQ(selected("nonsense,Docs,doc,docs_,+nonsense,-nonsense, docs,++docs,+-docs"),
              Strings{});
    EXPECT_EQ(selected("docs,nonsense"), Strings{"docs"});
}

TEST(Selection, AMinusRemovesEveryOccurrenceOfTheRow)
{
    EXPECT_EQ(selected("docs,xmlreport,docs,-docs"), Strings{"xmlreport"});
    EXPECT_EQ(selected("default,-verbose"), without(DEFAULT, "verbose"));
}

TEST(Selection, AMinusRemovesNothingThatComesLater)
{
    EXPECT_EQ(selected("-docs,docs"), Strings{"docs"});
    EXPECT_EQ(selected("docs,-docs,docs"), Strings{"docs"});
}

TEST(Selection, AMinusAndAGroupRemoveAllRowsWhoseNameBeginsWithIt)
{
    EXPECT_EQ(selected("default,-docs"), without(DEFAULT, "docs"));
    EXPECT_EQ(selected("all,-integrity"), without(ALL, "integrity"));
    EXPECT_EQ(selected("all,-build"), without(ALL, "build"));
    EXPECT_EQ(selected("docs,docs_readme,xmlreport,-docs"), Strings{"xmlreport"});
}

TEST(Selection, AMinusAndARowOfAGroupLeavesTheGroup)
{
    EXPECT_EQ(selected("docs,docs_readme,-docs_readme"), Strings{"docs"});
}

TEST(Selection, KeywordsBehindAMinusAreOnlyNamesOfRows)
{
    EXPECT_EQ(selected("default,-all,-default,-none,-help"), DEFAULT);
    EXPECT_EQ(selected("+all,-all"), Strings{});
}

TEST(Selection, NoneDropsWhatWasSelectedBefore)
{
    EXPECT_EQ(selected("all,none"), Strings{});
    EXPECT_EQ(selected("all,-docs,none,docs_readme"), Strings{"docs_readme"});
}

TEST(Selection, SignsAloneNameTheEmptyRow)
{
    EXPECT_EQ(selected("docs,-"), Strings{"docs"});
    EXPECT_EQ(selected("+"), Strings{""});
    EXPECT_EQ(selected("+,docs,-"), Strings{"docs"});
}

std::string repeated(const std::string &text, int times)
{
    std::string all;
    for (int i = 0; i < times; ++i)
        all += text;
    return all;
}

// Lists of 100,000 words and more. Searching what is selected for each would take minutes.
TEST(Selection, LongListsTakeTimeInProportion)
{
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(selected(repeated("docs,", 100000).c_str()).size(), 100000U);
    EXPECT_EQ(selected(repeated("docs,-docs,", 100000).c_str()).size(), 0U);
    EXPECT_EQ(selected((repeated("verbose,", 100000) + repeated("-docs,", 100000)).c_str()).size(),
              100000U);
    EXPECT_EQ(selected((repeated("all,", 20000) + repeated("-build,", 20000)).c_str()).size(),
              20000U * without(ALL, "build").size());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

// ---- Help -------------------------------------------------------------------------------------

const char *const HELP = "     Option                    Description\n\n"
                         "     help                      Display a list of available options\n"
                         "  \\*  verbose                   Display self test progress and "
                         "information\n"
                         "     batchverbose              Display self test progress suitable for "
                         "automated environments\n"
                         "     xmlreport                 Report results in a JUnit xml file\n"
                         "  \\*  txtreport                 Report results in a text file\n";

using SelectionDeathTest = testing::Test;

// Standard output is what the tests of the program look at; here the status is.
TEST(SelectionDeathTest, HelpEndsTheRunWhateverElseTheListHolds)
{
    for (const char *list : {"help", "help,none", "docs,help", "none,help,nonsense"})
        EXPECT_EXIT(
            {
                fclose(stdout);
                stdout = stderr;
                selected(list);
            },
            testing::ExitedWithCode(0), HELP)
            << list;
}

TEST(SelectionDeathTest, HelpThatCannotBeWrittenIsSaid)
{
    EXPECT_EXIT(
        {
            stdout = fopen("/dev/full", "w");
            selected("help");
        },
        testing::ExitedWithCode(1), "could not write file \"standard output\"");
}

} // namespace
