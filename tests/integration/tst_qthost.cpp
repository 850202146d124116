#include "korrinhost.h"
#include "scriptedserver.h"

#include <QElapsedTimer>
#include <QPointer>
#include <QSemaphore>
#include <QTimer>
#include <QtTest>

#include <atomic>
#include <functional>

using namespace korrintest;

namespace
{

// Far below the calls' time-out of a minute, and far above what a cancelled call needs.
constexpr int PROMPT_MS = 2000;

Parameters patientParameters(const QByteArray &url, const QByteArray &mode)
{
    Parameters parameters = baseParameters(url, mode);
    parameters << Parameters::value_type("recv_timeout", "60")
               << Parameters::value_type("cloud_log_file_max_size", "0");
    return parameters;
}

} // namespace

/// A host with a QCoreApplication and an event loop of its own.
class tst_QtHost : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void hostsApplicationObjectIsLeftAlone();
    void callsWorkOnAThreadWithoutAnEventLoop();
    void hostsTimersGoOnDuringACall();
    void callInsideACall();
    void disposalInsideACall_data();
    void disposalInsideACall();
    void disposalInsideTheLogOfACall();
    void closingInsideACall();
    void closingAndReopeningInsideACall();
    void callFromInsideTheHostsLoop();
    void endOfTheHostsLoopLetsACallFinish_data();
    void endOfTheHostsLoopLetsACallFinish();
    void busyHostLeavesTheBodyWithTheServer();

private:
    /// Does something inside the nested event loop, as soon as the server has @p requests.
    void whenRequested(int requests, const std::function<void()> &action);

    QScopedPointer<ScriptedServer> server;
    QScopedPointer<QTimer> poll;
    QElapsedTimer sinceAction;
};

void tst_QtHost::init()
{
    server.reset(new ScriptedServer);
    QCOMPARE(korrinOpen(), 1);
}

void tst_QtHost::cleanup()
{
    poll.reset();
    korrinClose();
    server.reset();
}

void tst_QtHost::whenRequested(int requests, const std::function<void()> &action)
{
    poll.reset(new QTimer);
    connect(poll.data(), &QTimer::timeout, this, [=] {
        if (server->requestCount() < requests)
            return;
        poll->stop();
        sinceAction.start();
        action();
    });
    poll->start(1);
}

void tst_QtHost::hostsApplicationObjectIsLeftAlone()
{
    korrinClose();
    const QPointer<QCoreApplication> application = QCoreApplication::instance();
    QVERIFY(application);
    QSignalSpy aboutToQuit(application, &QCoreApplication::aboutToQuit);
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(korrinOpen(), 1);
        QCOMPARE(QCoreApplication::instance(), application.data());
        Handle handle(baseParameters(server->url(), "remote_access"));
        QCOMPARE(handle.checkEnable(), 1);
        QCOMPARE(korrinClose(), 1);
        QVERIFY(application);
        QCOMPARE(QCoreApplication::instance(), application.data());
        QCOMPARE(application->thread(), QThread::currentThread());
    }
    QCOMPARE(aboutToQuit.count(), 0);
}

void tst_QtHost::callsWorkOnAThreadWithoutAnEventLoop()
{
    int result = 0;
    const QScopedPointer<QThread> thread(QThread::create([&] {
        Handle handle(baseParameters(server->url(), "update"));
        result = handle.checkEnable();
    }));
    thread->start();
    QVERIFY(thread->wait(20000));
    QCOMPARE(result, 1);
}

void tst_QtHost::hostsTimersGoOnDuringACall()
{
    constexpr int TICKS = 5;
    std::atomic<int> ticks{0};
    server->setHandler([&ticks](Connection &connection, const HttpRequest &request) {
        // The answer comes only if the host's timer runs meanwhile.
        while (ticks < TICKS && !connection.waitForPeerClose(1)) { }
        connection.send(xmlAnswer(requestedIs(request)));
    });
    QTimer timer;
    connect(&timer, &QTimer::timeout, this, [&ticks] { ++ticks; });
    timer.start(1);
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.checkEnable(), 1);
    QVERIFY(ticks >= TICKS);
}

void tst_QtHost::callInsideACall()
{
    std::atomic<bool> innerReturned{false};
    server->setHandler([&innerReturned](Connection &connection, const HttpRequest &request) {
        const bool isOuter = connection.index == 0;
        while (isOuter && !innerReturned && !connection.waitForPeerClose(1)) { }
        connection.send(xmlAnswer(requestedIs(request), "1", "0", isOuter ? "outer" : "inner"));
    });
    Handle outer(baseParameters(server->url(), "remote_access"));
    Handle inner(baseParameters(server->url(), "remote_access"));
    int innerResult = 0;
    whenRequested(1, [&] {
        innerResult = inner.checkEnable();
        innerReturned = true;
    });
    QCOMPARE(outer.checkEnable(), 1);
    QCOMPARE(innerResult, 1);
    QCOMPARE(outer.get("message"), QByteArray("outer"));
    QCOMPARE(inner.get("message"), QByteArray("inner"));
}

void tst_QtHost::disposalInsideACall_data()
{
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<QByteArray>("answer");
    QTest::newRow("silence") << QByteArray("remote_access") << QByteArray();
    QTest::newRow("silence, with log") << QByteArray("update") << QByteArray();
    QTest::newRow("inside the head") << QByteArray("update") << QByteArray("HTTP/1.1 200 OK\r\nCo");
    QTest::newRow("inside the body")
        << QByteArray("update") << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n<r>");
}

void tst_QtHost::disposalInsideACall()
{
    QFETCH(QByteArray, mode);
    QFETCH(QByteArray, answer);
    server->setHandler([answer](Connection &connection, const HttpRequest &) {
        connection.send(answer);
        connection.stall();
    });
    Handle handle(patientParameters(server->url(), mode));
    int disposed = 0;
    whenRequested(1, [&] { disposed = korrinDisposeHandle(handle.get()); });
    QCOMPARE(handle.checkEnable(), 0);
    QVERIFY(sinceAction.elapsed() < PROMPT_MS);
    QCOMPARE(disposed, 1);
    QCOMPARE(handle.get("mode"), QByteArray());
    QCOMPARE(korrinDisposeHandle(handle.get()), 0);
    QCOMPARE(server->requestCount(), 1);
}

void tst_QtHost::disposalInsideTheLogOfACall()
{
    server->setHandler([](Connection &connection, const HttpRequest &request) {
        if (requestedIs(request) == "cloudlog")
            connection.stall();
        else
            connection.send(xmlAnswer(requestedIs(request)));
    });
    Handle handle(patientParameters(server->url(), "update"));
    int disposed = 0;
    whenRequested(2, [&] { disposed = korrinDisposeHandle(handle.get()); });
    handle.checkEnable();
    QVERIFY(sinceAction.elapsed() < PROMPT_MS);
    QCOMPARE(disposed, 1);
}

void tst_QtHost::closingInsideACall()
{
    server->setHandler([](Connection &connection, const HttpRequest &) { connection.stall(); });
    Handle handle(patientParameters(server->url(), "update"));
    int closed = 0;
    whenRequested(1, [&] { closed = korrinClose(); });
    QCOMPARE(handle.checkEnable(), 0);
    QVERIFY(sinceAction.elapsed() < PROMPT_MS);
    QCOMPARE(closed, 1);
    QVERIFY(!korrinCreateHandle());
    QCOMPARE(korrinClose(), 1);
    QCOMPARE(korrinOpen(), 1);
    QCOMPARE(korrinDisposeHandle(handle.get()), 0);
}

void tst_QtHost::closingAndReopeningInsideACall()
{
    server->setHandler([](Connection &connection, const HttpRequest &request) {
        if (connection.index == 0)
            connection.stall();
        else
            connection.send(xmlAnswer(requestedIs(request)));
    });
    Handle handle(patientParameters(server->url(), "update"));
    int innerResult = 0;
    whenRequested(1, [&] {
        korrinClose();
        korrinOpen();
        Handle inner(baseParameters(server->url(), "remote_access"));
        innerResult = inner.checkEnable();
    });
    QCOMPARE(handle.checkEnable(), 0);
    QVERIFY(sinceAction.elapsed() < PROMPT_MS);
    QCOMPARE(innerResult, 1);
    Handle next(baseParameters(server->url(), "remote_access"));
    QCOMPARE(next.checkEnable(), 1);
}

/// A host that calls from inside its own event loop gets back to it.
void tst_QtHost::callFromInsideTheHostsLoop()
{
    QEventLoop loop;
    int result = 0;
    Handle handle(baseParameters(server->url(), "remote_access"));
    QTimer::singleShot(0, &loop, [&] {
        result = handle.checkEnable();
        loop.quit();
    });
    loop.exec();
    QCOMPARE(result, 1);
}

void tst_QtHost::endOfTheHostsLoopLetsACallFinish_data()
{
    QTest::addColumn<bool>("during");
    QTest::newRow("before the call") << false;
    QTest::newRow("during the call") << true;
}

/// QThread::quit and QCoreApplication::quit end every event loop of a thread.
void tst_QtHost::endOfTheHostsLoopLetsACallFinish()
{
    QFETCH(bool, during);
    std::atomic<bool> hasQuit{false};
    server->setHandler([&hasQuit](Connection &connection, const HttpRequest &request) {
        while (!hasQuit && !connection.waitForPeerClose(1)) { }
        connection.send(xmlAnswer(requestedIs(request)));
    });
    QThread thread;
    QObject worker;
    worker.moveToThread(&thread);
    const auto quit = [&] {
        thread.quit();
        hasQuit = true;
    };
    int result = 0;
    QByteArray received;
    int receiveResult = 0;
    connect(&thread, &QThread::started, &worker, [&] {
        QTimer poll;
        connect(&poll, &QTimer::timeout, &worker, [&] {
            if (server->requestCount() > 0)
                quit();
        });
        if (during)
            poll.start(1);
        else
            quit();
        Handle handle(baseParameters(server->url(), "remote_access"));
        result = handle.checkEnable();
        receiveResult = handle.recvData(&received);
    });
    thread.start();
    QVERIFY(thread.wait(20000));
    QCOMPARE(result, 1);
    QCOMPARE(receiveResult, 1);
    QVERIFY(!received.isEmpty());
}

/// What arrives while the host's thread does something else must not pile up in memory.
void tst_QtHost::busyHostLeavesTheBodyWithTheServer()
{
    constexpr int PIECES = 64;
    const QByteArray piece(1024 * 1024, 'x');
    QSemaphore hostIsBusy;
    std::atomic<int> sent{0};
    server->setHandler([&](Connection &connection, const HttpRequest &) {
        hostIsBusy.acquire();
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: "
                        + QByteArray::number(PIECES * piece.size()) + "\r\n\r\n");
        while (sent < PIECES && connection.send(piece))
            ++sent;
    });
    int sentWhileBusy = 0;
    whenRequested(1, [&] {
        hostIsBusy.release();
        do {
            sentWhileBusy = sent;
            QThread::msleep(200);
        } while (sentWhileBusy < sent);
    });
    Handle handle(baseParameters(server->url(), "remote_access"));
    QByteArray received;
    QCOMPARE(handle.recvData(&received), 1);
    QCOMPARE(received.size(), PIECES * piece.size());
    // The rest is what the kernel's buffers hold.
    QVERIFY2(sentWhileBusy < PIECES / 2, QByteArray::number(sentWhileBusy).constData());
}

QTEST_GUILESS_MAIN(tst_QtHost)
#include "tst_qthost.moc"
