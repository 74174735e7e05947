// The end of a debugged run: the package and the container reports.
#include "common/trace/qzdebug.h"

#include <sys/stat.h>

#include "common/base/exitpath.h"
#include "common/base/hash.h"
#include "common/base/skiplist.h"
#include "common/base/vector.h"
#include "common/diagnostics/qzdebug_options.h"
#include "common/os/osdep_temp.h"
#include "package_zip_fixture.h"
#include "qzdebug_fixture.h"

namespace {

class QzdebugShutdown : public QzdebugProcess {
  protected:
    // A run of the driver with one line of trace, up to its end.
    static void run(const char *option)
    {
        qzdebug_parse(option);
        gDebugFlags &= ~DEBUG_TRACE; // only the line written here
        qzdebug_setComponent("qzm-cc");
        trace_puts("hello");
        qzdebug_shutdown();
    }

    Outcome outcomeOf(const std::string &option) const
    {
        return inProcess([&] { run(option.c_str()); });
    }

    // The complaints at the end of the run.
    std::string complaintsOf(const std::string &option) const
    {
        const Outcome outcome = outcomeOf(option);
        EXPECT_EQ(outcome.status, 0) << option;
        return outcome.errors;
    }

    std::string members(const char *package) const
    {
        return package_zip::listing(work() / package);
    }

    void put(const char *name, const std::string &bytes) const
    {
        std::ofstream(work() / name, std::ios::binary) << bytes;
    }

    // A file in the way of the package stays as it is, and there is one complaint about it.
    void expectUntouched(const char *what)
    {
        const std::string before = contents(work() / "p.zip");
        EXPECT_EQ(complaintsOf("on,zip:+p.zip"),
                  warning("Unable to open package zip file (p.zip) for reading to append "
                          "\"qzm-cc-1.out\""))
            << what;
        EXPECT_TRUE(contents(work() / "p.zip") == before) << what;
        EXPECT_EQ(files(), (Names{"p.zip", "qzm-cc-1.out"})) << what;
    }
};

// In the way in which the driver leaves early.
void leave(int status)
{
    qzdebug_shutdown();
    fflush(nullptr);
    osdep_removeTempFiles();
    _exit(status);
}

} // namespace

// ---- The package ------------------------------------------------------------------------------

TEST_F(QzdebugShutdown, TheTraceIsPackedUnderItsPath)
{
    EXPECT_EQ(complaintsOf("on,zip"), "");
    EXPECT_EQ(files(), (Names{"qzm-cc-1.out", "qzm_package.zip"}));
    EXPECT_EQ(members("qzm_package.zip"), "qzm-cc-1.out:6\n");
    EXPECT_EQ(complaintsOf("on,zip:p.zip,out:./sub/../x.out"),
              warning("could not open debug-out file \"./sub/../x.out\""));
    fs::create_directory(work() / "sub");
    EXPECT_EQ(complaintsOf("on,zip:q.zip,out:./sub/../x.out"), "");
    EXPECT_EQ(members("q.zip"), "./sub/../x.out:6\n");
}

TEST_F(QzdebugShutdown, AnAbsolutePathIsPackedBelowSystemRoot)
{
    const std::string path = (work() / "x.out").string();
    EXPECT_EQ(complaintsOf("on,zip:p.zip,out:" + path), "");
    EXPECT_EQ(members("p.zip"), "SYSTEM_ROOT" + path + ":6\n");
}

TEST_F(QzdebugShutdown, BackslashesOfThePathAreSlashesInThePackage)
{
    EXPECT_EQ(complaintsOf("on,zip:p.zip,out:a\\b\\c.out"), "");
    EXPECT_EQ(files(), (Names{"a\\b\\c.out", "p.zip"}));
    EXPECT_EQ(members("p.zip"), "a/b/c.out:6\n");
}

TEST_F(QzdebugShutdown, AnExistingPackageIsContinued)
{
    EXPECT_EQ(complaintsOf("on,zip:p.zip,out:a"), "");
    EXPECT_EQ(complaintsOf("on,zip:+p.zip,out:b"), "");
    EXPECT_EQ(complaintsOf("on,zip:+p.zip,out:+a"), "");
    EXPECT_EQ(members("p.zip"), "a:6\nb:6\na:12\n");
}

TEST_F(QzdebugShutdown, ARunThatEndsInAnotherDirectoryPacksWhereItBegan)
{
    fs::create_directory(work() / "other");
    const Outcome outcome = inProcess([] {
        qzdebug_parse("on,zip:p.zip");
        qzdebug_setComponent("qzm-cc");
        fs::current_path("other");
        qzdebug_shutdown();
    });
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(files(), (Names{"other", "p.zip", "qzm-cc-1.out"}));
}

TEST_F(QzdebugShutdown, ARunThatEndsInADirectoryThatIsGonePacksWhereItBegan)
{
    const Outcome outcome = inProcess([] {
        qzdebug_parse("on,zip:p.zip");
        qzdebug_setComponent("qzm-cc");
        fs::create_directory("gone");
        fs::current_path("gone");
        fs::remove("../gone");
        qzdebug_shutdown();
    });
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(files(), (Names{"p.zip", "qzm-cc-1.out"}));
}

TEST_F(QzdebugShutdown, ADirectoryThatIsGoneIsSaidAndNothingIsPackedElsewhere)
{
    fs::create_directory(work() / "sub");
    put("qzm-cc-1.out", "another run's\n");
    const Outcome outcome = inProcess([] {
        fs::current_path("sub");
        qzdebug_parse("on,zip:p.zip");
        fs::current_path("..");
        fs::remove_all("sub");
        qzdebug_shutdown();
    });
    EXPECT_EQ(outcome.errors, warning("could not go back to \"" + (work() / "sub").string() +
                                      "\" to pack \"qzm-cc-1.out\""));
    EXPECT_EQ(files(), Names{"qzm-cc-1.out"});
}

TEST_F(QzdebugShutdown, WithoutAPackageNothingIsPacked)
{
    EXPECT_EQ(complaintsOf("on"), "");
    EXPECT_EQ(files(), Names{"qzm-cc-1.out"});
}

TEST_F(QzdebugShutdown, ATraceThatIsGoneIsNotPacked)
{
    const Outcome outcome = inProcess([] {
        qzdebug_parse("on,zip:p.zip");
        qzdebug_setComponent("qzm-cc");
        remove("qzm-cc-1.out");
        qzdebug_shutdown();
    });
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(files(), Names{});
}

TEST_F(QzdebugShutdown, ATraceThatCannotBeLookedAtIsSaid)
{
    const Outcome outcome = inProcess([] {
        qzdebug_parse("on,zip:p.zip");
        qzdebug_setComponent("qzm-cc");
        fs::remove("qzm-cc-1.out");
        fs::create_symlink("qzm-cc-1.out", "qzm-cc-1.out");
        qzdebug_shutdown();
    });
    EXPECT_EQ(outcome.errors, warning("Unable to add archive \"qzm-cc-1.out\" (from "
                                      "\"qzm-cc-1.out\") to package zip (p.zip)"));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(QzdebugShutdown, TheSecondCallDoesNothing)
{
    const Outcome outcome = inProcess([] {
        run("on,zip:p.zip");
        qzdebug_shutdown();
    });
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(members("p.zip"), "qzm-cc-1.out:6\n");
}

// ---- Who acts ---------------------------------------------------------------------------------

TEST_F(QzdebugShutdown, WithoutTheOptionNothingHappens)
{
    const Outcome outcome = inProcess([] {
        qzdebug_setComponent("qzm-cc");
        gDebugAssertMode = 1;
        qzdebug_shutdown();
    });
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(files(), Names{});
}

// A file that the user named is packed once, by the driver; each program packs its own default
// file.
TEST_F(QzdebugShutdown, AUsersFileIsTheDriversAloneAndADefaultFileAnybodys)
{
    const auto end = [&](const char *component, const char *option) {
        inProcess([=] {
            qzdebug_parse(option);
            if (component != nullptr)
                qzdebug_setComponent(component);
            qzdebug_shutdown();
        });
        return fs::remove(work() / "p.zip");
    };
    EXPECT_TRUE(end("qzm-cc", "on,out:x,zip:p.zip"));
    EXPECT_TRUE(end("qzm-cc", "on,zip:p.zip"));
    EXPECT_TRUE(end("qzm", "on,zip:p.zip"));
    EXPECT_TRUE(end(nullptr, "on,zip:p.zip"));
    EXPECT_FALSE(end("qzm", "on,out:x,zip:p.zip"));
    EXPECT_FALSE(end(nullptr, "on,out:x,zip:p.zip"));
    EXPECT_FALSE(end("QZM-CC", "on,out:x,zip:p.zip"));
}

TEST_F(QzdebugShutdown, AClosedTraceIsReportedAsTheAssertModeSays)
{
    fs::create_directory(work() / "qzm-cc-1.out");
    const std::string failed = "assertion \"gFile != NULL\" failed in common/qzdebug, line 250";
    const std::string notOpened =
        "(141) could not open debug-out file \"qzm-cc-1.out\": Is a directory\n";
    const struct {
        const char *option;
        int status;
        std::string errors;
    } cases[] = {
        {"on", 0, notOpened},
        {"on,assert:ignore", 0, notOpened},
        {"on,assert:warning", 0, notOpened + "(1501) " + failed + " (warning)\n"},
        {"on,assert:error", 0, notOpened + "(1502) " + failed + "\n"},
        {"on,assert:fatal", 1, notOpened + "(1503) " + failed + "\n"},
    };
    for (const auto &item : cases) {
        const Outcome outcome = inProcess([&] {
            exitpath_setRoutine(leave);
            puts("before the end"); // this must not be lost
            run(item.option);
        });
        EXPECT_EQ(outcome.errors, item.errors) << item.option;
        EXPECT_EQ(outcome.status, item.status) << item.option;
        EXPECT_EQ(outcome.output, "before the end\n") << item.option;
    }
}

// The fatal message would leave by the way that is already being taken.
TEST_F(QzdebugShutdown, AFatalCheckOnTheWayOutDoesNotComeBack)
{
    fs::create_directory(work() / "qzm-cc-1.out");
    const Outcome outcome = inProcess([] {
        exitpath_setRoutine(leave);
        qzdebug_parse("on,assert:fatal");
        puts("help");
        exitpath_leave(0);
    });
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "help\n");
    EXPECT_NE(outcome.errors.find("(1503)"), std::string::npos);
    EXPECT_EQ(outcome.errors.find("(1503)"), outcome.errors.rfind("(1503)"));
}

// ---- Failures ---------------------------------------------------------------------------------

TEST_F(QzdebugShutdown, WhatIsNoPackageIsNotTouched)
{
    put("p.zip", "this is no zip file\n");
    expectUntouched("text");
    put("p.zip", "");
    expectUntouched("nothing");
}

TEST_F(QzdebugShutdown, ADirectoryAndANamedPipeAreNoPackages)
{
    const std::string refused = warning("Unable to open package zip file (p.zip) for reading to "
                                        "append \"qzm-cc-1.out\"");
    fs::create_directory(work() / "p.zip");
    EXPECT_EQ(complaintsOf("on,zip:+p.zip"), refused);
    fs::remove(work() / "p.zip");
    ASSERT_EQ(mkfifo((work() / "p.zip").c_str(), 0600), 0);
    EXPECT_EQ(complaintsOf("on,zip:+p.zip"), refused);
}

TEST_F(QzdebugShutdown, ATruncatedPackageIsNotTouched)
{
    EXPECT_EQ(complaintsOf("on,zip:p.zip"), "");
    const std::string whole = contents(work() / "p.zip");
    for (size_t size = 1; size < whole.size(); size += 7) {
        put("p.zip", whole.substr(0, size));
        expectUntouched("truncated");
    }
}

TEST_F(QzdebugShutdown, APackageOf4GiBOfNothingIsNotTouched)
{
    put("p.zip", "");
    fs::resize_file(work() / "p.zip", uint64_t{1} << 32);
    EXPECT_EQ(complaintsOf("on,zip:+p.zip"),
              warning("Unable to open package zip file (p.zip) for reading to append "
                      "\"qzm-cc-1.out\""));
    EXPECT_EQ(fs::file_size(work() / "p.zip"), uint64_t{1} << 32);
}

TEST_F(QzdebugShutdown, APackageThatCannotBeMadeIsSaidOnce)
{
    EXPECT_EQ(complaintsOf("on,zip:none/p.zip"),
              warning("Unable to init package zip file (none/p.zip) to add \"qzm-cc-1.out\""));
    EXPECT_EQ(files(), Names{"qzm-cc-1.out"});
}

TEST_F(QzdebugShutdown, ATraceThatIsNoFileIsNotAdded)
{
    EXPECT_EQ(complaintsOf("on,out:/dev/null,zip:p.zip"),
              warning("Unable to add archive \"SYSTEM_ROOT/dev/null\" (from \"/dev/null\") to "
                      "package zip (p.zip)"));
    EXPECT_EQ(files(), Names{});
}

// A package that can be read but not written to: every later step fails, too.
TEST_F(QzdebugShutdown, EveryFailingStepIsSaidInItsOrder)
{
    EXPECT_EQ(complaintsOf("on,zip:p.zip"), "");
    const std::string before = contents(work() / "p.zip");
    fs::permissions(work() / "p.zip", fs::perms{0444});
    fs::permissions(work(), fs::perms::all);
    fs::permissions(root, fs::perms{0755});
    const Outcome outcome = inProcess([] {
        if (geteuid() == 0 && setuid(65534) != 0) // root may write to everything
            _exit(98);
        run("on,zip:+p.zip,out:x");
    });
    const std::string member = "\"x\"";
    EXPECT_EQ(outcome.errors,
              warning("Unable to covert package zip file (p.zip) reader to a writer to append " +
                      member) +
                  warning("Unable to add archive " + member + " (from " + member +
                          ") to package zip (p.zip)") +
                  warning("Unable to finalize package zip (p.zip) after adding " + member) +
                  warning("Unable to end package zip (p.zip) after adding " + member));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(contents(work() / "p.zip"), before);
    EXPECT_EQ(files(), (Names{"p.zip", "qzm-cc-1.out", "x"}));
}

TEST_F(QzdebugShutdown, ATraceThatCannotBeWrittenIsNoFailure)
{
    EXPECT_EQ(complaintsOf("on,out:/dev/full"), "");
}

// ---- The reports ------------------------------------------------------------------------------

TEST_F(QzdebugShutdown, TheReportsFollowThePackingAndOneAnother)
{
    const Outcome outcome = inProcess([] {
        qzdebug_parse("adt,zip:p.zip");
        gDebugFlags = DEBUG_CONTAINERS;
        HashTable *table = hash_new_func(1, nullptr, nullptr, "tests/x", 1);
        SkipList *list = skiplist_new_func(nullptr, nullptr, nullptr, "tests/x", 2);
        Vector *vector = vec_new("tests/x", 3);
        qzdebug_shutdown();
        hash_destroy(table);
        skiplist_destroy(list);
        vec_destroy(vector);
    });
    EXPECT_EQ(outcome.errors, "");
    const std::string trace = contents(work() / "qzm-cc-1.out");
    const size_t packed = trace.find("EXIT pack()");
    const size_t hashes = trace.find("# Hash Table Master List:");
    const size_t lists = trace.find("# Skiplist Master List:");
    const size_t vectors = trace.find("# Living Vector Master List:");
    EXPECT_LT(packed, hashes);
    EXPECT_LT(hashes, lists);
    EXPECT_LT(lists, vectors);
    EXPECT_NE(vectors, std::string::npos);
    EXPECT_EQ(package_zip::output_of("unzip -p '" + (work() / "p.zip").string() +
                                     "' | grep -c 'Master List'"),
              "0\n[status 1]");
}

TEST_F(QzdebugShutdown, WithoutRecordedContainersThereAreNoReports)
{
    EXPECT_EQ(complaintsOf("on"), "");
    EXPECT_EQ(contents(work() / "qzm-cc-1.out"), "hello\n");
}
