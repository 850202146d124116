#include "korrinhost.h"
#include "scriptedserver.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <sys/resource.h>

using namespace korrintest;

namespace
{

/// Lets no file of the process grow beyond a size; writes then fail instead of raising a signal.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        previousHandler = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &previous);
        const rlimit limit = {bytes, previous.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &previous);
        std::signal(SIGXFSZ, previousHandler);
    }
    Q_DISABLE_COPY(FileSizeLimit)

private:
    rlimit previous;
    void (*previousHandler)(int);
};

} // namespace

/// korrinSendFile and korrinRecvFile.
class tst_FileCalls : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void fileIsSentWhole();
    void emptyFileIsSent();
    void fileThatCannotBeOpenedIsNotSent_data();
    void fileThatCannotBeOpenedIsNotSent();
    void refusedSendLeavesTheErrorOfTheServer();

    void fileIsReceivedWhole();
    void existingFileIsReplaced();
    void failedExchangeLeavesTheFile();
    void fileThatCannotBeOpenedIsRequestedFirst_data();
    void fileThatCannotBeOpenedIsRequestedFirst();
    void shortWriteRemovesTheFile_data();
    void shortWriteRemovesTheFile();
    void fullDeviceIsNotRemoved();
    void emptyBodyMakesAnEmptyFile();

private:
    QByteArray path(const char *name) const
    {
        return QFile::encodeName(directory->filePath(QLatin1String(name)));
    }
    void write(const QByteArray &file, const QByteArray &content);
    QByteArray read(const QByteArray &file);
    void answerWith(const QByteArray &body);

    QScopedPointer<QTemporaryDir> directory;
    QScopedPointer<ScriptedServer> server;
    const OpenLibrary library;
};

void tst_FileCalls::init()
{
    directory.reset(new QTemporaryDir);
    server.reset(new ScriptedServer);
}

void tst_FileCalls::write(const QByteArray &file, const QByteArray &content)
{
    QFile target(QFile::decodeName(file));
    QVERIFY(target.open(QIODevice::WriteOnly));
    QCOMPARE(target.write(content), qint64(content.size()));
}

QByteArray tst_FileCalls::read(const QByteArray &file)
{
    QFile source(QFile::decodeName(file));
    return source.open(QIODevice::ReadOnly) ? source.readAll() : QByteArray();
}

void tst_FileCalls::answerWith(const QByteArray &body)
{
    server->setHandler([body](Connection &connection, const HttpRequest &) {
        connection.send(answer(200, "OK", "application/zip", body));
    });
}

void tst_FileCalls::fileIsSentWhole()
{
    QByteArray content;
    for (int i = 0; i < 5 * 1024 * 1024; ++i)
        content += static_cast<char>(i * 13 % 253);
    write(path("report.zip"), content);
    Handle handle(baseParameters(server->url("/bucket/"), "s3_upload"));
    QCOMPARE(handle.sendFile(path("report.zip")), 1);
    QCOMPARE(server->requests().at(0).startLine, QByteArray("PUT /bucket/report.zip HTTP/1.1"));
    QVERIFY(server->requests().at(0).body == content);
    QCOMPARE(handle.get("func_name"), QByteArray("korrinSendFile"));
    QCOMPARE(handle.get("func_args"), "filePath:" + path("report.zip"));
    QCOMPARE(handle.errorNo(), QByteArray("0"));
    QCOMPARE(handle.errorText(), QByteArray());
}

void tst_FileCalls::emptyFileIsSent()
{
    write(path("empty"), "");
    Handle handle(baseParameters(server->url(), "s3_upload"));
    QCOMPARE(handle.sendFile(path("empty")), 1);
    QCOMPARE(server->requests().at(0).header("Content-Length"), QByteArray("0"));
}

void tst_FileCalls::fileThatCannotBeOpenedIsNotSent_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::newRow("missing") << QByteArray("none.zip");
    QTest::newRow("directory") << QByteArray(".");
    QTest::newRow("missing directory") << QByteArray("no/none.zip");
    QTest::newRow("odd name") << QByteArray("a b&c%1");
}

void tst_FileCalls::fileThatCannotBeOpenedIsNotSent()
{
    QFETCH(QByteArray, file);
    const QByteArray whole = path(file.constData());
    Handle handle(baseParameters(server->url(), "update"));
    QCOMPARE(handle.sendFile(whole), 0);
    QCOMPARE(handle.errorNo(), QByteArray("402"));
    QCOMPARE(handle.errorText(), QByteArray("file open failed."));
    QCOMPARE(handle.errorDetail(), "filePath:" + whole);
    QCOMPARE(server->requestCount(), 0);

    QCOMPARE(korrinSendFile(handle.get(), nullptr), 0);
    QCOMPARE(handle.errorDetail(), QByteArray("filePath:"));
}

void tst_FileCalls::refusedSendLeavesTheErrorOfTheServer()
{
    write(path("log.txt"), "text\0more");
    server->setHandler([](Connection &connection, const HttpRequest &request) {
        connection.send(xmlAnswer(requestedIs(request), "0", "4", "full"));
    });
    Handle handle(baseParameters(server->url(), "update"));
    handle.set("send_data_type", "update_log");
    QCOMPARE(handle.sendFile(path("log.txt")), 0);
    QCOMPARE(handle.errorNo(), QByteArray("203"));
    QCOMPARE(handle.errorDetail(), QByteArray("4:full"));
    QCOMPARE(formValue(server->requests().at(0).body, "data"), QByteArray("text"));
}

void tst_FileCalls::fileIsReceivedWhole()
{
    QByteArray content;
    for (int i = 0; i < 5 * 1024 * 1024; ++i)
        content += static_cast<char>(i * 17 % 241);
    answerWith(content);
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.recvFile(path("out.bin")), 1);
    QVERIFY(read(path("out.bin")) == content);
    QCOMPARE(handle.get("func_name"), QByteArray("korrinRecvFile"));
    QCOMPARE(handle.get("func_args"), "filePath:" + path("out.bin"));
    QCOMPARE(handle.errorDetail(), "(data size):" + QByteArray::number(content.size()));
    QCOMPARE(handle.errorText(), QByteArray());
}

void tst_FileCalls::existingFileIsReplaced()
{
    write(path("out.bin"), "something longer");
    answerWith("new");
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.recvFile(path("out.bin")), 1);
    QCOMPARE(read(path("out.bin")), QByteArray("new"));
}

void tst_FileCalls::failedExchangeLeavesTheFile()
{
    write(path("out.bin"), "old");
    server->setHandler([](Connection &connection, const HttpRequest &) {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\npart");
    });
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.recvFile(path("out.bin")), 0);
    QCOMPARE(handle.errorNo(), QByteArray("301"));
    QCOMPARE(read(path("out.bin")), QByteArray("old"));
    QCOMPARE(handle.recvFile(path("never.bin")), 0);
    QVERIFY(!QFileInfo::exists(QFile::decodeName(path("never.bin"))));
}

void tst_FileCalls::fileThatCannotBeOpenedIsRequestedFirst_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::newRow("missing directory") << QByteArray("no/out.bin");
    QTest::newRow("directory") << QByteArray(".");
}

void tst_FileCalls::fileThatCannotBeOpenedIsRequestedFirst()
{
    QFETCH(QByteArray, file);
    const QByteArray whole = path(file.constData());
    answerWith("DATA");
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.recvFile(whole), 0);
    QCOMPARE(handle.errorNo(), QByteArray("402"));
    QCOMPARE(handle.errorDetail(), "filePath:" + whole);
    QCOMPARE(server->requestCount(), 1);
    QCOMPARE(korrinRecvFile(handle.get(), nullptr), 0);
    QCOMPARE(handle.errorDetail(), QByteArray("filePath:"));
}

void tst_FileCalls::shortWriteRemovesTheFile_data()
{
    QTest::addColumn<int>("limit");
    QTest::addColumn<int>("size");
    QTest::addColumn<QByteArray>("detail");
    QTest::newRow("part") << 1024 << 4096 << QByteArray("(file size):1024/4096");
    QTest::newRow("all but one") << 99999 << 100000 << QByteArray("(file size):99999/100000");
    QTest::newRow("nothing") << 0 << 10 << QByteArray("(file size):-1/10");
}

void tst_FileCalls::shortWriteRemovesTheFile()
{
    QFETCH(int, limit);
    QFETCH(int, size);
    QFETCH(QByteArray, detail);
    answerWith(QByteArray(size, 'x'));
    Handle handle(baseParameters(server->url(), "remote_access"));
    const FileSizeLimit fileSizeLimit(static_cast<rlim_t>(limit));
    QCOMPARE(handle.recvFile(path("out.bin")), 0);
    QCOMPARE(handle.errorNo(), QByteArray("403"));
    QCOMPARE(handle.errorText(), QByteArray("file write failed."));
    QCOMPARE(handle.errorDetail(), detail);
    QVERIFY(!QFileInfo::exists(QFile::decodeName(path("out.bin"))));
}

void tst_FileCalls::fullDeviceIsNotRemoved()
{
    QVERIFY(QFileInfo::exists(QStringLiteral("/dev/full")));
    answerWith("DATA");
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.recvFile("/dev/full"), 0);
    QCOMPARE(handle.errorNo(), QByteArray("403"));
    QCOMPARE(handle.errorDetail(), QByteArray("(file size):-1/4"));
    QVERIFY(QFileInfo::exists(QStringLiteral("/dev/full")));
}

void tst_FileCalls::emptyBodyMakesAnEmptyFile()
{
    answerWith("");
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.recvFile(path("out.bin")), 1);
    QVERIFY(QFileInfo::exists(QFile::decodeName(path("out.bin"))));
    QCOMPARE(read(path("out.bin")), QByteArray());
}

QTEST_GUILESS_MAIN(tst_FileCalls)
#include "tst_filecalls.moc"
