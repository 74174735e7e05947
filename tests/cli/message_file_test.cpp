// The message file of an installation, good and bad, as the user of a diagnostic sees it.
#include <filesystem>

#include "tests/cli/suite_fixture.h"

static const std::string BUILT_IN =
    "(2042) no target device specified; use the -mcpu option to specify a target device\n";

// The message when there is a message file that cannot be read.
static const std::string NO_DESCRIPTION =
    "(2042) An error, warning or message was generated, but no description is available\n";

class MessageFileTest : public SuiteTest {
  protected:
    // Runs without a device and expects that to be fatal, whatever the message file holds.
    RunResult runIntoMessage()
    {
        RunResult result = run({"-c", "main.c"}, {.endsEarly = true});
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_FALSE(child().ran);
        return result;
    }

    RunResult runWith(const std::string &bytes)
    {
        write(file(), bytes);
        return runIntoMessage();
    }

    std::string file() const { return suite + "/orb/dat/en_msgs.txt"; }
};

TEST_F(MessageFileTest, MissingGivesTheBuiltInTexts)
{
    EXPECT_EQ(runIntoMessage().err, BUILT_IN);
}

TEST_F(MessageFileTest, EmptyGivesTheBuiltInTexts)
{
    EXPECT_EQ(runWith("").err, BUILT_IN);
}

TEST_F(MessageFileTest, ATextIsTakenFromTheFile)
{
    EXPECT_EQ(runWith("2042\tF\tname a part with -mcpu\n").err, "(2042) name a part with -mcpu\n");
}

TEST_F(MessageFileTest, BesideTheProgramIsTheSecondChoice)
{
    write(suite + "/dat/en_msgs.txt", "2042 F from VER/dat\n");
    EXPECT_EQ(runIntoMessage().err, "(2042) from VER/dat\n");
}

TEST_F(MessageFileTest, EachChoiceGoesBeforeTheNext)
{
    const std::string beside = suite + "/dat/en_msgs.txt";
    write("en_msgs.txt", "2042 F third\n");
    write(beside, "2042 F second\n");
    EXPECT_EQ(runWith("2042 F first\n").err, "(2042) first\n");
    std::filesystem::remove(file());
    EXPECT_EQ(runIntoMessage().err, "(2042) second\n");
    std::filesystem::remove(beside);
    EXPECT_EQ(runIntoMessage().err, "(2042) third\n");
}

TEST_F(MessageFileTest, InTheCurrentDirectoryIsTheThirdChoice)
{
    write("en_msgs.txt", "2042 F from here\n");
    EXPECT_EQ(runIntoMessage().err, "(2042) from here\n");
}

TEST_F(MessageFileTest, AMilderKindDoesNotLetTheRunGoOn)
{
    for (const char *kind : {"E", "M", "0", "-9"}) {
        RunResult result = runWith(std::string("2042 ") + kind + " just saying\n");
        EXPECT_FALSE(result.timedOut);
    }
}

TEST_F(MessageFileTest, ConversionsThatTheProgramDoesNotFillGiveTheBuiltInText)
{
    for (const char *text : {"%n", "%s%s%s%s", "%d", "%", "%100000d", "%*d", "%1$s", "%hhn %m"})
        EXPECT_EQ(runWith(std::string("2042 F ") + text + "\n").err, BUILT_IN) << text;
}

TEST_F(MessageFileTest, ConversionsOfAMessageWithAValueAreCheckedToo)
{
    for (const char *text : {"%s and %s", "nothing", "%n", "%d", "%p"}) {
        write(file(), std::string("1428 0 ") + text + "\n");
        RunResult result = run({"-mcpu=elmbig1", "-mshroud"});
        EXPECT_EQ(result.err,
                  "(1428) \"-mshroud\" is not supported; this feature will be ignored (warning)\n")
            << text;
        EXPECT_EQ(result.status, 0);
    }
}

TEST_F(MessageFileTest, ATranslatedTextWithTheSameConversionsIsUsed)
{
    write(file(), "1428 0 \"%s\" geht hier nicht (100%%)\n");
    RunResult result = run({"-mcpu=elmbig1", "-mshroud"});
    EXPECT_EQ(result.err, "(1428) \"-mshroud\" geht hier nicht (100%) (warning)\n");
}

TEST_F(MessageFileTest, IsNotReadWhenNothingIsToBeSaid)
{
    write(file(), "not a message\n");
    RunResult result = run({"-mcpu=elmbig1", "main.c"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
}

TEST_F(MessageFileTest, MalformedLinesAreNamedAndTheOthersCount)
{
    RunResult result = runWith("hello\n2042 F found\n10001 E too high\n");
    EXPECT_NE(result.err.find("on line 1, in file " + file()), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("on line 3, in file " + file()), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("(2042) found\n"), std::string::npos) << result.err;
}

TEST_F(MessageFileTest, ADirectoryGivesNoDescription)
{
    std::filesystem::create_directory(file());
    EXPECT_EQ(runIntoMessage().err, NO_DESCRIPTION);
}

// Nobody writes to it, so the run would wait for ever.
TEST_F(MessageFileTest, ANamedPipeGivesNoDescription)
{
    const RunResult made = runProgram({"/usr/bin/mkfifo", file()});
    ASSERT_EQ(made.status, 0);
    const RunResult result = run({"main.c"}, {.endsEarly = true, .timeLimit = 10});
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, NO_DESCRIPTION);
}

TEST_F(MessageFileTest, UnreadableGivesNoDescription)
{
    if (!canBeNobody())
        GTEST_SKIP() << "needs root, and a build folder that everybody can reach";
    write(file(), "2042 F secret\n");
    std::filesystem::permissions(file(), std::filesystem::perms::none);
    RunResult result = run({"main.c"}, {.endsEarly = true, .asNobody = true});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, NO_DESCRIPTION);
}

TEST_F(MessageFileTest, BinaryBytesEndInTheBuiltInText)
{
    std::string bytes;
    for (unsigned i = 0, state = 1; i < 200000; i++, state = state * 1103515245 + 12345)
        bytes.push_back(static_cast<char>(state >> 16));
    RunResult result = runWith(bytes);
    EXPECT_EQ(result.err.substr(result.err.size() - std::min(result.err.size(), BUILT_IN.size())),
              BUILT_IN);
}

TEST_F(MessageFileTest, NulBytesEndInAMessage)
{
    RunResult result = runWith(std::string("2042\0F\0text\n\0\0\n", 16));
    EXPECT_NE(result.err.find("(2042) "), std::string::npos) << result.err;
}

TEST_F(MessageFileTest, ALineOf100KilobytesIsSurvived)
{
    RunResult result = runWith("2042 F " + std::string(100 * 1024, 'x') + "\n1428 0 %s\n");
    EXPECT_NE(result.err.find("(2042) "), std::string::npos);
    EXPECT_LT(result.seconds, 5);
}

TEST_F(MessageFileTest, ALineOf100KilobytesWithoutAnyMessageIsSurvived)
{
    RunResult result = runWith(std::string(100 * 1024, '9'));
    EXPECT_NE(result.err.find(BUILT_IN), std::string::npos);
}
