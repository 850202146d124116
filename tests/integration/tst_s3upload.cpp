#include "korrinhost.h"
#include "recorded.h"
#include "scriptedserver.h"
#include "scripthost.h"

#include <QFile>
#include <QMessageAuthenticationCode>
#include <QTemporaryDir>
#include <QtTest>

using namespace korrintest;

namespace
{

QByteArray latin1(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toString().toLatin1();
}

QByteArray signatureOf(const QByteArray &secret, const QByteArray &stringToSign)
{
    return QMessageAuthenticationCode::hash(stringToSign, secret, QCryptographicHash::Sha1)
        .toBase64();
}

/// The answer that a recorded case was made with, by the case's name.
QByteArray recordedAnswer(const QByteArray &name)
{
    if (name == "HTTP 403")
        return answer(403, "Forbidden", "application/xml", "<Error/>");
    if (name == "HTTP 503")
        return answer(503, "Slow Down", "application/xml", "<Error/>");
    if (name == "HTTP 204")
        return "HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n";
    if (name.startsWith("HTTP 307"))
        return answer(307, "Temporary Redirect", QByteArray(), "", {"Location: /elsewhere"});
    return answer(200, "OK", QByteArray(), "");
}

/// The recorded error as today's Qt words it.
QByteArray expectedError(const QJsonObject &recordedCase, const char *key, const QByteArray &port)
{
    QByteArray error = latin1(recordedCase, key);
    error.replace("{PORT}", port);
    error.replace("downloading", "transferring");
    if (latin1(recordedCase, "name") == "HTTP 503") {
        // A content error like any other, where Qt 4 saw a protocol error.
        error.replace("304", "303");
        error.replace("network protocol error", "network content error.(503 Slow Down)");
        error.replace("QNetworkReply: 301", "QNetworkReply: 299");
    }
    return error;
}

/// What S3 does: recomputes the signature from the request, for a path that needs no decoding.
QByteArray expectedAuthorization(const HttpRequest &request, const QByteArray &accessKey,
                                 const QByteArray &secret)
{
    const QByteArray stringToSign = request.method + "\n\n" + request.header("Content-Type") + '\n'
        + request.header("Date") + '\n' + request.path();
    return "AWS " + accessKey + ':' + signatureOf(secret, stringToSign);
}

Parameters s3Parameters(const QByteArray &serverUrl)
{
    return baseParameters(serverUrl, "s3_upload")
        + Parameters{{"aws_access_key", "ACCESS"}, {"aws_secret_access_key", "SECRET"}};
}

} // namespace

/// Signed uploads as an S3 server sees them.
class tst_S3Upload : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void recorded_data();
    void recorded();
    void secretsAroundTheBlockSize_data();
    void secretsAroundTheBlockSize();
    void emptyBufferIsSignedLikeAnyOther();
    void pathThatIsSentIsSigned_data();
    void pathThatIsSentIsSigned();
    void accessKeyCannotInjectAHeader_data();
    void accessKeyCannotInjectAHeader();
    void answerIsNotParsed();
    void refusalIsAContentError_data();
    void refusalIsAContentError();
    void resultParametersAreLeftAlone();
    void sendFileAppendsTheFilesName_data();
    void sendFileAppendsTheFilesName();
    void checkAndReceiveUseTheBareFunctionPaths();
    void localFilesAreNeverWritten();
    void binaryBodyArrivesByteForByte();

private:
    QScopedPointer<ScriptedServer> server;
    QTemporaryDir directory;
    const OpenLibrary library;
};

void tst_S3Upload::init()
{
    server.reset(new ScriptedServer([](Connection &connection, const HttpRequest &) {
        connection.send(answer(200, "OK", QByteArray(), ""));
    }));
}

void tst_S3Upload::recorded_data()
{
    QTest::addColumn<QJsonObject>("recordedCase");
    const QJsonArray cases = recordedCases(QStringLiteral("s3.json"));
    for (const QJsonValue &value : cases)
        QTest::newRow(latin1(value.toObject(), "name").constData()) << value.toObject();
    QCOMPARE(cases.size(), 52);
}

void tst_S3Upload::recorded()
{
    QFETCH(QJsonObject, recordedCase);
    const QByteArray caseName = latin1(recordedCase, "name");
    server->setHandler([caseName](Connection &connection, const HttpRequest &) {
        connection.send(recordedAnswer(caseName));
    });
    QHash<QString, QString> environment = {
        {QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8")},
        {QStringLiteral("FAKE_TIME"), recordedCase.value(QStringLiteral("clock")).toString()},
        {QStringLiteral("LD_PRELOAD"), QStringLiteral(KORRIN_TEST_FIXEDCLOCK)}};
    const QJsonObject variables = recordedCase.value(QStringLiteral("environment")).toObject();
    for (auto it = variables.begin(); it != variables.end(); ++it)
        environment.insert(it.key(), it.value().toString());

    const QByteArray port = QByteArray::number(server->port());
    QByteArray url = latin1(recordedCase, "server_url");
    QString fileName = recordedCase.value(QStringLiteral("file_name")).toString();
    if (url.endsWith(":4270")) {
        url = "http://127.0.0.1:" + port.left(port.size() - 1);
        fileName = QString::fromLatin1(port.right(1));
    }
    url.replace("{PORT}", port);

    ScriptHost host(directory.path(), environment);
    host.call("open");
    const QByteArray handle = host.create();
    host.set(handle, "mode", "s3_upload");
    host.set(handle, "product_no", "PN");
    host.set(handle, "recv_timeout", "10");
    host.set(handle, "server_url", url);
    host.set(handle, "aws_access_key", latin1(recordedCase, "aws_access_key"));
    host.set(handle, "aws_secret_access_key", latin1(recordedCase, "aws_secret_access_key"));

    const int bodySize = recordedCase.value(QStringLiteral("body_size")).toInt(1);
    const QByteArray body(bodySize, caseName.contains("NUL") ? '\0' : 'b');
    int result = 0;
    if (recordedCase.value(QStringLiteral("file_name")).isNull()) {
        result = host.send(handle, body);
    } else {
        QFile file(directory.filePath(fileName));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(body);
        file.close();
        result = host.sendFile(handle, "./" + fileName.toLatin1());
    }
    for (const char *key : {"error_detail", "error_no", "error_text"})
        QCOMPARE(host.get(handle, key), expectedError(recordedCase, key, port));
    QCOMPARE(result, recordedCase.value(QStringLiteral("ret")).toInt());
    if (caseName == "server_url without path") {
        QCOMPARE(server->requestCount(), 0);
        return;
    }

    QCOMPARE(server->requestCount(), 1);
    const HttpRequest request = server->requests().at(0);
    QCOMPARE(request.body, body);
    for (const QJsonValue &value :
         recordedCase.value(QStringLiteral("headers_in_order")).toArray()) {
        const QByteArray name = value.toArray().at(0).toString().toLatin1();
        QByteArray expected = value.toArray().at(1).toString().toLatin1();
        if (name != "Host" && name != "Date" && name != "Authorization" && name != "Content-Type"
            && name != "Content-Length")
            continue;
        if (name == "Authorization" && !recordedCase.contains(QStringLiteral("string_to_sign"))) {
            // Placeholders are filled in one step, so a "%1" of the host stays what it is.
            expected = expectedAuthorization(request, latin1(recordedCase, "aws_access_key"),
                                             latin1(recordedCase, "aws_secret_access_key"));
        }
        // In the locale C, Qt 4 dropped the letter; today's Qt converts to UTF-8.
        if (name == "Authorization" && variables.contains(QStringLiteral("LC_ALL"))
            && variables.value(QStringLiteral("LC_ALL")) == QLatin1String("C")) {
            QByteArray secret = latin1(recordedCase, "aws_secret_access_key");
            secret.replace("\xe9", "\xc3\xa9");
            expected =
                expectedAuthorization(request, latin1(recordedCase, "aws_access_key"), secret);
        }
        QCOMPARE(request.header(name), expected);
    }
    if (!fileName.contains(QLatin1Char('%')))
        QCOMPARE(request.startLine, latin1(recordedCase, "request_line"));
}

void tst_S3Upload::secretsAroundTheBlockSize_data()
{
    QTest::addColumn<int>("size");
    for (const int size : {0, 1, 20, 63, 64, 65, 128, 1000})
        QTest::newRow(QByteArray::number(size).constData()) << size;
}

void tst_S3Upload::secretsAroundTheBlockSize()
{
    QFETCH(int, size);
    const QByteArray secret = QByteArray("secret/Key+0123456789 abcdefghijklmnopqrstuvwxyz")
                                  .repeated(21)
                                  .left(size)
                                  .trimmed();
    Handle handle(s3Parameters(server->url("/bucket/key.zip")));
    handle.set("aws_secret_access_key", secret);
    QCOMPARE(handle.sendData("data"), 1);
    const HttpRequest request = server->requests().at(0);
    QCOMPARE(request.header("Authorization"), expectedAuthorization(request, "ACCESS", secret));
}

void tst_S3Upload::emptyBufferIsSignedLikeAnyOther()
{
    Handle handle(s3Parameters(server->url("/bucket/key.zip")));
    QCOMPARE(handle.sendData(""), 1);
    const HttpRequest request = server->requests().at(0);
    QCOMPARE(request.startLine, QByteArray("PUT /bucket/key.zip HTTP/1.1"));
    QCOMPARE(request.header("Content-Length"), QByteArray("0"));
    QCOMPARE(request.header("Authorization"), expectedAuthorization(request, "ACCESS", "SECRET"));
}

void tst_S3Upload::pathThatIsSentIsSigned_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QByteArray>("sent");
    QTest::newRow("..") << QByteArray("/bucket/a/../key.zip") << QByteArray("/bucket/key.zip");
    QTest::newRow(".") << QByteArray("/bucket/./key.zip") << QByteArray("/bucket/key.zip");
    QTest::newRow("//") << QByteArray("/bucket//key.zip") << QByteArray("/bucket//key.zip");
}

void tst_S3Upload::pathThatIsSentIsSigned()
{
    QFETCH(QByteArray, path);
    QFETCH(QByteArray, sent);
    Handle handle(s3Parameters(server->url(path)));
    QCOMPARE(handle.sendData("data"), 1);
    const HttpRequest request = server->requests().at(0);
    QCOMPARE(request.target, sent);
    QCOMPARE(request.header("Authorization"), expectedAuthorization(request, "ACCESS", "SECRET"));
}

void tst_S3Upload::accessKeyCannotInjectAHeader_data()
{
    QTest::addColumn<QByteArray>("accessKey");
    QTest::addColumn<QByteArray>("sent");
    QTest::newRow("CR LF") << QByteArray("A\r\nX-Injected: yes")
                           << QByteArray("A  X-Injected: yes");
    QTest::newRow("LF") << QByteArray("A\nX-Injected: yes") << QByteArray("A X-Injected: yes");
    QTest::newRow("CR") << QByteArray("A\rX-Injected: yes") << QByteArray("A X-Injected: yes");
}

void tst_S3Upload::accessKeyCannotInjectAHeader()
{
    QFETCH(QByteArray, accessKey);
    QFETCH(QByteArray, sent);
    Handle handle(s3Parameters(server->url("/bucket/key.zip")));
    handle.set("aws_access_key", accessKey);
    QCOMPARE(handle.sendData("data"), 1);
    const HttpRequest request = server->requests().at(0);
    QVERIFY(!request.hasHeader("X-Injected"));
    QCOMPARE(request.header("Authorization"), expectedAuthorization(request, sent, "SECRET"));
}

void tst_S3Upload::answerIsNotParsed()
{
    server->setHandler([](Connection &connection, const HttpRequest &) {
        connection.send(answer(200, "OK", "text/xml", "<r><is>no</is><status>0</status"));
    });
    Handle handle(s3Parameters(server->url("/bucket/")));
    QCOMPARE(handle.sendData("x"), 1);
    QCOMPARE(handle.errorNo(), QByteArray("0"));
    QCOMPARE(handle.errorDetail(), QByteArray("no error."));
}

void tst_S3Upload::refusalIsAContentError_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("reason");
    QTest::newRow("403") << 403 << QByteArray("Forbidden");
    QTest::newRow("503") << 503 << QByteArray("Slow Down");
}

void tst_S3Upload::refusalIsAContentError()
{
    QFETCH(int, status);
    QFETCH(QByteArray, reason);
    server->setHandler([status, reason](Connection &connection, const HttpRequest &) {
        connection.send(answer(status, reason, "application/xml",
                               "<Error><Code>SignatureDoesNotMatch</Code></Error>"));
    });
    Handle handle(s3Parameters(server->url("/bucket/")));
    handle.set("aws_access_key", "");
    QCOMPARE(handle.sendData("x"), 0);
    QVERIFY(server->requests().at(0).header("Authorization").startsWith("AWS :"));
    QCOMPARE(handle.errorNo(), QByteArray("303"));
    QCOMPARE(handle.errorText(),
             "network content error.(" + QByteArray::number(status) + ' ' + reason + ')');
}

void tst_S3Upload::resultParametersAreLeftAlone()
{
    ScriptedServer cloud([](Connection &connection, const HttpRequest &request) {
        connection.send(xmlAnswer(requestedIs(request), "1", "0", "granted"));
    });
    Handle handle(s3Parameters(cloud.url()));
    handle.set("mode", "remote_access");
    QCOMPARE(handle.checkEnable(), 1);
    handle.set("mode", "s3_upload");
    handle.set("server_url", server->url("/bucket/"));
    QCOMPARE(handle.sendData("x"), 1);
    QCOMPARE(handle.get("message"), QByteArray("granted"));
    QCOMPARE(handle.get("status"), QByteArray("1"));
}

void tst_S3Upload::sendFileAppendsTheFilesName_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QByteArray>("target");
    QTest::newRow("trailing slash")
        << QByteArray("/bucket/dir/") << QByteArray("/bucket/dir/a.txt");
    QTest::newRow("no trailing slash")
        << QByteArray("/bucket/dir") << QByteArray("/bucket/dira.txt");
}

void tst_S3Upload::sendFileAppendsTheFilesName()
{
    QFETCH(QByteArray, path);
    QFETCH(QByteArray, target);
    QFile file(directory.filePath(QStringLiteral("a.txt")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("content");
    file.close();
    Handle handle(s3Parameters(server->url(path)));
    QCOMPARE(handle.sendFile(QFile::encodeName(file.fileName())), 1);
    QCOMPARE(server->requests().at(0).target, target);
    QCOMPARE(server->requests().at(0).body, QByteArray("content"));
}

void tst_S3Upload::checkAndReceiveUseTheBareFunctionPaths()
{
    server->setHandler([](Connection &connection, const HttpRequest &) {
        connection.send(answer(200, "OK", "text/xml", "<r><status>1</status></r>"));
    });
    Handle handle(s3Parameters(server->url("/bucket/?x=1")));
    QCOMPARE(handle.checkEnable(), 1);
    QCOMPARE(handle.recvData(), 1);
    QCOMPARE(server->requests().at(0).startLine, QByteArray("GET /search HTTP/1.1"));
    QCOMPARE(server->requests().at(1).startLine, QByteArray("GET /download HTTP/1.1"));
}

void tst_S3Upload::localFilesAreNeverWritten()
{
    const QString path = directory.filePath(QStringLiteral("victim"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("precious");
    file.close();
    Handle handle(s3Parameters(QUrl::fromLocalFile(path).toEncoded()));
    QCOMPARE(handle.sendData("x"), 0);
    QCOMPARE(
        handle.errorDetail(),
        QByteArray("network protocol error (QNetworkReply: 301 Protocol \"file\" is unknown)"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray("precious"));
}

void tst_S3Upload::binaryBodyArrivesByteForByte()
{
    QByteArray data;
    for (int i = 0; i < 300000; ++i)
        data += static_cast<char>(i * 7 % 256);
    Handle handle(s3Parameters(server->url("/bucket/key")));
    QCOMPARE(handle.sendData(data), 1);
    QCOMPARE(server->requests().at(0).body, data);
    QCOMPARE(server->requests().at(0).header("Content-Length"), QByteArray("300000"));
}

QTEST_GUILESS_MAIN(tst_S3Upload)
#include "tst_s3upload.moc"
