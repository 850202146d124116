#include "recorded.h"
#include "scriptedserver.h"
#include "scripthost.h"

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

using namespace korrintest;

namespace
{

const QByteArray RECORDED_PORT = "44331";
const QByteArray RECORDED_REFUSED_PORT = "36885";

const QByteArray SEPARATOR = " ; ";

QList<QByteArray> commandsOf(QByteArray commands)
{
    QList<QByteArray> list;
    for (auto end = commands.indexOf(SEPARATOR); end >= 0; end = commands.indexOf(SEPARATOR)) {
        list << commands.left(end);
        commands.remove(0, end + SEPARATOR.size());
    }
    return list << commands;
}

QByteArray fineAnswer(const QByteArray &is)
{
    return xmlAnswer(is, "1", "0", "fine", "<new_soft_ver>2.0</new_soft_ver>");
}

QByteArray xml(const QByteArray &document)
{
    return answer(200, "OK", "text/xml", document);
}

/// Whole messages of a trace, each of which ends in a blank and a line break.
QList<QByteArray> messagesOf(QByteArray trace)
{
    QList<QByteArray> messages;
    while (!trace.isEmpty()) {
        const auto end = trace.indexOf(" \n");
        if (end < 0)
            return messages << trace;
        messages << trace.left(end + 2);
        trace.remove(0, end + 2);
    }
    return messages;
}

/// Progress lines differ in number and figures, and so does the time that a session takes.
QList<QByteArray> comparable(const QByteArray &trace)
{
    static const QRegularExpression varying(
        QStringLiteral("\\(session time\\) \\d+ msec|ldt=[^&]*|QNetworkReply: 1 [^)]*"
                       "|Error( |%20)(downloading|transferring)"));
    QList<QByteArray> messages;
    for (const QByteArray &message : messagesOf(trace)) {
        if (message.startsWith("\"(Sending...)") || message.startsWith("\"(Receiving...)"))
            continue;
        messages << QString::fromUtf8(message).replace(varying, QStringLiteral("…")).toUtf8();
    }
    return messages;
}

} // namespace

/// One host process with its messages on, call by call, against the recorded messages.
class tst_DebugTrace : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void step_data();
    void step();
    void off();
    void loggingRulesDoNotSilence_data();
    void loggingRulesDoNotSilence();

private:
    QByteArray run(const QByteArray &commands);
    void answerWith(const QByteArray &bytes);

    QTemporaryDir directory;
    ScriptedServer server;
    const RefusingPort refused;
    QScopedPointer<ScriptHost> host;
};

void tst_DebugTrace::initTestCase()
{
    QVERIFY(directory.isValid());
    host.reset(
        new ScriptHost(directory.path(), {{QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8")}}));
}

/// Answers service requests with @p bytes, the log's posts with success.
void tst_DebugTrace::answerWith(const QByteArray &bytes)
{
    server.setHandler([bytes](Connection &connection, const HttpRequest &request) {
        const QByteArray is = requestedIs(request);
        if (is == "cloudlog")
            connection.send(fineAnswer("cloudlog"));
        else if (bytes.isEmpty())
            connection.send(fineAnswer(is));
        else
            connection.send(bytes);
        if (bytes.contains("Content-Length: 100\r\n") && is != "cloudlog")
            connection.stall();
    });
}

/// Runs commands; text in parentheses is written as the host's words want it.
QByteArray tst_DebugTrace::run(const QByteArray &commands)
{
    const QString path =
        directory.filePath(QStringLiteral("../trace%1").arg(QCoreApplication::applicationPid()));
    host->redirectErrors(path);
    for (QByteArray command : commandsOf(commands)) {
        for (auto open = command.indexOf('('); open >= 0; open = command.indexOf('(')) {
            const auto close = command.indexOf(')', open);
            command.replace(open, close - open + 1,
                            ScriptHost::word(command.mid(open + 1, close - open - 1)));
        }
        host->call(command);
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return "no trace";
    const QByteArray trace = file.readAll();
    file.remove();
    return trace;
}

void tst_DebugTrace::step_data()
{
    QTest::addColumn<QByteArray>("commands");
    QTest::addColumn<QByteArray>("answer");
    const QByteArray port = QByteArray::number(server.port());
    const QByteArray refusedUrl = "http://" + refused.authority() + "/";
    const QByteArray none;
    const auto step = [](const char *file, const QByteArray &commands, const QByteArray &bytes) {
        QTest::newRow(file) << commands << bytes;
    };
    step("01_version_before_open", "version", none);
    step("02_enable", "debug 1", none);
    step("03_create_while_closed", "create", none);
    step("04_set_while_closed", "set null (mode) (update)", none);
    step("05_get_while_closed", "get null (mode)", none);
    step("06_open", "open", none);
    step("07_open_again", "open", none);
    step("08_create", "create", none);
    step("09_set_server_url", "set 0 (server_url) (http://127.0.0.1:" + port + "/api?x=1)", none);
    step("10_set_mode_with_blanks", "set 0 (  mode ) ( update )", none);
    step("11_check_without_product_no", "check 0", none);
    step("12_set_product_no", "set 0 (product_no) (PN-1)", none);
    step("13_set_unknown_key", "set 0 (Mode) (update)", none);
    step("14_set_quotes", "set 0 (product_name) (a \"b\" \\ c\td %1 %2 \xe9 \xff)", none);
    step("15_set_line_break", "set 0 (product_name) (one\r\ntwo\x01\x7f)", none);
    step("16_get", "get 0 (mode)", none);
    step("17_check_success", "check 0", none);
    step("18_send_without_type", "send 0 (x) 1", none);
    step("19_send_result", "send 0 (abc) 3", none);
    step("20_recv_data", "recv 0", fineAnswer("dludf"));
    step("21_recv_zip", "recv 0", answer(200, "OK", "application/zip", QByteArray(5000, 'z')));
    step("22_recv_no_type", "recv 0", answer(200, "OK", QByteArray(), "DATA"));
    step("23_recv_text_upper_case_type", "recv 0", answer(200, "OK", "TEXT/PLAIN", "DATA"));
    step("24_recv_context_type", "recv 0", answer(200, "OK", "application/x-text/y", "DATA"));
    step("25_recv_nul", "recv 0", answer(200, "OK", "text/plain", QByteArray("before\0after", 12)));
    step("26_recv_non_ascii", "recv 0",
         answer(200, "OK", "text/plain", "\xc3\xa9 \xe9 \"q\" \\ \r\n\t end"));
    step("27_recv_empty", "recv 0", answer(200, "OK", "text/plain", ""));
    step("28_recv_no_length", "recv 0",
         "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nConnection: close\r\n\r\nfirst second");
    step("29_recv_pieces", "recv 0", answer(200, "OK", "text/plain", QByteArray(30, 'x')));
    step("30_recv_null_pointer", "recvnull 0 data", none);
    step("31_check_404", "check 0", answer(404, "Not Found", "text/html", "<b>sorry</b>\r"));
    step("32_check_500", "check 0", answer(500, "Oops", "text/html", ""));
    step("33_check_203", "check 0", xml(xmlBody("chkud", "0", "12", "not \"today\"")));
    step("34_check_status_code", "check 0", xml(xmlBody("chkud", "1", "7", "seven")));
    step("35_check_202", "check 0", xml(xmlBody("CHKUD", "1", "0", QByteArray())));
    step("36_check_201", "check 0", answer(200, "OK", "text/html", "<html><br></html>"));
    step("37_check_indented", "check 0", xml("<r>\n <is>chkud</is>\n <status>1</status>\n</r>\n"));
    step("38_check_entities", "check 0",
         xml("<r><is>chk&#117;d</is><status>1</status><message>a<![CDATA[b]]></message></r>"));
    step("39_check_timeout", "check 0",
         "HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\nContent-Length: 100\r\n\r\n<r><is>chk");
    step("40_check_refused", "set 0 (server_url) (" + refusedUrl + ") ; check 0", none);
    step("41_check_refused_again", "check 0", none);
    step("42_check_with_kept_records",
         "set 0 (server_url) (http://127.0.0.1:" + port + "/) ; check 0", none);
    step("43_check_odd_parameters",
         "set 0 (server_url) (http://us%40er:p w@127.0.0.1:" + port
             + "/p%20q/%41?x=%42 y&\xe9#f g) ; "
               "set 0 (soft_ver) (a b%41&=+#\"<>\\^`{|}[]~\xe9\xff%2F%20) ; check 0",
         none);
    step("44_send_odd_parameters", "send 0 (x%y) 3", none);
    step("45_check_unknown_mode", "set 0 (mode) (bogus) ; check 0", none);
    step("46_s3_send",
         "set 0 (mode) (s3_upload) ; set 0 (server_url) (http://127.0.0.1:" + port
             + "/) ; send 0 504b0304001122ff 8",
         none);
    step("47_s3_sendfile", "sendfile 0 (./f.zip)", none);
    step("48_s3_sendfile_missing", "sendfile 0 (./none.zip)", none);
    step("49_s3_sendfile_50000", "sendfile 0 (./big.bin)", none);
    step("50_ra_recvfile", "set 0 (mode) (remote_access) ; recvfile 0 (./out.bin)", none);
    step("51_ra_recvfile_bad_dir", "recvfile 0 (./nodir/out.bin)", none);
    step("52_check_unknown_scheme",
         "set 0 (soft_ver) (1.0) ; set 0 (server_url) (foo://127.0.0.1/) ; check 0", none);
    step("53_check_foreign_handle", "check foreign", none);
    step("54_set_foreign_handle", "set foreign (mode) (update)", none);
    step("55_get_foreign_handle", "get foreign (mode)", none);
    step("56_dispose_foreign_handle", "dispose foreign", none);
    step("57_dispose", "dispose 0", none);
    step("58_dispose_again", "dispose 0", none);
    step("59_create_2", "create", none);
    step("60_close", "close", none);
    step("61_close_again", "close", none);
    step("62_disable", "debug 0", none);
    step("63_open_quiet", "open", none);
}

void tst_DebugTrace::step()
{
    QFETCH(QByteArray, commands);
    QFETCH(QByteArray, answer);
    const QByteArray name = QTest::currentDataTag();

    answerWith(answer);
    if (name == "47_s3_sendfile") {
        QFile file(directory.filePath(QStringLiteral("f.zip")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(QByteArray(100, 'z'));
    } else if (name == "49_s3_sendfile_50000") {
        QFile file(directory.filePath(QStringLiteral("big.bin")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(QByteArray(50000, 'z'));
    }
    // Parameters that the recorded steps do not show.
    if (name == "17_check_success") {
        run("set 0 (language_code) (en) ; set 0 (soft_ver) (1.0) ; set 0 (recv_timeout) (2) ; "
            "set 0 (cloud_log_file_save_dir) (.) ; set 0 (product_name) ()");
    } else if (name == "19_send_result") {
        run("set 0 (send_data_type) (result) ; set 0 (result) (1)");
    }
    // Only the last command of a step was recorded.
    QList<QByteArray> parts = commandsOf(commands);
    const QByteArray recordedCommand = parts.takeLast();
    if (!parts.isEmpty())
        run(parts.join(SEPARATOR));

    QFile recorded(QStringLiteral(KORRIN_TEST_DATA_DIR "/recorded/debug_trace/%1.txt")
                       .arg(QString::fromLatin1(name)));
    QVERIFY(recorded.open(QIODevice::ReadOnly));
    QByteArray expected;
    for (const QByteArray &line : recorded.readAll().split('\n')) {
        if (!line.startsWith("content-type missing"))
            expected += line + '\n';
    }
    expected.chop(1);
    expected.replace(RECORDED_PORT, QByteArray::number(server.port()));
    expected.replace(RECORDED_REFUSED_PORT, QByteArray::number(refused.number()));

    QCOMPARE(comparable(run(recordedCommand)), comparable(expected));
}

void tst_DebugTrace::off()
{
    // A host of its own: nothing that the steps left is in the way.
    host.reset(
        new ScriptHost(directory.path(), {{QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8")}}));
    answerWith(QByteArray());
    const int requestsBefore = server.requestCount();
    QCOMPARE(run("create ; open ; create ; set 0 (mode) (update) ; set 0 (product_no) (PN) ; set 0 "
                 "(server_url) ("
                 + server.url()
                 + ") ; check 0 ; recv 0 ; get 0 (mode) ; set 0 "
                   "(mod) (x) ; check foreign ; dispose 0 ; dispose 0 ; close"),
             QByteArray());
    QCOMPARE(server.requestCount(), requestsBefore + 4); // check and recv, each with its record
}

void tst_DebugTrace::loggingRulesDoNotSilence_data()
{
    QTest::addColumn<QString>("rules");
    QTest::newRow("all") << QStringLiteral("*=false");
    QTest::newRow("debug") << QStringLiteral("*.debug=false");
    QTest::newRow("default category") << QStringLiteral("default.debug=false");
}

void tst_DebugTrace::loggingRulesDoNotSilence()
{
    QFETCH(QString, rules);
    ScriptHost ruled(directory.path(), {{QStringLiteral("QT_LOGGING_RULES"), rules}});
    ruled.call("debug 1");
    ruled.call("open");
    ruled.call("close");
    QCOMPARE(ruled.finish(), QByteArray(" \n@::korrinOpen() \n \n@::korrinClose() \n"));
}

QTEST_GUILESS_MAIN(tst_DebugTrace)
#include "tst_debugtrace.moc"
