// Times whole commands against each other in one run. They take turns, so that the machine's other
// work affects all alike.
//
//     wall_time ROUNDS NAME COMMAND... -- NAME COMMAND... [-- ...]
//
// Prints each command's median time, its ratio to the first command's, and its peak memory.
// Standard output and error of the commands go to /dev/null.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Command {
    const char *name;
    std::vector<char *> arguments; // ends in a null
    std::vector<double> wall;      // seconds, one per round
    std::vector<double> cpu;       // the same for processor time, children included
    long peak;                     // KiB, the largest of the command and its children
};

double now()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double seconds(const timeval &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

[[noreturn]] void execute(const Command &command)
{
    const int null = open("/dev/null", O_RDWR);
    dup2(null, 0);
    dup2(null, 1);
    dup2(null, 2);
    execv(command.arguments[0], command.arguments.data());
    _exit(127);
}

void runOnce(Command *command)
{
    const double start = now();
    const pid_t child = fork();
    if (child == 0)
        execute(*command);
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    command->wall.push_back(now() - start);
    command->cpu.push_back(seconds(usage.ru_utime) + seconds(usage.ru_stime));
    command->peak = std::max(command->peak, usage.ru_maxrss);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "wall_time: %s failed\n", command->name);
        std::exit(1);
    }
}

double median(std::vector<double> *values)
{
    std::sort(values->begin(), values->end());
    return (*values)[values->size() / 2];
}

std::vector<Command> parse(int argc, char **argv)
{
    std::vector<Command> commands;
    for (int i = 2; i < argc; ++i) {
        Command command{argv[i], {}, {}, {}, 0};
        for (++i; i < argc && std::strcmp(argv[i], "--") != 0; ++i)
            command.arguments.push_back(argv[i]);
        if (command.arguments.empty()) {
            std::fprintf(stderr, "wall_time: %s has no command\n", command.name);
            std::exit(2);
        }
        command.arguments.push_back(nullptr);
        commands.push_back(command);
    }
    return commands;
}

} // namespace

int main(int argc, char **argv)
{
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 0;
    std::vector<Command> commands = parse(argc, argv);
    if (rounds <= 0 || commands.empty()) {
        std::fprintf(stderr, "usage: wall_time ROUNDS NAME COMMAND... [-- NAME COMMAND...]...\n");
        return 2;
    }
    for (int round = 0; round < rounds; ++round) {
        for (Command &command : commands)
            runOnce(&command);
    }
    const double firstWall = median(&commands[0].wall);
    const double firstCpu = median(&commands[0].cpu);
    for (Command &command : commands) {
        const double wall = median(&command.wall);
        const double cpu = median(&command.cpu);
        std::printf("%-40s wall %9.1f us %5.2f x   cpu %9.1f us %5.2f x %8ld KiB\n", command.name,
                    wall * 1e6, wall / firstWall, cpu * 1e6, cpu / firstCpu, command.peak);
    }
    return 0;
}
