#ifndef KORRIN_BENCH_PROCESS_H
#define KORRIN_BENCH_PROCESS_H

#include <cstdio>
#include <string>
#include <sys/types.h>
#include <vector>

/// A child whose standard input and output are ours.
class Process
{
public:
    explicit Process(const std::vector<std::string> &command);
    ~Process();
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    void writeLine();
    /// The next line of its output, empty at its end.
    std::string readLine();

    struct Usage {
        bool succeeded;
        double processorSeconds;
        double peakKib;
    };

    /// Closes its input and waits for its end.
    Usage wait();

private:
    pid_t pid = -1;
    FILE *input = nullptr;
    FILE *output = nullptr;
};

#endif
