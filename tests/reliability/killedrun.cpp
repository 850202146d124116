#include "killedrun.h"

#include "device.h"
#include "logcloud.h"

#include <QDir>

namespace korrintest
{

namespace
{

struct Call {
    QByteArray product;
    int records; ///< that the server takes meanwhile; negative: all
};

/// Three records are kept, then one of them goes out, then all.
const QList<Call> HISTORY = {{"P1", 0}, {"P2", 0},  {"P3", 0}, {"P4", 1},
                             {"P5", 0}, {"P6", -1}, {"P7", -1}};

/// @return the products of the calls that returned
QList<QByteArray> runHistory(Device &device, LogCloud &cloud)
{
    QList<QByteArray> returned;
    device.mark();
    for (const Call &call : HISTORY) {
        cloud.take(call.records);
        if (!device.call(call.product))
            break;
        returned << call.product;
    }
    return returned;
}

/// @param safe      the products whose records must not be lost
/// @param underWay  the product of the record that may have been posted while the kill came
QByteArray complaintAbout(const QHash<QByteArray, int> &taken, const QList<QByteArray> &safe,
                          const QByteArray &underWay)
{
    for (const QByteArray &product : safe) {
        if (taken.value(product) == 0)
            return product + " is lost";
    }
    for (auto it = taken.begin(); it != taken.end(); ++it) {
        if (it.value() > (it.key() == underWay ? 2 : 1))
            return it.key() + " arrived " + QByteArray::number(it.value()) + " times";
    }
    return {};
}

QString tempFileIn(const QString &directory)
{
    return directory + QStringLiteral("/cloudlog.txt_");
}

} // namespace

void leaveTemporaryFile(const QString &directory)
{
    LogCloud away;
    away.take(0);
    Device device(away, directory);
    if (!device.call("T1")
        || !QFile::rename(directory + QStringLiteral("/cloudlog.txt"), tempFileIn(directory)))
        qFatal("no temporary file can be left");
}

KilledRun killAndRestart(const QString &directory, const QHash<QString, QString> &environment,
                         const QStringList &runner)
{
    LogCloud before;
    QList<QByteArray> safe;
    if (QFile::exists(tempFileIn(directory)))
        safe << "T1";
    QList<QByteArray> returned;
    {
        Device device(before, directory, environment, runner);
        returned = runHistory(device, before);
    }
    before.stop();
    const bool survived = returned.size() == HISTORY.size();

    LogCloud after;
    Device next(after, directory);
    // What was left in a temporary file comes a call later than what is kept in the log.
    after.take(0);
    const bool isKept = next.call("next");
    after.take(-1);
    if (!isKept || !next.call("later") || !next.call("last"))
        return {survived, "the next device fails"};

    QHash<QByteArray, int> taken = before.taken();
    const QHash<QByteArray, int> takenAfter = after.taken();
    for (auto it = takenAfter.begin(); it != takenAfter.end(); ++it)
        taken[it.key()] += it.value();
    const QByteArray complaint =
        complaintAbout(taken, safe + returned, survived ? QByteArray() : before.lastTaken());
    const QList<QByteArray> broken = before.broken() + after.broken();
    if (!complaint.isEmpty() || !broken.isEmpty())
        return {survived, complaint.isEmpty() ? broken.first() : complaint};
    const QStringList left = QDir(directory).entryList(QDir::Files);
    return {survived, left.isEmpty() ? QByteArray() : "left: " + left.join(u' ').toUtf8()};
}

} // namespace korrintest
