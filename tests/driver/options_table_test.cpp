// Checks the option table against its rules: the rows in order with flags, group and help text, the
// index and its lookup.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>

#include <gmock/gmock.h>

#include "common/base/hash.h"
#include "common/trace/container_report.h"
#include "common/trace/qzdebug.h"
#include "driver/families.h"
#include "driver_fixture.h"
#include "tests/common/report_lines.h"

namespace {

struct ExpectedRow {
    const char *name;
    uint32_t flags;
    const char *group;
    const char *help;
};

// clang-format off
const ExpectedRow expectedRows[] = {
    {"--qzdebug", 0x18540, nullptr,
     "turns on qz debug features"},
    {"--selfinit", 0x10540, nullptr,
     "generate hashes for compiler installation"},
    {"--selftest", 0x10540, nullptr,
     "perform basic installation/integrity tests"},
    {"--nodel", 0x10540, nullptr,
     "do not remove temporary files"},
    {"--pragmaconfig", 0x540, nullptr,
     "select pragma config implementation"},
    {"-c", 0x401, nullptr,
     "Compile/assemble to intermediate/object file"},
    {"-C", 0x401, nullptr,
     "Tell the preprocessor not to discard comments"},
    {"-S", 0x401, nullptr,
     "Compile to assembly file"},
    {"-v", 0x19401, nullptr,
     "Verbose"},
    {"-E", 0x8401, nullptr,
     "Preprocess only"},
    {"-o", 0x8681, nullptr,
     "Specify output file"},
    {"-D", 0x8681, nullptr,
     "Define preprocessor symbol"},
    {"-U", 0x8681, nullptr,
     "Undefine preprocessor symbol"},
    {"-I", 0x8681, nullptr,
     "Specify include path"},
    {"-l", 0x8681, nullptr,
     "Specify library"},
    {"-L", 0x8481, nullptr,
     "Specify library search path"},
    {"-H", 0x8401, nullptr,
     "List included header files"},
    {"-dM", 0x8401, nullptr,
     "List all defined macros"},
    {"-Wl", 0xA401, "LKR:,",
     "Pass comma-separated options directly to the linker"},
    {"--memorysummary", 0xC480, "LKR",
     "Create an XML file containing a summary of program and data memory spaces"},
    {"--data-init", 0x4400, "LKR",
     "Initialize data psects"},
    {"--no-data-init", 0x4400, "LKR",
     "Don't initialize data psects"},
    {"-Map", 0xC500, "LKR",
     "Generate linker map file"},
    {"-Xlinker", 0x8601, nullptr,
     "Pass option directly to the linker"},
    {"-Wa", 0xA401, "ASM:,",
     "Pass comma-separated options on to the assembler"},
    {"-a", 0xC480, "ASM",
     "Generate assembler listing"},
    {"-Xparser", 0x601, nullptr,
     "Pass option directly to the parser"},
    {"-Xqzm", 0x8641, nullptr,
     "Pass option directly to the qzm super-driver"},
    {"-Xp1", 0x601, nullptr,
     "Pass option directly to the parser"},
    {"-Xclang", 0x601, nullptr,
     "Pass option directly to the parser"},
    {"-Xassembler", 0x8601, nullptr,
     "Pass option directly to the assembler"},
    {"-x", 0x8401, nullptr,
     "Specify the language of the input files"},
    {"-xassembler-with-cpp", 0x8401, nullptr,
     "Request that assembly source files be preprocessed"},
    {"-Wp", 0x8401, nullptr,
     "Pass comma-separated options directly to the preprocessor"},
    {"-Xpreprocessor", 0x8601, nullptr,
     "Pass option directly to the preprocessor"},
    {"-###", 0x8401, nullptr,
     "Show command lines but do not execute"},
    {"--help", 0x18501, nullptr,
     "Help"},
    {"--target-help", 0x401, nullptr,
     "Target help"},
    {"-mprint-devices", 0x10401, nullptr,
     "List supported devices"},
    {"-mprint-orb-devices", 0x18441, nullptr,
     "List supported ORB devices"},
    {"-mprint-builtins", 0x401, nullptr,
     "List built in functions"},
    {"--version", 0x401, nullptr,
     "Show version information"},
    {"-mcpu", 0x8501, nullptr,
     "Select device"},
    {"-maddrqual", 0x509, nullptr,
     "Specify address space qualifier handling"},
    {"-M", 0x401, nullptr,
     "Generate make dependencies"},
    {"-MD", 0x401, nullptr,
     "Generate make dependencies"},
    {"-MF", 0x601, nullptr,
     "Generate make dependencies"},
    {"-MM", 0x401, nullptr,
     "Generate make dependencies"},
    {"-MMD", 0x401, nullptr,
     "Generate make dependencies"},
    {"-memi", 0x509, nullptr,
     "Specify external memory interface mode"},
    {"-merrata", 0x509, nullptr,
     "Apply errata work-arounds"},
    {"-fmax-errors", 0x8501, nullptr,
     "Specify the maximum number of errors to report"},
    {"-mcci", 0x401, nullptr,
     "Use CCI Language extension"},
    {"-mext", 0x509, nullptr,
     "Use specified language extensions"},
    {"-mwarn", 0x8509, nullptr,
     "Set warning level"},
    {"-mmaxichip", 0x8409, nullptr,
     "Build for hyperthetical maximized-resource device"},
    {"-mmaxiorb", 0x8409, nullptr,
     "Build for hyperthetical maximized-resource device"},
    {"-mc90lib", 0x409, nullptr,
     "Link in standard C90 libraries"},
    {"-nostdlib", 0x401, nullptr,
     "Do not link the standard system startup or C library"},
    {"-nostdlib", 0x4400, "LKR",
     "Do not link the standard system startup or C library"},
    {"-nostdinc", 0x401, nullptr,
     "Do not search the standard C library include directories for headers"},
    {"-nodefaultlibs", 0x401, nullptr,
     "Do not link the standard C library"},
    {"-nodefaultlibs", 0x4400, "LKR",
     "Do not link the standard C library"},
    {"-nostartfiles", 0x401, nullptr,
     "Do not link the standard system startup module"},
    {"-nostartfiles", 0x4400, "LKR",
     "Do not link the standard system startup module"},
    {"-w", 0x8411, nullptr,
     "Suppress all warnings"},
    {"-save-temps", 0x8501, nullptr,
     "Do not delete intermediate files"},
    {"-Og", 0x403, nullptr,
     "Favor accurate debug over optimization"},
    {"-Os", 0x403, nullptr,
     "Optimize for space rather than speed"},
    {"-O0", 0x403, nullptr,
     "Optimize level 0 (default)"},
    {"-O1", 0x403, nullptr,
     "Optimize level 1"},
    {"-O2", 0x403, nullptr,
     "Optimize level 2"},
    {"-O3", 0x403, nullptr,
     "Optimize level 3"},
    {"-flocal", 0x40A, nullptr,
     "Localized optimizations"},
    {"-fasmfile", 0x40A, nullptr,
     "Optimize assembler source files"},
    {"-mafrlcsj", 0x441, nullptr,
     ""},
    {"-mundefints", 0x509, nullptr,
     "Program unassigned interrupt vectors"},
    {"-ansi", 0x401, nullptr,
     "Use the C90 language standard"},
    {"-std", 0x501, nullptr,
     "Specify language standard"},
    {"-Wpedantic", 0x411, nullptr,
     "Flag use of non-standard keywords"},
    {"-mstack", 0x509, nullptr,
     "Specify default stack model and size"},
    {"-msummary", 0x8509, nullptr,
     "Specify compilation summary information"},
    {"-mshroud", 0x409, nullptr,
     "Shroud (obfuscate) generated intermediate files"},
    {"-finstrument-functions", 0x409, nullptr,
     "Instrument functions for profiling"},
    {"-fno-instrument-functions", 0x409, nullptr,
     "Instrument functions for profiling"},
    {"-mplib", 0x409, nullptr,
     "Link in Peripheral Libraries (18xxxx devices only)"},
    {"-mno-plib", 0x409, nullptr,
     "Don't link in Peripheral Libraries (18xxxx devices only)"},
    {"-mivt", 0x509, nullptr,
     "Select the initial IVT"},
    {"-mno-ivt", 0x509, nullptr,
     "Select the initial IVT"},
    {"-muse-ivt", 0x509, nullptr,
     "Select the initial IVT"},
    {"-mno-use-ivt", 0x509, nullptr,
     "Select the initial IVT"},
    {"-mdownload-hex", 0x8409, nullptr,
     "Make the HEX file compatible with bootloaders"},
    {"-mno-download-hex", 0x8409, nullptr,
     "Don't make the HEX file compatible with bootloaders"},
    {"-mdownload", 0x8409, nullptr,
     "Make the HEX file compatible with bootloaders"},
    {"-mno-download", 0x8409, nullptr,
     "Don't make the HEX file compatible with bootloaders"},
    {"-mstackcall", 0x409, nullptr,
     "Use non-stack calls where call depth exceeds hardware limitation"},
    {"-mno-stackcall", 0x409, nullptr,
     "Don't use non-stack calls where call depth exceeds hardware limitation"},
    {"-mresetbits", 0x409, nullptr,
     "Preserve Power-down & Time-out status bits at start up"},
    {"-mno-resetbits", 0x409, nullptr,
     "Don't preserve Power-down & Time-out status bits at start up"},
    {"-msave-resetbits", 0x409, nullptr,
     "Preserve Power-down & Time-out status bits at start up"},
    {"-mno-save-resetbits", 0x409, nullptr,
     "Don't preserve Power-down & Time-out status bits at start up"},
    {"-mconfig", 0x409, nullptr,
     "Program the device with default configuration bits"},
    {"-mno-config", 0x409, nullptr,
     "Don't program the device with default configuration bits"},
    {"-mdefault-config-bits", 0x409, nullptr,
     "Program the device with default configuration bits"},
    {"-mno-default-config-bits", 0x409, nullptr,
     "Don't program the device with default configuration bits"},
    {"-mosccal", 0x409, nullptr,
     "Initialize the oscillator with the calibration constant"},
    {"-mno-osccal", 0x409, nullptr,
     "Don't initialize the oscillator with the calibration constant"},
    {"-moscval", 0x409, nullptr,
     "Initialize the oscillator with the calibration constant"},
    {"-mno-oscval", 0x409, nullptr,
     "Don't initialize the oscillator with the calibration constant"},
    {"-mno-keep-startup", 0x409, nullptr,
     "Don't keep generated assembly runtime startup and program code"},
    {"-mkeep-startup", 0x409, nullptr,
     "Keep generated assembly runtime startup and program code"},
    {"-gdwarf-3", 0x8401, nullptr,
     "Produce ELF/Dwarf output"},
    {"-gcoff", 0x401, nullptr,
     "Produce COFF output"},
    {"-ginhx32", 0x8401, nullptr,
     "Produce Intel Hex output"},
    {"-ginhx032", 0x8401, nullptr,
     "Produce Intel Hex extended address zero output"},
    {"-funsigned-char", 0x409, nullptr,
     "Specify the type for a plain char"},
    {"-fno-unsigned-char", 0x409, nullptr,
     "Specify the type for a plain char"},
    {"-fno-signed-char", 0x409, nullptr,
     "Specify the type for a plain char"},
    {"-fsigned-char", 0x409, nullptr,
     "Specify the type for a plain char"},
    {"-mchecksum", 0x8509, nullptr,
     "Calculate and store a checksum in program memory"},
    {"-mcodeoffset", 0x509, nullptr,
     "Specify the offset applied to reset and interrupt vectors"},
    {"-fcp", 0x509, nullptr,
     "Specify pointer size"},
    {"-mdebugger", 0x509, nullptr,
     "Set debugger environment"},
    {"-fshort-double", 0x409, nullptr,
     "Set the size of double types to 24 bits"},
    {"-fno-short-double", 0x409, nullptr,
     "Set the size of double types to 32 bits"},
    {"-fshort-float", 0x409, nullptr,
     "Set the size of float types to 24 bits"},
    {"-fno-short-float", 0x409, nullptr,
     "Set the size of float types to 32 bits"},
    {"--fill", 0x8509, nullptr,
     "Specify a fill value for unused program memory"},
    {"-mserial", 0x8509, nullptr,
     "Insert a hexadecimal code or serial number"},
    {"-mreserve", 0x8509, nullptr,
     "Reserve memory range"},
    {"-mrom", 0x8509, nullptr,
     "Adjust program memory ranges"},
    {"-mram", 0x8509, nullptr,
     "Adjust data memory ranges"},
    {"-mdfp", 0x8509, nullptr,
     "Select device family pack"},
    {"-mdevice", 0x8540, nullptr,
     "Select device"},
    {"--memorysummary", 0x481, nullptr,
     "Create an XML file containing a summary of program and data memory spaces"},
    {"-mconst-data-in-progmem", 0x409, nullptr,
     "Keep constant data in progra memory, do not copy to RAM"},
    {"-mno-const-data-in-progmem", 0x409, nullptr,
     "Copy constant data to RAM"},
    {"-mcodecov", 0x509, nullptr,
     "Set code coverage instrumentation"},
    {"-misa", 0x8109, nullptr,
     "Set instruction set architecture"},
    {"-mcallgraph", 0x8109, nullptr,
     "Style of call graph listing in map file"},
    {"-mclink", 0x509, nullptr,
     "Generate and use linker options needed for C programs"},
    {"-mno-clink", 0x509, nullptr,
     "Don't generate and use linker options needed for C programs"},
    {"-mcmacros", 0x509, nullptr,
     "Predefine macros for C programs"},
    {"-mno-cmacros", 0x509, nullptr,
     "Don't predefine macros for C programs"},
    {"-mvtx-stack-usage", 0x409, nullptr,
     "Enable stack usage guidance"},
    {"-metadata", 0x540, nullptr,
     "Specify metadata file name"},
};
// clang-format on

class OptionsTable : public DriverTest {};

TEST_F(OptionsTable, RowsAreTheseInThisOrder)
{
    const OptionRecord *row = options_table();
    for (const ExpectedRow &expected : expectedRows) {
        ASSERT_NE(row->name, nullptr) << expected.name;
        EXPECT_STREQ(row->name, expected.name);
        EXPECT_EQ(row->flags, expected.flags) << expected.name;
        EXPECT_STREQ(row->group, expected.group) << expected.name;
        EXPECT_STREQ(row->help, expected.help) << expected.name;
        ++row;
    }
    EXPECT_EQ(row->name, nullptr);
}

TEST_F(OptionsTable, NamesAreUniqueWithinTheirGroup)
{
    std::set<std::pair<std::string, std::string>> seen;
    for (const OptionRecord *row = options_table(); row->name != nullptr; ++row) {
        const bool member = (row->flags & optflag::MEMBER) != 0;
        EXPECT_TRUE(seen.emplace(member ? row->group : "", row->name).second) << row->name;
    }
}

// The example of a member is that of a list: "-Wl,-Map=file".
TEST_F(OptionsTable, AnExampleIsAnArgumentOfItsRow)
{
    for (const OptionRecord *row = options_table(); row->name != nullptr; ++row) {
        if (row->example == nullptr)
            continue;
        const bool member = (row->flags & optflag::MEMBER) != 0;
        const std::string word = std::string(row->example).substr(0, strcspn(row->example, " "));
        const std::string argument = member ? word.substr(word.find(',') + 1) : word;
        EXPECT_EQ(option_lookup(argument.c_str(), member ? row->group : nullptr), row)
            << row->example;
    }
}

TEST_F(OptionsTable, EveryKeyFitsTheLookupBuffer)
{
    for (const OptionRecord *row = options_table(); row->name != nullptr; ++row) {
        if (row->handler == nullptr && (row->flags & optflag::ACTIVE) == 0)
            continue;
        const char *group = (row->flags & optflag::MEMBER) != 0 ? row->group : nullptr;
        EXPECT_EQ(option_lookup(row->name, group), row) << row->name;
    }
}

TEST_F(OptionsTable, OnlyRowsOfTheActiveSetAreIndexed)
{
    EXPECT_EQ(option_lookup("-misa", nullptr), nullptr);
    EXPECT_EQ(option_lookup("-misa=x", nullptr), nullptr);
    EXPECT_EQ(option_lookup("-mcallgraph=full", nullptr), nullptr);
}

TEST_F(OptionsTable, InactiveRowsHaveNoHandler)
{
    for (const OptionRecord *row = options_table(); row->name != nullptr; ++row) {
        if ((row->flags & optflag::ACTIVE) == 0) {
            EXPECT_EQ(row->handler, nullptr) << row->name;
        }
    }
}

TEST_F(OptionsTable, ASecondInitialisationChangesNothing)
{
    const OptionRecord *row = option_lookup("-mcpu", nullptr);
    options_initialize(optflag::LISTED, 0, nullptr);
    EXPECT_EQ(option_lookup("-mcpu", nullptr), row);
    EXPECT_EQ(option_lookup("-misa", nullptr), nullptr);
}

const char *nameOf(const char *key, const char *group = nullptr)
{
    const OptionRecord *row = option_lookup(key, group);
    return row == nullptr ? nullptr : row->name;
}

TEST_F(OptionsTable, LookupTriesTheWholeArgumentFirst)
{
    EXPECT_STREQ(nameOf("-O2"), "-O2");
    EXPECT_STREQ(nameOf("-mno-plib"), "-mno-plib");
    EXPECT_STREQ(nameOf("-fno-short-double"), "-fno-short-double");
    EXPECT_STREQ(nameOf("--help"), "--help");
    EXPECT_STREQ(nameOf("-xassembler-with-cpp"), "-xassembler-with-cpp");
}

TEST_F(OptionsTable, LookupThenCutsAtTheFirstSeparator)
{
    EXPECT_STREQ(nameOf("-mcpu=16z20a"), "-mcpu");
    EXPECT_STREQ(nameOf("-mcpu"), "-mcpu");
    EXPECT_STREQ(nameOf("-std=c99"), "-std");
    EXPECT_STREQ(nameOf("-Wl,-Map=a.map"), "-Wl");
    EXPECT_STREQ(nameOf("--help=target"), "--help");
    EXPECT_STREQ(nameOf("-Wp,-DX"), "-Wp");
}

TEST_F(OptionsTable, LookupThenTriesTheFirstTwoCharacters)
{
    EXPECT_STREQ(nameOf("-DNAME=1"), "-D");
    EXPECT_STREQ(nameOf("-Dname"), "-D");
    EXPECT_STREQ(nameOf("-D"), "-D");
    EXPECT_STREQ(nameOf("-Ipath"), "-I");
    EXPECT_STREQ(nameOf("-lm"), "-l");
    EXPECT_STREQ(nameOf("-MP"), "-M");
}

TEST_F(OptionsTable, LookupFindsNothingForUnknownArguments)
{
    EXPECT_EQ(nameOf("-mcpuX"), nullptr);
    EXPECT_EQ(nameOf("-Ofast"), nullptr);
    EXPECT_EQ(nameOf("-O"), nullptr);
    EXPECT_EQ(nameOf("-d"), nullptr);
    EXPECT_EQ(nameOf("-"), nullptr);
    EXPECT_EQ(nameOf("==,,"), nullptr);
    EXPECT_EQ(nameOf("main.c"), nullptr);
    EXPECT_EQ(nameOf(std::string(100000, 'x').c_str()), nullptr);
    EXPECT_EQ(nameOf((std::string(100000, '-') + "=x").c_str()), nullptr);
}

TEST_F(OptionsTable, MatchingIsCaseSensitiveButForTheEitherCaseRow)
{
    EXPECT_EQ(nameOf("-mCPU=16z20a"), nullptr);
    EXPECT_EQ(nameOf("--HELP"), nullptr);
    EXPECT_STREQ(nameOf("-V"), "-v");
}

TEST_F(OptionsTable, MembersAreFoundOnlyInTheirGroup)
{
    EXPECT_STREQ(nameOf("-Map=out.map", "LKR"), "-Map");
    EXPECT_STREQ(nameOf("--data-init", "LKR"), "--data-init");
    EXPECT_STREQ(nameOf("-ahls", "ASM"), "-a");
    EXPECT_EQ(nameOf("--data-init"), nullptr);
    EXPECT_EQ(nameOf("-Map=out.map", "ASM"), nullptr);
    EXPECT_EQ(nameOf("-c", "LKR"), nullptr);
    EXPECT_EQ(nameOf("--foo", "LKR"), nullptr);
    EXPECT_NE(option_lookup("-nostdlib", "LKR"), option_lookup("-nostdlib", nullptr));
}

TEST_F(OptionsTable, AContainerWithoutSeparatorsEndsTheRun)
{
    for (const char *group : {static_cast<const char *>(nullptr), "LKR", "LKR:"}) {
        const OptionRecord broken = {optflag::ACTIVE | optflag::CONTAINER,
                                     "-Wl",
                                     group,
                                     "",
                                     option_linker,
                                     nullptr,
                                     nullptr};
        Vector *items = toVector({"a"});
        const std::string text = std::string("(1195) invalid syntax for \"") +
                                 (group == nullptr ? "unknown" : group) + "\" option\n";
        alert_setOutputHook(nullptr);
        EXPECT_EXIT(options_handler(items, FAMILY_ELM, &broken, false, nullptr),
                    testing::ExitedWithCode(1), testing::HasSubstr(text));
        vec_destroy(items);
    }
}

// ---- The first initialisation, each in a process of its own -------------------------------------

class OptionsInitialiseDeathTest : public testing::Test {
  protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
    void TearDown() override { GTEST_FLAG_SET(death_test_style, "fast"); }
};

const OptionRecord *rowNamed(const char *name)
{
    const OptionRecord *row = options_table();
    while (strcmp(row->name, name) != 0)
        ++row;
    return row;
}

[[noreturn]] void exitWith(bool good)
{
    std::_Exit(good ? 0 : 1);
}

// Whether the active rows have the handler that the table gives "-S", except those that keep their
// own.
void initialiseWithoutHandlers()
{
    const OptionHandler passThrough = rowNamed("-S")->handler;
    std::vector<OptionHandler> own;
    for (const OptionRecord *row = options_table(); row->name != nullptr; ++row)
        own.push_back(row->handler);
    options_initialize(optflag::ACTIVE, 0, nullptr);
    bool good = true;
    for (size_t i = 0; i < own.size(); ++i) {
        const OptionRecord *row = options_table() + i;
        const bool active = (row->flags & optflag::ACTIVE) != 0;
        const bool keeps = (row->flags & optflag::OWN) != 0;
        good = good && row->handler == (!active ? nullptr : keeps ? own[i] : passThrough);
    }
    exitWith(good);
}

TEST_F(OptionsInitialiseDeathTest, WithoutKeepingHandlersOnlyRowsWithTheFlagKeepTheirs)
{
    EXPECT_EXIT(initialiseWithoutHandlers(), testing::ExitedWithCode(0), "");
}

const OptionRecord compileRow = {
    optflag::COMMON | optflag::ACTIVE, "-c", "group", "help", option_strict, "orb", "elm"};

void initialiseWithOverride()
{
    const OptionRecord overrides[] = {compileRow, {}};
    options_initialize(optflag::ACTIVE, 1, overrides);
    const OptionRecord *row = option_lookup("-c", nullptr);
    exitWith(row == rowNamed("-c") && row->flags == compileRow.flags &&
             strcmp(row->group, "group") == 0 && strcmp(row->help, "help") == 0 &&
             row->handler == option_strict && strcmp(rowNamed("-C")->help, "help") != 0);
}

TEST_F(OptionsInitialiseDeathTest, AnOverrideReplacesTheRowOfItsName)
{
    EXPECT_EXIT(initialiseWithOverride(), testing::ExitedWithCode(0), "");
}

void initialiseWithBrokenContainer()
{
    const OptionRecord overrides[] = {
        {optflag::ACTIVE | optflag::CONTAINER, "-Wl", "LKR:", "", option_linker, nullptr, nullptr},
        {}};
    gDebugOut = stderr;
    gDebugFlags = DEBUG_TRACE;
    options_initialize(optflag::ACTIVE, 1, overrides);
}

TEST_F(OptionsInitialiseDeathTest, ABrokenContainerEndsTheRunAndIsTraced)
{
    EXPECT_EXIT(initialiseWithBrokenContainer(), testing::ExitedWithCode(1),
                testing::AllOf(testing::ContainsRegex("> *malformed option: LKR:\n"),
                               testing::HasSubstr("invalid syntax for \"LKR:\" option\n")));
}

void initialiseRecorded()
{
    hash_debugEnable(1);
    options_initialize(optflag::ACTIVE, 1, nullptr);
    hash_debugEnable(0);
    const Lines lines = debugOutputOf(hash_report);
    bool found = false;
    for (const std::string &line : lines)
        found = found || (line.find("driver/options:") != std::string::npos &&
                          line.find("/127    ") != std::string::npos);
    exitWith(found);
}

TEST_F(OptionsInitialiseDeathTest, TheIndexHas127Buckets)
{
    EXPECT_EXIT(initialiseRecorded(), testing::ExitedWithCode(0), "");
}

} // namespace
