#include "korrinhost.h"
#include "recorded.h"
#include "scriptedserver.h"

#include <QRegularExpression>
#include <QtTest>

using namespace korrintest;

namespace
{

const QByteArray GOOD_BODY = "<r><is>chkra</is><status>1</status><status_code>0</status_code>"
                             "<message>fine</message></r>";

QByteArray latin1(const QJsonValue &value)
{
    return value.toString().toLatin1();
}

/// The recording's server, by the case's status and variant.
QByteArray recordedAnswer(int status, const QByteArray &variant)
{
    const bool isGood = (status >= 200 && status < 300) || variant.contains("valid XML");
    const bool hasBody = status != 204 && status != 304;
    QList<QByteArray> headers;
    if (variant.contains("Location"))
        headers << "Location: http://127.0.0.1:1/elsewhere";
    if (variant.contains("Authenticate Basic"))
        headers << variant.split(' ').first() + ": Basic realm=\"test\"";
    if (variant.contains("Authenticate Digest"))
        headers << "WWW-Authenticate: Digest realm=\"test\", nonce=\"abc\"";
    if (variant.contains("unknown scheme"))
        headers << "WWW-Authenticate: Unknown realm=\"test\"";
    return answer(status, "Reason Phrase", "text/xml",
                  !hasBody     ? QByteArray("")
                      : isGood ? GOOD_BODY
                               : QByteArray("<html><body>not you</body></html>"),
                  headers);
}

/// Details differ in Qt's own words.
QByteArray comparable(const QByteArray &detail)
{
    static const QRegularExpression message(
        QStringLiteral("Error (downloading|transferring) .* - "));
    return QString::fromUtf8(detail).replace(message, QStringLiteral("… ")).toUtf8();
}

} // namespace

/// What becomes of every HTTP status.
class tst_HttpStatus : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void recorded_data();
    void recorded();
    void codesOfStatuses_data();
    void codesOfStatuses();
    void redirectsAreNotFollowed_data();
    void redirectsAreNotFollowed();

private:
    ScriptedServer server;
    const OpenLibrary library;
};

void tst_HttpStatus::recorded_data()
{
    QTest::addColumn<QJsonObject>("recordedCase");
    int row = 0;
    for (const QJsonValue &value : recordedCases(QStringLiteral("http_status.json"))) {
        const QJsonObject object = value.toObject();
        QTest::newRow((QByteArray::number(++row) + ' '
                       + QByteArray::number(object.value(QStringLiteral("status")).toInt()) + ' '
                       + latin1(object.value(QStringLiteral("variant"))))
                          .constData())
            << object;
    }
    QVERIFY(row > 80);
}

void tst_HttpStatus::recorded()
{
    QFETCH(QJsonObject, recordedCase);
    const int status = recordedCase.value(QStringLiteral("status")).toInt();
    const QByteArray variant = latin1(recordedCase.value(QStringLiteral("variant")));
    server.setHandler([status, variant](Connection &connection, const HttpRequest &) {
        connection.send(recordedAnswer(status, variant));
    });
    QByteArray url = server.url();
    if (variant.contains("user:secret@"))
        url.replace("://", "://user:secret@");
    Handle handle(Parameters{{"server_url", url},
                             {"product_no", "PN"},
                             {"mode", "remote_access"},
                             {"recv_timeout", "10"}});
    if (variant.contains("odd product_no"))
        handle.set("product_no", "P N%41&=+#\"<>\\^`{|}[]~\xe9\xff");
    else if (variant.contains("percent escapes"))
        handle.set("product_no", "1%2F %20+%C3%A9");

    for (const char *call : {"check", "recv"}) {
        const QJsonObject expected = recordedCase.value(QLatin1String(call)).toObject();
        server.clear();
        QByteArray data;
        const int result =
            qstrcmp(call, "check") == 0 ? handle.checkEnable() : handle.recvData(&data);
        QCOMPARE(result, expected.value(QStringLiteral("ret")).toInt());
        if (expected.contains(QStringLiteral("size")))
            QCOMPARE(int(data.size()), expected.value(QStringLiteral("size")).toInt());
        // Qt gives up sooner than the recording one on credentials that are refused.
        const int requests = expected.value(QStringLiteral("requests")).toInt();
        QCOMPARE(qMin(server.requestCount(), requests), server.requestCount());

        if (status == 418 || status > 500) {
            const QByteArray text =
                "network content error.(" + QByteArray::number(status) + " Reason Phrase)";
            QCOMPARE(handle.errorNo(), QByteArray("303"));
            QCOMPARE(handle.errorText(), text);
            QVERIFY(handle.errorDetail().startsWith(text + " (QNetworkReply: 299 "));
            continue;
        }
        QCOMPARE(handle.errorNo(), latin1(expected.value(QStringLiteral("error_no"))));
        QCOMPARE(handle.errorText(), latin1(expected.value(QStringLiteral("error_text"))));
        QCOMPARE(comparable(handle.errorDetail()),
                 comparable(latin1(expected.value(QStringLiteral("error_detail")))));
    }
}

void tst_HttpStatus::codesOfStatuses_data()
{
    QTest::addColumn<int>("code");
    for (const int status :
         {400, 402, 406, 409, 410, 418, 422, 429, 500, 501, 502, 503, 504, 505, 599, 999})
        QTest::newRow(QByteArray::number(status).constData()) << 299;
    QTest::newRow("401") << 204;
    QTest::newRow("403") << 202;
    QTest::newRow("404") << 203;
    QTest::newRow("405") << 202;
}

void tst_HttpStatus::codesOfStatuses()
{
    QFETCH(int, code);
    const QByteArray status = QTest::currentDataTag();
    server.setHandler([status](Connection &connection, const HttpRequest &) {
        connection.send(answer(status.toInt(), "Some Reason", "text/html", "body"));
    });
    Handle handle(baseParameters(server.url(), "remote_access"));
    QCOMPARE(handle.recvData(), 0);
    const QByteArray text = "network content error.(" + status + " Some Reason)";
    QCOMPARE(handle.errorNo(), QByteArray("303"));
    QCOMPARE(handle.errorText(), text);
    QVERIFY(handle.errorDetail().startsWith(text + " (QNetworkReply: " + QByteArray::number(code)
                                            + ' '));
    QVERIFY(handle.errorDetail().endsWith(')'));
}

void tst_HttpStatus::redirectsAreNotFollowed_data()
{
    QTest::addColumn<int>("status");
    for (const int status : {301, 302, 303, 307, 308})
        QTest::newRow(QByteArray::number(status).constData()) << status;
}

void tst_HttpStatus::redirectsAreNotFollowed()
{
    QFETCH(int, status);
    ScriptedServer elsewhere;
    const QByteArray location = "Location: " + elsewhere.url("/ra/search");
    server.clear();
    server.setHandler([status, location](Connection &connection, const HttpRequest &) {
        connection.send(answer(status, "Moved", "text/xml", GOOD_BODY, {location}));
    });
    Handle handle(baseParameters(server.url(), "remote_access"));
    QCOMPARE(handle.checkEnable(), 1);
    QCOMPARE(server.requestCount(), 1);
    QCOMPARE(elsewhere.connectionCount(), 0);
}

QTEST_GUILESS_MAIN(tst_HttpStatus)
#include "tst_httpstatus.moc"
