/* Runs a program and writes to the file that is named first how many system calls it and its
 * threads made, but for those that only wait for or wake another thread: their number depends on
 * timing. Usage: syscallcount FILE PROGRAM [ARGUMENT...]. Exits as the program does, or with 77
 * where ptrace(2) is not permitted. */
#define _GNU_SOURCE
#include "tracing.h"

#include <stdio.h>
#include <sys/syscall.h>

static long count;

static int isWaiting(long number)
{
    switch (number) {
    case SYS_futex:
    case SYS_ppoll:
    case SYS_restart_syscall:
    case SYS_sched_yield:
#ifdef SYS_poll
    case SYS_poll:
#endif
        return 1;
    default:
        return 0;
    }
}

static void countCall(pid_t program, long number)
{
    (void)program;
    count += !isWaiting(number);
}

int main(int argc, char **argv)
{
    if (argc < 3)
        return 64;
    const int status = runTraced(argv + 2, countCall);
    FILE *file = fopen(argv[1], "w");
    if (!file)
        return 126;
    fprintf(file, "%ld\n", count);
    fclose(file);
    return status;
}
