// The rules that build servers require of a JUnit report: well-formed XML 1.0 in UTF-8, and the
// elements and attributes of their schema that we use.
#ifndef TESTS_COMMON_SUITE_JUNIT_RULES_H
#define TESTS_COMMON_SUITE_JUNIT_RULES_H

#include <string>

// The first rule that the document breaks, or an empty text.
std::string junitComplaint(const std::string &document);

#endif
