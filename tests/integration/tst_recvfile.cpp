#include "debugcapture.h"
#include "servicetest.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>

using namespace korrintest;

namespace
{

/// Lets no file of the process grow beyond a size; writes then fail instead of raising a signal.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes) : previousHandler(std::signal(SIGXFSZ, SIG_IGN))
    {
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
    void (*const previousHandler)(int);
    rlimit previous;
};

QByteArray patternBytes(int count)
{
    QByteArray bytes(count, Qt::Uninitialized);
    for (int i = 0; i < count; ++i)
        bytes[i] = static_cast<char>(i * 17 % 241);
    return bytes;
}

} // namespace

/// korrinRecvFile: what arrives is written to a file.
class tst_RecvFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void fileIsWrittenByteForByte_data();
    void fileIsWrittenByteForByte();
    void newFileHasTheRightsOfTheUmask();
    void existingFileIsReplaced_data();
    void existingFileIsReplaced();
    void requestIsThatOfReceivingData();
    void downloadFilePathIsNotALocalPath();
    void successTrimsTheErrorText();

    void failedExchangeLeavesTheFile_data();
    void failedExchangeLeavesTheFile();
    void failedExchangeCreatesNoFile();
    void refusedParametersAreReported();
    void fileThatCannotBeOpenedIsReportedAfterTheExchange_data();
    void fileThatCannotBeOpenedIsReportedAfterTheExchange();
    void shortWriteRemovesTheFile_data();
    void shortWriteRemovesTheFile();
    void fullDeviceIsNotRemoved();

    void pathThatIsEmptyWritesNothing();
    void nameAndArgumentsAreRecorded();
    void logIsSentOnce_data();
    void logIsSentOnce();
    void closedLibraryTouchesNothing();

private:
    QByteArray path(const QByteArray &name) const
    {
        return QFile::encodeName(directory->path()) + '/' + name;
    }
    void writeFile(const QByteArray &file, const QByteArray &content);

    QScopedPointer<QTemporaryDir> directory;
    QScopedPointer<ScriptedServer> server;
    const OpenLibrary library;
};

namespace
{

/// The file's bytes; null when there is none.
QByteArray contentOf(const QByteArray &file)
{
    QFile source(QFile::decodeName(file));
    if (!source.open(QIODevice::ReadOnly))
        return QByteArray();
    const QByteArray content = source.readAll();
    return content.isNull() ? QByteArray("") : content;
}

bool exists(const QByteArray &file)
{
    return QFileInfo::exists(QFile::decodeName(file));
}

} // namespace

void tst_RecvFile::init()
{
    directory.reset(new QTemporaryDir);
    server.reset(new ScriptedServer);
}

void tst_RecvFile::writeFile(const QByteArray &file, const QByteArray &content)
{
    QFile target(QFile::decodeName(file));
    QVERIFY(target.open(QIODevice::WriteOnly));
    QCOMPARE(target.write(content), qint64(content.size()));
}

void tst_RecvFile::fileIsWrittenByteForByte_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("NUL inside") << QByteArray("ab\0cd", 5);
    QTest::newRow("line breaks") << QByteArray("a\r\nb\nc\r");
    QTest::newRow("5 MiB") << patternBytes(5 * 1024 * 1024);
}

void tst_RecvFile::fileIsWrittenByteForByte()
{
    QFETCH(QByteArray, content);
    answerBody(*server, content);
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.recvFile(path("out.bin")), 1);
    QVERIFY(exists(path("out.bin")));
    QVERIFY(contentOf(path("out.bin")) == content);
}

void tst_RecvFile::newFileHasTheRightsOfTheUmask()
{
    answerBody(*server, "new");
    Handle handle(baseParameters(server->url(), "remote_access"));
    const mode_t previous = umask(0027);
    const int result = handle.recvFile(path("out.bin"));
    umask(previous);
    QCOMPARE(result, 1);
    struct stat status;
    QCOMPARE(stat(path("out.bin").constData(), &status), 0);
    QCOMPARE(int(status.st_mode & 07777), 0640);
}

void tst_RecvFile::existingFileIsReplaced_data()
{
    QTest::addColumn<QByteArray>("old");
    QTest::newRow("shorter") << QByteArray("o");
    QTest::newRow("longer") << QByteArray("something longer");
}

void tst_RecvFile::existingFileIsReplaced()
{
    QFETCH(QByteArray, old);
    writeFile(path("out.bin"), old);
    answerBody(*server, "new");
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.recvFile(path("out.bin")), 1);
    QCOMPARE(contentOf(path("out.bin")), QByteArray("new"));
}

void tst_RecvFile::requestIsThatOfReceivingData()
{
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.recvFile(path("out.bin")), 1);
    QCOMPARE(server->requests().at(0).startLine, QByteArray("GET /ra/download HTTP/1.1"));
    QCOMPARE(server->requestCount(), 1);
}

void tst_RecvFile::downloadFilePathIsNotALocalPath()
{
    answerBody(*server, "DATA");
    Handle handle(baseParameters(server->url(), "update"));
    handle.set("download_file_path", path("other.bin"));
    QCOMPARE(handle.recvFile(path("out.bin")), 1);
    QCOMPARE(contentOf(path("out.bin")), QByteArray("DATA"));
    QVERIFY(!exists(path("other.bin")));
    QCOMPARE(formValue(server->requests().at(0).query(), "file"), path("other.bin"));
}

void tst_RecvFile::successTrimsTheErrorText()
{
    answerBody(*server, "DATA");
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.recvFile(path("out.bin")), 1);
    QCOMPARE(errorOf(handle), QByteArray("0||(data size):4"));
}

void tst_RecvFile::failedExchangeLeavesTheFile_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("number");
    QTest::newRow("HTTP 404") << answer(404, "Not Found", "text/html", "sorry")
                              << QByteArray("303");
    QTest::newRow("broken off") << QByteArray("HTTP/1.1 200 OK\r\nContent-Le") << QByteArray("301");
    QTest::newRow("no answer") << QByteArray("") << QByteArray("301");
}

void tst_RecvFile::failedExchangeLeavesTheFile()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QByteArray, number);
    writeFile(path("out.bin"), "old");
    const QFileInfo before(QFile::decodeName(path("out.bin")));
    const QDateTime changed = before.lastModified();
    answerWith(*server, bytes);
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.recvFile(path("out.bin")), 0);
    QCOMPARE(handle.errorNo(), number);
    QCOMPARE(contentOf(path("out.bin")), QByteArray("old"));
    QCOMPARE(QFileInfo(before.filePath()).lastModified(), changed);
}

void tst_RecvFile::failedExchangeCreatesNoFile()
{
    answerWith(*server, answer(404, "Not Found", "text/html", "sorry"));
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.recvFile(path("out.bin")), 0);
    QVERIFY(!exists(path("out.bin")));
}

void tst_RecvFile::refusedParametersAreReported()
{
    Handle handle(baseParameters(server->url(), "upload"));
    QCOMPARE(handle.recvFile(path("out.bin")), 0);
    QCOMPARE(errorOf(handle), QByteArray("105|invalid parameter value.|mode:upload"));
    handle.set("mode", "");
    QCOMPARE(handle.recvFile(path("out.bin")), 0);
    QCOMPARE(errorOf(handle), QByteArray("103|parameter not set.|mode:"));
    QVERIFY(!exists(path("out.bin")));
    QCOMPARE(server->connectionCount(), 0);
}

void tst_RecvFile::fileThatCannotBeOpenedIsReportedAfterTheExchange_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::newRow("missing directory") << path("no/out.bin");
    QTest::newRow("directory") << path(".");
    QTest::newRow("directory with a slash") << path("");
    QTest::newRow("placeholders and blanks") << path("no/a b&c%1%2");
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("null") << QByteArray();
}

void tst_RecvFile::fileThatCannotBeOpenedIsReportedAfterTheExchange()
{
    QFETCH(QByteArray, file);
    answerBody(*server, "DATA");
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(korrinRecvFile(handle.get(), file.isNull() ? nullptr : file.constData()), 0);
    QCOMPARE(errorOf(handle), "402|file open failed.|filePath:" + file);
    QCOMPARE(handle.get("func_args"), "filePath:" + file);
    QCOMPARE(server->requestCount(), 1);
    QVERIFY(QFileInfo(directory->path()).isDir());
}

void tst_RecvFile::shortWriteRemovesTheFile_data()
{
    QTest::addColumn<int>("limit");
    QTest::addColumn<int>("size");
    QTest::addColumn<QByteArray>("detail");
    QTest::newRow("part") << 1024 << 4096 << QByteArray("(file size):1024/4096");
    QTest::newRow("all but one") << 99999 << 100000 << QByteArray("(file size):99999/100000");
    QTest::newRow("nothing") << 0 << 10 << QByteArray("(file size):-1/10");
}

void tst_RecvFile::shortWriteRemovesTheFile()
{
    QFETCH(int, limit);
    QFETCH(int, size);
    QFETCH(QByteArray, detail);
    answerBody(*server, QByteArray(size, 'x'));
    Handle handle(baseParameters(server->url(), "remote_access"));
    int result = 1;
    {
        const FileSizeLimit fileSizeLimit(static_cast<rlim_t>(limit));
        result = handle.recvFile(path("out.bin"));
    }
    QCOMPARE(result, 0);
    QCOMPARE(errorOf(handle), "403|file write failed.|" + detail);
    QVERIFY(!exists(path("out.bin")));

    // With the limit gone, the same call succeeds.
    QCOMPARE(handle.recvFile(path("out.bin")), 1);
    QCOMPARE(contentOf(path("out.bin")), QByteArray(size, 'x'));
}

void tst_RecvFile::fullDeviceIsNotRemoved()
{
    struct stat status;
    if (stat("/dev/full", &status) != 0 || !S_ISCHR(status.st_mode))
        QSKIP("/dev/full is no device here");
    answerBody(*server, "DATA");
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.recvFile("/dev/full"), 0);
    QCOMPARE(errorOf(handle), QByteArray("403|file write failed.|(file size):-1/4"));
    QCOMPARE(stat("/dev/full", &status), 0);
    QVERIFY(S_ISCHR(status.st_mode));
}

void tst_RecvFile::pathThatIsEmptyWritesNothing()
{
    Handle handle(baseParameters(server->url(), "remote_access"));
    const DebugCapture capture(false);
    QCOMPARE(korrinRecvFile(handle.get(), ""), 0);
    QCOMPARE(korrinRecvFile(handle.get(), nullptr), 0);
    QCOMPARE(capture.messages(), QStringList());
}

void tst_RecvFile::nameAndArgumentsAreRecorded()
{
    answerBody(*server, "DATA");
    Handle handle(baseParameters(server->url(), "remote_access"));
    QCOMPARE(handle.recvFile(path("a b%1.zip")), 1);
    QCOMPARE(contentOf(path("a b%1.zip")), QByteArray("DATA"));
    QCOMPARE(handle.get("func_name"), QByteArray("korrinRecvFile"));
    QCOMPARE(handle.get("func_args"), "filePath:" + path("a b%1.zip"));
}

void tst_RecvFile::logIsSentOnce_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("outcome");
    QTest::newRow("received") << QByteArray("out.bin") << QByteArray("0|(data size):4");
    QTest::newRow("cannot be opened")
        << QByteArray("no/out.bin") << QByteArray("402|filePath:{PATH}");
}

void tst_RecvFile::logIsSentOnce()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, outcome);
    server->setHandler([](Connection &connection, const HttpRequest &request) {
        connection.send(isLogPost(request) ? xmlAnswer("cloudlog")
                                           : answer(200, "OK", "application/zip", "DATA"));
    });
    Handle handle(baseParameters(server->url(), "update"));
    handle.recvFile(path(file));
    QCOMPARE(logRecords(*server),
             QList<QByteArray>{"korrinRecvFile|filePath:" + path(file) + '|'
                               + outcome.replace("{PATH}", path(file))});
}

void tst_RecvFile::closedLibraryTouchesNothing()
{
    writeFile(path("out.bin"), "old");
    void *handle = korrinCreateHandle();
    korrinClose();
    QCOMPARE(korrinRecvFile(handle, path("out.bin").constData()), 0);
    QCOMPARE(korrinRecvFile(handle, nullptr), 0);
    korrinOpen();
    QCOMPARE(korrinRecvFile(handle, path("out.bin").constData()), 0);
    QCOMPARE(contentOf(path("out.bin")), QByteArray("old"));
}

QTEST_GUILESS_MAIN(tst_RecvFile)
#include "tst_recvfile.moc"
