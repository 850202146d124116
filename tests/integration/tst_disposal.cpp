#include "processusage.h"
#include "runningcall.h"
#include "scriptedserver.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

#include <atomic>
#include <chrono>
#include <functional>
#include <random>
#include <thread>

using namespace korrintest;

/// Handles that are disposed of, and libraries that are closed, while a call runs.
class tst_Disposal : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup() { korrinClose(); }

    void disposalEndsTheCall_data();
    void disposalEndsTheCall();
    void disposalAtRandomMoments();
    void closingEndsAllCalls();
    void closingAtRandomMoments();
    void disposalFromTheNestedLoop();
    void closingFromTheNestedLoop();
    void recordBeingPostedIsKept();
    void addressIsNotReusedWhileTheCallRuns();
    void eightThreadsAtOnce();
    void hostsApplicationObjectIsNeverTouched();

private:
    /// Sends @p bytes and then nothing more.
    void stallAfter(const QByteArray &bytes);

    QScopedPointer<ScriptedServer> server;
    ProcessUsage usageBefore;
};

void tst_Disposal::initTestCase()
{
    init();
    Handle(baseParameters(server->url(), "update")).checkEnable();
    cleanup();
    server.reset();
    usageBefore = ProcessUsage::now();
}

/// Nothing is left of the calls that were cut off.
void tst_Disposal::cleanupTestCase()
{
    server.reset();
    QTRY_COMPARE(ProcessUsage::now().threads, usageBefore.threads);
    QTRY_COMPARE(ProcessUsage::now().descriptors, usageBefore.descriptors);
}

void tst_Disposal::init()
{
    server.reset(new ScriptedServer);
    korrinOpen();
}

void tst_Disposal::stallAfter(const QByteArray &bytes)
{
    server->setHandler([bytes](Connection &connection, const HttpRequest &) {
        connection.send(bytes);
        connection.stall();
    });
}

void tst_Disposal::disposalEndsTheCall_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("waiting for the answer") << QByteArray();
    QTest::newRow("receiving the headers") << QByteArray("HTTP/1.1 200 OK\r\nContent-");
    QTest::newRow("receiving the body")
        << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nabc");
}

void tst_Disposal::disposalEndsTheCall()
{
    QFETCH(QByteArray, bytes);
    stallAfter(bytes);
    const std::function<int(void *)> calls[] = {
        [](void *handle) { return korrinCheckEnable(handle); },
        [](void *handle) { return korrinSendData(handle, "x", 1); },
        [](void *handle) { return korrinRecvFile(handle, "never"); },
        [](void *handle) {
            const char *data = nullptr;
            int size = 0;
            return korrinRecvData(handle, &data, &size);
        },
    };
    Delays delays;
    for (const auto &call : calls) {
        server->clear();
        Handle handle(patientParameters(server->url(), "remote_access"));
        RunningCall running([&] { return call(handle.get()); });
        QVERIFY(server->waitForRequests(1));
        const auto start = std::chrono::steady_clock::now();
        QCOMPARE(korrinDisposeHandle(handle.get()), 1);
        delays.add(running.join(start));
        QCOMPARE(running.result, 0);
        QCOMPARE(korrinDisposeHandle(handle.get()), 0);
    }
    QVERIFY2(delays.areMostlyPrompt(), delays.text().constData());
    QVERIFY(!QFile::exists(QStringLiteral("never")));
}

void tst_Disposal::disposalAtRandomMoments()
{
    std::minstd_rand random(4711);
    server->setHandler([](Connection &connection, const HttpRequest &request) {
        const QByteArray is = requestedIs(request);
        // Every second answer comes, and the log's posts with it.
        if (connection.index % 2 == 0 || is == "cloudlog")
            connection.send(xmlAnswer(is));
        connection.stall();
    });
    Delays delays;
    for (int i = 0; i < 1000; ++i) {
        Handle handle(patientParameters(server->url(), i % 2 ? "update" : "remote_access"));
        RunningCall running([&] { return korrinCheckEnable(handle.get()); });
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 4000));
        const auto start = std::chrono::steady_clock::now();
        QCOMPARE(korrinDisposeHandle(handle.get()), 1);
        delays.add(running.join(start));
        QVERIFY(running.result == 0 || running.result == 1);
    }
    QVERIFY2(delays.areFine(), delays.text().constData());
}

void tst_Disposal::closingEndsAllCalls()
{
    stallAfter("");
    Handle first(patientParameters(server->url(), "remote_access"));
    Handle second(patientParameters(server->url(), "update"));
    RunningCall firstCall([&] { return first.checkEnable(); });
    RunningCall secondCall([&] { return second.checkEnable(); });
    QVERIFY(server->waitForRequests(2));
    const auto start = std::chrono::steady_clock::now();
    QCOMPARE(korrinClose(), 1);
    QVERIFY(firstCall.join(start) < PROMPT_MS);
    QVERIFY(secondCall.join(start) < PROMPT_MS);
    QCOMPARE(firstCall.result, 0);
    QCOMPARE(secondCall.result, 0);
    QVERIFY(!korrinCreateHandle());
}

void tst_Disposal::closingAtRandomMoments()
{
    std::minstd_rand random(42);
    stallAfter("");
    Delays delays;
    for (int i = 0; i < 100; ++i) {
        korrinOpen();
        Handle handle(patientParameters(server->url(), "update"));
        RunningCall running([&] { return handle.checkEnable(); });
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 4000));
        const auto start = std::chrono::steady_clock::now();
        QCOMPARE(korrinClose(), 1);
        delays.add(running.join(start));
        QCOMPARE(running.result, 0);
    }
    QVERIFY2(delays.areFine(), delays.text().constData());
}

void tst_Disposal::disposalFromTheNestedLoop()
{
    stallAfter("");
    Handle handle(patientParameters(server->url(), "update"));
    int disposed = -1;
    QElapsedTimer time;
    QTimer::singleShot(50, this, [&] {
        time.start();
        disposed = korrinDisposeHandle(handle.get());
    });
    QCOMPARE(handle.checkEnable(), 0);
    QVERIFY(time.elapsed() < PROMPT_MS);
    QCOMPARE(disposed, 1);
}

void tst_Disposal::closingFromTheNestedLoop()
{
    stallAfter("");
    Handle handle(patientParameters(server->url(), "update"));
    int closed = -1;
    QElapsedTimer time;
    QTimer::singleShot(50, this, [&] {
        time.start();
        closed = korrinClose();
    });
    QCOMPARE(handle.checkEnable(), 0);
    QVERIFY(time.elapsed() < PROMPT_MS);
    QCOMPARE(closed, 1);
    QVERIFY(!korrinCreateHandle());
    QCOMPARE(korrinOpen(), 1);
    QCOMPARE(korrinDisposeHandle(handle.get()), 0);
    Handle next(patientParameters(server->url(), "remote_access"));
    server->setHandler(
        [](Connection &connection, const HttpRequest &) { connection.send(xmlAnswer("chkra")); });
    QCOMPARE(next.checkEnable(), 1);
}

void tst_Disposal::recordBeingPostedIsKept()
{
    QTemporaryDir directory;
    const QByteArray kept = "is=cloudlog&rec=1\nis=cloudlog&rec=2\n";
    QFile file(directory.filePath(QStringLiteral("cloudlog.txt")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(kept);
    file.close();
    // The service call itself ends in the 200s, which must not drop the records.
    server->setHandler([](Connection &connection, const HttpRequest &request) {
        if (requestedIs(request) == "chkud")
            connection.send(xmlAnswer("chkud", "0"));
        else
            connection.stall();
    });
    Handle handle(patientParameters(server->url(), "update"));
    handle.set("cloud_log_file_save_dir", QFile::encodeName(directory.path()));
    handle.set("cloud_log_file_max_size", "");
    RunningCall running([&] { return handle.checkEnable(); });
    QVERIFY(server->waitForRequests(2));
    const auto start = std::chrono::steady_clock::now();
    korrinDisposeHandle(handle.get());
    const qint64 elapsed = running.join(start);
    QVERIFY2(elapsed < PROMPT_MS, qPrintable(QString::number(elapsed)));

    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray content = file.readAll();
    QVERIFY(content.startsWith(kept));
    QCOMPARE(content.count('\n'), 3);
    QVERIFY(content.contains("fn=korrinCheckEnable"));
}

void tst_Disposal::addressIsNotReusedWhileTheCallRuns()
{
    stallAfter("");
    Handle handle(patientParameters(server->url(), "remote_access"));
    RunningCall running([&] { return handle.checkEnable(); });
    QVERIFY(server->waitForRequests(1));
    korrinDisposeHandle(handle.get());
    QList<void *> others;
    for (int i = 0; i < 100; ++i)
        others << korrinCreateHandle();
    running.join(std::chrono::steady_clock::now());
    for (void *other : others) {
        QCOMPARE(korrinGetParameter(other, "error_no"), "0");
        QCOMPARE(korrinGetParameter(other, "func_name"), "korrinCreateHandle");
    }
}

void tst_Disposal::eightThreadsAtOnce()
{
    QList<std::thread *> threads;
    std::atomic<int> succeeded{0};
    for (int i = 0; i < 8; ++i) {
        threads << new std::thread([this, i, &succeeded] {
            Handle handle(baseParameters(server->url(), i % 2 ? "update" : "remote_access"));
            const QByteArray number = "PN" + QByteArray::number(i);
            handle.set("product_no", number);
            for (int call = 0; call < 20; ++call) {
                const int result = call % 2 ? handle.checkEnable() : handle.recvData();
                succeeded += result == 1 && handle.get("product_no") == number;
            }
        });
    }
    for (std::thread *thread : threads) {
        thread->join();
        delete thread;
    }
    QCOMPARE(succeeded.load(), 8 * 20);
}

void tst_Disposal::hostsApplicationObjectIsNeverTouched()
{
    QCoreApplication *own = QCoreApplication::instance();
    const QString name = own->applicationName();
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(korrinOpen(), 1);
        Handle handle(baseParameters(server->url(), "remote_access"));
        QCOMPARE(handle.checkEnable(), 1);
        QCOMPARE(korrinClose(), 1);
        QCOMPARE(QCoreApplication::instance(), own);
        QCOMPARE(own->applicationName(), name);
    }
}

QTEST_GUILESS_MAIN(tst_Disposal)
#include "tst_disposal.moc"
