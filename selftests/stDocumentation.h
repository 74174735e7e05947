// The self-test's rows about documents: each function gives the test cases of one row, a new vector
// of TestCase, the caller's to destroy.
#ifndef SELFTESTS_STDOCUMENTATION_H
#define SELFTESTS_STDOCUMENTATION_H

struct Vector;

Vector *stDocsReadme_tests();
Vector *stDocsUG_tests();

// 1 when the directory contains an entry of any kind whose name contains `pattern`, ignoring case;
// else 0, also for a null or unreadable directory.
int findFileLike(const char *pattern, const char *directory);

#endif
