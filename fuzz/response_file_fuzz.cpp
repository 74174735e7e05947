// The splitter of response files and the intake of what it gives, over any bytes: every token is
// within the limit, nothing is lost that the count promises, and the intake drops what is empty.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

#include "common/alert.h"
#include "common/cmdline.h"
#include "common/osdep.h"
#include "common/vector.h"

static const size_t LONGEST_TOKEN = 2047;

static void require(bool condition)
{
    if (!condition)
        abort();
}

static void ignore(const char *) {}

// A file of this process, removed at its end, and the argument "@FILE".
static char s_argument[64] = "@";
static const char *const s_file = s_argument + 1;

static void remove_file()
{
    std::remove(s_file);
}

static void prepare()
{
    std::strcpy(s_argument + 1, "/tmp/response_file_fuzz.XXXXXX");
    const int descriptor = mkstemp(s_argument + 1);
    require(descriptor >= 0);
    close(descriptor);
    atexit(remove_file);
    alert_setOutputHook(ignore);
    alert_setErrorLimit(UINT32_MAX); // message 917 is no reason to stop
}

static void write_input(const uint8_t *data, size_t size)
{
    FILE *file = std::fopen(s_file, "wb");
    require(file != nullptr);
    require(size == 0 || std::fwrite(data, 1, size, file) == size);
    require(std::fclose(file) == 0);
}

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

// An argument "@FILE" of the input would be opened: files are no part of this target.
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
    char *argv[] = {name, s_argument, nullptr};
    Vector *arguments = cmdline_args(2, argv, nullptr);
    require(vec_size(arguments) == expected);
    for (const char *argument : vec_each<const char>(arguments))
        require(*argument != '\0' && std::strlen(argument) <= LONGEST_TOKEN);
    vec_destroy(arguments);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (*s_file == '\0')
        prepare();
    write_input(data, size);
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
