#include "servicetest.h"

#include <QtTest>

#include <limits>
#include <memory>

using namespace korrintest;

namespace
{

Parameters updateParameters(const QByteArray &url, const QByteArray &sendDataType)
{
    return baseParameters(url, "update")
        + Parameters{{"send_data_type", sendDataType}, {"result", "1"}};
}

} // namespace

/// korrinSendData, from the host's call to the bytes on the wire and back.
class tst_SendData : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void request_data();
    void request();
    void postHasNoContentType();
    void emptyPostHasALength();
    void serverUrlKeepsItsQueryAndLosesItsPath();
    void parametersThatAreNotSetAreSentEmpty();
    void parametersArePercentEncoded();

    void updateLogEndsAtItsNul_data();
    void updateLogEndsAtItsNul();
    void refusedParameters_data();
    void refusedParameters();
    void blanksAroundAResultAreNotItsValue();
    void refusedParametersLeaveTheSendBuffer();

    void allBytesAreSent_data();
    void allBytesAreSent();
    void sendWithoutAByte_data();
    void sendWithoutAByte();
    void sendReadsNoFurtherThanItsSize();
    void argumentsHoldAPrefixOfTheData_data();
    void argumentsHoldAPrefixOfTheData();

    void remoteAccessPostsTheBufferNotTheData();
    void remoteAccessDoesNotLookAtSendDataType();
    void firstIsOfTheBodyIsCompared();
    void bodyWithoutIsTakesAnAnswerWithoutIs_data();
    void bodyWithoutIsTakesAnAnswerWithoutIs();

    void answerIsJudged_data();
    void answerIsJudged();
    void resultsAreTakenOver();
    void resultsAreClearedBeforeTheExchange();
    void newSoftVerOfACheckIsKept();
    void requiredParameters_data();
    void requiredParameters();
    void logIsSentOnce_data();
    void logIsSentOnce();
    void closedLibraryRefuses();

private:
    QScopedPointer<ScriptedServer> server;
    const OpenLibrary library;
};

void tst_SendData::init()
{
    server.reset(new ScriptedServer);
}

void tst_SendData::request_data()
{
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QByteArray>("startLine");
    QTest::addColumn<QByteArray>("body");
    const auto row = [](const char *mode, const char *type, const char *startLine,
                        const char *body) {
        QTest::newRow((QByteArray(mode) + ' ' + type).constData())
            << QByteArray(mode) << QByteArray(type) << QByteArray(startLine) << QByteArray(body);
    };
    row("update", "result", "POST /su/upload HTTP/1.1", "is=nsv&lang=en&pn=PN&st=1&nsv=1.0");
    row("update", "update_log", "POST /su/upload HTTP/1.1", "is=udlog&lang=en&pn=PN&data=abc");
    row("remote_access", "", "POST /ra/upload HTTP/1.1", "");
    row("submit_info", "", "POST /ra/upload HTTP/1.1", "");
    row("s3_upload", "", "PUT / HTTP/1.1", "abc");
}

void tst_SendData::request()
{
    QFETCH(QByteArray, mode);
    QFETCH(QByteArray, type);
    QFETCH(QByteArray, startLine);
    QFETCH(QByteArray, body);
    Handle handle(baseParameters(server->url(), mode));
    handle.set("send_data_type", type);
    handle.set("result", "1");
    QCOMPARE(handle.sendData("abc"), 1);
    QCOMPARE(server->requests().at(0).startLine, startLine);
    QCOMPARE(server->requests().at(0).body, body);
    QCOMPARE(serviceRequests(*server).size(), 1);
}

void tst_SendData::postHasNoContentType()
{
    Handle handle(updateParameters(server->url(), "update_log"));
    QCOMPARE(handle.sendData("abc"), 1);
    QCOMPARE(server->requestCount(), 2);
    for (const HttpRequest &request : server->requests()) {
        QCOMPARE(request.method, QByteArray("POST"));
        QCOMPARE(headerNames(request),
                 QByteArray("accept-encoding accept-language connection content-length host"
                            " user-agent"));
        QCOMPARE(request.header("Content-Length"), QByteArray::number(request.body.size()));
    }
}

void tst_SendData::emptyPostHasALength()
{
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.sendData("ignored"), 1);
    const HttpRequest request = server->requests().at(0);
    QCOMPARE(request.header("Content-Length"), QByteArray("0"));
    QVERIFY(!request.hasHeader("Content-Type"));
    QCOMPARE(request.body, QByteArray());
}

void tst_SendData::serverUrlKeepsItsQueryAndLosesItsPath()
{
    Handle handle(updateParameters(server->url("/api?x=1"), "result"));
    QCOMPARE(handle.sendData("abc"), 1);
    QCOMPARE(server->requests().at(0).target, QByteArray("/su/upload?x=1"));
}

void tst_SendData::parametersThatAreNotSetAreSentEmpty()
{
    Handle handle{
        {"server_url", server->url()}, {"product_no", "PN"}, {"mode", "update"},
        {"send_data_type", "result"},  {"result", "0"},      {"cloud_log_file_max_size", "0"}};
    QCOMPARE(handle.sendData("abc"), 1);
    QCOMPARE(server->requests().at(0).body, QByteArray("is=nsv&lang=&pn=PN&st=0&nsv="));
}

void tst_SendData::parametersArePercentEncoded()
{
    Handle handle(updateParameters(server->url(), "update_log"));
    handle.set("language_code", "e n&x=1");
    handle.set("product_no", "100%25");
    QCOMPARE(handle.sendData("a\r\n+\xe9%41"), 1);
    QCOMPARE(server->requests().at(0).body,
             QByteArray("is=udlog&lang=e%20n%26x%3D1&pn=100%2525&data=a%0D%0A+%C3%A9%2541"));
}

void tst_SendData::updateLogEndsAtItsNul_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QByteArray>("sent");
    QTest::newRow("none") << QByteArray("abcdef") << QByteArray("abcdef");
    QTest::newRow("inside") << QByteArray("abc\0def", 7) << QByteArray("abc");
    QTest::newRow("first") << QByteArray("\0def", 4) << QByteArray();
    QTest::newRow("last") << QByteArray("abc\0", 4) << QByteArray("abc");
    QTest::newRow("longer than the recorded prefix")
        << QByteArray(100, 'x') + '\0' + "y" << QByteArray(100, 'x');
}

void tst_SendData::updateLogEndsAtItsNul()
{
    QFETCH(QByteArray, data);
    QFETCH(QByteArray, sent);
    Handle handle(updateParameters(server->url(), "update_log"));
    QCOMPARE(handle.sendData(data), 1);
    QCOMPARE(server->requests().at(0).body, "is=udlog&lang=en&pn=PN&data=" + sent);
}

void tst_SendData::refusedParameters_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QByteArray>("result");
    QTest::addColumn<QByteArray>("error");
    const auto row = [](const char *name, const char *type, const char *result, const char *error) {
        QTest::newRow(name) << QByteArray(type) << QByteArray(result) << QByteArray(error);
    };
    row("no type", "", "1", "103|parameter not set.|send_data_type:");
    row("type in upper case", "RESULT", "1", "105|invalid parameter value.|send_data_type:RESULT");
    row("unknown type", "log", "1", "105|invalid parameter value.|send_data_type:log");
    row("no result", "result", "", "103|parameter not set.|result:");
    row("result true", "result", "true", "105|invalid parameter value.|result:true");
    row("result 01", "result", "01", "105|invalid parameter value.|result:01");
    row("result 2", "result", "2", "105|invalid parameter value.|result:2");
}

void tst_SendData::refusedParameters()
{
    QFETCH(QByteArray, type);
    QFETCH(QByteArray, result);
    QFETCH(QByteArray, error);
    Handle handle(updateParameters(server->url(), type));
    handle.set("result", result);
    QCOMPARE(handle.sendData("abc"), 0);
    QCOMPARE(errorOf(handle), error);
    QCOMPARE(serviceRequests(*server).size(), 0);
}

void tst_SendData::blanksAroundAResultAreNotItsValue()
{
    Handle handle(updateParameters(server->url(), "result"));
    handle.set("result", " 1 ");
    QCOMPARE(handle.sendData("abc"), 1);
    QCOMPARE(formValue(server->requests().at(0).body, "st"), QByteArray("1"));
}

void tst_SendData::refusedParametersLeaveTheSendBuffer()
{
    Handle handle(updateParameters(server->url(), "update_log"));
    QCOMPARE(handle.sendData("kept"), 1);
    handle.set("send_data_type", "nonsense");
    QCOMPARE(handle.sendData("refused"), 0);
    handle.set("mode", "remote_access");
    QCOMPARE(handle.sendData("ignored"), 1);
    QCOMPARE(server->requests().last().body, QByteArray("is=udlog&lang=en&pn=PN&data=kept"));
}

void tst_SendData::allBytesAreSent_data()
{
    QTest::addColumn<QByteArray>("data");
    QByteArray everyByte;
    for (int i = 0; i < 256; ++i)
        everyByte += static_cast<char>(i);
    QTest::newRow("NUL in second place") << QByteArray("a\0bcd", 5);
    QTest::newRow("100 characters") << QByteArray(100, 'x');
    QTest::newRow("every byte") << everyByte;
    QTest::newRow("only NUL") << QByteArray(3, '\0');
}

void tst_SendData::allBytesAreSent()
{
    QFETCH(QByteArray, data);
    Handle handle(baseParameters(server->url(), "s3_upload"));
    QCOMPARE(handle.sendData(data), 1);
    QCOMPARE(server->requests().at(0).body, data);
    QCOMPARE(server->requests().at(0).header("Content-Length"), QByteArray::number(data.size()));
}

void tst_SendData::sendWithoutAByte_data()
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

void tst_SendData::sendWithoutAByte()
{
    QFETCH(bool, isNull);
    QFETCH(int, size);
    Handle handle(baseParameters(server->url(), "s3_upload"));
    QCOMPARE(korrinSendData(handle.get(), isNull ? nullptr : "text", size), 1);
    QCOMPARE(server->requests().at(0).header("Content-Length"), QByteArray("0"));
    QCOMPARE(handle.get("func_args"), "data:,dataSize:" + QByteArray::number(size));
}

void tst_SendData::sendReadsNoFurtherThanItsSize()
{
    // Exactly three bytes and no NUL: AddressSanitizer would see a byte read beyond them.
    const std::unique_ptr<char[]> block(new char[3]{'a', 'b', 'c'});
    Handle handle(baseParameters(server->url(), "s3_upload"));
    QCOMPARE(korrinSendData(handle.get(), block.get(), 3), 1);
    QCOMPARE(server->requests().at(0).body, QByteArray("abc"));
    QCOMPARE(handle.get("func_args"), QByteArray("data:abc,dataSize:3"));
}

void tst_SendData::argumentsHoldAPrefixOfTheData_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QByteArray>("arguments");
    const QByteArray text = "0123456789abcdefghijklmnopqrstuvwxyz";
    const auto row = [](const char *name, const QByteArray &data, const QByteArray &prefix) {
        QTest::newRow(name) << data
                            << "data:" + prefix + ",dataSize:" + QByteArray::number(data.size());
    };
    row("short", "abc", "abc");
    row("31 characters", text.left(31), text.left(31));
    row("32 characters", text.left(32), text.left(32));
    row("33 characters", text.left(33), text.left(32));
    row("100 characters", QByteArray(100, 'x'), QByteArray(32, 'x'));
    row("NUL in second place", QByteArray("a\0bcd", 5), "a");
    row("placeholders", "%1,%2,%3,%4", "%1,%2,%3,%4");
    row("Latin-1", "\xe9", "\xc3\xa9");
    row("blanks are kept", "  a ", "  a ");
}

void tst_SendData::argumentsHoldAPrefixOfTheData()
{
    QFETCH(QByteArray, data);
    QFETCH(QByteArray, arguments);
    Handle handle(baseParameters(server->url(), "s3_upload"));
    QCOMPARE(handle.sendData(data), 1);
    QCOMPARE(server->requests().at(0).body, data);
    QCOMPARE(handle.get("func_name"), QByteArray("korrinSendData"));
    QCOMPARE(handle.get("func_args"), arguments);
}

void tst_SendData::remoteAccessPostsTheBufferNotTheData()
{
    Handle handle(updateParameters(server->url(), "update_log"));
    QCOMPARE(handle.sendData("kept"), 1);
    handle.set("mode", "remote_access");
    for (int i = 0; i < 2; ++i) {
        QCOMPARE(handle.sendData("ignored"), 1);
        const HttpRequest request = server->requests().last();
        QCOMPARE(request.startLine, QByteArray("POST /ra/upload HTTP/1.1"));
        QCOMPARE(request.body, QByteArray("is=udlog&lang=en&pn=PN&data=kept"));
    }
}

void tst_SendData::remoteAccessDoesNotLookAtSendDataType()
{
    Handle handle(baseParameters(server->url(), "remote_access"));
    for (const char *type : {"", "nonsense", "result"}) {
        handle.set("send_data_type", type);
        QCOMPARE(handle.sendData("ignored"), 1);
        QCOMPARE(errorOf(handle), QByteArray("0||0:fine"));
    }
    QCOMPARE(server->requestCount(), 3);
}

void tst_SendData::firstIsOfTheBodyIsCompared()
{
    // An upload to S3 leaves its data in the send buffer, which the next mode posts.
    Handle handle(baseParameters(server->url(), "s3_upload"));
    QCOMPARE(handle.sendData("was=0&is=x1&is=x2"), 1);
    handle.set("mode", "remote_access");
    answerWith(*server, xmlAnswer("x1"));
    QCOMPARE(handle.sendData(""), 1);
    answerWith(*server, xmlAnswer("x2"));
    QCOMPARE(handle.sendData(""), 0);
    QCOMPARE(errorOf(handle),
             QByteArray("202|illegal response received.|<is> request:x1, response:x2"));
}

void tst_SendData::bodyWithoutIsTakesAnAnswerWithoutIs_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<int>("result");
    QTest::newRow("no is") << QByteArray("<r><status>1</status></r>") << 1;
    QTest::newRow("empty is") << QByteArray("<r><is></is><status>1</status></r>") << 1;
    QTest::newRow("is") << QByteArray("<r><is>x1</is><status>1</status></r>") << 0;
}

void tst_SendData::bodyWithoutIsTakesAnAnswerWithoutIs()
{
    QFETCH(QByteArray, document);
    QFETCH(int, result);
    answerBody(*server, document, "text/xml");
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.sendData(""), result);
    if (result == 0) {
        QCOMPARE(errorOf(handle),
                 QByteArray("202|illegal response received.|<is> request:, response:x1"));
    }
}

void tst_SendData::answerIsJudged_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<int>("result");
    QTest::addColumn<QByteArray>("error");
    const auto row = [](const char *document, int result, const char *error) {
        QTest::newRow(document) << QByteArray(document) << result << QByteArray(error);
    };
    row("<r><is>nsv</is><status>1</status><status_code>0</status_code></r>", 1, "0||0:");
    row("<r><is>nsv</is><status>1</status><status_code>0</status_code><message>m</message></r>", 1,
        "0||0:m");
    row("<r><is>nsv</is><status>1</status><status_code>3</status_code><message>m</message></r>", 1,
        "0|m|3:m");
    row("<r><is>nsv</is><status>1</status><status_code>3</status_code></r>", 1, "0|no error.|3:");
    row("<r><is>nsv</is><status>0</status><status_code>3</status_code><message>m</message></r>", 0,
        "203|m|3:m");
    row("<r><is>nsv</is></r>", 0, "203|status error.|:");
    row("<r><is>NSV</is><status>1</status></r>", 0,
        "202|illegal response received.|<is> request:nsv, response:NSV");
    row("<r><status>1</status></r>", 0,
        "202|illegal response received.|<is> request:nsv, response:");
    row("", 0, "201|xml parse failed.|error on line 1, column 1: unexpected end of file");
    row("hello", 0,
        "201|xml parse failed.|error on line 1, column 1: error occurred while parsing element");
}

void tst_SendData::answerIsJudged()
{
    QFETCH(QByteArray, document);
    QFETCH(int, result);
    QFETCH(QByteArray, error);
    answerBody(*server, document, "text/xml");
    Handle handle(updateParameters(server->url(), "result"));
    QCOMPARE(handle.sendData("abc"), result);
    QCOMPARE(errorOf(handle), error);
}

void tst_SendData::resultsAreTakenOver()
{
    answerWith(*server, xmlAnswer("nsv", "0", "5", "m"));
    Handle handle(updateParameters(server->url(), "result"));
    QCOMPARE(handle.sendData("abc"), 0);
    QCOMPARE(handle.get("is"), QByteArray("nsv"));
    QCOMPARE(handle.get("status"), QByteArray("0"));
    QCOMPARE(handle.get("status_code"), QByteArray("5"));
    QCOMPARE(handle.get("message"), QByteArray("m"));
}

void tst_SendData::resultsAreClearedBeforeTheExchange()
{
    Handle handle(updateParameters(server->url(), "result"));
    QCOMPARE(handle.sendData("abc"), 1);
    QCOMPARE(handle.get("status"), QByteArray("1"));
    handle.set("result", "true");
    QCOMPARE(handle.sendData("abc"), 0);
    for (const char *key : {"is", "status", "status_code", "message"})
        QCOMPARE(handle.get(key), QByteArray());
}

void tst_SendData::newSoftVerOfACheckIsKept()
{
    server->setHandler([](Connection &connection, const HttpRequest &request) {
        connection.send(xmlAnswer(requestedIs(request), "1", "0", "m",
                                  request.method == "GET" ? "<new_soft_ver>2.0</new_soft_ver>"
                                                          : "<new_soft_ver>3.0</new_soft_ver>"));
    });
    Handle handle(updateParameters(server->url(), "result"));
    QCOMPARE(handle.checkEnable(), 1);
    QCOMPARE(handle.sendData("abc"), 1);
    QCOMPARE(handle.get("new_soft_ver"), QByteArray("2.0"));
}

void tst_SendData::requiredParameters_data()
{
    QTest::addColumn<QByteArray>("productNo");
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<QByteArray>("error");
    QTest::newRow("no product") << QByteArray() << QByteArray("update")
                                << QByteArray("103|parameter not set.|product_no:");
    QTest::newRow("no mode") << QByteArray("PN") << QByteArray()
                             << QByteArray("103|parameter not set.|mode:");
    QTest::newRow("unknown mode") << QByteArray("PN") << QByteArray("S3_UPLOAD")
                                  << QByteArray("105|invalid parameter value.|mode:S3_UPLOAD");
}

void tst_SendData::requiredParameters()
{
    QFETCH(QByteArray, productNo);
    QFETCH(QByteArray, mode);
    QFETCH(QByteArray, error);
    Handle handle(baseParameters(server->url(), mode));
    handle.set("product_no", productNo);
    QCOMPARE(handle.sendData("abc"), 0);
    QCOMPARE(errorOf(handle), error);
    QCOMPARE(server->connectionCount(), 0);
}

void tst_SendData::logIsSentOnce_data()
{
    QTest::addColumn<QByteArray>("result");
    QTest::addColumn<QByteArray>("outcome");
    QTest::newRow("sent") << QByteArray("1") << QByteArray("0|0:fine");
    QTest::newRow("refused parameter") << QByteArray("2") << QByteArray("105|result:2");
}

void tst_SendData::logIsSentOnce()
{
    QFETCH(QByteArray, result);
    QFETCH(QByteArray, outcome);
    Handle handle(updateParameters(server->url(), "result"));
    handle.set("result", result);
    handle.sendData("abc");
    QCOMPARE(logRecords(*server),
             QList<QByteArray>{"korrinSendData|data:abc,dataSize:3|" + outcome});
}

void tst_SendData::closedLibraryRefuses()
{
    void *handle = korrinCreateHandle();
    korrinClose();
    QCOMPARE(korrinSendData(handle, "abc", 3), 0);
    korrinOpen();
    QCOMPARE(korrinSendData(handle, "abc", 3), 0);
    QCOMPARE(korrinSendData(nullptr, nullptr, 0), 0);
}

QTEST_GUILESS_MAIN(tst_SendData)
#include "tst_senddata.moc"
