#include "curl.h"
#include "simulator.h"

#include <QJsonDocument>
#include <QTcpSocket>
#include <QtTest>

using namespace korrintest;

namespace
{

const int TIMEOUT_MS = 10000;

std::unique_ptr<QTcpSocket> connectTo(const Simulator &simulator)
{
    auto socket = std::make_unique<QTcpSocket>();
    socket->connectToHost(QStringLiteral("127.0.0.1"),
                          quint16(QUrl(QString::fromLatin1(simulator.url())).port()));
    socket->waitForConnected();
    return socket;
}

/// Sends bytes and reads until @p end comes or the peer closes.
QByteArray talk(QTcpSocket &socket, const QByteArray &bytes, const QByteArray &end)
{
    socket.write(bytes);
    QByteArray got;
    while (!got.contains(end) && socket.waitForReadyRead(TIMEOUT_MS))
        got += socket.readAll();
    return got;
}

} // namespace

/// The JSON interface below "/_sim/api", its events, and the bytes it shows.
class tst_Api : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void info();
    void exchangesAreFiltered_data();
    void exchangesAreFiltered();
    void exchangesArePaged();
    void wrongNumbers_data();
    void wrongNumbers();
    void unknownThings_data();
    void unknownThings();
    void oneExchangeByteForByte();
    void chunkedRequestIsKeptAsItCame();
    void severalRequestsOnOneConnection();
    void longMessagesAreCutAfterAMebibyte();
    void unansweredExchange();
    void malformedRequestsAreKept();
    void hostileBytesMakeValidJson();
    void catalogueHidesSecrets();
    void cloudLogIsFiltered();
    void faultsAreManaged();
    void wrongRulesAreRefused_data();
    void wrongRulesAreRefused();
    void longBodiesAreRefused();
    void changesNeedJson();
    void clearing();
    void events();
    void eventsOfASlowExchange();
    void pageIsServed();
    void apiIsNoExchange();

private:
    QJsonArray exchanges(const QByteArray &query);
    QJsonObject newest();
    QByteArray bytesOf(const char *direction);

    Simulator simulator;
};

void tst_Api::initTestCase()
{
    QVERIFY(simulator.start());
}

void tst_Api::init()
{
    simulator.clearFaults();
    simulator.api("DELETE", "exchanges", QByteArray());
}

QJsonArray tst_Api::exchanges(const QByteArray &query)
{
    return simulator.api("exchanges?" + query).value(QLatin1String("exchanges")).toArray();
}

QJsonObject tst_Api::newest()
{
    const int id = exchanges("limit=1").at(0).toObject().value(QLatin1String("id")).toInt();
    return simulator.api("exchanges/" + QByteArray::number(id));
}

QByteArray tst_Api::bytesOf(const char *direction)
{
    return QByteArray::fromBase64(newest().value(QLatin1String(direction)).toString().toLatin1());
}

void tst_Api::info()
{
    curl({simulator.url() + "su/search?is=chkud&pn=KX-100&sv=1.0"});
    const QJsonObject seen = simulator.api("info");
    QCOMPARE(seen.value(QLatin1String("name")).toString(), QStringLiteral("korrin-cloudsim"));
    QCOMPARE(seen.value(QLatin1String("url")).toString().toLatin1(), simulator.url());
    QCOMPARE(seen.value(QLatin1String("exchanges")).toInt(), 1);
    QCOMPARE(seen.value(QLatin1String("devices")).toInt(), 1);
    QCOMPARE(seen.value(QLatin1String("cloud_log")).toInt(), 0);
    QVERIFY(
        QDateTime::fromString(seen.value(QLatin1String("started")).toString(), Qt::ISODateWithMs)
            .isValid());
}

void tst_Api::exchangesAreFiltered_data()
{
    QTest::addColumn<QByteArray>("query");
    QTest::addColumn<int>("found");
    QTest::newRow("all") << QByteArray() << 4;
    QTest::newRow("kind") << QByteArray("is=chkud") << 2;
    QTest::newRow("product") << QByteArray("product=KX-200") << 2;
    QTest::newRow("path") << QByteArray("path=/su/search") << 2;
    QTest::newRow("text, in any case") << QByteArray("q=kx-2") << 2;
    QTest::newRow("text in the path") << QByteArray("q=DOWN") << 1;
    QTest::newRow("status") << QByteArray("q=404") << 1;
    QTest::newRow("all of it") << QByteArray("is=chkud&product=KX-200") << 1;
    QTest::newRow("a quote is text") << QByteArray("q=%27%20OR%201%3D1") << 0;
    QTest::newRow("a wild card is text") << QByteArray("q=%25") << 0;
}

void tst_Api::exchangesAreFiltered()
{
    QFETCH(QByteArray, query);
    QFETCH(int, found);
    curl({simulator.url() + "su/search?is=chkud&pn=KX-100&sv=1.0"});
    curl({simulator.url() + "su/search?is=chkud&pn=KX-200&sv=1.0"});
    curl({simulator.url() + "su/download?is=dludf&file=absent"});
    curl({"-d", "is=udlog&pn=KX-200&data=x", simulator.url() + "su/upload"});
    QCOMPARE(exchanges(query).size(), found);
}

void tst_Api::exchangesArePaged()
{
    for (int i = 0; i < 5; ++i)
        curl({simulator.url() + "su/search"});
    const auto ids = [this](const QByteArray &query) {
        QList<int> result;
        for (const QJsonValue &value : exchanges(query))
            result << value.toObject().value(QLatin1String("id")).toInt();
        return result;
    };
    const QList<int> all = ids("");
    QCOMPARE(all.size(), 5);
    QVERIFY(all.first() > all.last());
    QCOMPARE(ids("limit=2"), all.mid(0, 2));
    QCOMPARE(ids("limit=2&before=" + QByteArray::number(all.at(1))), all.mid(2, 2));
    QCOMPARE(ids("after=" + QByteArray::number(all.at(2))), all.mid(0, 2));
    QCOMPARE(ids("limit=0"), QList<int>());
}

void tst_Api::wrongNumbers_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::newRow("limit") << QByteArray("exchanges?limit=ten");
    QTest::newRow("negative") << QByteArray("exchanges?before=-1");
    QTest::newRow("empty") << QByteArray("cloudlog?after=");
    QTest::newRow("too long") << QByteArray("exchanges?limit=99999999999999999999");
    QTest::newRow("id") << QByteArray("exchanges/x");
}

void tst_Api::wrongNumbers()
{
    QFETCH(QByteArray, path);
    int status = 0;
    const QJsonObject answer = simulator.api("GET", path, QByteArray(), &status);
    QCOMPARE(status, 400);
    QVERIFY(
        answer.value(QLatin1String("error")).toString().contains(QLatin1String("whole number")));
}

void tst_Api::unknownThings_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<int>("status");
    QTest::newRow("exchange") << QByteArray("GET") << QByteArray("exchanges/999999") << 404;
    QTest::newRow("exchange 0") << QByteArray("GET") << QByteArray("exchanges/0") << 404;
    QTest::newRow("resource") << QByteArray("GET") << QByteArray("nothing") << 404;
    QTest::newRow("rule") << QByteArray("DELETE") << QByteArray("faults/999") << 404;
    QTest::newRow("method") << QByteArray("PUT") << QByteArray("faults") << 405;
    QTest::newRow("POST of exchanges") << QByteArray("POST") << QByteArray("exchanges") << 405;
}

void tst_Api::unknownThings()
{
    QFETCH(QByteArray, method);
    QFETCH(QByteArray, path);
    QFETCH(int, status);
    int seen = 0;
    const QJsonObject answer = simulator.api(method, path, QByteArray(), &seen);
    QCOMPARE(seen, status);
    QVERIFY(!answer.value(QLatin1String("error")).toString().isEmpty());
}

void tst_Api::oneExchangeByteForByte()
{
    const QByteArray request = "GET /su/search?is=chkud&lang=en&pn=a%20b+c&sv=1&x&=y HTTP/1.1\r\n"
                               "hOST: localhost\r\nX-Odd:   \xff value \r\n\r\n";
    const auto socket = connectTo(simulator);
    const QByteArray answer = talk(*socket, request, "</response>");
    QVERIFY(answer.endsWith("</response>"));
    const QJsonObject seen = newest();
    QCOMPARE(bytesOf("request"), request);
    QCOMPARE(bytesOf("answer"), answer);
    QCOMPARE(seen.value(QLatin1String("request_bytes")).toInt(), int(request.size()));
    QCOMPARE(seen.value(QLatin1String("answer_bytes")).toInt(), int(answer.size()));
    QCOMPARE(seen.value(QLatin1String("product")).toString(), QStringLiteral("a b+c"));
    QCOMPARE(
        QJsonDocument(seen.value(QLatin1String("items")).toArray()).toJson(QJsonDocument::Compact),
        QByteArray(
            R"([["is","chkud"],["lang","en"],["pn","a b+c"],["sv","1"],["x",""],["","y"]])"));
}

void tst_Api::chunkedRequestIsKeptAsItCame()
{
    const QByteArray request =
        "POST /su/upload HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n"
        "\r\n8\r\nis=udlog\r\n10\r\n&pn=KX-100&data=\r\n2\r\nhi\r\n0\r\n\r\n";
    const auto socket = connectTo(simulator);
    QVERIFY(talk(*socket, request, "</response>").contains("<status>1</status>"));
    QCOMPARE(bytesOf("request"), request);
    QCOMPARE(simulator.api("reports")
                 .value(QLatin1String("reports"))
                 .toArray()
                 .at(0)
                 .toObject()
                 .value(QLatin1String("text"))
                 .toString(),
             QStringLiteral("hi"));
}

void tst_Api::severalRequestsOnOneConnection()
{
    const auto socket = connectTo(simulator);
    const QByteArray one = "GET /su/search?is=a HTTP/1.1\r\nHost: a\r\n\r\n";
    const QByteArray two = "POST /su/upload HTTP/1.1\r\nHost: a\r\nContent-Length: 4\r\n\r\nis=b";
    QVERIFY(talk(*socket, one, "</response>").contains("<is>a</is>"));
    QCOMPARE(bytesOf("request"), one);
    // Both at once, and a third on top.
    QByteArray answers = talk(*socket, two + one, "<is>b</is>");
    while (answers.count("</response>") < 2 && socket->waitForReadyRead(TIMEOUT_MS))
        answers += socket->readAll();
    QCOMPARE(bytesOf("request"), one);
    QCOMPARE(exchanges("").size(), 3);
    QCOMPARE(exchanges("is=b").size(), 1);
}

void tst_Api::longMessagesAreCutAfterAMebibyte()
{
    const QByteArray body = "is=udlog&pn=KX-100&data=" + QByteArray(2 * 1024 * 1024, 'x');
    const auto socket = connectTo(simulator);
    const QByteArray request = "POST /su/upload HTTP/1.1\r\nHost: a\r\nContent-Length: "
        + QByteArray::number(body.size()) + "\r\n\r\n" + body;
    QVERIFY(talk(*socket, request, "</response>").contains("<status>1</status>"));
    const QJsonObject seen = newest();
    QCOMPARE(bytesOf("request"), request.left(1024 * 1024));
    QCOMPARE(seen.value(QLatin1String("request_bytes")).toInt(), int(request.size()));
    QVERIFY(seen.value(QLatin1String("request_truncated")).toBool());
    QVERIFY(!seen.value(QLatin1String("answer_truncated")).toBool());
    QCOMPARE(simulator.api("reports")
                 .value(QLatin1String("reports"))
                 .toArray()
                 .at(0)
                 .toObject()
                 .value(QLatin1String("text"))
                 .toString()
                 .size(),
             2 * 1024 * 1024);
}

void tst_Api::unansweredExchange()
{
    QVERIFY(simulator.addFault(R"({"fault":"close"})") > 0);
    QCOMPARE(curl({simulator.url() + "su/search"}).exitStatus, 52);
    const QJsonObject seen = newest();
    QCOMPARE(seen.value(QLatin1String("status")).toInt(), 0);
    QCOMPARE(seen.value(QLatin1String("answer_bytes")).toInt(), 0);
    QCOMPARE(seen.value(QLatin1String("answer")).toString(), QString());
    QCOMPARE(seen.value(QLatin1String("fault")).toString(), QStringLiteral("close"));
}

void tst_Api::malformedRequestsAreKept()
{
    const QByteArray request = "HELLO\r\n\r\n";
    const auto socket = connectTo(simulator);
    QVERIFY(talk(*socket, request, "\r\n\r\n").startsWith("HTTP/1.1 400 "));
    QVERIFY(bytesOf("request").startsWith("HELLO"));
    QCOMPARE(newest().value(QLatin1String("status")).toInt(), 400);
}

void tst_Api::hostileBytesMakeValidJson()
{
    curl(
        {"-A", "\x01\xc3\x28", simulator.url() + "su/search?is=%00%01%22%5C&pn=%C3%28%FF%3C&sv=1"});
    curl({"-d", "is=cloudlog&pn=%FF&ed=%22%0A&pr=http_proxy:%FE,broken",
          simulator.url() + "su/upload"});
    for (const char *what : {"exchanges", "devices", "cloudlog", "reports"}) {
        const CurlResult answer = curl({simulator.url() + "_sim/api/" + what});
        QCOMPARE(answer.status, 200);
        QJsonParseError error = {};
        QJsonDocument::fromJson(answer.body, &error);
        QCOMPARE(error.error, QJsonParseError::NoError);
    }
    const QString broken = simulator.api("cloudlog")
                               .value(QLatin1String("records"))
                               .toArray()
                               .at(0)
                               .toObject()
                               .value(QLatin1String("settings"))
                               .toObject()
                               .value(QString())
                               .toString();
    QVERIFY(broken.startsWith(QLatin1String("http_proxy:")));
}

void tst_Api::catalogueHidesSecrets()
{
    const QByteArray body = curl({simulator.url() + "_sim/api/catalogue"}).body;
    QVERIFY(body.contains("KORRINSIMACCESSKEY"));
    QVERIFY(!body.contains("sim+secret"));
}

void tst_Api::cloudLogIsFiltered()
{
    for (const char *record :
         {"is=cloudlog&pn=A&fn=korrinSendData&en=0", "is=cloudlog&pn=B&en=305&ed=late"})
        curl({"-d", record, simulator.url() + "su/upload"});
    const auto count = [this](const QByteArray &query) {
        return simulator.api("cloudlog?" + query).value(QLatin1String("records")).toArray().size();
    };
    QCOMPARE(count(""), 2);
    QCOMPARE(count("product=A"), 1);
    QCOMPARE(count("q=LATE"), 1);
    QCOMPARE(count("q=senddata"), 1);
    QCOMPARE(count("limit=1"), 1);
}

void tst_Api::faultsAreManaged()
{
    int status = 0;
    const QJsonObject rule = simulator.api(
        "POST", "faults", R"({"fault":"delay","ms":1,"match":{"is":"chkud"}})", &status);
    QCOMPARE(status, 201);
    const QByteArray path = "faults/" + QByteArray::number(rule.value(QLatin1String("id")).toInt());
    QVERIFY(rule.value(QLatin1String("enabled")).toBool());
    curl({simulator.url() + "su/search?is=chkud"});
    QJsonObject seen = simulator.api("PATCH", path, R"({"enabled":false})", &status);
    QCOMPARE(status, 200);
    QVERIFY(!seen.value(QLatin1String("enabled")).toBool());
    QCOMPARE(seen.value(QLatin1String("hits")).toInt(), 1);
    simulator.api("PATCH", path, R"({"enabled":1})", &status);
    QCOMPARE(status, 400);
    simulator.api("DELETE", path, QByteArray(), &status);
    QCOMPARE(status, 200);
    QVERIFY(simulator.api("faults").value(QLatin1String("faults")).toArray().isEmpty());
}

void tst_Api::wrongRulesAreRefused_data()
{
    QTest::addColumn<QByteArray>("rule");
    QTest::addColumn<QByteArray>("complaint");
    QTest::newRow("no JSON") << QByteArray("{") << QByteArray("not JSON");
    QTest::newRow("no object") << QByteArray("[]") << QByteArray("object");
    QTest::newRow("no fault") << QByteArray("{}") << QByteArray("\"fault\" is missing");
    QTest::newRow("unknown fault") << QByteArray(R"({"fault":"slow"})") << QByteArray("slow");
    QTest::newRow("missing value")
        << QByteArray(R"({"fault":"status"})") << QByteArray("\"code\" is missing");
    QTest::newRow("value of another fault")
        << QByteArray(R"({"fault":"close","ms":1})") << QByteArray("\"ms\"");
    QTest::newRow("value out of range")
        << QByteArray(R"({"fault":"status","code":99})") << QByteArray("\"code\"");
    QTest::newRow("unknown match")
        << QByteArray(R"({"fault":"close","match":{"host":"x"}})") << QByteArray("\"host\"");
    QTest::newRow("every and next")
        << QByteArray(R"({"fault":"close","match":{"every":2,"next":2}})") << QByteArray("one of");
    QTest::newRow("probability") << QByteArray(R"({"fault":"close","match":{"probability":2}})")
                                 << QByteArray("probability");
}

void tst_Api::wrongRulesAreRefused()
{
    QFETCH(QByteArray, rule);
    QFETCH(QByteArray, complaint);
    int status = 0;
    const QJsonObject answer = simulator.api("POST", "faults", rule, &status);
    QCOMPARE(status, 400);
    const QByteArray error = answer.value(QLatin1String("error")).toString().toUtf8();
    QVERIFY2(error.contains(complaint), error.constData());
}

void tst_Api::longBodiesAreRefused()
{
    int status = 0;
    const QJsonObject answer = simulator.api("POST", "faults", QByteArray(100000, '['), &status);
    QCOMPARE(status, 413);
    QVERIFY(answer.value(QLatin1String("error")).toString().contains(QLatin1String("65536")));
}

void tst_Api::changesNeedJson()
{
    const CurlResult form =
        curl({"-d", R"({"fault":"close"})", simulator.url() + "_sim/api/faults"});
    QCOMPARE(form.status, 415);
    QVERIFY(simulator.api("faults").value(QLatin1String("faults")).toArray().isEmpty());
}

void tst_Api::clearing()
{
    curl({"-d", "is=cloudlog&pn=A", simulator.url() + "su/upload"});
    curl({"-d", "is=udlog&pn=KX-100&data=x", simulator.url() + "su/upload"});
    simulator.api("DELETE", "exchanges", QByteArray());
    const QJsonObject info = simulator.api("info");
    for (const char *what : {"exchanges", "cloud_log", "devices"})
        QCOMPARE(info.value(QLatin1String(what)).toInt(), 0);
    QVERIFY(simulator.api("reports").value(QLatin1String("reports")).toArray().isEmpty());
}

void tst_Api::events()
{
    const auto socket = connectTo(simulator);
    const QByteArray listen = "GET /_sim/api/events HTTP/1.1\r\nHost: a\r\n\r\n";
    QVERIFY(talk(*socket, listen, "\r\n\r\n").contains("Content-Type: text/event-stream"));
    curl({simulator.url() + "su/search?is=chkud&pn=KX-100&sv=1.0"});
    QVERIFY(talk(*socket, "", "\"is\":\"chkud\"").contains("event: exchange\ndata: {"));
    curl({"-d", "is=cloudlog&pn=A", simulator.url() + "su/upload"});
    QVERIFY(talk(*socket, "", "event: cloudlog\n").contains("event: cloudlog\n"));
    simulator.addFault(R"({"fault":"close"})");
    QVERIFY(talk(*socket, "", "event: faults\n").contains("event: faults\n"));
    simulator.clearFaults();
    simulator.api("DELETE", "exchanges", QByteArray());
    QVERIFY(talk(*socket, "", "event: cleared\n").contains("event: cleared\n"));
}

void tst_Api::eventsOfASlowExchange()
{
    QVERIFY(simulator.addFault(R"({"fault":"delay","ms":200})") > 0);
    const auto socket = connectTo(simulator);
    talk(*socket, "GET /_sim/api/events HTTP/1.1\r\nHost: a\r\n\r\n", "\r\n\r\n");
    const auto device = connectTo(simulator);
    device->write("GET /su/search HTTP/1.1\r\nHost: a\r\n\r\n");
    device->flush();
    QVERIFY(talk(*socket, "", "event: exchange\n").contains("\"duration_ms\":null"));
    const QByteArray ended = talk(*socket, "", "event: exchange\n");
    QVERIFY2(ended.contains("event: exchange\n") && !ended.contains("\"duration_ms\":null"),
             ended.constData());
}

void tst_Api::pageIsServed()
{
    const CurlResult page = curl({simulator.url() + "_sim/"});
    QCOMPARE(page.status, 200);
    QVERIFY(page.header("Content-Type").startsWith("text/html"));
    QVERIFY(page.header("Content-Security-Policy").contains("default-src 'none'"));
    QVERIFY(page.body.contains("<style>") && page.body.contains("<script>"));
    QVERIFY(page.body.endsWith("</html>\n"));
    QCOMPARE(curl({"-H", "Accept: text/html", simulator.url()}).header("Location"),
             QByteArray("/_sim/"));
    QCOMPARE(curl({simulator.url() + "_sim"}).header("Location"), QByteArray("/_sim/"));
    QCOMPARE(curl({"-I", simulator.url() + "_sim/"}).status, 200);
}

void tst_Api::apiIsNoExchange()
{
    QVERIFY(simulator.addFault(R"({"fault":"status","code":500})") > 0);
    QCOMPARE(curl({simulator.url() + "_sim/api/info"}).status, 200);
    QCOMPARE(exchanges("").size(), 0);
}

QTEST_GUILESS_MAIN(tst_Api)
#include "tst_api.moc"
