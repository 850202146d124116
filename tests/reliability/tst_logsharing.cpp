#include "logcloud.h"
#include "scripthost.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>
#include <vector>

using namespace korrintest;

namespace
{

const int PROCESSES = 4;
const int THREADS = 4;
const int TIMEOUT_MS = 300000;

int callsOfEach()
{
    return qEnvironmentVariableIsSet("KORRIN_LONG") ? 250 : 40;
}

} // namespace

/// Several processes and threads keep their log in one directory.
class tst_LogSharing : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyRecordArrivesExactlyOnce();
    void onlyOneSendsWhatIsKept();
};

void tst_LogSharing::everyRecordArrivesExactlyOnce()
{
    QTemporaryDir directory;
    LogCloud cloud;
    cloud.takeInTurns(17);
    std::vector<std::unique_ptr<QProcess>> hosts;
    for (int i = 0; i < PROCESSES; ++i) {
        hosts.push_back(std::make_unique<QProcess>());
        hosts.back()->setProcessChannelMode(QProcess::ForwardedChannels);
        hosts.back()->start(QStringLiteral(KORRIN_TEST_LOGHOST),
                            {QString::fromLatin1(cloud.url()), directory.path(),
                             QString(QLatin1Char(char('A' + i))), QString::number(THREADS),
                             QString::number(callsOfEach())});
    }
    for (const auto &host : hosts) {
        QVERIFY(host->waitForFinished(TIMEOUT_MS));
        QCOMPARE(host->exitCode(), 0);
    }
    cloud.take(-1);
    ScriptHost last(directory.path());
    last.call("open");
    const QByteArray handle = last.create();
    last.set(handle, "server_url", cloud.url());
    last.set(handle, "mode", "update");
    last.set(handle, "product_no", "last");
    QCOMPARE(last.check(handle), 1);

    const QHash<QByteArray, int> taken = cloud.taken();
    for (int process = 0; process < PROCESSES; ++process) {
        for (int thread = 0; thread < THREADS; ++thread) {
            for (int call = 0; call < callsOfEach(); ++call) {
                const QByteArray product = QByteArray(1, char('A' + process)) + '-'
                    + QByteArray::number(thread) + '-' + QByteArray::number(call);
                QVERIFY2(
                    taken.value(product) == 1,
                    (product + " arrived " + QByteArray::number(taken.value(product)) + " times")
                        .constData());
            }
        }
    }
    QCOMPARE(taken.size(), PROCESSES * THREADS * callsOfEach() + 1);
    QVERIFY(cloud.broken().isEmpty());
    QCOMPARE(QDir(directory.path()).entryList(QDir::Files), QStringList());
}

void tst_LogSharing::onlyOneSendsWhatIsKept()
{
    QTemporaryDir directory;
    std::mutex mutex;
    std::condition_variable changed;
    bool isHeld = false;
    bool mayGoOn = false;
    QList<QByteArray> posts;
    // Holds up the first kept record until the other host's call is over.
    ScriptedServer server([&](Connection &connection, const HttpRequest &request) {
        const bool isLog = formValue(request.body, "is") == "cloudlog";
        std::unique_lock<std::mutex> locker(mutex);
        if (isLog)
            posts << formValue(request.body, "pn").trimmed();
        if (isLog && request.body.contains("pn=kept1")) {
            isHeld = true;
            changed.notify_all();
            changed.wait(locker, [&] { return mayGoOn; });
        }
        locker.unlock();
        connection.send(xmlAnswer(isLog ? "cloudlog" : "chkud"));
    });
    QFile file(directory.filePath(QStringLiteral("cloudlog.txt")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("is=cloudlog&pn=kept1\nis=cloudlog&pn=kept2\n");
    file.close();

    QProcess first;
    first.start(QStringLiteral(KORRIN_TEST_LOGHOST),
                {QString::fromLatin1(server.url()), directory.path(), QStringLiteral("first"),
                 QStringLiteral("1"), QStringLiteral("1")});
    {
        std::unique_lock<std::mutex> locker(mutex);
        QVERIFY(changed.wait_for(locker, std::chrono::seconds(20), [&] { return isHeld; }));
    }
    QProcess second;
    second.start(QStringLiteral(KORRIN_TEST_LOGHOST),
                 {QString::fromLatin1(server.url()), directory.path(), QStringLiteral("second"),
                  QStringLiteral("1"), QStringLiteral("1")});
    const bool secondEnded = second.waitForFinished(20000);
    QList<QByteArray> meanwhile;
    {
        std::lock_guard<std::mutex> locker(mutex);
        meanwhile = posts;
        mayGoOn = true;
        changed.notify_all();
    }
    QVERIFY(secondEnded);
    QCOMPARE(meanwhile.join(' '), QByteArray("kept1 second-0-0"));
    QVERIFY(first.waitForFinished(TIMEOUT_MS));
    QCOMPARE(posts.join(' '), QByteArray("kept1 second-0-0 kept2 first-0-0"));
}

QTEST_GUILESS_MAIN(tst_LogSharing)
#include "tst_logsharing.moc"
