#include "certificateauthority.h"
#include "korrinhost.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

using namespace korrintest;

namespace
{

const int START_TIMEOUT_MS = 20000;
const int MAX_STARTS = 5; // each with other ports
const QByteArray FILE_BYTES(300000, 'f');

const char XML[] = "<?xml version=\"1.0\"?><response><is>chkud</is><status>1</status>"
                   "<status_code>0</status_code><message>by nginx</message>"
                   "<new_soft_ver>2.0</new_soft_ver></response>";

quint16 freePort()
{
    QTcpServer server;
    return server.listen(QHostAddress::LocalHost) ? server.serverPort() : quint16(0);
}

/// Debian keeps daemons where a user's path does not lead.
QString program(const char *name)
{
    return QStandardPaths::findExecutable(
        QLatin1String(name), {QStringLiteral("/usr/sbin"), QStringLiteral("/usr/bin")});
}

/// The socket that listens on this port of 127.0.0.1, as /proc names it; empty when there is none.
QString listeningSocket(quint16 port)
{
    QFile table(QStringLiteral("/proc/net/tcp"));
    if (!table.open(QIODevice::ReadOnly))
        return QString();
    const QByteArray address =
        "0100007F:" + QByteArray::number(port, 16).rightJustified(4, '0').toUpper();
    for (const QByteArray &line : table.readAll().split('\n')) {
        const QList<QByteArray> fields = line.simplified().split(' ');
        if (fields.value(1) == address && fields.value(3) == "0A")
            return QStringLiteral("socket:[%1]").arg(QString::fromLatin1(fields.value(9)));
    }
    return QString();
}

/// Whether it is this process that listens: another one may have taken the port since it was free.
bool listens(qint64 process, quint16 port)
{
    const QString socket = listeningSocket(port);
    const QDir descriptors(QStringLiteral("/proc/%1/fd").arg(process));
    const QFileInfoList links = descriptors.entryInfoList(QDir::AllEntries | QDir::System);
    return !socket.isEmpty()
        && std::any_of(links.begin(), links.end(), [&socket](const QFileInfo &link) {
               return link.symLinkTarget().endsWith(socket);
           });
}

/// Whether @p start, which takes free ports, succeeds, if need be with others.
bool isStarted(const std::function<bool()> &start)
{
    for (int i = 0; i < MAX_STARTS; ++i) {
        if (start())
            return true;
    }
    return false;
}

QByteArray urlOf(const QByteArray &scheme, quint16 port)
{
    return scheme + "://127.0.0.1:" + QByteArray::number(port);
}

/// A server of nginx's configuration; certificate and key are NAME.pem and NAME.key.
QByteArray nginxServer(const QByteArray &listen, const QByteArray &certificate)
{
    QByteArray block =
        "  server {\n"
        "    LISTEN ssl_certificate NAME.pem; ssl_certificate_key NAME.key;\n"
        "    location = /su/search { default_type text/xml; return 200 'XML'; }\n"
        "    location = /su/download { alias FILES/$arg_file; default_type application/zip; }\n"
        "    location = /su/upload { limit_except GET { deny all; } }\n"
        "  }\n";
    return block.replace("LISTEN", listen).replace("NAME", certificate).replace("XML", XML);
}

} // namespace

/// The library with servers and proxies that many use: nginx with TLS, tinyproxy, squid.
class tst_RealServers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void server_data();
    void server();
    void unknownFile();
    void methodThatIsNotAllowed();
    void proxy_data();
    void proxy();

private:
    void write(const QString &name, const QByteArray &bytes);
    bool startDaemon(const QString &program, const QStringList &arguments,
                     const QList<quint16> &ports);
    bool makeCertificates();
    bool startNginx();
    bool startProxy(const QByteArray &kind, bool withCredentials, quint16 port);
    void stopLast();

    QTemporaryDir directory;
    quint16 plainPort = 0;
    quint16 tlsPort = 0;
    quint16 foreignTlsPort = 0; // with a certificate of an authority that is not trusted
    std::unique_ptr<TrustedAlone> trust;
    std::vector<std::unique_ptr<QProcess>> daemons;
    const OpenLibrary library;
};

void tst_RealServers::write(const QString &name, const QByteArray &bytes)
{
    QFile file(directory.filePath(name));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(bytes), qint64(bytes.size()));
}

/// Starts it in the foreground and waits until it listens on all of @p ports, or has ended.
bool tst_RealServers::startDaemon(const QString &path, const QStringList &arguments,
                                  const QList<quint16> &ports)
{
    daemons.push_back(std::make_unique<QProcess>());
    QProcess &daemon = *daemons.back();
    daemon.setWorkingDirectory(directory.path());
    daemon.setProcessChannelMode(QProcess::MergedChannels);
    daemon.start(path, arguments);
    const auto isReady = [&daemon, &ports] {
        return std::all_of(ports.begin(), ports.end(),
                           [&daemon](quint16 port) { return listens(daemon.processId(), port); });
    };
    if (QTest::qWaitFor([&] { return daemon.state() == QProcess::NotRunning || isReady(); },
                        START_TIMEOUT_MS)
        && daemon.state() != QProcess::NotRunning)
        return true;
    qWarning("%s", daemon.readAll().constData());
    stopLast();
    return false;
}

void tst_RealServers::stopLast()
{
    daemons.back()->terminate();
    if (!daemons.back()->waitForFinished(5000))
        daemons.back()->kill();
    daemons.back()->waitForFinished();
    daemons.pop_back();
}

bool tst_RealServers::makeCertificates()
{
    const CertificateAuthority trusted(directory.path(), QStringLiteral("trusted"));
    const CertificateAuthority foreign(directory.path(), QStringLiteral("foreign"));
    const QString ownName = QStringLiteral("IP:127.0.0.1");
    if (!trusted.issue(QStringLiteral("server"), ownName)
        || !foreign.issue(QStringLiteral("other"), ownName))
        return false;
    trust = std::make_unique<TrustedAlone>(trusted);
    return true;
}

bool tst_RealServers::startNginx()
{
    plainPort = freePort();
    tlsPort = freePort();
    foreignTlsPort = freePort();
    QByteArray config = "daemon off; pid nginx.pid; error_log stderr; worker_processes 1;\n"
                        "events {}\n"
                        "http {\n"
                        "  access_log off; client_body_temp_path body; proxy_temp_path proxy;\n"
                        "  fastcgi_temp_path fastcgi; uwsgi_temp_path uwsgi; scgi_temp_path scgi;\n"
                        "  gzip on; gzip_types *; gzip_min_length 1;\n"
        + nginxServer("listen 127.0.0.1:PLAIN; listen 127.0.0.1:TLS ssl;", "server")
        + nginxServer("listen 127.0.0.1:FOREIGN ssl;", "other") + "}\n";
    config.replace("PLAIN", QByteArray::number(plainPort))
        .replace("TLS", QByteArray::number(tlsPort))
        .replace("FOREIGN", QByteArray::number(foreignTlsPort))
        .replace("FILES", directory.path().toLocal8Bit());
    write(QStringLiteral("nginx.conf"), config);
    write(QStringLiteral("update.zip"), FILE_BYTES);
    // Its worker is another user when root starts it.
    QFile::setPermissions(directory.path(), QFile::Permissions(0x7755));
    return startDaemon(program("nginx"),
                       {QStringLiteral("-p"), directory.path() + QLatin1Char('/'),
                        QStringLiteral("-c"), QStringLiteral("nginx.conf")},
                       {plainPort, tlsPort, foreignTlsPort});
}

void tst_RealServers::initTestCase()
{
    for (const char *name : {"nginx", "tinyproxy", "squid"}) {
        if (program(name).isEmpty())
            QSKIP((QByteArray(name) + " is not installed; scripts/install-deps servers does")
                      .constData());
    }
    QVERIFY(makeCertificates());
    QVERIFY(isStarted([this] { return startNginx(); }));
}

void tst_RealServers::cleanupTestCase()
{
    trust.reset();
    while (!daemons.empty())
        stopLast();
}

void tst_RealServers::server_data()
{
    QTest::addColumn<QByteArray>("url");
    QTest::addColumn<bool>("passes");
    QTest::newRow("HTTP") << urlOf("http", plainPort) << true;
    QTest::newRow("HTTPS") << urlOf("https", tlsPort) << true;
    QTest::newRow("HTTPS, certificate of another authority")
        << urlOf("https", foreignTlsPort) << false;
}

void tst_RealServers::server()
{
    QFETCH(QByteArray, url);
    QFETCH(bool, passes);
    const QByteArray error = passes ? "0" : "301";
    Handle handle(baseParameters(url, "update"));
    handle.set("download_file_path", "update.zip");
    QVERIFY2(handle.checkEnable() == int(passes), handle.errorDetail().constData());
    QCOMPARE(handle.errorNo(), error);
    QCOMPARE(handle.errorDetail().contains("SSL handshake failed"), !passes);
    QCOMPARE(handle.get("message"), QByteArray(passes ? "by nginx" : ""));
    QByteArray data;
    QCOMPARE(handle.recvData(&data), int(passes));
    QCOMPARE(handle.errorNo(), error);
    QVERIFY(data == (passes ? FILE_BYTES : QByteArray()));
    const QString path = directory.filePath(QLatin1String(QTest::currentDataTag()));
    QCOMPARE(handle.recvFile(path.toLocal8Bit()), int(passes));
    QCOMPARE(handle.errorNo(), error);
    QCOMPARE(QFileInfo(path).size(), passes ? qint64(FILE_BYTES.size()) : qint64(0));
    QCOMPARE(QFile::exists(path), passes);
}

void tst_RealServers::unknownFile()
{
    Handle handle(baseParameters(urlOf("http", plainPort), "update"));
    handle.set("download_file_path", "absent");
    QCOMPARE(handle.recvData(), 0);
    QCOMPARE(handle.errorText(), QByteArray("network content error.(404 Not Found)"));
}

void tst_RealServers::methodThatIsNotAllowed()
{
    Handle handle(baseParameters(urlOf("http", plainPort), "update"));
    handle.set("send_data_type", "update_log");
    QCOMPARE(handle.sendData("text"), 0);
    QCOMPARE(handle.errorText(), QByteArray("network content error.(403 Forbidden)"));
}

bool tst_RealServers::startProxy(const QByteArray &kind, bool withCredentials, quint16 port)
{
    const QByteArray number = QByteArray::number(port);
    if (kind == "tinyproxy") {
        write(QStringLiteral("tinyproxy.conf"),
              "Port " + number + "\nListen 127.0.0.1\nTimeout 60\nAllow 127.0.0.1\n"
                  + (withCredentials ? "BasicAuth user right\n" : ""));
        return startDaemon(
            program("tinyproxy"),
            {QStringLiteral("-d"), QStringLiteral("-c"), QStringLiteral("tinyproxy.conf")}, {port});
    }
    QProcess openssl;
    openssl.start(QStringLiteral("openssl"),
                  {QStringLiteral("passwd"), QStringLiteral("-apr1"), QStringLiteral("right")});
    openssl.waitForFinished();
    write(QStringLiteral("passwords"), "user:" + openssl.readAllStandardOutput());
    write(QStringLiteral("squid.conf"),
          "http_port 127.0.0.1:" + number
              + "\npid_filename none\naccess_log none\ncache_log /dev/stderr\ncache deny all\n"
                "cache_store_log none\nshutdown_lifetime 0 seconds\ncoredump_dir /tmp\n"
                "pinger_enable off\n"
              + (withCredentials ? "auth_param basic program /usr/lib/squid/basic_ncsa_auth "
                         + directory.filePath(QStringLiteral("passwords")).toLocal8Bit()
                         + "\nacl known proxy_auth REQUIRED\nhttp_access allow known\n"
                           "http_access deny all\n"
                                 : QByteArray("http_access allow all\n")));
    return startDaemon(program("squid"),
                       {QStringLiteral("-N"), QStringLiteral("-n"),
                        QStringLiteral("korrin%1").arg(port), QStringLiteral("-f"),
                        directory.filePath(QStringLiteral("squid.conf"))},
                       {port});
}

void tst_RealServers::proxy_data()
{
    QTest::addColumn<QByteArray>("kind");
    QTest::addColumn<bool>("asks");
    QTest::addColumn<QByteArray>("credentials");
    QTest::addColumn<bool>("passes");
    QTest::addColumn<QByteArray>("forwardError"); // with http
    QTest::addColumn<QByteArray>("tunnelError");  // with https
    const QByteArray none = "0";
    const QByteArray proxyError = "302";
    for (const char *kind : {"tinyproxy", "squid"}) {
        const QByteArray name = kind;
        QTest::newRow((name + ", open").constData())
            << name << false << QByteArray() << true << none << none;
        QTest::newRow((name + ", right password").constData())
            << name << true << QByteArray("user:right@") << true << none << none;
        QTest::newRow((name + ", wrong password").constData())
            << name << true << QByteArray("user:wrong@")
            << false
            // tinyproxy answers 401, as a server would, where 407 is meant.
            << (name == "tinyproxy" ? QByteArray("303") : proxyError)
            << (name == "tinyproxy" ? QByteArray("301") : proxyError);
        QTest::newRow((name + ", no password").constData())
            << name << true << QByteArray() << false << proxyError << proxyError;
    }
}

/// Forward for http, CONNECT for https.
void tst_RealServers::proxy()
{
    QFETCH(QByteArray, kind);
    QFETCH(bool, asks);
    QFETCH(QByteArray, credentials);
    QFETCH(bool, passes);
    QFETCH(QByteArray, forwardError);
    QFETCH(QByteArray, tunnelError);
    quint16 port = 0;
    QVERIFY(isStarted([&] { return startProxy(kind, asks, port = freePort()); }));
    for (const QByteArray &url : {urlOf("http", plainPort), urlOf("https", tlsPort)}) {
        Handle handle(baseParameters(url, "update"));
        handle.set("http_proxy", "http://" + credentials + "127.0.0.1:" + QByteArray::number(port));
        handle.set("download_file_path", "update.zip");
        const int result = handle.checkEnable();
        QVERIFY2(result == int(passes), (url + ": " + handle.errorDetail()).constData());
        QCOMPARE(handle.errorNo(), url.startsWith("https") ? tunnelError : forwardError);
        QByteArray data;
        QCOMPARE(handle.recvData(&data), int(passes));
        QVERIFY(data == (passes ? FILE_BYTES : QByteArray()));
    }
    stopLast();
}

QTEST_GUILESS_MAIN(tst_RealServers)
#include "tst_realservers.moc"
