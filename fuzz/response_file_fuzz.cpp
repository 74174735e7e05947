// The splitter of response files and the intake of its result, over any bytes. Every token is
// within the limit, the count is that of the tokens, and the intake drops the empty ones.
#include <cstring>

#include "common/base/vector.h"
#include "common/cmdline/cmdline.h"
#include "common/diagnostics/alert.h"
#include "common/diagnostics/qzdebug_internal.h"
#include "common/os/osdep_process.h"
#include "fuzz/support.h"

static const size_t LONGEST_TOKEN = 2047;

static void ignore(const char *) {}

static std::string s_argument; // "@FILE"
static const char *s_file;

// Checks the array and counts its tokens that are not empty.
static uint32_t check_entries(char **entries)
{
    require(std::strcmp(entries[0], "name") == 0);
    uint32_t found = 0;
    int count = 1;
    for (; entries[count] != nullptr; ++count) {
        const size_t length = std::strlen(entries[count]);
        require(length <= LONGEST_TOKEN);
        require(std::strpbrk(entries[count], "\t\n") == nullptr);
        found += length != 0;
    }
    require(count == cmdline_readCount());
    return found;
}

// An argument "@FILE" of the input would be opened; files are not part of this target.
static bool names_a_file(char **entries)
{
    for (int i = 1; entries[i] != nullptr; ++i)
        if (entries[i][0] == '@' && entries[i][1] != '\0')
            return true;
    return false;
}

static void check_intake(uint32_t expected)
{
    char name[] = "name";
    char *argv[] = {name, s_argument.data(), nullptr};
    Vector *arguments = noting([&] { return cmdline_args(2, argv, nullptr); });
    require(vec_size(arguments) == expected);
    for (const char *argument : vec_each<const char>(arguments))
        require(*argument != '\0' && std::strlen(argument) <= LONGEST_TOKEN);
    vec_destroy(arguments);
    const int input = osdep_redirectInput("/dev/null");
    cmdline_readArgs(0, "name"); // frees what the reading before it keeps
    require(input >= 0 && osdep_restoreInput(input) == 0);
    freeNoted();
}

// The program's name and the messages are kept, so they must not be noted.
static void keepWhatStays()
{
    char name[] = "name";
    char *argv[] = {name, nullptr};
    vec_destroy(cmdline_args(1, argv, nullptr));
    alert_raiseNumber(917);
}

static void prepare()
{
    s_argument = "@" + scratchDirectory() + "/file";
    s_file = s_argument.c_str() + 1;
    alert_setOutputHook(ignore);
    alert_setErrorLimit(UINT32_MAX); // message 917 must not end the run
    gDebugSettings.parsed = true;    // its files are not part of this target
    writeFile(s_file, "");
    keepWhatStays();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool prepared = (prepare(), true);
    require(prepared);
    writeFile(s_file, std::string(reinterpret_cast<const char *>(data), size));
    int input = osdep_redirectInput(s_file);
    require(input >= 0);
    while (cmdline_readArgs(1, "name")[1] != nullptr) // line by line, up to one without a token
        check_entries(cmdline_readArgs(1, "name"));
    require(osdep_restoreInput(input) == 0);

    input = osdep_redirectInput(s_file);
    require(input >= 0);
    char **entries = cmdline_readArgs(0, "name");
    require(osdep_restoreInput(input) == 0);
    const uint32_t found = check_entries(entries);
    if (!names_a_file(entries))
        check_intake(found);
    return 0;
}
