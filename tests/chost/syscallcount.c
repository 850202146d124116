/* Runs a program and writes to the file that is named first how many system calls it and its
 * threads made, but for those that only wait for or wake another thread: their number depends on
 * timing. Usage: syscallcount FILE PROGRAM [ARGUMENT...]. Exits as the program does, or with 77
 * where ptrace(2) is not permitted. */
#define _GNU_SOURCE
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

enum { OPTIONS = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL };

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

/* Whether the thread, which has stopped at a system call, is about to enter one that counts. */
static int isCounted(pid_t thread)
{
    struct __ptrace_syscall_info info = {0};
    if (ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof info, &info) <= 0)
        return 0;
    return info.op == PTRACE_SYSCALL_INFO_ENTRY && !isWaiting((long)info.entry.nr);
}

/* Follows all threads until the program has ended. */
static int follow(pid_t program, long *count)
{
    for (;;) {
        int status = 0;
        const pid_t thread = waitpid(-1, &status, __WALL);
        if (thread < 0 && errno == EINTR)
            continue;
        if (thread < 0)
            return 1;
        if (WIFEXITED(status) || WIFSIGNALED(status)) {
            if (thread == program)
                return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
            continue;
        }
        int signal = WSTOPSIG(status);
        if (signal == (SIGTRAP | 0x80))
            *count += isCounted(thread);
        if (signal == (SIGTRAP | 0x80) || signal == SIGTRAP || signal == SIGSTOP)
            signal = 0;
        ptrace(PTRACE_SYSCALL, thread, 0, signal);
    }
}

int main(int argc, char **argv)
{
    if (argc < 3)
        return 64;
    const pid_t program = fork();
    if (program == 0) {
        if (ptrace(PTRACE_TRACEME, 0, 0, 0) != 0)
            _exit(77);
        raise(SIGSTOP);
        execv(argv[2], argv + 2);
        _exit(127);
    }
    int status = 0;
    if (program < 0 || waitpid(program, &status, 0) < 0)
        return 126;
    if (!WIFSTOPPED(status) || ptrace(PTRACE_SETOPTIONS, program, 0, OPTIONS) != 0
        || ptrace(PTRACE_SYSCALL, program, 0, 0) != 0)
        return 77;
    long count = 0;
    status = follow(program, &count);
    FILE *file = fopen(argv[1], "w");
    if (!file)
        return 126;
    fprintf(file, "%ld\n", count);
    fclose(file);
    return status;
}
