#include "korrinhost.h"
#include "scriptedserver.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QtTest>

using namespace korrintest;

namespace
{

// Far below the calls' time-out.
constexpr int PROMPT_MS = 2000;

/// The host's own application object.
struct Application {
    int count = 1;
    char name[5] = "host";
    char *arguments[2] = {name, nullptr};
    QCoreApplication object{count, arguments};
};

} // namespace

/// A host whose QCoreApplication comes and goes while the library is open.
class tst_HostApplication : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void callWithoutApplicationObjectFailsAtOnce_data();
    void callWithoutApplicationObjectFailsAtOnce();
};

void tst_HostApplication::callWithoutApplicationObjectFailsAtOnce_data()
{
    QTest::addColumn<bool>("openedFirst");
    QTest::newRow("object made before korrinOpen") << false;
    QTest::newRow("object made after korrinOpen") << true;
}

void tst_HostApplication::callWithoutApplicationObjectFailsAtOnce()
{
    QFETCH(bool, openedFirst);
    ScriptedServer server;
    if (openedFirst)
        QCOMPARE(korrinOpen(), 1);
    QScopedPointer<Application> application(new Application);
    QCOMPARE(korrinOpen(), 1);
    Handle handle(baseParameters(server.url(), "update"));
    handle.set("cloud_log_file_max_size", "0");
    QCOMPARE(handle.checkEnable(), 1);

    application.reset();
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(handle.checkEnable(), 0);
    QVERIFY(timer.elapsed() < PROMPT_MS);
    QCOMPARE(handle.errorNo(), QByteArray("301"));
    QCOMPARE(handle.errorDetail(),
             QByteArray("network connection error. "
                        "(QNetworkReply: 99 The QCoreApplication is gone)"));

    // Opened anew, the library has one of its own.
    QCOMPARE(korrinClose(), 1);
    QCOMPARE(korrinOpen(), 1);
    Handle next(baseParameters(server.url(), "remote_access"));
    QCOMPARE(next.checkEnable(), 1);
    QCOMPARE(korrinClose(), 1);
}

QTEST_APPLESS_MAIN(tst_HostApplication)
#include "tst_hostapplication.moc"
