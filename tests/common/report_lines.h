// The lines that a report writes to the debug output, for the tests of the containers.
#ifndef TESTS_COMMON_REPORT_LINES_H
#define TESTS_COMMON_REPORT_LINES_H

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/trace/qzdebug.h"

using Lines = std::vector<std::string>;

inline Lines debugOutputOf(void (*run)())
{
    char *text = nullptr;
    size_t size = 0;
    gDebugOut = open_memstream(&text, &size);
    run();
    std::fclose(gDebugOut);
    gDebugOut = nullptr;
    Lines lines;
    std::string line;
    for (size_t i = 0; i < size; ++i) {
        if (text[i] != '\n') {
            line += text[i];
            continue;
        }
        lines.push_back(line);
        line.clear();
    }
    std::free(text);
    return lines;
}

inline std::string addressText(const void *p)
{
    char text[40];
    std::snprintf(text, sizeof text, "%p", p);
    return text;
}

// Recording applies to the whole process and is never undone: the death tests of such a fixture
// each run in a program started anew, whatever ran before in this one.
class FreshProcessTest : public testing::Test {
  protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
    void TearDown() override { GTEST_FLAG_SET(death_test_style, "fast"); }
};

// Ends a child process: with status 0 when the lines are as expected, else with 1 and the
// differences.
[[noreturn]] inline void exitComparing(const Lines &lines, const Lines &expected)
{
    for (size_t i = 0; i < lines.size() || i < expected.size(); ++i) {
        const std::string is = i < lines.size() ? lines[i] : "(nothing)";
        const std::string should = i < expected.size() ? expected[i] : "(nothing)";
        if (is != should)
            std::fprintf(stderr, "line %zu is     \"%s\"\n  instead of \"%s\"\n", i + 1, is.c_str(),
                         should.c_str());
    }
    std::_Exit(lines == expected ? 0 : 1);
}

#endif
