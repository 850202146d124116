#ifndef KORRIN_TESTS_RUNNINGCALL_H
#define KORRIN_TESTS_RUNNINGCALL_H

#include "korrinhost.h"

#include <chrono>
#include <thread>

namespace korrintest
{

// A call that is not cancelled waits for a minute. A single one may meet a machine that is busy.
constexpr qint64 PROMPT_MS = 5000;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr qint64 LATE_MS = 1000; // a sanitizer slows all of it down
#else
constexpr qint64 LATE_MS = 100;
#endif

/// How long cancelled calls took.
class Delays
{
public:
    void add(qint64 ms)
    {
        ++count;
        late += ms >= LATE_MS;
        worst = qMax(worst, ms);
    }
    /// Of many: promptly, but for the few that met a busy machine.
    bool areFine() const { return late * 50 <= count && worst < PROMPT_MS; }
    /// Of a few, each of which may meet a busy machine: most of them promptly.
    bool areMostlyPrompt() const { return late * 2 < count && worst < PROMPT_MS; }
    QByteArray text() const
    {
        return QByteArray::number(late) + " of " + QByteArray::number(count)
            + " late, the worst by " + QByteArray::number(worst) + " ms";
    }

private:
    int count = 0;
    int late = 0;
    qint64 worst = 0;
};

/// A call in a thread of its own, and when it returned.
class RunningCall
{
public:
    template <typename Call>
    explicit RunningCall(Call call)
    {
        thread = std::thread([this, call] {
            result = call();
            returned = std::chrono::steady_clock::now();
        });
    }

    /// Milliseconds from @p since to the return of the call.
    qint64 join(std::chrono::steady_clock::time_point since)
    {
        thread.join();
        return std::chrono::duration_cast<std::chrono::milliseconds>(returned - since).count();
    }

    int result = -1;

private:
    std::chrono::steady_clock::time_point returned;
    std::thread thread;
};

/// Of an exchange that, left alone, waits for a minute.
inline Parameters patientParameters(const QByteArray &url, const QByteArray &mode)
{
    Parameters parameters = baseParameters(url, mode);
    parameters += Parameters{{"recv_timeout", "60"}, {"product_name", "disposed"}};
    return parameters;
}

} // namespace korrintest

#endif
