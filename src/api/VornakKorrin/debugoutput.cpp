#include "debugoutput.h"

#include <QLoggingCategory>

#include <mutex>

std::atomic<bool> DebugOutput::enabled{false};

namespace
{

/// While one of these lives, no logging rule of the environment or the system drops a debug
/// message: qt_message_output asks the default category, like qDebug().
class RulesOverruled
{
public:
    RulesOverruled()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (count++ == 0) {
            wasEnabled = category()->isDebugEnabled();
            category()->setEnabled(QtDebugMsg, true);
        }
    }
    ~RulesOverruled()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (--count == 0)
            category()->setEnabled(QtDebugMsg, wasEnabled);
    }
    Q_DISABLE_COPY(RulesOverruled)

private:
    static QLoggingCategory *category() { return QLoggingCategory::defaultCategory(); }

    static std::mutex mutex;
    static int count;
    static bool wasEnabled;
};

std::mutex RulesOverruled::mutex;
int RulesOverruled::count = 0;
bool RulesOverruled::wasEnabled = true;

void write(const QString &message)
{
    const RulesOverruled overruled;
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
