#include "korrinhost.h"
#include "scriptedserver.h"

#include <QtTest>

using namespace korrintest;

namespace
{

void answerWith(ScriptedServer &server, const QByteArray &bytes)
{
    server.setHandler(
        [bytes](Connection &connection, const HttpRequest &) { connection.send(bytes); });
}

} // namespace

/// korrinCheckEnable, korrinSendData and korrinRecvData, from the host's call to the bytes on the
/// wire and back.
class tst_ServiceCalls : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void requestOnTheWire_data();
    void requestOnTheWire();
    void postHasNoContentType();
    void emptyPostHasALength();
    void serversPathAndQuery();
    void oddParametersAreEncoded();
    void leftOverBufferCannotInjectAHeader();

    void answerIsJudged_data();
    void answerIsJudged();
    void mismatchedSendHasItsOwnDetail();
    void resultParametersAreClearedFirst();
    void newSoftVerIsTakenOverByTheUpdateCheckOnly();
    void errorTextStaysWithAStatusCode();
    void everyModeRequiresItsParameters_data();
    void everyModeRequiresItsParameters();
    void modeMayChangeBetweenCalls();
    void submitInfoIsServedAsRemoteAccess();

    void sendRecordsAPrefixOfTheData_data();
    void sendRecordsAPrefixOfTheData();
    void sendTakesTheWholeBlock();
    void sendWithoutAByte_data();
    void sendWithoutAByte();
    void sendReadsNoFurtherThanItsSize();
    void remoteAccessSendPostsTheBufferNotTheData();

    void recvHandsOutTheDataAndANul();
    void recvOfAnEmptyBody();
    void recvAfterAFailureTouchesTheOutputs();
    void recvRefusesNullPointers_data();
    void recvRefusesNullPointers();
    void recvKeepsBinaryData();
    void recvBufferIsReplacedByTheNextRead();
    void recvDoesNotLookAtTheAnswer();

private:
    QScopedPointer<ScriptedServer> server;
    const OpenLibrary library;
};

void tst_ServiceCalls::init()
{
    server.reset(new ScriptedServer);
}

void tst_ServiceCalls::requestOnTheWire_data()
{
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<QByteArray>("call");
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QByteArray>("startLine");
    QTest::addColumn<QByteArray>("body");
    const auto row = [](const char *mode, const char *call, const char *type, const char *startLine,
                        const char *body) {
        QTest::newRow((QByteArray(mode) + ' ' + call + ' ' + type).constData())
            << QByteArray(mode) << QByteArray(call) << QByteArray(type)
            << QByteArray(startLine) + " HTTP/1.1" << QByteArray(body);
    };
    row("update", "check", "", "GET /su/search?is=chkud&lang=en&pn=PN&sv=1.0", "");
    row("update", "send", "result", "POST /su/upload", "is=nsv&lang=en&pn=PN&st=0&nsv=1.0");
    row("update", "send", "update_log", "POST /su/upload", "is=udlog&lang=en&pn=PN&data=abc");
    row("update", "recv", "", "GET /su/download?is=dludf&lang=en&nsv=&file=f.zip", "");
    row("remote_access", "check", "", "GET /ra/search?is=chkra&lang=en&pn=PN&sv=1.0", "");
    row("remote_access", "send", "", "POST /ra/upload", "");
    row("remote_access", "recv", "", "GET /ra/download", "");
    row("submit_info", "check", "", "GET /ra/search?is=chkra&lang=en&pn=PN&sv=1.0", "");
    row("submit_info", "recv", "", "GET /ra/download", "");
    row("s3_upload", "check", "", "GET /search", "");
    row("s3_upload", "recv", "", "GET /download", "");
    row("s3_upload", "send", "", "PUT /", "abc");
}

void tst_ServiceCalls::requestOnTheWire()
{
    QFETCH(QByteArray, mode);
    QFETCH(QByteArray, call);
    QFETCH(QByteArray, type);
    QFETCH(QByteArray, startLine);
    QFETCH(QByteArray, body);
    Handle handle(baseParameters(server->url("/some/path"), mode));
    if (mode == "s3_upload" && call == "send")
        handle.set("server_url", server->url("/"));
    handle.set("download_file_path", "f.zip");
    handle.set("send_data_type", type);
    handle.set("result", "0");
    if (call == "check")
        handle.checkEnable();
    else if (call == "send")
        handle.sendData("abc");
    else
        handle.recvData();
    const HttpRequest request = server->requests().value(0);
    QCOMPARE(request.startLine, startLine);
    QCOMPARE(request.body, body);
    QCOMPARE(request.header("Host"),
             "127.0.0.1"
                 + QByteArray(mode == "s3_upload" && call == "send"
                                  ? ""
                                  : ":" + QByteArray::number(server->port())));
    // Only the mode "update" keeps a log.
    QCOMPARE(server->requestCount(), mode == "update" ? 2 : 1);
}

void tst_ServiceCalls::postHasNoContentType()
{
    Handle handle(baseParameters(server->url(), "update"));
    handle.set("send_data_type", "update_log");
    QCOMPARE(handle.sendData("abc"), 1);
    for (const HttpRequest &request : server->requests()) {
        QCOMPARE(request.method, QByteArray("POST"));
        QVERIFY(!request.hasHeader("Content-Type"));
        QCOMPARE(request.header("Content-Length"), QByteArray::number(request.body.size()));
        QVERIFY(!request.hasHeader("HTTP2-Settings"));
        QVERIFY(!request.hasHeader("Upgrade"));
        QVERIFY(!request.hasHeader("Authorization"));
        QVERIFY(!request.hasHeader("Cookie"));
    }
}

void tst_ServiceCalls::emptyPostHasALength()
{
    answerWith(*server, answer(200, "OK", "text/xml", "<r><status>1</status></r>"));
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.sendData("ignored"), 1);
    const HttpRequest request = server->requests().at(0);
    QCOMPARE(request.header("Content-Length"), QByteArray("0"));
    QVERIFY(!request.hasHeader("Content-Type"));
}

void tst_ServiceCalls::serversPathAndQuery()
{
    Handle handle(baseParameters(server->url("/api?x=1"), "update"));
    handle.set("send_data_type", "update_log");
    handle.checkEnable();
    handle.sendData("abc");
    QList<QByteArray> targets;
    for (const HttpRequest &request : server->requests())
        targets << request.target;
    QCOMPARE(targets,
             QList<QByteArray>({"/su/search?is=chkud&lang=en&pn=PN&sv=1.0", "/su/upload?x=1",
                                "/su/upload?x=1", "/su/upload?x=1"}));
}

void tst_ServiceCalls::oddParametersAreEncoded()
{
    Handle handle(baseParameters(server->url(), "remote_access"));
    handle.set("language_code", "e n&x=1");
    handle.set("product_no", "100%25");
    handle.set("soft_ver", "1\r\nX-Injected: yes\r\n\r\nGET / HTTP/1.1");
    QCOMPARE(handle.checkEnable(), 1);
    const HttpRequest request = server->requests().at(0);
    QCOMPARE(request.query(),
             QByteArray("is=chkra&lang=e%20n%26x%3D1&pn=100%2525"
                        "&sv=1%0D%0AX-Injected:%20yes%0D%0A%0D%0AGET%20/%20HTTP/1.1"));
    QVERIFY(!request.hasHeader("X-Injected"));
    QCOMPARE(server->requestCount(), 1);
}

void tst_ServiceCalls::leftOverBufferCannotInjectAHeader()
{
    ScriptedServer bucket([](Connection &connection, const HttpRequest &) {
        connection.send(answer(200, "OK", "", ""));
    });
    Handle handle(baseParameters(bucket.url(), "s3_upload"));
    const QByteArray data =
        QByteArray("a=b HTTP/1.1\r\nX-Injected: yes\r\n\r\n") + '\0' + "\xff#%41%zz?";
    QCOMPARE(handle.sendData(data), 1);
    handle.set("server_url", server->url());
    handle.set("mode", "remote_access");
    QCOMPARE(handle.recvData(), 1);
    const HttpRequest request = server->requests().at(0);
    QVERIFY(!request.hasHeader("X-Injected"));
    // An escape of an unreserved character may be decoded on the way.
    QByteArray query = request.query();
    query.replace("%41", "A");
    QCOMPARE(query,
             QByteArray("a=b%20HTTP/1.1%0D%0AX-Injected:%20yes%0D%0A%0D%0A%00%FF%23A%25zz?"));
    // The buffer has moved into the URL.
    QCOMPARE(handle.recvData(), 1);
    QCOMPARE(server->requests().at(1).target, QByteArray("/ra/download"));
}

void tst_ServiceCalls::answerIsJudged_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<int>("result");
    QTest::addColumn<QByteArray>("error");
    const auto row = [](const char *document, int result, const char *error) {
        QTest::newRow(document) << QByteArray(document) << result << QByteArray(error);
    };
    row("<r><is>chkra</is><status>1</status><status_code>0</status_code></r>", 1, "0||0:");
    row("<r><is>chkra</is><status>1</status><status_code>0</status_code><message>m</message></r>",
        1, "0||0:m");
    row("<r><is>chkra</is><status>1</status><status_code>7</status_code><message>m</message></r>",
        1, "0|m|7:m");
    row("<r><is>chkra</is><status>1</status><status_code>7</status_code></r>", 1, "0|no error.|7:");
    row("<r><is>chkra</is><status>1</status><status_code>x7</status_code></r>", 1, "0||x7:");
    row("<r><is>chkra</is><status>0</status><status_code>12</status_code><message>no</message></r>",
        0, "203|no|12:no");
    row("<r><is>chkra</is><status>0</status></r>", 0, "203|status error.|:");
    row("<r><is>chkra</is></r>", 0, "203|status error.|:");
    row("<r><is>chkra</is><status>01</status></r>", 0, "203|status error.|:");
    row("<r><is>chkra</is><status>1</status>\n</r>", 0, "203|status error.|:");
    row("<r><is>CHKRA</is><status>1</status></r>", 0,
        "202|illegal response received.|is: request chkra, response CHKRA");
    row("<r><status>1</status></r>", 0,
        "202|illegal response received.|is: request chkra, response ");
    row("", 0, "201|xml parse failed.|error on line 1, column 1: unexpected end of file");
    row("hello", 0,
        "201|xml parse failed.|error on line 1, column 1: error occurred while parsing element");
}

void tst_ServiceCalls::answerIsJudged()
{
    QFETCH(QByteArray, document);
    QFETCH(int, result);
    QFETCH(QByteArray, error);
    answerWith(*server, answer(200, "OK", "text/xml", document));
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.checkEnable(), result);
    QCOMPARE(handle.errorNo() + '|' + handle.errorText() + '|' + handle.errorDetail(), error);
    QCOMPARE(handle.get("func_name"), QByteArray("korrinCheckEnable"));
    QCOMPARE(handle.get("func_args"), QByteArray("-"));
}

void tst_ServiceCalls::mismatchedSendHasItsOwnDetail()
{
    answerWith(*server, xmlAnswer("X1"));
    Handle handle(baseParameters(server->url(), "update"));
    handle.set("send_data_type", "result");
    handle.set("result", "1");
    QCOMPARE(handle.sendData("x"), 0);
    QCOMPARE(handle.errorNo(), QByteArray("202"));
    QCOMPARE(handle.errorDetail(), QByteArray("<is> request:nsv, response:X1"));
}

void tst_ServiceCalls::resultParametersAreClearedFirst()
{
    answerWith(*server, xmlAnswer("chkud", "1", "5", "m", "<new_soft_ver>2.0</new_soft_ver>"));
    Handle handle(baseParameters(server->url(), "update"));
    QCOMPARE(handle.checkEnable(), 1);
    QCOMPARE(handle.get("new_soft_ver"), QByteArray("2.0"));
    QCOMPARE(handle.get("status_code"), QByteArray("5"));

    answerWith(*server, answer(500, "Oops", "text/html", ""));
    QCOMPARE(handle.checkEnable(), 0);
    for (const char *key : {"is", "status", "status_code", "message", "new_soft_ver"})
        QCOMPARE(handle.get(key), QByteArray());
}

void tst_ServiceCalls::newSoftVerIsTakenOverByTheUpdateCheckOnly()
{
    answerWith(*server, xmlAnswer("chkra", "1", "0", "m", "<new_soft_ver>2.0</new_soft_ver>"));
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.checkEnable(), 1);
    QCOMPARE(handle.get("new_soft_ver"), QByteArray());
    QCOMPARE(handle.get("is"), QByteArray("chkra"));
    QCOMPARE(handle.get("message"), QByteArray("m"));
}

void tst_ServiceCalls::errorTextStaysWithAStatusCode()
{
    answerWith(*server, xmlAnswer("nsv", "1", "3", "three"));
    Handle handle(baseParameters(server->url(), "update"));
    handle.set("send_data_type", "result");
    handle.set("result", "1");
    QCOMPARE(handle.sendData(""), 1);
    QCOMPARE(handle.errorText(), QByteArray("three"));
    answerWith(*server, xmlAnswer("nsv", "1", "0", "three"));
    QCOMPARE(handle.sendData(""), 1);
    QCOMPARE(handle.errorText(), QByteArray());
    QCOMPARE(handle.errorNo(), QByteArray("0"));
}

void tst_ServiceCalls::everyModeRequiresItsParameters_data()
{
    QTest::addColumn<QByteArray>("productNo");
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<QByteArray>("error");
    QTest::newRow("nothing") << QByteArray() << QByteArray() << QByteArray("103 product_no:");
    QTest::newRow("no product") << QByteArray() << QByteArray("update")
                                << QByteArray("103 product_no:");
    QTest::newRow("no mode") << QByteArray("PN") << QByteArray() << QByteArray("103 mode:");
    QTest::newRow("bad mode") << QByteArray("PN") << QByteArray("upload")
                              << QByteArray("105 mode:upload");
    QTest::newRow("case") << QByteArray("PN") << QByteArray("S3_UPLOAD")
                          << QByteArray("105 mode:S3_UPLOAD");
}

void tst_ServiceCalls::everyModeRequiresItsParameters()
{
    QFETCH(QByteArray, productNo);
    QFETCH(QByteArray, mode);
    QFETCH(QByteArray, error);
    Handle handle(baseParameters(server->url(), mode));
    handle.set("product_no", productNo);
    QByteArray data;
    QCOMPARE(handle.checkEnable(), 0);
    QCOMPARE(handle.errorNo() + ' ' + handle.errorDetail(), error);
    QCOMPARE(handle.sendData("x"), 0);
    QCOMPARE(handle.errorNo() + ' ' + handle.errorDetail(), error);
    QCOMPARE(handle.recvData(&data), 0);
    QCOMPARE(handle.errorNo() + ' ' + handle.errorDetail(), error);
    QCOMPARE(server->requestCount(), 0);
}

void tst_ServiceCalls::modeMayChangeBetweenCalls()
{
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.checkEnable(), 1);
    handle.set("mode", "update");
    QCOMPARE(handle.checkEnable(), 1);
    QCOMPARE(server->requests().at(0).path(), QByteArray("/ra/search"));
    QCOMPARE(server->requests().at(1).path(), QByteArray("/su/search"));
}

void tst_ServiceCalls::submitInfoIsServedAsRemoteAccess()
{
    Handle handle(baseParameters(server->url(), "submit_info"));
    QCOMPARE(handle.checkEnable(), 1);
    QCOMPARE(handle.checkEnable(), 1);
    QCOMPARE(server->requests().at(1).path(), QByteArray("/ra/search"));
    QCOMPARE(server->requestCount(), 2);
}

void tst_ServiceCalls::sendRecordsAPrefixOfTheData_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QByteArray>("arguments");
    QTest::newRow("short") << QByteArray("abc") << QByteArray("data:abc,dataSize:3");
    QTest::newRow("100 characters")
        << QByteArray(100, 'x') << "data:" + QByteArray(32, 'x') + ",dataSize:100";
    QTest::newRow("NUL in second place")
        << QByteArray("a\0bcd", 5) << QByteArray("data:a,dataSize:5");
    QTest::newRow("placeholders") << QByteArray("%1,%2,%3,%4")
                                  << QByteArray("data:%1,%2,%3,%4,dataSize:11");
    QTest::newRow("Latin-1") << QByteArray("\xe9") << QByteArray("data:\xc3\xa9,dataSize:1");
}

void tst_ServiceCalls::sendRecordsAPrefixOfTheData()
{
    QFETCH(QByteArray, data);
    QFETCH(QByteArray, arguments);
    Handle handle(baseParameters(server->url(), "s3_upload"));
    QCOMPARE(handle.sendData(data), 1);
    QCOMPARE(handle.get("func_name"), QByteArray("korrinSendData"));
    QCOMPARE(handle.get("func_args"), arguments);
}

void tst_ServiceCalls::sendTakesTheWholeBlock()
{
    const QByteArray data("ab\0cd", 5);
    Handle handle(baseParameters(server->url(), "s3_upload"));
    QCOMPARE(handle.sendData(data), 1);
    QCOMPARE(server->requests().at(0).body, data);
}

void tst_ServiceCalls::sendWithoutAByte_data()
{
    QTest::addColumn<bool>("isNull");
    QTest::addColumn<int>("size");
    QTest::newRow("null, 0") << true << 0;
    QTest::newRow("null, 5") << true << 5;
    QTest::newRow("null, -1") << true << -1;
    QTest::newRow("text, 0") << false << 0;
    QTest::newRow("text, -1") << false << -1;
    QTest::newRow("text, smallest") << false << std::numeric_limits<int>::min();
}

void tst_ServiceCalls::sendWithoutAByte()
{
    QFETCH(bool, isNull);
    QFETCH(int, size);
    Handle handle(baseParameters(server->url(), "update"));
    handle.set("send_data_type", "update_log");
    QCOMPARE(korrinSendData(handle.get(), isNull ? nullptr : "text", size), 1);
    QCOMPARE(server->requests().at(0).body, QByteArray("is=udlog&lang=en&pn=PN&data="));
    QCOMPARE(handle.get("func_args"), "data:,dataSize:" + QByteArray::number(size));
}

void tst_ServiceCalls::sendReadsNoFurtherThanItsSize()
{
    // Exactly three bytes and no NUL: AddressSanitizer would see a byte read beyond them.
    const std::unique_ptr<char[]> block(new char[3]{'a', 'b', 'c'});
    Handle handle(baseParameters(server->url(), "s3_upload"));
    QCOMPARE(korrinSendData(handle.get(), block.get(), 3), 1);
    QCOMPARE(server->requests().at(0).body, QByteArray("abc"));
    QCOMPARE(handle.get("func_args"), QByteArray("data:abc,dataSize:3"));
}

void tst_ServiceCalls::remoteAccessSendPostsTheBufferNotTheData()
{
    Handle handle(baseParameters(server->url(), "update"));
    handle.set("send_data_type", "update_log");
    QCOMPARE(handle.sendData("kept"), 1);
    handle.set("mode", "remote_access");
    QCOMPARE(handle.sendData("ignored"), 1);
    const HttpRequest request = server->requests().last();
    QCOMPARE(request.startLine, QByteArray("POST /ra/upload HTTP/1.1"));
    QCOMPARE(request.body, QByteArray("is=udlog&lang=en&pn=PN&data=kept"));
}

void tst_ServiceCalls::recvHandsOutTheDataAndANul()
{
    answerWith(*server, answer(200, "OK", "application/zip", "DATA"));
    Handle handle(baseParameters(server->url(), "remote_access"));
    const char *data = nullptr;
    int size = -1;
    QCOMPARE(korrinRecvData(handle.get(), &data, &size), 1);
    QCOMPARE(size, 4);
    QCOMPARE(QByteArray(data, 5), QByteArray("DATA\0", 5));
    QCOMPARE(handle.errorNo(), QByteArray("0"));
    QCOMPARE(handle.errorText(), QByteArray());
    QCOMPARE(handle.errorDetail(), QByteArray("(data size):4"));
    QCOMPARE(handle.get("func_name"), QByteArray("korrinRecvData"));
    QCOMPARE(handle.get("func_args"), QByteArray("-"));
}

void tst_ServiceCalls::recvOfAnEmptyBody()
{
    answerWith(*server, answer(200, "OK", "application/zip", ""));
    Handle handle(baseParameters(server->url(), "remote_access"));
    const char *data = nullptr;
    int size = -1;
    QCOMPARE(korrinRecvData(handle.get(), &data, &size), 1);
    QCOMPARE(size, 0);
    QCOMPARE(data, "");
    QCOMPARE(handle.errorDetail(), QByteArray("(data size):0"));
}

void tst_ServiceCalls::recvAfterAFailureTouchesTheOutputs()
{
    answerWith(*server, answer(404, "Not Found", "text/html", "sorry"));
    Handle handle(baseParameters(server->url(), "remote_access"));
    const char *data = "x";
    int size = 7;
    QCOMPARE(korrinRecvData(handle.get(), &data, &size), 0);
    QVERIFY(!data);
    QCOMPARE(size, 0);
    QCOMPARE(handle.errorNo(), QByteArray("303"));
}

void tst_ServiceCalls::recvRefusesNullPointers_data()
{
    QTest::addColumn<bool>("isDataNull");
    QTest::addColumn<bool>("isSizeNull");
    QTest::addColumn<QByteArray>("detail");
    QTest::newRow("data") << true << false << QByteArray("data:0,dataSize:not0");
    QTest::newRow("size") << false << true << QByteArray("data:not0,dataSize:0");
    QTest::newRow("both") << true << true << QByteArray("data:0,dataSize:0");
}

void tst_ServiceCalls::recvRefusesNullPointers()
{
    QFETCH(bool, isDataNull);
    QFETCH(bool, isSizeNull);
    QFETCH(QByteArray, detail);
    Handle handle(baseParameters(server->url(), "remote_access"));
    const char *data = "x";
    int size = 7;
    QCOMPARE(
        korrinRecvData(handle.get(), isDataNull ? nullptr : &data, isSizeNull ? nullptr : &size),
        0);
    QCOMPARE(data, "x");
    QCOMPARE(size, 7);
    QCOMPARE(handle.errorNo(), QByteArray("404"));
    QCOMPARE(handle.errorText(), QByteArray("null pointer assigned."));
    QCOMPARE(handle.errorDetail(), detail);
    QCOMPARE(server->requestCount(), 0);
}

void tst_ServiceCalls::recvKeepsBinaryData()
{
    QByteArray body;
    for (int i = 0; i < 2000000; ++i)
        body += static_cast<char>(i * 31 % 251);
    answerWith(*server, answer(200, "OK", "application/zip", body));
    Handle handle(baseParameters(server->url(), "remote_access"));
    QByteArray data;
    QCOMPARE(handle.recvData(&data), 1);
    QCOMPARE(data, body);
    answerWith(*server, chunkedAnswer("text/plain", {body.left(7), body.mid(7)}));
    QCOMPARE(handle.recvData(&data), 1);
    QCOMPARE(data, body);
}

void tst_ServiceCalls::recvBufferIsReplacedByTheNextRead()
{
    answerWith(*server, answer(200, "OK", "application/zip", "DATA"));
    Handle handle(baseParameters(server->url(), "remote_access"));
    const char *data = nullptr;
    int size = 0;
    QCOMPARE(korrinRecvData(handle.get(), &data, &size), 1);
    QCOMPARE(data, "DATA");
    QCOMPARE(handle.get("mode"), QByteArray("remote_access"));
    QCOMPARE(korrinRecvData(handle.get(), &data, &size), 1);
    QCOMPARE(data, "DATA");
}

void tst_ServiceCalls::recvDoesNotLookAtTheAnswer()
{
    answerWith(*server, xmlAnswer("other", "0", "9", "no"));
    Handle handle(baseParameters(server->url(), "remote_access"));
    QByteArray data;
    QCOMPARE(handle.recvData(&data), 1);
    QCOMPARE(data, xmlBody("other", "0", "9", "no"));
    QCOMPARE(handle.get("status"), QByteArray());
}

QTEST_GUILESS_MAIN(tst_ServiceCalls)
#include "tst_servicecalls.moc"
