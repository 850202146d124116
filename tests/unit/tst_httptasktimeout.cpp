#include "handlemanager.h"
#include "httptask.h"
#include "scriptedserver.h"

#include <QTimer>
#include <QtTest>

using namespace korrintest;

namespace
{

/// A GET whose timer is looked at, or made to fire, as soon as the event loop runs.
class ObservedTask : public HttpTask
{
public:
    using HttpTask::HttpTask;

    bool start() override
    {
        QTimer::singleShot(0, this, [this] {
            QTimer *timeOut = findChild<QTimer *>();
            isActive = timeOut->isActive();
            intervalMs = timeOut->interval();
            isSingleShot = timeOut->isSingleShot();
            timerType = timeOut->timerType();
            if (firesAtOnce)
                timeOut->start(0);
            else
                quit();
        });
        return startGetRequest();
    }

    bool firesAtOnce = false;
    bool isActive = false;
    bool isSingleShot = false;
    int intervalMs = -1;
    Qt::TimerType timerType = Qt::VeryCoarseTimer;
};

} // namespace

/// How "recv_timeout" becomes the interval of a task's timer.
class tst_HttpTaskTimeOut : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void interval_data();
    void interval();
    void negativeIntervalMeansNoTimer_data();
    void negativeIntervalMeansNoTimer();
    void detailNamesTheValueAsItIs_data();
    void detailNamesTheValueAsItIs();

private:
    QScopedPointer<ScriptedServer> server;
    void *handle = nullptr;
};

void tst_HttpTaskTimeOut::init()
{
    server.reset(new ScriptedServer(
        [](Connection &connection, const HttpRequest &) { connection.stall(); }));
    handle = HandleManager::getInstance()->createHandle();
}

void tst_HttpTaskTimeOut::cleanup()
{
    HandleManager::getInstance()->disposeHandle(handle);
}

void tst_HttpTaskTimeOut::interval_data()
{
    QTest::addColumn<int>("intervalMs");
    QTest::newRow("") << 30000;
    QTest::newRow("0") << 30000;
    QTest::newRow("-1") << 30000;
    QTest::newRow("-5") << 30000;
    QTest::newRow("abc") << 30000;
    QTest::newRow("1.5") << 30000;
    QTest::newRow("10s") << 30000;
    QTest::newRow("0x10") << 30000;
    QTest::newRow("2147483648") << 30000; // no int
    QTest::newRow("1") << 1000;
    QTest::newRow("010") << 10000;
    QTest::newRow("10") << 10000;
    QTest::newRow("2147483") << 2147483000;
    QTest::newRow("4294968") << 704; // wraps
}

void tst_HttpTaskTimeOut::interval()
{
    QFETCH(int, intervalMs);
    HandleManager::getInstance()->setParameter(handle, clouddefs::PKEY_RECV_TIMEOUT,
                                               QString::fromLatin1(QTest::currentDataTag()));
    ObservedTask task(handle);
    task.request.setUrl(QUrl(QString::fromLatin1(server->url())));
    QVERIFY(!task.start());
    QVERIFY(task.isActive);
    QVERIFY(task.isSingleShot);
    QCOMPARE(task.intervalMs, intervalMs);
    QCOMPARE(task.timerType, Qt::PreciseTimer);
}

void tst_HttpTaskTimeOut::negativeIntervalMeansNoTimer_data()
{
    QTest::addColumn<QString>("value");
    for (const char *value : {"2147484", "4294967", "2147483647"})
        QTest::newRow(value) << QString::fromLatin1(value);
}

void tst_HttpTaskTimeOut::negativeIntervalMeansNoTimer()
{
    QFETCH(QString, value);
    HandleManager::getInstance()->setParameter(handle, clouddefs::PKEY_RECV_TIMEOUT, value);
    ObservedTask task(handle);
    task.request.setUrl(QUrl(QString::fromLatin1(server->url())));
    QVERIFY(!task.start());
    QVERIFY(!task.isActive);
}

void tst_HttpTaskTimeOut::detailNamesTheValueAsItIs_data()
{
    QTest::addColumn<QString>("value");
    for (const char *value : {"", "10", "abc", "-5", "2147484"})
        QTest::newRow(value) << QString::fromLatin1(value);
}

void tst_HttpTaskTimeOut::detailNamesTheValueAsItIs()
{
    QFETCH(QString, value);
    HandleManager *handles = HandleManager::getInstance();
    handles->setParameter(handle, clouddefs::PKEY_RECV_TIMEOUT, value);
    ObservedTask task(handle);
    task.firesAtOnce = true;
    task.request.setUrl(QUrl(QString::fromLatin1(server->url())));
    QVERIFY(!task.start());
    QCOMPARE(handles->getParameter(handle, clouddefs::PKEY_ERROR_NO), QStringLiteral("305"));
    QCOMPARE(handles->getParameter(handle, clouddefs::PKEY_ERROR_TEXT),
             QStringLiteral("timeout occurred."));
    QCOMPARE(handles->getParameter(handle, clouddefs::PKEY_ERROR_DETAIL),
             QStringLiteral("recv_timeout:") + value);
}

QTEST_GUILESS_MAIN(tst_HttpTaskTimeOut)
#include "tst_httptasktimeout.moc"
