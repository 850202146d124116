#include "servicetest.h"

#include <QtTest>

#include <stdexcept>

using namespace korrintest;

namespace
{

const QList<QByteArray> RESULT_KEYS = {"is", "status", "status_code", "message", "new_soft_ver"};

QByteArray resultsOf(const Handle &handle)
{
    QList<QByteArray> values;
    for (const QByteArray &key : RESULT_KEYS)
        values << handle.get(key);
    return values.join('|');
}

/// A host's message handler that throws, as one written in C++ may.
void throwAtTheRequest(QtMsgType, const QMessageLogContext &, const QString &message)
{
    if (message.startsWith(QLatin1String("-- GET request start --")))
        throw std::runtime_error("thrown by the host");
}

} // namespace

/// korrinCheckEnable, from the host's call to the bytes on the wire and back.
class tst_CheckEnable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void requestLine_data();
    void requestLine();
    void requestHasNoOtherHeadersAndNoBody();
    void parametersThatAreNotSetAreSentEmpty();
    void parametersArePercentEncoded_data();
    void parametersArePercentEncoded();
    void pathAndQueryOfServerUrlAreReplaced();

    void grantedAnswer_data();
    void grantedAnswer();
    void refusedAnswer_data();
    void refusedAnswer();
    void answerToAnotherRequest_data();
    void answerToAnotherRequest();
    void answerThatIsNoXml_data();
    void answerThatIsNoXml();

    void resultsAreTakenOver();
    void resultsOfARefusalAreTakenOver();
    void newSoftVerIsTakenOverInModeUpdateOnly();
    void resultsMissingFromTheAnswerBecomeEmpty();
    void resultsAreClearedBeforeTheExchange_data();
    void resultsAreClearedBeforeTheExchange();

    void requiredParameters_data();
    void requiredParameters();
    void changedModeChangesTheService();
    void nameAndArgumentsAreRecorded();
    void logIsSentOnce_data();
    void logIsSentOnce();
    void onlyModeUpdateSendsALog();

    void closedLibraryRefuses();
    void unknownHandleIsRefused();
    void exceptionOfTheHostLeavesAfterTheLog();

private:
    QScopedPointer<ScriptedServer> server;
    const OpenLibrary library;
};

void tst_CheckEnable::init()
{
    server.reset(new ScriptedServer);
}

void tst_CheckEnable::requestLine_data()
{
    QTest::addColumn<QByteArray>("startLine");
    QTest::newRow("update") << QByteArray("GET /su/search?is=chkud&lang=en&pn=PN&sv=1.0 HTTP/1.1");
    QTest::newRow("remote_access")
        << QByteArray("GET /ra/search?is=chkra&lang=en&pn=PN&sv=1.0 HTTP/1.1");
    QTest::newRow("submit_info") << QByteArray(
        "GET /ra/search?is=chkra&lang=en&pn=PN&sv=1.0 HTTP/1.1");
    QTest::newRow("s3_upload") << QByteArray("GET /search HTTP/1.1");
}

void tst_CheckEnable::requestLine()
{
    QFETCH(QByteArray, startLine);
    answerBody(*server, "<r><status>1</status></r>");
    Handle handle(baseParameters(server->url(), QTest::currentDataTag()));
    handle.checkEnable();
    QCOMPARE(server->requests().at(0).startLine, startLine);
}

void tst_CheckEnable::requestHasNoOtherHeadersAndNoBody()
{
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.checkEnable(), 1);
    QCOMPARE(server->requestCount(), 1);
    const HttpRequest request = server->requests().at(0);
    QCOMPARE(headerNames(request),
             QByteArray("accept-encoding accept-language connection host user-agent"));
    QCOMPARE(request.header("Host"), "127.0.0.1:" + QByteArray::number(server->port()));
    QCOMPARE(request.body, QByteArray());
}

void tst_CheckEnable::parametersThatAreNotSetAreSentEmpty()
{
    Handle handle{{"server_url", server->url()}, {"product_no", "PN"}, {"mode", "remote_access"}};
    QCOMPARE(handle.checkEnable(), 1);
    QCOMPARE(server->requests().at(0).query(), QByteArray("is=chkra&lang=&pn=PN&sv="));
}

void tst_CheckEnable::parametersArePercentEncoded_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QByteArray>("encoded");
    QTest::newRow("blank and &") << QByteArray("e n&x=1") << QByteArray("e%20n%26x%3D1");
    QTest::newRow("escape") << QByteArray("100%25") << QByteArray("100%2525");
    QTest::newRow("left alone") << QByteArray("A-z0._~!$'()*+,;:@/?")
                                << QByteArray("A-z0._~!$'()*+,;:@/?");
    QTest::newRow("brackets and #") << QByteArray("[#]") << QByteArray("%5B%23%5D");
    QTest::newRow("Latin-1 as UTF-8") << QByteArray("\xe9\xff") << QByteArray("%C3%A9%C3%BF");
    QTest::newRow("line breaks") << QByteArray("1\r\nX-Injected: yes\r\n\r\nGET / HTTP/1.1")
                                 << QByteArray(
                                        "1%0D%0AX-Injected:%20yes%0D%0A%0D%0AGET%20/%20HTTP/1.1");
}

void tst_CheckEnable::parametersArePercentEncoded()
{
    QFETCH(QByteArray, value);
    QFETCH(QByteArray, encoded);
    Handle handle(baseParameters(server->url(), "remote_access"));
    handle.set("language_code", value);
    handle.set("product_no", value);
    handle.set("soft_ver", value);
    QCOMPARE(handle.checkEnable(), 1);
    const HttpRequest request = server->requests().at(0);
    QCOMPARE(request.query(), "is=chkra&lang=" + encoded + "&pn=" + encoded + "&sv=" + encoded);
    QCOMPARE(request.version, QByteArray("HTTP/1.1"));
    QCOMPARE(headerNames(request),
             QByteArray("accept-encoding accept-language connection host user-agent"));
    QCOMPARE(server->requestCount(), 1);
}

void tst_CheckEnable::pathAndQueryOfServerUrlAreReplaced()
{
    Handle handle(baseParameters(server->url("/api?x=1"), "update"));
    QCOMPARE(handle.checkEnable(), 1);
    QCOMPARE(server->requests().at(0).target,
             QByteArray("/su/search?is=chkud&lang=en&pn=PN&sv=1.0"));
}

void tst_CheckEnable::grantedAnswer_data()
{
    QTest::addColumn<QByteArray>("elements");
    QTest::addColumn<QByteArray>("error");
    const auto row = [](const char *elements, const char *error) {
        QTest::newRow(elements) << QByteArray(elements) << QByteArray(error);
    };
    // The text is removed after a success, unless there is a status code other than 0.
    row("", "0||:");
    row("<status_code>0</status_code>", "0||0:");
    row("<message>m</message>", "0||:m");
    row("<status_code>0</status_code><message>m</message>", "0||0:m");
    row("<status_code>x7</status_code><message>m</message>", "0||x7:m");
    row("<status_code>0x7</status_code><message>m</message>", "0||0x7:m");
    row("<status_code>7</status_code><message>m</message>", "0|m|7:m");
    row("<status_code>-7</status_code><message>m</message>", "0|m|-7:m");
    row("<status_code>7</status_code>", "0|no error.|7:");
    row("<status_code>%2</status_code><message>%1</message>", "0||%2:%1");
}

void tst_CheckEnable::grantedAnswer()
{
    QFETCH(QByteArray, elements);
    QFETCH(QByteArray, error);
    answerBody(*server, "<r><is>chkra</is><status>1</status>" + elements + "</r>", "text/xml");
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.checkEnable(), 1);
    QCOMPARE(errorOf(handle), error);
}

void tst_CheckEnable::refusedAnswer_data()
{
    QTest::addColumn<QByteArray>("elements");
    QTest::addColumn<QByteArray>("error");
    const auto row = [](const char *elements, const char *error) {
        QTest::newRow(elements) << QByteArray(elements) << QByteArray(error);
    };
    row("", "203|status error.|:");
    row("<status>0</status>", "203|status error.|:");
    row("<status>0</status><status_code>12</status_code><message>no</message>", "203|no|12:no");
    row("<status>0</status><message>no</message>", "203|no|:no");
    row("<status>2</status>", "203|status error.|:");
    row("<status>01</status>", "203|status error.|:");
    row("<status> 1</status>", "203|status error.|:");
    row("<status></status>", "203|status error.|:");
    row("<status>1</status>\n", "203|status error.|:");
}

void tst_CheckEnable::refusedAnswer()
{
    QFETCH(QByteArray, elements);
    QFETCH(QByteArray, error);
    answerBody(*server, "<r><is>chkra</is>" + elements + "</r>", "text/xml");
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.checkEnable(), 0);
    QCOMPARE(errorOf(handle), error);
}

void tst_CheckEnable::answerToAnotherRequest_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<QByteArray>("response");
    QTest::newRow("other") << QByteArray("<r><is>x1</is><status>1</status></r>")
                           << QByteArray("x1");
    QTest::newRow("case") << QByteArray("<r><is>CHKRA</is><status>1</status></r>")
                          << QByteArray("CHKRA");
    QTest::newRow("longer") << QByteArray("<r><is>chkra </is><status>1</status></r>")
                            << QByteArray("chkra ");
    QTest::newRow("none") << QByteArray("<r><status>1</status></r>") << QByteArray();
    QTest::newRow("placeholder") << QByteArray("<r><is>%1%2</is></r>") << QByteArray("%1%2");
}

void tst_CheckEnable::answerToAnotherRequest()
{
    QFETCH(QByteArray, document);
    QFETCH(QByteArray, response);
    answerBody(*server, document, "text/xml");
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.checkEnable(), 0);
    QCOMPARE(errorOf(handle),
             "202|illegal response received.|is: request chkra, response " + response);
    QCOMPARE(resultsOf(handle), QByteArray("||||"));
}

void tst_CheckEnable::answerThatIsNoXml_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<QByteArray>("detail");
    QTest::newRow("empty") << QByteArray("")
                           << QByteArray("error on line 1, column 1: unexpected end of file");
    QTest::newRow("text") << QByteArray("hello")
                          << QByteArray("error on line 1, column 1: "
                                        "error occurred while parsing element");
    QTest::newRow("broken off") << QByteArray("<r><is>chkra</is><status>1</status>")
                                << QByteArray("error on line 1, column 36: "
                                              "unexpected end of file");
    QTest::newRow("page") << QByteArray("<html><p>sorry</html>")
                          << QByteArray("error on line 1, column 21: tag mismatch");
}

void tst_CheckEnable::answerThatIsNoXml()
{
    QFETCH(QByteArray, document);
    QFETCH(QByteArray, detail);
    answerBody(*server, document, "text/html");
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.checkEnable(), 0);
    QCOMPARE(errorOf(handle), "201|xml parse failed.|" + detail);
    QCOMPARE(resultsOf(handle), QByteArray("||||"));
}

void tst_CheckEnable::resultsAreTakenOver()
{
    answerWith(*server, xmlAnswer("chkud", "1", "5", "m", "<new_soft_ver>2.0</new_soft_ver>"));
    Handle handle(baseParameters(server->url(), "update"));
    QCOMPARE(handle.checkEnable(), 1);
    QCOMPARE(resultsOf(handle), QByteArray("chkud|1|5|m|2.0"));
}

void tst_CheckEnable::resultsOfARefusalAreTakenOver()
{
    answerWith(*server, xmlAnswer("chkud", "0", "5", "m", "<new_soft_ver>2.0</new_soft_ver>"));
    Handle handle(baseParameters(server->url(), "update"));
    QCOMPARE(handle.checkEnable(), 0);
    QCOMPARE(resultsOf(handle), QByteArray("chkud|0|5|m|2.0"));
}

void tst_CheckEnable::newSoftVerIsTakenOverInModeUpdateOnly()
{
    answerWith(*server, xmlAnswer("chkra", "1", "5", "m", "<new_soft_ver>2.0</new_soft_ver>"));
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.checkEnable(), 1);
    QCOMPARE(resultsOf(handle), QByteArray("chkra|1|5|m|"));
}

void tst_CheckEnable::resultsMissingFromTheAnswerBecomeEmpty()
{
    answerWith(*server, xmlAnswer("chkud", "1", "5", "m", "<new_soft_ver>2.0</new_soft_ver>"));
    Handle handle(baseParameters(server->url(), "update"));
    QCOMPARE(handle.checkEnable(), 1);
    answerBody(*server, "<r><is>chkud</is><status>1</status></r>", "text/xml");
    QCOMPARE(handle.checkEnable(), 1);
    QCOMPARE(resultsOf(handle), QByteArray("chkud|1|||"));
    QCOMPARE(errorOf(handle), QByteArray("0||:"));
}

void tst_CheckEnable::resultsAreClearedBeforeTheExchange_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("HTTP 500") << answer(500, "Oops", "text/html", "");
    QTest::newRow("no XML") << answer(200, "OK", "text/xml", "hello");
    QTest::newRow("other is") << xmlAnswer("other", "1", "5", "m");
    QTest::newRow("no answer") << QByteArray("");
}

void tst_CheckEnable::resultsAreClearedBeforeTheExchange()
{
    QFETCH(QByteArray, bytes);
    answerWith(*server, xmlAnswer("chkud", "1", "5", "m", "<new_soft_ver>2.0</new_soft_ver>"));
    Handle handle(baseParameters(server->url(), "update"));
    QCOMPARE(handle.checkEnable(), 1);
    answerWith(*server, bytes);
    QCOMPARE(handle.checkEnable(), 0);
    QCOMPARE(resultsOf(handle), QByteArray("||||"));
}

void tst_CheckEnable::requiredParameters_data()
{
    QTest::addColumn<QByteArray>("productNo");
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<QByteArray>("error");
    const auto row = [](const char *name, const char *productNo, const char *mode,
                        const char *error) {
        QTest::newRow(name) << QByteArray(productNo) << QByteArray(mode) << QByteArray(error);
    };
    row("nothing", "", "", "103|parameter not set.|product_no:");
    row("no product", "", "update", "103|parameter not set.|product_no:");
    row("no mode", "PN", "", "103|parameter not set.|mode:");
    row("unknown mode", "PN", "upload", "105|invalid parameter value.|mode:upload");
    row("mode in upper case", "PN", "UPDATE", "105|invalid parameter value.|mode:UPDATE");
}

void tst_CheckEnable::requiredParameters()
{
    QFETCH(QByteArray, productNo);
    QFETCH(QByteArray, mode);
    QFETCH(QByteArray, error);
    Handle handle(baseParameters(server->url(), mode));
    handle.set("product_no", productNo);
    QCOMPARE(handle.checkEnable(), 0);
    QCOMPARE(errorOf(handle), error);
    QCOMPARE(server->connectionCount(), 0);
}

void tst_CheckEnable::changedModeChangesTheService()
{
    Handle handle(baseParameters(server->url(), "update"));
    QList<QByteArray> paths;
    for (const char *mode : {"update", "remote_access", "submit_info", "submit_info", "update"}) {
        handle.set("mode", mode);
        server->clear();
        QCOMPARE(handle.checkEnable(), 1);
        paths << serviceRequests(*server).at(0).path();
    }
    QCOMPARE(
        paths,
        QList<QByteArray>({"/su/search", "/ra/search", "/ra/search", "/ra/search", "/su/search"}));
}

void tst_CheckEnable::nameAndArgumentsAreRecorded()
{
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.checkEnable(), 1);
    QCOMPARE(handle.get("func_name"), QByteArray("korrinCheckEnable"));
    QCOMPARE(handle.get("func_args"), QByteArray("-"));
}

void tst_CheckEnable::logIsSentOnce_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("outcome");
    QTest::newRow("granted") << xmlAnswer("chkud", "1", "0", "m") << QByteArray("0|0:m");
    QTest::newRow("refused") << xmlAnswer("chkud", "0", "9", "no") << QByteArray("203|9:no");
    QTest::newRow("other is") << xmlAnswer("x1")
                              << QByteArray("202|is: request chkud, response x1");
    QTest::newRow("no XML") << answer(200, "OK", "text/html", "")
                            << QByteArray("201|error on line 1, column 1: unexpected end of file");
}

void tst_CheckEnable::logIsSentOnce()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QByteArray, outcome);
    server->setHandler([bytes](Connection &connection, const HttpRequest &request) {
        connection.send(isLogPost(request) ? xmlAnswer("cloudlog") : bytes);
    });
    Handle handle(baseParameters(server->url(), "update"));
    handle.checkEnable();
    QCOMPARE(logRecords(*server), QList<QByteArray>{"korrinCheckEnable|-|" + outcome});
    QCOMPARE(server->requestCount(), 2);
    QCOMPARE(server->requests().at(1).startLine, QByteArray("POST /su/upload HTTP/1.1"));
}

void tst_CheckEnable::onlyModeUpdateSendsALog()
{
    for (const char *mode : {"remote_access", "submit_info", "s3_upload"}) {
        Handle handle(baseParameters(server->url(), mode));
        handle.checkEnable();
    }
    QCOMPARE(server->requestCount(), 3);
    QCOMPARE(logRecords(*server), QList<QByteArray>());
}

void tst_CheckEnable::closedLibraryRefuses()
{
    void *handle = korrinCreateHandle();
    korrinClose();
    QCOMPARE(korrinCheckEnable(handle), 0);
    korrinOpen();
    QCOMPARE(korrinCheckEnable(handle), 0);
    QCOMPARE(server->connectionCount(), 0);
}

void tst_CheckEnable::unknownHandleIsRefused()
{
    int notAHandle = 0;
    QCOMPARE(korrinCheckEnable(nullptr), 0);
    QCOMPARE(korrinCheckEnable(&notAHandle), 0);
    QCOMPARE(notAHandle, 0);
}

void tst_CheckEnable::exceptionOfTheHostLeavesAfterTheLog()
{
    Handle handle(baseParameters(server->url(), "update"));
    const QtMessageHandler previous = qInstallMessageHandler(throwAtTheRequest);
    korrinEnableDebugOutput(1);
    QByteArray caught;
    try {
        handle.checkEnable();
    } catch (const std::runtime_error &error) {
        caught = error.what();
    }
    korrinEnableDebugOutput(0);
    qInstallMessageHandler(previous);

    QCOMPARE(caught, QByteArray("thrown by the host"));
    QCOMPARE(logRecords(*server), QList<QByteArray>{"korrinCheckEnable|-|0|no error."});
    QCOMPARE(serviceRequests(*server).size(), 0);
    QCOMPARE(handle.checkEnable(), 1);
}

QTEST_GUILESS_MAIN(tst_CheckEnable)
#include "tst_checkenable.moc"
