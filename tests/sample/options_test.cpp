// The option table of the legacy driver, and the formats of its messages.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sample/qzm_options.h"

namespace {

struct Parsed {
    QzmOptions options = {};
    int understood = 0;
    std::string messages;
};

using Texts = std::vector<std::string>;

Parsed parse(const Texts &given)
{
    // The options point into the arguments, so these must live as long as the program.
    CommandArguments arguments = {};
    arguments.count = given.size() + 1;
    arguments.items = static_cast<char **>(arena_alloc(arguments.count * sizeof(char *)));
    arguments.items[0] = arena_copy("qzm");
    for (size_t i = 0; i < given.size(); i++)
        arguments.items[i + 1] = arena_copy(given[i].c_str());
    Parsed parsed;
    Report report = {};
    report.formats[SEVERITY_ERROR] = "%n %s";
    testing::internal::CaptureStderr();
    parsed.understood = qzmoptions_parse(&arguments, &parsed.options, &report);
    parsed.messages = testing::internal::GetCapturedStderr();
    return parsed;
}

Texts texts(const Strings &list)
{
    return Texts(list.begin(), list.end());
}

std::string shown(const char *format, Place place, const char *text)
{
    Report report = {};
    report.formats[SEVERITY_ERROR] = format;
    testing::internal::CaptureStderr();
    report_show(&report, SEVERITY_ERROR, place, 1210, text);
    return testing::internal::GetCapturedStderr();
}

} // namespace

TEST(QzmOptions, UnderstandsACompileCommandOfTheDriver)
{
    Parsed parsed = parse(
        {"--qzmcc", "-q", "--opt=none", "--chip=16z20a", "--opt=+2", "main.c", "--pass1",
         "--std=c99", "--callgraph=none", "--warn=-3", "--errformat=%f:%l:%c: error: (%n) %s",
         "--warnformat=%f:%l:%c: warning: (%n) %s", "--msgformat=%f:%l:%c: advisory: (%n) %s"});
    EXPECT_EQ(parsed.messages, "");
    EXPECT_STREQ(parsed.options.chip, "16z20a");
    EXPECT_EQ(texts(parsed.options.optimize), (Texts{"none", "+2"}));
    EXPECT_EQ(texts(parsed.options.inputs), Texts{"main.c"});
    EXPECT_EQ(parsed.options.pass1, 1);
    EXPECT_STREQ(parsed.options.formats[SEVERITY_WARNING], "%f:%l:%c: warning: (%n) %s");
}

TEST(QzmOptions, UnderstandsEveryOptionThatTheDriverEmits)
{
    const Texts all = {"--pre",
                       "-S",
                       "--fill=0xFF",
                       "-v",
                       "-oprog.hex",
                       "--objdir=out",
                       "--outdir=out",
                       "-DA=1",
                       "-UA",
                       "-Iinc",
                       "-Z-H",
                       "--info=defvals",
                       "-L-x",
                       "-Mout.map",
                       "-M",
                       "--summary=+xml",
                       "--summarydir=mem.xml",
                       "--runtime=+clear",
                       "--runtime=-clib",
                       "-A-x",
                       "--asmlist",
                       "-R-w",
                       "-P",
                       "--noexec",
                       "--ver",
                       "--opt=+s",
                       "--opt=+debug",
                       "--opt=+local",
                       "--opt=+asmfile",
                       "--std=c90",
                       "--strict",
                       "--msgdisable=0",
                       "--warn=2",
                       "--errors=5",
                       "--double=24",
                       "--float=32",
                       "--char=unsigned",
                       "--maxiorb",
                       "--shroud",
                       "--output=+inhx32",
                       "--output=+elf:multilocs",
                       "--output=+mcoff",
                       "--runtime=+ivt:0x10",
                       "--nodel",
                       "--summary=+stack,+stackfull",
                       "--mafrlcsj",
                       "--dep=+gcc,+sys,-stop",
                       "--depfile=main.d",
                       "--callgraph=none",
                       "--debugger=none",
                       "--stack=compiled",
                       "--metadata=m",
                       "--undefints=u",
                       "--checksum=c",
                       "--emi=e",
                       "--serial=s",
                       "--cp=24",
                       "--addrqual=ignore",
                       "--rom=-0-FF",
                       "--ram=-0x100-0x1FF",
                       "--isa=std",
                       "--errata=all",
                       "--codeoffset=0x100",
                       "--codecov=ram",
                       "--dfp=pack",
                       "--ext=cci",
                       "--info=builtins",
                       "-c",
                       "--pragmaconfig=x",
                       "--qzdebug=x"};
    Parsed parsed = parse(all);
    EXPECT_EQ(parsed.understood, 1);
    EXPECT_EQ(parsed.messages, "");
}

TEST(QzmOptions, RefusesWhatItDoesNotKnow)
{
    Parsed parsed = parse({"--frobnicate", "main.c", "-z"});
    EXPECT_EQ(parsed.understood, 0);
    EXPECT_EQ(parsed.messages, "912 option \"--frobnicate\" is not known to this program\n"
                               "912 option \"-z\" is not known to this program\n");
}

TEST(QzmOptions, RefusesAMissingValue)
{
    Parsed parsed = parse({"--chip="});
    EXPECT_EQ(parsed.understood, 0);
    EXPECT_EQ(parsed.messages, "902 option \"--chip=\" needs an argument\n");
}

TEST(QzmOptions, RefusesAValueThatIsNotListed)
{
    Parsed parsed = parse({"--std=c11", "--opt=", "--opt=+2,+3"});
    EXPECT_EQ(parsed.messages, "1196 value \"c11\" of option \"--std=\" was not recognized\n"
                               "902 option \"--opt=\" needs an argument\n"
                               "1196 value \"+2,+3\" of option \"--opt=\" was not recognized\n");
}

TEST(QzmOptions, TheMapMayHaveNoName)
{
    Parsed parsed = parse({"-M"});
    EXPECT_EQ(parsed.options.wantsMap, 1);
    EXPECT_EQ(parsed.options.mapFile, nullptr);
    EXPECT_STREQ(parse({"-Ma.map"}).options.mapFile, "a.map");
}

TEST(QzmOptions, KeepsTheOrderOfThePreprocessorsOptions)
{
    EXPECT_EQ(texts(parse({"-DA", "-Z-v", "-UA", "-Iinc"}).options.preprocessor),
              (Texts{"-DA", "-Xpreprocessor", "-v", "-UA", "-Iinc"}));
}

TEST(QzmOptions, AListIsSearchedItemByItem)
{
    Strings list = {};
    list_add(&list, "+gcc");
    list_add(&list, "+sys,-stop,+x");
    EXPECT_TRUE(qzmoptions_has(&list, "+gcc"));
    EXPECT_TRUE(qzmoptions_has(&list, "-stop"));
    EXPECT_TRUE(qzmoptions_has(&list, "+x"));
    EXPECT_FALSE(qzmoptions_has(&list, "stop"));
    EXPECT_FALSE(qzmoptions_has(&list, "+sy"));
}

TEST(Report, FillsInTheFormat)
{
    EXPECT_EQ(shown("%f:%l:%c: error: (%n) %s 100%%", {"a.c", 3, 7}, "what"),
              "a.c:3:7: error: (1210) what 100%\n");
}

TEST(Report, ShowsNothingWhereThereIsNoPlace)
{
    EXPECT_EQ(shown("%f:%l:%c: (%n) %s", {}, "what"), "::: (1210) what\n");
}

TEST(Report, ALonePercentAtTheEndGivesNothing)
{
    EXPECT_EQ(shown("%s%", {}, "what"), "what\n");
}

TEST(Report, StopsShowingErrorsAtTheLimitButCountsThem)
{
    Report report = {};
    report.formats[SEVERITY_ERROR] = "%s";
    report.limit = 1;
    testing::internal::CaptureStderr();
    report_error(&report, {}, 1, "one");
    report_error(&report, {}, 1, "two");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "one\n");
    EXPECT_EQ(report.errors, 2u);
}
