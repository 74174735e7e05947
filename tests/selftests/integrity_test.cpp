#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/diagnostics/alert.h"
#include "selftests/selftests_internal.h"
#include "selftests/stIntegrity.h"
#include "tests/selftests/installation.h"

namespace {

class IntegrityTest : public InstallationTest {
  protected:
    void SetUp() override
    {
        InstallationTest::SetUp();
        write("bin/tool", "tool\n");
        write("docs/with blank", "text\n");
    }
    // The hash list of the installation as it is now.
    void makeManifest() const
    {
        const fs::path cwd = fs::current_path();
        fs::current_path(root);
        ASSERT_TRUE(shahash_writeListDefault(".", (root + "/manifest").c_str()));
        fs::current_path(cwd);
    }
    static std::string lineOf(const std::string &digest, const std::string &name)
    {
        return digest + " *" + name + "\n";
    }
    Failure hashMismatch(const std::string &name) const
    {
        return {"integrity test", "failed verification",
                "Hash did not match file for file: " + root + "/" + name};
    }
};

Failure manifestFailure(const std::string &output)
{
    return {"integrity test", "manifest check", output};
}

Failure unexpected(const std::string &name)
{
    return {"integrity test", "extraneous files", "found unexpected file \"" + name + "\""};
}

const Failure CORRUPTED = manifestFailure("The manifest file is corrupted");
const Failure NOT_VALID = {"integrity test", "failed verification",
                           "The integrity test did not successfully validate"};
const std::string ZEROS(64, '0');

TEST_F(IntegrityTest, RowsHaveTheirCase)
{
    EXPECT_EQ(names(stIntegrityManifest_tests()),
              Strings{"[integrity] manifest file exists and can be read"});
    EXPECT_EQ(names(stIntegritySHA_tests()), Strings{"[integrity] SHA256 check"});
    EXPECT_EQ(names(stIntegrityExtra_tests()),
              Strings{"[integrity] extraneous installation files"});
}

TEST_F(IntegrityTest, AnUntouchedInstallationPassesEveryCase)
{
    makeManifest();
    for (TestCase *test : cases(stIntegrity_tests()))
        EXPECT_EQ(run(test), PASSED) << test->name;
    const auto detailed = cases(stIntegritySHAdetailed_tests());
    EXPECT_EQ(detailed.size(), 2U);
    for (TestCase *test : detailed)
        EXPECT_EQ(run(test), PASSED) << test->name;
}

TEST_F(IntegrityTest, TheHashListLiesInTheRoot)
{
    EXPECT_EQ(selftests_manifestPath(), root + "/manifest");
}

TEST_F(IntegrityTest, AMissingHashListFails)
{
    EXPECT_EQ(runOnly(stIntegrityManifest_tests()),
              manifestFailure("The manifest file could not be found"));
    EXPECT_EQ(runOnly(stIntegritySHA_tests()), NOT_VALID);
    EXPECT_EQ(names(stIntegritySHAdetailed_tests()), Strings{});
}

TEST_F(IntegrityTest, AHashListWhoseFirstLineHasNoBlankIsCorrupted)
{
    write("manifest",
          "noblank\n" + lineOf(sha256_path((root + "/bin/tool").c_str()), "./bin/tool"));
    EXPECT_EQ(runOnly(stIntegrityManifest_tests()), CORRUPTED);
    EXPECT_EQ(names(stIntegritySHAdetailed_tests()), Strings{});
    EXPECT_EQ(runOnly(stIntegritySHA_tests()), NOT_VALID);
}

TEST_F(IntegrityTest, AnEmptyHashListIsCorrupted)
{
    write("manifest", "");
    EXPECT_EQ(runOnly(stIntegrityManifest_tests()), CORRUPTED);
    EXPECT_EQ(names(stIntegritySHAdetailed_tests()), Strings{});
    EXPECT_EQ(runOnly(stIntegritySHA_tests()), NOT_VALID);
}

TEST_F(IntegrityTest, DetailedCasesOfAHashListThatCannotBeReadAreMissedAloud)
{
    makeManifest();
    static std::string said;
    said.clear();
    alert_setOutputHook([](const char *message) { said += message; });
    rlimit files;
    getrlimit(RLIMIT_NOFILE, &files);
    const rlimit none = {0, files.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    const Strings detailed = names(stIntegritySHAdetailed_tests());
    setrlimit(RLIMIT_NOFILE, &files);
    alert_setOutputHook(nullptr);
    EXPECT_EQ(detailed, Strings{});
    EXPECT_EQ(said, "(104) could not read file \"manifest\": Too many open files\n");
}

TEST_F(IntegrityTest, AHashListThatIsNoFileFailsWithoutWaitingForOne)
{
    ASSERT_EQ(mkfifo((root + "/manifest").c_str(), 0600), 0);
    EXPECT_EQ(runOnly(stIntegrityManifest_tests()), CORRUPTED);
    EXPECT_EQ(runOnly(stIntegritySHA_tests()), NOT_VALID);
    fs::remove(root + "/manifest");
    fs::create_directory(root + "/manifest");
    EXPECT_EQ(runOnly(stIntegrityManifest_tests()), CORRUPTED);
    EXPECT_EQ(runOnly(stIntegritySHA_tests()), NOT_VALID);
}

TEST_F(IntegrityTest, AChangedFileFailsTheQuickAndItsDetailedCase)
{
    makeManifest();
    write("bin/tool", "tool!\n");
    EXPECT_EQ(runOnly(stIntegrityManifest_tests()), PASSED);
    EXPECT_EQ(runOnly(stIntegritySHA_tests()), NOT_VALID);
    for (TestCase *test : cases(stIntegritySHAdetailed_tests())) {
        if (text(test->name) == "SHA256 check tool")
            EXPECT_EQ(run(test), hashMismatch("./bin/tool"));
        else
            EXPECT_EQ(run(test), PASSED) << test->name;
    }
}

TEST_F(IntegrityTest, AMissingFileFailsTheQuickAndItsDetailedCase)
{
    makeManifest();
    fs::remove(root + "/docs/with blank");
    EXPECT_EQ(runOnly(stIntegritySHA_tests()), NOT_VALID);
    for (TestCase *test : cases(stIntegritySHAdetailed_tests())) {
        if (text(test->name) == "SHA256 check with blank")
            EXPECT_EQ(run(test), hashMismatch("./docs/with blank"));
        else
            EXPECT_EQ(run(test), PASSED) << test->name;
    }
}

TEST_F(IntegrityTest, DetailedCasesAreInTheOrderOfTheListAndNamedByTheBaseName)
{
    write("manifest", lineOf(ZEROS, "./b/two") + lineOf(ZEROS, "./a/one") + lineOf(ZEROS, "three"));
    EXPECT_EQ(names(stIntegritySHAdetailed_tests()),
              (Strings{"[integrity] SHA256 check two", "[integrity] SHA256 check one",
                       "[integrity] SHA256 check three"}));
}

TEST_F(IntegrityTest, ADetailedCaseWithoutItsEntryFails)
{
    write("manifest", lineOf(ZEROS, "./x"));
    TestCase *test = cases(stIntegritySHAdetailed_tests()).at(0);
    free(test->data);
    test->data = nullptr;
    EXPECT_EQ(run(test), NOT_VALID);
}

TEST_F(IntegrityTest, AHashListMadeASecondTimeListsTheFirstAndFailsTheQuickCase)
{
    makeManifest();
    makeManifest();
    EXPECT_NE(contents(root + "/manifest").find(" *./manifest\n"), std::string::npos);
    EXPECT_EQ(runOnly(stIntegritySHA_tests()), NOT_VALID);
}

TEST_F(IntegrityTest, TheFoldersOfTheSuiteAreExpected)
{
    for (const char *name : {"dfp", "etc", "manifest"})
        write(name, "");
    EXPECT_EQ(runOnly(stIntegrityExtra_tests()), PASSED);
}

TEST_F(IntegrityTest, WhatInstallingLeavesBehindIsExpectedInAnyCase)
{
    fs::create_directory(root + "/Uninstall Data");
    write("rollback.log", "");
    write("xROLLBACKx", "");
    EXPECT_EQ(runOnly(stIntegrityExtra_tests()), PASSED);
}

TEST_F(IntegrityTest, AnythingElseInTheRootIsUnexpected)
{
    write("README", "");
    EXPECT_EQ(runOnly(stIntegrityExtra_tests()), unexpected("README"));
}

TEST_F(IntegrityTest, ExpectedNamesAreMatchedWholeAndAsWritten)
{
    for (const char *name : {"Bin", "binary", "orb-as2", "include"}) {
        write(name, "");
        EXPECT_EQ(runOnly(stIntegrityExtra_tests()), unexpected(name));
        fs::remove(root + "/" + name);
    }
}

TEST_F(IntegrityTest, TheLastUnexpectedEntryIsTheOneReported)
{
    write("one", "");
    write("two", "");
    write("three", "");
    std::string last;
    for (const auto &entry : fs::directory_iterator(root)) {
        const std::string name = entry.path().filename();
        if (name == "one" || name == "two" || name == "three")
            last = name;
    }
    EXPECT_EQ(runOnly(stIntegrityExtra_tests()), unexpected(last));
}

TEST_F(IntegrityTest, ARootThatCannotBeOpenedHoldsNothingUnexpected)
{
    fs::rename(root, root + "-gone");
    EXPECT_EQ(runOnly(stIntegrityExtra_tests()), PASSED);
}

using IntegrityDeathTest = IntegrityTest;

// A process of its own, because it loses the right to open anything.
TEST_F(IntegrityDeathTest, AHashListThatCannotBeOpenedFails)
{
    makeManifest();
    EXPECT_EXIT(
        {
            forbidFiles();
            std::cerr << runOnly(stIntegrityManifest_tests()) << runOnly(stIntegritySHA_tests());
            _exit(7);
        },
        testing::ExitedWithCode(7),
        "^\\{integrity test \\| manifest check \\| The manifest file could not be opened\\}"
        "\\{integrity test \\| failed verification \\| "
        "The integrity test did not successfully validate\\}$");
}

} // namespace
