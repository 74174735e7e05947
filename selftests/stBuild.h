// The self-test's rows that run the tools of the installation: each function gives the test cases
// of one row, a new vector of TestCase, the caller's to destroy.
//
// A case runs a tool on a small source for one device and checks its exit status and, for some, its
// output. Cases for every device use the installation's list of devices, which is read once.
#ifndef SELFTESTS_STBUILD_H
#define SELFTESTS_STBUILD_H

#include <cstdint>

struct TestCase;
struct Vector;

Vector *stBuildDeviceSupport_tests(); // the list of devices can be read
Vector *stBuildAssembleORB_tests();   // for every ORB and ORB18 device
Vector *stBuildC90ORB_tests();        // the same
Vector *stBuildC99ORB_tests();        // the same
Vector *stBuildCPP_tests();           // predefined macros and search paths
Vector *stBuildLib_tests();           // libraries are created and unpacked
Vector *stBuildELM_tests();           // for every ELM device

// Examines a tool's output and the files it created. Records problems in the case and returns the
// number of checks that passed.
using BuildChecker = int (*)(TestCase *test, const char *outputPath, const char *output);

// The use of a case's extra arguments.
enum BuildMode : uint32_t {
    BUILD_STANDARD = 0, // none: the standard command is run
    BUILD_REPLACE = 1,  // they are the whole command
    BUILD_APPEND = 2,   // they follow the standard command
};

inline constexpr uint32_t BUILD_C90 = 1; // as a C standard; any other is C99
inline constexpr uint32_t BUILD_C99 = 2;

// The data of a case.
struct BuildTest {
    uint32_t deviceType; // OptionFamily
    const char *device;  // interned
    uint32_t standard;
    uint32_t mode;        // BuildMode
    Vector *extra;        // interned arguments, or null
    BuildChecker checker; // or null
};

// The test functions of cases with a BuildTest.
int ANYORBassemble(TestCase *test);
int ANYORBcompile(TestCase *test);
int ELMcompile(TestCase *test);

// The checkers: the predefined macros and the include search list; and putting the compiled object
// into a library and extracting it again.
int check_cpp(TestCase *test, const char *outputPath, const char *output);
int check_lib(TestCase *test, const char *outputPath, const char *output);

// Whether a device gets no cases.
bool skipChip(const char *device);

#endif
