// Runs every transcript in transcripts/.
#include "tests/cli/transcript.h"

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "tests/cli/suite_fixture.h"

static std::vector<std::string> linesOf(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

static std::map<std::string, std::string> variablesOf(const std::string &text)
{
    std::map<std::string, std::string> variables;
    for (const std::string &line : linesOf(text))
        variables[line.substr(0, line.find('='))] = line.substr(line.find('=') + 1);
    return variables;
}

// The rest of `text` after `front` if it begins with it, or nothing.
static std::string behind(const std::string &text, const std::string &front)
{
    return text.compare(0, front.size(), front) == 0 ? text.substr(front.size()) : "";
}

static void takeSection(Transcript &transcript, const std::string &title, const std::string &body)
{
    if (title == "arguments")
        transcript.arguments = linesOf(body);
    else if (std::string file = behind(title, "file "); !file.empty())
        transcript.files[file] = body;
    else if (std::string program = behind(title, "program "); !program.empty())
        transcript.programs[program] = body;
    else if (std::string directory = behind(title, "directory "); !directory.empty())
        transcript.directories.push_back(directory);
    else if (std::string path = behind(title, "child "); !path.empty() && path != "environment")
        transcript.childPath = path;
    else if (title == "no child")
        transcript.childMissing = true;
    else if (title == "environment")
        transcript.environment = variablesOf(body);
    else if (title == "child environment")
        transcript.childEnvironment = body;
    else if (title == "stdout")
        transcript.out = body;
    else if (title == "stderr")
        transcript.err = body;
    else if (title == "status")
        transcript.status = std::stoi(body);
    else if (title == "command file") {
        transcript.childRuns = true;
        transcript.commandFile = body;
    } else {
        throw std::runtime_error("no such section: " + title);
    }
}

// The title of a line such as "[file a.rsp]", or nothing. A title begins with a lower-case letter.
static std::string titleOf(const std::string &line)
{
    if (line.size() < 3 || line[0] != '[' || line.back() != ']' || line[1] < 'a' || line[1] > 'z')
        return "";
    return line.substr(1, line.size() - 2);
}

Transcript transcript_parse(const std::string &text)
{
    Transcript transcript;
    std::string title;
    std::string body;
    for (const std::string &line : linesOf(text)) {
        std::string next = titleOf(line);
        if (next.empty()) {
            body += line + "\n";
            continue;
        }
        if (!title.empty())
            takeSection(transcript, title, body);
        title = next;
        body.clear();
    }
    takeSection(transcript, title, body);
    return transcript;
}

class TranscriptTest : public SuiteTest, public ::testing::WithParamInterface<std::string> {
  protected:
    std::string inPlace(std::string text, const std::string &command) const
    {
        text = replaceAll(text, "{VER}", suite);
        text = replaceAll(text, "{WORK}", work);
        return replaceAll(text, "{CMD}", command);
    }

    void stage(const Transcript &transcript)
    {
        for (const auto &[name, text] : transcript.files)
            write(inPlace(name, ""), inPlace(text, ""));
        for (const auto &[name, text] : transcript.programs)
            writeProgram(inPlace(name, ""), inPlace(text, ""));
        for (const std::string &name : transcript.directories)
            std::filesystem::create_directories(std::filesystem::path(work) / inPlace(name, ""));
        if (transcript.childMissing)
            std::filesystem::remove(suite + "/" + transcript.childPath);
    }
};

TEST_P(TranscriptTest, IsReproduced)
{
    Transcript expected =
        transcript_parse(readFile(std::string(QZM_TRANSCRIPTS) + "/" + GetParam() + ".txt"));
    stage(expected);
    std::vector<std::string> arguments;
    for (const std::string &argument : expected.arguments)
        arguments.push_back(inPlace(argument, ""));

    RunResult result =
        run(arguments, {.env = expected.environment, .endsEarly = !expected.childRuns});

    ChildRecord record = child();
    EXPECT_EQ(result.err, inPlace(expected.err, record.commandFileName));
    EXPECT_EQ(result.out, inPlace(expected.out, record.commandFileName));
    EXPECT_EQ(result.status, expected.status);
    EXPECT_EQ(record.ran, expected.childRuns);
    EXPECT_EQ(record.commandFile, inPlace(expected.commandFile, record.commandFileName));
    if (record.ran) {
        EXPECT_EQ(record.argv, (std::vector<std::string>{suite + "/" + expected.childPath,
                                                         "@" + record.commandFileName}));
        EXPECT_EQ(record.directory, work);
        std::string environment;
        for (const auto &[name, value] : record.env)
            environment += name + "=" + value + "\n";
        EXPECT_EQ(environment, expected.childEnvironment);
    }
}

static std::vector<std::string> names()
{
    std::vector<std::string> all;
    for (const auto &entry : std::filesystem::directory_iterator(QZM_TRANSCRIPTS))
        if (entry.path().extension() == ".txt")
            all.push_back(entry.path().stem());
    std::sort(all.begin(), all.end());
    return all;
}

INSTANTIATE_TEST_SUITE_P(Cli, TranscriptTest, ::testing::ValuesIn(names()),
                         [](const auto &parameter) { return parameter.param; });

TEST(TranscriptFormat, UnknownSectionsAreRefused)
{
    EXPECT_THROW(transcript_parse("[argument]\n-c\n"), std::runtime_error);
}

TEST(TranscriptFormat, SectionsKeepTheirLines)
{
    Transcript transcript = transcript_parse(
        "# why\n[arguments]\n-c\n\n[Not a title]\n[command file]\n-c\n[status]\n3\n");
    EXPECT_EQ(transcript.arguments, (std::vector<std::string>{"-c", "", "[Not a title]"}));
    EXPECT_TRUE(transcript.childRuns);
    EXPECT_EQ(transcript.commandFile, "-c\n");
    EXPECT_EQ(transcript.status, 3);
}
