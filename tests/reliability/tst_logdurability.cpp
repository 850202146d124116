#include "device.h"
#include "faultyhost.h"
#include "killedrun.h"
#include "scripthost.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <unistd.h>

using namespace korrintest;

namespace
{

const int MOST_CALLS = 500;

// What the host itself takes for them: on an idle machine less than half a second, as scripts/bench
// tells. Here others run beside it.
constexpr double RECORDS_CPU_MS = 3000;
constexpr qint64 RECORDS_PATIENCE_MS = 15000;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int SLOWDOWN = 10; // a sanitizer slows all of it down
#else
constexpr int SLOWDOWN = 1;
#endif

/// Of the processes that this one has started and that have ended.
double cpuMsOfHosts()
{
    rusage usage = {};
    getrusage(RUSAGE_CHILDREN, &usage);
    const auto toMs = [](const timeval &time) { return time.tv_sec * 1e3 + time.tv_usec / 1e3; };
    return toMs(usage.ru_utime) + toMs(usage.ru_stime);
}

/// The tests' long form, which takes minutes.
bool isLongForm()
{
    return qEnvironmentVariableIsSet("KORRIN_LONG");
}

/// A host with a handle that talks to the server and keeps its log in its working directory.
class LocalHost
{
public:
    LocalHost(const ScriptedServer &server, const QTemporaryDir &directory) : host(directory.path())
    {
        host.call("open");
        handle = host.create();
        host.set(handle, "server_url", server.url());
        host.set(handle, "mode", "update");
        host.set(handle, "product_no", "PN");
        host.set(handle, "recv_timeout", "10");
    }

    int check() { return host.check(handle); }

private:
    ScriptHost host;
    QByteArray handle;
};

} // namespace

/// Records that a call has kept survive kills, loss of power and failing disks.
class tst_LogDurability : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void killBeforeAnyCall_data();
    void killBeforeAnyCall();
    void failingCalls_data();
    void failingCalls();
    void recordIsSyncedWhenTheCallReturns();
    void restIsSyncedBeforeItTakesTheLogsPlace();
    void fileIsTheOwnersOnly();
    void tornRecordDoesNotRunIntoTheNext();
    void lineOfNulBytesTakesNoRecordWithIt_data();
    void lineOfNulBytesTakesNoRecordWithIt();
    void recordIsReadWhenItIsWhole();
    void foreignTextIsContinued();
    void recordBehindWhatCannotBeReadBeginsALine_data();
    void recordBehindWhatCannotBeReadBeginsALine();
    void lockThatIsNeverReleasedDoesNotLoseTheRecord();
    void interruptedRewritingIsTakenUp_data();
    void interruptedRewritingIsTakenUp();
    void sentRecordsAreMarkedUntilTheFileIsGone();
    void restThatCannotBeWrittenLeavesTheFileAsItWas();
    void thousandKeptRecordsTakeLittleTime();

private:
    QString path(const char *name = "cloudlog.txt") const
    {
        return directory->filePath(QLatin1String(name));
    }
    QByteArray contents(const char *name = "cloudlog.txt") const;
    void write(const char *name, const QByteArray &bytes) const;
    void keepRecords(LogCloud &cloud) const;
    QList<QByteArray> writingCalls() const;

    QScopedPointer<QTemporaryDir> directory;
};

void tst_LogDurability::init()
{
    directory.reset(new QTemporaryDir);
}

QByteArray tst_LogDurability::contents(const char *name) const
{
    QFile file(path(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void tst_LogDurability::write(const char *name, const QByteArray &bytes) const
{
    QFile file(path(name));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(bytes), qint64(bytes.size()));
}

void tst_LogDurability::killBeforeAnyCall_data()
{
    QTest::addColumn<bool>("hasStale");
    QTest::newRow("empty directory") << false;
    QTest::newRow("left-over temporary file") << true;
}

void tst_LogDurability::killBeforeAnyCall()
{
    QFETCH(bool, hasStale);
    bool survived = false;
    int number = 0;
    while (!survived && ++number < MOST_CALLS) {
        init();
        const QByteArray fault = "any," + QByteArray::number(number) + ",kill";
        if (hasStale)
            leaveTemporaryFile(directory->path());
        const KilledRun run =
            killAndRestart(directory->path(), faultEnvironment(directory->path(), fault));
        QVERIFY2(run.complaint.isEmpty(), (fault + ": " + run.complaint).constData());
        survived = run.survived;
    }
    QVERIFY(survived);
    QVERIFY2(number > 60, QByteArray::number(number).constData());
}

void tst_LogDurability::failingCalls_data()
{
    QTest::addColumn<QByteArray>("call");
    QTest::addColumn<QByteArray>("action");
    const auto add = [](const char *call, const char *name, int error) {
        const QByteArray number = QByteArray::number(error);
        QTest::newRow((QByteArray(call) + " " + name + " once").constData())
            << QByteArray(call) << number;
        QTest::newRow((QByteArray(call) + " " + name + " for ever").constData())
            << QByteArray(call) << number + ",forever";
    };
    for (const char *call : {"open", "read", "write", "sync", "rename", "remove"}) {
        add(call, "EIO", EIO);
        add(call, "EINTR", EINTR);
        if (isLongForm()) {
            add(call, "ENOSPC", ENOSPC);
            add(call, "EACCES", EACCES);
        }
    }
    QTest::newRow("short write once") << QByteArray("write") << QByteArray("short");
    QTest::newRow("short write for ever") << QByteArray("write") << QByteArray("short,forever");
}

/// A temporary file with T1 and a log with P1 to P3, as a healthy device leaves them.
void tst_LogDurability::keepRecords(LogCloud &cloud) const
{
    leaveTemporaryFile(directory->path());
    QVERIFY(QFile::rename(path("cloudlog.txt_"), path("aside")));
    cloud.take(0);
    Device healthy(cloud, directory->path());
    for (const char *product : {"P1", "P2", "P3"})
        QVERIFY(healthy.call(product));
    QVERIFY(QFile::rename(path("aside"), path("cloudlog.txt_")));
}

/// No failure of a call, whichever and whenever, takes records that were safe before; and nothing
/// is sent twice where the log could be marked and rewritten.
void tst_LogDurability::failingCalls()
{
    QFETCH(QByteArray, call);
    QFETCH(QByteArray, action);
    int number = 0;
    for (bool hasFailed = true; hasFailed && number < MOST_CALLS;) {
        init();
        LogCloud cloud;
        keepRecords(cloud);
        const QByteArray fault = call + ',' + QByteArray::number(++number) + ',' + action;
        QSet<QByteArray> safe = {"P2", "P3", "next", "last"};
        {
            Device sick(cloud, directory->path(), faultEnvironment(directory->path(), fault));
            QElapsedTimer timer;
            timer.start();
            for (const auto &[product, records] :
                 QList<std::pair<QByteArray, int>>{{"P4", 1}, {"P5", 0}, {"P6", -1}}) {
                cloud.take(records);
                QVERIFY(sick.call(product));
                if (!hasStruck(directory->path()))
                    safe << product;
            }
            QVERIFY2(timer.elapsed() < 5000, QByteArray::number(timer.elapsed()).constData());
        }
        hasFailed = hasStruck(directory->path());
        cloud.take(-1);
        Device next(cloud, directory->path());
        QVERIFY(next.call("next") && next.call("last"));
        const QByteArray left = contents() + contents("cloudlog.txt_");
        const auto times = [&](const QByteArray &product) {
            return cloud.taken().value(product) + int(left.count("&pn=" + product + '&'));
        };
        const auto seen = [&](const QByteArray &product) {
            return fault + ": " + product + ' ' + QByteArray::number(times(product));
        };
        // What cannot be marked may come again. A temporary file that can never be removed is put
        // before the log by both calls that leave a rest, and then takes the log's place itself.
        const int mostT1 = call == "remove" && action.endsWith("forever") ? 3 : 1;
        const int mostP1 = call == "open" || call == "write" ? 2 : 1;
        QVERIFY2(times("T1") >= 1 && times("T1") <= mostT1, seen("T1").constData());
        QVERIFY2(times("P1") >= 1 && times("P1") <= mostP1, seen("P1").constData());
        for (const char *product : {"P2", "P3", "P4", "P5", "P6", "next", "last"}) {
            const int fewest = safe.contains(product) ? 1 : 0;
            QVERIFY2(times(product) >= fewest && times(product) <= 1, seen(product).constData());
        }
        QVERIFY2(cloud.broken().isEmpty(), (fault + ": " + cloud.broken().value(0)).constData());
    }
    QVERIFY2(number > 1 && number < MOST_CALLS, QByteArray::number(number).constData());
}

/// The operations of a call that write to the disk, as the shim has noted them.
QList<QByteArray> tst_LogDurability::writingCalls() const
{
    QList<QByteArray> calls = contents(".calls").split('\n');
    const auto isReading = [](const QByteArray &call) {
        return call.isEmpty() || call.startsWith("open") || call.startsWith("read");
    };
    calls.erase(std::remove_if(calls.begin(), calls.end(), isReading), calls.end());
    return calls;
}

void tst_LogDurability::recordIsSyncedWhenTheCallReturns()
{
    LogCloud cloud;
    cloud.take(0);
    Device device(cloud, directory->path(), faultEnvironment(directory->path(), "any,0,none"));
    QVERIFY(device.call("P1"));
    QCOMPARE(writingCalls(),
             QList<QByteArray>({"write cloudlog.txt", "sync cloudlog.txt", "sync ."}));
}

void tst_LogDurability::restIsSyncedBeforeItTakesTheLogsPlace()
{
    LogCloud cloud;
    cloud.take(0);
    {
        Device healthy(cloud, directory->path());
        QVERIFY(healthy.call("P1") && healthy.call("P2"));
    }
    Device device(cloud, directory->path(), faultEnvironment(directory->path(), "any,0,none"));
    cloud.take(1);
    QVERIFY(device.call("P3"));
    QCOMPARE(writingCalls(),
             QList<QByteArray>({"write cloudlog.txt", "write cloudlog.txt_", "sync cloudlog.txt_",
                                "rename cloudlog.txt_", "sync .", "write cloudlog.txt",
                                "sync cloudlog.txt"}));
}

void tst_LogDurability::fileIsTheOwnersOnly()
{
    LogCloud cloud;
    Device device(cloud, directory->path());
    cloud.take(0);
    QVERIFY(device.call("P1"));
    const QFile::Permissions ownerOnly = QFile::ReadOwner | QFile::WriteOwner;
    const auto permissions = [this] {
        return QFile::permissions(path()) & ~(QFile::ReadUser | QFile::WriteUser);
    };
    QCOMPARE(permissions(), ownerOnly);
    QVERIFY(device.call("P2"));
    cloud.take(1);
    QVERIFY(device.call("P3")); // rewrites the file
    QCOMPARE(permissions(), ownerOnly);
}

void tst_LogDurability::tornRecordDoesNotRunIntoTheNext()
{
    LogCloud cloud;
    Device device(cloud, directory->path());
    cloud.take(0);
    QVERIFY(device.call("P1"));
    const QByteArray whole = contents();
    for (int size = 1; size < whole.size(); ++size) {
        write("cloudlog.txt", "is=cloudlog&rec=0\n" + whole.left(size));
        cloud.take(0);
        QVERIFY(device.call("P2"));
        const QList<QByteArray> lines = contents().split('\n');
        QCOMPARE(lines.size(), 4);
        QCOMPARE(lines.at(1), whole.left(size));
        QVERIFY(lines.at(2).startsWith("is=cloudlog&lang="));
        size += size > 20 ? 37 : 0; // each byte of the beginning, samples of the rest
    }
}

void tst_LogDurability::lineOfNulBytesTakesNoRecordWithIt_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("a torn record that was sent") << QByteArray(1, '\0') + "s=cloudlog&la";
    QTest::newRow("what a loss of power left") << QByteArray(100, '\0');
}

/// A line that begins with a NUL byte is taken for sent: nothing may be continued there.
void tst_LogDurability::lineOfNulBytesTakesNoRecordWithIt()
{
    QFETCH(QByteArray, line);
    LogCloud cloud;
    cloud.take(0);
    write("cloudlog.txt", "is=cloudlog&rec=1\n" + line);
    Device device(cloud, directory->path());
    QVERIFY(device.call("P1"));
    cloud.take(-1);
    QVERIFY(device.call("P2"));
    QCOMPARE(cloud.taken().value("P1"), 1);
}

/// What another process is just appending is waited for.
void tst_LogDurability::recordIsReadWhenItIsWhole()
{
    constexpr int APPENDING_MS = 100;
    QList<QByteArray> seen;
    ScriptedServer server([&](Connection &connection, const HttpRequest &request) {
        const QByteArray is = formValue(request.body, "is");
        if (request.body.contains("rec="))
            seen << request.body;
        if (!request.body.contains("rec=1")) {
            connection.send(xmlAnswer(is == "cloudlog" ? is : "chkud"));
            return;
        }
        QFile log(path());
        const int lock = ::open(QFile::encodeName(directory->path()).constData(), O_RDONLY);
        if (!log.open(QIODevice::Append | QIODevice::Unbuffered) || flock(lock, LOCK_EX) != 0)
            qFatal("the log cannot be written");
        log.write("is=cloudlog&rec=");
        connection.send(xmlAnswer(is));
        connection.waitForPeerClose(APPENDING_MS);
        log.write("2\n");
        ::close(lock);
    });
    write("cloudlog.txt", "is=cloudlog&rec=1\n");
    LocalHost host(server, *directory);
    QCOMPARE(host.check(), 1);
    QCOMPARE(seen, QList<QByteArray>({"is=cloudlog&rec=1\n", "is=cloudlog&rec=2\n"}));
}

void tst_LogDurability::foreignTextIsContinued()
{
    LogCloud cloud;
    Device device(cloud, directory->path());
    cloud.take(0);
    write("cloudlog.txt", "is=cloudlog&rec=1");
    QVERIFY(device.call("P1"));
    QVERIFY(contents().startsWith("is=cloudlog&rec=1is=cloudlog&lang="));
}

void tst_LogDurability::recordBehindWhatCannotBeReadBeginsALine_data()
{
    QTest::addColumn<QByteArray>("log");
    QTest::addColumn<QByteArray>("fault");
    const QByteArray torn = "is=cloudlog&lang=en&pn=T";
    for (const char *fault : {"read,1,5", "read,2,5", "read,3,5", "read,1,5,forever"}) {
        QTest::addRow("torn record, %s", fault) << torn << QByteArray(fault);
        QTest::addRow("whole record, %s", fault) << torn + "1\n" << QByteArray(fault);
    }
}

void tst_LogDurability::recordBehindWhatCannotBeReadBeginsALine()
{
    QFETCH(QByteArray, log);
    QFETCH(QByteArray, fault);
    const bool isTorn = !log.endsWith('\n');
    write("cloudlog.txt", log);
    LogCloud cloud;
    Device sick(cloud, directory->path(), faultEnvironment(directory->path(), fault));
    cloud.take(0);
    QVERIFY(sick.call("P1"));
    const QByteArray appended = contents().mid(log.size());
    QVERIFY(appended.startsWith(isTorn ? "\nis=cloudlog&" : "is=cloudlog&")
            || (appended.startsWith("\nis=cloudlog&") && fault.endsWith("forever")));
}

/// A host that hangs while it has the lock holds up the others, and no more.
void tst_LogDurability::lockThatIsNeverReleasedDoesNotLoseTheRecord()
{
    const int lock = ::open(QFile::encodeName(directory->path()).constData(), O_RDONLY);
    QCOMPARE(flock(lock, LOCK_EX), 0);
    LogCloud cloud;
    cloud.take(0);
    Device device(cloud, directory->path());
    QVERIFY(device.call("P1"));
    ::close(lock);
    QCOMPARE(contents().count("&pn=P1&"), 1);
}

void tst_LogDurability::interruptedRewritingIsTakenUp_data()
{
    QTest::addColumn<QByteArray>("log");
    QTest::addColumn<QByteArray>("temp");
    QTest::addColumn<QByteArray>("second");
    QTest::addColumn<QByteArray>("sent");
    const QByteArray sentOne = QByteArray(1, '\0') + "s=cloudlog&rec=1\n";
    QTest::newRow("nothing was left")
        << QByteArray("is=cloudlog&rec=1\n") << QByteArray() << QByteArray() << QByteArray("1");
    QTest::newRow("one had gone out") << sentOne + "is=cloudlog&rec=2\n"
                                      << QByteArray() << QByteArray() << QByteArray("2");
    QTest::newRow("all had gone out") << sentOne << QByteArray() << QByteArray() << QByteArray();
    QTest::newRow("the rest was half written")
        << sentOne + "is=cloudlog&rec=2\nis=cloudlog&rec=3\n"
        << QByteArray("is=cloudlog&rec=2\nis=cl") << QByteArray() << QByteArray("2 3");
    QTest::newRow("the rest was written")
        << sentOne + "is=cloudlog&rec=2\n"
        << QByteArray("is=cloudlog&rec=2\n") << QByteArray() << QByteArray("2");
    QTest::newRow("records of an earlier time")
        << QByteArray("is=cloudlog&rec=2\n") << QByteArray("is=cloudlog&rec=1\n") << QByteArray()
        << QByteArray("2 1");
    QTest::newRow("records of an earlier time, half put together")
        << QByteArray("is=cloudlog&rec=2\n") << QByteArray("is=cloudlog&rec=1\n")
        << QByteArray("is=cloudlog&rec=1\nis=") << QByteArray("2 1");
    QTest::newRow("records of an earlier time, put together")
        << QByteArray("is=cloudlog&rec=1\nis=cloudlog&rec=2\n") << QByteArray("is=cloudlog&rec=1\n")
        << QByteArray() << QByteArray("1 2");
}

void tst_LogDurability::interruptedRewritingIsTakenUp()
{
    QFETCH(QByteArray, log);
    QFETCH(QByteArray, temp);
    QFETCH(QByteArray, second);
    QFETCH(QByteArray, sent);
    QList<QByteArray> seen;
    ScriptedServer server([&](Connection &connection, const HttpRequest &request) {
        const bool isLog = formValue(request.body, "is") == "cloudlog";
        if (isLog && request.body.contains("rec="))
            seen << formValue(request.body, "rec").trimmed();
        connection.send(xmlAnswer(isLog ? "cloudlog" : "chkud"));
    });
    write("cloudlog.txt", log);
    if (!temp.isEmpty())
        write("cloudlog.txt_", temp);
    if (!second.isEmpty())
        write("cloudlog.txt__", second);
    LocalHost host(server, *directory);
    QCOMPARE(host.check(), 1);
    QCOMPARE(host.check(), 1);
    QCOMPARE(seen.join(' '), sent);
    QCOMPARE(QDir(directory->path()).entryList(QDir::Files), QStringList());
}

void tst_LogDurability::sentRecordsAreMarkedUntilTheFileIsGone()
{
    QByteArray during;
    ScriptedServer server([&](Connection &connection, const HttpRequest &request) {
        const bool isLog = formValue(request.body, "is") == "cloudlog";
        if (request.body.contains("rec=2"))
            during = contents();
        connection.send(xmlAnswer(isLog ? "cloudlog" : "chkud"));
    });
    write("cloudlog.txt", "is=cloudlog&rec=1\nis=cloudlog&rec=2\n");
    LocalHost host(server, *directory);
    QCOMPARE(host.check(), 1);
    QCOMPARE(during, QByteArray(1, '\0') + "s=cloudlog&rec=1\nis=cloudlog&rec=2\n");
    QVERIFY(!QFile::exists(path()));
}

void tst_LogDurability::restThatCannotBeWrittenLeavesTheFileAsItWas()
{
    ScriptedServer server([](Connection &connection, const HttpRequest &request) {
        const bool isLog = formValue(request.body, "is") == "cloudlog";
        if (!isLog || request.body.contains("rec=1"))
            connection.send(xmlAnswer(isLog ? "cloudlog" : "chkud"));
    });
    const QByteArray kept = "is=cloudlog&rec=1\nis=cloudlog&rec=2\nis=cloudlog&rec=3\n";
    write("cloudlog.txt", kept);
    QVERIFY(QDir(directory->path()).mkdir(QStringLiteral("cloudlog.txt_")));
    LocalHost host(server, *directory);
    QCOMPARE(host.check(), 1);
    QVERIFY(contents().startsWith(kept + "is=cloudlog&lang=")); // with the call's own record
    QVERIFY(QFileInfo(path("cloudlog.txt_")).isDir());
}

void tst_LogDurability::thousandKeptRecordsTakeLittleTime()
{
    int count = 0;
    ScriptedServer server([&](Connection &connection, const HttpRequest &request) {
        const bool isLog = formValue(request.body, "is") == "cloudlog";
        count += isLog;
        connection.send(xmlAnswer(isLog ? "cloudlog" : "chkud"));
    });
    QByteArray kept;
    for (int i = 0; i < 1000; ++i)
        kept += "is=cloudlog&lang=en&pn=" + QByteArray::number(i) + QByteArray(300, 'x') + '\n';
    write("cloudlog.txt", kept);
    const double cpuMsBefore = cpuMsOfHosts();
    qint64 elapsedMs = 0;
    {
        LocalHost host(server, *directory);
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(host.check(), 1);
        elapsedMs = timer.elapsed();
    }
    const double cpuMs = cpuMsOfHosts() - cpuMsBefore;
    qInfo("1,000 kept records went out in %lld ms and took %.0f ms of the host's processor",
          static_cast<long long>(elapsedMs), cpuMs);
    QCOMPARE(count, 1001);
    QVERIFY(!QFile::exists(path()));
    QVERIFY(cpuMs > 0 && cpuMs < RECORDS_CPU_MS * SLOWDOWN);
    QVERIFY(elapsedMs < RECORDS_PATIENCE_MS * SLOWDOWN);
}

QTEST_GUILESS_MAIN(tst_LogDurability)
#include "tst_logdurability.moc"
