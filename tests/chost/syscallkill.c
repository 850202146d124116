/* Runs a program and kills it before the n-th system call that it and its threads make, of any
 * kind, counted from its first getppid(2) on: the program's mark. Usage: syscallkill N PROGRAM
 * [ARGUMENT...]. Exits as the program does, or with 77 where ptrace(2) is not permitted. */
#define _GNU_SOURCE
#include "tracing.h"

#include <signal.h>
#include <stdlib.h>
#include <sys/syscall.h>

static long wantedNumber;
static long count;
static int isMarked;

static void killAtCall(pid_t program, long number)
{
    if (isMarked && ++count == wantedNumber)
        kill(program, SIGKILL);
    if (number == SYS_getppid)
        isMarked = 1;
}

int main(int argc, char **argv)
{
    if (argc < 3)
        return 64;
    wantedNumber = atol(argv[1]);
    return runTraced(argv + 2, killAtCall);
}
