// The report of a broken contract, for the tests of the sets.
#ifndef TESTS_COMMON_BROKEN_CONTRACT_H
#define TESTS_COMMON_BROKEN_CONTRACT_H

#include <gtest/gtest.h>

#include <string>

// A regular expression that matches the text and nothing else.
inline std::string matching(const std::string &text)
{
    std::string expression;
    for (const char c : text) {
        if (std::string("()[].*+?{}^$|\\").find(c) != std::string::npos)
            expression += '\\';
        expression += c;
    }
    return expression;
}

// The statement must end the run with this report and no other output. MODULE is the source of the
// checks.
#define EXPECT_BROKEN(statement, expression, line)                                                 \
    EXPECT_EXIT(statement, testing::ExitedWithCode(1),                                             \
                "^" + matching("Assertion failed - " expression " (" MODULE ", line " #line ")") + \
                    "\n$")

#endif
