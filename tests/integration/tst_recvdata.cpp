#include "servicetest.h"

#include <QtTest>

using namespace korrintest;

namespace
{

QByteArray everyByte()
{
    QByteArray bytes;
    for (int i = 0; i < 256; ++i)
        bytes += static_cast<char>(i);
    return bytes;
}

} // namespace

/// korrinRecvData, from the host's call to the bytes on the wire and back.
class tst_RecvData : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void requestLine_data();
    void requestLine();
    void requestHasNoOtherHeadersAndNoBody();
    void offeredVersionAndFileAreSent();
    void parametersThatAreNotSetAreSentEmpty();
    void pathAndQueryOfServerUrlAreReplaced();

    void leftOverBufferBecomesTheQueryOnce();
    void leftOverBufferCannotInjectAHeader_data();
    void leftOverBufferCannotInjectAHeader();

    void dataAreFollowedByANul();
    void emptyBody();
    void binaryData_data();
    void binaryData();
    void dataStayValidUntilTheNextRead();
    void anyAnswerIsTheData_data();
    void anyAnswerIsTheData();
    void earlierStatusCodeIsForgotten();

    void failedExchangeClearsTheOutputs_data();
    void failedExchangeClearsTheOutputs();
    void refusedParametersClearTheOutputs();
    void nullPointersAreRefused_data();
    void nullPointersAreRefused();
    void nameAndArgumentsAreRecorded();
    void logIsSentOnce_data();
    void logIsSentOnce();
    void closedLibraryTouchesNothing();

private:
    void leaveInSendBuffer(Handle &handle, const QByteArray &data);

    QScopedPointer<ScriptedServer> server;
    const OpenLibrary library;
};

void tst_RecvData::init()
{
    server.reset(new ScriptedServer);
}

/// An upload to S3 leaves its data in the send buffer.
void tst_RecvData::leaveInSendBuffer(Handle &handle, const QByteArray &data)
{
    handle.set("mode", "s3_upload");
    QCOMPARE(handle.sendData(data), 1);
    handle.set("mode", "remote_access");
    server->clear();
}

void tst_RecvData::requestLine_data()
{
    QTest::addColumn<QByteArray>("startLine");
    QTest::newRow("update") << QByteArray(
        "GET /su/download?is=dludf&lang=en&nsv=&file=f.zip HTTP/1.1");
    QTest::newRow("remote_access") << QByteArray("GET /ra/download HTTP/1.1");
    QTest::newRow("submit_info") << QByteArray("GET /ra/download HTTP/1.1");
    QTest::newRow("s3_upload") << QByteArray("GET /download HTTP/1.1");
}

void tst_RecvData::requestLine()
{
    QFETCH(QByteArray, startLine);
    Handle handle(baseParameters(server->url(), QTest::currentDataTag()));
    handle.set("download_file_path", "f.zip");
    QCOMPARE(handle.recvData(), 1);
    QCOMPARE(server->requests().at(0).startLine, startLine);
    QCOMPARE(serviceRequests(*server).size(), 1);
}

void tst_RecvData::requestHasNoOtherHeadersAndNoBody()
{
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.recvData(), 1);
    QCOMPARE(headerNames(server->requests().at(0)),
             QByteArray("accept-encoding accept-language connection host user-agent"));
    QCOMPARE(server->requests().at(0).body, QByteArray());
}

void tst_RecvData::offeredVersionAndFileAreSent()
{
    answerWith(*server,
               xmlAnswer("chkud", "1", "0", "m", "<new_soft_ver>2 &amp; 3</new_soft_ver>"));
    Handle handle(baseParameters(server->url(), "update"));
    handle.set("download_file_path", "/up dates/a&b=c.zip");
    QCOMPARE(handle.checkEnable(), 1);
    const QByteArray offered = handle.get("new_soft_ver");
    server->clear();
    QCOMPARE(handle.recvData(), 1);
    QCOMPARE(server->requests().at(0).query(),
             "is=dludf&lang=en&nsv=" + offered.toPercentEncoding()
                 + "&file=/up%20dates/a%26b%3Dc.zip");
    // A download leaves the offered version as it is.
    QCOMPARE(handle.get("new_soft_ver"), offered);
}

void tst_RecvData::parametersThatAreNotSetAreSentEmpty()
{
    Handle handle{{"server_url", server->url()},
                  {"product_no", "PN"},
                  {"mode", "update"},
                  {"cloud_log_file_max_size", "0"}};
    QCOMPARE(handle.recvData(), 1);
    QCOMPARE(server->requests().at(0).query(), QByteArray("is=dludf&lang=&nsv=&file="));
}

void tst_RecvData::pathAndQueryOfServerUrlAreReplaced()
{
    Handle handle(baseParameters(server->url("/api?x=1"), "remote_access"));
    QCOMPARE(handle.recvData(), 1);
    QCOMPARE(server->requests().at(0).target, QByteArray("/ra/download"));
    handle.set("mode", "update");
    QCOMPARE(handle.recvData(), 1);
    QCOMPARE(server->requests().at(1).target,
             QByteArray("/su/download?is=dludf&lang=en&nsv=&file="));
}

void tst_RecvData::leftOverBufferBecomesTheQueryOnce()
{
    Handle handle(baseParameters(server->url("/?x=1"), "s3_upload"));
    leaveInSendBuffer(handle, "a=1&b=2");
    QCOMPARE(handle.recvData(), 1);
    QCOMPARE(handle.recvData(), 1);
    QCOMPARE(server->requests().at(0).target, QByteArray("/ra/download?a=1&b=2"));
    QCOMPARE(server->requests().at(1).target, QByteArray("/ra/download"));
}

void tst_RecvData::leftOverBufferCannotInjectAHeader_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QByteArray>("query");
    QTest::newRow("blanks") << QByteArray("a b  c") << QByteArray("a%20b%20%20c");
    QTest::newRow("request line") << QByteArray("a HTTP/1.1\r\nX-Injected: yes\r\n\r\nGET /")
                                  << QByteArray("a%20HTTP/1.1%0D%0AX-Injected:%20yes"
                                                "%0D%0A%0D%0AGET%20/");
    QTest::newRow("lone line feed")
        << QByteArray("a\nX-Injected: yes\n\n") << QByteArray("a%0AX-Injected:%20yes%0A%0A");
    QTest::newRow("fragment") << QByteArray("a#b#c") << QByteArray("a%23b%23c");
    QTest::newRow("no escape") << QByteArray("a%b%zz%4") << QByteArray("a%25b%25zz%254");
    QTest::newRow("escape") << QByteArray("%0D%0A%20%00") << QByteArray("%0D%0A%20%00");
    QTest::newRow("quotes and brackets")
        << QByteArray("\"<>[]\\^`{|}") << QByteArray("%22%3C%3E%5B%5D%5C%5E%60%7B%7C%7D");
    QTest::newRow("legal") << QByteArray("?/:@-._~!$&'()*+,;=")
                           << QByteArray("?/:@-._~!$&'()*+,;=");

    const QByteArray legal = "!$&'()*+,-./:;=?@_~";
    QByteArray encoded;
    for (const char byte : everyByte()) {
        const bool isAlphanumeric = (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z')
            || (byte >= 'a' && byte <= 'z');
        encoded += isAlphanumeric || legal.contains(byte)
            ? QByteArray(1, byte)
            : '%' + QByteArray(1, byte).toHex().toUpper();
    }
    QTest::newRow("every byte") << everyByte() << encoded;
}

void tst_RecvData::leftOverBufferCannotInjectAHeader()
{
    QFETCH(QByteArray, data);
    QFETCH(QByteArray, query);
    Handle handle(baseParameters(server->url(), "s3_upload"));
    leaveInSendBuffer(handle, data);
    QCOMPARE(handle.recvData(), 1);
    const HttpRequest request = server->requests().at(0);
    QCOMPARE(request.startLine, "GET /ra/download?" + query + " HTTP/1.1");
    QCOMPARE(headerNames(request),
             QByteArray("accept-encoding accept-language connection host user-agent"));
    QCOMPARE(server->requestCount(), 1);
}

void tst_RecvData::dataAreFollowedByANul()
{
    answerBody(*server, "DATA");
    Handle handle(baseParameters(server->url(), "remote_access"));
    const char *data = nullptr;
    int size = -1;
    QCOMPARE(korrinRecvData(handle.get(), &data, &size), 1);
    QCOMPARE(size, 4);
    QCOMPARE(QByteArray(data, 5), QByteArray("DATA\0", 5));
    QCOMPARE(errorOf(handle), QByteArray("0||(data size):4"));
}

void tst_RecvData::emptyBody()
{
    answerBody(*server, "");
    Handle handle(baseParameters(server->url(), "remote_access"));
    const char *data = nullptr;
    int size = -1;
    QCOMPARE(korrinRecvData(handle.get(), &data, &size), 1);
    QCOMPARE(size, 0);
    QVERIFY(data);
    QCOMPARE(data[0], '\0');
    QCOMPARE(errorOf(handle), QByteArray("0||(data size):0"));
}

void tst_RecvData::binaryData_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("every byte") << everyByte();
    QTest::newRow("only NUL") << QByteArray(1234, '\0');
    QTest::newRow("two megabytes") << everyByte().repeated(8192);
}

void tst_RecvData::binaryData()
{
    QFETCH(QByteArray, body);
    answerBody(*server, body);
    Handle handle(baseParameters(server->url(), "remote_access"));
    const char *data = nullptr;
    int size = -1;
    QCOMPARE(korrinRecvData(handle.get(), &data, &size), 1);
    QCOMPARE(size, static_cast<int>(body.size()));
    QVERIFY(QByteArray(data, size) == body);
    QCOMPARE(data[size], '\0');
    QCOMPARE(handle.errorDetail(), "(data size):" + QByteArray::number(body.size()));
}

void tst_RecvData::dataStayValidUntilTheNextRead()
{
    answerBody(*server, "DATA");
    Handle handle(baseParameters(server->url(), "remote_access"));
    Handle other(baseParameters(server->url(), "remote_access"));
    const char *data = nullptr;
    int size = 0;
    QCOMPARE(korrinRecvData(handle.get(), &data, &size), 1);
    handle.set("language_code", "de");
    handle.checkEnable();
    QCOMPARE(other.get("mode"), QByteArray("remote_access"));
    QCOMPARE(data, "DATA");

    // The text replaces the data in the handle's one return buffer, and the other way round.
    QCOMPARE(handle.get("language_code"), QByteArray("de"));
    QCOMPARE(korrinRecvData(handle.get(), &data, &size), 1);
    QCOMPARE(data, "DATA");
}

void tst_RecvData::anyAnswerIsTheData_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("refusing XML") << xmlBody("other", "0", "9", "no");
    QTest::newRow("page") << QByteArray("<html><p>sorry</html>");
    QTest::newRow("nothing") << QByteArray("");
}

void tst_RecvData::anyAnswerIsTheData()
{
    QFETCH(QByteArray, body);
    answerBody(*server, body, "text/xml");
    Handle handle(baseParameters(server->url(), "remote_access"));
    QByteArray data;
    QCOMPARE(handle.recvData(&data), 1);
    QCOMPARE(data, body);
    for (const char *key : {"is", "status", "status_code", "message"})
        QCOMPARE(handle.get(key), QByteArray());
}

void tst_RecvData::earlierStatusCodeIsForgotten()
{
    answerWith(*server, xmlAnswer("chkra", "1", "7", "m"));
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.checkEnable(), 1);
    QCOMPARE(handle.errorText(), QByteArray("m"));
    answerBody(*server, "DATA");
    QCOMPARE(handle.recvData(), 1);
    QCOMPARE(handle.get("status_code"), QByteArray());
    QCOMPARE(handle.errorText(), QByteArray());
}

void tst_RecvData::failedExchangeClearsTheOutputs_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("number");
    QTest::newRow("HTTP 404") << answer(404, "Not Found", "text/html", "sorry")
                              << QByteArray("303");
    QTest::newRow("no answer") << QByteArray("") << QByteArray("301");
    QTest::newRow("broken off") << QByteArray("HTTP/1.1 200 OK\r\nContent-Le") << QByteArray("301");
}

void tst_RecvData::failedExchangeClearsTheOutputs()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QByteArray, number);
    answerWith(*server, bytes);
    Handle handle(baseParameters(server->url(), "remote_access"));
    const char *data = "x";
    int size = 7;
    QCOMPARE(korrinRecvData(handle.get(), &data, &size), 0);
    QVERIFY(!data);
    QCOMPARE(size, 0);
    QCOMPARE(handle.errorNo(), number);
}

void tst_RecvData::refusedParametersClearTheOutputs()
{
    Handle handle(baseParameters(server->url(), "upload"));
    const char *data = "x";
    int size = 7;
    QCOMPARE(korrinRecvData(handle.get(), &data, &size), 0);
    QVERIFY(!data);
    QCOMPARE(size, 0);
    QCOMPARE(errorOf(handle), QByteArray("105|invalid parameter value.|mode:upload"));
    handle.set("product_no", "");
    QCOMPARE(handle.recvData(), 0);
    QCOMPARE(errorOf(handle), QByteArray("103|parameter not set.|product_no:"));
    QCOMPARE(server->connectionCount(), 0);
}

void tst_RecvData::nullPointersAreRefused_data()
{
    QTest::addColumn<bool>("isDataNull");
    QTest::addColumn<bool>("isSizeNull");
    QTest::addColumn<QByteArray>("detail");
    QTest::newRow("data") << true << false << QByteArray("data:0,dataSize:not0");
    QTest::newRow("size") << false << true << QByteArray("data:not0,dataSize:0");
    QTest::newRow("both") << true << true << QByteArray("data:0,dataSize:0");
}

void tst_RecvData::nullPointersAreRefused()
{
    QFETCH(bool, isDataNull);
    QFETCH(bool, isSizeNull);
    QFETCH(QByteArray, detail);
    Handle handle(baseParameters(server->url(), "update"));
    QCOMPARE(handle.checkEnable(), 1);
    server->clear();
    const char *data = "x";
    int size = 7;
    QCOMPARE(
        korrinRecvData(handle.get(), isDataNull ? nullptr : &data, isSizeNull ? nullptr : &size),
        0);
    QCOMPARE(data, "x");
    QCOMPARE(size, 7);
    QCOMPARE(errorOf(handle), "404|null pointer assigned.|" + detail);
    QCOMPARE(serviceRequests(*server).size(), 0);
    QCOMPARE(logRecords(*server), QList<QByteArray>{"korrinRecvData|-|404|" + detail});
    // No exchange, so the results of the one before stay.
    QCOMPARE(handle.get("is"), QByteArray("chkud"));
}

void tst_RecvData::nameAndArgumentsAreRecorded()
{
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.recvData(), 1);
    QCOMPARE(handle.get("func_name"), QByteArray("korrinRecvData"));
    QCOMPARE(handle.get("func_args"), QByteArray("-"));
}

void tst_RecvData::logIsSentOnce_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("outcome");
    QTest::newRow("received") << answer(200, "OK", "application/zip", "DATA")
                              << QByteArray("0|(data size):4");
    QTest::newRow("failed") << answer(404, "Gone", "text/html", "sorry")
                            << QByteArray("303|network content error.(404 Gone) (QNetworkReply: "
                                          "203 ");
}

void tst_RecvData::logIsSentOnce()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QByteArray, outcome);
    server->setHandler([bytes](Connection &connection, const HttpRequest &request) {
        connection.send(isLogPost(request) ? xmlAnswer("cloudlog") : bytes);
    });
    Handle handle(baseParameters(server->url(), "update"));
    handle.recvData();
    QCOMPARE(server->requestCount(), 2);
    const QByteArray record = logRecords(*server).value(0);
    QVERIFY2(record.startsWith("korrinRecvData|-|" + outcome), record.constData());
}

void tst_RecvData::closedLibraryTouchesNothing()
{
    void *handle = korrinCreateHandle();
    korrinClose();
    const char *data = "x";
    int size = 7;
    QCOMPARE(korrinRecvData(handle, &data, &size), 0);
    QCOMPARE(korrinRecvData(handle, nullptr, nullptr), 0);
    korrinOpen();
    QCOMPARE(data, "x");
    QCOMPARE(size, 7);
}

QTEST_GUILESS_MAIN(tst_RecvData)
#include "tst_recvdata.moc"
