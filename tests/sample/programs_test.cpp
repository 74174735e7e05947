// The programs of the sample ORB suite, run as the driver runs them: staged into an installation,
// with their arguments in a command file.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
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

struct Result {
    int status;
    std::string out;
    std::string err;
};

std::string readAll(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

const char FORMAT[] = "--errformat=%f:%l:%c: error: (%n) %s";
const char MAIN_C[] = "#include <stdint.h>\n"
                      "#include <qz.h>\n"
                      "#include \"util.h\"\n"
                      "#ifndef __16Z20A__\n"
                      "#error no device\n"
                      "#endif\n"
                      "static uint8_t lamps[4] = {1, 2, 3, 4};\n"
                      "int main(void)\n"
                      "{\n"
                      "    for (;;)\n"
                      "        toggle(lamps, 4);\n"
                      "}\n";
const char UTIL_H[] = "void toggle(unsigned char *lamps, int count);\n";
const char UTIL_C[] = "#include \"util.h\"\n"
                      "void toggle(unsigned char *lamps, int count)\n"
                      "{\n"
                      "    while (count-- > 0)\n"
                      "        lamps[count] ^= 1;\n"
                      "}\n";
const char START_S[] = "\tglobal _main\n\tpsect reset\nbegin:\tcall _main\n\tend begin\n";

class OrbPrograms : public ::testing::Test {
  protected:
    OrbPrograms()
    {
        char name[] = "/tmp/orb_programs_test.XXXXXX";
        root = mkdtemp(name);
        work = root / "work";
        for (const char *folder : {"work", "tmp", "bin", "orb/bin", "orb-as/bin"})
            fs::create_directories(root / folder);
        for (const char *program : {"qzm", "orbc", "orbc18"})
            fs::copy(fs::path(SAMPLE_PROGRAMS) / program, root / "orb/bin" / program);
        fs::copy(fs::path(SAMPLE_PROGRAMS) / "qzm-ar", root / "bin/qzm-ar");
        fs::copy(fs::path(SAMPLE_PROGRAMS) / "orb-as", root / "orb-as/bin/orb-as");
        for (const char *tree : {"orb", "orb-as"})
            stageHeaders(root / tree / "include");
        write("main.c", MAIN_C);
        write("util.c", UTIL_C);
        write("util.h", UTIL_H);
        write("start.s", START_S);
    }

    ~OrbPrograms() override { fs::remove_all(root); }

    static void stageHeaders(const fs::path &to)
    {
        fs::create_directories(to);
        for (const char *name : {"qz.h", "qz.inc"})
            fs::copy(fs::path(SAMPLE_HEADERS) / name, to / name);
        for (const char *library : {"c90", "c99"})
            fs::copy(fs::path(SAMPLE_HEADERS) / "c", to / library);
    }

    void write(const std::string &name, const std::string &bytes) const
    {
        std::ofstream(work / name, std::ios::binary) << bytes;
    }

    std::string content(const std::string &name) const { return readAll(work / name); }

    bool exists(const std::string &name) const { return fs::exists(work / name); }

    // The names in the working folder that were not there at first, in order.
    Texts made() const
    {
        const Texts given = {"main.c", "util.c", "util.h", "start.s"};
        Texts names;
        for (const auto &entry : fs::recursive_directory_iterator(work)) {
            std::string name = fs::relative(entry.path(), work);
            if (std::find(given.begin(), given.end(), name) == given.end())
                names.push_back(name);
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    // Runs a program in the working folder, with its arguments unchanged. No temporary file may
    // remain.
    Result run(const std::string &program, const Texts &arguments) const
    {
        std::string command =
            "cd '" + work.string() + "' && TMPDIR=../tmp '" + (root / program).string() + "'";
        for (const std::string &argument : arguments)
            command += " '" + argument + "'";
        command += " >../out 2>../err";
        int status = std::system(command.c_str());
        EXPECT_TRUE(fs::is_empty(root / "tmp")) << command;
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readAll(root / "out"),
                readAll(root / "err")};
    }

    // Runs qzm with a command file.
    Result qzm(const Texts &arguments) const
    {
        std::ofstream file(root / "qzm.cmd");
        for (const std::string &argument : arguments)
            file << '"' << argument << "\"\n";
        file.close();
        return run("orb/bin/qzm", {"@" + (root / "qzm.cmd").string()});
    }

    Result compile(const Texts &more) const
    {
        Texts arguments = {"--qzmcc", "-q", "--opt=none", "--chip=16z20a", "--opt=+2"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        arguments.insert(arguments.end(), {"--callgraph=none", "--warn=-3", FORMAT});
        return qzm(arguments);
    }

    std::string path(const std::string &name) const { return work / name; }

    fs::path root;
    fs::path work;
};

std::string firstLine(const std::string &text)
{
    return text.substr(0, text.find('\n'));
}

void expectIntelHex(const std::string &hex)
{
    std::istringstream lines(hex);
    std::string line;
    std::string last;
    for (; std::getline(lines, line); last = line) {
        ASSERT_EQ(line[0], ':');
        unsigned sum = 0;
        for (size_t i = 1; i + 1 < line.size(); i += 2)
            sum += static_cast<unsigned>(std::strtoul(line.substr(i, 2).c_str(), nullptr, 16));
        EXPECT_EQ(sum % 256, 0u) << line;
    }
    EXPECT_EQ(last, ":00000001FF");
}

} // namespace

TEST_F(OrbPrograms, CompilingLeavesAnIntermediateFileAlone)
{
    Result result = compile({"main.c", "--pass1", "--std=c99"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(made(), Texts{"main.p1"});
    EXPECT_EQ(firstLine(content("main.p1")), "Version 2.32 NORVELL Software Intermediate Code");
    EXPECT_EQ(fileid_is_p1(path("main.p1").c_str()), 1);
}

TEST_F(OrbPrograms, IntermediateFileGoesIntoTheObjectFolder)
{
    fs::create_directory(work / "build");
    EXPECT_EQ(compile({"main.c", "--pass1", "-om.p1", "--objdir=build", "--outdir=build"}).status,
              0);
    EXPECT_EQ(made(), (Texts{"build", "build/m.p1"}));
}

TEST_F(OrbPrograms, AnOutputNameWithoutExtensionGetsOne)
{
    EXPECT_EQ(compile({"main.c", "--pass1", "-om"}).status, 0);
    EXPECT_EQ(made(), Texts{"m.p1"});
}

TEST_F(OrbPrograms, AMissingFolderIsAnError)
{
    Result result = compile({"main.c", "--pass1", "--objdir=none", "--outdir=none"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "::: error: (2014) object directory \"none\" does not exist\n"
                          "::: error: (2015) output directory \"none\" does not exist\n");
    EXPECT_EQ(made(), Texts{});
}

TEST_F(OrbPrograms, AssemblingLeavesAnObjectFile)
{
    EXPECT_EQ(compile({"start.s", "-c"}).status, 0);
    EXPECT_EQ(made(), Texts{"start.o"});
    EXPECT_EQ(fileid_is_obj(path("start.o").c_str()), 1);
}

TEST_F(OrbPrograms, AnObjectAndAnIntermediateFileAreLeftByOneCommand)
{
    EXPECT_EQ(compile({"main.c", "start.s", "-c", "--pass1"}).status, 0);
    EXPECT_EQ(made(), (Texts{"main.p1", "start.o"}));
}

TEST_F(OrbPrograms, LinkingLeavesHexMapAndSummary)
{
    fs::create_directory(work / "out");
    ASSERT_EQ(compile({"main.c", "--pass1"}).status, 0);
    Result result = compile({"main.p1", "util.c", "start.s", "-Mout.map", "--summary=+xml",
                             "--summarydir=mem.xml", "-oprog.hex", "--objdir=out", "--outdir=out"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(made(), (Texts{"main.p1", "mem.xml", "out", "out.map", "out/prog.hex"}));
    expectIntelHex(content("out/prog.hex"));
    EXPECT_NE(content("out.map").find("  _toggle "), std::string::npos);
    EXPECT_NE(content("mem.xml").find("<executable name=\"out/prog.hex\" device=\"16z20a\">"),
              std::string::npos);
}

TEST_F(OrbPrograms, LinkingWithoutANameTakesTheFirstInputs)
{
    EXPECT_EQ(compile({"main.c", "util.c"}).status, 0);
    EXPECT_EQ(made(), Texts{"main.hex"});
}

TEST_F(OrbPrograms, AMissingFunctionIsALinkError)
{
    Result result = compile({"main.c", "-oprog.hex"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "main.c::: error: (1600) symbol \"_toggle\" is not defined; it is used in "
              "\"main.c\"\n");
    EXPECT_EQ(made(), Texts{});
}

TEST_F(OrbPrograms, AUsersErrorIsShownInTheGivenFormat)
{
    write("bad.c", "int main(void)\n{\n    return missing;\n}\n");
    Result result = compile({"bad.c", "--pass1", "--msgdisable=0"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(firstLine(result.err).substr(0, 26), "bad.c:3:12: error: (5000) ");
    EXPECT_NE(firstLine(result.err).find("missing"), std::string::npos);
    EXPECT_EQ(made(), Texts{"bad.c"});
}

TEST_F(OrbPrograms, AUsersWarningIsShownInTheGivenFormatAndCanBeHidden)
{
    write("warn.c", "char *f(void)\n{\n    return 5;\n}\n");
    Result shown = compile({"warn.c", "--pass1", "--warnformat=%f:%l: warning: (%n) %s"});
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(shown.err.substr(0, 27), "warn.c:3: warning: (5001) r");
    EXPECT_EQ(compile({"warn.c", "--pass1", "--msgdisable=0"}).err, "");
}

TEST_F(OrbPrograms, AnAssemblyErrorIsShownInTheGivenFormat)
{
    write("bad.S", "#include <qz.inc>\n\tpsect t\n\tfrob STATUS\n");
    Result result = compile({"bad.S", "-c", "-P"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "bad.S:3:: error: (1210) instruction \"frob\" is not known\n");
}

TEST_F(OrbPrograms, AnAssemblySourceWithANulIsRefused)
{
    write("nul.s", std::string("\tpsect t\n\0\tfrob\n", 16));
    Result result = compile({"nul.s", "-c"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "::: error: (133) file \"nul.s\" is damaged: it holds a NUL character\n");
}

TEST_F(OrbPrograms, AFullDiskIsReported)
{
    fs::create_symlink("/dev/full", work / "full.p1");
    Result result = compile({"main.c", "--pass1", "-ofull.p1"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "::: error: (105) could not write file \"full.p1\": No space left on "
                          "device\n");
    EXPECT_TRUE(fs::is_symlink(work / "full.p1"));
}

TEST_F(OrbPrograms, AFullDiskIsReportedByNameWhenPreprocessing)
{
    Result result = compile({"main.c", "--pre", "-o/dev/full"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("/dev/full: No space left on device\n"), std::string::npos)
        << result.err;
}

TEST_F(OrbPrograms, AnUnknownOptionIsRefused)
{
    Result result = compile({"main.c", "--pass1", "--frobnicate"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("(912) option \"--frobnicate\" is not known to this program"),
              std::string::npos);
    EXPECT_EQ(made(), Texts{});
}

TEST_F(OrbPrograms, AnUnknownDeviceIsRefused)
{
    Result result = qzm({"--chip=16x99", "main.c", "--pass1", "--errformat=(%n) %s"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "(230) device \"16x99\" is not known to this installation\n");
}

TEST_F(OrbPrograms, AMissingSourceIsAnError)
{
    Result result = compile({"none.c", "--pass1"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "::: error: (101) file \"none.c\" does not exist\n");
}

TEST_F(OrbPrograms, PreprocessingWritesLineMarkedTextAndNothingElse)
{
    Result result = compile({"main.c", "--pre", "-DEXTRA=7"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_NE(result.out.find("# 1 \"main.c\""), std::string::npos);
    EXPECT_NE(result.out.find("static uint8_t lamps[4] = {1, 2, 3, 4};"), std::string::npos);
    EXPECT_EQ(made(), Texts{});
}

TEST_F(OrbPrograms, ListsTheMacrosAndTheSearchPath)
{
    Result result = compile({"main.c", "--info=defvals", "-Z-v", "--pre"});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.out.find("#define __QZM__ 1\n"), std::string::npos);
    EXPECT_NE(result.out.find("#define __QZM_VERSION 2320\n"), std::string::npos);
    EXPECT_NE(result.err.find("#include <...> search starts here:\n " +
                              (root / "orb/include/c99").string() + "\n " +
                              (root / "orb/include").string() + "\nEnd of search list.\n"),
              std::string::npos);
}

TEST_F(OrbPrograms, WritesTheDependencyFileBesideTheObject)
{
    EXPECT_EQ(compile({"main.c", "--pass1", "--dep=+gcc,-sys,-stop"}).status, 0);
    EXPECT_EQ(made(), (Texts{"main.d", "main.p1"}));
    EXPECT_EQ(content("main.d"), "main.p1: main.c util.h\n");
}

TEST_F(OrbPrograms, WritesOnlyDependenciesWhenToldToStop)
{
    Result result = compile({"util.c", "--pass1", "--dep=+gcc,+stop,-sys"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "util.p1: util.c util.h\n");
    EXPECT_EQ(made(), Texts{});
    EXPECT_EQ(compile({"util.c", "--dep=+gcc,+stop", "--dep=+gcc", "--depfile=u.d"}).out, "");
    EXPECT_EQ(content("u.d"), "util.p1: util.c util.h\n");
}

TEST_F(OrbPrograms, KeepsIntermediateFilesWhenAsked)
{
    EXPECT_EQ(compile({"main.c", "util.c", "--nodel", "-op.hex"}).status, 0);
    EXPECT_EQ(made(), (Texts{"main.i", "main.p1", "p.hex", "util.i", "util.p1"}));
}

TEST_F(OrbPrograms, TellsItsVersion)
{
    Result result = qzm({"--qzmcc", "--opt=none", "--ver"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "QZM sample C compiler driver V2.32\n");
}

TEST_F(OrbPrograms, TheCompilersListTheirDevices)
{
    Result orb = run("orb/bin/orbc", {"--chipinforaw"});
    Result orb18 = run("orb/bin/orbc18", {"--chipinforaw"});
    EXPECT_EQ(orb.status, 0);
    EXPECT_NE(orb.out.find("\n16z20a:ORB16:4000:400\n"), std::string::npos);
    EXPECT_EQ(orb.out.find("18z40"), std::string::npos);
    EXPECT_EQ(orb18.status, 0);
    EXPECT_NE(orb18.out.find("\n18z40:ORB18:10000:f00\n"), std::string::npos);
    EXPECT_EQ(orb18.out.find("16z20a"), std::string::npos);
    EXPECT_EQ(run("orb/bin/orbc", {}).status, 1);
}

TEST_F(OrbPrograms, ADeviceIsKnownInAnyCaseAndWithItsFamilysNameInFront)
{
    EXPECT_EQ(qzm({"--chip=ORB16z20A", "main.c", "--pass1", FORMAT}).status, 0);
    EXPECT_EQ(run("orb-as/bin/orb-as", {"-mcpu=orb18Z40", "start.s"}).status, 0);
    EXPECT_EQ(run("orb-as/bin/orb-as", {"-mcpu=xyz18z40", "start.s"}).err,
              ": : (230) device \"xyz18z40\" is not known to this installation (error)\n");
}

TEST_F(OrbPrograms, TheAssemblerPreprocessesAndNamesItsOutput)
{
    write("t.sx", "#include <qz.inc>\n\tpsect foo\n\tbar:\n\t\tnop\n\tend bar\n");
    Result result = run("orb-as/bin/orb-as",
                        {"-v", "-v", "-mcpu=18z40", "-mrom=default,0-100", "-o./t.", "t.sx"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(fileid_is_obj(path("t.o").c_str()), 1);
    EXPECT_EQ(run("orb-as/bin/orb-as", {"-mcpu=18z40", "-frob", "t.sx"}).status, 1);
}

TEST_F(OrbPrograms, TheLibrarianGivesBackWhatItWasGiven)
{
    ASSERT_EQ(compile({"main.c", "util.c", "--pass1"}).status, 0);
    std::string before = content("util.p1");
    EXPECT_EQ(run("bin/qzm-ar", {"-r", "l.lib", "main.p1", "util.p1"}).status, 0);
    EXPECT_EQ(fileid_is_library(path("l.lib").c_str()), 2);
    EXPECT_EQ(run("bin/qzm-ar", {"-t", "l.lib"}).out, "main.p1\nutil.p1\n");
    fs::remove(work / "util.p1");
    EXPECT_EQ(run("bin/qzm-ar", {"-x", "l.lib"}).status, 0);
    EXPECT_EQ(content("util.p1"), before);
    EXPECT_EQ(run("bin/qzm-ar", {"-d", "l.lib", "main.p1"}).status, 0);
    EXPECT_EQ(run("bin/qzm-ar", {"-t", "l.lib"}).out, "util.p1\n");
}

TEST_F(OrbPrograms, TheLinkerTakesModulesFromALibrary)
{
    ASSERT_EQ(compile({"util.c", "--pass1"}).status, 0);
    ASSERT_EQ(run("bin/qzm-ar", {"-r", "libutil.a", "util.p1"}).status, 0);
    EXPECT_EQ(compile({"main.c", "-op.hex", "-Mp.map", "libutil.a"}).status, 0);
    EXPECT_NE(content("p.map").find("libutil.a(util.p1)"), std::string::npos);
}

TEST_F(OrbPrograms, AModuleOrLibraryThatIsNotThereIsNamed)
{
    ASSERT_EQ(compile({"main.c", "util.c", "--pass1"}).status, 0);
    Result result = compile({"main.p1", "util.p1", "none.a", "m", "-op.hex"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "::: error: (104) could not read file \"none.a\": No such file or directory\n"
              "::: error: (1666) library \"m\" was not found\n");
    EXPECT_FALSE(exists("p.hex"));
}

TEST_F(OrbPrograms, TheLibrarianRefusesWhatIsNoModule)
{
    Result result = run("bin/qzm-ar", {"-r", "l.lib", "main.c"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("(1763)"), std::string::npos);
    EXPECT_FALSE(exists("l.lib"));
}
