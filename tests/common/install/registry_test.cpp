#include "common/install/registry.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/base/stringcache.h"
#include "common/install/qzinstdir.h"
#include "tests/common/trace_lines.h"

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

const int OVERRIDABLE[] = {REG_BIN, REG_LIB, REG_INCLUDE, REG_DAT, REG_SOURCES};

class RegistryTest : public testing::Test {
  protected:
    void SetUp() override
    {
        char name[] = "/tmp/registry_testXXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        root = name;
        version = root + "/v2.32";
        orb = version + "/orb";
        other = root + "/other";
        fs::create_directories(orb);
        fs::create_directories(other);
        ASSERT_EQ(qzinstdir_set(version.c_str()), 0);
    }

    void TearDown() override
    {
        for (int kind : OVERRIDABLE)
            reg_set_path(kind, nullptr);
        reg_set_c_stdlib(nullptr);
        fs::remove_all(root);
    }

    // The directories of all kinds, in order.
    static Lines directories()
    {
        Lines paths;
        for (int kind = REG_BASE; kind <= REG_C_INCLUDE; kind++)
            paths.push_back(reg_instdir(kind));
        return paths;
    }

    static Lines directoriesUnder(const std::string &base)
    {
        return {base,
                base + "/bin",
                base + "/lib",
                base + "/help",
                base + "/include",
                base + "/dat",
                base + "/sources",
                base + "/resources",
                base + "/docs",
                base + "/qzm",
                base + "/include"};
    }

    std::string root;
    std::string version;
    std::string orb;
    std::string other;
};

// ---- Directories ------------------------------------------------------------------------------

TEST_F(RegistryTest, EveryKindLiesUnderOrb)
{
    EXPECT_EQ(directories(), directoriesUnder(orb));
}

TEST_F(RegistryTest, WithoutOrbEveryKindLiesUnderTheVersionDirectory)
{
    fs::remove(orb);
    EXPECT_EQ(directories(), directoriesUnder(version));
}

TEST_F(RegistryTest, TheStandardLibraryIsAddedToLibSourcesAndItsInclude)
{
    reg_set_c_stdlib("c99");
    Lines expected = directoriesUnder(orb);
    expected[REG_LIB] = orb + "/lib/c99";
    expected[REG_SOURCES] = orb + "/sources/c99";
    expected[REG_C_INCLUDE] = orb + "/include/c99";
    EXPECT_EQ(directories(), expected);
    EXPECT_STREQ(reg_get_c_stdlib(), "c99");
}

TEST_F(RegistryTest, ClearingTheStandardLibraryTakesItOff)
{
    reg_set_c_stdlib("c99");
    reg_set_c_stdlib(nullptr);
    EXPECT_EQ(directories(), directoriesUnder(orb));
    EXPECT_EQ(reg_get_c_stdlib(), nullptr);
}

TEST_F(RegistryTest, EveryDirectoryIsInterned)
{
    reg_set_c_stdlib("c99");
    for (int kind = REG_BASE; kind <= REG_C_INCLUDE; kind++)
        EXPECT_EQ(reg_instdir(kind), cache_string(reg_instdir(kind)));
}

TEST_F(RegistryTest, AKindOutsideTheTableIsABrokenContract)
{
    EXPECT_EXIT(reg_instdir(11), testing::ExitedWithCode(1),
                "Assertion failed - .* \\(common/registry, line 10\\)\n");
    EXPECT_EXIT(reg_instdir(-1), testing::ExitedWithCode(1),
                "Assertion failed - .* \\(common/registry, line 10\\)\n");
}

// ---- Paths ------------------------------------------------------------------------------------

TEST_F(RegistryTest, ARelativeNameIsJoinedToItsDirectory)
{
    const char *path = reg_mkpath(REG_DAT, "en_msgs.txt");
    EXPECT_STREQ(path, (orb + "/dat/en_msgs.txt").c_str());
    EXPECT_EQ(path, cache_string(path));
}

TEST_F(RegistryTest, AnAbsoluteNameIsReturnedUnchanged)
{
    const char *path = reg_mkpath(REG_DAT, "/abs/x");
    EXPECT_STREQ(path, "/abs/x");
    EXPECT_EQ(path, cache_string("/abs/x"));
}

TEST_F(RegistryTest, ANullNameHasNoPath)
{
    EXPECT_EQ(reg_mkpath(REG_DAT, nullptr), nullptr);
}

// ---- Overrides --------------------------------------------------------------------------------

TEST_F(RegistryTest, AnOverrideIsTheRootOfItsKindAlone)
{
    const char *names[] = {"bin", "lib", "include", "dat", "sources"};
    for (int i = 0; i < 5; i++) {
        Lines expected = directoriesUnder(orb);
        expected[static_cast<size_t>(OVERRIDABLE[i])] = other + "/" + names[i];
        if (OVERRIDABLE[i] == REG_INCLUDE)
            expected[REG_C_INCLUDE] = other + "/include";
        EXPECT_EQ(reg_set_path(OVERRIDABLE[i], other.c_str()), 1);
        EXPECT_EQ(directories(), expected);
        EXPECT_EQ(reg_set_path(OVERRIDABLE[i], nullptr), 1);
        EXPECT_EQ(directories(), directoriesUnder(orb));
    }
}

TEST_F(RegistryTest, AnOverrideHoldsTheStandardLibraryToo)
{
    reg_set_c_stdlib("c90");
    reg_set_path(REG_LIB, other.c_str());
    reg_set_path(REG_INCLUDE, other.c_str());
    EXPECT_STREQ(reg_instdir(REG_LIB), (other + "/lib/c90").c_str());
    EXPECT_STREQ(reg_instdir(REG_INCLUDE), (other + "/include").c_str());
    EXPECT_STREQ(reg_instdir(REG_C_INCLUDE), (other + "/include/c90").c_str());
}

TEST_F(RegistryTest, OtherKindsHaveNoOverride)
{
    for (int kind : {-1, 0, 3, 7, 8, 9, 10, 11}) {
        EXPECT_EQ(reg_set_path(kind, other.c_str()), 0);
        EXPECT_EQ(reg_set_path(kind, nullptr), 0);
    }
    EXPECT_EQ(directories(), directoriesUnder(orb));
}

TEST_F(RegistryTest, AMissingOverrideIsRefusedAndChangesNothing)
{
    std::string missing = root + "/missing";
    ASSERT_EQ(reg_set_path(REG_LIB, other.c_str()), 1);
    int result = 1;
    Lines lines =
        trace_lines_while("registry", [&] { result = reg_set_path(REG_LIB, missing.c_str()); });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(lines, Lines{"Path does not exist: \"" + missing + "\""});
    EXPECT_STREQ(reg_instdir(REG_LIB), (other + "/lib").c_str());
}

TEST_F(RegistryTest, AnOverrideThatIsAFileIsRefusedAndChangesNothing)
{
    std::string file = root + "/file";
    std::ofstream(file) << "text";
    int result = 1;
    Lines lines =
        trace_lines_while("registry", [&] { result = reg_set_path(REG_DAT, file.c_str()); });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(lines, Lines{"Path is not a directory: \"" + file + "\""});
    EXPECT_STREQ(reg_instdir(REG_DAT), (orb + "/dat").c_str());
}

// ---- What the trace says ----------------------------------------------------------------------

TEST_F(RegistryTest, TheTraceOfEachOverride)
{
    const char *names[] = {"bin", "lib", "inc", "dat", "src"};
    for (int i = 0; i < 5; i++) {
        Lines lines =
            trace_lines_while("registry", [&] { reg_set_path(OVERRIDABLE[i], other.c_str()); });
        EXPECT_EQ(lines, Lines{std::string(names[i]) + " path now set to: \"" + other + "\""});
        lines = trace_lines_while("registry", [&] { reg_set_path(OVERRIDABLE[i], nullptr); });
        EXPECT_EQ(lines, Lines{std::string(names[i]) + " path now set to: \"(null)\""});
    }
}

TEST_F(RegistryTest, TheTraceOfAPath)
{
    Lines lines = trace_lines_while("registry", [] { reg_mkpath(REG_DAT, "en_msgs.txt"); });
    Lines expected = {"type: 5, name: \"en_msgs.txt\"",
                      "Returning concatenation of path: \"" + orb + "\" and \"dat\"",
                      "Returning path: \"" + orb + "/dat/en_msgs.txt\""};
    EXPECT_EQ(lines, expected);
}

TEST_F(RegistryTest, TheTraceOfAnAbsolutePath)
{
    Lines lines = trace_lines_while("registry", [] { reg_mkpath(REG_BIN, "/abs/x"); });
    Lines expected = {"type: 1, name: \"/abs/x\"", "Returning absolute path: \"/abs/x\""};
    EXPECT_EQ(lines, expected);
}

TEST_F(RegistryTest, TheTraceOfTheStandardLibrary)
{
    Lines lines = trace_lines_while("registry", [] {
        reg_get_c_stdlib();
        reg_set_c_stdlib("c99");
        reg_get_c_stdlib();
    });
    Lines expected = {"standard C library is presently: \"(null)\"",
                      "standard C library is now set to: \"c99\"",
                      "standard C library is presently: \"c99\""};
    EXPECT_EQ(lines, expected);
}

// The test program itself is not in an installation.
void ask_without_an_installation()
{
    Lines lines = trace_lines_while("registry", [] {
        if (reg_instdir(REG_BASE) != nullptr || reg_mkpath(REG_DAT, "x") != nullptr)
            exit(1);
    });
    Lines expected = {"Could not locate installation directory", "type: 5, name: \"x\"",
                      "Could not locate installation directory"};
    exit(lines == expected ? 0 : 2);
}

TEST(RegistryDeathTest, WithoutAnInstallationThereIsNoDirectory)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(ask_without_an_installation(), testing::ExitedWithCode(0), "");
}

} // namespace
