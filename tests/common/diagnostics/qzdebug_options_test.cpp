// The option of the debug facility and the option for a child.
#include "common/diagnostics/qzdebug_options.h"

#include <sys/stat.h>

#include "common/base/hash.h"
#include "common/base/skiplist.h"
#include "common/base/vector.h"
#include "common/trace/qzdebug.h"
#include "qzdebug_fixture.h"

namespace {

class QzdebugOptions : public QzdebugProcess {
  protected:
    // The messages of parsing one option on standard error.
    std::string complaintsOf(const char *text) const
    {
        return inProcess([text] { qzdebug_parse(text); }).errors;
    }

    // The option for the first child named "qzm" after parsing `text`.
    std::string childOption(const char *text, DebugCaller caller = DBC_QZM) const
    {
        return inProcess([=] {
                   qzdebug_parse(text);
                   answer(qzdebug_childOption(caller, "qzm"));
               })
            .answers;
    }
};

} // namespace

// ---- The list of sub-options ------------------------------------------------------------------

TEST_F(QzdebugOptions, EachFeatureSetsItsBit)
{
    const struct {
        const char *option;
        uint32_t flags;
    } cases[] = {
        {"--qzdebug=default", 1},
        {"--qzdebug=on", 1},
        {"--qzdebug=sdb", 2},
        {"--qzdebug=dwarf", 4},
        {"--qzdebug=alerts", 8},
        {"--qzdebug=adt", 16},
        {"--qzdebug=on,adt,sdb,dwarf,alerts", 31},
        {"--qzdebug=assert:error", 0},
        {"--qzdebug=zip", 0},
        {"--qzdebug=num:3", 0},
        {"--qzdebug=debug:x", 0},
    };
    for (const auto &item : cases) {
        const Outcome outcome = inProcess([&] {
            qzdebug_parse(item.option);
            answer(std::to_string(gDebugFlags));
        });
        EXPECT_EQ(outcome.answers, std::to_string(item.flags) + "\n") << item.option;
        EXPECT_EQ(outcome.errors, "") << item.option;
    }
}

TEST_F(QzdebugOptions, TheWholeTextIsTheListWhenItHasNoEqualsSign)
{
    EXPECT_EQ(inProcess([] {
                  qzdebug_parse("on,adt");
                  answer(std::to_string(gDebugFlags));
              }).answers,
              "17\n");
}

TEST_F(QzdebugOptions, TheOptionWithoutAListIsAnUnknownItem)
{
    EXPECT_EQ(complaintsOf("--qzdebug"), warning("unknown option \"--qzdebug\""));
    EXPECT_EQ(complaintsOf("--qzdebug="), "");
    EXPECT_EQ(files(), Names{});
}

TEST_F(QzdebugOptions, EmptyItemsVanish)
{
    EXPECT_EQ(complaintsOf("--qzdebug=,,on,,"), "");
    EXPECT_EQ(files(), Names{"qzm-cc-1.out"});
}

TEST_F(QzdebugOptions, AnUnknownItemIsNamedAndTheOthersApply)
{
    EXPECT_EQ(complaintsOf("--qzdebug=xyz,on,O:n"),
              warning("unknown option \"xyz\"") + warning("unknown option \"O:n\""));
    EXPECT_EQ(files(), Names{"qzm-cc-1.out"});
}

TEST_F(QzdebugOptions, AnItemBelongsToTheFirstRowItBeginsWith)
{
    EXPECT_EQ(complaintsOf("--qzdebug=outfile:x"), "");
    EXPECT_EQ(files(), Names{"x"});
}

TEST_F(QzdebugOptions, ASecondOptionIsIgnoredWhateverItHolds)
{
    const Outcome outcome = inProcess([] {
        qzdebug_parse("--qzdebug=sdb");
        qzdebug_parse("--qzdebug=on,xyz,out:y");
        answer(std::to_string(gDebugFlags));
    });
    EXPECT_EQ(outcome.answers, "2\n");
    EXPECT_EQ(outcome.errors, warning("Ignoring extra --qzdebug options"));
    EXPECT_EQ(files(), Names{"qzm-cc-1.out"});
}

TEST_F(QzdebugOptions, ContainersAreRecordedFromHereOn)
{
    const auto recorded = [] {
        Vector *vector = vec_new("here", 1);
        HashTable *table = hash_new_func(1, nullptr, nullptr, "here", 2);
        SkipList *list = skiplist_new_func(nullptr, nullptr, nullptr, "here", 3);
        answer(vector->debug != nullptr ? "vector" : "no vector");
        answer(table->debug != nullptr ? "table" : "no table");
        answer(list->debug != nullptr ? "list" : "no list");
    };
    EXPECT_EQ(inProcess([&] {
                  qzdebug_parse("--qzdebug=on");
                  recorded();
              }).answers,
              "no vector\nno table\nno list\n");
    EXPECT_EQ(inProcess([&] {
                  qzdebug_parse("--qzdebug=adt");
                  recorded();
              }).answers,
              "vector\ntable\nlist\n");
}

// ---- The debug-out file -----------------------------------------------------------------------

TEST_F(QzdebugOptions, ANumberNamesTheDefaultFile)
{
    EXPECT_EQ(complaintsOf("--qzdebug=num:7,on"), "");
    EXPECT_EQ(files(), Names{"qzm-cc-7.out"});
}

TEST_F(QzdebugOptions, ANumberThatIsNoneKeepsTheOneBefore)
{
    for (const char *bad : {"0", "-4", "x", "99999999999999999999"}) {
        const std::string option = std::string("--qzdebug=on,num:") + bad;
        EXPECT_EQ(complaintsOf(option.c_str()),
                  warning("\"num\" option must be a decimal integer > 0, using \"1\""))
            << option;
    }
    EXPECT_EQ(complaintsOf("--qzdebug=num:5,num:0,on"),
              warning("\"num\" option must be a decimal integer > 0, using \"5\""));
    EXPECT_EQ(files(), (Names{"qzm-cc-1.out", "qzm-cc-5.out"}));
}

TEST_F(QzdebugOptions, ANumberMustBeGiven)
{
    const std::string expected = warning("option \"num\", must have an argument");
    EXPECT_EQ(complaintsOf("--qzdebug=num"), expected);
    EXPECT_EQ(complaintsOf("--qzdebug=num:"), expected);
}

TEST_F(QzdebugOptions, TheTraceGoesToTheNamedFile)
{
    const Outcome outcome = inProcess([] {
        qzdebug_parse("--qzdebug=on,out:my.out");
        trace_puts("hello");
        answer(gFilePath);
    });
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(outcome.answers, "my.out\n");
    EXPECT_EQ(contents(work() / "my.out"), "hello\n");
    EXPECT_EQ(files(), Names{"my.out"});
}

TEST_F(QzdebugOptions, ANamedFileIsReplacedAndWithAPlusContinued)
{
    std::ofstream(work() / "a.out") << "old\n";
    std::ofstream(work() / "b.out") << "old\n";
    inProcess([] {
        qzdebug_parse("--qzdebug=on,out:a.out");
        trace_puts("new");
    });
    inProcess([] {
        qzdebug_parse("--qzdebug=on,out:+b.out");
        trace_puts("new");
    });
    EXPECT_EQ(contents(work() / "a.out"), "new\n");
    EXPECT_EQ(contents(work() / "b.out"), "old\nnew\n");
}

TEST_F(QzdebugOptions, AFileMustBeNamedAndAnEmptyNameIsTheDefault)
{
    EXPECT_EQ(complaintsOf("--qzdebug=out"),
              warning("option \"out\", must have a filename argument"));
    EXPECT_EQ(files(), Names{});
    EXPECT_EQ(complaintsOf("--qzdebug=num:4,out:"), "");
    EXPECT_EQ(files(), Names{"qzm-cc-4.out"});
}

TEST_F(QzdebugOptions, ASecondFileTakesThePlaceOfTheFirst)
{
    const Outcome outcome = inProcess([] {
        qzdebug_parse("--qzdebug=on,out:a,out:+b");
        trace_puts("hello");
        answer(gFilePath);
    });
    EXPECT_EQ(outcome.errors, warning("debug-out file was set to \"a\", resetting to \"b\""));
    EXPECT_EQ(outcome.answers, "b\n");
    EXPECT_EQ(contents(work() / "a"), "");
    EXPECT_EQ(contents(work() / "b"), "hello\n");
}

TEST_F(QzdebugOptions, AFileThatCannotBeOpenedIsSaidAndTheDefaultTaken)
{
    const Outcome outcome = inProcess([] {
        qzdebug_parse("--qzdebug=on,out:none/x");
        answer(gFilePath);
    });
    EXPECT_EQ(outcome.errors, warning("could not open debug-out file \"none/x\""));
    EXPECT_EQ(outcome.answers, "qzm-cc-1.out\n");
    EXPECT_EQ(files(), Names{"qzm-cc-1.out"});
}

TEST_F(QzdebugOptions, ADefaultFileThatCannotBeOpenedIsAnErrorAndTheTraceStaysSilent)
{
    fs::create_directory(work() / "qzm-cc-1.out");
    const Outcome outcome = inProcess([] {
        qzdebug_parse("--qzdebug=on");
        trace_puts("hello");
        answer(gDebugOut == nullptr ? "closed" : "open");
    });
    EXPECT_EQ(outcome.errors, "(141) could not open debug-out file \"qzm-cc-1.out\": "
                              "Is a directory\n");
    EXPECT_EQ(outcome.answers, "closed\n");
}

TEST_F(QzdebugOptions, AnotherProgramNamesTheDefaultFile)
{
    inProcess([] {
        trace_setApplication("qzm");
        qzdebug_parse("--qzdebug=on,num:2");
    });
    EXPECT_EQ(files(), Names{"qzm-2.out"});
}

// ---- The other arguments ----------------------------------------------------------------------

TEST_F(QzdebugOptions, TheAssertModeIsTakenByWord)
{
    const struct {
        const char *option;
        const char *mode;
    } cases[] = {
        {"--qzdebug=assert:fatal", "1"},
        {"--qzdebug=assert:ERROR", "2"},
        {"--qzdebug=assert:Warning", "3"},
        {"--qzdebug=assert:fatal,assert:ignore", "0"},
    };
    for (const auto &item : cases) {
        const Outcome outcome = inProcess([&] {
            qzdebug_parse(item.option);
            answer(std::to_string(gDebugAssertMode));
        });
        EXPECT_EQ(outcome.answers, item.mode + std::string("\n")) << item.option;
        EXPECT_EQ(outcome.errors, "") << item.option;
    }
}

TEST_F(QzdebugOptions, AnotherWordKeepsTheAssertMode)
{
    const Outcome outcome = inProcess([] {
        qzdebug_parse("--qzdebug=assert:error,assert:fatally,assert:");
        answer(std::to_string(gDebugAssertMode));
    });
    EXPECT_EQ(outcome.answers, "2\n");
    EXPECT_EQ(outcome.errors, warning("unknown argument (fatally) given to assert option") +
                                  warning("unknown argument () given to assert option"));
    EXPECT_EQ(complaintsOf("--qzdebug=assert"),
              warning("option \"assert\", must have an argument"));
}

TEST_F(QzdebugOptions, ProgramsToDebugMustBeNamed)
{
    const std::string expected = warning("option \"debug\", must have at least one argument");
    EXPECT_EQ(complaintsOf("--qzdebug=debug"), expected);
    EXPECT_EQ(complaintsOf("--qzdebug=debug:"), expected);
    EXPECT_EQ(complaintsOf("--qzdebug=debug:::"), expected);
    EXPECT_EQ(complaintsOf("--qzdebug=debug:a:b"), "");
}

TEST_F(QzdebugOptions, AnExistingPackageIsRemovedUnlessItIsToBeContinued)
{
    std::ofstream(work() / "qzm_package.zip") << "old";
    std::ofstream(work() / "p.zip") << "old";
    EXPECT_EQ(complaintsOf("--qzdebug=zip:+p.zip"), "");
    EXPECT_EQ(files(), (Names{"p.zip", "qzm_package.zip"}));
    EXPECT_EQ(complaintsOf("--qzdebug=zip"),
              warning("Package zip \"qzm_package.zip\" already exists and will be over-written"));
    EXPECT_EQ(files(), Names{"p.zip"});
    EXPECT_EQ(complaintsOf("--qzdebug=zip:p.zip"),
              warning("Package zip \"p.zip\" already exists and will be over-written"));
    EXPECT_EQ(files(), Names{});
    EXPECT_EQ(complaintsOf("--qzdebug=zip:p.zip"), "");
}

TEST_F(QzdebugOptions, APackageThatCannotBeRemovedIsNamed)
{
    fs::create_directories(work() / "p.zip" / "full");
    EXPECT_EQ(complaintsOf("--qzdebug=zip:p.zip"),
              warning("Package zip \"p.zip\" already exists and will be over-written") +
                  warning("Unable to remove \"p.zip\", it will be updated if possible"));
}

TEST_F(QzdebugOptions, APackageThatIsNoFileIsNotRemoved)
{
    fs::create_directory(work() / "empty");
    fs::create_symlink("/dev/null", work() / "device");
    ASSERT_EQ(mkfifo((work() / "pipe").c_str(), 0600), 0);
    for (const std::string name : {"empty", "device", "pipe"})
        EXPECT_EQ(complaintsOf(("--qzdebug=zip:" + name).c_str()),
                  warning("Package zip \"" + name + "\" already exists and will be over-written") +
                      warning("Unable to remove \"" + name + "\", it will be updated if possible"));
    EXPECT_EQ(files(), (Names{"device", "empty", "pipe"}));
}

TEST_F(QzdebugOptions, OnlyTheFirstPackageCounts)
{
    std::ofstream(work() / "b.zip") << "old";
    EXPECT_EQ(complaintsOf("--qzdebug=zip:a.zip,zip:b.zip"),
              warning("Zip file already set to \"a.zip\", ignoring addtional zip options"));
    EXPECT_EQ(files(), Names{"b.zip"});
}

// ---- A null option ----------------------------------------------------------------------------

TEST_F(QzdebugOptions, ANullOptionAsksForNothingAndIsIgnored)
{
    const Outcome outcome = inProcess([] {
        qzdebug_parse(nullptr);
        answer(std::to_string(gDebugFlags));
        qzdebug_parse("--qzdebug=on");
    });
    EXPECT_EQ(outcome.answers, "0\n");
    EXPECT_EQ(outcome.errors, warning("Ignoring extra --qzdebug options"));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(files(), Names{});
}

TEST_F(QzdebugOptions, ANullOptionIsReportedAsTheAssertModeSays)
{
    const Outcome outcome = inProcess([] {
        gDebugAssertMode = 3;
        qzdebug_parse(nullptr);
    });
    EXPECT_NE(outcome.errors.find("text != NULL"), std::string::npos) << outcome.errors;
    EXPECT_EQ(outcome.status, 0);
}

// ---- The child's option -----------------------------------------------------------------------

TEST_F(QzdebugOptions, WithoutAnythingToHandOnThereIsNoOption)
{
    EXPECT_EQ(inProcess([] { answer(qzdebug_childOption(DBC_QZM, "qzm")); }).answers, "null\n");
    EXPECT_EQ(childOption("--qzdebug=xyz"), "null\n");
    EXPECT_EQ(childOption("--qzdebug=assert:ignore"), "null\n");
}

TEST_F(QzdebugOptions, EverySubOptionIsHandedOnInTheOrderOfTheTable)
{
    EXPECT_EQ(childOption("--qzdebug=num:9,adt,debug:qzm,assert:WARNING,alerts,zip:p.zip,dwarf,"
                          "sdb,out:x,on"),
              "--qzdebug=default,on,out:+x,sdb,dwarf,zip:+p.zip,alerts,assert:warning,debug:qzm,"
              "adt,num:1\n");
}

TEST_F(QzdebugOptions, TheDefaultFileIsNotHandedOn)
{
    EXPECT_EQ(childOption("--qzdebug=on"), "--qzdebug=default,on,num:1\n");
    EXPECT_EQ(childOption("--qzdebug=zip"), "--qzdebug=zip:+qzm_package.zip\n");
}

TEST_F(QzdebugOptions, CompilersToDebugAreNotHandedOnNorAnyProgramByAToolChainDriver)
{
    EXPECT_EQ(childOption("--qzdebug=debug:orbc:orbc18:qzm"), "--qzdebug=debug:qzm\n");
    EXPECT_EQ(childOption("--qzdebug=debug:orbc:orbc18"), "null\n");
    EXPECT_EQ(childOption("--qzdebug=debug:qzm", DBC_DRIVER), "null\n");
}

TEST_F(QzdebugOptions, ProgramsToDebugAreHandedOnOnceWhateverTheirCase)
{
    EXPECT_EQ(childOption("--qzdebug=debug:Foo:foo"), "--qzdebug=debug:Foo\n");
}

TEST_F(QzdebugOptions, ChildrenOfOneNameAreNumbered)
{
    const Outcome outcome = inProcess([] {
        qzdebug_parse("--qzdebug=sdb");
        for (const char *callee : {"qzm", "qzm", "elm-gcc", "qzm", "elm-gcc"})
            answer(qzdebug_childOption(DBC_QZM, callee));
    });
    EXPECT_EQ(outcome.answers, "--qzdebug=sdb,num:1\n--qzdebug=sdb,num:2\n--qzdebug=sdb,num:1\n"
                               "--qzdebug=sdb,num:3\n--qzdebug=sdb,num:2\n");
}

TEST_F(QzdebugOptions, AChildNeedsAKnownCallerAndAName)
{
    EXPECT_EQ(inProcess([] { qzdebug_childOption(static_cast<DebugCaller>(2), "qzm"); }).errors,
              "Assertion failed - caller == DBC_QZM || caller == DBC_DRIVER (common/qzdebug, "
              "line 200)\n");
    EXPECT_EQ(inProcess([] { qzdebug_childOption(DBC_QZM, nullptr); }).errors,
              "Assertion failed - callee != NULL (common/qzdebug, line 201)\n");
}
