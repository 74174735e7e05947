// The checker of a preprocessing compiler's output, over any texts. It records and counts by its
// rules, which are stated a second time here.
//
// The input is the printed text, the output file and its preprocessed twin, separated by "%%\n". A
// file that is missing in the input does not exist. A path exists if it does not contain "no".
#include <algorithm>
#include <cstring>

#include "common/os/osdep_file.h"
#include "common/suite/tsuite.h"
#include "fuzz/support.h"
#include "selftests/stBuild.h"
#include "selftests/stBuild_internal.h"

enum : size_t { PRINTED, OUTPUT_FILE, TWIN, PARTS };

static std::vector<std::string> s_parts;

static bool exists(const std::string &path)
{
    return path.find("no") == std::string::npos;
}

// The file system. (The linker replaces the functions of these names by these.)
extern "C" {
int __wrap__Z16osdep_fileExistsPKc(const char *path)
{
    return exists(path);
}
FILE *__wrap__Z21osdep_openRegularFilePKcP14OsdepFileFacts(const char *path, OsdepFileFacts *)
{
    const size_t part = std::strcmp(path, "output") == 0 ? OUTPUT_FILE : TWIN;
    require(part == OUTPUT_FILE || std::strcmp(path, "output.i") == 0);
    return part < s_parts.size() ? memoryFile(s_parts[part]) : nullptr;
}
}

// The last fault that the checker records, and its counts.
struct Outcome {
    std::string message;
    std::string output;
    int passed;
};

static void fail(Outcome *outcome, const std::string &message, const std::string &output)
{
    outcome->message = message + " for 16z30";
    outcome->output = output.substr(0, BUILD_RECORD_LIMIT);
    if (output.size() > BUILD_RECORD_LIMIT)
        outcome->output += "\n(the output goes on)\n";
}

static void expectMacro(Outcome *outcome, const std::string &text, const std::string &name)
{
    if (text.find("#define " + name) != std::string::npos)
        ++outcome->passed;
    else
        fail(outcome, "failed predefined macros", name + " not defined\n" + text);
}

// A line without the white space at its start and a carriage return at its end.
static std::string pathOn(std::string line)
{
    if (line.ends_with('\r'))
        line.pop_back();
    line.erase(0, std::min(line.find_first_not_of(" \t\r\v\f"), line.size()));
    return line;
}

static void expectPaths(Outcome *outcome, const std::string &text)
{
    const size_t head = text.find("#include <...> search starts here:");
    if (head == std::string::npos)
        return fail(outcome, "failed include search path", "no include search path found\n" + text);
    std::vector<std::string> lines = splitFields(text.substr(head), "\n", text.size());
    for (size_t i = 1; i < lines.size(); ++i) {
        const std::string path = pathOn(lines[i]);
        if (path.find("End of search list") != std::string::npos)
            break;
        if (path.empty())
            continue;
        if (exists(path))
            ++outcome->passed;
        else
            fail(outcome, "failed include search path",
                 "include search path does not exists: " + path);
    }
}

static Outcome expectedOutcome()
{
    Outcome outcome = {};
    if (s_parts[PRINTED].empty()) {
        fail(&outcome, "failed preprocess test", "no compiler output found");
        return outcome;
    }
    std::string text = s_parts[PRINTED];
    for (size_t part = OUTPUT_FILE; part < s_parts.size(); ++part) {
        text += s_parts[part];
        std::replace(text.begin(), text.end(), '\0', ' ');
    }
    expectMacro(&outcome, text, "__QZM__");
    expectMacro(&outcome, text, "__QZ");
    expectPaths(&outcome, text);
    return outcome;
}

static std::string textOf(const char *text)
{
    return text != nullptr ? text : "";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    s_parts = splitFields(std::string(reinterpret_cast<const char *>(data), size), "%%\n", PARTS);
    s_parts[PRINTED] = s_parts[PRINTED].c_str();
    BuildTest record = {};
    record.device = "16z30";
    TestCase test = {};
    test.name = "checked";
    test.data = &record;
    const std::string &printed = s_parts[PRINTED];
    const int passed = noting([&] { return check_cpp(&test, "output", printed.c_str()); });

    const Outcome expected = expectedOutcome();
    require(passed == expected.passed);
    require(textOf(test.failureType) == (expected.message.empty() ? "" : "build test"));
    require(textOf(test.failureMessage) == expected.message);
    require(textOf(test.output) == expected.output);
    freeNoted();
    return 0;
}
