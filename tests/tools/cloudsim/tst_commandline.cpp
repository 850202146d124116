#include "curl.h"
#include "sendsignal.h"
#include "simulator.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <memory>
#include <vector>

using namespace korrintest;

namespace
{

struct Run {
    int exitStatus = -1;
    QByteArray out;
    QByteArray err;
};

/// Runs the simulator's program to its end.
Run run(const QStringList &arguments, const QString &directory = QString())
{
    QProcess process;
    if (!directory.isEmpty())
        process.setWorkingDirectory(directory);
    process.start(QStringLiteral(KORRIN_CLOUDSIM), arguments);
    if (!process.waitForFinished(10000)) {
        process.kill();
        process.waitForFinished();
        return {};
    }
    return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
}

QStringList words(const QString &text)
{
    return text.split(QLatin1Char(' '));
}

quint16 portOf(const QByteArray &url)
{
    return quint16(QUrl(QString::fromLatin1(url)).port());
}

/// Connects and sends the beginning of a conversation.
std::unique_ptr<QTcpSocket> client(const QByteArray &url, const QByteArray &request)
{
    auto socket = std::make_unique<QTcpSocket>();
    socket->connectToHost(QStringLiteral("127.0.0.1"), portOf(url));
    socket->waitForConnected();
    socket->write(request);
    socket->waitForBytesWritten();
    return socket;
}

} // namespace

/// The simulator's command line, configuration files, store and end.
class tst_CommandLine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void helpAndVersion();
    void builtInConfigurationIsAccepted();
    void wrongUsage_data();
    void wrongUsage();
    void wrongConfiguration_data();
    void wrongConfiguration();
    void unreadableConfiguration_data();
    void unreadableConfiguration();
    void filesAreRelativeToTheConfiguration();
    void rulesOfConfigurationAndCommandLine();
    void portInUse();
    void addressOfAnotherMachine_data();
    void addressOfAnotherMachine();
    void portOfAnotherSimulator();
    void tls();
    void tlsFilesThatDoNotFit();
    void dataOutliveARestart();
    void dataDirectoryThatIsAbsent();
    void dataDirectoryOfAnotherSimulator();
    void logLine();
    void faultCommands();
    void faultCommandsThatFail_data();
    void faultCommandsThatFail();
    void signalEndsAFaultCommand();
    void signalsEndIt_data();
    void signalsEndIt();

private:
    void write(const QString &name, const QByteArray &bytes);

    QTemporaryDir directory;
};

void tst_CommandLine::write(const QString &name, const QByteArray &bytes)
{
    QFile file(directory.filePath(name));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(bytes), qint64(bytes.size()));
}

void tst_CommandLine::helpAndVersion()
{
    const Run help = run({QStringLiteral("--help")});
    QCOMPARE(help.exitStatus, 0);
    for (const char *option : {"--config", "--listen", "--port", "--tls-cert", "--tls-key",
                               "--data", "--log", "--fault", "--print-config", "fault"})
        QVERIFY2(help.out.contains(option), option);
    QVERIFY(run({QStringLiteral("--version")}).out.startsWith("korrin-cloudsim "));
}

void tst_CommandLine::builtInConfigurationIsAccepted()
{
    const Run printed = run({QStringLiteral("--print-config")});
    QCOMPARE(printed.exitStatus, 0);
    write(QStringLiteral("builtin.json"), printed.out);
    Simulator simulator;
    QVERIFY(simulator.start(
        {QStringLiteral("--config"), directory.filePath(QStringLiteral("builtin.json"))}));
    Simulator plain;
    QVERIFY(plain.start());
    QCOMPARE(simulator.api("catalogue"), plain.api("catalogue"));
    QCOMPARE(plain.api("catalogue").value(QLatin1String("products")).toArray().size(), 2);
}

void tst_CommandLine::wrongUsage_data()
{
    QTest::addColumn<QString>("arguments");
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("unknown option") << "--verbose" << QByteArray("--verbose");
    QTest::newRow("unknown command") << "start" << QByteArray("start");
    QTest::newRow("port out of range") << "--port 65536" << QByteArray("--port");
    QTest::newRow("port that is no number") << "--port http" << QByteArray("--port");
    QTest::newRow("certificate without key") << "--tls-cert a" << QByteArray("--tls-key");
    QTest::newRow("wrong rule") << "--port 0 --fault slow" << QByteArray("unknown fault \"slow\"");
    QTest::newRow("wrong value") << "--port 0 --fault delay:soon" << QByteArray("\"ms\"");
    QTest::newRow("cut behind every answer")
        << "--port 0 --fault cut:18446744073709551615" << QByteArray("\"bytes\"");
    QTest::newRow("fault without command") << "fault" << QByteArray("subcommand");
    QTest::newRow("fault without URL") << "fault list" << QByteArray("--url");
}

void tst_CommandLine::wrongUsage()
{
    QFETCH(QString, arguments);
    QFETCH(QByteArray, message);
    const Run result = run(words(arguments));
    QCOMPARE(result.exitStatus, 64);
    QCOMPARE(result.out, QByteArray());
    QVERIFY2(result.err.contains(message), result.err.constData());
}

void tst_CommandLine::wrongConfiguration_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("complaint");
    QTest::newRow("no JSON") << QByteArray("{\n  \"products\": [\n    oops\n  ]\n}")
                             << QByteArray("3: ");
    QTest::newRow("empty") << QByteArray() << QByteArray(" the file is empty");
    QTest::newRow("no object") << QByteArray("[]")
                               << QByteArray("1: the configuration must be an object");
    QTest::newRow("unknown key") << QByteArray("{\n\"product\": []\n}")
                                 << QByteArray("2: unknown key \"product\"");
    QTest::newRow("the same key twice")
        << QByteArray("{\"faults\": [],\n\"faults\": []}") << QByteArray("2: ");
    QTest::newRow("product without version")
        << QByteArray("{\"products\": [\n{\"number\": \"A\"}\n]}")
        << QByteArray("2: \"version\" is missing");
    QTest::newRow("product twice")
        << QByteArray("{\"products\": [\n{\"number\": \"A\", \"version\": \"1\"},\n"
                      "{\"number\": \"A\", \"version\": \"1\"}]}")
        << QByteArray("3: product \"A\" stands twice");
    QTest::newRow("file with size and path")
        << QByteArray("{\"products\": [{\"number\": \"A\", \"version\": \"1\",\n\"files\": {\n"
                      "\"1\": {\"size\": 1, \"path\": \"x\"}}}]}")
        << QByteArray("3: a file has either a \"size\" or a \"path\"");
    QTest::newRow("absent file") << QByteArray(
        "{\"products\": [{\"number\": \"A\", \"version\": \"1\",\n\"files\": {\n"
        "\"1\": {\n\"path\": \"absent.bin\"}}}]}")
                                 << QByteArray("4: cannot read the file absent.bin: No such file");
    QTest::newRow("directory for a file")
        << QByteArray("{\"products\": [{\"number\": \"A\", \"version\": \"1\",\n\"files\": {\n"
                      "\"1\": {\n\"path\": \".\"}}}]}")
        << QByteArray("4: cannot read the file .: it is no");
    QTest::newRow("negative size")
        << QByteArray("{\"products\": [{\"number\": \"A\", \"version\": \"1\",\n\"files\": {\n"
                      "\"1\": {\"name\": \"a\",\n\"size\": -1}}}]}")
        << QByteArray("4: \"size\" must be a number of bytes");
    QTest::newRow("bucket name") << QByteArray("{\"s3\": {\"buckets\": [\"ok-1\",\n\"Not/OK\"]}}")
                                 << QByteArray("2: a bucket's name");
    QTest::newRow("bucket twice") << QByteArray("{\"s3\": {\"buckets\": [\"logs\",\n\"logs\"]}}")
                                  << QByteArray("2: bucket \"logs\" stands twice");
    QTest::newRow("product that is no object")
        << QByteArray("{\"products\": [\n5]}") << QByteArray("2: \"products\" must hold objects");
    QTest::newRow("number out of range")
        << QByteArray("{\"products\":\n1e999}")
        << QByteArray("2: this is not JSON: number overflow parsing '1e999'");
    QTest::newRow("nested without end")
        << QByteArray(100000, '[') << QByteArray("1: this is nested too deeply");
    QTest::newRow("wrong rule") << QByteArray(
        "{\"faults\": [\n{\"fault\": \"close\"},\n{\"fault\": \"slow\"}]}")
                                << QByteArray("3: unknown fault \"slow\"");
}

void tst_CommandLine::wrongConfiguration()
{
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, complaint);
    write(QStringLiteral("wrong.json"), text);
    const Run result = run(words(QStringLiteral("--port 0 --config wrong.json")), directory.path());
    QCOMPARE(result.exitStatus, 2);
    QCOMPARE(result.out, QByteArray());
    QVERIFY2(result.err.startsWith("korrin-cloudsim: wrong.json:" + complaint),
             result.err.constData());
    QCOMPARE(result.err.count('\n'), 1);
}

void tst_CommandLine::unreadableConfiguration_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QByteArray>("reason");
    QTest::newRow("absent") << "absent.json" << QByteArray("No such file or directory");
    QTest::newRow("directory") << "." << QByteArray("Is a directory");
}

void tst_CommandLine::unreadableConfiguration()
{
    QFETCH(QString, file);
    QFETCH(QByteArray, reason);
    const Run result = run({QStringLiteral("--config"), file}, directory.path());
    QCOMPARE(result.exitStatus, 2);
    QCOMPARE(result.err, "korrin-cloudsim: " + file.toLatin1() + ": " + reason + "\n");
}

void tst_CommandLine::filesAreRelativeToTheConfiguration()
{
    QVERIFY(QDir(directory.path()).mkpath(QStringLiteral("conf/files")));
    write(QStringLiteral("conf/files/pump.zip"), "the update");
    write(QStringLiteral("conf/cloud.json"),
          R"({"products": [{"number": "P", "version": "3",
              "files": {"3": {"path": "files/pump.zip"}}}]})");
    Simulator simulator;
    QVERIFY(simulator.start(
        {QStringLiteral("--config"), directory.filePath(QStringLiteral("conf/cloud.json"))}));
    QCOMPARE(curl({simulator.url() + "su/download?is=dludf&nsv=3&file=pump.zip"}).body,
             QByteArray("the update"));
}

void tst_CommandLine::rulesOfConfigurationAndCommandLine()
{
    write(QStringLiteral("faults.json"),
          R"({"faults": [{"fault": "delay", "ms": 5, "enabled": false}]})");
    Simulator simulator;
    QVERIFY(simulator.start({QStringLiteral("--config"),
                             directory.filePath(QStringLiteral("faults.json")),
                             QStringLiteral("--fault"), QStringLiteral("status:503,next=1"),
                             QStringLiteral("--fault"), QStringLiteral("space")}));
    QStringList kinds;
    for (const QJsonValue &rule : simulator.api("faults").value(QLatin1String("faults")).toArray())
        kinds << rule.toObject().value(QLatin1String("fault")).toString();
    QCOMPARE(kinds.join(QLatin1Char(' ')), QStringLiteral("delay status space"));
    QCOMPARE(curl({simulator.url() + "su/search"}).status, 503);
    QCOMPARE(curl({simulator.url() + "su/search"}).status, 200);
}

void tst_CommandLine::portInUse()
{
    QTcpServer other;
    QVERIFY(other.listen(QHostAddress::LocalHost));
    const Run result = run({QStringLiteral("--port"), QString::number(other.serverPort())});
    QCOMPARE(result.exitStatus, 1);
    QVERIFY2(result.err.contains("cannot listen on 127.0.0.1 port "
                                 + QByteArray::number(other.serverPort())
                                 + ": Address already in use\n"),
             result.err.constData());
}

void tst_CommandLine::addressOfAnotherMachine_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<QByteArray>("reason");
    // RFC 5737: nobody's.
    QTest::newRow("foreign") << "192.0.2.1" << QByteArray("Cannot assign requested address");
    QTest::newRow("no address") << "a..b" << QByteArray("Name or service not known");
}

void tst_CommandLine::addressOfAnotherMachine()
{
    QFETCH(QString, address);
    QFETCH(QByteArray, reason);
    const Run result = run({QStringLiteral("--listen"), address, QStringLiteral("--port=0")});
    QCOMPARE(result.exitStatus, 1);
    QCOMPARE(result.err,
             "korrin-cloudsim: cannot listen on " + address.toLatin1() + " port 0: " + reason
                 + "\n");
}

void tst_CommandLine::portOfAnotherSimulator()
{
    Simulator first;
    QVERIFY(first.start());
    const Run result = run({QStringLiteral("--port"), QString::number(portOf(first.url()))});
    QCOMPARE(result.exitStatus, 1);
    QVERIFY2(result.err.contains("cannot listen on 127.0.0.1"), result.err.constData());
}

void tst_CommandLine::tls()
{
    QProcess openssl;
    openssl.setWorkingDirectory(directory.path());
    openssl.start(
        QStringLiteral("openssl"),
        words(QStringLiteral("req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes"
                             " -keyout key.pem -out cert.pem -days 2 -subj /CN=localhost"
                             " -addext subjectAltName=IP:127.0.0.1")));
    QVERIFY(openssl.waitForFinished());
    QCOMPARE(openssl.exitCode(), 0);
    Simulator simulator;
    QVERIFY(simulator.start(
        {QStringLiteral("--tls-cert"), directory.filePath(QStringLiteral("cert.pem")),
         QStringLiteral("--tls-key"), directory.filePath(QStringLiteral("key.pem"))}));
    QVERIFY(simulator.url().startsWith("https://127.0.0.1:"));
    const QByteArray search = simulator.url() + "su/search?is=chkud&pn=KX-100&sv=1.0";
    const QByteArray certificate = directory.filePath(QStringLiteral("cert.pem")).toLocal8Bit();
    QVERIFY(curl({"--cacert", certificate, search}).body.contains("<status>1</status>"));
    QCOMPARE(curl({search}).exitStatus, 60); // an unknown certificate
    QCOMPARE(curl({"http" + search.mid(5)}).status, 0);
    QVERIFY(curl({"-k", simulator.url() + "su/download?is=dludf&file=kx-100-2.0.bin"}).body.size()
            == 1048576);
    QVERIFY(curl({"-k", simulator.url() + "_sim/api/info"}).body.contains("https://"));
    QCOMPARE(run({QStringLiteral("fault"), QStringLiteral("list"), QStringLiteral("--url"),
                  QString::fromLatin1(simulator.url())})
                 .exitStatus,
             0);
}

void tst_CommandLine::tlsFilesThatDoNotFit()
{
    write(QStringLiteral("no.pem"), "no certificate");
    const Run result =
        run(words(QStringLiteral("--port 0 --tls-cert no.pem --tls-key no.pem")), directory.path());
    QCOMPARE(result.exitStatus, 1);
    QVERIFY2(result.err.contains("TLS certificate no.pem"), result.err.constData());
}

void tst_CommandLine::dataOutliveARestart()
{
    QTemporaryDir data;
    const QStringList arguments = {QStringLiteral("--data"), data.path()};
    {
        Simulator simulator;
        QVERIFY(simulator.start(arguments));
        curl({simulator.url() + "su/search?is=chkud&pn=KX-100&sv=1.0"});
        curl({"-d", "is=cloudlog&pn=KX-100&en=301&ed=down", simulator.url() + "su/upload"});
        curl({"-d", "is=nsv&pn=KX-100&st=1&nsv=2.0", simulator.url() + "su/upload"});
        QCOMPARE(simulator.stop(), 0);
    }
    Simulator again;
    QVERIFY(again.start(arguments));
    QJsonObject info = again.api("info");
    QCOMPARE(info.value(QLatin1String("exchanges")).toInt(), 3);
    QCOMPARE(info.value(QLatin1String("cloud_log")).toInt(), 1);
    QCOMPARE(info.value(QLatin1String("devices")).toInt(), 1);
    QCOMPARE(again.api("reports").value(QLatin1String("reports")).toArray().size(), 1);
    curl({again.url() + "su/search?is=chkud&pn=KX-100&sv=1.0"});
    QCOMPARE(again.api("exchanges?limit=1")
                 .value(QLatin1String("exchanges"))
                 .toArray()
                 .at(0)
                 .toObject()
                 .value(QLatin1String("id"))
                 .toInt(),
             4);
}

void tst_CommandLine::dataDirectoryThatIsAbsent()
{
    const Run result = run(words(QStringLiteral("--port 0 --data absent")), directory.path());
    QCOMPARE(result.exitStatus, 1);
    QVERIFY2(result.err.contains("absent"), result.err.constData());
}

void tst_CommandLine::dataDirectoryOfAnotherSimulator()
{
    QTemporaryDir data;
    const QStringList arguments = {QStringLiteral("--data"), data.path()};
    Simulator first;
    QVERIFY(first.start(arguments));
    const Run result = run(QStringList{QStringLiteral("--port"), QStringLiteral("0")} + arguments);
    QCOMPARE(result.exitStatus, 1);
    QVERIFY2(result.err.contains("another simulator keeps its data in " + data.path().toUtf8()),
             result.err.constData());
}

void tst_CommandLine::logLine()
{
    Simulator simulator;
    QVERIFY(simulator.start(
        {QStringLiteral("--log"), QStringLiteral("--fault"), QStringLiteral("space,is=chkud")}));
    curl({simulator.url() + "su/search?is=chkud&pn=a%0Ab%20c%C2%9Bd&sv=1.0"});
    QByteArray line;
    QVERIFY(QTest::qWaitFor([&] {
        line += simulator.output();
        return line.endsWith('\n');
    }));
    const QRegularExpression form(QStringLiteral(
        "^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z 127\\.0\\.0\\.1:\\d+ GET /su/search"
        " chkud a\\?b\\?c\\?d 200 \\d+ \\d+\\.\\dms space\\n$"));
    QVERIFY2(form.match(QString::fromLatin1(line)).hasMatch(), line.constData());
}

void tst_CommandLine::faultCommands()
{
    Simulator simulator;
    QVERIFY(simulator.start());
    const auto fault = [&](const QStringList &arguments) {
        return run(QStringList{QStringLiteral("fault")} + arguments
                   + QStringList{QStringLiteral("--url"), QString::fromLatin1(simulator.url())});
    };
    const Run added = fault({QStringLiteral("add"), QStringLiteral("status:503,is=chkud")});
    QCOMPARE(added.exitStatus, 0);
    QCOMPARE(added.out,
             QByteArray("1  on   status {\"code\":503} where {\"is\":\"chkud\"}, met 0\n"));
    fault({QStringLiteral("add"), QStringLiteral("close,path=/ra/*")});
    QCOMPARE(curl({simulator.url() + "su/search?is=chkud"}).status, 503);
    QVERIFY(
        fault({QStringLiteral("disable"), QStringLiteral("1")}).out.startsWith("1  off  status"));
    QCOMPARE(curl({simulator.url() + "su/search?is=chkud"}).status, 200);
    QVERIFY(
        fault({QStringLiteral("enable"), QStringLiteral("1")}).out.startsWith("1  on   status"));
    QCOMPARE(fault({QStringLiteral("list")}).out.count('\n'), 2);
    QCOMPARE(fault({QStringLiteral("remove"), QStringLiteral("1")}).exitStatus, 0);
    QVERIFY(fault({QStringLiteral("list")}).out.startsWith("2  on   close where"));
    QCOMPARE(fault({QStringLiteral("clear")}).exitStatus, 0);
    QCOMPARE(fault({QStringLiteral("list")}).out, QByteArray());
}

void tst_CommandLine::faultCommandsThatFail_data()
{
    QTest::addColumn<QString>("arguments");
    QTest::addColumn<bool>("answers");
    QTest::addColumn<int>("exitStatus");
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("unknown id") << "enable 7" << true << 1 << QByteArray("there is no such rule");
    QTest::newRow("no id") << "remove x" << true << 1
                           << QByteArray("the id must be a whole number");
    QTest::newRow("wrong rule") << "add slow" << true << 64 << QByteArray("unknown fault \"slow\"");
    QTest::newRow("nobody there") << "list" << false << 1 << QByteArray("does not answer");
}

void tst_CommandLine::faultCommandsThatFail()
{
    QFETCH(QString, arguments);
    QFETCH(bool, answers);
    QFETCH(int, exitStatus);
    QFETCH(QByteArray, message);
    Simulator simulator;
    QVERIFY(simulator.start());
    const QString url =
        answers ? QString::fromLatin1(simulator.url()) : QStringLiteral("http://127.0.0.1:1/");
    const Run result = run(QStringList{QStringLiteral("fault")} + words(arguments)
                           + QStringList{QStringLiteral("--url"), url});
    QCOMPARE(result.exitStatus, exitStatus);
    QVERIFY2(result.err.contains(message), result.err.constData());
}

void tst_CommandLine::signalEndsAFaultCommand()
{
    QTcpServer silent;
    QVERIFY(silent.listen(QHostAddress::LocalHost));
    QProcess command;
    command.start(QStringLiteral(KORRIN_CLOUDSIM),
                  {QStringLiteral("fault"), QStringLiteral("list"), QStringLiteral("--url"),
                   QStringLiteral("http://127.0.0.1:%1/").arg(silent.serverPort())});
    QVERIFY(silent.waitForNewConnection(10000));
    QVERIFY(sendSignal(command.processId(), SIGTERM));
    QVERIFY(command.waitForFinished(1000));
    QCOMPARE(command.exitStatus(), QProcess::CrashExit);
}

void tst_CommandLine::signalsEndIt_data()
{
    QTest::addColumn<int>("signal");
    QTest::addColumn<bool>("busy");
    QTest::newRow("SIGINT, idle") << SIGINT << false;
    QTest::newRow("SIGTERM, idle") << SIGTERM << false;
    QTest::newRow("SIGINT, stalled clients") << SIGINT << true;
    QTest::newRow("SIGTERM, stalled clients") << SIGTERM << true;
}

void tst_CommandLine::signalsEndIt()
{
    QFETCH(int, signal);
    QFETCH(bool, busy);
    Simulator simulator;
    QVERIFY(
        simulator.start({QStringLiteral("--fault"), QStringLiteral("stall,path=/su/search"),
                         QStringLiteral("--fault"), QStringLiteral("drip:10,path=/su/download")}));
    std::vector<std::unique_ptr<QTcpSocket>> clients;
    if (busy) {
        for (int i = 0; i < 50; ++i)
            clients.push_back(
                client(simulator.url(), "GET /su/search HTTP/1.1\r\nHost: a\r\n\r\n"));
        clients.push_back(client(simulator.url(),
                                 "GET /su/download?is=dludf&file=kx-100-2.0.bin"
                                 " HTTP/1.1\r\nHost: a\r\n\r\n"));
        clients.push_back(client(simulator.url(), "POST /su/upload HTTP/1.1\r\nContent-Le"));
        clients.push_back(
            client(simulator.url(), "GET /_sim/api/events HTTP/1.1\r\nHost: a\r\n\r\n"));
        clients.push_back(client(simulator.url(), ""));
        QTRY_COMPARE(simulator.api("info").value(QLatin1String("exchanges")).toInt(), 51);
    }
    QElapsedTimer timer;
    timer.start();
    QVERIFY(sendSignal(simulator.processId(), signal));
    QCOMPARE(simulator.wait(), 0);
    QVERIFY2(timer.elapsed() < 1000, QByteArray::number(timer.elapsed()).constData());
}

QTEST_GUILESS_MAIN(tst_CommandLine)
#include "tst_commandline.moc"
