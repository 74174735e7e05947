// The checkers of the build tests: macros and search paths, libraries.
#include "common/os/osdep_host.h"
#include "tests/selftests/build_fixture.h"

namespace {

// A case for the device 16z30 with nothing recorded.
class CheckerTest : public BuildFixture {
  protected:
    void SetUp() override
    {
        BuildFixture::SetUp();
        record.device = "16z30";
        record.deviceType = 2;
        test = tsuite_newtest("build", "checked", nullptr, &record);
        fs::create_directory(scratch + "/out");
        output = scratch + "/out/qzfile";
    }
    void TearDown() override
    {
        free(test);
        BuildFixture::TearDown();
    }
    Failure recorded() const
    {
        return {text(test->failureType), text(test->failureMessage), text(test->output)};
    }

    BuildTest record = {};
    TestCase *test = nullptr;
    std::string output; // the output path
};

// ---- Macros and search paths ------------------------------------------------------------------

class CppChecker : public CheckerTest {
  protected:
    int check(const std::string &printed)
    {
        return check_cpp(test, output.c_str(), printed.c_str());
    }
    std::string search(const std::string &paths) const
    {
        return "#include \"...\" search starts here:\n /nowhere/quoted\n"
               "#include <...> search starts here:\n" +
               paths + "End of search list.\n";
    }
};

const std::string MACROS = "#define __QZM__ 1\n";
const char *const NO_MACROS = "failed predefined macros for 16z30";
const char *const NO_PATHS = "failed include search path for 16z30";

TEST_F(CppChecker, MacrosAndExistingPathsPass)
{
    EXPECT_EQ(check(MACROS + search(" " + root + "/bin\n\t " + root + "/docs\n")), 4);
    EXPECT_EQ(recorded(), PASSED);
}

TEST_F(CppChecker, NoOutputIsAFailureOfItsOwn)
{
    EXPECT_EQ(check(""), 0);
    EXPECT_EQ(recorded(), failed("failed preprocess test for 16z30", "no compiler output found"));
    EXPECT_EQ(check_cpp(test, output.c_str(), nullptr), 0);
}

TEST_F(CppChecker, TheOutputFileAndItsPreprocessedTwinAreLookedAtToo)
{
    std::ofstream(output) << MACROS;
    std::ofstream(output + ".i") << search(root + "/bin\n");
    EXPECT_EQ(check("something\n"), 3);
    EXPECT_EQ(recorded(), PASSED);
}

TEST_F(CppChecker, AnOutputThatIsNoFileIsNotRead)
{
    fs::create_directory(output);
    EXPECT_EQ(check(MACROS + search("")), 2);
    EXPECT_EQ(recorded(), PASSED);
}

TEST_F(CppChecker, TheLongMacroMissing)
{
    const std::string printed = "#define __QZ 1\n" + search("");
    EXPECT_EQ(check(printed), 1);
    EXPECT_EQ(recorded(), failed(NO_MACROS, "__QZM__ not defined\n" + printed));
}

TEST_F(CppChecker, BothMacrosMissingRecordsTheSecond)
{
    const std::string printed = "#define QZ 1\n" + search("");
    EXPECT_EQ(check(printed), 0);
    EXPECT_EQ(recorded(), failed(NO_MACROS, "__QZ not defined\n" + printed));
}

TEST_F(CppChecker, NoSearchListIsRecordedWithAllThatWasFound)
{
    std::ofstream(output) << "and this\n";
    EXPECT_EQ(check(MACROS), 2);
    EXPECT_EQ(recorded(),
              failed(NO_PATHS, "no include search path found\n" + MACROS + "and this\n"));
}

TEST_F(CppChecker, TheLastPathThatDoesNotExistIsTheOneRecorded)
{
    EXPECT_EQ(check(MACROS + search(" /nowhere/one\n " + root + "/bin\n  /nowhere/two\n")), 3);
    EXPECT_EQ(recorded(), failed(NO_PATHS, "include search path does not exists: /nowhere/two"));
}

TEST_F(CppChecker, TheSearchListEndsWithTheOutputAtTheLatest)
{
    EXPECT_EQ(check(MACROS + "#include <...> search starts here:"), 2);
    EXPECT_EQ(check(MACROS + "#include <...> search starts here:\n"), 2);
    EXPECT_EQ(check(MACROS + "#include <...> search starts here:\n\n \t\n " + root + "/bin"), 3);
    EXPECT_EQ(recorded(), PASSED);
}

TEST_F(CppChecker, PathsBehindTheEndOfTheListAreNone)
{
    EXPECT_EQ(check(MACROS + search(root + "/bin\r\n") + "/nowhere\n"), 3);
    EXPECT_EQ(recorded(), PASSED);
}

// ---- Libraries --------------------------------------------------------------------------------

// A librarian that makes a library of one module of less than 256 bytes, and takes the module out
// of the kept copy beside the library.
const char *const LIBRARIAN =
    "pwd > \"$0.cwd\"\n"
    "case $1 in\n"
    "-r) size=$(printf %o \"$(wc -c < \"$3\")\")\n"
    "    { printf '\\0\\0\\1\\0\\0\\0\\0\\0'; printf \"\\\\$size\"; printf "
    "'\\0\\0\\0\\0\\0\\0\\0x\\0'\n"
    "      cat \"$3\"; } > \"$2\";;\n"
    "-x) for kept in *_orig.p1; do cp \"$kept\" \"${kept%_orig.p1}.p1\"; done;;\n"
    "esac\n";
const std::string OBJECT = "Version 1.0\nNORVELL Software Intermediate Code and more\n";

const char *const NOT_MADE = "failed to create library for 16z30";
const char *const BADLY_MADE = "failed library creation for 16z30";
const char *const NOT_TAKEN = "failed to extract from library for 16z30";
const char *const BADLY_TAKEN = "failed library extraction for 16z30";

class LibraryChecker : public CheckerTest {
  protected:
    void SetUp() override
    {
        CheckerTest::SetUp();
        std::ofstream(output + ".p1") << OBJECT;
    }
    int check() { return check_lib(test, output.c_str(), "compiled"); }
    Strings left() const
    {
        Strings names;
        for (const auto &entry : fs::directory_iterator(scratch + "/out"))
            names.push_back(entry.path().filename());
        return names;
    }
    // The words between "-r" and the object in the details.
    std::string library() const
    {
        const Strings words = commandOf("bin/qzm-ar");
        return words.size() > 2 ? words[2] : "";
    }
};

TEST_F(LibraryChecker, AModuleThatComesBackAsItWasPassesAndNothingIsLeft)
{
    tool("bin/qzm-ar", LIBRARIAN);
    EXPECT_EQ(check(), 2);
    EXPECT_EQ(recorded(), PASSED);
    EXPECT_EQ(left(), Strings{});
}

TEST_F(LibraryChecker, TheLibrarianIsAskedToAddAndInTheDirectoryToExtract)
{
    script("bin/qzm-ar", "echo \"$0 $*\" >> \"$0.calls\"\n" + std::string(LIBRARIAN));
    EXPECT_EQ(check(), 2);
    std::istringstream calls(contents(root + "/bin/qzm-ar.calls"));
    std::string librarian, operation, made, object, taken;
    calls >> librarian >> operation >> made >> object;
    EXPECT_EQ(operation, "-r");
    EXPECT_EQ(fs::path(made).parent_path(), scratch + "/out");
    EXPECT_EQ(fs::path(made).extension(), ".lib");
    EXPECT_EQ(object, output + ".p1");
    EXPECT_EQ(text(test->details),
              "\ncommand line: " + root + "/bin/qzm-ar -r " + made + " " + object + "\n");
    calls >> librarian >> operation >> taken;
    EXPECT_EQ(operation, "-x");
    EXPECT_EQ(taken, made);
    EXPECT_EQ(contents(root + "/bin/qzm-ar.cwd"), scratch + "/out\n");
    EXPECT_FALSE(fs::exists("/tmp/" + fs::path(made).filename().string()));
}

TEST_F(LibraryChecker, WithoutALibrarianFails)
{
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(recorded(), failed("16z30 library test", "Could not find qzm-ar"));
}

TEST_F(LibraryChecker, WithoutAnObjectFails)
{
    tool("bin/qzm-ar", LIBRARIAN);
    fs::remove(output + ".p1");
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(recorded(), failed(NOT_MADE, "could not find object: " + output + ".p1"));
    EXPECT_EQ(commandOf("bin/qzm-ar"), Strings{});
}

TEST_F(LibraryChecker, ALibrarianThatIsKilledFails)
{
    tool("bin/qzm-ar", "kill -9 $$\n");
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(recorded(), failed(NOT_MADE, "could not execute librarian"));
}

TEST_F(LibraryChecker, ALibrarianThatFailsIsRecordedWithItsOutput)
{
    tool("bin/qzm-ar", "echo no; exit 2\n");
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(recorded(), failed(BADLY_MADE, "no\n"));
}

TEST_F(LibraryChecker, AnythingButALibraryFails)
{
    tool("bin/qzm-ar", "echo made; echo rubbish > \"$2\"\n");
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(recorded(), failed(BADLY_MADE, "made\n"));
}

TEST_F(LibraryChecker, NoLibraryAtAllFails)
{
    tool("bin/qzm-ar", "echo made\n");
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(recorded(), failed(BADLY_MADE, "made\n"));
}

TEST_F(LibraryChecker, AnObjectThatCannotBeRenamedFails)
{
    tool("bin/qzm-ar", LIBRARIAN);
    fs::create_directories(output + "_orig.p1/full");
    EXPECT_EQ(check(), 1);
    EXPECT_EQ(recorded(), failed(NOT_TAKEN, "could not rename object: " + output + ".p1"));
}

TEST_F(LibraryChecker, ALibrarianKilledWhileExtractingFailsAndTheDirectoryIsPutBack)
{
    tool("bin/qzm-ar", std::string("test $1 = -r || kill -9 $$\n") + LIBRARIAN);
    EXPECT_EQ(check(), 1);
    EXPECT_EQ(recorded(), failed(NOT_TAKEN, "could not execute librarian"));
}

// The way back is an open directory, not a path.
TEST_F(LibraryChecker, ACurrentDirectoryThatIsMovedMeanwhileIsComeBackTo)
{
    const std::string first = scratch + "/first";
    const std::string moved = scratch + "/moved";
    tool("bin/qzm-ar", "test $1 = -r || mv " + first + " " + moved + "\n" + LIBRARIAN);
    fs::create_directory(first);
    fs::current_path(first);
    EXPECT_EQ(check(), 2);
    EXPECT_EQ(recorded(), PASSED);
    EXPECT_EQ(fs::current_path(), moved);
    fs::current_path(before);
}

TEST_F(LibraryChecker, ACurrentDirectoryThatIsGoneIsNoHindrance)
{
    tool("bin/qzm-ar", LIBRARIAN);
    fs::create_directory(scratch + "/gone");
    fs::current_path(scratch + "/gone");
    fs::remove(scratch + "/gone");
    EXPECT_EQ(check(), 2);
    EXPECT_EQ(recorded(), PASSED);
    EXPECT_EQ(osdep_cwd(), nullptr);
    fs::current_path(before);
}

TEST_F(LibraryChecker, ALibrarianThatFailsToExtractIsRecordedWithItsOutput)
{
    tool("bin/qzm-ar", std::string("test $1 = -r || { echo no; exit 1; }\n") + LIBRARIAN);
    EXPECT_EQ(check(), 1);
    EXPECT_EQ(recorded(), failed(BADLY_TAKEN, "no\n"));
}

TEST_F(LibraryChecker, NoExtractedObjectFails)
{
    tool("bin/qzm-ar", std::string("test $1 = -r || { echo nothing; exit 0; }\n") + LIBRARIAN);
    EXPECT_EQ(check(), 1);
    EXPECT_EQ(recorded(), failed(BADLY_TAKEN, "nothing\n"));
}

TEST_F(LibraryChecker, AnObjectThatDiffersFails)
{
    tool("bin/qzm-ar", std::string(LIBRARIAN) +
                           "test $1 = -r || for kept in *_orig.p1; do echo more >> "
                           "\"${kept%_orig.p1}.p1\"; done\n");
    EXPECT_EQ(check(), 1);
    EXPECT_EQ(recorded(), failed(BADLY_TAKEN, ""));
}

TEST_F(LibraryChecker, AnExtractedObjectThatCannotBeReadFailsAndDoesNotEndTheRun)
{
    tool("bin/qzm-ar", std::string("test $1 = -r || { for kept in *_orig.p1; do mkfifo "
                                   "\"${kept%_orig.p1}.p1\"; done; exit 0; }\n") +
                           LIBRARIAN);
    EXPECT_EQ(check(), 1);
    EXPECT_EQ(recorded(), failed(BADLY_TAKEN, ""));
}

using LibraryCheckerDeathTest = LibraryChecker;

TEST_F(LibraryCheckerDeathTest, NoNameForTheLibraryIsAnInternalError)
{
    tool("bin/qzm-ar", LIBRARIAN);
    EXPECT_EXIT(
        {
            forbidFiles();
            check();
        },
        testing::ExitedWithCode(1), "\\(2082\\) internal error: could not create a temporary file");
}

} // namespace
