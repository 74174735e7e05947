// The end-to-end harness's changes to a process between fork and exec, and the checks whether this
// machine allows them. Every failure in the new process ends it with status 125 and a message.
#ifndef TESTS_CLI_SURROUNDINGS_H
#define TESTS_CLI_SURROUNDINGS_H

#include "tests/cli/suite_fixture.h"

// Whether a process of this user can have mounts of its own.
bool surroundings_canMount();

// Whether a process can become the user "nobody" and still reach the directory.
bool surroundings_canBeNobody(const std::string &directory);

// Opens `path` as the descriptor.
void surroundings_redirect(int descriptor, const std::string &path, int flags);

// Gives the process mounts of its own, with /tmp as asked for; Usual is the empty directory
// `scratch`/tmp. `scratch` is not below /tmp.
void surroundings_setTmp(Tmp tmp, const std::string &scratch);

void surroundings_becomeNobody();

// Limits the open descriptors (0: no limit) and, when asked, forbids further processes.
void surroundings_limit(int files, bool noProcesses);

// Ends the process.
[[noreturn]] void surroundings_fail(const std::string &what);

#endif
