#ifndef KORRIN_CALLSCOPE_H
#define KORRIN_CALLSCOPE_H

/// Counts the exported calls that are running, so that closing the library can wait until those it
/// has just cancelled have left it.
class CallScope
{
public:
    CallScope();
    ~CallScope();
    CallScope(const CallScope &) = delete;
    CallScope &operator=(const CallScope &) = delete;

    /// Waits until no other thread is inside a call, at most @p timeoutMs milliseconds.
    /// @return true when only calls of this thread, if any, are left
    static bool waitForOtherThreads(int timeoutMs);

    /// True when the calling thread is itself inside a call (in its nested event loop, say).
    static bool isActiveOnThisThread();
};

#endif
