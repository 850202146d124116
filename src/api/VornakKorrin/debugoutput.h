#ifndef KORRIN_DEBUGOUTPUT_H
#define KORRIN_DEBUGOUTPUT_H

#include "clouddefs.h"

#include <atomic>

/// Writes the library's debug messages to Qt's message handler, each ending in one blank.
///
/// Made on the stack where a message is to be written. The messages bypass QDebug, which would
/// escape quoted text, and the logging rules, which could silence them.
class DebugOutput
{
public:
    virtual ~DebugOutput() = default;

    /// Writes @p message between double quotes, with nothing inside it escaped.
    DebugOutput &operator<<(const QString &message);

    /// Writes @p text as it stands, without quotes.
    static void writeMarker(const char *text);

    /// Switches all debug output; set by korrinEnableDebugOutput, for the whole process.
    static std::atomic<bool> enabled;
};

#endif
