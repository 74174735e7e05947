// The way from the arguments to a family and a command, as far as it does not need an installation.
#include "driver/options_process.h"

#include <gmock/gmock.h>

#include "common/install/qzinstdir.h"
#include "common/trace/qzdebug.h"
#include "driver/families.h"
#include "driver_fixture.h"
#include "tests/common/trace_lines.h"

namespace {

class OptionsProcess : public DriverTest {
  protected:
    static void expectExit(const Strings &arguments, int status, const std::string &text)
    {
        Vector *vector = toVector(arguments);
        alert_setOutputHook(nullptr);
        EXPECT_EXIT(options_process(vector), testing::ExitedWithCode(status), testing::Eq(text));
        vec_destroy(vector);
    }
};

TEST_F(OptionsProcess, TheFamilyComesFromTheBeginningOfTheDeviceName)
{
    const struct {
        const char *option;
        OptionFamily family;
    } devices[] = {
        {"-mcpu=ORB16z20a", FAMILY_ORB10},
        {"-mcpu=16z20a", FAMILY_ORB10},
        {"-mcpu=18z40", FAMILY_ORB18},
        {"-mcpu=elmbig1", FAMILY_ELM},
        {"-mcpu=16", FAMILY_ORB10},
        {"-mmcu=Elm1", FAMILY_ELM},
        {"-mprocessor=KV10", FAMILY_ELM},
        {"zq10", FAMILY_ORB10},
        {"WTX1", FAMILY_ORB10},
        {"wty", FAMILY_ORB10},
        {"orb10x", FAMILY_ORB10},
        {"OrB12", FAMILY_ORB10},
        {"14z", FAMILY_ORB10},
        {"orb18", FAMILY_ORB18},
        {"-mcpu=orb", FAMILY_NONE},
        {"-mcpu=", FAMILY_NONE},
        {"-mcpu", FAMILY_NONE},
        {"orborb16", FAMILY_NONE},
        {"17z40", FAMILY_NONE},
        {"orbzq10", FAMILY_NONE},
        {"-mcpu=x=18z40", FAMILY_NONE},
        {"", FAMILY_NONE},
    };
    for (const auto &device : devices)
        EXPECT_EQ(option_DeviceType(device.option), device.family) << device.option;
}

TEST_F(OptionsProcess, NullArgumentsGiveNoCommand)
{
    EXPECT_EQ(options_process(nullptr), nullptr);
    EXPECT_EQ(gMessages, "");
}

TEST_F(OptionsProcess, WithoutADeviceTheRunEndsWithMessage2042)
{
    const std::string text =
        "(2042) no target device specified; use the -mcpu option to specify a target device\n";
    expectExit({}, 1, text);
    expectExit({"-c", "main.c", "-o"}, 1, text);
    expectExit({"-std", "-unknown", "-mcci", "-mreserve=x"}, 1, text);
}

TEST_F(OptionsProcess, AnUnknownDeviceEndsTheRunWithMessage2043)
{
    const std::string text = "(2043) target device was not recognized\n";
    expectExit({"-mcpu=pdp11", "-c", "main.c"}, 1, text);
    expectExit({"-mcpu", "18z40"}, 1, text);
    expectExit({"-mcpux=17", "-mcpu=18z40"}, 1, text);
}

TEST_F(OptionsProcess, TheFirstDeviceOptionDecidesTheFamily)
{
    // Outside an installation the driver that was chosen is missing.
    expectExit({"-mcpu=elmbig1", "-mcpu=16z20a"}, 1,
               "(2045) could not find executable \"elm-gcc\"\n");
    expectExit({"-mcpu=16z20a", "-mcpu=elmbig1"}, 1, "(2045) could not find executable \"qzm\"\n");
    expectExit({"-mcpu=pdp11", "-mcpu=elmbig1"}, 1, "(2043) target device was not recognized\n");
    expectExit({"-mcpufoo=18z40"}, 1, "(2045) could not find executable \"qzm\"\n");
}

TEST_F(OptionsProcess, EverySpellingOfADeviceOptionTellsTheFamily)
{
    for (const char *option : {"-mcpu=elmbig1", "-mmcu=elmbig1", "-mprocessor=elmbig1"})
        expectExit({option}, 1, "(2045) could not find executable \"elm-gcc\"\n");
    for (const char *option : {"-mcpu=18z40", "-mmcu=18z40", "-mprocessor=18z40"})
        expectExit({option}, 1, "(2045) could not find executable \"qzm\"\n");
}

TEST_F(OptionsProcess, AVersionRequestGoesToTheLegacyDriver)
{
    expectExit({"-mcpu=elmbig1", "--version"}, 1, "(2045) could not find executable \"qzm\"\n");
    expectExit({"--version=x"}, 1, "(2045) could not find executable \"qzm\"\n");
}

// The trace of asking for the family of a device.
static Strings traceOfDevice(const char *device)
{
    return trace_lines_while("families", [&] { option_DeviceType(device); });
}

TEST_F(OptionsProcess, TheTraceTellsTheFamily)
{
    EXPECT_EQ(traceOfDevice("-mcpu=elmbig1"), Strings{"device identified as an ELM"});
    EXPECT_EQ(traceOfDevice("-mcpu=18z40"), Strings{"device identified as a ORB18"});
    EXPECT_EQ(traceOfDevice("-mcpu=16z20a"), Strings{"device identified as a ORB10/12/14/16"});
    EXPECT_EQ(traceOfDevice("-mcpu=pdp11"), Strings{"device was not identified"});
}

TEST_F(OptionsProcess, TheTraceTellsThatThereWereNoArguments)
{
    EXPECT_EQ(trace_lines_while("options_process", [] { options_process(nullptr); }),
              Strings{"options vector was NULL"});
}

// Asks for a command in an installation without drivers, tracing to standard error.
static void processWithoutDrivers(Vector *arguments)
{
    qzinstdir_set("/usr");
    gDebugOut = stderr;
    gDebugFlags = DEBUG_TRACE;
    options_process(arguments);
}

TEST_F(OptionsProcess, TheTraceTellsWhereADriverWasLookedFor)
{
    const struct {
        const char *device;
        const char *first;
        const char *second;
    } drivers[] = {
        {"-mcpu=elmbig1", "/usr/elm/bin/elm-gcc", "/usr/bin/elm-gcc"},
        {"-mcpu=18z40", "/usr/bin/qzm", "/usr/bin/qzm"},
    };
    for (const auto &driver : drivers) {
        Vector *arguments = toVector({driver.device});
        const std::string first =
            "> *Could not locate driver in path: \"" + std::string(driver.first) + "\"\n";
        const std::string second =
            "> *Also could not locate driver in path: \"" + std::string(driver.second) + "\"\n";
        EXPECT_EXIT(processWithoutDrivers(arguments), testing::ExitedWithCode(1),
                    testing::AllOf(testing::ContainsRegex(first), testing::ContainsRegex(second)));
        vec_destroy(arguments);
    }
}

TEST_F(OptionsProcess, HelpWithoutADeviceIsPrintedAndEndsTheRunWell)
{
    expectExit({"--help"}, 0, "");
    expectExit({"-o", "--help=target"}, 0, "");
    expectExit({"--help="}, 1, "(1195) invalid syntax for \"--help=\" option\n");
    expectExit({"--help,x"}, 1, "(1195) invalid syntax for \"--help,x\" option\n");
}

TEST_F(OptionsProcess, HelpThatCannotBeWrittenIsAnError)
{
    Vector *vector = toVector({"--help"});
    alert_setOutputHook(nullptr);
    EXPECT_EXIT(
        {
            if (freopen("/dev/full", "w", stdout) != nullptr)
                options_process(vector);
        },
        testing::ExitedWithCode(1),
        testing::Eq("(105) could not write file \"standard output\": No space left on device\n"));
    vec_destroy(vector);
}

} // namespace
