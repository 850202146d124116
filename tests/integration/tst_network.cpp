#include "debugcapture.h"
#include "korrinhost.h"
#include "scriptedproxy.h"
#include "scriptedserver.h"

#include <QElapsedTimer>
#include <QtTest>

using namespace korrintest;

namespace
{

const QByteArray HEAD_OF_100 =
    "HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\nContent-Length: 100\r\n\r\n";
const QByteArray INVALID_URL_DETAIL =
    "network protocol error (QNetworkReply: 301 Protocol \"\" is unknown)";

} // namespace

/// Networks that fail, proxies, and silence.
class tst_Network : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void brokenExchanges_data();
    void brokenExchanges();
    void closedConnections_data();
    void closedConnections();
    void urlsThatNeverReachTheNetwork_data();
    void urlsThatNeverReachTheNetwork();
    void unknownHost();
    void unusualAnswersAreAccepted_data();
    void unusualAnswersAreAccepted();
    void gzipIsDecoded();
    void nothingIsWrittenWhileDebugOutputIsOff();

    void silenceTimesOut_data();
    void silenceTimesOut();
    void slowAnswerNeverTimesOut();
    void slowUploadNeverTimesOut();
    void wrappedTimeouts_data();
    void wrappedTimeouts();

    void httpGoesThroughTheProxy();
    void httpsAsksForATunnel();
    void proxyCredentials_data();
    void proxyCredentials();
    void secondChallengeIsNotAnswered_data();
    void secondChallengeIsNotAnswered();
    void brokenProxies_data();
    void brokenProxies();
    void httpsProxyHasNoEffect();

private:
    void breakHandshakes();
    QByteArray errorOfCheck(const QByteArray &url, const Parameters &more = Parameters());

    QScopedPointer<ScriptedServer> server;
    const OpenLibrary library;
};

void tst_Network::init()
{
    server.reset(new ScriptedServer);
}

/// Makes the server answer a TLS handshake with something else.
void tst_Network::breakHandshakes()
{
    server->setRawHandler([](Connection &connection) {
        connection.readSome();
        connection.send("this is no handshake\r\n");
    });
}

/// "number|text" of a check that must fail.
QByteArray tst_Network::errorOfCheck(const QByteArray &url, const Parameters &more)
{
    Handle handle(baseParameters(url, "remote_access") + more);
    if (handle.checkEnable() != 0)
        return "succeeded";
    return handle.errorNo() + '|' + handle.errorText();
}

void tst_Network::brokenExchanges_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("error");
    const QByteArray connection = "301|network connection error.";
    QTest::newRow("within the headers")
        << QByteArray("HTTP/1.1 200 OK\r\nContent-Ty") << connection;
    QTest::newRow("after the headers") << HEAD_OF_100 << connection;
    QTest::newRow("within the body") << HEAD_OF_100 + "<r><is>chkra" << connection;
    QTest::newRow("within the body of a 404")
        << QByteArray("HTTP/1.1 404 Not Found\r\nContent-Length: 100\r\n\r\nsorry") << connection;
    QTest::newRow("within a large body")
        << "HTTP/1.1 200 OK\r\nContent-Length: 2000000\r\n\r\n" + QByteArray(1000000, 'x')
        << connection;
}

void tst_Network::brokenExchanges()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QByteArray, error);
    server->setHandler(
        [bytes](Connection &connection, const HttpRequest &) { connection.send(bytes); });
    QCOMPARE(errorOfCheck(server->url()), error);
}

void tst_Network::closedConnections_data()
{
    QTest::addColumn<int>("how");
    QTest::newRow("closed before the answer") << 0;
    QTest::newRow("reset before the answer") << 1;
    QTest::newRow("refused") << 2;
}

void tst_Network::closedConnections()
{
    QFETCH(int, how);
    if (how == 0)
        server->setHandler([](Connection &, const HttpRequest &) {});
    else if (how == 1)
        server->setHandler([](Connection &connection, const HttpRequest &) { connection.reset(); });
    const QByteArray url =
        how == 2 ? "http://127.0.0.1:" + QByteArray::number(refusedPort()) + '/' : server->url();
    Handle handle(baseParameters(url, "remote_access"));
    QCOMPARE(handle.checkEnable(), 0);
    QCOMPARE(handle.errorNo(), QByteArray("301"));
    QCOMPARE(handle.errorText(), QByteArray("network connection error."));
    if (how == 2) {
        QCOMPARE(handle.errorDetail(),
                 QByteArray("network connection error. (QNetworkReply: 1 Connection refused)"));
    }
    QByteArray data;
    QCOMPARE(handle.recvData(&data), 0);
    QVERIFY(data.isNull());
}

void tst_Network::urlsThatNeverReachTheNetwork_data()
{
    QTest::addColumn<QByteArray>("url");
    QTest::addColumn<QByteArray>("detail");
    QTest::newRow("empty") << QByteArray() << INVALID_URL_DETAIL;
    QTest::newRow("port too large") << QByteArray("http://127.0.0.1:99999/") << INVALID_URL_DETAIL;
    QTest::newRow("port is no number") << QByteArray("http://127.0.0.1:8o/") << INVALID_URL_DETAIL;
    QTest::newRow("negative port") << QByteArray("http://127.0.0.1:-1/") << INVALID_URL_DETAIL;
    QTest::newRow("unclosed bracket") << QByteArray("http://[::1/") << INVALID_URL_DETAIL;
    QTest::newRow("no scheme") << QByteArray("127.0.0.1/") << INVALID_URL_DETAIL;
    QTest::newRow("unknown scheme")
        << QByteArray("foo://127.0.0.1/")
        << QByteArray("network protocol error (QNetworkReply: 301 Protocol \"foo\" is unknown)");
}

void tst_Network::urlsThatNeverReachTheNetwork()
{
    QFETCH(QByteArray, url);
    QFETCH(QByteArray, detail);
    for (const char *mode : {"remote_access", "update", "s3_upload"}) {
        Handle handle(baseParameters(url, mode));
        QCOMPARE(handle.checkEnable(), 0);
        QCOMPARE(handle.errorNo(), QByteArray("304"));
        QCOMPARE(handle.errorText(), QByteArray("network protocol error"));
        QCOMPARE(handle.errorDetail(), detail);
        QCOMPARE(handle.recvData(), 0);
        QCOMPARE(handle.errorDetail(), detail);
        handle.set("send_data_type", "update_log");
        QCOMPARE(handle.sendData("x"), 0);
        QCOMPARE(handle.errorDetail(), detail);
    }
}

void tst_Network::unknownHost()
{
    // RFC 6761, section 6.4: names under "invalid" never resolve.
    QCOMPARE(errorOfCheck("http://nowhere.invalid/"), QByteArray("301|network connection error."));
}

void tst_Network::unusualAnswersAreAccepted_data()
{
    QTest::addColumn<QByteArray>("bytes");
    const QByteArray body = xmlBody("chkra");
    const QByteArray length = "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
    QTest::newRow("chunked") << chunkedAnswer("text/xml", {body.left(5), body.mid(5)});
    QTest::newRow("ends with the connection") << "HTTP/1.1 200 OK\r\n\r\n" + body;
    QTest::newRow("HTTP/1.0") << "HTTP/1.0 200 OK\r\n\r\n" + body;
    QTest::newRow("100 first") << "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\n" + length
            + "\r\n" + body;
    QTest::newRow("no reason") << "HTTP/1.1 200 \r\n" + length + "\r\n" + body;
    QByteArray many = "HTTP/1.1 200 OK\r\n";
    for (int i = 0; i < 300; ++i)
        many += "X-Header-" + QByteArray::number(i) + ": value\r\n";
    QTest::newRow("300 headers") << many + length + "\r\n" + body;
    QTest::newRow("cookie") << "HTTP/1.1 200 OK\r\nSet-Cookie: a=b\r\n" + length + "\r\n" + body;
}

void tst_Network::unusualAnswersAreAccepted()
{
    QFETCH(QByteArray, bytes);
    server->setHandler(
        [bytes](Connection &connection, const HttpRequest &) { connection.send(bytes); });
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.checkEnable(), 1);
    QCOMPARE(handle.checkEnable(), 1);
    // Nothing of one exchange reaches the next.
    QVERIFY(server->connectionCount() >= 2);
    QVERIFY(!server->requests().last().hasHeader("Cookie"));
}

void tst_Network::gzipIsDecoded()
{
    // gzip of "<r><is>chkra</is><status>1</status></r>".
    const QByteArray packed = QByteArray::fromBase64(
        "H4sIAAAAAAAC/7MpsrPJLLZLzsguSrTRB7JsiksSS0qL7Qxt9KEsG/0iOwB5d63XJwAAAA==");
    server->setHandler([packed](Connection &connection, const HttpRequest &request) {
        QByteArray accepted = request.header("Accept-Encoding");
        connection.send(answer(accepted.contains("gzip") ? 200 : 500, "OK", "text/xml", packed,
                               {"Content-Encoding: gzip"}));
    });
    Handle handle(baseParameters(server->url(), "remote_access"));
    QByteArray data;
    QCOMPARE(handle.recvData(&data), 1);
    QCOMPARE(data, QByteArray("<r><is>chkra</is><status>1</status></r>"));
}

void tst_Network::nothingIsWrittenWhileDebugOutputIsOff()
{
    const DebugCapture capture(false);
    Handle handle(baseParameters(server->url(), "update"));
    handle.set("send_data_type", "update_log");
    QCOMPARE(handle.checkEnable(), 1);
    QCOMPARE(handle.sendData("x"), 1);
    QCOMPARE(handle.recvData(), 1);
    handle.set("recv_timeout", "2147484");
    QCOMPARE(handle.checkEnable(), 1);
    handle.set("recv_timeout", "x");
    handle.set("http_proxy", "nonsense");
    handle.checkEnable();
    handle.set("server_url", "http://[::1/");
    handle.checkEnable();
    handle.checkEnable();
    korrinCheckEnable(nullptr);
    QCOMPARE(capture.messages(), QStringList());
}

void tst_Network::silenceTimesOut_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("before the answer") << QByteArray();
    QTest::newRow("within the headers") << QByteArray("HTTP/1.1 200 OK\r\nContent-Ty");
    QTest::newRow("within the body") << HEAD_OF_100 + "<r><is>chkra";
}

void tst_Network::silenceTimesOut()
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
    QVERIFY2(time.elapsed() >= 900 && time.elapsed() < 3000,
             qPrintable(QString::number(time.elapsed())));
    QCOMPARE(handle.errorNo(), QByteArray("305"));
    QCOMPARE(handle.errorText(), QByteArray("timeout occurred."));
    QCOMPARE(handle.errorDetail(), QByteArray("recv_timeout:1"));
    // The handle is as good as new.
    server->setHandler(
        [](Connection &connection, const HttpRequest &) { connection.send(xmlAnswer("chkra")); });
    QCOMPARE(handle.checkEnable(), 1);
}

void tst_Network::slowAnswerNeverTimesOut()
{
    const QByteArray body(8, 'x');
    server->setHandler([body](Connection &connection, const HttpRequest &) {
        const QByteArray whole = answer(200, "OK", "application/zip", body);
        const auto headSize = whole.size() - body.size();
        connection.send(whole.left(headSize));
        connection.sendInPieces(whole.mid(headSize), 1, 300);
    });
    Handle handle(baseParameters(server->url(), "remote_access"));
    handle.set("recv_timeout", "1");
    QByteArray data;
    QElapsedTimer time;
    time.start();
    QCOMPARE(handle.recvData(&data), 1);
    QVERIFY(time.elapsed() > 2000);
    QCOMPARE(data, body);
}

void tst_Network::slowUploadNeverTimesOut()
{
    const QByteArray body(32 * 1024 * 1024, 'u');
    server->setReceiveBufferBytes(64 * 1024);
    server->setReadsBody(false);
    server->setHandler([&body](Connection &connection, const HttpRequest &) {
        // Three seconds for all of it; what the system buffers is gone within one.
        qint64 received = 0;
        while (received < body.size()) {
            const QByteArray bytes = connection.readSome();
            if (bytes.isEmpty())
                return;
            received += bytes.size();
            std::this_thread::sleep_for(
                std::chrono::microseconds(qint64(3000000) * bytes.size() / body.size()));
        }
        connection.send(answer(200, "OK", "", ""));
    });
    Handle handle(baseParameters(server->url(), "s3_upload"));
    handle.set("recv_timeout", "1");
    QElapsedTimer time;
    time.start();
    const int result = handle.sendData(body);
    QCOMPARE(handle.errorDetail(), QByteArray("no error."));
    QCOMPARE(result, 1);
    QVERIFY(time.elapsed() > 2000);
}

void tst_Network::wrappedTimeouts_data()
{
    QTest::addColumn<QByteArray>("timeout");
    QTest::newRow("704 ms again") << QByteArray("4294968");
    QTest::newRow("negative") << QByteArray("2147484");
    QTest::newRow("zero") << QByteArray("536870912");
}

void tst_Network::wrappedTimeouts()
{
    QFETCH(QByteArray, timeout);
    server->setHandler([](Connection &connection, const HttpRequest &) {
        if (!connection.waitForPeerClose(1500))
            connection.send(xmlAnswer("chkra"));
    });
    Handle handle(baseParameters(server->url(), "remote_access"));
    handle.set("recv_timeout", timeout);
    const qint64 wrappedMs = static_cast<qint32>(static_cast<quint32>(timeout.toLongLong() * 1000));
    const int expected = wrappedMs < 0 || wrappedMs > 2500 ? 1 : 0;
    QElapsedTimer time;
    time.start();
    QCOMPARE(handle.checkEnable(), expected);
    if (expected == 0) {
        QVERIFY(time.elapsed() >= wrappedMs * 9 / 10);
        QCOMPARE(handle.errorDetail(), "recv_timeout:" + timeout);
    }
}

void tst_Network::httpGoesThroughTheProxy()
{
    ScriptedProxy proxy;
    Handle handle(baseParameters(server->url(), "remote_access"));
    handle.set("http_proxy", proxy.url());
    QCOMPARE(handle.checkEnable(), 1);
    const HttpRequest request = proxy.requests().value(0);
    QCOMPARE(request.startLine,
             "GET " + server->url("/ra/search?is=chkra&lang=en&pn=PN&sv=1.0") + " HTTP/1.1");
    QVERIFY(!request.hasHeader("Proxy-Authorization"));
    QCOMPARE(server->requestCount(), 1);
}

void tst_Network::httpsAsksForATunnel()
{
    breakHandshakes();
    ScriptedProxy proxy;
    QByteArray url = server->url();
    url.replace("http:", "https:");
    QCOMPARE(errorOfCheck(url, Parameters{{"http_proxy", proxy.url()}, {"https_proxy", "x"}}),
             QByteArray("301|network connection error."));
    const HttpRequest request = proxy.requests().value(0);
    QCOMPARE(request.startLine,
             "CONNECT 127.0.0.1:" + QByteArray::number(server->port()) + " HTTP/1.1");
    QCOMPARE(server->connectionCount(), 1);
}

void tst_Network::proxyCredentials_data()
{
    QTest::addColumn<QByteArray>("scheme");
    QTest::addColumn<QByteArray>("user");
    QTest::addColumn<QByteArray>("password");
    QTest::addColumn<QByteArray>("urlUser");
    QTest::addColumn<QByteArray>("urlPassword");
    for (const char *scheme : {"http", "https"}) {
        QTest::newRow((scheme + QByteArray(" plain")).constData())
            << QByteArray(scheme) << QByteArray("user") << QByteArray("secret")
            << QByteArray("user") << QByteArray("secret");
        QTest::newRow((scheme + QByteArray(" escaped")).constData())
            << QByteArray(scheme) << QByteArray("u@er") << QByteArray("p:w/%")
            << QByteArray("u%40er") << QByteArray("p%3Aw%2F%25");
    }
}

void tst_Network::proxyCredentials()
{
    QFETCH(QByteArray, scheme);
    QFETCH(QByteArray, user);
    QFETCH(QByteArray, password);
    QFETCH(QByteArray, urlUser);
    QFETCH(QByteArray, urlPassword);
    ScriptedProxy proxy;
    proxy.requireCredentials(user, password);
    if (scheme == "https")
        breakHandshakes();
    QByteArray url = server->url();
    url.replace("http:", scheme + ':');
    Handle handle(baseParameters(url, "remote_access"));
    handle.set("http_proxy", proxy.url(urlUser, urlPassword));
    // Past the proxy, the https exchange ends in a failed handshake.
    QCOMPARE(handle.checkEnable(), scheme == "http" ? 1 : 0);
    QVERIFY(handle.errorNo() == "0" || handle.errorNo() == "301");
    QCOMPARE(proxy.challengeCount(), 1);
    QCOMPARE(proxy.requests().last().header("Proxy-Authorization"),
             "Basic " + (user + ':' + password).toBase64());
    QVERIFY(!server->requests().value(0).hasHeader("Authorization"));
}

void tst_Network::secondChallengeIsNotAnswered_data()
{
    QTest::addColumn<QByteArray>("scheme");
    QTest::addColumn<int>("challenges");
    for (const char *scheme : {"http", "https"}) {
        QTest::newRow((scheme + QByteArray(" twice")).constData()) << QByteArray(scheme) << 2;
        QTest::newRow((scheme + QByteArray(" for ever")).constData()) << QByteArray(scheme) << -1;
    }
}

void tst_Network::secondChallengeIsNotAnswered()
{
    QFETCH(QByteArray, scheme);
    QFETCH(int, challenges);
    ScriptedProxy proxy;
    proxy.setChallenges(challenges);
    QByteArray url = server->url();
    url.replace("http:", scheme + ':');
    QCOMPARE(errorOfCheck(
                 url, Parameters{{"http_proxy", proxy.url("user", "secret")}, {"https_proxy", ""}}),
             QByteArray("302|network proxy error."));
    QCOMPARE(proxy.challengeCount(), 2);
    QCOMPARE(server->connectionCount(), 0);
}

void tst_Network::brokenProxies_data()
{
    QTest::addColumn<QByteArray>("proxy");
    QTest::addColumn<QByteArray>("error");
    QTest::addColumn<QByteArray>("scheme");
    const QByteArray refused = "http://127.0.0.1:" + QByteArray::number(refusedPort());
    QTest::newRow("refused") << refused << QByteArray("301|network connection error.")
                             << QByteArray("http:");
    QTest::newRow("refused tunnel")
        << refused << QByteArray("301|network connection error.") << QByteArray("https:");
    QTest::newRow("no port") << QByteArray("http://127.0.0.1")
                             << QByteArray("301|network connection error.") << QByteArray("http:");
    QTest::newRow("no host") << QByteArray("nonsense")
                             << QByteArray("301|network connection error.") << QByteArray("http:");
}

void tst_Network::brokenProxies()
{
    QFETCH(QByteArray, proxy);
    QFETCH(QByteArray, error);
    QFETCH(QByteArray, scheme);
    QByteArray url = server->url();
    url.replace("http:", scheme);
    QCOMPARE(errorOfCheck(url, Parameters{{"http_proxy", proxy}, {"https_proxy", ""}}), error);
    QCOMPARE(server->connectionCount(), 0);
}

void tst_Network::httpsProxyHasNoEffect()
{
    Handle handle(baseParameters(server->url(), "remote_access"));
    handle.set("https_proxy", "http://127.0.0.1:" + QByteArray::number(refusedPort()));
    QCOMPARE(handle.checkEnable(), 1);
}

QTEST_GUILESS_MAIN(tst_Network)
#include "tst_network.moc"
