#ifndef KORRIN_TESTS_LOGCLOUD_H
#define KORRIN_TESTS_LOGCLOUD_H

#include "scriptedserver.h"

#include <QHash>

#include <mutex>

namespace korrintest
{

/// A server that grants every check, takes log records while it may, and remembers which.
class LogCloud
{
public:
    LogCloud();

    QByteArray url() const { return server.url(); }
    /// Ends all connections, and with them what is still being taken.
    void stop() { server.stop(); }
    /// Takes so many of the records to come, and breaks off the connections of the others;
    /// negative: takes all.
    void take(int records);
    /// Takes records in turns: so many are taken, then so many are not.
    void takeInTurns(int records);

    /// How often the record of each product was taken.
    QHash<QByteArray, int> taken() const;
    /// The product of the record taken last since take().
    QByteArray lastTaken() const;
    /// Taken records that are not whole.
    QList<QByteArray> broken() const;

private:
    void serve(Connection &connection, const HttpRequest &request);
    bool mayTake();

    mutable std::mutex mutex;
    int left = -1;
    int turn = 0;
    int posts = 0;
    QHash<QByteArray, int> takenByProduct;
    QByteArray last;
    QList<QByteArray> brokenRecords;
    ScriptedServer server;
};

} // namespace korrintest

#endif
