#pragma once

#include "mask.h"
#include "progress.h"

#include <optional>
#include <string>

/// What becomes of the library's debug messages and Qt's warnings while it lives: a trace with time
/// stamps, a progress bar, or nothing. One at a time.
class Messages
{
public:
    /// @param traces  print them all, with secrets hidden
    Messages(const Mask &mask, bool traces);
    ~Messages();
    Messages(const Messages &) = delete;
    Messages &operator=(const Messages &) = delete;

    /// Shows the progress of the exchange to come, until its log is posted.
    void showProgress(bool sends);
    void endProgress();

    /// From any thread.
    void take(const std::string &message);

private:
    const Mask &mask;
    const bool traces;
    std::optional<Progress> progress;
};
