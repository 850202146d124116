#include "debugcapture.h"
#include "korrinhost.h"
#include "scriptedserver.h"
#include "scripthost.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace korrintest;

/// Opening, closing, and hosts without Qt.
class tst_Lifecycle : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void openingTwiceKeepsHandles();
    void closingWithoutOpeningSucceeds();
    void closingDisposesOfAllHandles();
    void oneCloseEndsSeveralOpens();
    void reopeningStartsWithAnEmptyRegistry();
    void everyCallIsRefusedWhileClosed();
    void refusedCallsStoreNothing();
    void versionWorksWhileClosedAndStaysValid();
    void debugSwitchTakesAnyNumberAndSurvivesClosing();
    void debugSwitchWritesNothing();

    void hostWithoutQt_data();
    void hostWithoutQt();
    void hostIsLeftAsItWas_data();
    void hostIsLeftAsItWas();
    void nonAsciiTextInAHostWithoutSetlocale_data();
    void nonAsciiTextInAHostWithoutSetlocale();
    void environmentsProxiesChangeNothing_data();
    void environmentsProxiesChangeNothing();
    void exhaustedDescriptorsDoNotEndTheHost_data();
    void exhaustedDescriptorsDoNotEndTheHost();

private:
    QByteArray runThreadHost(const QByteArray &mode,
                             const QHash<QString, QString> &environment = {});

    ScriptedServer server;
};

void tst_Lifecycle::cleanup()
{
    korrinEnableDebugOutput(0);
    korrinClose();
}

void tst_Lifecycle::openingTwiceKeepsHandles()
{
    QCOMPARE(korrinOpen(), 1);
    Handle handle{{"mode", "update"}};
    QCOMPARE(korrinOpen(), 1);
    QCOMPARE(handle.get("mode"), QByteArray("update"));
}

void tst_Lifecycle::closingWithoutOpeningSucceeds()
{
    QCOMPARE(korrinClose(), 1);
    QCOMPARE(korrinClose(), 1);
}

void tst_Lifecycle::closingDisposesOfAllHandles()
{
    korrinOpen();
    void *first = korrinCreateHandle();
    void *second = korrinCreateHandle();
    QCOMPARE(korrinClose(), 1);
    korrinOpen();
    QCOMPARE(korrinDisposeHandle(first), 0);
    QCOMPARE(korrinDisposeHandle(second), 0);
}

void tst_Lifecycle::oneCloseEndsSeveralOpens()
{
    korrinOpen();
    korrinOpen();
    korrinClose();
    QVERIFY(!korrinCreateHandle());
}

void tst_Lifecycle::reopeningStartsWithAnEmptyRegistry()
{
    korrinOpen();
    void *old = korrinCreateHandle();
    korrinSetParameter(old, "mode", "update");
    korrinClose();
    QVERIFY(!korrinCreateHandle());
    QCOMPARE(korrinOpen(), 1);
    QCOMPARE(QByteArray(korrinGetParameter(old, "mode")), QByteArray());
    QVERIFY(korrinCreateHandle());
}

void tst_Lifecycle::everyCallIsRefusedWhileClosed()
{
    korrinOpen();
    void *handle = korrinCreateHandle();
    korrinClose();
    const DebugCapture capture;
    const char *data = "untouched";
    int size = 7;
    QVERIFY(!korrinCreateHandle());
    QCOMPARE(korrinDisposeHandle(handle), 0);
    QCOMPARE(korrinSetParameter(handle, "mode", "update"), 0);
    QCOMPARE(korrinGetParameter(handle, "mode"), "");
    QCOMPARE(korrinCheckEnable(handle), 0);
    QCOMPARE(korrinSendData(handle, "x", 1), 0);
    QCOMPARE(korrinRecvData(handle, &data, &size), 0);
    QCOMPARE(korrinSendFile(handle, "x"), 0);
    QCOMPARE(korrinRecvFile(handle, "x"), 0);
    QCOMPARE(data, "untouched");
    QCOMPARE(size, 7);

    const char *const calls[] = {"CreateHandle", "DisposeHandle", "SetParameter",
                                 "GetParameter", "CheckEnable",   "SendData",
                                 "RecvData",     "SendFile",      "RecvFile"};
    QStringList expected;
    for (const char *call : calls) {
        expected << QStringLiteral(" ") << QStringLiteral("@::korrin%1() ").arg(QLatin1String(call))
                 << QStringLiteral("\"101:cloud not opened.\" ");
    }
    QCOMPARE(capture.messages(), expected);
}

void tst_Lifecycle::refusedCallsStoreNothing()
{
    QCOMPARE(korrinSetParameter(nullptr, "mode", "update"), 0);
    korrinOpen();
    Handle handle;
    QCOMPARE(handle.get("mode"), QByteArray());
    QCOMPARE(handle.get("func_name"), QByteArray("korrinCreateHandle"));
    QCOMPARE(handle.get("func_args"), QByteArray("-"));
}

void tst_Lifecycle::versionWorksWhileClosedAndStaysValid()
{
    const char *version = korrinGetSoftVersion();
    QCOMPARE(version, "R7204B");
    korrinOpen();
    korrinClose();
    QCOMPARE(version, "R7204B");
    QCOMPARE(korrinGetSoftVersion(), version);
}

void tst_Lifecycle::debugSwitchTakesAnyNumberAndSurvivesClosing()
{
    const DebugCapture capture(false);
    for (const int enable : {2, -1, 256, int(0x80000000)}) {
        const auto before = capture.messages().size();
        QCOMPARE(korrinEnableDebugOutput(enable), 1);
        korrinOpen();
        korrinClose();
        QCOMPARE(capture.messages().size(), before + 4);
    }
    korrinOpen();
    QCOMPARE(korrinEnableDebugOutput(0), 1);
    const auto before = capture.messages().size();
    korrinClose();
    QCOMPARE(capture.messages().size(), before);
}

void tst_Lifecycle::debugSwitchWritesNothing()
{
    const DebugCapture capture(false);
    korrinEnableDebugOutput(1);
    korrinEnableDebugOutput(0);
    QCOMPARE(capture.messages(), QStringList());
}

QByteArray tst_Lifecycle::runThreadHost(const QByteArray &mode,
                                        const QHash<QString, QString> &environment)
{
    QProcess process;
    QProcessEnvironment variables = QProcessEnvironment::systemEnvironment();
    for (auto it = environment.cbegin(); it != environment.cend(); ++it)
        variables.insert(it.key(), it.value());
    process.setProcessEnvironment(variables);
    process.start(QStringLiteral(KORRIN_TEST_THREADHOST),
                  {QString::fromLatin1(mode), QString::fromLatin1(server.url())});
    if (!process.waitForFinished(60000))
        return "hangs";
    return process.readAllStandardError() + process.readAllStandardOutput()
        + (process.exitCode() == 0 ? QByteArray() : QByteArray("failed"));
}

void tst_Lifecycle::hostWithoutQt_data()
{
    QTest::addColumn<int>("exchanges");
    QTest::newRow("main") << 1;
    QTest::newRow("worker") << 4;
    QTest::newRow("eight") << 8;
    QTest::newRow("eightopen") << 8;
    QTest::newRow("cycles") << 100;
    QTest::newRow("unload") << 2;
}

void tst_Lifecycle::hostWithoutQt()
{
    QFETCH(int, exchanges);
    server.clear();
    QCOMPARE(runThreadHost(QTest::currentDataTag()), QByteArray());
    QCOMPARE(server.requestCount(), exchanges);
}

void tst_Lifecycle::hostIsLeftAsItWas_data()
{
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<QString>("locale");
    for (const char *mode : {"state", "ownstate"}) {
        for (const char *locale : {"C.UTF-8", "C", "POSIX", "ja_JP.UTF-8", "nonsense"})
            QTest::addRow("%s, %s", mode, locale)
                << QByteArray(mode) << QString::fromLatin1(locale);
    }
}

void tst_Lifecycle::hostIsLeftAsItWas()
{
    QFETCH(QByteArray, mode);
    QFETCH(QString, locale);
    QCOMPARE(runThreadHost(mode, {{QStringLiteral("LC_ALL"), locale}}), QByteArray());
}

void tst_Lifecycle::nonAsciiTextInAHostWithoutSetlocale_data()
{
    QTest::addColumn<bool>("debugFirst");
    QTest::newRow("quiet") << false;
    QTest::newRow("messages before opening") << true;
}

void tst_Lifecycle::nonAsciiTextInAHostWithoutSetlocale()
{
    QFETCH(bool, debugFirst);
    QTemporaryDir directory;
    ScriptHost host(directory.path(), {{QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8")}});
    host.redirectErrors(directory.filePath(QStringLiteral("errors")));
    if (debugFirst) {
        host.call("debug 1");
        host.call("check null");
    }
    QCOMPARE(host.call("open").result, 1);
    const QByteArray handle = host.create();
    host.set(handle, "product_name", "caf\xe9");
    QCOMPARE(host.get(handle, "product_name"), QByteArray("caf\xc3\xa9"));
    QCOMPARE(host.call("locale").bytes, QByteArray("C"));
}

void tst_Lifecycle::environmentsProxiesChangeNothing_data()
{
    QTest::addColumn<QString>("variable");
    for (const char *name : {"http_proxy", "HTTP_PROXY", "https_proxy", "all_proxy", "no_proxy"})
        QTest::newRow(name) << QString::fromLatin1(name);
}

void tst_Lifecycle::environmentsProxiesChangeNothing()
{
    QFETCH(QString, variable);
    server.clear();
    const RefusingPort proxy;
    const QString deadProxy = QStringLiteral("http://127.0.0.1:%1").arg(proxy.number());
    QCOMPARE(runThreadHost("main", {{variable, deadProxy}}), QByteArray());
    QCOMPARE(server.requestCount(), 1);
}

void tst_Lifecycle::exhaustedDescriptorsDoNotEndTheHost_data()
{
    QTest::addColumn<QByteArray>("left");
    for (const char *left : {"0", "1", "2", "3", "4", "5"})
        QTest::newRow(left) << QByteArray(left);
}

void tst_Lifecycle::exhaustedDescriptorsDoNotEndTheHost()
{
    QFETCH(QByteArray, left);
    ScriptHost host;
    host.call("descriptors " + left);
    QCOMPARE(host.call("open").result, 0);
    host.call("descriptors -1");
    QCOMPARE(host.call("open").result, 1);
    const QByteArray handle = host.create();
    host.set(handle, "server_url", server.url());
    host.set(handle, "product_no", "PN");
    host.set(handle, "mode", "remote_access");
#if defined(__SANITIZE_ADDRESS__)
    // UndefinedBehaviorSanitizer needs a pipe when it sees an object of a class for the first time.
    QCOMPARE(host.check(handle), 1);
#endif
    host.call("descriptors " + left);
    QCOMPARE(host.check(handle), 0);
    QCOMPARE(host.get(handle, "error_no"), QByteArray("301"));
    QCOMPARE(host.get(handle, "error_detail"),
             QByteArray("network connection error. (QNetworkReply: 99 Too many open files)"));
    host.call("descriptors -1");
    QCOMPARE(host.check(handle), 1);
}

QTEST_GUILESS_MAIN(tst_Lifecycle)
#include "tst_lifecycle.moc"
