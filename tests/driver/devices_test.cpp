// Where the programs are, which devices each source names, and the order of names.
#include "driver/devices.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/os/osdep_temp.h"
#include "common/text/osdep_path.h"
#include "installation_fixture.h"
#include "tests/common/trace_lines.h"

namespace fs = std::filesystem;

// The tests can make the program believe that it is on another system, and make temporary files
// fail to open.
static uint32_t gMoreOsFlags;
static bool gNoTempFiles;

extern "C" {
uint32_t __real__Z13osdep_osFlagsv();
uint32_t __wrap__Z13osdep_osFlagsv()
{
    return __real__Z13osdep_osFlagsv() | gMoreOsFlags;
}
FILE *__real_fopen(const char *path, const char *mode);
FILE *__wrap_fopen(const char *path, const char *mode)
{
    return gNoTempFiles && mode[0] == 'w' ? nullptr : __real_fopen(path, mode);
}
}

namespace {

class Devices : public InstallationTest {
  protected:
    void TearDown() override
    {
        gMoreOsFlags = 0;
        gNoTempFiles = false;
        InstallationTest::TearDown();
    }

    template <class Action> static Strings traceOf(Action action)
    {
        return trace_lines_while("devices", action);
    }

    // The output on standard error while a process asks the programs, and after that.
    template <class Action> static void expectStandardError(Action action, const std::string &text)
    {
        EXPECT_EXIT(
            {
                action();
                fputs("goes on", stderr);
                fflush(stderr);
                osdep_removeTempFiles();
                _exit(testing::Test::HasFailure() ? 1 : 0); // whether the action found a fault
            },
            testing::ExitedWithCode(0), testing::Eq(text + "goes on"));
    }

    std::string xml(const std::string &body) const
    {
        return file("bin/deviceSupport.xml", "<?xml version=\"1.0\"?>\n" + body);
    }
    std::string index(const std::string &text) const
    {
        return file("legasm/8bit_device.info", text);
    }
};

// ---- Programs ----------------------------------------------------------------------------------

const struct {
    uint32_t kind;
    std::string first;
    std::string second;
} locations[] = {
    {DRIVER_ELM, "/elm/bin/elm-gcc", ""},
    {DRIVER_ORB_COMPILER, "/orb/bin/orbc", "/orb/bin/orbcd"},
    {DRIVER_ORB18_COMPILER, "/orb/bin/orbc18", "/orb/bin/orbc18d"},
    {DRIVER_LEGACY, "/orb/bin/qzm", "/orb/bin/qzmd"},
    {DRIVER_QZM_CC, "/bin/qzm-cc", ""},
    {DRIVER_LEGACY_ASSEMBLER, "/legasm/legasm", ""},
    {DRIVER_ORB_ASSEMBLER, "/orb-as/bin/orb-as", ""},
};

TEST_F(Devices, EveryProgramIsFoundAtItsPlace)
{
    for (const auto &location : locations) {
        EXPECT_EQ(getDriverPath(location.kind), nullptr) << location.first;
        const std::string path = file(location.first.substr(1), "");
        EXPECT_STREQ(getDriverPath(location.kind), path.c_str());
    }
}

TEST_F(Devices, TheSecondNameOfAProgramIsTriedWhenTheFirstIsMissing)
{
    for (const auto &location : locations) {
        if (location.second.empty())
            continue;
        const std::string second = file(location.second.substr(1), "");
        EXPECT_STREQ(getDriverPath(location.kind), second.c_str());
        const std::string first = file(location.first.substr(1), "");
        EXPECT_STREQ(getDriverPath(location.kind), first.c_str());
    }
}

TEST_F(Devices, AProgramWithoutASecondNameHasNone)
{
    for (const char *name : {"elm/bin/elm-gccd", "bin/qzm-ccd", "legasm/legasmd"})
        file(name, "");
    for (uint32_t kind : {DRIVER_ELM, DRIVER_QZM_CC, DRIVER_LEGACY_ASSEMBLER})
        EXPECT_EQ(getDriverPath(kind), nullptr) << kind;
}

TEST_F(Devices, AnUnknownKindOfProgramHasNoPath)
{
    for (uint32_t kind : {0U, 8U, 0xFFFFFFFFU})
        EXPECT_EQ(getDriverPath(kind), nullptr) << kind;
}

TEST_F(Devices, OnWindowsTheNamesEndInExe)
{
    gMoreOsFlags = OSFLAG_WINDOWS;
    for (const auto &location : locations) {
        file(location.first.substr(1), "");
        EXPECT_EQ(getDriverPath(location.kind), nullptr) << location.first;
        if (!location.second.empty()) {
            const std::string second = file(location.second.substr(1) + ".exe", "");
            EXPECT_STREQ(getDriverPath(location.kind), second.c_str());
        }
        const std::string first = file(location.first.substr(1) + ".exe", "");
        EXPECT_STREQ(getDriverPath(location.kind), first.c_str());
    }
}

TEST_F(Devices, TheTraceTellsWhereAProgramIs)
{
    file("orb/bin/orbcd", "");
    file("elm/bin/elm-gcc", "");
    EXPECT_EQ(traceOf([] { getDriverPath(DRIVER_ORB_COMPILER); }),
              (Strings{"This is NOT a Windows based operating system",
                       "Found driver: \"" + suite + "/orb/bin/orbcd\""}));
    EXPECT_EQ(traceOf([] { getDriverPath(DRIVER_LEGACY); }),
              (Strings{"This is NOT a Windows based operating system",
                       "Could not locate driver: \"" + suite + "/orb/bin/qzmd\""}));
    EXPECT_EQ(traceOf([] { getDriverPath(DRIVER_ELM); }),
              Strings{"Found driver: \"" + suite + "/elm/bin/elm-gcc\""});
    EXPECT_EQ(traceOf([] { getDriverPath(DRIVER_ORB_ASSEMBLER); }),
              Strings{"Could not locate driver: \"" + suite + "/orb-as/bin/orb-as\""});
    gMoreOsFlags = OSFLAG_WINDOWS;
    EXPECT_EQ(traceOf([] { getDriverPath(DRIVER_ORB18_COMPILER); }),
              (Strings{"This is a Windows based operating system",
                       "Could not locate driver: \"" + suite + "/orb/bin/orbc18d.exe\""}));
}

// ---- The ORB compilers -------------------------------------------------------------------------

TEST_F(Devices, AnOrbCompilersLinesAreCutAtTheColonAndLowerCased)
{
    program("orb/bin/orbc", "printf '16Z20A:2048:x:y\\n14z2\\r\\nZQ10:\\n\\n:x\\nlast'");
    EXPECT_EQ(toStrings(getORBDeviceList_helper(DRIVER_ORB_COMPILER)),
              (Strings{"16z20a", "14z2", "zq10", "last"}));
}

TEST_F(Devices, AnOrbCompilerIsGivenOneArgument)
{
    program("orb/bin/orbc", "echo \"16$#$1:\"");
    program("orb/bin/orbc18", "echo \"18$#$1:\"");
    EXPECT_EQ(toStrings(getORBDeviceList()), Strings{"161--chipinforaw"});
    EXPECT_EQ(toStrings(getORB18DeviceList()), Strings{"181--chipinforaw"});
}

TEST_F(Devices, TheTraceTellsWhatAnOrbCompilerLists)
{
    const std::string path = program("orb/bin/orbc", "echo 16Z20A:1; echo 16Z10; exit 3");
    EXPECT_EQ(traceOf([] { vec_destroy(getORBDeviceList()); }),
              (Strings{"This is NOT a Windows based operating system",
                       "Found driver: \"" + path + "\"", "found chip: \"16z20a\"",
                       "found chip: \"16z10\"", "\"" + path + "\" ended with status 3"}));
}

TEST_F(Devices, NamesCountWhenTheProgramThenFails)
{
    program("orb/bin/orbc", "echo 16z20a; exit 1");
    EXPECT_EQ(toStrings(getORBDeviceList()), Strings{"16z20a"});
}

TEST_F(Devices, AProgramThatSaysNothingGivesAnEmptyList)
{
    program("orb/bin/orbc", "");
    Vector *names = getORBDeviceList();
    EXPECT_NE(names, nullptr);
    EXPECT_EQ(toStrings(names), Strings{});
}

TEST_F(Devices, AProgramThatCannotBeRunGivesAnEmptyList)
{
    file("orb/bin/orbc", "not a program");
    EXPECT_EQ(toStrings(getORBDeviceList()), Strings{});
}

TEST_F(Devices, AKilledProgramGivesNoListAndTheOutputIsPutBack)
{
    program("orb/bin/orbc", "echo 16z20a; kill -9 $$");
    expectStandardError([] { EXPECT_EQ(getORBDeviceList(), nullptr); }, "");
    const Strings lines = traceOf([] { EXPECT_EQ(getORBDeviceList(), nullptr); });
    EXPECT_EQ(lines.back(), "Could not open pipe");
}

TEST_F(Devices, AMissingOrbCompilerIsABrokenContract)
{
    EXPECT_EXIT(getORBDeviceList(), testing::ExitedWithCode(1),
                testing::Eq("Assertion failed - driver != NULL (driver/devices, line 10)\n"));
}

TEST_F(Devices, MegabytesOfOutputAreRead)
{
    program("orb/bin/orbc", "i=0; head -c 2000000 /dev/zero | tr '\\0' 'x'; echo; "
                            "yes '16z20a:some more text' | head -n 50000; echo 16z30");
    const Strings names = toStrings(getORBDeviceList());
    ASSERT_EQ(names.size(), 50002U);
    EXPECT_EQ(names[0].size(), 2000000U);
    EXPECT_EQ(names[50000], "16z20a");
    EXPECT_EQ(names[50001], "16z30");
}

TEST_F(Devices, ALineWithoutEndEndsTheListWithoutEndingTheRun)
{
    program("orb/bin/orbc", "echo 16z20a; head -c 40000000 /dev/zero | tr '\\0' 'x'; echo; "
                            "echo 16z30");
    EXPECT_EQ(toStrings(getORBDeviceList()), Strings{"16z20a"});
}

// ---- The ELM driver ----------------------------------------------------------------------------

TEST_F(Devices, TheElmDriversArchitectureIsNoDevice)
{
    program("elm/bin/elm-gcc", "echo 'Known MCU names:'; echo ' elm1 elmbig1'; echo");
    EXPECT_EQ(toStrings(getELMDeviceList()), Strings{"elmbig1"});
}

TEST_F(Devices, TheElmDriversNamesStandBetweenTwoLines)
{
    program("elm/bin/elm-gcc", "[ \"$#$1\" = 1--target-help ] || exit 1\n"
                               "cat <<'END'\n"
                               "The following options are target specific:\n"
                               "  elmno\n"
                               " Known MCU names: elmno\n"
                               "Known MCU names: elmno\n"
                               "\n"
                               "  elm1 ElmBig1\telmw1\n"
                               " elm10   Elm1\n"
                               "Linkers may follow elmno\n"
                               "elmno\n"
                               "END\n");
    EXPECT_EQ(toStrings(getELMDeviceList()), (Strings{"elmbig1", "elmw1", "elm10", "elm1"}));
}

TEST_F(Devices, TheElmDriversNamesMayBeTheLastOnes)
{
    program("elm/bin/elm-gcc", "printf 'Known MCU names:\\r\\n elm2\\r\\n kv1'; exit 1");
    EXPECT_EQ(toStrings(getELMDeviceList()), (Strings{"elm2", "kv1"}));
}

TEST_F(Devices, AnElmDriverWithoutNamesGivesAnEmptyList)
{
    program("elm/bin/elm-gcc", "echo elmbig1; echo 'Linker options'");
    Vector *names = getELMDeviceList();
    EXPECT_NE(names, nullptr);
    EXPECT_EQ(toStrings(names), Strings{});
}

TEST_F(Devices, AMissingOrKilledElmDriverGivesNoList)
{
    EXPECT_EQ(traceOf([] { EXPECT_EQ(getELMDeviceList(), nullptr); }),
              (Strings{"Could not locate driver: \"" + suite + "/elm/bin/elm-gcc\"",
                       "Could not open pipe"}));
    program("elm/bin/elm-gcc", "echo 'Known MCU names:'; kill -11 $$");
    expectStandardError([] { EXPECT_EQ(getELMDeviceList(), nullptr); }, "");
}

TEST_F(Devices, TheTraceTellsWhatTheElmDriverLists)
{
    const std::string path =
        program("elm/bin/elm-gcc", "echo 'Known MCU names:'; echo ' elm1 ELMbig1'");
    EXPECT_EQ(traceOf([] { vec_destroy(getELMDeviceList()); }),
              (Strings{"Found driver: \"" + path + "\"", "Found \"Known MCU names\"",
                       "ignoring: \"elm1\"", "found chip: \"elmbig1\""}));
}

// ---- All programs ------------------------------------------------------------------------------

class DevicePrograms : public Devices {
  protected:
    void SetUp() override
    {
        Devices::SetUp();
        program("orb/bin/orbc", "echo complaint >&2; echo 16z20a:1; echo 10z1; echo 18z1;"
                                " echo elmw9; echo pdp11");
        program("orb/bin/orbc18", "echo complaint >&2; echo 18z40:1; echo 18z40; echo junk: z");
        program("elm/bin/elm-gcc", "echo complaint >&2; echo 'Known MCU names:';"
                                   " echo ' elm1 elmbig1 16z3 kv2'");
    }
    static Strings list(uint32_t mask) { return toStrings(getDeviceListFromDrivers(mask)); }
};

TEST_F(DevicePrograms, AreAskedInTheOrderOfTheFamilies)
{
    EXPECT_EQ(list(DEVICES_ALL), (Strings{"16z20a", "10z1", "18z1", "elmw9", "18z40", "18z40",
                                          "elmbig1", "16z3", "kv2"}));
}

TEST_F(DevicePrograms, OfFamiliesNotAskedForAreNotRunAndTheirNamesAreDropped)
{
    EXPECT_EQ(list(DEVICES_ORB), (Strings{"16z20a", "10z1"}));
    EXPECT_EQ(list(DEVICES_ORB18), (Strings{"18z40", "18z40"}));
    EXPECT_EQ(list(DEVICES_ELM), (Strings{"elmbig1", "kv2"}));
    EXPECT_EQ(list(DEVICES_ORB | DEVICES_ORB18),
              (Strings{"16z20a", "10z1", "18z1", "18z40", "18z40"}));
    EXPECT_EQ(list(0), Strings{});
}

TEST_F(DevicePrograms, ComplainUnheard)
{
    expectStandardError([] { list(DEVICES_ALL); }, "");
}

TEST_F(DevicePrograms, ThatAreMissingOrDieAddNothing)
{
    fs::remove(suite + "/orb/bin/orbc");
    program("orb/bin/orbc18", "echo 18z40; kill -9 $$");
    expectStandardError(
        [] {
            EXPECT_EQ(list(DEVICES_ALL), (Strings{"elmbig1", "16z3", "kv2"}));
        },
        "");
    fs::remove(suite + "/elm/bin/elm-gcc");
    expectStandardError([] { EXPECT_EQ(list(DEVICES_ALL), Strings{}); }, "");
}

TEST_F(DevicePrograms, AreLookedForOnceEach)
{
    program("orb/bin/orbc", "echo 16z20a:1");
    program("orb/bin/orbc18", "echo 18z40:1");
    program("elm/bin/elm-gcc", "echo 'Known MCU names:'; echo ' elmbig1'");
    const std::string system = "This is NOT a Windows based operating system";
    EXPECT_EQ(
        traceOf([] { list(DEVICES_ALL); }),
        (Strings{system, "Found driver: \"" + suite + "/orb/bin/orbc\"", "found chip: \"16z20a\"",
                 system, "Found driver: \"" + suite + "/orb/bin/orbc18\"", "found chip: \"18z40\"",
                 "Found driver: \"" + suite + "/elm/bin/elm-gcc\"", "Found \"Known MCU names\"",
                 "found chip: \"elmbig1\""}));
}

TEST_F(DevicePrograms, ThatAreMissingShowInTheTrace)
{
    for (const char *name : {"/orb/bin/orbc", "/elm/bin/elm-gcc"})
        fs::remove(suite + name);
    EXPECT_EQ(
        traceOf([] { list(DEVICES_ORB | DEVICES_ELM); }),
        (Strings{"This is NOT a Windows based operating system",
                 "Could not locate driver: \"" + suite + "/orb/bin/orbcd\"", "Could not open pipe",
                 "Could not locate driver: \"" + suite + "/elm/bin/elm-gcc\"",
                 "Could not open pipe"}));
}

TEST_F(DevicePrograms, AreNotAskedWhenTheirComplaintsCannotBeHidden)
{
    gNoTempFiles = true;
    const Strings lines = trace_lines_while(
        "hidden_errors", [] { EXPECT_EQ(getDeviceListFromDrivers(DEVICES_ALL), nullptr); });
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_THAT(lines[0],
                testing::MatchesRegex("could not open temp file \"/tmp/qz[A-Za-z0-9]{7}\""));
}

// ---- The XML file ------------------------------------------------------------------------------

TEST_F(Devices, TheXmlFilesDevicesAreTwoLevelsBelowTheRoot)
{
    const std::string path = xml("<a x='16no'>16no"
                                 "<b y='16no'>16no"
                                 "<c name='16Z20A' other='pdp11' alias='18z40'>16no"
                                 "<d z='16no' /></c>"
                                 "<e n='elmBIG1' /></b>"
                                 "<b><c n='' /><c /><c n='ZQ1' /><c n='16z20a' /></b></a>");
    EXPECT_EQ(toStrings(getDeviceListFromXML(DEVICES_ALL, path.c_str())),
              (Strings{"16z20a", "18z40", "elmbig1", "zq1", "16z20a"}));
    EXPECT_EQ(toStrings(getDeviceListFromXML(DEVICES_ORB, path.c_str())),
              (Strings{"16z20a", "zq1", "16z20a"}));
    EXPECT_EQ(toStrings(getDeviceListFromXML(DEVICES_ORB18, path.c_str())), (Strings{"18z40"}));
    EXPECT_EQ(toStrings(getDeviceListFromXML(DEVICES_ELM, path.c_str())), (Strings{"elmbig1"}));
    EXPECT_EQ(toStrings(getDeviceListFromXML(0, path.c_str())), Strings{});
}

TEST_F(Devices, AnXmlFileOfAnotherShapeGivesAnEmptyList)
{
    for (const char *body : {"<a />", "<a n='16z20a'>text</a>", "<a><b n='16z20a' /></a>",
                             "<a><b><c>16z20a</c></b></a>"}) {
        const std::string path = xml(body);
        Vector *names = getDeviceListFromXML(DEVICES_ALL, path.c_str());
        EXPECT_NE(names, nullptr) << body;
        EXPECT_EQ(toStrings(names), Strings{}) << body;
    }
}

TEST_F(Devices, AnUnreadableXmlFileGivesNoList)
{
    for (const char *body : {"", "<a><b>", "text", "\n<a><b><c n='16z20a' /></b></a>"}) {
        const std::string path = xml(body);
        EXPECT_EQ(getDeviceListFromXML(DEVICES_ALL, path.c_str()), nullptr) << body;
    }
    const std::string empty = file("bin/empty", "");
    EXPECT_EQ(getDeviceListFromXML(DEVICES_ALL, empty.c_str()), nullptr);
    const std::string binary = file("bin/binary", std::string("\0\1\377<?xml", 8));
    EXPECT_EQ(getDeviceListFromXML(DEVICES_ALL, binary.c_str()), nullptr);
}

TEST_F(Devices, AnXmlFileThatCannotBeOpenedGivesNoList)
{
    const std::string pipe = suite + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string &path : {suite + "/missing", suite + "/bin", pipe}) {
        EXPECT_EQ(
            traceOf([&] { EXPECT_EQ(getDeviceListFromXML(DEVICES_ALL, path.c_str()), nullptr); }),
            Strings{"could not open xmlfile \"" + path + "\""});
    }
    EXPECT_EQ(getDeviceListFromXML(DEVICES_ALL, nullptr), nullptr);
}

// ---- The supported devices ---------------------------------------------------------------------

const char *const MISSING =
    "::: warning: deviceSupport.xml missing. Supported device list may be inaccurate\n";
const char *const UNREADABLE =
    "::: warning: deviceSupport.xml could not be read. Supported device list may be inaccurate\n";

TEST_F(DevicePrograms, AreNotAskedWhenThereIsAnXmlFile)
{
    xml("<a><b><c n='16z20a' /><c n='18z1' /><c n='kv9' /></b></a>");
    EXPECT_EQ(toStrings(deviceListSupported(DEVICES_ALL)), (Strings{"16z20a", "18z1", "kv9"}));
    EXPECT_EQ(toStrings(deviceListSupported(DEVICES_ORB)), Strings{"16z20a"});
    xml("<a />");
    EXPECT_EQ(toStrings(deviceListSupported(DEVICES_ALL)), Strings{});
    EXPECT_EQ(gMessages, "");
}

TEST_F(DevicePrograms, AreAskedWhenTheXmlFileIsMissing)
{
    EXPECT_EQ(toStrings(deviceListSupported(DEVICES_ORB | DEVICES_ORB18)),
              (Strings{"16z20a", "10z1", "18z1", "18z40", "18z40"}));
    EXPECT_EQ(gMessages, MISSING);
}

TEST_F(DevicePrograms, AreAskedWhenTheXmlFileCannotBeRead)
{
    xml("<a><b>");
    EXPECT_EQ(toStrings(deviceListSupported(DEVICES_ELM)), (Strings{"elmbig1", "kv2"}));
    EXPECT_EQ(gMessages, UNREADABLE);
    gMessages.clear();
    fs::remove(suite + "/bin/deviceSupport.xml");
    fs::create_directory(suite + "/bin/deviceSupport.xml");
    EXPECT_EQ(toStrings(deviceListSupported(DEVICES_ELM)), (Strings{"elmbig1", "kv2"}));
    EXPECT_EQ(gMessages, UNREADABLE);
}

TEST_F(Devices, NoSourceAtAllGivesAnEmptyListAndTheWarning)
{
    EXPECT_EQ(toStrings(deviceListSupported(DEVICES_ALL)), Strings{});
    EXPECT_EQ(gMessages, MISSING);
    gNoTempFiles = true;
    EXPECT_EQ(deviceListSupported(DEVICES_ALL), nullptr);
}

TEST_F(Devices, AHundredThousandDevicesAreReadAtOnce)
{
    std::string body = "<deviceSupport>\n<devices>\n";
    for (int i = 0; i < 100000; ++i)
        body += "<device name=\"16Z" + std::to_string(i) + "\" />\n";
    xml(body + "</devices>\n</deviceSupport>\n");
    const Strings names = toStrings(deviceListSupported(DEVICES_ALL));
    ASSERT_EQ(names.size(), 100000U);
    EXPECT_EQ(names.front(), "16z0");
    EXPECT_EQ(names.back(), "16z99999");
}

// ---- The legacy assembler's index --------------------------------------------------------------

TEST_F(Devices, TheIndexNamesItsDevicesAsWrittenUpToTheSections)
{
    const std::string path = index("# comment\n"
                                   "<PARTS_INDEX_TYPE><16Z20A><more>\n"
                                   "<parts_index_type><no>\n"
                                   " <PARTS_INDEX_TYPE><no>\n"
                                   "<PARTS_INDEX_TYPE><anything at all>\r\n"
                                   "<PARTS_INDEX_TYPE><14z1>\n"
                                   "<PART_INFO_TYPE><x>\n"
                                   "<PARTS_INDEX_TYPE><no>\n"
                                   "<PARTS_INDEX_TYPE><no\n");
    EXPECT_EQ(toStrings(getDeviceListFrom8bit_device_info(path.c_str())),
              (Strings{"16Z20A", "anything at all", "14z1"}));
    EXPECT_EQ(toStrings(deviceList8bit()), (Strings{"14z1", "16Z20A", "anything at all"}));
}

TEST_F(Devices, AnIndexLineWithoutItsEndIsABrokenContract)
{
    const std::string path = index("<PARTS_INDEX_TYPE><16z20a\n<PARTS_INDEX_TYPE><16z30>\n");
    const char *text = "Assertion failed - cp != NULL (driver/devices, line 20)\n";
    EXPECT_EXIT(getDeviceListFrom8bit_device_info(path.c_str()), testing::ExitedWithCode(1),
                testing::Eq(text));
    EXPECT_EXIT(deviceList8bit(), testing::ExitedWithCode(1), testing::Eq(text));
}

TEST_F(Devices, AnIndexWithoutNamesIsABrokenContractOrAFatalMessage)
{
    const std::string path = index("<PART_INFO_TYPE><x>\n<PARTS_INDEX_TYPE><16z20a>\n");
    alert_setOutputHook(nullptr);
    EXPECT_EXIT(
        getDeviceListFrom8bit_device_info(path.c_str()), testing::ExitedWithCode(1),
        testing::Eq("Assertion failed - vec_size(devlist) != 0 (driver/devices, line 30)\n"));
    EXPECT_EXIT(deviceList8bit(), testing::ExitedWithCode(1),
                testing::Eq("(2047) 8bit_device.info cannot be properly read\n"));
}

TEST_F(Devices, AMissingIndexIsAFatalMessage)
{
    EXPECT_EQ(getDeviceListFrom8bit_device_info((suite + "/missing").c_str()), nullptr);
    alert_setOutputHook(nullptr);
    EXPECT_EXIT(deviceList8bit(), testing::ExitedWithCode(1),
                testing::Eq("(2046) 8bit_device.info is missing\n"));
}

TEST_F(Devices, AnIndexThatIsNoFileIsAFatalMessage)
{
    const std::string path = suite + "/legasm/8bit_device.info";
    const char *text = "(2047) 8bit_device.info cannot be properly read\n";
    alert_setOutputHook(nullptr);
    fs::create_directory(path);
    EXPECT_EXIT(deviceList8bit(), testing::ExitedWithCode(1), testing::Eq(text));
    fs::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EXIT(deviceList8bit(), testing::ExitedWithCode(1), testing::Eq(text));
}

TEST_F(Devices, AnIndexWithAnEndlessLineIsAFatalMessage)
{
    index("<PARTS_INDEX_TYPE><16z20a>\n" + std::string(40000000, 'x') + "\n");
    alert_setOutputHook(nullptr);
    EXPECT_EXIT(deviceList8bit(), testing::ExitedWithCode(1),
                testing::Eq("(2047) 8bit_device.info cannot be properly read\n"));
}

// ---- Order -------------------------------------------------------------------------------------

TEST_F(Devices, LeadingUnderscoresDoNotCountInTheOrder)
{
    EXPECT_LT(deviceNameCompare("a", "_b"), 0);
    EXPECT_LT(deviceNameCompare("__a", "b"), 0);
    EXPECT_GT(deviceNameCompare("_b", "a"), 0);
    EXPECT_LT(deviceNameCompare("a", "ab"), 0);
    EXPECT_LT(deviceNameCompare("16z2", "16z20"), 0);
    EXPECT_LT(deviceNameCompare("a_", "a_b"), 0);
}

TEST_F(Devices, NamesThatDifferInUnderscoresAloneAreComparedWhole)
{
    EXPECT_LT(deviceNameCompare("_x", "x"), 0);
    EXPECT_GT(deviceNameCompare("x", "_x"), 0);
    EXPECT_LT(deviceNameCompare("__x", "_x"), 0);
    EXPECT_GT(deviceNameCompare("_", ""), 0);
}

TEST_F(Devices, EqualNamesAreNeverCalledEqual)
{
    EXPECT_EQ(deviceNameCompare("x", "x"), 1);
    EXPECT_EQ(deviceNameCompare("_x", "_x"), 1);
    EXPECT_EQ(deviceNameCompare("", ""), 1);
    EXPECT_EQ(deviceNameCompare(nullptr, nullptr), 1);
}

TEST_F(Devices, ANullNameComesFirst)
{
    EXPECT_LT(deviceNameCompare(nullptr, ""), 0);
    EXPECT_GT(deviceNameCompare("", nullptr), 0);
    EXPECT_LT(deviceNameCompare(nullptr, "x"), 0);
}

int compareSlots(const void *a, const void *b)
{
    return deviceNameCompare(*static_cast<const char *const *>(a),
                             *static_cast<const char *const *>(b));
}

// The order contradicts itself for equal names. The sort must neither leave the array nor fail to
// end, nor lose a name.
TEST_F(Devices, EqualNamesAreSortedAllTheSame)
{
    for (size_t distinct : {1U, 3U, 1000U}) {
        Strings texts;
        for (size_t i = 0; i < 100000; ++i)
            texts.push_back("16z" + std::to_string(i * 7919 % distinct));
        Vector *names = toVector(texts);
        vec_sort(names, compareSlots);
        std::sort(texts.begin(), texts.end());
        EXPECT_EQ(toStrings(names), texts) << distinct;
    }
}

} // namespace
