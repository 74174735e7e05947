// The package as its users see it: its content, its permissions, and that several users do not
// disturb each other.
#include <algorithm>
#include <csignal>
#include <random>

#include <grp.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "common/os/osdep_process.h"
#include "common/trace/qzdebug.h"
#include "package_zip_fixture.h"
#include "tests/common/broken_contract.h"

using namespace package_zip;

namespace {

const Strings NONE = {};
const Strings NO_WRITER = {"convert", "add", "finalise", "end"};

std::string random_bytes(size_t size)
{
    std::mt19937 random(7);
    std::string bytes(size, '\0');
    for (char &byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

// Appends as a user who is subject to permissions; returns those that failed, as bits in their
// order.
int failures_of_a_plain_user(const fs::path &path, const fs::path &file)
{
    return in_child([&] {
        if (geteuid() == 0 &&
            (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0))
            return 99;
        const Strings order = {"open", "convert", "start", "add", "finalise", "end"};
        int bits = 0;
        for (const auto &step : append(path, "m", file))
            bits |= 1 << (std::find(order.begin(), order.end(), step) - order.begin());
        return bits;
    });
}

mode_t mode_of(const fs::path &path)
{
    struct stat info = {};
    stat(path.c_str(), &info);
    return info.st_mode & 07777;
}

} // namespace

// ---- What comes in ----------------------------------------------------------------------------

TEST_F(PackageZip, NewOneHoldsTheFile)
{
    EXPECT_EQ(append(path, "dir/trace.out", file), NONE);
    EXPECT_EQ(listing(path), "dir/trace.out:4\n");
    EXPECT_EQ(output_of("unzip -p " + path.string()), "one\n");
    EXPECT_EQ(names(), (std::set<std::string>{"p.zip", "trace.out"}));
}

TEST_F(PackageZip, AppendingKeepsTheMembersInOrder)
{
    EXPECT_EQ(append(path, "1", file), NONE);
    put(file, "second\n");
    EXPECT_EQ(append(path, "2", file), NONE);
    put(file, "");
    EXPECT_EQ(append(path, "3", file), NONE);
    EXPECT_EQ(listing(path), "1:4\n2:7\n3:0\n");
    EXPECT_EQ(output_of("unzip -p " + path.string() + " 1 2"), "one\nsecond\n");
    EXPECT_EQ(output_of("unzip -tq " + path.string()),
              "No errors detected in compressed data of " + path.string() + ".\n");
}

TEST_F(PackageZip, MayHoldANameTwice)
{
    EXPECT_EQ(append(path, "same", file), NONE);
    put(file, "other\n");
    EXPECT_EQ(append(path, "same", file), NONE);
    EXPECT_EQ(listing(path), "same:4\nsame:6\n");
}

TEST_F(PackageZip, TakesSeveralFilesBetweenStartAndEnd)
{
    Package *package = package_claim(path.c_str());
    EXPECT_EQ(package_startWriter(package), 1);
    EXPECT_EQ(package_addFile(package, "1", file.c_str()), 1);
    EXPECT_EQ(package_addFile(package, "2", file.c_str()), 1);
    EXPECT_EQ(package_finalise(package), 1);
    EXPECT_EQ(package_end(package), 1);
    package_release(package);
    EXPECT_EQ(listing(path), "1:4\n2:4\n");
}

TEST_F(PackageZip, ContinuesWhatAnotherProgramMade)
{
    output_of(
        "python3 -c 'import zipfile;z=zipfile.ZipFile(\"" + path.string() +
        "\",\"w\",zipfile.ZIP_DEFLATED);z.writestr(\"x/\",\"\");z.writestr(\"x/y\",\"y\"*999);"
        "z.comment=b\"made elsewhere\";z.close()'");
    EXPECT_EQ(append(path, "m", file), NONE);
    EXPECT_EQ(listing(path), "x/:0\nx/y:999\nm:4\nb'made elsewhere'\n");
}

TEST_F(PackageZip, CompressesWhatCanBeCompressed)
{
    put(file, std::string(1000000, 'x'));
    EXPECT_EQ(append(path, "m", file), NONE);
    EXPECT_LT(fs::file_size(path), 5000U);
    EXPECT_EQ(listing(path), "m:1000000\n");
}

TEST_F(PackageZip, GivesBackWhatCannotBeCompressed)
{
    const std::string bytes = random_bytes(3000000);
    put(file, bytes);
    EXPECT_EQ(append(path, "m", file), NONE);
    output_of("cd " + root.string() + " && unzip -o p.zip");
    EXPECT_TRUE(bytes_of(root / "m") == bytes);
}

TEST_F(PackageZip, HoldsAFileOfAnyShortLength)
{
    std::string expected;
    for (size_t size = 0; size < 8; ++size) {
        put(file, std::string(size, 'x'));
        EXPECT_EQ(append(path, std::to_string(size), file), NONE);
        expected += std::to_string(size) + ":" + std::to_string(size) + "\n";
    }
    EXPECT_EQ(listing(path), expected);
}

TEST_F(PackageZip, GivesAReadableFileWithTheTimeOfTheOriginal)
{
    const std::string stamp = "202511031234.56";
    output_of("touch -t " + stamp + " " + file.string());
    EXPECT_EQ(append(path, "m", file), NONE);
    output_of("cd " + root.string() + " && umask 022 && unzip -o p.zip");
    EXPECT_EQ(mode_of(root / "m") & 0444U, 0444U);
    EXPECT_EQ(output_of("date -r " + (root / "m").string() + " +%Y%m%d%H%M.%S"), stamp + "\n");
}

TEST_F(PackageZip, TakesATimeThatTheFormatDoesNotHave)
{
    for (const std::string time : {"0", "-5000000000", "9000000000"}) {
        output_of("touch -d @" + time + " " + file.string());
        EXPECT_EQ(append(path, time, file), NONE);
    }
    EXPECT_EQ(output_of("python3 -c 'import zipfile\n"
                        "for i in zipfile.ZipFile(\"" +
                        path.string() + "\").infolist(): print(i.filename,i.date_time[0])'"),
              "0 1980\n-5000000000 1980\n9000000000 2107\n");
}

TEST_F(PackageZip, TakesNamesOfAnyBytes)
{
    EXPECT_EQ(append(path, "ma\xc3\x9f", file), NONE);
    EXPECT_EQ(append(path, "latin \xdf", file), NONE);
    EXPECT_EQ(append(path, "overlong \xc0\xaf \xed\xa0\x80 \xe2\x82", file), NONE);
    EXPECT_EQ(append(path, "a b:c*?\t", file), NONE);
    EXPECT_EQ(output_of("python3 -c 'import zipfile\n"
                        "for i in zipfile.ZipFile(\"" +
                        path.string() + "\").infolist(): print(ascii(i.filename))'"),
              "'ma\\xdf'\n'latin \\u2580'\n"
              "'overlong \\u2514\\xbb \\u03c6\\xe1\\xc7 \\u0393\\xe9'\n'a b:c*?\\t'\n");
}

TEST_F(PackageZip, TakesALongNameAndRefusesOneThatTheFormatCannotHold)
{
    EXPECT_EQ(append(path, std::string(65535, 'n'), file), NONE);
    const std::string before = bytes_of(path);
    EXPECT_EQ(append(path, std::string(65536, 'n'), file), Strings{"add"});
    EXPECT_EQ(append(path, "", file), Strings{"add"});
    EXPECT_TRUE(bytes_of(path) == before);
    EXPECT_EQ(listing(path), std::string(65535, 'n') + ":4\n");
}

TEST_F(PackageZip, HoldsTheFileAsItWasWhenItWasAddedAlthoughItGrows)
{
    gDebugOut = std::fopen(file.c_str(), "a");
    setvbuf(gDebugOut, nullptr, _IONBF, 0);
    gDebugFlags = DEBUG_TRACE; // the steps trace into the file that they add
    const Strings failed = append(path, "m", file);
    gDebugFlags = 0;
    std::fclose(gDebugOut);
    gDebugOut = nullptr;
    EXPECT_EQ(failed, NONE);
    const std::string whole = bytes_of(file);
    const std::string held = output_of("unzip -p " + path.string());
    EXPECT_GT(held.size(), 4U);
    EXPECT_LT(held.size(), whole.size());
    EXPECT_EQ(held, whole.substr(0, held.size()));
}

// ---- What does not come in --------------------------------------------------------------------

TEST_F(PackageZip, StaysAsItIsWhenTheFileCannotBeRead)
{
    ASSERT_EQ(append(path, "m", file), NONE);
    ASSERT_EQ(mkfifo((root / "pipe").c_str(), 0600), 0);
    const std::string before = bytes_of(path);
    for (const fs::path &source : {root / "none", root, root / "pipe", fs::path("/dev/zero")})
        EXPECT_EQ(append(path, "x", source), Strings{"add"}) << source;
    EXPECT_TRUE(bytes_of(path) == before);
    EXPECT_EQ(names(), (std::set<std::string>{"p.zip", "pipe", "trace.out"}));
}

TEST_F(PackageZip, IsNotMadeWhenThereIsNothingToPutIn)
{
    EXPECT_EQ(append(path, "m", root / "none"), Strings{"add"});
    EXPECT_EQ(names(), (std::set<std::string>{"trace.out"}));
}

TEST_F(PackageZip, IsDiscardedWholeWhenOneOfSeveralFilesFails)
{
    Package *package = package_claim(path.c_str());
    EXPECT_EQ(package_startWriter(package), 1);
    EXPECT_EQ(package_addFile(package, "1", "/no/such/file"), 0);
    EXPECT_EQ(package_addFile(package, "2", file.c_str()), 1);
    EXPECT_EQ(package_finalise(package), 1);
    EXPECT_EQ(package_end(package), 1);
    package_release(package);
    EXPECT_EQ(names(), (std::set<std::string>{"trace.out"}));
}

TEST_F(PackageZip, FailsEveryStepThatIsOutOfTurn)
{
    Package *package = package_claim(path.c_str());
    EXPECT_EQ(package_exists(package), 0);
    EXPECT_EQ(package_openReader(package), 0);
    EXPECT_EQ(package_toWriter(package), 0);
    EXPECT_EQ(package_addFile(package, "m", file.c_str()), 0);
    EXPECT_EQ(package_finalise(package), 0);
    EXPECT_EQ(package_end(package), 0);
    package_release(package);
    EXPECT_EQ(append(path, "m", file), NONE);
    const std::string before = bytes_of(path);

    package = package_claim(path.c_str());
    EXPECT_EQ(package_exists(package), 1);
    EXPECT_EQ(package_startWriter(package), 0); // one is already open
    EXPECT_EQ(package_openReader(package), 1);
    EXPECT_EQ(package_openReader(package), 0);
    EXPECT_EQ(package_toWriter(package), 1);
    EXPECT_EQ(package_toWriter(package), 0);
    EXPECT_EQ(package_end(package), 0); // not finalised
    EXPECT_EQ(package_finalise(package), 1);
    EXPECT_EQ(package_finalise(package), 0);
    EXPECT_EQ(package_addFile(package, "m", file.c_str()), 0);
    EXPECT_EQ(package_end(package), 1);
    EXPECT_EQ(package_end(package), 0);
    package_release(package);
    EXPECT_TRUE(bytes_of(path) == before);
    EXPECT_EQ(names(), (std::set<std::string>{"p.zip", "trace.out"}));
}

TEST_F(PackageZip, LeavesNothingWhenItIsReleasedAfterAnyStep)
{
    ASSERT_EQ(append(path, "m", file), NONE);
    const std::string before = bytes_of(path);
    for (int steps = 0; steps <= 4; ++steps) {
        Package *package = package_claim(path.c_str());
        EXPECT_TRUE(steps < 1 || package_openReader(package));
        EXPECT_TRUE(steps < 2 || package_toWriter(package));
        EXPECT_TRUE(steps < 3 || package_addFile(package, "x", file.c_str()));
        EXPECT_TRUE(steps < 4 || package_finalise(package));
        package_release(package);
        EXPECT_TRUE(bytes_of(path) == before);
        EXPECT_EQ(names(), (std::set<std::string>{"p.zip", "trace.out"}));
    }
}

// ---- Places -----------------------------------------------------------------------------------

TEST_F(PackageZip, IsNotStartedWhereThereIsNoDirectory)
{
    EXPECT_EQ(append(root / "none" / "p.zip", "m", file), Strings{"start"});
    EXPECT_EQ(append(file / "p.zip", "m", file), Strings{"start"});
    EXPECT_EQ(append("", "m", file), Strings{"start"});
}

TEST_F(PackageZip, IsFoundFromTheCurrentDirectory)
{
    const fs::path start = fs::current_path();
    fs::current_path(root);
    EXPECT_EQ(append("p.zip", "1", "trace.out"), NONE);
    EXPECT_EQ(append("./p.zip", "2", "trace.out"), NONE);
    fs::current_path(start);
    EXPECT_EQ(listing(path), "1:4\n2:4\n");
}

TEST_F(PackageZip, KeepsItsPermissions)
{
    const mode_t before = umask(027);
    EXPECT_EQ(append(path, "1", file), NONE);
    umask(before);
    EXPECT_EQ(mode_of(path), 0640U);
    ASSERT_EQ(chmod(path.c_str(), 0604), 0);
    EXPECT_EQ(append(path, "2", file), NONE);
    EXPECT_EQ(mode_of(path), 0604U);
}

TEST_F(PackageZip, IsReplacedBehindALinkThatStays)
{
    fs::create_directory(root / "d");
    fs::create_symlink("d/real.zip", path);
    EXPECT_EQ(append(path, "1", file), NONE);
    EXPECT_EQ(append(path, "2", file), NONE);
    EXPECT_TRUE(fs::is_symlink(path));
    EXPECT_EQ(listing(root / "d" / "real.zip"), "1:4\n2:4\n");
    EXPECT_EQ(names(), (std::set<std::string>{"d", "p.zip", "trace.out"}));
}

TEST_F(PackageZip, IsRefusedBehindLinksThatGoInCircles)
{
    fs::create_symlink("p.zip", path);
    EXPECT_EQ(append(path, "1", file), Strings{"start"});
}

TEST_F(PackageZip, IsRefusedInADirectoryThatTakesNoFile)
{
    ASSERT_EQ(append(path, "m", file), NONE);
    const std::string before = bytes_of(path);
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    ASSERT_EQ(chmod(root.c_str(), 0555), 0);
    EXPECT_EQ(failures_of_a_plain_user(path, file), 0b111010);             // without a writer
    EXPECT_EQ(failures_of_a_plain_user(root / "new.zip", file), 0b000100); // without a start
    EXPECT_TRUE(bytes_of(path) == before);
    EXPECT_EQ(names(), (std::set<std::string>{"p.zip", "trace.out"}));
    ASSERT_EQ(chmod(root.c_str(), 0755), 0);
}

TEST_F(PackageZip, IsRefusedWhenItMayNotBeReadOrWritten)
{
    ASSERT_EQ(append(path, "m", file), NONE);
    const std::string before = bytes_of(path);
    ASSERT_EQ(chmod(root.c_str(), 0777), 0);
    ASSERT_EQ(chmod(path.c_str(), 0444), 0);
    EXPECT_EQ(failures_of_a_plain_user(path, file), 0b111010);
    ASSERT_EQ(chmod(path.c_str(), geteuid() == 0 ? 0600 : 0200), 0);
    EXPECT_EQ(failures_of_a_plain_user(path, file), 0b000001);
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    EXPECT_TRUE(bytes_of(path) == before);
}

TEST_F(PackageZip, IsRefusedInADirectoryThatCannotBeLocked)
{
    ASSERT_EQ(append(path, "m", file), NONE);
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    ASSERT_EQ(chmod(root.c_str(), 0333), 0);
    EXPECT_EQ(failures_of_a_plain_user(path, file), 0b000001);
    EXPECT_EQ(failures_of_a_plain_user(root / "new.zip", file), 0b000100);
    ASSERT_EQ(chmod(root.c_str(), 0755), 0);
    EXPECT_EQ(listing(path), "m:4\n");
}

TEST_F(PackageZip, StaysAsItIsWhenTheDiskIsFull)
{
    ASSERT_EQ(append(path, "m", file), NONE);
    const std::string before = bytes_of(path);
    put(file, random_bytes(1000000));
    for (const rlim_t size : {10U, 200U, 70000U, 500000U, 999900U, 1000200U})
        EXPECT_EQ(in_child([&] {
                      signal(SIGXFSZ, SIG_IGN);
                      const rlimit limit = {size, size};
                      setrlimit(RLIMIT_FSIZE, &limit);
                      return append(path, "x", file) == NONE ? 1 : 0;
                  }),
                  0)
            << size;
    EXPECT_TRUE(bytes_of(path) == before);
    EXPECT_EQ(names(), (std::set<std::string>{"p.zip", "trace.out"}));
}

TEST_F(PackageZip, LeavesNothingBesideWhenASignalEndsTheRun)
{
    ASSERT_EQ(append(path, "m", file), NONE);
    const std::string before = bytes_of(path);
    EXPECT_EQ(in_child([&] {
                  osdep_installCrashHandlers();
                  Package *package = package_claim(path.c_str());
                  if (!package_openReader(package) || !package_toWriter(package))
                      return 1;
                  raise(SIGTERM);
                  return 2;
              }),
              SIGTERM);
    EXPECT_TRUE(bytes_of(path) == before);
    EXPECT_EQ(names(), (std::set<std::string>{"p.zip", "trace.out"}));
}

// ---- Company ----------------------------------------------------------------------------------

TEST_F(PackageZip, LosesNoMemberWhenFiftyProcessesAppendAtOnce)
{
    const int count = 50;
    std::vector<pid_t> children;
    for (int i = 0; i < count; ++i) {
        const pid_t child = fork();
        if (child == 0)
            _exit(append(path, "member " + std::to_string(100 + i), file) == NONE ? 0 : 1);
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    std::string listed = listing(path);
    std::string expected;
    for (int i = 0; i < count; ++i) {
        const std::string line = "member " + std::to_string(100 + i) + ":4\n";
        EXPECT_NE(listed.find(line), std::string::npos) << line;
        expected += line;
    }
    EXPECT_EQ(listed.size(), expected.size());
    EXPECT_EQ(names(), (std::set<std::string>{"p.zip", "trace.out"}));
}

TEST_F(PackageZip, MayBeClaimedAgainAfterItsRelease)
{
    package_release(package_claim(path.c_str()));
    package_release(package_claim(path.c_str()));
    EXPECT_EQ(names(), (std::set<std::string>{"trace.out"}));
}

// ---- Null arguments ---------------------------------------------------------------------------

TEST_F(PackageZip, ANullNameIsLikeAnEmptyOne)
{
    put(root / "f", "text");
    Package *package = package_claim(nullptr);
    EXPECT_EQ(package_exists(package), 0);
    EXPECT_EQ(package_openReader(package), 0);
    EXPECT_EQ(package_startWriter(package), 0);
    package_release(package);
    package = package_claim(path.c_str());
    EXPECT_EQ(package_startWriter(package), 1);
    EXPECT_EQ(package_addFile(package, nullptr, (root / "f").c_str()), 0);
    EXPECT_EQ(package_addFile(package, "m", nullptr), 0);
    package_release(package);
}

TEST(PackageZipDeathTest, ANullPackageIsABrokenContract)
{
    package_release(nullptr);
    EXPECT_BROKEN_IN("common/package_zip", package_exists(nullptr), "package != NULL", 11);
    EXPECT_BROKEN_IN("common/package_zip", package_openReader(nullptr), "package != NULL", 12);
    EXPECT_BROKEN_IN("common/package_zip", package_toWriter(nullptr), "package != NULL", 13);
    EXPECT_BROKEN_IN("common/package_zip", package_startWriter(nullptr), "package != NULL", 14);
    EXPECT_BROKEN_IN("common/package_zip", package_addFile(nullptr, "m", "f"), "package != NULL",
                     15);
    EXPECT_BROKEN_IN("common/package_zip", package_finalise(nullptr), "package != NULL", 16);
    EXPECT_BROKEN_IN("common/package_zip", package_end(nullptr), "package != NULL", 17);
}
