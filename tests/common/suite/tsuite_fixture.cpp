#define MODULE "tests/fixture"

#include "tests/common/suite/tsuite_fixture.h"

#include "common/trace/qzdebug.h"

OsdepTime fakeWall;
OsdepTime fakeCpu;
int64_t fakeWallStep;
bool realClocks;
std::string clockReadings;
bool refuseMemory;
std::string console;

// The linker sends the calls of osdep_wallTime(), osdep_cpuTime() and xmalloc() here.
extern "C" OsdepTime __wrap__Z14osdep_wallTimev();
extern "C" OsdepTime __wrap__Z13osdep_cpuTimev();
extern "C" OsdepTime __real__Z14osdep_wallTimev();
extern "C" OsdepTime __real__Z13osdep_cpuTimev();
extern "C" void *__wrap__Z7xmallocj(uint32_t size);
extern "C" void *__real__Z7xmallocj(uint32_t size);

OsdepTime __wrap__Z14osdep_wallTimev()
{
    clockReadings += 'w';
    if (realClocks)
        return __real__Z14osdep_wallTimev();
    const OsdepTime now = fakeWall;
    fakeWall.seconds += fakeWallStep;
    return now;
}

OsdepTime __wrap__Z13osdep_cpuTimev()
{
    clockReadings += 'c';
    return realClocks ? __real__Z13osdep_cpuTimev() : fakeCpu;
}

void *__wrap__Z7xmallocj(uint32_t size)
{
    return refuseMemory ? nullptr : __real__Z7xmallocj(size);
}

void resetSystem()
{
    fakeWall = {FAKE_NOW, 0};
    fakeCpu = {0, 0};
    fakeWallStep = 0;
    realClocks = false;
    clockReadings.clear();
    refuseMemory = false;
}

void passMilliseconds(int64_t milliseconds)
{
    const int64_t microseconds = fakeWall.fraction + milliseconds * 1000;
    fakeWall.seconds += microseconds / 1000000;
    fakeWall.fraction = microseconds % 1000000;
}

void toConsole(const char *text)
{
    console += text;
}

std::string readableConsole()
{
    static const std::string erased = "\b \b";
    std::string text;
    for (size_t at = 0; at < console.size();) {
        size_t count = 0;
        for (; console.compare(at, erased.size(), erased) == 0; at += erased.size())
            ++count;
        if (count != 0)
            text += "{" + std::to_string(count) + "}";
        else
            text += console[at++];
    }
    return text;
}

void TsuiteTest::SetUp()
{
    resetSystem();
    console.clear();
    tsuite_setVerbosity(TSUITE_PROGRESS);
}

void TsuiteTest::TearDown()
{
    refuseMemory = false;
    gDebugFlags = 0;
}

// ---- Cases ------------------------------------------------------------------------------------

static int pass(TestCase *test)
{
    passMilliseconds(static_cast<int64_t>(reinterpret_cast<intptr_t>(test->data)));
    return 0;
}

static int fail(TestCase *test)
{
    pass(test);
    TSUITE_FAIL(test, "fatal", "it broke", "line one\nline two");
    return 0;
}

static void *duration(int milliseconds)
{
    return reinterpret_cast<void *>(static_cast<intptr_t>(milliseconds));
}

TestCase *passing(const char *group, const char *name, int milliseconds)
{
    return tsuite_newtest(group, name, pass, duration(milliseconds));
}

TestCase *failing(const char *group, const char *name, int milliseconds)
{
    return tsuite_newtest(group, name, fail, duration(milliseconds));
}

TestCase *skipped(const char *group, const char *name)
{
    return tsuite_newtest(group, name, nullptr, nullptr);
}
