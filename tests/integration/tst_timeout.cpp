#include "debugcapture.h"
#include "servicetest.h"

#include <QElapsedTimer>
#include <QtTest>

#include <chrono>
#include <thread>

using namespace korrintest;

namespace
{
const QByteArray HEAD_OF_8 =
    "HTTP/1.1 200 OK\r\nContent-Type: application/zip\r\nContent-Length: 8\r\n\r\n";
}

/// Silence ends an exchange, slowness does not.
class tst_TimeOut : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void silenceTimesOut_data();
    void silenceTimesOut();
    void nextExchangeStartsAfresh();
    void uploadTimesOut();

    void slowAnswerDoesNotTimeOut_data();
    void slowAnswerDoesNotTimeOut();
    void bytesAtTheStartOfAnAnswerCount();
    void slowUploadDoesNotTimeOut();
    void stalledUploadTimesOut();

    void secondsWrapToAPositiveInterval();
    void secondsWrapToNoTimeOut();

private:
    QScopedPointer<DebugCapture> capture;
    QScopedPointer<ScriptedServer> server;
    const OpenLibrary library;
};

void tst_TimeOut::init()
{
    capture.reset(new DebugCapture(false));
    server.reset(new ScriptedServer);
}

void tst_TimeOut::cleanup()
{
    const QStringList messages = capture->messages();
    capture.reset();
    QCOMPARE(messages.join(QLatin1Char(0x0a)), QString());
}

void tst_TimeOut::silenceTimesOut_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("before the answer") << QByteArray();
    QTest::newRow("within the headers") << QByteArray("HTTP/1.1 200 OK\r\nContent-Ty");
    QTest::newRow("within the body") << HEAD_OF_8 + "1234";
    QTest::newRow("within a chunk")
        << QByteArray("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n8\r\n1234");
}

void tst_TimeOut::silenceTimesOut()
{
    QFETCH(QByteArray, bytes);
    server->setHandler([bytes](Connection &connection, const HttpRequest &) {
        connection.send(bytes);
        connection.stall();
    });
    Handle handle(baseParameters(server->url(), "remote_access"));
    handle.set("recv_timeout", "1");
    QElapsedTimer time;
    time.start();
    QCOMPARE(handle.checkEnable(), 0);
    const qint64 elapsedMs = time.elapsed();
    QCOMPARE(errorOf(handle), QByteArray("305|timeout occurred.|recv_timeout:1"));
    QVERIFY2(elapsedMs >= 900 && elapsedMs < 3000, qPrintable(QString::number(elapsedMs)));
}

void tst_TimeOut::nextExchangeStartsAfresh()
{
    server->setHandler([](Connection &connection, const HttpRequest &request) {
        connection.send(HEAD_OF_8 + "1234");
        if (request.connection == 0)
            connection.stall();
        connection.send("5678");
    });
    Handle handle(baseParameters(server->url(), "remote_access"));
    handle.set("recv_timeout", "1");
    QByteArray data;
    QCOMPARE(handle.recvData(&data), 0);
    QVERIFY(data.isNull()); // what has arrived is not handed out
    QCOMPARE(handle.recvData(&data), 1);
    QCOMPARE(data, QByteArray("12345678"));
    QCOMPARE(errorOf(handle), QByteArray("0||(data size):8"));
}

void tst_TimeOut::uploadTimesOut()
{
    server->setHandler([](Connection &connection, const HttpRequest &) { connection.stall(); });
    Handle handle(baseParameters(server->url(), "remote_access"));
    handle.set("recv_timeout", "1");
    QCOMPARE(handle.sendData("abc"), 0);
    QCOMPARE(errorOf(handle), QByteArray("305|timeout occurred.|recv_timeout:1"));
}

void tst_TimeOut::slowAnswerDoesNotTimeOut_data()
{
    QTest::addColumn<QByteArray>("head");
    QTest::addColumn<QByteArray>("piece");
    QTest::addColumn<int>("pieces");
    QTest::newRow("length given") << QByteArray("Content-Length: 11") << QByteArray("x") << 11;
    QTest::newRow("chunked") << QByteArray("Transfer-Encoding: chunked") << QByteArray("1\r\nx\r\n")
                             << 6;
}

void tst_TimeOut::slowAnswerDoesNotTimeOut()
{
    QFETCH(QByteArray, head);
    QFETCH(QByteArray, piece);
    QFETCH(int, pieces);
    // A byte every 300 ms.
    server->setHandler([head, piece, pieces](Connection &connection, const HttpRequest &) {
        connection.send("HTTP/1.1 200 OK\r\n" + head + "\r\n\r\n");
        connection.sendInPieces(piece.repeated(pieces), static_cast<int>(piece.size()), 300);
        if (piece.size() > 1)
            connection.send("0\r\n\r\n");
    });
    Handle handle(baseParameters(server->url(), "remote_access"));
    handle.set("recv_timeout", "1");
    QElapsedTimer time;
    time.start();
    QByteArray data;
    const int result = handle.recvData(&data);
    QCOMPARE(errorOf(handle), "0||(data size):" + QByteArray::number(pieces));
    QCOMPARE(result, 1);
    QVERIFY(time.elapsed() > (pieces - 1) * 290);
    QCOMPARE(data, QByteArray(pieces, 'x'));
}

void tst_TimeOut::bytesAtTheStartOfAnAnswerCount()
{
    // No progress is signalled in an answer's first 100 ms, but its bytes end the silence.
    server->setHandler([](Connection &connection, const HttpRequest &) {
        if (connection.waitForPeerClose(600))
            return;
        connection.send(HEAD_OF_8);
        connection.sendInPieces("123", 1, 25);
        if (!connection.waitForPeerClose(650))
            connection.send("45678");
    });
    Handle handle(baseParameters(server->url(), "remote_access"));
    handle.set("recv_timeout", "1");
    QByteArray data;
    const int result = handle.recvData(&data);
    QCOMPARE(errorOf(handle), QByteArray("0||(data size):8"));
    QCOMPARE(result, 1);
    QCOMPARE(data, QByteArray("12345678"));
}

void tst_TimeOut::slowUploadDoesNotTimeOut()
{
    const QByteArray body(32 * 1024 * 1024, 'u');
    server->setReceiveBufferBytes(64 * 1024);
    server->setReadsBody(false);
    server->setHandler([&body](Connection &connection, const HttpRequest &) {
        // Two and a half seconds for all of it; what the system buffers is read within one.
        const auto begin = std::chrono::steady_clock::now();
        qint64 received = 0;
        while (received < body.size()) {
            const QByteArray bytes = connection.readSome();
            if (bytes.isEmpty())
                return;
            received += bytes.size();
            std::this_thread::sleep_until(
                begin + std::chrono::microseconds(qint64(2500000) * received / body.size()));
        }
        connection.send(answer(200, "OK", "", ""));
    });
    Handle handle(baseParameters(server->url(), "s3_upload"));
    handle.set("recv_timeout", "1");
    QElapsedTimer time;
    time.start();
    const int result = handle.sendData(body);
    QCOMPARE(errorOf(handle), QByteArray("0||no error."));
    QCOMPARE(result, 1);
    QVERIFY(time.elapsed() > 2000);
}

void tst_TimeOut::stalledUploadTimesOut()
{
    server->setReceiveBufferBytes(64 * 1024);
    // Reads nothing of the body, until it is too late.
    server->setReadsBody(false);
    server->setHandler([](Connection &, const HttpRequest &) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    });
    Handle handle(baseParameters(server->url(), "s3_upload"));
    handle.set("recv_timeout", "1");
    QCOMPARE(handle.sendData(QByteArray(16 * 1024 * 1024, 'u')), 0);
    QCOMPARE(errorOf(handle), QByteArray("305|timeout occurred.|recv_timeout:1"));
}

void tst_TimeOut::secondsWrapToAPositiveInterval()
{
    // 4294968 * 1000 is 704 modulo 2 to the power of 32.
    server->setHandler([](Connection &connection, const HttpRequest &) { connection.stall(); });
    Handle handle(baseParameters(server->url(), "remote_access"));
    handle.set("recv_timeout", "4294968");
    QElapsedTimer time;
    time.start();
    QCOMPARE(handle.checkEnable(), 0);
    const qint64 elapsedMs = time.elapsed();
    QCOMPARE(errorOf(handle), QByteArray("305|timeout occurred.|recv_timeout:4294968"));
    QVERIFY2(elapsedMs >= 600 && elapsedMs < 2700, qPrintable(QString::number(elapsedMs)));
}

void tst_TimeOut::secondsWrapToNoTimeOut()
{
    // 2147484 * 1000 is negative in 32 bits.
    server->setHandler([](Connection &connection, const HttpRequest &) {
        if (!connection.waitForPeerClose(1500))
            connection.send(xmlAnswer("chkra"));
    });
    Handle handle(baseParameters(server->url(), "remote_access"));
    handle.set("recv_timeout", "2147484");
    QCOMPARE(handle.checkEnable(), 1);
}

QTEST_GUILESS_MAIN(tst_TimeOut)
#include "tst_timeout.moc"
