#include "debugcapture.h"
#include "servicetest.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <thread>

#include <sys/stat.h>

using namespace korrintest;

namespace
{

QByteArray patternBytes(int count)
{
    QByteArray bytes(count, Qt::Uninitialized);
    for (int i = 0; i < count; ++i)
        bytes[i] = static_cast<char>(i * 13 % 253);
    return bytes;
}

} // namespace

/// korrinSendFile: a file's contents instead of a block of memory.
class tst_SendFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void fileIsSentByteForByte_data();
    void fileIsSentByteForByte();
    void pipeIsSentToItsEnd();
    void fileNameIsAppendedToTheBucket_data();
    void fileNameIsAppendedToTheBucket();
    void successTrimsTheErrorText();
    void updateLogIsTheFilesTextUpToItsNul();
    void updateResultIgnoresTheFile();
    void remoteAccessPostsTheBufferNotTheFile();

    void fileThatCannotBeOpenedIsNotSent_data();
    void fileThatCannotBeOpenedIsNotSent();
    void failedOpenLeavesTheFileName();
    void failedExchangeKeepsItsError_data();
    void failedExchangeKeepsItsError();
    void refusedParametersAreReported();
    void fileIsNeverChanged();

    void pathThatIsEmptyWritesNothing();
    void nameAndArgumentsAreRecorded();
    void logIsSentOnce_data();
    void logIsSentOnce();
    void closedLibraryRefuses();

private:
    QByteArray path(const QByteArray &name) const
    {
        return QFile::encodeName(directory->path()) + '/' + name;
    }
    QByteArray writeFile(const QByteArray &name, const QByteArray &content);

    QScopedPointer<QTemporaryDir> directory;
    QScopedPointer<ScriptedServer> server;
    const OpenLibrary library;
};

void tst_SendFile::init()
{
    directory.reset(new QTemporaryDir);
    server.reset(new ScriptedServer);
}

/// Returns the file's path.
QByteArray tst_SendFile::writeFile(const QByteArray &name, const QByteArray &content)
{
    QFile file(QFile::decodeName(path(name)));
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", name.constData());
    return path(name);
}

void tst_SendFile::fileIsSentByteForByte_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("NUL inside") << QByteArray("ab\0cd", 5);
    QTest::newRow("line breaks") << QByteArray("a\r\nb\nc\r");
    QTest::newRow("5 MiB") << patternBytes(5 * 1024 * 1024);
}

void tst_SendFile::fileIsSentByteForByte()
{
    QFETCH(QByteArray, content);
    Handle handle(baseParameters(server->url("/bucket/"), "s3_upload"));
    QCOMPARE(handle.sendFile(writeFile("report.zip", content)), 1);
    const HttpRequest request = server->requests().at(0);
    QCOMPARE(request.startLine, QByteArray("PUT /bucket/report.zip HTTP/1.1"));
    QCOMPARE(request.header("Content-Length"), QByteArray::number(content.size()));
    QVERIFY(request.body == content);
}

void tst_SendFile::pipeIsSentToItsEnd()
{
    const QByteArray content = patternBytes(300 * 1024);
    const QByteArray pipe = path("pipe");
    QCOMPARE(mkfifo(pipe.constData(), 0600), 0);
    std::thread writer([&] {
        QFile file(QFile::decodeName(pipe));
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
            qFatal("cannot write to the pipe");
    });
    Handle handle(baseParameters(server->url("/bucket/"), "s3_upload"));
    const int result = handle.sendFile(pipe);
    writer.join();
    QCOMPARE(result, 1);
    QVERIFY(server->requests().at(0).body == content);
}

void tst_SendFile::fileNameIsAppendedToTheBucket_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("target");
    QTest::newRow("plain") << QByteArray("report.zip") << QByteArray("/bucket/report.zip");
    QTest::newRow("in a directory")
        << QByteArray("x/report.zip") << QByteArray("/bucket/report.zip");
    QTest::newRow("dots") << QByteArray("x/../x/report.zip") << QByteArray("/bucket/report.zip");
    QTest::newRow("double slash") << QByteArray("x//report.zip")
                                  << QByteArray("/bucket/report.zip");
}

void tst_SendFile::fileNameIsAppendedToTheBucket()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, target);
    QVERIFY(QDir(directory->path()).mkdir(QStringLiteral("x")));
    Handle handle(baseParameters(server->url("/bucket/"), "s3_upload"));
    QCOMPARE(handle.sendFile(writeFile(file, "content")), 1);
    QCOMPARE(server->requests().at(0).target, target);
}

void tst_SendFile::successTrimsTheErrorText()
{
    Handle handle(baseParameters(server->url(), "s3_upload"));
    QCOMPARE(handle.sendFile(writeFile("report.zip", "content")), 1);
    QCOMPARE(errorOf(handle), QByteArray("0||no error."));

    answerWith(*server, xmlAnswer("udlog", "1", "7", "kept"));
    handle.set("mode", "update");
    handle.set("send_data_type", "update_log");
    QCOMPARE(handle.sendFile(writeFile("report.zip", "content")), 1);
    QCOMPARE(errorOf(handle), QByteArray("0|kept|7:kept"));
}

void tst_SendFile::updateLogIsTheFilesTextUpToItsNul()
{
    Handle handle(baseParameters(server->url(), "update"));
    handle.set("send_data_type", "update_log");
    QCOMPARE(handle.sendFile(writeFile("log.txt", QByteArray("line 1\nline 2\n\0rest", 19))), 1);
    QCOMPARE(server->requests().at(0).startLine, QByteArray("POST /su/upload HTTP/1.1"));
    QCOMPARE(server->requests().at(0).body,
             QByteArray("is=udlog&lang=en&pn=PN&data=line%201%0Aline%202%0A"));
}

void tst_SendFile::updateResultIgnoresTheFile()
{
    Handle handle(baseParameters(server->url(), "update"));
    handle.set("send_data_type", "result");
    handle.set("result", "0");
    QCOMPARE(handle.sendFile(writeFile("any", "content")), 1);
    QCOMPARE(server->requests().at(0).body, QByteArray("is=nsv&lang=en&pn=PN&st=0&nsv=1.0"));
}

void tst_SendFile::remoteAccessPostsTheBufferNotTheFile()
{
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.sendFile(writeFile("any", "content")), 1);
    QCOMPARE(server->requests().at(0).startLine, QByteArray("POST /ra/upload HTTP/1.1"));
    QCOMPARE(server->requests().at(0).body, QByteArray());
}

void tst_SendFile::fileThatCannotBeOpenedIsNotSent_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::newRow("missing") << path("none.zip");
    QTest::newRow("in a missing directory") << path("no/none.zip");
    QTest::newRow("directory") << path(".");
    QTest::newRow("directory with a slash") << path("");
    QTest::newRow("placeholders and blanks") << path("a b&c%1%2");
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("blank") << QByteArray(" ");
    QTest::newRow("null") << QByteArray();
}

void tst_SendFile::fileThatCannotBeOpenedIsNotSent()
{
    QFETCH(QByteArray, file);
    for (const char *mode : {"update", "remote_access", "s3_upload"}) {
        Handle handle(baseParameters(server->url(), mode));
        QCOMPARE(korrinSendFile(handle.get(), file.isNull() ? nullptr : file.constData()), 0);
        QCOMPARE(errorOf(handle), "402|file open failed.|filePath:" + file);
        QCOMPARE(handle.get("func_args"), "filePath:" + file);
    }
    QCOMPARE(server->connectionCount(), 0);
}

void tst_SendFile::failedOpenLeavesTheFileName()
{
    Handle handle(baseParameters(server->url("/bucket/"), "s3_upload"));
    QCOMPARE(handle.sendFile(writeFile("first", "content")), 1);
    QCOMPARE(handle.sendFile(path("second")), 0);
    QCOMPARE(handle.sendData("abc"), 1);
    QCOMPARE(server->requests().last().target, QByteArray("/bucket/first"));
}

void tst_SendFile::failedExchangeKeepsItsError_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("error");
    QTest::newRow("refused") << xmlAnswer("udlog", "0", "4", "full")
                             << QByteArray("203|full|4:full");
    QTest::newRow("other is") << xmlAnswer("x1")
                              << QByteArray("202|illegal response received.|"
                                            "<is> request:udlog, response:x1");
    QTest::newRow("no XML")
        << answer(200, "OK", "text/xml", "")
        << QByteArray("201|xml parse failed.|error on line 1, column 1: unexpected end of file");
    QTest::newRow("HTTP 403") << answer(403, "No", "text/html", "")
                              << QByteArray("303|network content error.(403 No)|"
                                            "network content error.(403 No) (QNetworkReply: 202 ");
    QTest::newRow("closed") << QByteArray("")
                            << QByteArray("301|network connection error.|"
                                          "network connection error. (QNetworkReply: 2 ");
}

void tst_SendFile::failedExchangeKeepsItsError()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QByteArray, error);
    answerWith(*server, bytes);
    Handle handle(baseParameters(server->url(), "update"));
    handle.set("send_data_type", "update_log");
    QCOMPARE(handle.sendFile(writeFile("log.txt", "text")), 0);
    QVERIFY2(errorOf(handle).startsWith(error), errorOf(handle).constData());
}

void tst_SendFile::refusedParametersAreReported()
{
    const QByteArray file = writeFile("log.txt", "text");
    Handle handle(baseParameters(server->url(), "update"));
    QCOMPARE(handle.sendFile(file), 0);
    QCOMPARE(errorOf(handle), QByteArray("103|parameter not set.|send_data_type:"));
    handle.set("mode", "upload");
    QCOMPARE(handle.sendFile(file), 0);
    QCOMPARE(errorOf(handle), QByteArray("105|invalid parameter value.|mode:upload"));
    // The file comes first.
    QCOMPARE(handle.sendFile(path("none")), 0);
    QCOMPARE(handle.errorNo(), QByteArray("402"));
    QCOMPARE(serviceRequests(*server).size(), 0);
}

void tst_SendFile::fileIsNeverChanged()
{
    const QByteArray file = writeFile("report.zip", "content");
    Handle handle(baseParameters(server->url(), "s3_upload"));
    QCOMPARE(handle.sendFile(file), 1);
    answerWith(*server, answer(500, "Oops", "text/html", ""));
    QCOMPARE(handle.sendFile(file), 0);
    QFile source(QFile::decodeName(file));
    QVERIFY(source.open(QIODevice::ReadOnly));
    QCOMPARE(source.readAll(), QByteArray("content"));
}

void tst_SendFile::pathThatIsEmptyWritesNothing()
{
    Handle handle(baseParameters(server->url(), "remote_access"));
    const DebugCapture capture(false);
    QCOMPARE(korrinSendFile(handle.get(), ""), 0);
    QCOMPARE(korrinSendFile(handle.get(), nullptr), 0);
    QCOMPARE(capture.messages(), QStringList());
}

void tst_SendFile::nameAndArgumentsAreRecorded()
{
    const QByteArray file = writeFile("a b%1.zip", "content");
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.sendFile(file), 1);
    QCOMPARE(handle.get("func_name"), QByteArray("korrinSendFile"));
    QCOMPARE(handle.get("func_args"), "filePath:" + file);
}

void tst_SendFile::logIsSentOnce_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("outcome");
    QTest::newRow("sent") << QByteArray("log.txt") << QByteArray("0|0:fine");
    QTest::newRow("cannot be opened") << QByteArray("none") << QByteArray("402|filePath:{PATH}");
}

void tst_SendFile::logIsSentOnce()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, outcome);
    writeFile("log.txt", "text");
    Handle handle(baseParameters(server->url(), "update"));
    handle.set("send_data_type", "update_log");
    QCOMPARE(handle.checkEnable(), 1);
    server->clear();
    handle.sendFile(path(file));
    QCOMPARE(logRecords(*server),
             QList<QByteArray>{"korrinSendFile|filePath:" + path(file) + '|'
                               + outcome.replace("{PATH}", path(file))});
}

void tst_SendFile::closedLibraryRefuses()
{
    const QByteArray file = writeFile("log.txt", "text");
    void *handle = korrinCreateHandle();
    korrinClose();
    QCOMPARE(korrinSendFile(handle, file.constData()), 0);
    QCOMPARE(korrinSendFile(handle, nullptr), 0);
    korrinOpen();
    QCOMPARE(korrinSendFile(handle, file.constData()), 0);
}

QTEST_GUILESS_MAIN(tst_SendFile)
#include "tst_sendfile.moc"
