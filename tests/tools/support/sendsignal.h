#ifndef KORRIN_TESTS_SENDSIGNAL_H
#define KORRIN_TESTS_SENDSIGNAL_H

#include <QtGlobal>

#include <csignal>

namespace korrintest
{

/// @param processId  as QProcess gives it: 0 when the process has ended, which for kill(2) would be
///                   the process group of the test itself
/// @return false when there is no such process
inline bool sendSignal(qint64 processId, int number)
{
    return processId > 0 && kill(static_cast<pid_t>(processId), number) == 0;
}

} // namespace korrintest

#endif
