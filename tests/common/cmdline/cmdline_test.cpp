// Taking in a command line: the splitter of response files, their nesting, escapes, and the order
// of the driver's steps.
#include "common/cmdline/cmdline.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/diagnostics/alert.h"
#include "common/os/osdep_process.h"
#include "common/trace/qzdebug.h"
#include "tests/common/broken_contract.h"
#include "tests/common/trace_lines.h"

using Strings = std::vector<std::string>;
using testing::Eq;
using testing::ExitedWithCode;

static const char TOO_LONG[] = "(917) argument too long\n";

static Strings strings_of(Vector *vector)
{
    Strings strings;
    for (const char *text : vec_each<const char>(vector))
        strings.push_back(text);
    return strings;
}

// A scratch directory for each test, which is the current directory meanwhile.
class Cmdline : public testing::Test {
  protected:
    std::filesystem::path scratch;
    std::filesystem::path previous = std::filesystem::current_path();
    int oldInput = -1;

    void SetUp() override
    {
        char name[] = "/tmp/cmdline_test.XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        scratch = name;
        std::filesystem::current_path(scratch);
    }

    void TearDown() override
    {
        osdep_restoreInput(oldInput);
        std::filesystem::current_path(previous);
        std::filesystem::remove_all(scratch);
    }

    static void write(const std::string &name, const std::string &text)
    {
        std::ofstream(name, std::ios::binary) << text;
    }

    // A file of separators with a text after them.
    static void write_padded(const std::string &name, size_t separators, const std::string &text)
    {
        write(name, "");
        std::filesystem::resize_file(name, separators);
        std::ofstream(name, std::ios::binary | std::ios::app) << text;
    }

    // Until the end of the test.
    void redirect_input(const char *path)
    {
        osdep_restoreInput(oldInput);
        oldInput = osdep_redirectInput(path);
        EXPECT_GE(oldInput, 0);
    }

    // The entries that cmdline_readArgs() makes of `text`, including the first.
    Strings read(const std::string &text, int singleLine = 0)
    {
        write("input", text);
        redirect_input("input");
        return entries(cmdline_readArgs(singleLine, "name"));
    }

    static Strings entries(char **array)
    {
        Strings strings;
        for (int i = 0; array[i] != nullptr; ++i)
            strings.push_back(array[i]);
        EXPECT_EQ(static_cast<int>(strings.size()), cmdline_readCount());
        return strings;
    }

    // The arguments that cmdline_args() makes of a command line.
    static Strings intake(Strings arguments, CmdlineVisitor visitor = nullptr)
    {
        arguments.insert(arguments.begin(), "qzm-cc");
        std::vector<char *> argv;
        for (std::string &argument : arguments)
            argv.push_back(argument.data());
        Vector *result = cmdline_args(static_cast<int>(argv.size()), argv.data(), visitor);
        Strings strings = strings_of(result);
        vec_destroy(result);
        return strings;
    }

    // The arguments from a response file with this content.
    static Strings expand(const std::string &text)
    {
        write("response", text);
        return intake({"@response"});
    }
};

using CmdlineRead = Cmdline;
using CmdlineIntake = Cmdline;
using CmdlineResponseFile = Cmdline;
using CmdlineDriver = Cmdline;

// ---- Splitting: docs/command-file.md, common/cmdline/cmdline_readargs.cpp
// -------------------------------

TEST_F(CmdlineRead, EntryZeroIsTheNameAndNullEndsTheArray)
{
    EXPECT_EQ(read(""), Strings({"name"}));
}

TEST_F(CmdlineRead, SpacesTabsAndNewlinesEndTokensAndAdjacentOnesGiveEmptyTokens)
{
    EXPECT_EQ(read("a b\tc\nd"), Strings({"name", "a", "b", "c", "d"}));
    EXPECT_EQ(read("a  b \n\t\n"), Strings({"name", "a", "", "b", "", "", ""}));
}

TEST_F(CmdlineRead, AnOpenTokenAtTheEndOfTheInputIsAppendedUnlessItIsEmpty)
{
    EXPECT_EQ(read("a\nb"), Strings({"name", "a", "b"}));
    EXPECT_EQ(read("a\n"), Strings({"name", "a"}));
    EXPECT_EQ(read("a "), Strings({"name", "a"}));
}

TEST_F(CmdlineRead, QuotesKeepSpacesAndTheOtherQuotes)
{
    EXPECT_EQ(read("-O2 'a b' \"it's 'so'\" e\\ f\n"),
              Strings({"name", "-O2", "a b", "it's 'so'", "e f"}));
    EXPECT_EQ(read("'say \"x\"' x'a b'y\"c d\"z"), Strings({"name", "say \"x\"", "xa byc dz"}));
    EXPECT_EQ(read("'' \"\"\n"), Strings({"name", "", ""}));
}

TEST_F(CmdlineRead, AQuoteEndsWithItsLine)
{
    EXPECT_EQ(read("'a b\nc d'\ne f\n"), Strings({"name", "a b", "c", "d", "e", "f"}));
}

TEST_F(CmdlineRead, ATabInQuotesEndsTheTokenAndLeavesTheQuoteOpen)
{
    EXPECT_EQ(read("'a\tb c' d"), Strings({"name", "a", "b c", "d"}));
}

TEST_F(CmdlineRead, ABackslashProtectsBackslashQuotesAndSpace)
{
    EXPECT_EQ(read("a\\\\b \\'c\\\" d\\ e"), Strings({"name", "a\\b", "'c\"", "d e"}));
    EXPECT_EQ(read("\"a\\\"b\\ c\" 'd\\'e'"), Strings({"name", "a\"b c", "d'e"}));
}

TEST_F(CmdlineRead, ABackslashBeforeAnyOtherCharacterIsKept)
{
    EXPECT_EQ(read("C:\\new \\x\\\ry"), Strings({"name", "C:\\new", "\\x\\\ry"}));
}

TEST_F(CmdlineRead, ABackslashAtTheEndOfALineIsDropped)
{
    EXPECT_EQ(read("a \\\nb\\\nc"), Strings({"name", "a", "", "b", "c"}));
    EXPECT_EQ(read("\\\n'b \\\n'c"), Strings({"name", "", "b ", "c"}));
    EXPECT_EQ(read("-IC:\\x\\"), Strings({"name", "-IC:\\x"}));
    EXPECT_EQ(read("\\"), Strings({"name"}));
    EXPECT_EQ(read("a\\\\\nb\\\\\\\n"), Strings({"name", "a\\", "b\\"}));
    EXPECT_EQ(read("a\\\r\nb"), Strings({"name", "a\\\r", "b"}));
}

TEST_F(CmdlineRead, ABackslashDoesNotReachTheNextLine)
{
    EXPECT_EQ(read("\\\nb"), Strings({"name", "", "b"}));
    EXPECT_EQ(read("a\\\n'b c'"), Strings({"name", "a", "b c"}));
    EXPECT_EQ(read("a\\\n b\n", 1), Strings({"name", "a"}));
    EXPECT_EQ(entries(cmdline_readArgs(1, "name")), Strings({"name", "", "b"}));
}

TEST_F(CmdlineRead, ABackslashBeforeATabCountsForTheNextToken)
{
    EXPECT_EQ(read("a\\\tb"), Strings({"name", "a", "\\b"}));
    EXPECT_EQ(read("a\\\t'b"), Strings({"name", "a", "'b"}));
    EXPECT_EQ(read("a\\\t b\\\t\\c"), Strings({"name", "a", " b", "\\c"}));
    EXPECT_EQ(read("'a\\\t'b c"), Strings({"name", "a", "'b c"}));
    EXPECT_EQ(read("a\\\t\t\nb"), Strings({"name", "a", "", "", "b"}));
    EXPECT_EQ(read(std::string("a\\\0b", 4)), Strings({"name", "a", "\\b"}));
}

TEST_F(CmdlineRead, ControlCharactersAreOrdinary)
{
    EXPECT_EQ(read("a\r\nb\v\fc\x01\x7f\xff\n"), Strings({"name", "a\r", "b\v\fc\x01\x7f\xff"}));
}

TEST_F(CmdlineRead, ANulEndsTheTokenAndTheRestStillCounts)
{
    EXPECT_EQ(read(std::string("a\0b 'c\0d e' f\n", 14)),
              Strings({"name", "a", "b", "c", "d e", "f"}));
}

TEST_F(CmdlineRead, OneLineLeavesTheNextForTheNextReading)
{
    EXPECT_EQ(read("a 'b\nc\n", 1), Strings({"name", "a", "b"}));
    EXPECT_EQ(entries(cmdline_readArgs(1, "again")), Strings({"again", "c"}));
    EXPECT_EQ(entries(cmdline_readArgs(1, "again")), Strings({"again"}));
}

TEST_F(CmdlineRead, ATokenOf2047CharactersIsNotTooLong)
{
    testing::internal::CaptureStderr();
    const std::string longest(2047, 'x');
    EXPECT_EQ(read(longest + " b\n" + longest), Strings({"name", longest, "b", longest}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(CmdlineRead, ALongerTokenIsReportedAndCutAndEndsTheReading)
{
    testing::internal::CaptureStderr();
    const std::string longest(2047, 'x');
    EXPECT_EQ(read("a " + longest + "y b\nc"), Strings({"name", "a", longest}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), TOO_LONG);
}

TEST_F(CmdlineRead, ABackslashThatFindsNoRoomIsReportedToo)
{
    const std::string longest(2047, 'x');
    testing::internal::CaptureStderr();
    EXPECT_EQ(read(longest + "\\yb"), Strings({"name", longest}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), TOO_LONG);
}

TEST_F(CmdlineRead, ABackslashThatIsDroppedNeedsNoRoom)
{
    const std::string longest(2047, 'x');
    testing::internal::CaptureStderr();
    EXPECT_EQ(read(longest + "\\\nb"), Strings({"name", longest, "b"}));
    EXPECT_EQ(read(longest + "\\\tb"), Strings({"name", longest, "\\b"}));
    EXPECT_EQ(read(longest + "\\"), Strings({"name", longest}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(CmdlineRead, TheArrayGrowsPastEveryStep)
{
    for (const int count : {1021, 1022, 1023, 1024, 2047, 2048, 5000}) {
        std::string text;
        Strings expected = {"name"};
        for (int i = 0; i < count; ++i) {
            expected.push_back("-D" + std::to_string(i));
            text += expected.back() + "\n";
        }
        EXPECT_EQ(read(text), expected) << count;
    }
}

TEST_F(CmdlineRead, ATerminalIsPromptedForEachLine)
{
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    if (terminal < 0 || grantpt(terminal) != 0 || unlockpt(terminal) != 0)
        GTEST_SKIP() << "this system gives no terminals";
    redirect_input(ptsname(terminal));
    ASSERT_EQ(::write(terminal, "a b\nc\n\x04", 7), 7);
    testing::internal::CaptureStdout();
    EXPECT_EQ(entries(cmdline_readArgs(0, "name")), Strings({"name", "a", "b", "c"}));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "name> name> name> ");

    ASSERT_EQ(::write(terminal, "d\n", 2), 2);
    std::clearerr(stdin);
    testing::internal::CaptureStdout();
    EXPECT_EQ(entries(cmdline_readArgs(1, "name")), Strings({"name", "d"}));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    close(terminal);
}

TEST_F(CmdlineRead, AFileIsNotPromptedFor)
{
    testing::internal::CaptureStdout();
    read("a\nb\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(CmdlineReadDeathTest, ANullNameIsABrokenContract)
{
    EXPECT_BROKEN_IN("common/cmdline", cmdline_readArgs(0, nullptr), "promptName != NULL", 50);
}

// ---- Intake -----------------------------------------------------------------------------------

TEST_F(CmdlineIntake, SkipsTheProgramNameAndKeepsTheOrder)
{
    EXPECT_EQ(intake({"-c", "b.c", "-c", "a.c"}), Strings({"-c", "b.c", "-c", "a.c"}));
    EXPECT_EQ(intake({}), Strings());
}

TEST_F(CmdlineIntake, AcceptsACommandLineWithoutEvenAName)
{
    char *none[] = {nullptr};
    Vector *result = cmdline_args(0, none, nullptr);
    EXPECT_EQ(vec_size(result), 0u);
    vec_destroy(result);
}

TEST_F(CmdlineIntake, RemembersTheFirstProgramNameItSees)
{
    intake({});
    char other[] = "other";
    char *argv[] = {other, nullptr};
    vec_destroy(cmdline_args(1, argv, nullptr));
    EXPECT_EQ(cmdline_programName(), cache_string("qzm-cc"));
}

TEST_F(CmdlineIntake, InternsTheArguments)
{
    char name[] = "qzm-cc";
    char argument[] = "a\\ b";
    char *argv[] = {name, argument, nullptr};
    Vector *result = cmdline_args(2, argv, nullptr);
    EXPECT_EQ(vec_elementAt(result, 0), cache_string("a b"));
    vec_destroy(result);
}

TEST_F(CmdlineIntake, DropsEmptyArguments)
{
    EXPECT_EQ(intake({"", "a", "", "b", ""}), Strings({"a", "b"}));
}

TEST_F(CmdlineIntake, RemovesTheBackslashBeforeBlankQuotesAndBackslash)
{
    EXPECT_EQ(intake({"a\\ b", "\\\"", "\\'", "\\\\"}), Strings({"a b", "\"", "'", "\\"}));
    EXPECT_EQ(intake({"\\\\ ", "\\\\\\ x", "\\\\n"}), Strings({"\\ ", "\\ x", "\\n"}));
}

TEST_F(CmdlineIntake, KeepsTheBackslashBeforeAnythingElse)
{
    EXPECT_EQ(intake({"\\n", "a\\", "\\\t", "C:\\dir"}),
              Strings({"\\n", "a\\", "\\\t", "C:\\dir"}));
}

TEST_F(CmdlineIntake, KeepsAnAtSignAlone)
{
    EXPECT_EQ(intake({"@", "a"}), Strings({"@", "a"}));
}

TEST_F(CmdlineIntake, KeepsAResponseFileThatCannotBeReadAsItIsWritten)
{
    std::filesystem::create_directory("directory");
    testing::internal::CaptureStderr();
    EXPECT_EQ(intake({"@missing\\ \\\\file", "@directory", "@directory/"}),
              Strings({"@missing\\ \\\\file", "@directory", "@directory/"}));
    EXPECT_EQ(expand("x @gone @directory"), Strings({"x", "@gone", "@directory"}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(CmdlineIntake, KeepsAResponseFileWithoutPermission)
{
    write("secret", "a");
    ASSERT_EQ(chmod("secret", 0), 0);
    ASSERT_EQ(chmod(".", 0755), 0);
    const auto run = [] {
        // The superuser could read it.
        if (geteuid() == 0 && setuid(65534) != 0)
            _exit(2);
        _exit(intake({"@secret", "b"}) == Strings({"@secret", "b"}) ? 0 : 1);
    };
    EXPECT_EXIT(run(), ExitedWithCode(0), Eq(""));
}

TEST_F(CmdlineIntake, ADebugOptionIsNoticedByItsBeginningAndStays)
{
    EXPECT_EQ(intake({"--qzdebu", "-qzdebug", "x--qzdebug"}),
              Strings({"--qzdebu", "-qzdebug", "x--qzdebug"}));
    EXPECT_EQ(cmdline_debugSeen(), 0);
    EXPECT_EQ(intake({"--qzdebugger\\ x"}), Strings({"--qzdebugger x"}));
    EXPECT_EQ(cmdline_debugSeen(), 1);
    intake({"-c"});
    EXPECT_EQ(cmdline_debugSeen(), 1);
}

static Strings visited;

static void visit(const char *argument)
{
    visited.push_back(argument);
}

TEST_F(CmdlineIntake, ShowsEachRawArgumentToTheVisitor)
{
    visited.clear();
    write("file", "b  'c d'");
    EXPECT_EQ(intake({"a\\ a", "", "@file"}, visit), Strings({"a a", "b", "c d"}));
    EXPECT_EQ(visited, Strings({"a\\ a", "", "@file", "b", "", "c d"}));
}

// ---- Response files ---------------------------------------------------------------------------

TEST_F(CmdlineResponseFile, IsReplacedInPlaceByItsArguments)
{
    write("file", "-O2 'a b' \"it's 'so'\" e\\ f\n");
    EXPECT_EQ(intake({"x", "@file", "y"}), Strings({"x", "-O2", "a b", "it's 'so'", "e f", "y"}));
}

TEST_F(CmdlineResponseFile, IsExpandedInsideAnotherInPlace)
{
    write("outer", "a @inner d");
    write("inner", "b @empty c");
    write("empty", " \n\n");
    EXPECT_EQ(intake({"1", "@outer", "2", "@inner"}),
              Strings({"1", "a", "b", "c", "d", "2", "b", "c"}));
}

TEST_F(CmdlineResponseFile, HasItsEscapesTakenOffTwice)
{
    // Once by the splitter, and once as an argument.
    EXPECT_EQ(expand("a\\\\\\\\b 'c\\\\ d' \\\\n"), Strings({"a\\b", "c d", "\\n"}));
}

TEST_F(CmdlineResponseFile, EmptyTokensDisappear)
{
    EXPECT_EQ(expand("  a  b \n\n\t''\n"), Strings({"a", "b"}));
}

TEST_F(CmdlineResponseFile, MayHaveBlanksInItsName)
{
    write("two words", "a");
    write("outer", "'@two words'");
    EXPECT_EQ(intake({"@two words", "@outer"}), Strings({"a", "a"}));
}

TEST_F(CmdlineResponseFile, ThatIsGivenTwiceCountsTwice)
{
    write("file", "a");
    write("twice", "@file @file");
    EXPECT_EQ(intake({"@file", "@file", "@twice"}), Strings({"a", "a", "a", "a"}));
}

TEST_F(CmdlineResponseFile, MayBeAPipeThatCanBeOpenedOnlyOnce)
{
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    std::thread writer([] { write("pipe", "a b\nc"); });
    EXPECT_EQ(intake({"@pipe", "d"}), Strings({"a", "b", "c", "d"}));
    writer.join();
}

TEST_F(CmdlineResponseFile, LeavesStandardInputWhereItStood)
{
    write("input", "first\nsecond\n");
    write("outer", "a @inner @none @/dev/stdin b");
    write("inner", "c");
    redirect_input("input");
    char line[100] = "";
    ASSERT_STREQ(std::fgets(line, sizeof line, stdin), "first\n");
    EXPECT_EQ(intake({"@inner", "@/dev/stdin", "@outer"}),
              Strings({"c", "first", "second", "a", "c", "@none", "first", "second", "b"}));
    EXPECT_STREQ(std::fgets(line, sizeof line, stdin), "second\n");
    EXPECT_EQ(std::fgets(line, sizeof line, stdin), nullptr);
}

TEST_F(CmdlineResponseFile, KeepsCarriageReturns)
{
    EXPECT_EQ(expand("a\r\nb\r\n"), Strings({"a\r", "b\r"}));
}

TEST_F(CmdlineResponseFile, ATokenTooLongDoesNotEndTheRun)
{
    const std::string longest(2047, 'x');
    testing::internal::CaptureStderr();
    write("file", longest + "y lost\n");
    EXPECT_EQ(intake({"@file", "b"}), Strings({longest, "b"}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), TOO_LONG);
}

TEST_F(CmdlineResponseFile, ALineOfTenMegabytesIsSplit)
{
    std::string text;
    Strings expected;
    for (int i = 0; text.size() < 10'000'000; ++i) {
        expected.push_back("-DNAME" + std::to_string(i) + "=" + std::string(90, 'x'));
        text += expected.back() + " ";
    }
    EXPECT_TRUE(expand(text) == expected);
    EXPECT_EQ(expand(std::string(10'000'000, ' ') + "a"), Strings({"a"}));
}

TEST_F(CmdlineResponseFile, TakesInAHundredThousandLongArguments)
{
    const std::string front = "-I" + std::string(380, 'd') + "/number";
    std::string text;
    Strings expected;
    for (int i = 0; i < 100'000; ++i) {
        expected.push_back(front + std::to_string(i));
        text += expected.back() + "\n";
    }
    EXPECT_TRUE(expand(text) == expected);
}

TEST_F(CmdlineResponseFile, ThatNamesItselfEndsTheRun)
{
    write("a", "x @a y");
    EXPECT_EXIT(intake({"@a"}), ExitedWithCode(1),
                Eq("(918) response file \"a\" includes itself\n"));
}

TEST_F(CmdlineResponseFile, ThatNamesItselfByAnotherPathEndsTheRun)
{
    write("a", "@./a");
    EXPECT_EXIT(intake({"@a"}), ExitedWithCode(1),
                Eq("(918) response file \"./a\" includes itself\n"));
    std::filesystem::create_symlink("b", "link");
    write("b", "@link");
    EXPECT_EXIT(intake({"@b"}), ExitedWithCode(1),
                Eq("(918) response file \"link\" includes itself\n"));
}

TEST_F(CmdlineResponseFile, ThatNamesItselfThroughOthersEndsTheRun)
{
    write("a", "@b");
    write("b", "@c");
    write("c", "@a");
    EXPECT_EXIT(intake({"@a"}), ExitedWithCode(1),
                Eq("(918) response file \"a\" includes itself\n"));
}

TEST_F(CmdlineResponseFile, APipeThatNamesItselfEndsTheRun)
{
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    const auto run = [] {
        std::thread writer([] { write("pipe", "@pipe"); });
        writer.detach();
        intake({"@pipe"});
    };
    EXPECT_EXIT(run(), ExitedWithCode(1), Eq("(918) response file \"pipe\" includes itself\n"));
}

// Files "1" to "levels", each naming the next; the last holds an argument.
static void write_chain(int levels)
{
    for (int i = 1; i < levels; ++i)
        std::ofstream(std::to_string(i)) << "@" << i + 1;
    std::ofstream(std::to_string(levels)) << "end";
}

TEST_F(CmdlineResponseFile, MayBeNestedAHundredLevelsDeep)
{
    write_chain(100);
    EXPECT_EQ(intake({"@1", "@1"}), Strings({"end", "end"}));
}

TEST_F(CmdlineResponseFile, NestedDeeperEndsTheRun)
{
    write_chain(101);
    EXPECT_EXIT(intake({"@1"}), ExitedWithCode(1),
                Eq("(919) response files are nested too deeply at \"101\"\n"));
}

TEST_F(CmdlineResponseFile, AMissingFileAtTheDeepestLevelIsKept)
{
    write_chain(100);
    write("100", "@101");
    EXPECT_EQ(intake({"@1"}), Strings({"@101"}));
}

TEST_F(CmdlineResponseFile, AMessageFileCannotSoftenTheEnd)
{
    write("en_msgs.txt", "918\t0\tfile \"%s\" is a loop\n919\tM\tdeep\n920\t0\tmuch %s\n");
    write("a", "@a");
    const auto run = [] {
        alert_loadFile("en_msgs.txt");
        intake({"@a"});
    };
    // The kind comes from the file only if this process has not raised a message before.
    EXPECT_EXIT(run(), ExitedWithCode(1),
                testing::MatchesRegex("\\(918\\) file \"a\" is a loop( \\(warning\\))?\n"));
}

TEST_F(CmdlineResponseFile, FilesThatMultiplyEndTheRun)
{
    for (int i = 1; i <= 30; ++i) {
        const std::string next = std::to_string(i + 1);
        write(std::to_string(i), "@" + next + " @" + next);
    }
    write("31", "lol");
    EXPECT_EXIT(
        intake({"@1"}), ExitedWithCode(1),
        testing::MatchesRegex("\\(920\\) response files expand to too much at \"[0-9]+\"\n"));
}

TEST_F(CmdlineResponseFile, ManyNamesDeepInsideEndTheRun)
{
    // Each is compared with all the files around it, although none of them is read.
    write_chain(99);
    std::filesystem::create_directory("directory");
    std::string names;
    for (int i = 0; i < 10'000; ++i)
        names += "@directory ";
    write("99", names);
    EXPECT_EXIT(intake({"@1"}), ExitedWithCode(1),
                Eq("(920) response files expand to too much at \"directory\"\n"));
}

TEST_F(CmdlineResponseFile, AnEndlessFileEndsTheRun)
{
    EXPECT_EXIT(intake({"@/dev/zero"}), ExitedWithCode(1),
                Eq("(920) response files expand to too much at \"/dev/zero\"\n"));
}

static constexpr size_t MEBIBYTE = 1024 * 1024;

TEST_F(CmdlineResponseFile, AllOfThemMayCost64Mebibytes)
{
    // Each byte counts, each file counts at least 4096, and each argument 256 more.
    write("small", "");
    write_padded("most", 64 * MEBIBYTE - 4096, "");
    EXPECT_EQ(intake({"@most", "@small", "a"}), Strings({"a"}));
    EXPECT_EXIT(intake({"@most", "@small", "@small"}), ExitedWithCode(1),
                Eq("(920) response files expand to too much at \"small\"\n"));

    write_padded("all", 64 * MEBIBYTE - 257, "x");
    EXPECT_EQ(intake({"@all"}), Strings({"x"}));
    write_padded("all", 64 * MEBIBYTE - 256, "x");
    EXPECT_EXIT(intake({"@all"}), ExitedWithCode(1),
                Eq("(920) response files expand to too much at \"all\"\n"));
}

TEST_F(CmdlineResponseFile, ShortArgumentsCostWhatTheyTakeInMemory)
{
    const size_t most = 64 * MEBIBYTE / 258; // "x", what ends it, 256
    std::string text;
    for (size_t i = 0; i < most; ++i)
        text += "x ";
    EXPECT_EQ(expand(text).size(), most);
    EXPECT_EXIT(expand(text + "x"), ExitedWithCode(1),
                Eq("(920) response files expand to too much at \"response\"\n"));
}

TEST_F(CmdlineResponseFile, TheBudgetIsThatOfOneCommandLine)
{
    write_padded("most", 40 * 1024 * 1024, "");
    EXPECT_EQ(intake({"@most"}), Strings());
    EXPECT_EQ(intake({"@most"}), Strings());
}

TEST_F(CmdlineResponseFile, AnErrorWhileItIsReadEndsTheRun)
{
    std::ifstream probe("/proc/self/mem");
    char byte;
    if (!probe || probe.read(&byte, 1))
        GTEST_SKIP() << "the system offers no file that fails when it is read";
    EXPECT_EXIT(
        intake({"@/proc/self/mem"}), ExitedWithCode(1),
        Eq("(921) response file \"/proc/self/mem\" could not be read: Input/output error\n"));
}

// ---- The driver -------------------------------------------------------------------------------

static Strings processed;
static int verbosity;

static Vector *process_to_nothing(Vector *arguments)
{
    processed = strings_of(arguments);
    return vec_new("test", 1);
}

static Vector *process_to_null(Vector *)
{
    return nullptr;
}

static Vector *process_to_same(Vector *arguments)
{
    verbosity = 1;
    return arguments;
}

static int drive(Strings arguments, CmdlineProcess process)
{
    std::vector<char *> argv;
    for (std::string &argument : arguments)
        argv.push_back(argument.data());
    verbosity = 0;
    return cmdline_driver(static_cast<int>(argv.size()), argv.data(), process, COMMAND_FILE_NEVER,
                          &verbosity);
}

TEST_F(CmdlineDriver, HandsTheArgumentsToTheCallbackAndRunsWhatItReturns)
{
    write("file", "b c");
    testing::internal::CaptureStderr();
    EXPECT_EQ(drive({"qzm-cc", "a\\ a", "@file"}, process_to_nothing), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "qzm-cc: fatal error: no input files\nprogram terminated.\n");
    EXPECT_EQ(processed, Strings({"a a", "b", "c"}));
}

TEST_F(CmdlineDriver, ReadsTheVerbosityAfterTheCallbackAndReturnsTheStatus)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(drive({"qzm-cc", "/bin/sh", "-c", "exit\\ 7"}, process_to_same), 7);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "/bin/sh -c exit 7\n");
}

TEST_F(CmdlineDriver, TracesTheRawArgumentsAndTheStatus)
{
    testing::internal::CaptureStderr();
    const Strings lines = trace_lines_while("cmdline", [] {
        drive({"qzm-cc", "a"}, process_to_nothing);
    });
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(lines,
              Strings({"no options were found, exiting with status 1", "Returning status: 1"}));
}

TEST_F(CmdlineDriver, ListsTheRawArgumentsInTheTraceBeforeTheyAreProcessed)
{
    testing::internal::CaptureStderr();
    char *text = nullptr;
    size_t size = 0;
    gDebugOut = open_memstream(&text, &size);
    gDebugFlags = DEBUG_TRACE;
    drive({"qzm-cc", "a\\ b", "", "@none"}, process_to_nothing);
    gDebugFlags = 0;
    fclose(gDebugOut);
    gDebugOut = nullptr;
    testing::internal::GetCapturedStderr();
    const std::string trace = text;
    free(text);
    const size_t listed = trace.find("\nAPP: qzm-cc\nARGS: qzm-cc a\\ b  @none\n");
    EXPECT_NE(listed, std::string::npos) << trace;
    EXPECT_LT(listed, trace.find("ENTER cmdline_spawn("));
}

TEST_F(CmdlineDriver, ABrokenContractEndsTheRun)
{
    char name[] = "qzm-cc";
    char *argv[] = {name, nullptr};
    EXPECT_EXIT(cmdline_driver(1, nullptr, process_to_null, 1, nullptr), ExitedWithCode(1),
                Eq("Assertion failed - argv != NULL (common/cmdline, line 20)\n"));
    EXPECT_EXIT(cmdline_args(1, nullptr, nullptr), ExitedWithCode(1),
                Eq("Assertion failed - argv != NULL (common/cmdline, line 10)\n"));
    EXPECT_EXIT(cmdline_driver(1, argv, nullptr, 1, nullptr), ExitedWithCode(1),
                Eq("Assertion failed - options_process != NULL (common/cmdline, line 21)\n"));
    EXPECT_EXIT(cmdline_driver(1, argv, process_to_null, 1, nullptr), ExitedWithCode(1),
                Eq("Assertion failed - args != NULL (common/cmdline, line 30)\n"));
}
