// Checks the table of the self-test's words against its rules, and the language that selects its
// rows. All words with their help are in tests/cli/selftest/help.txt.
#include <algorithm>
#include <chrono>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "selftests/selftests_internal.h"
#include "selftests/stIntegrity.h"
#include "tests/selftests/build_fixture.h"

namespace {

// ---- The table --------------------------------------------------------------------------------

std::span<const SelftestRow> table()
{
    uint32_t count = 0;
    const SelftestRow *rows = selftests_table(&count);
    return {rows, count};
}

// The rows that are not groups and fulfil a condition.
template <typename Condition> std::vector<const SelftestRow *> membersWhere(Condition condition)
{
    std::vector<const SelftestRow *> rows;
    for (const SelftestRow &row : table()) {
        if (!row.group && condition(row))
            rows.push_back(&row);
    }
    return rows;
}

bool isIn(const SelftestRow &row, const SelftestRow &group)
{
    return std::string(row.name).rfind(group.name, 0) == 0;
}

TEST(SelftestTable, NamesDifferAndOnlyTheBlankLineIsWithoutNameAndHelp)
{
    std::set<std::string> names;
    for (const SelftestRow &row : table()) {
        EXPECT_TRUE(names.insert(row.name).second) << row.name;
        EXPECT_EQ(*row.help == '\0', *row.name == '\0') << row.name;
    }
    EXPECT_EQ(names.count(""), 1U);
}

// A sign or a comma could not be written in a list.
TEST(SelftestTable, NamesCanBeWrittenInAList)
{
    for (const SelftestRow &row : table())
        EXPECT_EQ(std::string(row.name).find_first_of("+-, "), std::string::npos) << row.name;
}

TEST(SelftestTable, ARowDoesOneThing)
{
    for (const SelftestRow &row : table()) {
        const int things =
            (row.keyword != nullptr) + (row.setup != nullptr) + (row.tests != nullptr);
        EXPECT_EQ(things, *row.name == '\0' ? 0 : 1) << row.name;
    }
}

TEST(SelftestTable, ARowThatDoesNothingToARunIsNotInTheDefaultSet)
{
    for (const SelftestRow &row : table())
        EXPECT_FALSE(row.standard && row.setup == nullptr && row.tests == nullptr) << row.name;
}

// Members come before their group: the help says "all" of what it has listed.
TEST(SelftestTable, EveryRowWithTestsIsAGroupOrBelongsToTheNextOne)
{
    const SelftestRow *group = nullptr;
    for (size_t i = table().size(); i-- > 0;) {
        const SelftestRow &row = table()[i];
        if (row.group) {
            group = &row;
        } else if (row.tests != nullptr) {
            EXPECT_TRUE(group != nullptr && isIn(row, *group)) << row.name;
        }
    }
}

TEST(SelftestTable, RowsThatBelongToAGroupHaveTestsAndNoOtherGroup)
{
    for (const SelftestRow &group : table()) {
        for (const SelftestRow &row : table()) {
            if (group.group && &row != &group && isIn(row, group)) {
                EXPECT_TRUE(!row.group && row.tests != nullptr) << row.name;
            }
        }
    }
}

TEST(SelftestTable, FourRowsSetSomethingUp)
{
    std::string seen;
    for (const SelftestRow &row : table()) {
        if (row.setup == nullptr)
            continue;
        gSelftest = {};
        row.setup();
        row.setup();
        seen += std::string(row.name) + ": " + std::to_string(gSelftest.console) +
                std::to_string(gSelftest.batch) + std::to_string(gSelftest.xmlReport) +
                std::to_string(gSelftest.textReport) + "\n";
    }
    gSelftest = {};
    EXPECT_EQ(seen, "verbose: 2000\nbatchverbose: 0200\nxmlreport: 0010\ntxtreport: 0001\n");
}

// ---- Groups -----------------------------------------------------------------------------------

// With a hash list, so that the detailed row has tests.
class SelftestGroups : public BuildFixture {
  protected:
    void SetUp() override
    {
        BuildFixture::SetUp();
        write("docs/README", "");
        ASSERT_TRUE(shahash_writeListDefault(root.c_str(), (root + "/manifest").c_str()));
    }
    // The tests of the rows of a group that are in the default set.
    static Strings gathered(const SelftestRow &group)
    {
        Strings all;
        for (const SelftestRow *row : membersWhere(
                 [&](const SelftestRow &each) { return each.standard && isIn(each, group); })) {
            for (const std::string &name : names(row->tests()))
                all.push_back(name);
        }
        return all;
    }
};

TEST_F(SelftestGroups, HaveTheTestsOfTheirRowsInTheDefaultSetInOrder)
{
    std::string groups;
    for (const SelftestRow &row : table()) {
        if (!row.group)
            continue;
        groups += std::string(row.name) + " ";
        EXPECT_EQ(names(row.tests()), gathered(row)) << row.name;
    }
    EXPECT_EQ(groups, "docs integrity build ");
}

TEST_F(SelftestGroups, LeaveOutTheDetailedTestsOfFiles)
{
    const std::string readme = "[integrity] SHA256 check README";
    const Strings detailed = names(stIntegritySHAdetailed_tests());
    const Strings group = names(stIntegrity_tests());
    EXPECT_EQ(std::count(detailed.begin(), detailed.end(), readme), 1);
    EXPECT_EQ(std::count(group.begin(), group.end(), readme), 0);
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

Strings namesOf(const std::vector<const SelftestRow *> &rows)
{
    Strings names;
    for (const SelftestRow *row : rows)
        names.emplace_back(row->name);
    return names;
}

bool doesSomething(const SelftestRow &row)
{
    return row.setup != nullptr || row.tests != nullptr;
}

const Strings ALL = namesOf(membersWhere(doesSomething));
const Strings DEFAULT = namesOf(
    membersWhere([](const SelftestRow &row) { return row.standard && doesSomething(row); }));

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

// Lists of 100,000 words and more. Searching the selection for each word would take minutes.
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

// The tests of the program look at standard output; here only the status is checked.
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
