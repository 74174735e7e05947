// The fixture of the message system's tests. Each case runs in a process of its own, since the
// tables, rules and counts live to the end of a run. Its standard error is compared as a whole.
#ifndef TESTS_COMMON_DIAGNOSTICS_ALERT_FIXTURE_H
#define TESTS_COMMON_DIAGNOSTICS_ALERT_FIXTURE_H

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <ostream>
#include <string>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

// How a process ended and what it wrote to standard error.
struct Outcome {
    int status; // its exit status, or 1000 + the signal
    std::string text;
    bool operator==(const Outcome &) const = default;
};

inline std::ostream &operator<<(std::ostream &out, const Outcome &outcome)
{
    return out << "status " << outcome.status << ", \"" << outcome.text << "\"";
}

inline std::string readFile(const std::filesystem::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void writeFile(const std::filesystem::path &path, const std::string &text)
{
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

// A scratch directory for each test, which is the current directory of what it runs.
class AlertTest : public testing::Test {
  protected:
    std::filesystem::path scratch;

    void SetUp() override
    {
        char name[] = "/tmp/alert_test.XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        scratch = name;
        for (const char *variable : {"NVC_ERR_FORMAT", "NVC_WARN_FORMAT", "NVC_MSG_FORMAT"})
            unsetenv(variable);
    }

    void TearDown() override { std::filesystem::remove_all(scratch); }

    std::string pathOf(const std::string &name) const { return (scratch / name).string(); }

    // Runs `body` in a fresh process. Its status is 0 unless `body` ends it.
    Outcome run(const std::function<void()> &body) const
    {
        const std::string errors = pathOf("stderr");
        std::fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            if (std::freopen(errors.c_str(), "wb", stderr) == nullptr ||
                chdir(scratch.c_str()) != 0)
                _exit(99);
            std::setvbuf(stderr, nullptr, _IONBF, 0);
            body();
            std::exit(0);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        const int result = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
        return {result, readFile(errors)};
    }
};

#endif
