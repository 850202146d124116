#define _GNU_SOURCE
#include "tracing.h"

#include <errno.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

enum {
    OPTIONS = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL,
    AT_SYSTEM_CALL = SIGTRAP | 0x80,
    NOT_PERMITTED = 77
};

/* Tells of the system call that the thread, which has stopped at one, is about to enter. */
static void tell(pid_t program, pid_t thread, SystemCallWatcher watcher)
{
    struct __ptrace_syscall_info info = {0};
    if (ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof info, &info) > 0
        && info.op == PTRACE_SYSCALL_INFO_ENTRY)
        watcher(program, (long)info.entry.nr);
}

/* Follows all threads until the program has ended. */
static int follow(pid_t program, SystemCallWatcher watcher)
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
                return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            continue;
        }
        int signal = WSTOPSIG(status);
        if (signal == AT_SYSTEM_CALL)
            tell(program, thread, watcher);
        if (signal == AT_SYSTEM_CALL || signal == SIGTRAP || signal == SIGSTOP)
            signal = 0;
        ptrace(PTRACE_SYSCALL, thread, 0, signal);
    }
}

int runTraced(char **commandLine, SystemCallWatcher watcher)
{
    const pid_t program = fork();
    if (program == 0) {
        if (ptrace(PTRACE_TRACEME, 0, 0, 0) != 0)
            _exit(NOT_PERMITTED);
        raise(SIGSTOP);
        execv(commandLine[0], commandLine);
        _exit(127);
    }
    int status = 0;
    if (program < 0 || waitpid(program, &status, 0) < 0)
        return 126;
    if (!WIFSTOPPED(status) || ptrace(PTRACE_SETOPTIONS, program, 0, OPTIONS) != 0
        || ptrace(PTRACE_SYSCALL, program, 0, 0) != 0)
        return NOT_PERMITTED;
    return follow(program, watcher);
}
