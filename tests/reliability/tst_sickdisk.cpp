#include "faultyhost.h"
#include "scriptedserver.h"
#include "scripthost.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>

using namespace korrintest;

namespace
{

const QByteArray BODY(10000, 'b');
constexpr int MOST_CALLS = 100;
constexpr int LONGEST_CALL_MS = 5000;

struct Fault {
    QByteArray call;
    QByteArray action;

    QByteArray at(int number) const
    {
        return call + ',' + QByteArray::number(number) + ',' + action;
    }
};

/// What a call left: its result, its error, and the file or request that it made.
struct Outcome {
    int result = -1;
    QByteArray number;
    QByteArray text;
    QByteArray detail;
};

} // namespace

Q_DECLARE_METATYPE(Fault)

/// korrinSendFile and korrinRecvFile on a disk that fails: at their first operation of a kind, at
/// the second, and so on until no operation is left to fail.
class tst_SickDisk : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void receiving_data() { addFaults({"open", "write", "any"}); }
    void receiving();
    void sending_data() { addFaults({"open", "read", "any"}); }
    void sending();

private:
    static void addFaults(const QList<QByteArray> &calls);
    static Outcome callWith(const Fault &fault, int number, const ScriptedServer &server,
                            const QTemporaryDir &directory, const QByteArray &mode,
                            int (ScriptHost::*call)(const QByteArray &, const QByteArray &));
};

void tst_SickDisk::addFaults(const QList<QByteArray> &calls)
{
    QTest::addColumn<Fault>("fault");
    const QList<QPair<QByteArray, int>> errors = {
        {"EIO", EIO}, {"ENOSPC", ENOSPC}, {"EACCES", EACCES}, {"EINTR", EINTR}};
    for (const QByteArray &call : calls) {
        for (const auto &error : errors) {
            const QByteArray name = call + ' ' + error.first;
            const QByteArray action = QByteArray::number(error.second);
            QTest::newRow((name + " once").constData()) << Fault{call, action};
            QTest::newRow((name + " for ever").constData()) << Fault{call, action + ",forever"};
        }
    }
    if (calls.contains("write")) {
        QTest::newRow("short write once") << Fault{"write", "short"};
        QTest::newRow("short write for ever") << Fault{"write", "short,forever"};
    }
}

/// Lets a host make a call on a disk that fails, and then another one.
Outcome tst_SickDisk::callWith(const Fault &fault, int number, const ScriptedServer &server,
                               const QTemporaryDir &directory, const QByteArray &mode,
                               int (ScriptHost::*call)(const QByteArray &, const QByteArray &))
{
    ScriptHost host(directory.path(), faultEnvironment(directory.path(), fault.at(number)));
    host.call("open");
    const QByteArray handle = host.create();
    host.set(handle, "server_url", server.url());
    host.set(handle, "mode", mode);
    host.set(handle, "product_no", "PN");
    QElapsedTimer timer;
    timer.start();
    Outcome outcome;
    outcome.result = (host.*call)(handle, directory.filePath(QStringLiteral("file")).toLocal8Bit());
    outcome.number = host.get(handle, "error_no");
    outcome.text = host.get(handle, "error_text");
    outcome.detail = host.get(handle, "error_detail");
    if (timer.elapsed() > LONGEST_CALL_MS || host.call("version").bytes != "R7204B")
        outcome.result = -1;
    return outcome;
}

void tst_SickDisk::receiving()
{
    QFETCH(Fault, fault);
    ScriptedServer server([](Connection &connection, const HttpRequest &) {
        connection.send(answer(200, "OK", "application/zip", BODY));
    });
    int number = 0;
    for (bool hasFailed = true; hasFailed && number < MOST_CALLS;) {
        const QTemporaryDir directory;
        const Outcome outcome =
            callWith(fault, ++number, server, directory, "remote_access", &ScriptHost::recvFile);
        hasFailed = hasStruck(directory.path());
        QFile file(directory.filePath(QStringLiteral("file")));
        const QByteArray seen = fault.at(number) + ": " + QByteArray::number(outcome.result) + ' '
            + outcome.number + '|' + outcome.text + '|' + outcome.detail;
        if (outcome.result == 1) {
            QVERIFY2(file.open(QIODevice::ReadOnly) && file.readAll() == BODY, seen.constData());
            continue;
        }
        QVERIFY2(hasFailed && outcome.result == 0, seen.constData());
        if (outcome.number == "402") {
            QCOMPARE(outcome.text, QByteArray("file open failed."));
            QCOMPARE(outcome.detail, "filePath:" + file.fileName().toLocal8Bit());
        } else {
            QCOMPARE(outcome.number, QByteArray("403"));
            QCOMPARE(outcome.text, QByteArray("file write failed."));
            QVERIFY2(outcome.detail.startsWith("(file size):") && outcome.detail.endsWith("/10000"),
                     seen.constData());
        }
        // What cannot even be removed stays.
        const bool mayStay = fault.call == "any" && fault.action.endsWith("forever");
        QVERIFY2(!file.exists() || mayStay, seen.constData());
    }
    QVERIFY2(number > 1 && number < MOST_CALLS, QByteArray::number(number).constData());
}

void tst_SickDisk::sending()
{
    QFETCH(Fault, fault);
    ScriptedServer server([](Connection &connection, const HttpRequest &) {
        connection.send(answer(200, "OK", QByteArray(), ""));
    });
    int number = 0;
    int requests = 0;
    for (bool hasFailed = true; hasFailed && number < MOST_CALLS;) {
        const QTemporaryDir directory;
        QFile file(directory.filePath(QStringLiteral("file")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(BODY), qint64(BODY.size()));
        file.close();
        const Outcome outcome =
            callWith(fault, ++number, server, directory, "s3_upload", &ScriptHost::sendFile);
        hasFailed = hasStruck(directory.path());
        const QByteArray seen = fault.at(number) + ": " + QByteArray::number(outcome.result) + ' '
            + outcome.number + '|' + outcome.text + '|' + outcome.detail;
        if (outcome.result == 0) {
            QVERIFY2(hasFailed && fault.call != "read", seen.constData());
            QCOMPARE(outcome.number, QByteArray("402"));
            QCOMPARE(outcome.text, QByteArray("file open failed."));
            QCOMPARE(outcome.detail, "filePath:" + file.fileName().toLocal8Bit());
            QCOMPARE(server.requestCount(), requests);
            continue;
        }
        // Errors of reading are not told: what could be read is sent.
        QVERIFY2(outcome.result == 1, seen.constData());
        QCOMPARE(server.requestCount(), ++requests);
        const QByteArray sent = server.requests().constLast().body;
        QVERIFY2(BODY.startsWith(sent), seen.constData());
        const bool isWhole = !hasFailed || fault.action == QByteArray::number(EINTR);
        QVERIFY2(!isWhole || sent == BODY, seen.constData());
    }
    QVERIFY2(number > 1 && number < MOST_CALLS, QByteArray::number(number).constData());
}

QTEST_GUILESS_MAIN(tst_SickDisk)
#include "tst_sickdisk.moc"
