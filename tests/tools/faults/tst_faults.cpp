#include "documentblocks.h"
#include "korrinhost.h"
#include "simulator.h"

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

using namespace korrintest;

namespace
{

const QByteArray PRODUCT = "KX-200"; // with a file of 64 KiB

Parameters device(const QByteArray &url, const QByteArray &mode)
{
    return {{"server_url", url},
            {"mode", mode},
            {"product_no", PRODUCT},
            {"language_code", "en"},
            {"soft_ver", "1.0"},
            {"recv_timeout", "1"},
            {"download_file_path", "kx-200-1.4.bin"},
            {"cloud_log_file_max_size", "0"}};
}

/// Text on one line, not too long, with the port that the manual uses.
QByteArray cell(const QByteArray &text)
{
    const int mostBytes = 300;
    QString line = QString::fromUtf8(text).simplified();
    line.replace(QRegularExpression(QStringLiteral("127\\.0\\.0\\.1:\\d+")),
                 QStringLiteral("127.0.0.1:8080"));
    line.replace(QLatin1Char('<'), QStringLiteral("&lt;"));
    if (line.size() > mostBytes)
        line = line.left(60) + QStringLiteral("…");
    return line.toUtf8();
}

/// "| `delay:200` | check | 0 | | 0:Version 1.4 is available. |"
QByteArray row(const QByteArray &rule, const QByteArray &call, const Handle &handle)
{
    return "| `" + rule + "` | " + call + " | " + handle.errorNo() + " | "
        + cell(handle.errorText()) + " | " + cell(handle.errorDetail()) + " |\n";
}

} // namespace

/// What the library reports for each fault of the local cloud: the table of the simulator's manual.
class tst_Faults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void faults_data();
    void faults();
    void tableIsTheManuals();

    void refusalReachesTheResults();
    void cutDownloadIsCutWhereTheRuleSays();
    void hugeAnswerIsFilledUp();
    void refusedRequestIsNotCarriedOut();
    void spoiledAnswerWasCarriedOut();
    void faultsOnTheLogKeepTheRecord();

private:
    QTemporaryDir directory;
    Simulator simulator;
    QByteArray table = "| Rule | Call | Number | Text | Detail |\n|---|---|---|---|---|\n";
    const OpenLibrary library;
};

void tst_Faults::initTestCase()
{
    QVERIFY(simulator.start());
}

void tst_Faults::init()
{
    simulator.clearFaults();
}

void tst_Faults::faults_data()
{
    QTest::addColumn<QByteArray>("rule"); // as text
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QByteArray>("call");
    QTest::addColumn<bool>("succeeds");
    QTest::addColumn<QByteArray>("error");

    const auto add = [](const QByteArray &rule, const QByteArray &json, const QByteArray &call,
                        bool succeeds, const QByteArray &error) {
        QTest::newRow((rule + " " + call).constData()) << rule << json << call << succeeds << error;
    };
    add("delay:200", R"({"fault":"delay","ms":200})", "check", true, "0");
    add("stall", R"({"fault":"stall"})", "check", false, "305");
    add("stall:body", R"({"fault":"stall","at":"body"})", "check", false, "305");
    add("stall:body", R"({"fault":"stall","at":"body"})", "receive", false, "305");
    add("drip:2000", R"({"fault":"drip","bytes_per_second":2000})", "check", true, "0");
    add("cut", R"({"fault":"cut"})", "check", false, "301");
    add("cut:1000", R"({"fault":"cut","bytes":1000})", "receive", false, "301");
    add("close", R"({"fault":"close"})", "check", false, "301");
    add("close", R"({"fault":"close"})", "receive", false, "301");
    add("close", R"({"fault":"close"})", "send", false, "301");
    add("reset", R"({"fault":"reset"})", "check", false, "301");
    add("status:404", R"({"fault":"status","code":404})", "receive", false, "303");
    add("status:503", R"({"fault":"status","code":503})", "check", false, "303");
    add("status:503", R"({"fault":"status","code":503})", "send", false, "303");
    add("status:503", R"({"fault":"status","code":503})", "upload", false, "303");
    add("echo", R"({"fault":"echo"})", "check", false, "202");
    add("echo", R"({"fault":"echo"})", "send", false, "202");
    add("refuse:77:Not today.", R"({"fault":"refuse","code":"77","message":"Not today."})", "check",
        false, "203");
    add("refuse:77:Not today.", R"({"fault":"refuse","code":"77","message":"Not today."})", "send",
        false, "203");
    add("refuse:SlowDown", R"({"fault":"refuse","code":"SlowDown"})", "upload", false, "303");
    add("space", R"({"fault":"space"})", "check", false, "202");
    add("malformed", R"({"fault":"malformed"})", "check", false, "201");
    add("huge:4000000", R"({"fault":"huge","bytes":4000000})", "check", true, "0");
    add("huge:4000000", R"({"fault":"huge","bytes":4000000})", "receive", true, "0");
}

void tst_Faults::faults()
{
    QFETCH(QByteArray, rule);
    QFETCH(QByteArray, json);
    QFETCH(QByteArray, call);
    QFETCH(bool, succeeds);
    QFETCH(QByteArray, error);
    QVERIFY(simulator.addFault(json) > 0);

    const bool uploads = call == "upload";
    Handle handle(device(simulator.url() + (uploads ? "kx-logs/a.zip" : ""),
                         uploads ? "s3_upload" : "update"));
    handle.set("send_data_type", "update_log");
    handle.set("aws_access_key", "KORRINSIMACCESSKEY");
    handle.set("aws_secret_access_key", "korrin/sim+secret");
    const int done = call == "check" ? handle.checkEnable()
        : call == "receive"          ? handle.recvData()
                                     : handle.sendData("data");
    table += row(rule, call, handle);
    QCOMPARE(handle.errorNo(), error);
    QCOMPARE(done, int(succeeds));
}

void tst_Faults::tableIsTheManuals()
{
    const QByteArray difference =
        DocumentBlocks(QStringLiteral("simulator.md")).compare("faults", table);
    QVERIFY2(difference.isEmpty(), difference.constData());
}

void tst_Faults::refusalReachesTheResults()
{
    QVERIFY(simulator.addFault(R"({"fault":"refuse","code":"5","message":"<no> & \"no\""})") > 0);
    Handle handle(device(simulator.url(), "update"));
    QCOMPARE(handle.checkEnable(), 0);
    QCOMPARE(handle.get("status"), QByteArray("0"));
    QCOMPARE(handle.get("status_code"), QByteArray("5"));
    QCOMPARE(handle.get("message"), QByteArray("<no> & \"no\""));
}

void tst_Faults::cutDownloadIsCutWhereTheRuleSays()
{
    QVERIFY(simulator.addFault(R"({"fault":"cut","bytes":1000,"match":{"is":"dludf"}})") > 0);
    Handle handle(device(simulator.url(), "update"));
    const QString path = directory.filePath(QStringLiteral("cut"));
    QCOMPARE(handle.recvFile(path.toLocal8Bit()), 0);
    QVERIFY(!QFile::exists(path));
    const QJsonObject exchange = simulator.api("exchanges?limit=1&is=dludf")
                                     .value(QLatin1String("exchanges"))
                                     .toArray()
                                     .at(0)
                                     .toObject();
    const QByteArray answer = QByteArray::fromBase64(
        simulator
            .api("exchanges/" + QByteArray::number(exchange.value(QLatin1String("id")).toInt()))
            .value(QLatin1String("answer"))
            .toString()
            .toLatin1());
    QCOMPARE(answer.size() - answer.indexOf("\r\n\r\n") - 4, 1000);
    QCOMPARE(exchange.value(QLatin1String("fault")).toString(), QStringLiteral("cut"));
}

void tst_Faults::hugeAnswerIsFilledUp()
{
    QVERIFY(simulator.addFault(R"({"fault":"huge","bytes":3000000})") > 0);
    Handle handle(device(simulator.url(), "update"));
    QByteArray data;
    QCOMPARE(handle.recvData(&data), 1);
    QCOMPARE(data.size(), 3000000);
    QCOMPARE(handle.checkEnable(), 1);
    QVERIFY(handle.get("message").size() > 2900000);
    QCOMPARE(handle.get("new_soft_ver"), QByteArray("1.4"));
}

void tst_Faults::refusedRequestIsNotCarriedOut()
{
    QVERIFY(simulator.addFault(R"({"fault":"refuse","match":{"is":"cloudlog"}})") > 0);
    QVERIFY(simulator.addFault(R"({"fault":"status","code":500,"match":{"is":"udlog"}})") > 0);
    simulator.api("DELETE", "exchanges", QByteArray());
    Handle handle(device(simulator.url(), "update"));
    handle.set("send_data_type", "update_log");
    QCOMPARE(handle.sendData("text"), 0);
    QCOMPARE(simulator.api("reports").value(QLatin1String("reports")).toArray().size(), 0);
    QCOMPARE(simulator.api("cloudlog").value(QLatin1String("records")).toArray().size(), 0);
}

void tst_Faults::spoiledAnswerWasCarriedOut()
{
    QVERIFY(simulator.addFault(R"({"fault":"close","match":{"is":"udlog"}})") > 0);
    simulator.api("DELETE", "exchanges", QByteArray());
    Handle handle(device(simulator.url(), "update"));
    handle.set("send_data_type", "update_log");
    QCOMPARE(handle.sendData("text"), 0);
    QVERIFY(!simulator.api("reports").value(QLatin1String("reports")).toArray().isEmpty());
}

void tst_Faults::faultsOnTheLogKeepTheRecord()
{
    QVERIFY(simulator.addFault(R"({"fault":"status","code":503,"match":{"is":"cloudlog"}})") > 0);
    Handle handle(device(simulator.url(), "update"));
    handle.set("cloud_log_file_max_size", "");
    handle.set("cloud_log_file_save_dir", directory.path().toLocal8Bit());
    QCOMPARE(handle.checkEnable(), 1);
    QFile log(directory.filePath(QStringLiteral("cloudlog.txt")));
    QVERIFY(log.open(QIODevice::ReadOnly));
    QCOMPARE(log.readAll().count('\n'), 1);
    simulator.clearFaults();
    QCOMPARE(handle.checkEnable(), 1);
    QVERIFY(!log.exists());
}

QTEST_GUILESS_MAIN(tst_Faults)
#include "tst_faults.moc"
