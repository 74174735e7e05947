#define MODULE "tests/report"

#include "common/suite/tsuite.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/diagnostics/alert.h"
#include "common/suite/tsuite_internal.h"
#include "tests/common/suite/junit_rules.h"
#include "tests/common/suite/tsuite_fixture.h"
#include "tests/common/trace_lines.h"

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

std::string s_messages;

class TsuiteReport : public TsuiteTest {
  protected:
    void SetUp() override
    {
        TsuiteTest::SetUp();
        char name[] = "/tmp/tsuite_report_testXXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        directory = name;
        report = directory + "/report";
        s_messages.clear();
        alert_setOutputHook([](const char *text) { s_messages += text; });
    }

    void TearDown() override
    {
        alert_setOutputHook(nullptr);
        fs::remove_all(directory);
        TsuiteTest::TearDown();
    }

    // A suite that has run on the host "builder".
    static TestSuite *ran(const char *name, const std::vector<TestCase *> &tests)
    {
        TestSuite *suite = tsuite_new(name);
        suite->hostName = "builder";
        for (TestCase *test : tests)
            tsuite_addtest(suite, test);
        if (!tests.empty())
            tsuite_runCases(suite, nullptr, 0);
        fakeWall = {FAKE_NOW, 0};
        return suite;
    }

    // The suite of the pinned reports.
    static TestSuite *golden()
    {
        TestCase *detailed = failing("integrity", "SHA <check>", 62500);
        tsuite_addTestDetail(detailed, "two files differ");
        TestCase *talking = passing("build", "C90 & C99", 1234);
        talking->systemOutput = "three\nlines\nsaid";
        return ran("self test", {passing("docs", "check if readme file exists"), detailed,
                                 skipped("integrity", "manifest"), talking});
    }

    std::string reportText() const
    {
        std::ifstream file(report, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    // The whole report, or the reason why it failed.
    std::string junitOf(const TestSuite *suite) const
    {
        return tsuite_writeJUnit(suite, report.c_str()) == suite->tests ? reportText() : "failed";
    }

    std::string textOf(const TestSuite *suite) const
    {
        return tsuite_failDetails(suite, report.c_str()) == suite->failed ? reportText() : "failed";
    }

    // The output on standard error meanwhile.
    template <class Action> static std::string errorOutputOf(Action action)
    {
        testing::internal::CaptureStderr();
        action();
        return testing::internal::GetCapturedStderr();
    }

    std::string directory;
    std::string report;
};

// ---- Escaping ---------------------------------------------------------------------------------

struct Escape {
    const char *text;
    const char *escaped;
};

TEST(MakeTokenType, AmpersandsAndLessThanSignsAreEscapedOnce)
{
    const Escape rows[] = {
        {"", ""},
        {"plain", "plain"},
        {"a & b < c", "a &amp; b &lt; c"},
        {"a &amp; b &lt; c", "a &amp; b &lt; c"},
        {"> \"quoted\" 'too'", "> \"quoted\" 'too'"},
        {"&gt;&quot;&#65;", "&amp;gt;&amp;quot;&amp;#65;"},
        {"&am&amp&lt", "&amp;am&amp;amp&amp;lt"},
        {"&amp;amp;&&lt;<", "&amp;amp;&amp;&lt;&lt;"},
        {"&AMP;", "&amp;AMP;"},
        {"&", "&amp;"},
        {"\xC3\xA9\x01", "\xC3\xA9\x01"},
    };
    for (const Escape &row : rows)
        EXPECT_STREQ(makeTokenType(row.text), row.escaped);
}

TEST(MakeTokenType, EscapingTwiceChangesNothing)
{
    const char *once = makeTokenType("a & b < c &lt; d");
    EXPECT_EQ(makeTokenType(once), once);
}

TEST(MakeTokenType, TheResultIsInterned)
{
    EXPECT_EQ(makeTokenType("<&"), cache_string("&lt;&amp;"));
    EXPECT_EQ(makeTokenType(nullptr), nullptr);
}

TEST(MakeTokenType, TheTextMayHaveAnyLength)
{
    const std::string signs(100000, '<');
    std::string escaped;
    for (size_t i = 0; i < signs.size(); ++i)
        escaped += "&lt;";
    EXPECT_EQ(makeTokenType(signs.c_str()), escaped);
}

// ---- JUnit ------------------------------------------------------------------------------------

TEST_F(TsuiteReport, TheJUnitReportIsPinned)
{
    EXPECT_EQ(junitOf(golden()),
              "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
              "<testsuite name=\"self test\" timestamp=\"2024-02-29T23:59:58Z\" "
              "hostname=\"builder\" errors=\"0\" tests=\"4\" failures=\"1\" time=\"63.73\">\n"
              "\t<testcase time=\"0.00\" name=\"check if readme file exists\">\n"
              "\t</testcase>\n"
              "\t<testcase time=\"62.50\" name=\"SHA &lt;check>\">\n"
              "\t\t<failure type=\"fatal\" message=\"it broke\"><![CDATA[\n"
              "line one\n"
              "line two]]></failure>\n"
              "\t</testcase>\n"
              "\t<testcase time=\"0.00\" name=\"manifest\">\n"
              "\t</testcase>\n"
              "\t<testcase time=\"1.23\" name=\"C90 &amp; C99\">\n"
              "\t\t<system-out>\n"
              "three\n"
              "lines\n"
              "said\n"
              "\t\t</system-out>\n"
              "\t</testcase>\n"
              "</testsuite>\n");
    EXPECT_EQ(s_messages, "");
}

TEST_F(TsuiteReport, TheTimestampIsUtcWhereverTheHostIs)
{
    const char *old = getenv("TZ");
    const std::string saved = old != nullptr ? old : "";
    setenv("TZ", "XXX-9", 1);
    tzset();
    const std::string text = junitOf(ran("s", {passing("g", "a")}));
    if (old != nullptr)
        setenv("TZ", saved.c_str(), 1);
    else
        unsetenv("TZ");
    tzset();
    EXPECT_NE(text.find(" timestamp=\"2024-02-29T23:59:58Z\" "), std::string::npos) << text;
}

TEST_F(TsuiteReport, ATimeThatNoTimestampCanShowIsLeftEmpty)
{
    TestSuite *suite = ran("s", {passing("g", "a")});
    fakeWall.seconds = INT64_MAX;
    const std::string text = junitOf(suite);
    EXPECT_NE(text.find(" timestamp=\"\" "), std::string::npos) << text;
}

TEST_F(TsuiteReport, TheNamesOfSuiteAndHostAreEscaped)
{
    TestSuite *suite = ran("a < b", {passing("g", "a")});
    suite->hostName = "c & d";
    const std::string text = junitOf(suite);
    EXPECT_NE(text.find("<testsuite name=\"a &lt; b\" timestamp=\"2024-02-29T23:59:58Z\" "
                        "hostname=\"c &amp; d\" errors"),
              std::string::npos)
        << text;
}

TEST_F(TsuiteReport, TypeMessageOutputAndSystemOutputAreNotEscaped)
{
    TestSuite *suite = ran("s", {passing("g", "a")});
    auto *test = static_cast<TestCase *>(vec_elementAt(suite->list, 0));
    TSUITE_FAIL(test, "<t>", "a & b", "<![CDATA[%s]]>");
    test->systemOutput = "<o> & %s";
    const std::string text = junitOf(suite);
    EXPECT_NE(text.find("\t\t<failure type=\"<t>\" message=\"a & b\"><![CDATA[\n"
                        "<![CDATA[%s]]>]]></failure>\n"
                        "\t\t<system-out>\n<o> & %s\n\t\t</system-out>\n"),
              std::string::npos)
        << text;
}

TEST_F(TsuiteReport, AFailureWithoutMessageAndOutputLeavesThemEmpty)
{
    TestSuite *suite = ran("s", {passing("g", "a")});
    TSUITE_FAIL(static_cast<TestCase *>(vec_elementAt(suite->list, 0)), "fatal", nullptr, nullptr);
    const std::string text = junitOf(suite);
    EXPECT_NE(text.find("<failure type=\"fatal\" message=\"\"><![CDATA[\n]]></failure>\n"),
              std::string::npos)
        << text;
}

TEST_F(TsuiteReport, NoJUnitReportIsWrittenWithoutCases)
{
    TestSuite withoutList = {};
    const TestSuite *empty = tsuite_new("s");
    const TestSuite *suite = ran("s", {passing("g", "a")});
    EXPECT_EQ(trace_lines_while("tsuite",
                                [&] {
                                    EXPECT_EQ(tsuite_writeJUnit(nullptr, report.c_str()), -1);
                                    EXPECT_EQ(tsuite_writeJUnit(&withoutList, report.c_str()), -1);
                                    EXPECT_EQ(tsuite_writeJUnit(empty, report.c_str()), -1);
                                    EXPECT_EQ(tsuite_writeJUnit(suite, nullptr), -1);
                                }),
              (Lines{"could not write JUnit xml", "could not write JUnit xml",
                     "could not write JUnit xml", "could not write JUnit xml"}));
    EXPECT_FALSE(fs::exists(report));
}

TEST_F(TsuiteReport, AJUnitReportThatCannotBeOpenedIsOnlyTraced)
{
    const TestSuite *suite = ran("s", {passing("g", "a")});
    const std::string path = directory;
    Lines lines;
    EXPECT_EQ(errorOutputOf([&] {
                  lines = trace_lines_while(
                      "tsuite", [&] { EXPECT_EQ(tsuite_writeJUnit(suite, path.c_str()), -1); });
              }),
              "");
    EXPECT_EQ(lines, (Lines{"could not write to output file \"" + path + "\""}));
    EXPECT_EQ(s_messages, "");
}

TEST_F(TsuiteReport, AReportOfThePastIsOverwritten)
{
    std::ofstream(report) << std::string(100000, 'x');
    EXPECT_EQ(junitOf(ran("s", {passing("g", "a")})),
              "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
              "<testsuite name=\"s\" timestamp=\"2024-02-29T23:59:58Z\" hostname=\"builder\" "
              "errors=\"0\" tests=\"1\" failures=\"0\" time=\"0.00\">\n"
              "\t<testcase time=\"0.00\" name=\"a\">\n"
              "\t</testcase>\n"
              "</testsuite>\n");
}

// ---- What build servers accept ----------------------------------------------------------------

TEST_F(TsuiteReport, AReportWithoutFailuresKeepsTheRulesOfTheSchema)
{
    const TestSuite *suite =
        ran("self test", {passing("docs", "a & b < c &amp; d", 1500), skipped("docs", "e"),
                          passing(nullptr, nullptr), passing("g", "caf\xC3\xA9 > 'x'")});
    EXPECT_EQ(junitComplaint(junitOf(suite)), "");
}

TEST_F(TsuiteReport, AnOrdinaryFailureKeepsTheRulesToo)
{
    EXPECT_EQ(junitComplaint(junitOf(golden())), "");
}

// Text that is not escaped shows in the report, so the rules must notice it.
TEST_F(TsuiteReport, TheRulesNoticeWhatIsNotEscaped)
{
    const Escape rows[] = {
        {"a \"b\"", "no blank before an attribute of testcase"},
        {"a \x01", "a character that XML 1.0 does not have"},
        {"a \xFF", "a character that XML 1.0 does not have"},
        {"a \xED\xA0\x80", "a character that XML 1.0 does not have"},
        {"a \xC0\x80", "a character that XML 1.0 does not have"},
        {"", "the attribute name of testcase is \"\""},
    };
    for (const Escape &row : rows)
        EXPECT_EQ(junitComplaint(junitOf(ran("s", {passing("g", row.text)}))), row.escaped);
}

TEST_F(TsuiteReport, TheRulesNoticeEveryChangeOfTheReport)
{
    const std::string good = junitOf(golden());
    const struct {
        const char *part, *replacement, *complaint;
    } rows[] = {
        {"<?xml ", "<xml ", "no XML declaration"},
        {"</testsuite>\n", "", "the element testsuite does not end"},
        {"</testsuite>\n", "</testsuite>\n<a/>", "something behind the root element"},
        {"<testsuite ", "<suite ", "no element"},
        {" hostname=\"builder\"", "", "testsuite has no attribute hostname"},
        {" errors=\"0\"", " errors=\"0\" errors=\"0\"",
         "an attribute of testsuite that does not end or is there twice"},
        {" errors=\"0\"", " faults=\"0\"", "testsuite has an attribute faults"},
        {"time=\"63.73\"", "time=\"63,73\"", "the attribute time of testsuite is \"63,73\""},
        {"58Z", "58", "the attribute timestamp of testsuite is \"2024-02-29T23:59:58\""},
        {"tests=\"4\"", "tests=\"5\"", "the number of tests is wrong"},
        {"&lt;check", "<check", "\"<\" in an attribute of testcase"},
        {"&amp; C99", "& C99", "an ampersand that is not escaped"},
        {"said", "]]>", "\"]]>\" in a text"},
        {"two]]>", "two", "a CDATA section that does not end"},
        {"<system-out>", "<error/><system-out>", "an element error in testcase"},
        {"<system-out>", "<system-out a=\"\">", "system-out has an attribute a"},
        {"<system-out>", "text<system-out>", "text in testcase"},
    };
    for (const auto &row : rows) {
        std::string bad = good;
        const size_t at = bad.find(row.part);
        ASSERT_NE(at, std::string::npos) << row.part;
        bad.replace(at, std::string(row.part).size(), row.replacement);
        EXPECT_EQ(junitComplaint(bad), row.complaint) << row.part;
    }
}

// ---- Text -------------------------------------------------------------------------------------

const char GOLDEN_TEXT[] =
    "Test suite self test results. Total tests: 4; 1 failed\n"
    "\n"
    "GROUP           TEST NAME                                                              "
    "RESULT  TIME\n"
    "docs            check if readme file exists                                            "
    "pass    (0.00)\n"
    "integrity       SHA <check>                                                            "
    "fail    (62.50)\n"
    "----------integrity:SHA <check>----------\n"
    "==> type: fatal\n"
    "==> message: it broke\n"
    "==> details: two files differ\n"
    "<------Output-Start------>\n"
    "line one\n"
    "line two\n"
    "<------Output-End-------->\n"
    "\n"
    "integrity       manifest                                                               "
    "pass    (0.00)\n"
    "build           C90 & C99                                                              "
    "pass    (1.23)\n";

TEST_F(TsuiteReport, TheTextReportIsPinned)
{
    EXPECT_EQ(textOf(golden()), GOLDEN_TEXT);
    EXPECT_EQ(s_messages, "");
}

TEST_F(TsuiteReport, AFailureShowsOnlyWhatItHas)
{
    TestSuite *suite = ran("s", {passing(nullptr, "a")});
    TSUITE_FAIL(static_cast<TestCase *>(vec_elementAt(suite->list, 0)), "fatal", nullptr, nullptr);
    EXPECT_EQ(textOf(suite),
              "Test suite s results. Total tests: 1; 0 failed\n"
              "\n"
              "GROUP           TEST NAME                                                          "
              "    RESULT  TIME\n"
              "                a                                                                  "
              "    fail    (0.00)\n"
              "----------:a----------\n"
              "==> type: fatal\n"
              "\n");
}

TEST_F(TsuiteReport, AnEmptyOutputIsShownAsAnEmptyLine)
{
    TestSuite *suite = ran("s", {passing("g", "a")});
    TSUITE_FAIL(static_cast<TestCase *>(vec_elementAt(suite->list, 0)), "fatal", "", "");
    const std::string text = textOf(suite);
    EXPECT_NE(text.find("==> message: \n"
                        "<------Output-Start------>\n"
                        "\n"
                        "<------Output-End-------->\n\n"),
              std::string::npos)
        << text;
}

TEST_F(TsuiteReport, LongNamesPushTheColumnsAside)
{
    const std::string group(20, 'g');
    const std::string name(5000, 'n');
    const std::string text = textOf(ran("s", {passing(group.c_str(), name.c_str())}));
    EXPECT_NE(text.find("\n" + group + " " + name + " pass    (0.00)\n"), std::string::npos);
}

TEST_F(TsuiteReport, TheTextReportOfAnEmptySuiteIsItsHead)
{
    EXPECT_EQ(textOf(tsuite_new("s")),
              "Test suite s results. Total tests: 0; 0 failed\n"
              "\n"
              "GROUP           TEST NAME                                                          "
              "    RESULT  TIME\n");
}

TEST_F(TsuiteReport, WithoutASuiteNoTextReportIsWritten)
{
    EXPECT_EQ(tsuite_failDetails(nullptr, report.c_str()), 0);
    EXPECT_FALSE(fs::exists(report));
}

TEST_F(TsuiteReport, ATextReportThatCannotBeOpenedGoesToStandardError)
{
    TestSuite *suite = golden();
    for (const char *path : {directory.c_str(), "", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(errorOutputOf([&] { EXPECT_EQ(tsuite_failDetails(suite, path), 1); }),
                  GOLDEN_TEXT);
    }
    EXPECT_EQ(errorOutputOf([] { EXPECT_GE(std::fputs("still open", stderr), 0); }), "still open");
    EXPECT_EQ(s_messages, "");
}

// ---- A full disk ------------------------------------------------------------------------------

TEST_F(TsuiteReport, AReportThatCannotBeWrittenGivesTheReason)
{
    if (access("/dev/full", W_OK) != 0)
        GTEST_SKIP() << "no /dev/full here";
    const TestSuite *suite = golden();
    errno = 0;
    EXPECT_EQ(tsuite_writeJUnit(suite, "/dev/full"), -1);
    EXPECT_EQ(errno, ENOSPC);
    errno = 0;
    EXPECT_EQ(tsuite_failDetails(suite, "/dev/full"), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(s_messages, "");
}

TEST_F(TsuiteReport, AWriteThatFailsHalfWayGivesTheReason)
{
    if (access("/dev/full", W_OK) != 0)
        GTEST_SKIP() << "no /dev/full here";
    const std::string name(1000000, 'n');
    errno = 0;
    EXPECT_EQ(tsuite_failDetails(ran("s", {passing("g", name.c_str())}), "/dev/full"), -1);
    EXPECT_EQ(errno, ENOSPC);
}

} // namespace
