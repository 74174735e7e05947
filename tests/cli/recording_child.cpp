// Plays a driver of the suite for the end-to-end tests: records its arguments and ends as it is
// told. The environment tells it:
//
//     QZM_RECORD          beginning of the names of the files it writes (required):
//                         .argv  the arguments, each with a terminating zero
//                         .cmd   the bytes of the file that its "@" argument names
//                         .cwd   the current directory
//                         .env   the variables that begin with "NVC_", each with a terminating zero
//                         .ready an empty file, when all of that is written
//     QZM_CHILD_STDOUT    a line for standard output
//     QZM_CHILD_STDERR    a line for standard error
//     QZM_CHILD_WAIT      when set, it waits to be killed
//     QZM_CHILD_SIGNAL    the number of a signal by which it kills itself
//     QZM_CHILD_EXIT      its exit status, 0 when not set
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <unistd.h>

extern char **environ;

static std::string record;

static void save(const char *ending, const std::string &bytes)
{
    FILE *file = fopen((record + ending).c_str(), "wb");
    if (file == nullptr || fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size() ||
        fclose(file) != 0) {
        fprintf(stderr, "recording child: cannot write %s%s\n", record.c_str(), ending);
        _exit(99);
    }
}

static std::string contents(const char *path)
{
    std::string bytes;
    FILE *file = fopen(path, "rb");
    if (file == nullptr)
        return "(no such file)";
    char buffer[65536];
    for (size_t got; (got = fread(buffer, 1, sizeof buffer, file)) > 0;)
        bytes.append(buffer, got);
    fclose(file);
    return bytes;
}

static void save_arguments(int argc, char **argv)
{
    std::string all;
    for (int i = 0; i < argc; i++) {
        all.append(argv[i]).push_back('\0');
        if (argv[i][0] == '@')
            save(".cmd", contents(argv[i] + 1));
    }
    save(".argv", all);
}

static void save_surroundings()
{
    std::string variables;
    for (char **entry = environ; *entry != nullptr; entry++)
        if (strncmp(*entry, "NVC_", 4) == 0)
            variables.append(*entry).push_back('\0');
    save(".env", variables);
    char directory[4096];
    save(".cwd", getcwd(directory, sizeof directory) != nullptr ? directory : "(unknown)");
}

static int number(const char *variable)
{
    const char *text = getenv(variable);
    return text == nullptr ? 0 : atoi(text);
}

int main(int argc, char **argv)
{
    const char *prefix = getenv("QZM_RECORD");
    if (prefix == nullptr)
        return 98;
    record = prefix;
    save_arguments(argc, argv);
    save_surroundings();
    if (const char *text = getenv("QZM_CHILD_STDOUT"))
        printf("%s\n", text);
    if (const char *text = getenv("QZM_CHILD_STDERR"))
        fprintf(stderr, "%s\n", text);
    fflush(stdout);
    save(".ready", "");
    while (getenv("QZM_CHILD_WAIT") != nullptr)
        pause();
    if (int signalNumber = number("QZM_CHILD_SIGNAL"))
        raise(signalNumber);
    return number("QZM_CHILD_EXIT");
}
