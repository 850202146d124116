#include "callscope.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace
{
std::mutex mutex;
std::condition_variable left;
int activeCalls = 0; // guarded by mutex
thread_local int activeCallsOfThread = 0;
} // namespace

CallScope::CallScope()
{
    ++activeCallsOfThread;
    const std::lock_guard<std::mutex> lock(mutex);
    ++activeCalls;
}

CallScope::~CallScope()
{
    --activeCallsOfThread;
    const std::lock_guard<std::mutex> lock(mutex);
    --activeCalls;
    left.notify_all();
}

bool CallScope::waitForOtherThreads(int timeoutMs)
{
    std::unique_lock<std::mutex> lock(mutex);
    return left.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                         [] { return activeCalls == activeCallsOfThread; });
}

bool CallScope::isActiveOnThisThread()
{
    return activeCallsOfThread > 0;
}
