// The installation of the build tests: its tools are shell scripts that record their arguments and
// do as they are told.
#ifndef TESTS_SELFTESTS_BUILD_FIXTURE_H
#define TESTS_SELFTESTS_BUILD_FIXTURE_H

#include "selftests/stBuild.h"
#include "tests/selftests/installation.h"

class BuildFixture : public InstallationTest {
  protected:
    static constexpr const char *DEVICES =
        "<?xml version=\"1.0\"?>\n<deviceSupport><family name=\"x\"><device "
        "name=\"16z20a\"/><device name=\"18z40\"/>"
        "<device name=\"elmbig1\"/><device name=\"mystery\"/><device name=\"16z10\"/></family>"
        "</deviceSupport>";

    void SetUp() override
    {
        InstallationTest::SetUp();
        write("bin/deviceSupport.xml", DEVICES);
    }

    // A tool that writes its command into "NAME.args", one word per line, and continues with
    // `text`.
    void tool(const std::string &name, const std::string &text = "") const
    {
        script(name, "for word in \"$0\" \"$@\"; do printf '%s\\n' \"$word\"; done > " + root +
                         "/" + name + ".args\n" + text);
    }
    Strings commandOf(const std::string &name) const
    {
        Strings words;
        std::istringstream lines(contents(root + "/" + name + ".args"));
        for (std::string word; std::getline(lines, word);)
            words.push_back(word);
        return words;
    }

    // The case of a row with that name.
    static TestCase *caseNamed(Vector *row, const std::string &name)
    {
        for (TestCase *test : cases(row)) {
            if (test->name == name)
                return test;
        }
        ADD_FAILURE() << "there is no case \"" << name << "\"";
        return nullptr;
    }

    static Failure failed(const std::string &message, const std::string &output)
    {
        return {"build test", message, output};
    }
};

#endif
