/* The least that a driver of this kind can do: write the arguments into a command file, run the
 * child with it, remove the file. The yardstick for the real driver's start-up. START is how it
 * starts the child: vfork, as the driver does, or fork. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char **argv)
{
    char name[] = "/tmp/qzXXXXXX.cmd";
    char option[sizeof name + 1];
    const int descriptor = mkstemps(name, 4);
    if (argc < 2 || descriptor < 0)
        return 1;
    FILE *file = fdopen(descriptor, "w");
    for (int i = 2; i < argc; ++i)
        fprintf(file, "%s\n", argv[i]);
    fclose(file);
    snprintf(option, sizeof option, "@%s", name);
    const pid_t child = START();
    if (child == 0) {
        char *arguments[] = {argv[1], option, NULL};
        execv(argv[1], arguments);
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    remove(name);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
