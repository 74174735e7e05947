// The fixture of the self-test's tests: an installation in a scratch directory that the self-test
// takes for its own, and its test cases as plain values.
#ifndef TESTS_SELFTESTS_INSTALLATION_H
#define TESTS_SELFTESTS_INSTALLATION_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "common/base/vector.h"
#include "common/formats/shahash.h"
#include "common/install/qzinstdir.h"
#include "common/suite/tsuite.h"

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

// The record of a failed case; all empty for one that passed.
struct Failure {
    std::string type;
    std::string message;
    std::string output;

    bool operator==(const Failure &) const = default;
};

inline std::ostream &operator<<(std::ostream &out, const Failure &failure)
{
    return out << "{" << failure.type << " | " << failure.message << " | " << failure.output << "}";
}

inline const Failure PASSED = {};

class InstallationTest : public testing::Test {
  protected:
    void SetUp() override
    {
        char name[] = "/tmp/selftestsXXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        scratch = name;
        root = scratch + "/v2.32";
        for (const char *directory : {"/bin", "/docs", "/orb/bin", "/orb-as/bin", "/elm/bin"})
            fs::create_directories(root + directory);
        ASSERT_EQ(qzinstdir_set(root.c_str()), 0);
        before = fs::current_path();
    }
    void TearDown() override
    {
        EXPECT_EQ(fs::current_path(), before) << "the working directory was not put back";
        fs::permissions(scratch, fs::perms::owner_all);
        fs::remove_all(scratch);
    }

    // Writes a file below the root of the installation.
    void write(const std::string &name, const std::string &bytes) const
    {
        fs::create_directories(fs::path(root + "/" + name).parent_path());
        std::ofstream(root + "/" + name, std::ios::binary) << bytes;
    }

    // The same, and makes it executable.
    void script(const std::string &name, const std::string &text) const
    {
        write(name, "#!/bin/sh\n" + text);
        fs::permissions(root + "/" + name, fs::perms::owner_all);
    }

    static std::string contents(const std::string &path)
    {
        std::ifstream file(path, std::ios::binary);
        std::stringstream bytes;
        bytes << file.rdbuf();
        return bytes.str();
    }

    static std::string text(const char *string) { return string == nullptr ? "" : string; }

    // The cases of a row; their vector is destroyed. The cases live on, as in the program.
    static std::vector<TestCase *> cases(Vector *row)
    {
        std::vector<TestCase *> all;
        for (TestCase *test : vec_each<TestCase>(row)) {
            all.push_back(test);
            kept().push_back(test);
        }
        vec_destroy(row);
        return all;
    }
    static Strings names(Vector *row)
    {
        Strings all;
        for (const TestCase *test : cases(row))
            all.push_back("[" + text(test->group) + "] " + test->name);
        return all;
    }

    static Failure run(TestCase *test)
    {
        test->function(test);
        return {text(test->failureType), text(test->failureMessage), text(test->output)};
    }
    // The result of the row's only case.
    static Failure runOnly(Vector *row)
    {
        const auto all = cases(row);
        EXPECT_EQ(all.size(), 1U);
        return all.empty() ? Failure{} : run(all[0]);
    }

    // From here on this process cannot open another file.
    static void forbidFiles()
    {
        const struct rlimit none = {3, 3};
        setrlimit(RLIMIT_NOFILE, &none);
    }

    std::string scratch; // absolute
    std::string root;    // of the installation
    fs::path before;     // the working directory

  private:
    // Test cases are never freed; here the leak check can still reach them.
    static std::vector<TestCase *> &kept()
    {
        static auto *all = new std::vector<TestCase *>;
        return *all;
    }
};

#endif
