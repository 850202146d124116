#include "curl.h"
#include "korrinhost.h"
#include "rawsocket.h"
#include "simulator.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/socket.h>

using namespace korrintest;

namespace
{

Parameters device(const QByteArray &url, const QByteArray &mode = "update")
{
    return {{"server_url", url},     {"mode", mode},      {"product_no", "KX-100"},
            {"language_code", "en"}, {"soft_ver", "1.0"}, {"cloud_log_file_max_size", "0"}};
}

} // namespace

/// Every kind of request, made by the library, and what the local cloud keeps of it.
class tst_Services : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void check_data();
    void check();
    void messageIsInTheDevicesLanguage_data();
    void messageIsInTheDevicesLanguage();
    void download_data();
    void download();
    void downloadedBytesAreTheSameEachTime();
    void resultIsReported();
    void postedItemsCountWhateverTheQuery();
    void updateLogIsReported();
    void remoteAccess_data();
    void remoteAccess();
    void cloudLogIsDecoded();
    void keptRecordsArriveInTheirOrder();
    void deviceIsRemembered();
    void uploadIsStored_data();
    void uploadIsStored();
    void uploadWithAWrongKeyIsRefused_data();
    void uploadWithAWrongKeyIsRefused();
    void requestThatBreaksOffIsNotCarriedOut();
    void otherMethodsAndPaths_data();
    void otherMethodsAndPaths();

private:
    QJsonArray list(const QByteArray &what, const char *name);
    QJsonObject first(const QByteArray &what, const char *name);

    Simulator simulator;
    QTemporaryDir directory;
    const OpenLibrary library;
};

void tst_Services::initTestCase()
{
    QVERIFY(simulator.start());
}

void tst_Services::init()
{
    simulator.api("DELETE", "exchanges", QByteArray());
}

QJsonArray tst_Services::list(const QByteArray &what, const char *name)
{
    return simulator.api(what).value(QLatin1String(name)).toArray();
}

QJsonObject tst_Services::first(const QByteArray &what, const char *name)
{
    return list(what, name).at(0).toObject();
}

void tst_Services::check_data()
{
    QTest::addColumn<QByteArray>("product");
    QTest::addColumn<QByteArray>("installed");
    QTest::addColumn<QByteArray>("statusCode");
    QTest::addColumn<QByteArray>("offered");
    QTest::newRow("older") << QByteArray("KX-100") << QByteArray("1.0") << QByteArray("0")
                           << QByteArray("2.0");
    QTest::newRow("none installed")
        << QByteArray("KX-100") << QByteArray() << QByteArray("0") << QByteArray("2.0");
    QTest::newRow("current") << QByteArray("KX-100") << QByteArray("2.0") << QByteArray("1")
                             << QByteArray();
    QTest::newRow("newer") << QByteArray("KX-100") << QByteArray("2.0.1") << QByteArray("1")
                           << QByteArray();
    QTest::newRow("runs of digits are numbers")
        << QByteArray("KX-200") << QByteArray("1.10") << QByteArray("1") << QByteArray();
    QTest::newRow("unknown product")
        << QByteArray("KX-999") << QByteArray("1.0") << QByteArray("10") << QByteArray();
}

void tst_Services::check()
{
    QFETCH(QByteArray, product);
    QFETCH(QByteArray, installed);
    QFETCH(QByteArray, statusCode);
    QFETCH(QByteArray, offered);
    Handle handle(device(simulator.url()));
    handle.set("product_no", product);
    handle.set("soft_ver", installed);
    QCOMPARE(handle.checkEnable(), statusCode == "10" ? 0 : 1);
    QCOMPARE(handle.get("status_code"), statusCode);
    QCOMPARE(handle.get("new_soft_ver"), offered);
}

void tst_Services::messageIsInTheDevicesLanguage_data()
{
    QTest::addColumn<QByteArray>("language");
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("English") << QByteArray("en") << QByteArray("Version 2.0 is ready.");
    QTest::newRow("German") << QByteArray("de") << QByteArray("Version 2.0 ist bereit.");
    QTest::newRow("one that is missing") << QByteArray("xx") << QByteArray("Version 2.0 is ready.");
}

void tst_Services::messageIsInTheDevicesLanguage()
{
    QFETCH(QByteArray, language);
    QFETCH(QByteArray, message);
    Handle handle(device(simulator.url()));
    handle.set("language_code", language);
    QCOMPARE(handle.checkEnable(), 1);
    QCOMPARE(handle.get("message"), message);
}

void tst_Services::download_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<bool>("checksFirst");
    QTest::addColumn<int>("size"); // negative: not found
    QTest::newRow("the offered file") << QByteArray("kx-100-2.0.bin") << true << 1048576;
    QTest::newRow("any version") << QByteArray("kx-100-1.0.bin") << false << 4096;
    QTest::newRow("another version than offered") << QByteArray("kx-100-1.0.bin") << true << -1;
    QTest::newRow("unknown file") << QByteArray("absent") << false << -1;
}

void tst_Services::download()
{
    QFETCH(QByteArray, file);
    QFETCH(bool, checksFirst);
    QFETCH(int, size);
    Handle handle(device(simulator.url()));
    handle.set("download_file_path", file);
    if (checksFirst)
        QCOMPARE(handle.checkEnable(), 1);
    const QString path = directory.filePath(QStringLiteral("download"));
    QFile::remove(path);
    QCOMPARE(handle.recvFile(path.toLocal8Bit()), size < 0 ? 0 : 1);
    QCOMPARE(handle.errorNo(), size < 0 ? QByteArray("303") : QByteArray("0"));
    QCOMPARE(QFileInfo(path).size(), size < 0 ? 0 : size);
}

void tst_Services::downloadedBytesAreTheSameEachTime()
{
    Handle handle(device(simulator.url()));
    handle.set("download_file_path", "kx-100-2.0.bin");
    QByteArray data;
    QCOMPARE(handle.recvData(&data), 1);
    Simulator other;
    QVERIFY(other.start());
    const CurlResult same = curl({other.url() + "su/download?is=dludf&file=kx-100-2.0.bin"});
    QCOMPARE(same.body.size(), 1048576);
    QVERIFY(same.body == data);
    QVERIFY(data.count('\0') < 1048576 / 128); // not a run of one byte
}

void tst_Services::resultIsReported()
{
    Handle handle(device(simulator.url()));
    handle.set("send_data_type", "result");
    handle.set("soft_ver", "2.0");
    for (const char *result : {"1", "0"}) {
        handle.set("result", result);
        QCOMPARE(handle.sendData("-"), 1);
        const QJsonObject report = first("reports", "reports");
        QCOMPARE(report.value(QLatin1String("kind")).toString(), QStringLiteral("result"));
        QCOMPARE(report.value(QLatin1String("result")).toString(), QLatin1String(result));
        QCOMPARE(report.value(QLatin1String("version")).toString(), QStringLiteral("2.0"));
    }
    QCOMPARE(first("devices", "devices").value(QLatin1String("last_result")).toString(),
             QStringLiteral("0"));
}

void tst_Services::postedItemsCountWhateverTheQuery()
{
    Handle handle(device(simulator.url() + "?is=chkud&pn=other"));
    handle.set("send_data_type", "update_log");
    QCOMPARE(handle.sendData("asked"), 1);
    QCOMPARE(first("reports", "reports").value(QLatin1String("text")).toString(),
             QStringLiteral("asked"));
    QCOMPARE(first("exchanges?is=udlog", "exchanges").value(QLatin1String("target")).toString(),
             QStringLiteral("/su/upload?is=chkud&pn=other"));
}

void tst_Services::updateLogIsReported()
{
    Handle handle(device(simulator.url()));
    handle.set("send_data_type", "update_log");
    const QByteArray text = "a+b & c=d; 100 %\nsecond line " + QByteArray(20000, 'x');
    QCOMPARE(handle.sendData(text), 1);
    const QJsonObject report = first("reports", "reports");
    QCOMPARE(report.value(QLatin1String("kind")).toString(), QStringLiteral("update_log"));
    QCOMPARE(report.value(QLatin1String("text")).toString(), QString::fromLatin1(text));
    QCOMPARE(report.value(QLatin1String("product")).toString(), QStringLiteral("KX-100"));
}

void tst_Services::remoteAccess_data()
{
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<QByteArray>("product");
    QTest::addColumn<QByteArray>("statusCode");
    QTest::newRow("on") << QByteArray("remote_access") << QByteArray("KX-100") << QByteArray("0");
    QTest::newRow("off") << QByteArray("remote_access") << QByteArray("KX-200") << QByteArray("11");
    QTest::newRow("unknown product")
        << QByteArray("remote_access") << QByteArray("KX-999") << QByteArray("10");
    QTest::newRow("mode submit_info")
        << QByteArray("submit_info") << QByteArray("KX-100") << QByteArray("0");
}

void tst_Services::remoteAccess()
{
    QFETCH(QByteArray, mode);
    QFETCH(QByteArray, product);
    QFETCH(QByteArray, statusCode);
    Handle handle(device(simulator.url(), mode));
    handle.set("product_no", product);
    QCOMPARE(handle.checkEnable(), statusCode == "0" ? 1 : 0);
    QCOMPARE(handle.get("status_code"), statusCode);
    QCOMPARE(handle.sendData("data"), 1);
    QByteArray data;
    QCOMPARE(handle.recvData(&data), 1);
    QVERIFY(!data.isEmpty());
    QCOMPARE(list("exchanges", "exchanges").size(), 3);
    QCOMPARE(list("cloudlog", "records").size(), 0);
}

void tst_Services::cloudLogIsDecoded()
{
    Handle handle(device(simulator.url()));
    handle.set("http_proxy", "");
    handle.set("product_name", "Pump, big: 4 l");
    handle.set("product_no", "KX-999");
    QCOMPARE(handle.checkEnable(), 0);
    const QJsonObject record = first("cloudlog", "records");
    QCOMPARE(record.value(QLatin1String("product")).toString(), QStringLiteral("KX-999"));
    QCOMPARE(record.value(QLatin1String("language")).toString(), QStringLiteral("en"));
    QCOMPARE(record.value(QLatin1String("mode")).toString(), QStringLiteral("update"));
    QCOMPARE(record.value(QLatin1String("function")).toString(),
             QStringLiteral("korrinCheckEnable"));
    QCOMPARE(record.value(QLatin1String("arguments")).toString(), QStringLiteral("-"));
    QCOMPARE(record.value(QLatin1String("error")).toString(), QStringLiteral("203"));
    QCOMPARE(record.value(QLatin1String("detail")).toString(),
             QStringLiteral("10:Unknown product: KX-999"));
    QCOMPARE(record.value(QLatin1String("time")).toString().size(), 23);
    const QJsonObject settings = record.value(QLatin1String("settings")).toObject();
    QCOMPARE(settings.size(), 12);
    QCOMPARE(settings.value(QLatin1String("product_name")).toString(),
             QStringLiteral("Pump, big: 4 l"));
    QCOMPARE(settings.value(QLatin1String("soft_ver")).toString(), QStringLiteral("1.0"));
    QCOMPARE(settings.value(QLatin1String("server_url")).toString().toLatin1(), simulator.url());
}

void tst_Services::keptRecordsArriveInTheirOrder()
{
    QTemporaryDir logs;
    Handle handle(device("http://127.0.0.1:1/"));
    handle.set("cloud_log_file_max_size", "");
    handle.set("cloud_log_file_save_dir", logs.path().toLocal8Bit());
    for (const char *product : {"A", "B", "C"}) {
        handle.set("product_no", product);
        QCOMPARE(handle.checkEnable(), 0);
    }
    handle.set("server_url", simulator.url());
    handle.set("product_no", "KX-100");
    QCOMPARE(handle.checkEnable(), 1);
    QStringList products;
    for (const QJsonValue &record : list("cloudlog", "records"))
        products.prepend(record.toObject().value(QLatin1String("product")).toString());
    QCOMPARE(products.join(QLatin1Char(' ')), QStringLiteral("A B C KX-100"));
    QVERIFY(QDir(logs.path()).isEmpty());
}

void tst_Services::deviceIsRemembered()
{
    Handle handle(device(simulator.url()));
    QCOMPARE(handle.checkEnable(), 1);
    QJsonObject seen = first("devices", "devices");
    QCOMPARE(seen.value(QLatin1String("product")).toString(), QStringLiteral("KX-100"));
    QCOMPARE(seen.value(QLatin1String("version")).toString(), QStringLiteral("1.0"));
    QCOMPARE(seen.value(QLatin1String("last_error")).toString(), QString());
    QCOMPARE(seen.value(QLatin1String("exchanges")).toInt(), 2);
    handle.set("download_file_path", "absent");
    QCOMPARE(handle.recvData(), 0);
    seen = first("devices", "devices");
    QVERIFY(seen.value(QLatin1String("last_error")).toString().startsWith(QLatin1String("303 ")));
}

void tst_Services::uploadIsStored_data()
{
    QTest::addColumn<bool>("fromFile");
    QTest::newRow("data") << false;
    QTest::newRow("file") << true;
}

void tst_Services::uploadIsStored()
{
    QFETCH(bool, fromFile);
    QByteArray bytes;
    for (int i = 0; i < 100000; ++i)
        bytes += char(i * 7);
    QFile file(directory.filePath(QStringLiteral("object.zip")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(bytes), qint64(bytes.size()));
    file.close();

    Handle handle(
        device(simulator.url() + "kx-logs/day/" + (fromFile ? "" : "data.zip"), "s3_upload"));
    handle.set("aws_access_key", "KORRINSIMACCESSKEY");
    handle.set("aws_secret_access_key", "korrin/sim+secret");
    QCOMPARE(fromFile ? handle.sendFile(file.fileName().toLocal8Bit()) : handle.sendData(bytes), 1);

    const QByteArray key = fromFile ? "day/object.zip" : "day/data.zip";
    const QByteArray etag =
        '"' + QCryptographicHash::hash(bytes, QCryptographicHash::Md5).toHex() + '"';
    const CurlResult stored = curl({simulator.url() + "kx-logs/" + key});
    QCOMPARE(stored.status, 200);
    QVERIFY(stored.body == bytes);
    QCOMPARE(stored.header("Content-Type"), QByteArray("application/zip"));
    QCOMPARE(stored.header("ETag"), etag);
    // Whatever a device uploads, a browser runs nothing of it on the page's origin.
    QCOMPARE(stored.header("Content-Security-Policy"), QByteArray("sandbox"));
    QCOMPARE(stored.header("X-Content-Type-Options"), QByteArray("nosniff"));
    const CurlResult head = curl({"-I", simulator.url() + "kx-logs/" + key});
    QCOMPARE(head.header("Content-Length"), QByteArray("100000"));
    bool listed = false;
    for (const QJsonValue &object : list("objects", "objects")) {
        listed = listed
            || (object.toObject().value(QLatin1String("key")).toString().toLatin1() == key
                && object.toObject().value(QLatin1String("bytes")).toInt() == 100000);
    }
    QVERIFY(listed);
}

void tst_Services::uploadWithAWrongKeyIsRefused_data()
{
    QTest::addColumn<QByteArray>("accessKey");
    QTest::addColumn<QByteArray>("secret");
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QByteArray>("code");
    QTest::addColumn<QByteArray>("text");
    const QByteArray forbidden = "network content error.(403 Forbidden)";
    QTest::newRow("wrong secret") << QByteArray("KORRINSIMACCESSKEY") << QByteArray("wrong")
                                  << QByteArray("kx-logs/a") << QByteArray("SignatureDoesNotMatch")
                                  << forbidden;
    QTest::newRow("unknown key") << QByteArray("SOMEBODY") << QByteArray("korrin/sim+secret")
                                 << QByteArray("kx-logs/a") << QByteArray("InvalidAccessKeyId")
                                 << forbidden;
    QTest::newRow("unknown bucket")
        << QByteArray("KORRINSIMACCESSKEY") << QByteArray("korrin/sim+secret")
        << QByteArray("elsewhere/a") << QByteArray("NoSuchBucket")
        << QByteArray("network content error.(404 Not Found)");
}

void tst_Services::uploadWithAWrongKeyIsRefused()
{
    QFETCH(QByteArray, accessKey);
    QFETCH(QByteArray, secret);
    QFETCH(QByteArray, path);
    QFETCH(QByteArray, code);
    QFETCH(QByteArray, text);
    Handle handle(device(simulator.url() + path, "s3_upload"));
    handle.set("aws_access_key", accessKey);
    handle.set("aws_secret_access_key", secret);
    QCOMPARE(handle.sendData("data"), 0);
    QCOMPARE(handle.errorNo(), QByteArray("303"));
    QCOMPARE(handle.errorText(), text);
    const int id = first("exchanges?limit=1", "exchanges").value(QLatin1String("id")).toInt();
    const QByteArray answer =
        QByteArray::fromBase64(simulator.api("exchanges/" + QByteArray::number(id))
                                   .value(QLatin1String("answer"))
                                   .toString()
                                   .toLatin1());
    QVERIFY2(answer.contains("<Error><Code>" + code + "</Code>"), answer.constData());
}

void tst_Services::requestThatBreaksOffIsNotCarriedOut()
{
    RawSocket device(connectTo(quint16(QUrl(QString::fromLatin1(simulator.url())).port())));
    QVERIFY(device.send("POST /su/upload HTTP/1.1\r\nHost: a\r\nContent-Length: 100\r\n\r\n"
                        "is=cloudlog&pn=KX-100&en=0"));
    shutdown(device.descriptor(), SHUT_WR);
    const QByteArray answer = device.readSome();
    QVERIFY2(answer.startsWith("HTTP/1.1 400 "), answer.constData());
    QVERIFY(list("cloudlog", "records").isEmpty());
    const QJsonObject exchange = first("exchanges", "exchanges");
    QCOMPARE(exchange.value(QLatin1String("path")).toString(), QStringLiteral("/su/upload"));
    QCOMPARE(exchange.value(QLatin1String("status")).toInt(), 400);
}

void tst_Services::otherMethodsAndPaths_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<int>("status");
    QTest::newRow("POST to search") << QByteArray("POST") << QByteArray("su/search") << 405;
    QTest::newRow("GET of upload") << QByteArray("GET") << QByteArray("su/upload?is=nsv") << 405;
    QTest::newRow("unknown path") << QByteArray("GET") << QByteArray("su/elsewhere") << 404;
    QTest::newRow("root") << QByteArray("GET") << QByteArray() << 404;
    QTest::newRow("unknown download") << QByteArray("GET") << QByteArray("su/download?is=x") << 400;
    QTest::newRow("unknown request") << QByteArray("GET") << QByteArray("su/search?is=x") << 200;
    QTest::newRow("absent object") << QByteArray("GET") << QByteArray("kx-logs/absent") << 404;
    QTest::newRow("DELETE of an object") << QByteArray("DELETE") << QByteArray("kx-logs/a") << 405;
    QTest::newRow("absolute target") << QByteArray("GET") << QByteArray("%2e%2e/etc/passwd") << 404;
}

void tst_Services::otherMethodsAndPaths()
{
    QFETCH(QByteArray, method);
    QFETCH(QByteArray, path);
    QFETCH(int, status);
    const CurlResult result =
        curl({"--path-as-is", "-X", method, "-d", "", simulator.url() + path});
    QCOMPARE(result.status, status);
    if (path == "su/search?is=x")
        QVERIFY(result.body.contains("<status_code>12</status_code>"));
}

QTEST_GUILESS_MAIN(tst_Services)
#include "tst_services.moc"
