#ifndef KORRIN_TESTS_KILLEDRUN_H
#define KORRIN_TESTS_KILLEDRUN_H

#include <QByteArray>
#include <QHash>
#include <QStringList>

namespace korrintest
{

/// What came of a device that was killed while it kept and sent records.
struct KilledRun {
    bool survived = false; ///< not killed after all
    QByteArray complaint;  ///< empty when each record is where it is to be
};

/// The record of product "T1" waits in the temporary file, as an earlier, interrupted run leaves
/// it.
void leaveTemporaryFile(const QString &directory);

/// Lets a device that the environment or the runner kills keep and send records in a directory
/// without a log, and then another one, unharmed, send what is left there.
KilledRun killAndRestart(const QString &directory, const QHash<QString, QString> &environment,
                         const QStringList &runner = {});

} // namespace korrintest

#endif
