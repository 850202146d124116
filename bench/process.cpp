#include "process.h"

#include <array>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using Pipe = std::array<int, 2>; // the end to read from, the end to write to

double secondsOf(const timeval &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

Pipe makePipe()
{
    Pipe ends = {-1, -1};
    // Closed in other children, or the server would not see its input's end.
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        std::perror("pipe");
    return ends;
}

} // namespace

Process::Process(const std::vector<std::string> &command)
{
    const Pipe in = makePipe();
    const Pipe out = makePipe();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);

    std::vector<char *> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string &argument : command)
        arguments.push_back(const_cast<char *>(argument.c_str()));
    arguments.push_back(nullptr);
    if (posix_spawn(&pid, arguments[0], &actions, nullptr, arguments.data(), environ) != 0) {
        std::fprintf(stderr, "%s cannot be started\n", arguments[0]);
        pid = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    close(out[1]);
    input = fdopen(in[1], "w");
    output = fdopen(out[0], "r");
}

Process::~Process()
{
    wait();
    std::fclose(output);
}

void Process::writeLine()
{
    std::fputc('\n', input);
    std::fflush(input);
}

std::string Process::readLine()
{
    char line[256];
    return std::fgets(line, sizeof line, output) ? line : "";
}

Process::Usage Process::wait()
{
    if (input)
        std::fclose(input);
    input = nullptr;
    int status = 0;
    rusage usage = {};
    const bool ended = pid > 0 && wait4(pid, &status, 0, &usage) == pid;
    pid = -1;
    return {ended && WIFEXITED(status) && WEXITSTATUS(status) == 0,
            secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime),
            static_cast<double>(usage.ru_maxrss)};
}
