#include "debugcapture.h"
#include "documentblocks.h"
#include "scriptedproxy.h"
#include "servicetest.h"

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

using namespace korrintest;

namespace
{

const QByteArray AWS_SECRET_KEY = "SecretAccessKeyOfAws";
const QByteArray AWS_ACCESS_KEY = "AccessKeyIdOfAws";
const QByteArray HTTP_PROXY_PASSWORD = "PasswordOfHttpProxy";
const QByteArray HTTPS_PROXY_PASSWORD = "PasswordOfHttpsProxy";
const QByteArray SERVER_CREDENTIALS = "UserOfServer:PasswordOfServer";
const QByteArray SENT_FIRST = "TheFirst32CharactersThatAreSent.";
const QByteArray SENT_REST = "TheRestThatIsSent";
const QByteArray RECEIVED_TEXT = "TextThatIsReceived";
const QByteArray RECEIVED_BYTES = "BytesThatAreReceived";

/// A line of the document's table.
struct Secret {
    QByteArray name;
    QList<QByteArray> values;
    QByteArray firstOnly; ///< what it is called when only the first value shows
};

const QList<Secret> SECRETS = {
    {"`aws_secret_access_key`", {AWS_SECRET_KEY}, {}},
    {"`aws_access_key`", {AWS_ACCESS_KEY}, {}},
    {"password in `http_proxy`, `https_proxy`",
     {HTTP_PROXY_PASSWORD, HTTPS_PROXY_PASSWORD},
     "that of `http_proxy`"},
    {"credentials in `server_url`", {SERVER_CREDENTIALS}, {}},
    {"data that are sent", {SENT_FIRST, SENT_REST}, "the first 32 characters"},
    {"data that are received", {RECEIVED_TEXT, RECEIVED_BYTES}, "text only"},
};

/// "yes", "no" or what it is called when only the first value shows.
QByteArray shownIn(const QByteArray &seen, const Secret &secret)
{
    int count = 0;
    for (const QByteArray &value : secret.values)
        count += seen.contains(value) ? 1 : 0;
    if (count == secret.values.size())
        return "yes";
    if (count == 0)
        return "no";
    return seen.contains(secret.values.first()) ? secret.firstOnly : "others than the first";
}

/// @p seen, and what it is when it is decoded.
QByteArray alsoDecoded(const QByteArray &seen)
{
    return seen + '\n' + QByteArray::fromPercentEncoding(seen) + '\n';
}

QByteArray withoutUrls(const QByteArray &text)
{
    static const QRegularExpression url(QStringLiteral("https?://\\S+"));
    return QString::fromUtf8(text).remove(url).toUtf8();
}

/// What S3 says to a wrong signature.
QByteArray s3Refusal()
{
    return answer(403, "Forbidden", "application/xml",
                  "<Error><Code>SignatureDoesNotMatch</Code><AWSAccessKeyId>" + AWS_ACCESS_KEY
                      + "</AWSAccessKeyId></Error>");
}

} // namespace

/// Where secrets show: calls that succeed and calls that fail, and the table in docs/security.md.
class tst_Secrets : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void collect_data();
    void collect();
    void tableIsWhatWasSeen();

private:
    void setSecrets(Handle *handle, const QByteArray &serverUrl, const QByteArray &proxyUrl);
    int call(Handle *handle, const QByteArray &name);
    /// Adds to what was seen. @return the number of records
    int takePosted(const ScriptedServer &server);
    int takeKept(const QTemporaryDir &directory);
    void takeRecord(const QByteArray &record);
    QByteArray debugCell(const Secret &secret) const;
    QByteArray logCell(const Secret &secret) const;
    QByteArray detailCell(const Secret &secret) const;

    QByteArray settingMessages; ///< while parameters were set
    QByteArray callMessages;
    QByteArray recordSettings; ///< of records, posted or kept
    QByteArray recordRest;
    QByteArray details; ///< and texts
    const OpenLibrary library;
};

void tst_Secrets::setSecrets(Handle *handle, const QByteArray &serverUrl,
                             const QByteArray &proxyUrl)
{
    const DebugCapture capture;
    handle->set("server_url", serverUrl);
    handle->set("http_proxy", proxyUrl);
    handle->set("https_proxy", "http://user:" + HTTPS_PROXY_PASSWORD + "@127.0.0.1:9");
    handle->set("aws_secret_access_key", AWS_SECRET_KEY);
    handle->set("aws_access_key", AWS_ACCESS_KEY);
    handle->set("send_data_type", "update_log");
    settingMessages += alsoDecoded(capture.messages().join(QLatin1Char('\n')).toUtf8());
}

int tst_Secrets::call(Handle *handle, const QByteArray &name)
{
    const DebugCapture capture;
    const int result = name == "check" ? handle->checkEnable()
        : name == "send"               ? handle->sendData(SENT_FIRST + SENT_REST)
                                       : handle->recvData();
    callMessages += alsoDecoded(capture.messages().join(QLatin1Char('\n')).toUtf8());
    details += handle->errorText() + '\n' + handle->errorDetail() + '\n';
    return result;
}

void tst_Secrets::takeRecord(const QByteArray &record)
{
    for (const QByteArray &item : record.split('&'))
        (item.startsWith("pr=") ? recordSettings : recordRest) += alsoDecoded(item);
}

int tst_Secrets::takePosted(const ScriptedServer &server)
{
    int count = 0;
    for (const HttpRequest &request : server.requests()) {
        if (!isLogPost(request))
            continue;
        takeRecord(request.body);
        ++count;
    }
    return count;
}

int tst_Secrets::takeKept(const QTemporaryDir &directory)
{
    QFile file(directory.filePath(QStringLiteral("cloudlog.txt")));
    int count = 0;
    if (!file.open(QIODevice::ReadOnly))
        return count;
    for (; !file.atEnd(); ++count)
        takeRecord(file.readLine().trimmed());
    return count;
}

void tst_Secrets::collect_data()
{
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<QByteArray>("call");
    QTest::addColumn<QByteArray>("bytes"); // that the server answers
    QTest::addColumn<QByteArray>("error");
    const auto row = [](const char *name, const QByteArray &mode, const QByteArray &call,
                        const QByteArray &bytes, const QByteArray &error) {
        QTest::newRow(name) << mode << call << bytes << error;
    };
    row("granted", "update", "check", xmlAnswer("chkud"), "0");
    row("refused", "update", "check", xmlAnswer("chkud", "0", "7"), "203");
    row("malformed XML", "update", "check", answer(200, "OK", "text/html", "<p>"), "201");
    row("another answer", "update", "check", xmlAnswer("other"), "202");
    row("HTTP 404", "update", "check", answer(404, "Not Found", "text/html", "no"), "303");
    row("closed", "update", "check", "HTTP/1.1 200 OK\r\n", "301");
    row("no proxy", "update", "check", QByteArray(), "301");
    row("proxy's refusal", "update", "check", QByteArray(), "302");
    row("no TLS", "update", "check", QByteArray(), "301");
    row("sent", "update", "send", xmlAnswer("udlog"), "0");
    row("sent in vain", "update", "send", answer(500, "Oops", "text/html", "no"), "303");
    row("text", "update", "recv", answer(200, "OK", "text/plain", RECEIVED_TEXT), "0");
    row("bytes", "update", "recv", answer(200, "OK", "application/zip", RECEIVED_BYTES), "0");
    row("uploaded", "s3_upload", "send", answer(200, "OK", QByteArray(), ""), "0");
    row("wrong signature", "s3_upload", "send", s3Refusal(), "303");
}

/// Makes the call once with a server that takes the log's record and once with one that refuses it.
void tst_Secrets::collect()
{
    QFETCH(QByteArray, mode);
    QFETCH(QByteArray, call);
    QFETCH(QByteArray, bytes);
    QFETCH(QByteArray, error);
    const QByteArray name = QTest::currentDataTag();
    const QTemporaryDir directory;
    ScriptedProxy proxy;
    proxy.requireCredentials("user", name == "proxy's refusal" ? "another" : HTTP_PROXY_PASSWORD);
    const RefusingPort refusing;
    bool takesRecords = true;
    ScriptedServer server([&](Connection &connection, const HttpRequest &request) {
        if (!isLogPost(request))
            connection.send(bytes);
        else
            connection.send(takesRecords ? xmlAnswer("cloudlog") : answer(500, "No", "", ""));
    });
    QByteArray serverUrl = server.url().replace("//", "//" + SERVER_CREDENTIALS + '@');
    if (name == "no TLS") {
        serverUrl.replace("http:", "https:");
        server.setRawHandler([](Connection &connection) { connection.send("no TLS\r\n"); });
    }
    QByteArray proxyUrl = proxy.url("user", HTTP_PROXY_PASSWORD);
    if (name == "no proxy")
        proxyUrl = "http://user:" + HTTP_PROXY_PASSWORD + '@' + refusing.authority();

    Handle handle(baseParameters(QByteArray(), mode));
    handle.set("cloud_log_file_save_dir", directory.path().toLocal8Bit());
    handle.set("cloud_log_file_max_size", "");
    setSecrets(&handle, serverUrl, proxyUrl);
    for (const bool taken : {true, false}) {
        takesRecords = taken;
        QCOMPARE(this->call(&handle, call), int(error == "0"));
        QCOMPARE(handle.errorNo(), error);
    }

    // Only updates are recorded. What is posted in vain is kept.
    const bool isReached = !bytes.isEmpty();
    const int calls = mode == "update" ? 2 : 0;
    QCOMPARE(takePosted(server), isReached ? calls : 0);
    QCOMPARE(takeKept(directory), isReached ? calls / 2 : calls);
}

QByteArray tst_Secrets::debugCell(const Secret &secret) const
{
    const QByteArray shown = shownIn(callMessages, secret);
    return shown == "no" && shownIn(settingMessages, secret) == "yes" ? "yes, when it is set"
                                                                      : shown;
}

QByteArray tst_Secrets::logCell(const Secret &secret) const
{
    const QByteArray shown = shownIn(recordRest, secret);
    return shown == "no" && shownIn(recordSettings, secret) == "yes" ? "yes, with the settings"
                                                                     : shown;
}

QByteArray tst_Secrets::detailCell(const Secret &secret) const
{
    const QByteArray shown = shownIn(details, secret);
    return shown == "yes" && shownIn(withoutUrls(details), secret) == "no"
        ? "yes, in the request's URL"
        : shown;
}

void tst_Secrets::tableIsWhatWasSeen()
{
    QByteArray table = "| | debug messages | cloud log record and file | error text and detail |\n"
                       "|---|---|---|---|\n";
    for (const Secret &secret : SECRETS) {
        table += "| " + secret.name + " | " + debugCell(secret) + " | " + logCell(secret) + " | "
            + detailCell(secret) + " |\n";
    }
    const QByteArray difference =
        DocumentBlocks(QStringLiteral("security.md")).compare("secrets", table);
    QVERIFY2(difference.isEmpty(), difference.constData());
}

QTEST_GUILESS_MAIN(tst_Secrets)
#include "tst_secrets.moc"
