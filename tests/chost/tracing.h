/* Runs a program under ptrace(2) and tells of each system call of its threads. */
#ifndef KORRIN_TESTS_TRACING_H
#define KORRIN_TESTS_TRACING_H

#include <sys/types.h>

/* Called when a thread is about to make the system call of this number. */
typedef void (*SystemCallWatcher)(pid_t program, long number);

/* Returns the program's exit status, 128 and the signal's number when one ended it, or 77 where
 * ptrace(2) is not permitted. */
int runTraced(char **commandLine, SystemCallWatcher watcher);

#endif
