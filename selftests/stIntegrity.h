// The self-test's rows about the files of the installation: each function gives the test cases of
// one row, a new vector of TestCase, the caller's to destroy.
#ifndef SELFTESTS_STINTEGRITY_H
#define SELFTESTS_STINTEGRITY_H

struct Vector;

Vector *stIntegrityManifest_tests();    // the hash list exists and can be read
Vector *stIntegritySHA_tests();         // all files match it
Vector *stIntegritySHAdetailed_tests(); // the same, with one test case per listed file
Vector *stIntegrityExtra_tests();       // nothing unexpected is in the root

// The file "manifest" in the root of the installation, interned; null when the root is not known.
const char *selftests_manifestPath();

#endif
