#include "debugcapture.h"

#include "korrin.h"

#include <QMutex>
#include <QMutexLocker>

namespace korrintest
{

namespace
{

QMutex mutex;
QStringList captured; // guarded by mutex

void capture(QtMsgType, const QMessageLogContext &, const QString &message)
{
    QMutexLocker locker(&mutex);
    captured << message;
}

} // namespace

DebugCapture::DebugCapture(bool enabled)
{
    captured.clear();
    previous = qInstallMessageHandler(capture);
    korrinEnableDebugOutput(enabled ? 1 : 0);
}

DebugCapture::~DebugCapture()
{
    korrinEnableDebugOutput(0);
    qInstallMessageHandler(previous);
}

QStringList DebugCapture::messages() const
{
    QMutexLocker locker(&mutex);
    return captured;
}

} // namespace korrintest
