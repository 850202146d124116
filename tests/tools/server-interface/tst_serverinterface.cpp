#include "documentblocks.h"
#include "korrinhost.h"
#include "simulator.h"

#include <QJsonArray>
#include <QTemporaryDir>
#include <QtTest>

using namespace korrintest;

namespace
{

const char DOCUMENT[] = "server-interface.md";

/// What differs from run to run, as the document shows it.
QByteArray withoutTheMoment(const QByteArray &bytes)
{
    const QList<QPair<QString, QString>> replacements = {
        {QStringLiteral("127\\.0\\.0\\.1:\\d+"), QStringLiteral("127.0.0.1:8080")},
        {QStringLiteral("127\\.0\\.0\\.1%3A\\d+"), QStringLiteral("127.0.0.1%3A8080")},
        {QStringLiteral("\nDate: [^\r]*"), QStringLiteral("\nDate: Sat, 31 Jan 2026 12:00:00 GMT")},
        {QStringLiteral("(Authorization: AWS [^:]*:)[^\r]*"), QStringLiteral("\\1…")},
        // What these list depends on how Qt was built and on the locale.
        {QStringLiteral("\nAccept-Encoding: [^\r]*"),
         QStringLiteral("\nAccept-Encoding: gzip, deflate")},
        {QStringLiteral("\nAccept-Language: [^\r]*"), QStringLiteral("\nAccept-Language: en,*")},
        {QStringLiteral("(?s)<StringToSign>.*</StringToSign>"),
         QStringLiteral("<StringToSign>…</StringToSign>")},
    };
    return korrintest::withoutTheMoment(bytes, replacements);
}

/// A request or an answer as the document shows it: line ends as they are in a text file, a body
/// that is no text as its size.
QByteArray shown(const QByteArray &message)
{
    const int headEnd = static_cast<int>(message.indexOf("\r\n\r\n")) + 4;
    const QByteArray head = withoutTheMoment(message.left(headEnd)).replace("\r\n", "\n");
    const QByteArray body = message.mid(headEnd);
    const bool isText = body.startsWith("is=") || body.startsWith('<') || body.startsWith("Remote");
    if (body.isEmpty() || isText)
        return "```http\n" + head + withoutTheMoment(body)
            + (body.isEmpty() || body.endsWith('\n') ? "" : "\n") + "```\n";
    return "```http\n" + head + "(" + QByteArray::number(body.size()) + " bytes)\n```\n";
}

Parameters device(const QByteArray &url, const QByteArray &mode = "update")
{
    return {{"server_url", url},     {"mode", mode},      {"product_no", "KX-100"},
            {"language_code", "en"}, {"soft_ver", "1.0"}, {"cloud_log_file_max_size", "0"}};
}

} // namespace

/// The requests that the library makes, and the answers, are those that the document shows.
class tst_ServerInterface : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void exchanges_data();
    void exchanges();
    void keptRecordHasALineBreak();
    void everyRecordedPartIsCompared();

private:
    void compareNext(const QByteArray &name, const QString &is);

    QTemporaryDir directory;
    Simulator simulator;
    DocumentBlocks document{QLatin1String(DOCUMENT)};
    QList<QByteArray> compared;
    const OpenLibrary library;
};

using Call = std::function<bool(const QByteArray &url)>;
Q_DECLARE_METATYPE(Call)

void tst_ServerInterface::initTestCase()
{
    QVERIFY(simulator.start());
}

/// Compares the newest exchange of that kind with the document's parts of that name.
void tst_ServerInterface::compareNext(const QByteArray &name, const QString &is)
{
    const QJsonArray newest = simulator.api("exchanges?limit=1&is=" + is.toUtf8())
                                  .value(QLatin1String("exchanges"))
                                  .toArray();
    QCOMPARE(newest.size(), 1);
    const int id = newest.at(0).toObject().value(QLatin1String("id")).toInt();
    const QJsonObject exchange = simulator.api("exchanges/" + QByteArray::number(id));
    for (const char *direction : {"request", "answer"}) {
        const QByteArray bytes =
            QByteArray::fromBase64(exchange.value(QLatin1String(direction)).toString().toLatin1());
        const QByteArray part = name + ' ' + direction;
        const QByteArray difference = document.compare(part, shown(bytes));
        compared << part;
        QVERIFY2(difference.isEmpty(), difference.constData());
    }
}

void tst_ServerInterface::exchanges_data()
{
    QTest::addColumn<QString>("is");
    QTest::addColumn<Call>("call");

    QTest::newRow("check") << "chkud" << Call([](const QByteArray &url) {
        return Handle(device(url)).checkEnable() == 1;
    });
    QTest::newRow("check, nothing new") << "chkud" << Call([](const QByteArray &url) {
        Handle handle(device(url));
        handle.set("soft_ver", "2.0");
        return handle.checkEnable() == 1;
    });
    QTest::newRow("check, refused") << "chkud" << Call([](const QByteArray &url) {
        Handle handle(device(url));
        handle.set("product_no", "KX-999");
        return handle.checkEnable() == 0 && handle.errorNo() == "203";
    });
    QTest::newRow("download") << "dludf" << Call([](const QByteArray &url) {
        Handle handle(device(url));
        handle.set("product_no", "KX-200");
        handle.set("download_file_path", "kx-200-1.4.bin");
        return handle.checkEnable() == 1 && handle.recvData() == 1;
    });
    QTest::newRow("result") << "nsv" << Call([](const QByteArray &url) {
        Handle handle(device(url));
        handle.set("soft_ver", "2.0");
        handle.set("send_data_type", "result");
        handle.set("result", "1");
        return handle.sendData("-") == 1;
    });
    QTest::newRow("update log") << "udlog" << Call([](const QByteArray &url) {
        Handle handle(device(url));
        handle.set("send_data_type", "update_log");
        return handle.sendData("unpacked & verified: 100 %, a+b") == 1;
    });
    QTest::newRow("cloud log") << "cloudlog" << Call([](const QByteArray &url) {
        Handle handle(device(url));
        handle.set("product_no", "KX-999");
        return handle.checkEnable() == 0 && handle.errorNo() == "203";
    });
    QTest::newRow("remote access check") << "chkra" << Call([](const QByteArray &url) {
        return Handle(device(url, "remote_access")).checkEnable() == 1;
    });
    QTest::newRow("remote access send") << "" << Call([](const QByteArray &url) {
        return Handle(device(url, "remote_access")).sendData("temperature 21") == 1;
    });
    QTest::newRow("remote access receive") << "" << Call([](const QByteArray &url) {
        return Handle(device(url, "remote_access")).recvData() == 1;
    });
    QTest::newRow("upload") << "" << Call([this](const QByteArray &url) {
        QFile file(directory.filePath(QStringLiteral("log.zip")));
        Handle handle(device(url + "kx-logs/", "s3_upload"));
        handle.set("aws_access_key", "KORRINSIMACCESSKEY");
        handle.set("aws_secret_access_key", "korrin/sim+secret");
        return file.open(QIODevice::WriteOnly) && file.write("PK\3\4 and so on") > 0 && file.flush()
            && handle.sendFile(file.fileName().toLocal8Bit()) == 1;
    });
    QTest::newRow("upload, refused") << "" << Call([](const QByteArray &url) {
        Handle handle(device(url + "kx-logs/log.zip", "s3_upload"));
        handle.set("aws_access_key", "KORRINSIMACCESSKEY");
        handle.set("aws_secret_access_key", "wrong");
        return handle.sendData("PK\3\4 and so on") == 0 && handle.errorNo() == "303";
    });
}

void tst_ServerInterface::exchanges()
{
    QFETCH(QString, is);
    QFETCH(Call, call);
    QVERIFY(call(simulator.url()));
    compareNext(QTest::currentDataTag(), is);
}

void tst_ServerInterface::keptRecordHasALineBreak()
{
    Handle handle(device("http://127.0.0.1:1/"));
    handle.set("cloud_log_file_max_size", "");
    handle.set("cloud_log_file_save_dir", directory.path().toLocal8Bit());
    QCOMPARE(handle.checkEnable(), 0);
    handle.set("server_url", simulator.url());
    QCOMPARE(handle.checkEnable(), 1);
    const QJsonArray records =
        simulator.api("exchanges?limit=2&is=cloudlog").value(QLatin1String("exchanges")).toArray();
    const int id = records.at(1).toObject().value(QLatin1String("id")).toInt();
    const QByteArray request =
        QByteArray::fromBase64(simulator.api("exchanges/" + QByteArray::number(id))
                                   .value(QLatin1String("request"))
                                   .toString()
                                   .toLatin1());
    QVERIFY(request.endsWith(":\n"));
    QVERIFY(request.contains("&en=301&"));
}

void tst_ServerInterface::everyRecordedPartIsCompared()
{
    QCOMPARE(document.names(), compared);
}

QTEST_GUILESS_MAIN(tst_ServerInterface)
#include "tst_serverinterface.moc"
