#include "common/os/osdep_directory.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/base/vector.h"
#include "common/os/osdep_file.h"
#include "common/os/osdep_host.h"
#include "common/os/osdep_process.h"
#include "tests/common/broken_contract.h"

namespace fs = std::filesystem;

// The linker replaces the real function by this: reading an entry fails when a test says so.
static bool s_readingFails;

extern "C" {
dirent *__real_readdir(DIR *directory);
dirent *__wrap_readdir(DIR *directory);
}

dirent *__wrap_readdir(DIR *directory)
{
    dirent *entry = __real_readdir(directory);
    if (!s_readingFails || entry == nullptr || std::string(entry->d_name) != "bad")
        return entry;
    errno = EIO;
    return nullptr;
}

namespace {

class OsdepDirectory : public testing::Test {
  protected:
    void SetUp() override
    {
        char name[] = "/tmp/osdep_directory_test.XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        root = name;
        start = fs::current_path();
    }
    void TearDown() override
    {
        fs::current_path(start);
        fs::remove_all(root);
    }
    fs::path root;
    fs::path start;
};

std::vector<std::string> sorted(Vector *names)
{
    std::vector<std::string> result;
    for (const char *name : vec_each<const char>(names))
        result.emplace_back(name);
    osdep_freeNames(names);
    std::sort(result.begin(), result.end());
    return result;
}

std::vector<std::string> sortedNames(const fs::path &directory)
{
    return sorted(osdep_readDirectory(directory.c_str()));
}

// The content of a file below an open directory; null: below the current one.
std::string contentAt(const OsdepOpenDirectory *directory, const char *path)
{
    FILE *file = osdep_openRegularFileAt(directory, path, nullptr);
    if (file == nullptr)
        return "(none)";
    char text[100];
    const size_t length = fread(text, 1, sizeof text, file);
    fclose(file);
    return {text, length};
}

// Whether `action` succeeds in a process without privileges.
template <class Action> bool asNobody(Action action)
{
    const pid_t child = fork();
    if (child == 0) {
        const bool dropped = geteuid() != 0 || setresuid(65534, 65534, 65534) == 0;
        _exit(dropped && action() ? 0 : 1);
    }
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

// The child takes the lock, reports it by a byte and holds it for a moment.
pid_t holdLock(const fs::path &directory, int said)
{
    const pid_t child = fork();
    if (child == 0) {
        const int lock = osdep_lockDirectory(directory.c_str());
        if (write(said, lock >= 0 ? "y" : "n", 1) != 1)
            _exit(2);
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        osdep_unlockDirectory(lock);
        _exit(0);
    }
    return child;
}

} // namespace

TEST_F(OsdepDirectory, NamesEveryEntryButItselfAndItsParent)
{
    std::ofstream(root / "file") << "x";
    std::ofstream(root / "..dots") << "x";
    std::ofstream(root / "\xff name") << "x";
    fs::create_directory(root / "sub");
    EXPECT_EQ(sortedNames(root), (std::vector<std::string>{"..dots", "file", "sub", "\xff name"}));
}

TEST_F(OsdepDirectory, AnEmptyDirectoryGivesAnEmptyVector)
{
    Vector *names = osdep_readDirectory(root.c_str());
    ASSERT_NE(names, nullptr);
    EXPECT_EQ(vec_size(names), 0U);
    osdep_freeNames(names);
}

TEST_F(OsdepDirectory, ADirectoryThatCannotBeReadToItsEndGivesNoNames)
{
    std::ofstream(root / "bad") << "x";
    std::ofstream(root / "good") << "x";
    s_readingFails = true;
    errno = 0;
    EXPECT_EQ(osdep_readDirectory(root.c_str()), nullptr);
    EXPECT_EQ(errno, EIO);
    s_readingFails = false;
    EXPECT_EQ(sortedNames(root), (std::vector<std::string>{"bad", "good"}));
}

TEST_F(OsdepDirectory, WhatIsNoDirectoryCannotBeRead)
{
    std::ofstream(root / "file") << "x";
    EXPECT_EQ(osdep_readDirectory((root / "file").c_str()), nullptr);
    EXPECT_EQ(osdep_readDirectory((root / "none").c_str()), nullptr);
    EXPECT_EQ(osdep_readDirectory(nullptr), nullptr);
    osdep_freeNames(nullptr);
}

TEST_F(OsdepDirectory, ChangesTheCurrentDirectoryOrKeepsIt)
{
    EXPECT_EQ(osdep_changeDirectory(root.c_str()), 0);
    EXPECT_EQ(fs::current_path(), fs::canonical(root));
    EXPECT_EQ(osdep_changeDirectory("none"), -1);
    EXPECT_EQ(osdep_changeDirectory(nullptr), -1);
    EXPECT_EQ(fs::current_path(), fs::canonical(root));
}

// ---- Open directories -------------------------------------------------------------------------

TEST_F(OsdepDirectory, NamesAreLookedUpInAnOpenDirectory)
{
    fs::create_directory(root / "sub");
    std::ofstream(root / "sub/file") << "here";
    std::ofstream(root / "other") << "there";
    OsdepOpenDirectory *directory = osdep_openDirectory((root / "sub").c_str());
    ASSERT_NE(directory, nullptr);
    OsdepFileInfo info;
    EXPECT_EQ(osdep_fileInfoAt(directory, "file", &info), OSDEP_FILE);
    EXPECT_EQ(osdep_fileInfoAt(directory, ".", &info), OSDEP_DIRECTORY);
    EXPECT_EQ(osdep_fileInfoAt(directory, "other", &info), OSDEP_NOTHING);
    EXPECT_EQ(contentAt(directory, "file"), "here");
    EXPECT_EQ(contentAt(directory, "../other"), "there");
    EXPECT_EQ(contentAt(directory, (root / "other").c_str()), "there");
    EXPECT_EQ(contentAt(directory, "."), "(none)");
    EXPECT_EQ(contentAt(directory, nullptr), "(none)");
    EXPECT_EQ(sorted(osdep_readDirectoryAt(directory, ".")), std::vector<std::string>{"file"});
    EXPECT_EQ(sorted(osdep_readDirectoryAt(directory, "..")),
              (std::vector<std::string>{"other", "sub"}));
    EXPECT_EQ(osdep_readDirectoryAt(directory, "file"), nullptr);
    EXPECT_EQ(fs::current_path(), start);
    osdep_closeDirectory(directory);
}

TEST_F(OsdepDirectory, WithoutAnOpenDirectoryNamesAreLookedUpInTheCurrentOne)
{
    std::ofstream(root / "file") << "x";
    fs::current_path(root);
    OsdepFileInfo info;
    EXPECT_EQ(osdep_fileInfoAt(nullptr, "file", &info), OSDEP_FILE);
    EXPECT_EQ(contentAt(nullptr, "file"), "x");
    EXPECT_EQ(sorted(osdep_readDirectoryAt(nullptr, ".")), std::vector<std::string>{"file"});
    osdep_closeDirectory(nullptr);
    EXPECT_EQ(osdep_enterDirectory(nullptr), -1);
}

TEST_F(OsdepDirectory, WhatIsNoDirectoryCannotBeOpened)
{
    std::ofstream(root / "file") << "x";
    ASSERT_EQ(mkfifo((root / "pipe").c_str(), 0600), 0);
    for (const char *name : {"file", "pipe", "none"})
        EXPECT_EQ(osdep_openDirectory((root / name).c_str()), nullptr) << name;
    EXPECT_EQ(osdep_openDirectory(""), nullptr);
    EXPECT_EQ(osdep_openDirectory(nullptr), nullptr);
}

TEST_F(OsdepDirectory, AnOpenDirectoryIsComeBackToAfterItWasMovedOrRemoved)
{
    fs::create_directory(root / "sub");
    fs::current_path(root / "sub");
    OsdepOpenDirectory *directory = osdep_openDirectory(".");
    fs::current_path(start);
    fs::rename(root / "sub", root / "moved");
    EXPECT_EQ(osdep_enterDirectory(directory), 0);
    EXPECT_EQ(fs::current_path(), fs::canonical(root / "moved"));
    fs::current_path(start);
    fs::remove(root / "moved");
    EXPECT_EQ(osdep_enterDirectory(directory), 0);
    EXPECT_EQ(osdep_cwd(), nullptr);
    osdep_closeDirectory(directory);
}

TEST_F(OsdepDirectory, ADirectoryIsOpenedForWhoMayAccessItAndNobodyElse)
{
    fs::permissions(root, fs::perms{0711});
    fs::create_directories(root / "accessible/sub");
    fs::create_directories(root / "readable/sub");
    fs::permissions(root / "accessible", fs::perms{0111});
    fs::permissions(root / "readable", fs::perms{0444});
    EXPECT_TRUE(asNobody([&] {
        OsdepFileInfo info;
        OsdepOpenDirectory *directory = osdep_openDirectory((root / "accessible").c_str());
        return directory != nullptr && osdep_enterDirectory(directory) == 0 &&
               osdep_fileInfoAt(directory, "sub", &info) == OSDEP_DIRECTORY &&
               osdep_readDirectoryAt(directory, ".") == nullptr && errno == EACCES;
    }));
    EXPECT_TRUE(asNobody([&] {
        return osdep_openDirectory((root / "readable").c_str()) == nullptr && errno == EACCES;
    }));
    fs::permissions(root / "accessible", fs::perms::owner_all);
    fs::permissions(root / "readable", fs::perms::owner_all);
}

TEST_F(OsdepDirectory, ChildrenDoNotInheritAnOpenDirectory)
{
    const auto descriptors = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto before = descriptors();
    OsdepOpenDirectory *directory = osdep_openDirectory(root.c_str());
    EXPECT_EQ(descriptors(), before + 1);
    int inherited = 0;
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        struct stat here;
        struct stat there;
        const int flags = fcntl(descriptor, F_GETFD);
        if (flags >= 0 && (flags & FD_CLOEXEC) == 0 && fstat(descriptor, &here) == 0 &&
            stat(root.c_str(), &there) == 0 && here.st_ino == there.st_ino)
            ++inherited;
    }
    EXPECT_EQ(inherited, 0);
    osdep_closeDirectory(directory);
    EXPECT_EQ(descriptors(), before);
}

// ---- Identity ---------------------------------------------------------------------------------

TEST_F(OsdepDirectory, TellsWhatAPathLeadsTo)
{
    std::ofstream(root / "file") << "x";
    fs::create_directory(root / "sub");
    ASSERT_EQ(mkfifo((root / "pipe").c_str(), 0600), 0);
    fs::create_symlink("file", root / "to_file");
    fs::create_directory_symlink("sub", root / "to_sub");
    fs::create_symlink("pipe", root / "to_pipe");
    fs::create_symlink("none", root / "to_none");
    OsdepFileInfo info;
    EXPECT_EQ(osdep_fileInfo((root / "pipe").c_str(), &info), OSDEP_OTHER);
    EXPECT_EQ(osdep_fileInfo((root / "none").c_str(), &info), OSDEP_NOTHING);
    EXPECT_EQ(osdep_fileInfo(nullptr, &info), OSDEP_NOTHING);
    EXPECT_EQ(osdep_fileInfo((root / "file").c_str(), &info), OSDEP_FILE);
    EXPECT_EQ(info.isLink, 0);
    EXPECT_EQ(osdep_fileInfo((root / "to_file").c_str(), &info), OSDEP_FILE);
    EXPECT_EQ(info.isLink, 1);
    EXPECT_EQ(osdep_fileInfo((root / "to_sub").c_str(), &info), OSDEP_DIRECTORY);
    EXPECT_EQ(osdep_fileInfo((root / "to_pipe").c_str(), &info), OSDEP_OTHER);
    EXPECT_EQ(osdep_fileInfo((root / "to_none").c_str(), &info), OSDEP_NOTHING);
    EXPECT_EQ(info.isLink, 1);
}

TEST_F(OsdepDirectory, AnIdentityIsTheSameThroughALinkAndOnlyThere)
{
    fs::create_directory(root / "sub");
    fs::create_directory_symlink("sub", root / "link");
    OsdepFileInfo sub;
    OsdepFileInfo link;
    OsdepFileInfo other;
    ASSERT_EQ(osdep_fileInfo((root / "sub").c_str(), &sub), OSDEP_DIRECTORY);
    ASSERT_EQ(osdep_fileInfo((root / "link").c_str(), &link), OSDEP_DIRECTORY);
    ASSERT_EQ(osdep_fileInfo(root.c_str(), &other), OSDEP_DIRECTORY);
    EXPECT_EQ(sub.identity.device, link.identity.device);
    EXPECT_EQ(sub.identity.number, link.identity.number);
    EXPECT_NE(sub.identity.number, other.identity.number);
}

TEST_F(OsdepDirectory, ALockWaitsForItsHolder)
{
    int channel[2];
    ASSERT_EQ(pipe(channel), 0);
    const auto before = std::chrono::steady_clock::now();
    const pid_t child = holdLock(root, channel[1]);
    char said = 0;
    ASSERT_EQ(read(channel[0], &said, 1), 1);
    EXPECT_EQ(said, 'y');
    const int lock = osdep_lockDirectory(root.c_str());
    EXPECT_GE(lock, 0);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(200));
    osdep_unlockDirectory(lock);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    close(channel[0]);
    close(channel[1]);
}

TEST_F(OsdepDirectory, AnUnlockedDirectoryCanBeLockedAgain)
{
    const int lock = osdep_lockDirectory(root.c_str());
    ASSERT_GE(lock, 0);
    osdep_unlockDirectory(lock);
    const int again = osdep_lockDirectory(root.c_str());
    EXPECT_GE(again, 0);
    osdep_unlockDirectory(again);
}

TEST_F(OsdepDirectory, WhatIsNoDirectoryCannotBeLocked)
{
    std::ofstream(root / "file") << "x";
    EXPECT_EQ(osdep_lockDirectory((root / "file").c_str()), -1);
    EXPECT_EQ(osdep_lockDirectory((root / "none").c_str()), -1);
    EXPECT_EQ(osdep_lockDirectory(nullptr), -1);
    osdep_unlockDirectory(-1);
}

TEST_F(OsdepDirectory, RedirectedErrorsReturnToWhereTheyWere)
{
    const fs::path first = root / "first";
    const fs::path second = root / "second";
    const pid_t child = fork();
    if (child == 0) {
        FILE *outer = freopen(first.c_str(), "w", stderr);
        FILE *hidden = fopen(second.c_str(), "w");
        fputs("before ", outer);
        const int saved = osdep_redirectError(hidden);
        fputs("hidden", stderr);
        osdep_restoreError(saved);
        fputs("after", stderr);
        fflush(stderr);
        _exit(saved >= 0 ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    std::string text;
    std::getline(std::ifstream(first), text);
    EXPECT_EQ(text, "before after");
    std::getline(std::ifstream(second), text);
    EXPECT_EQ(text, "hidden");
}

TEST(OsdepRedirectError, WithoutAStreamNothingIsRedirected)
{
    EXPECT_EQ(osdep_redirectError(nullptr), -1);
    osdep_restoreError(-1);
}

TEST(OsdepClocks, TheWallClockCountsSecondsSince1970AndMicroseconds)
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const OsdepTime wall = osdep_wallTime();
    const int64_t seconds = std::chrono::duration_cast<std::chrono::seconds>(now).count();
    EXPECT_GE(wall.seconds, seconds);
    EXPECT_LE(wall.seconds, seconds + 5);
    EXPECT_GE(wall.fraction, 0);
    EXPECT_LT(wall.fraction, 1000000);
}

TEST(OsdepClocks, TheProcessorTimeGrowsWithWorkAndNotWithSleep)
{
    const auto nanoseconds = [](const OsdepTime &t) { return t.seconds * 1000000000 + t.fraction; };
    const int64_t start = nanoseconds(osdep_cpuTime());
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const int64_t slept = nanoseconds(osdep_cpuTime());
    EXPECT_LT(slept - start, 50000000);
    int64_t worked = slept;
    for (int round = 0; round < 1000000 && worked == slept; ++round)
        worked = nanoseconds(osdep_cpuTime());
    EXPECT_GT(worked, slept);
}

TEST(FileInfoDeathTest, NeedsAPlaceForTheAnswer)
{
    EXPECT_BROKEN_IN("common/osdep", osdep_fileInfo("/", nullptr), "info != NULL", 40);
}
