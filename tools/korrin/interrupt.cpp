#include "interrupt.h"

#include "files.h"

#include <csignal>
#include <cstdio>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace
{

const int SIGNAL_STATUS = 128;

} // namespace

void endOnSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread([signals] {
        int number = 0;
        sigwait(&signals, &number);
        TemporaryFile::removeCurrent();
        if (isatty(STDERR_FILENO))
            std::fputs("\r\033[K", stderr);
        // Not exit(): the exchange is still running.
        _exit(SIGNAL_STATUS + number);
    }).detach();
}
