#ifndef KORRIN_TESTS_TOOLRUN_H
#define KORRIN_TESTS_TOOLRUN_H

#include <QByteArray>
#include <QStringList>

#include <functional>

namespace korrintest
{

struct ToolResult {
    int exitStatus = -1; ///< 128 + signal when a signal ended it
    QByteArray out;
    QByteArray err;
    qint64 elapsedMs = 0;
};

/// Runs the tool in @p directory.
ToolResult runTool(const QStringList &arguments, const QString &directory,
                   const QByteArray &input = QByteArray());

/// As runTool(), and sends the signal once @p ready says so.
ToolResult runToolAndSignal(const QStringList &arguments, const QString &directory, int signal,
                            const std::function<bool()> &ready);

/// Runs it on a pseudo-terminal, 120 columns wide. @return exit status and what it wrote to it
ToolResult runToolOnTerminal(const QStringList &arguments, const QString &directory);

} // namespace korrintest

#endif
