// The report of a broken contract.
#ifndef TESTS_COMMON_BROKEN_CONTRACT_H
#define TESTS_COMMON_BROKEN_CONTRACT_H

#include <string>

#include <gtest/gtest.h>

// A regular expression that matches exactly the text.
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

// The statement must end the run with the report of this check and without other output.
#define EXPECT_BROKEN_IN(source, statement, expression, line)                                      \
    EXPECT_EXIT(statement, testing::ExitedWithCode(1),                                             \
                "^" + matching("Assertion failed - " expression " (" source ", line " #line ")") + \
                    "\n$")

// The same for a test whose MODULE is the source of the checks.
#define EXPECT_BROKEN(statement, expression, line)                                                 \
    EXPECT_BROKEN_IN(MODULE, statement, expression, line)

#endif
