// The main of the tracing twin of the program; there the program's own is called driver_main. It
// adds the debug option before the other arguments. The trace goes to the file that the environment
// variable QZM_TRACE names.
#include <cstdlib>
#include <string>
#include <vector>

int driver_main(int argc, char **argv);

int main(int argc, char **argv)
{
    const char *path = getenv("QZM_TRACE");
    if (path == nullptr || argc == 0)
        return driver_main(argc, argv);
    std::string option = std::string("--qzdebug=on,out:") + path;
    unsetenv("QZM_TRACE"); // the programs that it runs must not write to the same file
    std::vector<char *> words(argv, argv + argc + 1);
    words.insert(words.begin() + 1, option.data());
    return driver_main(argc + 1, words.data());
}
