#include "applicationobject.h"

#include "descriptors.h"

#include <QCoreApplication>

#include <chrono>
#include <clocale>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <new>
#include <string>
#include <system_error>
#include <thread>

namespace
{

// How long korrinClose waits for the object's end: Qt joins its host name look-ups there, and one
// that hangs on a dead name server must not hold up the host.
constexpr std::chrono::milliseconds DESTRUCTION_WAIT{100};

void ignoreMessage(QtMsgType, const QMessageLogContext &, const QString &) { }

/// Undoes what QCoreApplication's constructor does to the process: it calls setlocale, and warns
/// on standard error when the locale is not UTF-8 or its thread is not Qt's idea of the main one.
class HostState
{
public:
    HostState()
        : locale(std::setlocale(LC_ALL, nullptr)), handler(qInstallMessageHandler(ignoreMessage))
    {
    }
    ~HostState()
    {
        qInstallMessageHandler(handler);
        std::setlocale(LC_ALL, locale.c_str());
    }
    Q_DISABLE_COPY(HostState)

private:
    const std::string locale;
    const QtMessageHandler handler;
};

/// Blocks all signals in the calling thread, so that a thread made meanwhile gets none of the
/// host's.
class SignalsBlocked
{
public:
    SignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &previous);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &previous, nullptr); }
    Q_DISABLE_COPY(SignalsBlocked)

private:
    sigset_t previous;
};

/// The thread that makes the object, holds it until told to end, and deletes it.
class Holder
{
public:
    Holder()
    {
        const SignalsBlocked blocked;
        const HostState hostState;
        try {
            thread = std::thread(&Holder::run, this);
        } catch (const std::system_error &) {
            throw std::bad_alloc(); // no room for another thread
        }
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [this] { return state != State::Starting; });
        if (state == State::Ended) {
            lock.unlock();
            thread.join();
            throw std::bad_alloc();
        }
    }

    /// Waits for the object's end, which must have been requested.
    ~Holder() { thread.join(); }
    Q_DISABLE_COPY(Holder)

    void requestEnd() { setState(State::Ending); }

    bool isEndRequested()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return state == State::Ending || state == State::Ended;
    }

    /// True when the object is gone within @p timeout.
    bool waitForEnd(std::chrono::milliseconds timeout)
    {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, timeout, [this] { return state == State::Ended; });
    }

private:
    enum class State { Starting, Alive, Ending, Ended };

    void run()
    {
        try {
            static int argumentCount = 1;
            static char name[] = "korrin";
            static char *arguments[] = {name, nullptr};
            const QCoreApplication application(argumentCount, arguments);
            setState(State::Alive);
            std::unique_lock<std::mutex> lock(mutex);
            changed.wait(lock, [this] { return state == State::Ending; });
        } catch (const std::bad_alloc &) {
            // The end state tells: the constructor throws it again on the caller's thread.
        }
        setState(State::Ended);
    }

    void setState(State newState)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        state = newState;
        changed.notify_all();
    }

    std::mutex mutex;
    std::condition_variable changed;
    State state = State::Starting;
    std::thread thread;
};

// Never deleted at exit: the thread may then still be waiting for a look-up.
Holder *holder = nullptr;

} // namespace

void ApplicationObject::create()
{
    if (holder && holder->isEndRequested()) {
        delete holder;
        holder = nullptr;
    }
    if (!holder && !QCoreApplication::instance()) {
        if (!Descriptors::areLeft())
            throw std::bad_alloc();
        holder = new Holder;
    }
}

void ApplicationObject::destroy()
{
    if (!holder)
        return;
    holder->requestEnd();
    if (holder->waitForEnd(DESTRUCTION_WAIT)) {
        delete holder;
        holder = nullptr;
    }
}
