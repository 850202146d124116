#include "interrupt.h"

#include "files.h"

#include <csignal>
#include <pthread.h>
#include <unistd.h>

namespace
{

const int SIGNAL_STATUS = 128;
const char CLEAR_LINE[] = "\r\033[K";

pthread_t mainThread;
bool isOnTerminal = false;

/// On the main thread, which makes the file: it cannot go on with it while this runs.
void end(int number)
{
    if (!pthread_equal(pthread_self(), mainThread)) {
        pthread_kill(mainThread, number);
        return;
    }
    TemporaryFile::removeCurrent();
    if (isOnTerminal && write(STDERR_FILENO, CLEAR_LINE, sizeof CLEAR_LINE - 1) < 0)
        _exit(SIGNAL_STATUS + number);
    // Not exit(): the exchange is still running.
    _exit(SIGNAL_STATUS + number);
}

bool isIgnored(int number)
{
    struct sigaction action = {};
    return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

} // namespace

void endOnSignals()
{
    mainThread = pthread_self();
    isOnTerminal = isatty(STDERR_FILENO) == 1;
    struct sigaction action = {};
    action.sa_handler = end;
    action.sa_flags = SA_RESTART;
    sigfillset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    if (!isIgnored(SIGHUP)) // as nohup(1) has it
        sigaction(SIGHUP, &action, nullptr);
}
