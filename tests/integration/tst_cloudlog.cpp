#include "recorded.h"
#include "scriptedserver.h"
#include "scripthost.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

using namespace korrintest;

namespace
{

const QByteArray BASE_FILE = "is=cloudlog&rec=1\nis=cloudlog&rec=2\nis=cloudlog&rec=3\n";

/// How the server treats the posts of the log, in the order of their arrival.
enum class Post { Accept, WrongIs, NoXml, Status0, Empty, Http404, Http500, Close, Stall };

void answerPost(Connection &connection, Post how)
{
    switch (how) {
    case Post::Accept:
        connection.send(xmlAnswer("cloudlog"));
        break;
    case Post::WrongIs:
        connection.send(xmlAnswer("other"));
        break;
    case Post::NoXml:
        connection.send(answer(200, "OK", "text/html", "hello"));
        break;
    case Post::Status0:
        connection.send(xmlAnswer("cloudlog", "0", "9", "no"));
        break;
    case Post::Empty:
        connection.send(answer(200, "OK", "text/xml", ""));
        break;
    case Post::Http404:
        connection.send(answer(404, "Not Found", "text/html", "gone"));
        break;
    case Post::Http500:
        connection.send(answer(500, "Reason", "text/html", "oops"));
        break;
    case Post::Close:
        break;
    case Post::Stall:
        connection.stall();
        break;
    }
}

QByteArray latin1(const QJsonValue &value)
{
    return value.toString().toLatin1();
}

/// The file's bytes; null when there is none.
QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), qint64(content.size()));
}

/// What differs from one run, or from one Qt, to the other.
QByteArray masked(QByteArray bytes)
{
    static const QRegularExpression date(
        QStringLiteral("ldt=\\d{4}/\\d\\d/\\d\\d%20[0-9:]{8}\\.\\d{3}"));
    QString text = QString::fromLatin1(bytes.constData(), bytes.size());
    text.replace(date, QStringLiteral("ldt={LDT}"));
    text.replace(QStringLiteral("transferring"), QStringLiteral("downloading"));
    return text.toLatin1();
}

} // namespace

/// The cloud log as the server and the file system see it.
class tst_CloudLog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void recorded_data();
    void recorded();
    void threeKeptWithATimeOutKeepTheRestInOrder();
    void refusedRecordsAreDropped();
    void limitOf100TakesARecordThatFitsExactly();
    void ownErrorOfTheAnswerDoesNotDropAKeptRecord();
    void keptRecordsOfAnotherDirectoryAreNotTouched();
    void restIsCopiedByteForByte();
    void callersParametersStayAsTheCallLeftThem();
    void unreachableSaveDirectoryLosesOnlyTheRecord();
    void secretKeysNeverEnterARecord();
    void dateHasTheSameDigitsInEveryLocale_data();
    void dateHasTheSameDigitsInEveryLocale();

private:
    QByteArray makeHandle(ScriptHost &host, const QByteArray &url);
    void script(const QList<Post> &posts);
    void scriptServer(const QString &caseName);
    void makeCall(ScriptHost &host, const QByteArray &handle, const QJsonObject &call);
    QByteArray filled(QByteArray text) const;
    QString file(const char *name = "cloudlog.txt") const
    {
        return directory->filePath(QLatin1String(name));
    }

    QScopedPointer<QTemporaryDir> directory;
    QScopedPointer<ScriptedServer> server;
    QByteArray serviceAnswer; ///< of the requests that are no log posts; empty: success
    const RefusingPort refused;
};

void tst_CloudLog::init()
{
    directory.reset(new QTemporaryDir);
    server.reset(new ScriptedServer);
    serviceAnswer.clear();
    script({});
}

/// Treats the first log posts as told, and accepts all that follow.
void tst_CloudLog::script(const QList<Post> &posts)
{
    auto next = std::make_shared<std::atomic<int>>(0);
    const QByteArray service = serviceAnswer;
    server->setHandler([posts, next, service](Connection &connection, const HttpRequest &request) {
        if (request.method == "POST" && formValue(request.body, "is").isNull())
            answerPost(connection, posts.value((*next)++, Post::WrongIs));
        else if (requestedIs(request).startsWith("cloudlog"))
            answerPost(connection, posts.value((*next)++, Post::Accept));
        else if (!service.isEmpty())
            connection.send(service);
        else
            connection.send(xmlAnswer(requestedIs(request), "1", "0", "m"));
    });
}

/// The server that a recorded case was made with, by the case's name.
void tst_CloudLog::scriptServer(const QString &caseName)
{
    static const QHash<QString, QByteArray> services = {
        {QStringLiteral("check, status_code 5"), xmlAnswer("chkud", "1", "5", "five")},
        {QStringLiteral("check, status 0"),
         xmlAnswer("chkud", "0", "12", "no, not: a&amp;b=c%d \xc3\xa9")},
        {QStringLiteral("check, HTTP 404"), answer(404, "Not Found", "text/html", "x")},
        {QStringLiteral("check, wrong is"), xmlAnswer("nope")},
        {QStringLiteral("check, not XML"), answer(200, "OK", "text/html", "hello")},
        {QStringLiteral("recv, success"),
         answer(200, "OK", "application/zip", QByteArray(100, 'd'))},
        {QStringLiteral("recv, HTTP 403"), answer(403, "Forbidden", "text/html", "x")},
        {QStringLiteral("mode remote_access: no log"),
         answer(200, "OK", "text/xml", xmlBody("chkra", "1", "0", "m") + QByteArray(25, ' '))},
        {QStringLiteral("recvFile, success"),
         answer(200, "OK", "application/zip", QByteArray("\0binary\xff", 8))},
        {QStringLiteral("recvFile, HTTP 500"), answer(500, "Reason", "text/html", "x")},
    };
    static const QHash<QString, QList<Post>> posts = {
        {QStringLiteral("log answered with HTTP 404"), {Post::Http404}},
        {QStringLiteral("log answered with HTTP 500, twice"),
         {Post::Http500, Post::Http500, Post::Http500}},
        {QStringLiteral("log answered with a wrong is"),
         {Post::WrongIs, Post::WrongIs, Post::WrongIs}},
        {QStringLiteral("log answered with no XML"), {Post::NoXml, Post::NoXml, Post::NoXml}},
        {QStringLiteral("log answered with status 0"), {Post::Status0, Post::Status0}},
        {QStringLiteral("log answered with an empty body"),
         {Post::Empty, Post::Empty, Post::Empty}},
        {QStringLiteral("log connection closed"), {Post::Close, Post::Close, Post::Close}},
        {QStringLiteral("log time-out"), {Post::Stall}},
        {QStringLiteral("three kept, second times out"), {Post::Accept, Post::Stall}},
        {QStringLiteral("three kept, second times out, the rest too"),
         {Post::Accept, Post::Stall, Post::Stall}},
        {QStringLiteral("three kept, second gets HTTP 404"), {Post::Accept, Post::Http404}},
        {QStringLiteral("three kept, each gets a wrong is"),
         {Post::WrongIs, Post::WrongIs, Post::WrongIs}},
        {QStringLiteral("three kept, each gets no XML"), {Post::NoXml, Post::NoXml, Post::NoXml}},
        // Qt sends a request again when the connection is closed before the answer.
        {QStringLiteral("three kept, second gets a wrong is, third is closed"),
         {Post::Accept, Post::WrongIs, Post::Close}},
        {QStringLiteral("kept CR LF records, second is closed"),
         {Post::Accept, Post::Close, Post::Close, Post::Http404}},
        {QStringLiteral("stale temporary file, second times out"), {Post::Accept, Post::Stall}},
        {QStringLiteral("temporary path is a directory, second times out"),
         {Post::Accept, Post::Stall}},
        {QStringLiteral("kept record without is"), {Post::WrongIs}},
        {QStringLiteral("empty lines between records"),
         {Post::WrongIs, Post::Accept, Post::WrongIs}},
    };
    serviceAnswer = services.value(caseName);
    script(posts.value(caseName));
    if (caseName == QStringLiteral("check, time-out")) {
        server->setHandler([](Connection &connection, const HttpRequest &request) {
            if (requestedIs(request) == "cloudlog")
                connection.send(xmlAnswer("cloudlog"));
            else
                connection.stall();
        });
    }
}

QByteArray tst_CloudLog::filled(QByteArray text) const
{
    text.replace("{PORT}", QByteArray::number(server->port()));
    text.replace("{REFUSED}", QByteArray::number(refused.number()));
    return text;
}

void tst_CloudLog::recorded_data()
{
    QTest::addColumn<QJsonObject>("recordedCase");
    int row = 0;
    for (const QJsonValue &value : recordedCases(QStringLiteral("cloudlog.json"))) {
        const QByteArray name = latin1(value.toObject().value(QStringLiteral("name")));
        QTest::newRow((QByteArray::number(++row) + ' ' + name).constData()) << value.toObject();
    }
    QCOMPARE(row, 92);
}

void tst_CloudLog::makeCall(ScriptHost &host, const QByteArray &handle, const QJsonObject &call)
{
    const QByteArray name = latin1(call.value(QStringLiteral("call")));
    const QByteArray path = latin1(call.value(QStringLiteral("path")));
    if (name == "korrinSetParameter") {
        host.set(handle, latin1(call.value(QStringLiteral("key"))),
                 filled(latin1(call.value(QStringLiteral("value")))));
        return;
    }
    int result = -1;
    if (name == "korrinCheckEnable")
        result = host.check(handle);
    else if (name == "korrinSendData")
        result = host.send(handle, latin1(call.value(QStringLiteral("data_latin1"))));
    else if (name == "korrinRecvData")
        result = host.call("recv " + handle).result;
    else if (name.startsWith("korrinRecvData, null"))
        result =
            host.call("recvnull " + handle + ' '
                      + QByteArray(name.endsWith("dataSize") ? "size"
                                                             : name.mid(name.lastIndexOf(' ') + 1)))
                .result;
    else if (name == "korrinSendFile")
        result = host.sendFile(handle, path);
    else if (name == "korrinRecvFile")
        result = host.recvFile(handle, path);
    QCOMPARE(result, call.value(QStringLiteral("ret")).toInt());
    QCOMPARE(host.get(handle, "error_no"), latin1(call.value(QStringLiteral("error_no"))));
    QCOMPARE(masked(QString::fromUtf8(host.get(handle, "error_detail")).toLatin1()),
             filled(latin1(call.value(QStringLiteral("error_detail")))));
    QCOMPARE(QString::fromUtf8(host.get(handle, "error_text")),
             call.value(QStringLiteral("error_text")).toString());
}

void tst_CloudLog::recorded()
{
    QFETCH(QJsonObject, recordedCase);
    const QString name = recordedCase.value(QStringLiteral("name")).toString();

    const QJsonObject before = recordedCase.value(QStringLiteral("files_before")).toObject();
    for (auto it = before.begin(); it != before.end(); ++it)
        writeFile(directory->filePath(it.key()), latin1(it.value()));
    for (const QJsonValue &path : recordedCase.value(QStringLiteral("directories")).toArray())
        QVERIFY(QDir(directory->path()).mkpath(path.toString()));

    QHash<QString, QString> environment = {{QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8")}};
    const QJsonObject variables = recordedCase.value(QStringLiteral("environment")).toObject();
    for (auto it = variables.begin(); it != variables.end(); ++it)
        environment.insert(it.key(), it.value().toString());
    if (environment.contains(QStringLiteral("FAKE_TIME")))
        environment.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(KORRIN_TEST_FIXEDCLOCK));

    scriptServer(name);
    ScriptHost host(directory->path(), environment);
    host.call("open");
    const QByteArray handle = host.create();
    const QJsonObject parameters = recordedCase.value(QStringLiteral("parameters")).toObject();
    for (auto it = parameters.begin(); it != parameters.end(); ++it)
        host.set(handle, it.key().toLatin1(), filled(latin1(it.value())));

    for (const QJsonValue &value : recordedCase.value(QStringLiteral("calls")).toArray()) {
        const QJsonObject call = value.toObject();
        server->clear();
        makeCall(host, handle, call);
        if (QTest::currentTestFailed())
            return;

        QList<QByteArray> posts;
        for (const HttpRequest &request : server->requests()) {
            if (request.method == "POST" && requestedIs(request) != "nsv"
                && requestedIs(request) != "udlog")
                posts << request.startLine + ' ' + masked(request.body);
            QVERIFY(!request.hasHeader("Content-Type") || request.method == "PUT");
        }
        QList<QByteArray> expectedPosts;
        for (const QJsonValue &entry : call.value(QStringLiteral("log_posts")).toArray()) {
            QByteArray body = filled(latin1(entry.toObject().value(QStringLiteral("body"))));
            // Placeholders are filled in one step, so a "%1" of the host stays what it is.
            body.replace("fa=data:dataSize,11,%253,%254,%253:%254",
                         "fa=data:%251,%252,%253,%254,dataSize:11");
            expectedPosts << latin1(entry.toObject().value(QStringLiteral("line"))) + ' '
                    + masked(body);
        }
        QCOMPARE(posts, expectedPosts);
        if (!call.contains(QStringLiteral("files_after")))
            continue;
        const QJsonObject files = call.value(QStringLiteral("files_after")).toObject();
        for (auto it = files.begin(); it != files.end(); ++it) {
            QByteArray expected = filled(latin1(it.value()));
            // Kept records are never converted.
            if (name.startsWith(QStringLiteral("non-ASCII bytes"))
                || name == QStringLiteral("the same in locale C")) {
                expected = latin1(before.value(it.key()))
                    + expected.mid(expected.lastIndexOf("is=cloudlog&lang"));
            }
            QCOMPARE(masked(contentOf(directory->filePath(it.key()))), expected);
        }
        if (!files.contains(QStringLiteral("cloudlog.txt")))
            QVERIFY(!QFileInfo(file()).isFile());
        if (!files.contains(QStringLiteral("cloudlog.txt_")))
            QVERIFY(!QFileInfo(file("cloudlog.txt_")).isFile());
    }
}

QByteArray tst_CloudLog::makeHandle(ScriptHost &host, const QByteArray &url)
{
    host.call("open");
    const QByteArray handle = host.create();
    host.set(handle, "server_url", url);
    host.set(handle, "product_no", "PN");
    host.set(handle, "mode", "update");
    host.set(handle, "recv_timeout", "1");
    return handle;
}

void tst_CloudLog::threeKeptWithATimeOutKeepTheRestInOrder()
{
    writeFile(file(), BASE_FILE);
    script({Post::Accept, Post::Stall, Post::Stall});
    ScriptHost host(directory->path());
    const QByteArray handle = makeHandle(host, server->url());
    QCOMPARE(host.check(handle), 1);
    const QList<QByteArray> lines = contentOf(file()).split('\n');
    QCOMPARE(lines.size(), 4);
    QCOMPARE(lines.at(0), QByteArray("is=cloudlog&rec=2"));
    QCOMPARE(lines.at(1), QByteArray("is=cloudlog&rec=3"));
    QVERIFY(lines.at(2).contains("&fn=korrinCheckEnable&"));
    QCOMPARE(lines.at(3), QByteArray());
}

void tst_CloudLog::refusedRecordsAreDropped()
{
    writeFile(file(), BASE_FILE);
    script({Post::WrongIs, Post::WrongIs, Post::WrongIs, Post::Accept});
    ScriptHost host(directory->path());
    const QByteArray handle = makeHandle(host, server->url());
    QCOMPARE(host.check(handle), 1);
    QVERIFY(!QFile::exists(file()));
    QCOMPARE(server->requestCount(), 5);
}

void tst_CloudLog::limitOf100TakesARecordThatFitsExactly()
{
    // The record's size is found with a limit of as many digits.
    const QByteArray url = "http://" + refused.authority() + '/';
    ScriptHost host(directory->path());
    const QByteArray handle = makeHandle(host, url);
    host.set(handle, "cloud_log_file_max_size", "9999");
    host.check(handle);
    const auto recordSize = contentOf(file()).size() - 1;
    QVERIFY(recordSize > 0);

    writeFile(file(), QByteArray(60, 'k'));
    host.set(handle, "cloud_log_file_max_size",
             QByteArray::number(recordSize + 60).rightJustified(4, '0'));
    host.set(handle, "mode", "update");
    host.check(handle);
    QCOMPARE(contentOf(file()).size(), recordSize + 61);
    host.check(handle);
    QCOMPARE(contentOf(file()).size(), recordSize + 61);
}

void tst_CloudLog::ownErrorOfTheAnswerDoesNotDropAKeptRecord()
{
    // The call itself ends in the 200s, and the log's posts do not reach the server.
    writeFile(file(), BASE_FILE);
    server->setHandler([](Connection &connection, const HttpRequest &request) {
        if (requestedIs(request) == "chkud")
            connection.send(xmlAnswer("chkud", "0", "1", "no"));
        else
            connection.reset();
    });
    ScriptHost host(directory->path());
    const QByteArray handle = makeHandle(host, server->url());
    QCOMPARE(host.check(handle), 0);
    QCOMPARE(host.get(handle, "error_no"), QByteArray("203"));
    QVERIFY(contentOf(file()).startsWith(BASE_FILE));
    QCOMPARE(contentOf(file()).count('\n'), 4);
}

void tst_CloudLog::keptRecordsOfAnotherDirectoryAreNotTouched()
{
    writeFile(file(), BASE_FILE);
    QVERIFY(QDir(directory->path()).mkpath(QStringLiteral("log")));
    ScriptHost host(directory->path());
    const QByteArray handle = makeHandle(host, server->url());
    host.set(handle, "cloud_log_file_save_dir", "log");
    QCOMPARE(host.check(handle), 1);
    QCOMPARE(contentOf(file()), BASE_FILE);
    QCOMPARE(server->requestCount(), 2);
}

void tst_CloudLog::restIsCopiedByteForByte()
{
    QByteArray content = "is=cloudlog&rec=";
    for (int byte = 0; byte < 256; ++byte) {
        if (byte != '\r' && byte != '\n')
            content += static_cast<char>(byte);
    }
    content += "\nis=cloudlog&rec=\xe9\xff\nis=cloudlog&no_break";
    writeFile(file(), content);
    ScriptHost host(directory->path());
    const QByteArray handle = makeHandle(host, "http://" + refused.authority() + '/');
    host.set(handle, "cloud_log_file_max_size", "1");
    QCOMPARE(host.check(handle), 0);
    QCOMPARE(contentOf(file()), content);
    QVERIFY(!QFile::exists(file("cloudlog.txt_")));
}

void tst_CloudLog::callersParametersStayAsTheCallLeftThem()
{
    script({Post::Http500});
    ScriptHost host(directory->path());
    const QByteArray handle = makeHandle(host, server->url());
    QCOMPARE(host.check(handle), 1);
    QCOMPARE(host.get(handle, "error_no"), QByteArray("0"));
    QCOMPARE(host.get(handle, "error_detail"), QByteArray("0:m"));
    QCOMPARE(host.get(handle, "is"), QByteArray("chkud"));
    QCOMPARE(host.get(handle, "func_name"), QByteArray("korrinCheckEnable"));
}

void tst_CloudLog::unreachableSaveDirectoryLosesOnlyTheRecord()
{
    QVERIFY(QDir(directory->path()).mkpath(QStringLiteral("cloudlog.txt")));
    ScriptHost host(directory->path());
    const QByteArray handle = makeHandle(host, "http://" + refused.authority() + '/');
    QCOMPARE(host.check(handle), 0);
    QCOMPARE(host.get(handle, "error_no"), QByteArray("301"));
}

void tst_CloudLog::secretKeysNeverEnterARecord()
{
    ScriptHost host(directory->path());
    const QByteArray handle = makeHandle(host, server->url());
    host.set(handle, "aws_access_key", "ACCESSID");
    host.set(handle, "aws_secret_access_key", "TOPSECRET");
    QCOMPARE(host.check(handle), 1);
    QCOMPARE(server->requestCount(), 2);
    QVERIFY(!server->requests().at(1).body.contains("ACCESSID"));
    QVERIFY(!server->requests().at(1).body.contains("TOPSECRET"));
}

void tst_CloudLog::dateHasTheSameDigitsInEveryLocale_data()
{
    QTest::addColumn<QString>("variable");
    QTest::addColumn<QString>("locale");
    QTest::newRow("Arabic") << QStringLiteral("LC_ALL") << QStringLiteral("ar_EG.UTF-8");
    QTest::newRow("Persian numbers")
        << QStringLiteral("LC_NUMERIC") << QStringLiteral("fa_IR.UTF-8");
}

void tst_CloudLog::dateHasTheSameDigitsInEveryLocale()
{
    QFETCH(QString, variable);
    QFETCH(QString, locale);
    // An empty LC_ALL counts as none.
    ScriptHost host(directory->path(), {{QStringLiteral("LC_ALL"), QString()}, {variable, locale}});
    const QByteArray handle = makeHandle(host, server->url());
    QCOMPARE(host.check(handle), 1);
    QVERIFY(masked(server->requests().last().body).contains("&ldt={LDT}&"));
}

QTEST_GUILESS_MAIN(tst_CloudLog)
#include "tst_cloudlog.moc"
