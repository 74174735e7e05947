// Tests of the debug facility. It is configured once per process, so each test works in a process
// of its own, in a scratch directory.
#ifndef TESTS_COMMON_DIAGNOSTICS_QZDEBUG_FIXTURE_H
#define TESTS_COMMON_DIAGNOSTICS_QZDEBUG_FIXTURE_H

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/os/osdep_temp.h"
#include "common/trace/qzdebug.h"

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

struct Outcome {
    int status;          // exit status; 1000 and the signal when it was killed
    std::string output;  // standard output
    std::string errors;  // standard error
    std::string answers; // passed by the process to answer()
};

inline std::string contents(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline FILE *answersOfProcess;

inline void answer(const char *text)
{
    fprintf(answersOfProcess, "%s\n", text == nullptr ? "null" : text);
}

inline void answer(const std::string &text)
{
    answer(text.c_str());
}

inline std::string warning(const std::string &text)
{
    return "QZDEBUG (warning): " + text + "\n";
}

class QzdebugProcess : public testing::Test {
  protected:
    void SetUp() override
    {
        char name[] = "/tmp/qzdebug_test.XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        root = name;
        fs::create_directory(work());
    }
    void TearDown() override { fs::remove_all(root); }

    fs::path work() const { return root / "work"; }

    // Runs `action` in a new process whose current directory is work().
    Outcome inProcess(const std::function<void()> &action) const
    {
        const pid_t child = fork();
        if (child == 0) {
            if (chdir(work().c_str()) != 0 ||
                freopen((root / "stdout").c_str(), "w", stdout) == nullptr ||
                freopen((root / "stderr").c_str(), "w", stderr) == nullptr)
                _exit(99);
            answersOfProcess = fopen((root / "answers").c_str(), "w");
            action();
            fclose(answersOfProcess);
            fflush(nullptr);
            gDebugFlags = 0; // the trace must hold the action's lines only
            osdep_removeTempFiles();
            _exit(0);
        }
        int status = -1;
        waitpid(child, &status, 0);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status),
                contents(root / "stdout"), contents(root / "stderr"), contents(root / "answers")};
    }

    // The names in work().
    Names files() const
    {
        Names names;
        for (const auto &entry : fs::directory_iterator(work()))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

    fs::path root;
};

#endif
