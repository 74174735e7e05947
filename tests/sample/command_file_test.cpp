// The reader of "@" command files that the sample programs share.
#include "sample/command_file.h"

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

class CommandFile : public ::testing::Test {
  protected:
    CommandFile() : path("command_file_test." + std::to_string(getpid())) {}
    ~CommandFile() override { std::remove(path.c_str()); }

    std::string write(const std::string &bytes) const
    {
        std::ofstream(path, std::ios::binary) << bytes;
        return "@" + path;
    }

    // The arguments after the program's name; "refused" alone when the reading fails.
    static std::vector<std::string> expand(std::vector<std::string> given)
    {
        std::vector<char *> argv = {const_cast<char *>("prog")};
        for (std::string &text : given)
            argv.push_back(text.data());
        CommandArguments arguments = {};
        int done = commandfile_expand(static_cast<int>(argv.size()), argv.data(), &arguments);
        std::vector<std::string> result(arguments.items + 1, arguments.items + arguments.count);
        commandfile_free(&arguments);
        return done ? result : std::vector<std::string>{"refused"};
    }

    std::string path;
};

using Texts = std::vector<std::string>;

} // namespace

TEST_F(CommandFile, HoldsOneArgumentALine)
{
    EXPECT_EQ(expand({write("--chip=16z20a\n--opt=+2\nmain.c\n")}),
              (Texts{"--chip=16z20a", "--opt=+2", "main.c"}));
}

TEST_F(CommandFile, QuotedAndEscapedBlanksAreOneBlank)
{
    EXPECT_EQ(expand({write("\"--errformat=%f:\\ (%n)\\ %s\"\n\"-DMSG=a\\ b\"\n")}),
              (Texts{"--errformat=%f: (%n) %s", "-DMSG=a b"}));
}

TEST_F(CommandFile, EscapedQuotesAndBackslashesStandForThemselves)
{
    EXPECT_EQ(expand({write("a\\'b\\\\c\n-DS=\\\"x\\\"\n")}), (Texts{"a'b\\c", "-DS=\"x\""}));
}

TEST_F(CommandFile, StandsAmongOtherArguments)
{
    EXPECT_EQ(expand({"-v", write("a b"), "-q"}), (Texts{"-v", "a", "b", "-q"}));
}

TEST_F(CommandFile, EmptyFileGivesNoArguments)
{
    EXPECT_EQ(expand({write("")}), Texts{});
}

TEST_F(CommandFile, AnAtSignAloneIsAnArgument)
{
    EXPECT_EQ(expand({"@"}), Texts{"@"});
}

TEST_F(CommandFile, MissingFileIsRefused)
{
    EXPECT_EQ(expand({"@" + path + ".missing"}), Texts{"refused"});
}

TEST_F(CommandFile, FileThatNamesItselfIsRefused)
{
    EXPECT_EQ(expand({write("@" + path + "\n")}), Texts{"refused"});
}

TEST_F(CommandFile, FileWithANulIsRefused)
{
    EXPECT_EQ(expand({write(std::string("a\0b", 3))}), Texts{"refused"});
}
