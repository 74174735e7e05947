// The staged sample installation: its files, that all its parts know the same devices, and that the
// commands which check an installation by building something give the right results. CTest stages
// it before the tests of this program (see CMakeLists.txt).
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/formats/fileutils.h"

namespace {

namespace fs = std::filesystem;

using Texts = std::vector<std::string>;

const fs::path VER = SAMPLE_SUITE;

const char C_SOURCE[] = "#include <qz.h>\n#include <stdio.h>\nint\nmain(void) {\n}\n\n";
const char ASSEMBLY_SOURCE[] = "#include <qz.inc>\n\tpsect foo\n\tbar:\n\t\tnop\n\tend bar\n";

struct Result {
    int status;
    std::string output; // standard output and standard error
};

std::string readAll(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

Texts splitLines(const std::string &text)
{
    Texts lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

Texts splitWords(const std::string &text)
{
    Texts words;
    std::istringstream stream(text);
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

bool begins(const std::string &text, const std::string &front)
{
    return text.rfind(front, 0) == 0;
}

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

Result runIn(const fs::path &folder, const Texts &command)
{
    std::string line = "cd '" + folder.string() + "' &&";
    for (const std::string &word : command)
        line += " '" + word + "'";
    FILE *pipe = popen((line + " 2>&1").c_str(), "r");
    if (pipe == nullptr)
        return {-1, ""};
    std::string output;
    char block[4096];
    for (size_t got; (got = fread(block, 1, sizeof block, pipe)) > 0;)
        output.append(block, got);
    int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

std::string program(const char *name)
{
    return VER / name;
}

Texts entries(const fs::path &folder)
{
    Texts names;
    for (const auto &entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

// The devices from each way to ask for them, in lower case and in its order.

Texts devicesOfXml()
{
    Texts names;
    for (const std::string &line : splitLines(readAll(VER / "bin/deviceSupport.xml"))) {
        const std::string front = "    <device name=\"";
        if (begins(line, front))
            names.push_back(
                lower(line.substr(front.size(), line.find('"', front.size()) - front.size())));
    }
    return names;
}

Texts devicesOfCompiler(const char *compiler)
{
    Texts names;
    for (const std::string &line :
         splitLines(runIn("/", {program(compiler), "--chipinforaw"}).output))
        names.push_back(lower(line.substr(0, line.find(':'))));
    return names;
}

Texts devicesOfTargetHelp()
{
    Texts names;
    bool inside = false;
    for (const std::string &line :
         splitLines(runIn("/", {program("elm/bin/elm-gcc"), "--target-help"}).output)) {
        if (inside && begins(line, "Linker"))
            break;
        if (inside)
            for (const std::string &word : splitWords(line))
                names.push_back(lower(word));
        inside = inside || begins(line, "Known MCU names");
    }
    return names;
}

// The folders between the two lines around them in a preprocessor's output.
Texts searchList(const std::string &output)
{
    Texts folders;
    bool inside = false;
    for (const std::string &line : splitLines(output)) {
        if (inside && line == "End of search list.")
            return folders;
        if (inside)
            folders.push_back(line.substr(line.find_first_not_of(" \t")));
        inside = inside || line == "#include <...> search starts here:";
    }
    return {"no end of the search list"};
}

} // namespace

TEST(SampleInstallation, TheRootHoldsTheFoldersOfASuiteAlone)
{
    EXPECT_EQ(entries(VER), (Texts{"bin", "docs", "elm", "orb", "orb-as"}));
}

TEST(SampleInstallation, TheDocumentsHaveAReadmeAndAUserGuide)
{
    EXPECT_EQ(entries(VER / "docs"),
              (Texts{"README.md", "examples", "options.md", "qzm-cc.1", "qzm_user_guide.md"}));
    EXPECT_TRUE(fs::exists(VER / "docs/examples/leds/Makefile"));
}

TEST(SampleInstallation, TheDeviceFileIsInTheFormThatTheDriverReads)
{
    const std::string xml = readAll(VER / "bin/deviceSupport.xml");
    EXPECT_TRUE(begins(xml, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<deviceSupport>\n"
                            "  <family name=\"ORB\">\n    <device name=\""));
    EXPECT_EQ(xml.find("<?", 2), std::string::npos);
    EXPECT_EQ(xml.find('!'), std::string::npos);
    EXPECT_EQ(xml.find('&'), std::string::npos);
    for (const std::string &line : splitLines(xml))
        EXPECT_LE(std::count(line.begin(), line.end(), '='), begins(line, "<?") ? 2 : 1) << line;
}

TEST(SampleInstallation, AllPartsKnowTheSameDevices)
{
    Texts asked = devicesOfCompiler("orb/bin/orbc");
    Texts orb18 = devicesOfCompiler("orb/bin/orbc18");
    Texts elm = devicesOfTargetHelp();
    EXPECT_GE(asked.size(), 300u);
    EXPECT_GE(orb18.size(), 120u);
    EXPECT_GE(elm.size(), 201u);
    ASSERT_EQ(std::count(elm.begin(), elm.end(), "elm1"), 1);
    elm.erase(std::find(elm.begin(), elm.end(), "elm1"));
    asked.insert(asked.end(), orb18.begin(), orb18.end());
    asked.insert(asked.end(), elm.begin(), elm.end());
    EXPECT_EQ(devicesOfXml(), asked);
}

TEST(SampleInstallation, TheOptionsOfTheTargetHelpEndBeforeTheNamesOfDevices)
{
    Result help = runIn("/", {program("elm/bin/elm-gcc"), "--target-help"});
    EXPECT_EQ(help.status, 0);
    Texts lines = splitLines(help.output);
    ASSERT_EQ(lines[0], "The following options are target specific:");
    size_t at = 1;
    for (; at < lines.size() && !begins(lines[at], "Assembler"); at++)
        EXPECT_TRUE(lines[at].empty() || begins(lines[at], "  -m")) << lines[at];
    EXPECT_GT(at, 10u);
    EXPECT_EQ(lines[at], "Assembler options");
    EXPECT_EQ(help.output.find("The following", 1), std::string::npos);
}

TEST(SampleInstallation, AFullDiskFailsTheLists)
{
    for (const char *command : {"elm/bin/elm-gcc --target-help", "orb/bin/orbc --chipinforaw",
                                "orb/bin/orbc18 --chipinforaw"}) {
        int status = std::system((program(command) + " >/dev/full").c_str());
        EXPECT_EQ(WEXITSTATUS(status), 1) << command;
    }
}

// The commands that check an installation by building something.

class SampleBuilds : public ::testing::Test {
  protected:
    SampleBuilds()
    {
        char name[] = "/tmp/sample_builds_test.XXXXXX";
        root = mkdtemp(name);
        fs::create_directories(root / "out");
        std::ofstream(root / "source.c") << C_SOURCE;
        std::ofstream(root / "source.sx") << ASSEMBLY_SOURCE;
    }

    ~SampleBuilds() override { fs::remove_all(root); }

    std::string path(const std::string &name) const { return root / name; }

    Texts made() const { return entries(root / "out"); }

    fs::path root;
};

struct OrbCase {
    const char *device;
    const char *standard;
    bool isOrb18;
};

class SampleOrbBuilds : public SampleBuilds, public ::testing::WithParamInterface<OrbCase> {
  protected:
    Result compile(const Texts &more) const
    {
        const OrbCase &given = GetParam();
        Texts command = {program("bin/qzm-cc"), "-v", "-v", std::string("-std=") + given.standard,
                         std::string("-mcpu=") + given.device};
        if (given.isOrb18)
            command.push_back("-mrom=default,0-100");
        command.push_back("-o" + path("out/source"));
        command.push_back(path("source.c"));
        command.insert(command.end(), more.begin(), more.end());
        return runIn(root, command);
    }
};

class SampleElmBuilds : public SampleBuilds, public ::testing::WithParamInterface<const char *> {
  protected:
    Result compile(const Texts &more) const
    {
        Texts command = {program("bin/qzm-cc"), "-v", std::string("-mcpu=") + GetParam(),
                         path("source.c"), "-o" + path("out/source")};
        command.insert(command.end(), more.begin(), more.end());
        return runIn(root, command);
    }
};

TEST_P(SampleOrbBuilds, ASourceIsCompiledAndLinked)
{
    Result result = compile({});
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_EQ(made(), (Texts{"source.hex"}));
}

TEST_P(SampleOrbBuilds, MacrosAndSearchListAreShown)
{
    Result result = compile({"-dM", "-Wp,-v", "-E"});
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_EQ(made(), (Texts{"source"}));
    std::string macros = readAll(path("out/source"));
    EXPECT_NE(macros.find("#define __QZM__ 1\n"), std::string::npos);
    EXPECT_NE(macros.find("#define __QZM_VERSION 2320\n"), std::string::npos);
    EXPECT_EQ(searchList(result.output),
              (Texts{VER / "orb/include" / GetParam().standard, VER / "orb/include"}));
    for (const std::string &folder : searchList(result.output))
        EXPECT_TRUE(fs::is_directory(folder)) << folder;
}

TEST_P(SampleOrbBuilds, AnObjectGoesIntoALibraryAndComesBackAsItWas)
{
    Result result = compile({"-c"});
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_EQ(made(), (Texts{"source.p1"}));
    std::string library = path("out/made.lib");
    Result put = runIn("/", {program("bin/qzm-ar"), "-r", library, path("out/source.p1")});
    EXPECT_EQ(put.status, 0) << put.output;
    EXPECT_EQ(fileid_is_library(library.c_str()), 2);
    fs::rename(path("out/source.p1"), path("out/source_orig.p1"));
    Result taken = runIn(root / "out", {program("bin/qzm-ar"), "-x", library});
    EXPECT_EQ(taken.status, 0) << taken.output;
    EXPECT_EQ(made(), (Texts{"made.lib", "source.p1", "source_orig.p1"}));
    EXPECT_EQ(readAll(path("out/source.p1")), readAll(path("out/source_orig.p1")));
}

TEST_P(SampleOrbBuilds, AnAssemblySourceIsAssembled)
{
    Texts command = {program("orb-as/bin/orb-as"), "-v", "-v",
                     std::string("-mcpu=") + GetParam().device};
    if (GetParam().isOrb18)
        command.push_back("-mrom=default,0-100");
    command.push_back("-o" + path("out/source."));
    command.push_back(path("source.sx"));
    Result result = runIn(root, command);
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_EQ(made(), (Texts{"source.o"}));
    EXPECT_EQ(fileid_is_obj(path("out/source.o").c_str()), 1);
}

INSTANTIATE_TEST_SUITE_P(
    Devices, SampleOrbBuilds,
    ::testing::Values(OrbCase{"16z10", "c90", false}, OrbCase{"16z20a", "c99", false},
                      OrbCase{"10z00", "c99", false}, OrbCase{"zq16", "c90", false},
                      OrbCase{"18z40", "c99", true}, OrbCase{"18z40", "c90", false},
                      OrbCase{"18zx20", "c90", true}),
    [](const auto &test) {
        return std::string(test.param.device) + test.param.standard +
               (test.param.isOrb18 ? "WithRom" : "");
    });

TEST_P(SampleElmBuilds, ASourceIsCompiledAndLinked)
{
    Result result = compile({});
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_EQ(made(), (Texts{"source"}));
    EXPECT_EQ(readAll(path("out/source")).substr(0, 4), "\177ELF");
}

TEST_P(SampleElmBuilds, MacrosAndSearchListAreShown)
{
    Result result = compile({"-dM", "-Wp,-v", "-E"});
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_EQ(made(), (Texts{"source"}));
    std::string macros = readAll(path("out/source"));
    std::string device = GetParam();
    std::transform(device.begin(), device.end(), device.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    for (const std::string name : {"__QZM__ 1", "__QZM_VERSION 2320", "__ELM__ 1"})
        EXPECT_NE(macros.find("#define " + name + "\n"), std::string::npos) << name;
    EXPECT_NE(macros.find("#define __" + device + "__ 1\n"), std::string::npos);
    EXPECT_EQ(searchList(result.output), (Texts{VER / "elm/include"}));
    EXPECT_TRUE(fs::is_directory(VER / "elm/include"));
}

INSTANTIATE_TEST_SUITE_P(Devices, SampleElmBuilds,
                         ::testing::Values("elmbig1", "elmw1", "kvmini2", "KVmini2"),
                         [](const auto &test) { return std::string(test.param); });

TEST_F(SampleBuilds, AnElmDeviceThatIsNotListedIsRefused)
{
    Result result = runIn(root, {program("bin/qzm-cc"), "-mcpu=elmbig99", "-c", "source.c"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output,
              program("elm/bin/elm-gcc") +
                  ": error: device \"elmbig99\" is not known to this installation\n");
}

TEST_F(SampleBuilds, TheArchitecturesNameStandsForAnElmDevice)
{
    EXPECT_EQ(runIn(root, {program("elm/bin/elm-gcc"), "-mmcu=elm1", "-D__QZM__", "-fsyntax-only",
                           "source.c"})
                  .status,
              0);
}
