#include "debugoutput.h"

#include <QtGlobal>

std::atomic<bool> DebugOutput::enabled{false};

namespace
{

void write(const QString &message)
{
    qt_message_output(QtDebugMsg, QMessageLogContext(), message);
}

} // namespace

DebugOutput &DebugOutput::operator<<(const QString &message)
{
    if (enabled)
        write(QLatin1Char('"') + message + QLatin1String("\" "));
    return *this;
}

void DebugOutput::writeMarker(const char *text)
{
    if (enabled)
        write(QLatin1String(text) + QLatin1Char(' '));
}
