#ifndef KORRIN_TESTS_DEBUGCAPTURE_H
#define KORRIN_TESTS_DEBUGCAPTURE_H

#include <QStringList>

namespace korrintest
{

/// Switches the library's debug output and collects all messages of the process for a scope.
class DebugCapture
{
public:
    explicit DebugCapture(bool enabled = true);
    ~DebugCapture();
    DebugCapture(const DebugCapture &) = delete;
    DebugCapture &operator=(const DebugCapture &) = delete;

    QStringList messages() const;

private:
    QtMessageHandler previous;
};

} // namespace korrintest

#endif
