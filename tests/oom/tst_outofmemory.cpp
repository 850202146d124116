#include "failingallocator.h"
#include "korrin.h"
#include "korrinhost.h"
#include "scriptedproxy.h"
#include "scriptedserver.h"

#include <QFile>
#include <QMap>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QtTest>

#include <functional>
#include <new>

using namespace korrintest;

namespace
{

// More allocations than any call makes: a loop that gets here does not end.
constexpr int MAX_POSITION = 5000;
const QByteArray BODY = "the file's content";

QStringList messages; // what the library has written
QStringList warnings; // what Qt has written for all to see

void collectMessage(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    const MemoryAvailable forTheTest;
    (type == QtDebugMsg ? messages : warnings) << message;
}

/// The library's messages, on for a scope.
class Messages
{
public:
    Messages()
    {
        messages.clear();
        korrinEnableDebugOutput(1);
    }
    ~Messages()
    {
        korrinEnableDebugOutput(0);
        messages.clear(); // they share the library's memory
    }
    Q_DISABLE_COPY(Messages)
};

/// The library, open. Its registry keeps the room that handles once took: all that a test needs is
/// there already.
class LibraryWithRoom : public OpenLibrary
{
public:
    LibraryWithRoom()
    {
        QList<void *> handles;
        for (int i = 0; i < 16; ++i)
            handles << korrinCreateHandle();
        for (void *handle : static_cast<const QList<void *> &>(handles))
            korrinDisposeHandle(handle);
    }
};

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

struct Outcome {
    int result = -1;
    bool hasFailed = false; ///< memory did run out
    bool hasThrown = false; ///< std::bad_alloc left the call
};

/// Makes a call while the allocation number @p position fails.
template <typename Call>
Outcome runOutOfMemory(int position, FailingAllocator::Extent extent, Call call)
{
    Outcome outcome;
    FailingAllocator memory(position, extent);
    try {
        outcome.result = call();
    } catch (const std::bad_alloc &) {
        outcome.hasThrown = true;
    }
    outcome.hasFailed = memory.stop();
    return outcome;
}

QString traceOf(const char *function, const char *sourceName, int line)
{
    return QStringLiteral("std::bad_alloc at %1 (file:../../../src/api/VornakKorrin/%2, line:%3)")
        .arg(QLatin1String(function), QLatin1String(sourceName), QString::number(line));
}

bool isTraceOf(const QString &detail, const QByteArray &function)
{
    static const QRegularExpression classes(QStringLiteral(
        "^std::bad_alloc at (setToBuffer \\(file:\\.\\./\\.\\./\\.\\./src/api/VornakKorrin/"
        "cloudhandle, line:61\\)|createClient \\(file:\\.\\./\\.\\./\\.\\./src/api/VornakKorrin/"
        "cloudmanager, line:(251|266)\\)|HttpTask \\(file:\\.\\./\\.\\./\\.\\./src/api/"
        "VornakKorrin/httptask, line:47\\))$"));
    const QRegularExpression exported(
        QStringLiteral("^std::bad_alloc at %1 "
                       "\\(file:\\.\\./\\.\\./\\.\\./src/api/VornakKorrin/korrin, line:\\d+\\)$")
            .arg(QString::fromLatin1(function)));
    return classes.match(detail).hasMatch() || exported.match(detail).hasMatch();
}

/// An exported call under test, and what its handle needs for it.
struct Operation {
    QByteArray function;
    std::function<int(void *)> call;
    Parameters parameters;
    QList<QString> traces; ///< places where memory must have run out at least once
};

} // namespace

Q_DECLARE_METATYPE(FailingAllocator::Extent)
Q_DECLARE_METATYPE(Operation)

/// Every exported call while memory runs out, at each of its allocations in turn: once, so that
/// what follows succeeds again, and for good.
class tst_OutOfMemory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void versionIsAlwaysReturned();
    void open_data() { extents(); }
    void open();
    void openTellsWhere();
    void close_data() { extents(); }
    void close();
    void createHandle_data() { extents(); }
    void createHandle();
    void createHandleTellsWhere();
    void disposeHandle_data() { extents(); }
    void disposeHandle();
    void setParameter_data();
    void setParameter();
    void getParameter_data() { extents(); }
    void getParameter();
    void operation_data();
    void operation();
    void failingExchange_data();
    void failingExchange();
    void receivedDataAreAllThereOrNone_data() { extents(); }
    void receivedDataAreAllThereOrNone();
    void cloudLogTellsWhere();
    void keptRecordsAreNotLost_data() { extents(); }
    void keptRecordsAreNotLost();

private:
    static void extents();
    void *makeHandle(const Parameters &parameters) const;
    QByteArray filePath() const;
    QString logFile() const { return directory.filePath(QStringLiteral("cloudlog.txt")); }

    QtMessageHandler previousHandler = nullptr;
    QTemporaryDir directory;
    ScriptedServer server;
    ScriptedProxy proxy;
};

void tst_OutOfMemory::extents()
{
    QTest::addColumn<FailingAllocator::Extent>("extent");
    QTest::newRow("once") << FailingAllocator::Once;
    QTest::newRow("forever") << FailingAllocator::Forever;
}

void tst_OutOfMemory::initTestCase()
{
    QVERIFY(directory.isValid());
    server.setHandler([](Connection &connection, const HttpRequest &request) {
        connection.send(request.path().endsWith("/download")
                            ? answer(200, "OK", "application/zip", BODY)
                            : xmlAnswer(requestedIs(request)));
    });
}

void tst_OutOfMemory::init()
{
    QFile file(QFile::decodeName(filePath()));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(BODY);
    file.close();
    warnings.clear();
    previousHandler = qInstallMessageHandler(collectMessage);
}

void tst_OutOfMemory::cleanup()
{
    qInstallMessageHandler(previousHandler);
    QVERIFY2(warnings.isEmpty(), qPrintable(warnings.join(QLatin1Char(10))));
    // What korrinClose did not wait for ends with the next application object.
    {
        const OpenLibrary library;
    }
    QCOMPARE(FailingAllocator::libraryBlocks(), 0);
}

QByteArray tst_OutOfMemory::filePath() const
{
    return QFile::encodeName(directory.filePath(QStringLiteral("file.bin")));
}

/// A handle on the server; @p parameters add to or replace what every handle has.
void *tst_OutOfMemory::makeHandle(const Parameters &parameters) const
{
    void *handle = korrinCreateHandle();
    const Parameters all = baseParameters(server.url(), "update")
        + Parameters{{"cloud_log_file_save_dir", QFile::encodeName(directory.path())},
                     {"cloud_log_file_max_size", ""}}
        + parameters;
    for (const auto &parameter : all)
        korrinSetParameter(handle, parameter.first.constData(), parameter.second.constData());
    return handle;
}

// First of all: the text is made once in a process.
void tst_OutOfMemory::versionIsAlwaysReturned()
{
    for (int position = 1; position < MAX_POSITION; ++position) {
        const char *version = nullptr;
        const Outcome outcome = runOutOfMemory(position, FailingAllocator::Once, [&version] {
            version = korrinGetSoftVersion();
            return 1;
        });
        QVERIFY(!outcome.hasThrown);
        QCOMPARE(version, "R7204B");
        if (!outcome.hasFailed)
            return;
    }
    QFAIL("no end");
}

void tst_OutOfMemory::open()
{
    QFETCH(FailingAllocator::Extent, extent);
    for (int position = 1; position < MAX_POSITION; ++position) {
        const Outcome outcome = runOutOfMemory(position, extent, korrinOpen);
        QVERIFY(!outcome.hasThrown);
        if (outcome.result == 0)
            QVERIFY(!korrinCreateHandle());
        else
            QCOMPARE(outcome.result, 1);
        QCOMPARE(korrinOpen(), 1);
        QCOMPARE(korrinClose(), 1);
        if (!outcome.hasFailed) {
            QCOMPARE(outcome.result, 1);
            QVERIFY(position > 1);
            return;
        }
    }
    QFAIL("no end");
}

void tst_OutOfMemory::openTellsWhere()
{
    static const QRegularExpression trace(QStringLiteral(
        "^\"std::bad_alloc at korrinOpen "
        "\\(file:\\.\\./\\.\\./\\.\\./src/api/VornakKorrin/korrin, line:\\d+\\)\" $"));
    for (int position = 1; position < MAX_POSITION; ++position) {
        const Messages output;
        const Outcome outcome = runOutOfMemory(position, FailingAllocator::Once, korrinOpen);
        if (outcome.result == 0) {
            QCOMPARE(messages.size(), 4);
            QCOMPARE(messages.at(2), QStringLiteral("\"401:memory allocation error.\" "));
            QVERIFY2(trace.match(messages.at(3)).hasMatch(), qPrintable(messages.at(3)));
        }
        korrinClose();
        if (!outcome.hasFailed)
            return;
    }
    QFAIL("no end");
}

void tst_OutOfMemory::close()
{
    QFETCH(FailingAllocator::Extent, extent);
    for (int position = 1; position < MAX_POSITION; ++position) {
        korrinOpen();
        for (int i = 0; i < 3; ++i)
            QVERIFY(korrinCreateHandle());
        const Outcome outcome = runOutOfMemory(position, extent, korrinClose);
        QVERIFY(!outcome.hasThrown);
        QCOMPARE(outcome.result, 1);
        QVERIFY(!korrinCreateHandle());
        QCOMPARE(FailingAllocator::libraryBlocks(), 0);
        QCOMPARE(korrinOpen(), 1);
        QCOMPARE(korrinClose(), 1);
        if (!outcome.hasFailed)
            return;
    }
    QFAIL("no end");
}

void tst_OutOfMemory::createHandle()
{
    QFETCH(FailingAllocator::Extent, extent);
    const LibraryWithRoom library;
    bool hasThrown = false;
    for (int position = 1; position < MAX_POSITION; ++position) {
        void *handle = nullptr;
        const Outcome outcome = runOutOfMemory(position, extent, [&handle] {
            handle = korrinCreateHandle();
            return 1;
        });
        // Recording the call comes after the creation, and may throw.
        QVERIFY(outcome.hasThrown || !hasThrown || handle);
        hasThrown = hasThrown || outcome.hasThrown;
        if (position == 1) {
            QVERIFY(!outcome.hasThrown);
            QVERIFY(!handle);
        }
        if (handle) {
            QCOMPARE(korrinGetParameter(handle, "error_no"), "0");
            QCOMPARE(korrinDisposeHandle(handle), 1);
        }
        QCOMPARE(FailingAllocator::libraryBlocks(), 0);
        if (!outcome.hasFailed) {
            QVERIFY(handle);
            return;
        }
    }
    QFAIL("no end");
}

void tst_OutOfMemory::createHandleTellsWhere()
{
    const LibraryWithRoom library;
    int failures = 0;
    for (int position = 1; position < MAX_POSITION; ++position) {
        const Messages output;
        void *handle = nullptr;
        const Outcome outcome = runOutOfMemory(position, FailingAllocator::Once, [&handle] {
            handle = korrinCreateHandle();
            return 1;
        });
        if (!handle && !outcome.hasThrown) {
            ++failures;
            QVERIFY(messages.size() >= 4);
            QCOMPARE(messages.at(messages.size() - 2),
                     QStringLiteral("\"401:memory allocation error.\" "));
            QCOMPARE(messages.last(),
                     QLatin1Char('"') + traceOf("createHandle", "handlemanager", 26)
                         + QStringLiteral("\" "));
        }
        if (!outcome.hasFailed) {
            QVERIFY(failures > 0);
            return;
        }
    }
    QFAIL("no end");
}

void tst_OutOfMemory::disposeHandle()
{
    QFETCH(FailingAllocator::Extent, extent);
    const LibraryWithRoom library;
    const Handle other;
    for (int position = 1; position < MAX_POSITION; ++position) {
        void *handle = korrinCreateHandle();
        const Outcome outcome =
            runOutOfMemory(position, extent, [handle] { return korrinDisposeHandle(handle); });
        QVERIFY(!outcome.hasThrown);
        QCOMPARE(outcome.result, 1);
        QCOMPARE(korrinDisposeHandle(handle), 0);
        QCOMPARE(FailingAllocator::libraryBlocks(), 0);
        QCOMPARE(other.errorNo(), QByteArray("0"));
        if (!outcome.hasFailed)
            return;
    }
    QFAIL("no end");
}

void tst_OutOfMemory::setParameter_data()
{
    QTest::addColumn<FailingAllocator::Extent>("extent");
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<int>("result");
    QTest::newRow("once") << FailingAllocator::Once << QByteArray(" product_no ") << 1;
    QTest::newRow("forever") << FailingAllocator::Forever << QByteArray(" product_no ") << 1;
    QTest::newRow("unknown key") << FailingAllocator::Once << QByteArray("no_key") << 0;
}

void tst_OutOfMemory::setParameter()
{
    QFETCH(FailingAllocator::Extent, extent);
    QFETCH(QByteArray, key);
    QFETCH(int, result);
    const LibraryWithRoom library;
    bool hasReturned = false;
    for (int position = 1; position < MAX_POSITION; ++position) {
        QCOMPARE(FailingAllocator::libraryBlocks(), 0);
        const Handle handle;
        const Outcome outcome = runOutOfMemory(position, extent, [&] {
            return korrinSetParameter(handle.get(), key.constData(), "value");
        });
        QVERIFY2(!outcome.hasThrown || !hasReturned, "thrown after the first steps");
        hasReturned = hasReturned || !outcome.hasThrown;
        if (!outcome.hasFailed) {
            QCOMPARE(outcome.result, result);
            QVERIFY(position > 1 || !FailingAllocator::coversMalloc());
            return;
        }
        if (!outcome.hasThrown) {
            QCOMPARE(outcome.result, 0);
            if (extent == FailingAllocator::Once) {
                QCOMPARE(handle.errorNo(), QByteArray("401"));
                QCOMPARE(handle.errorText(), QByteArray("memory allocation error."));
                QVERIFY2(isTraceOf(QString::fromLatin1(handle.errorDetail()), "korrinSetParameter"),
                         handle.errorDetail().constData());
            }
        }
        QCOMPARE(korrinSetParameter(handle.get(), "mode", "update"), 1);
        QCOMPARE(handle.get("mode"), QByteArray("update"));
        QCOMPARE(handle.errorNo(), QByteArray("0"));
    }
    QFAIL("no end");
}

void tst_OutOfMemory::getParameter()
{
    QFETCH(FailingAllocator::Extent, extent);
    const LibraryWithRoom library;
    QSet<QString> details;
    for (int position = 1; position < MAX_POSITION; ++position) {
        QCOMPARE(FailingAllocator::libraryBlocks(), 0);
        const Handle handle({{"product_no", "PN"}});
        const char *value = nullptr;
        const Outcome outcome = runOutOfMemory(position, extent, [&] {
            value = korrinGetParameter(handle.get(), "product_no");
            return 1;
        });
        QVERIFY(!outcome.hasThrown);
        if (!outcome.hasFailed) {
            QCOMPARE(value, "PN");
            if (extent == FailingAllocator::Once)
                QVERIFY(details.contains(traceOf("setToBuffer", "cloudhandle", 61)));
            return;
        }
        QCOMPARE(value, "");
        if (extent == FailingAllocator::Once) {
            QCOMPARE(handle.errorNo(), QByteArray("401"));
            const QString detail = QString::fromLatin1(handle.errorDetail());
            QVERIFY2(isTraceOf(detail, "korrinGetParameter"), qPrintable(detail));
            details << detail;
        }
        QCOMPARE(handle.get("product_no"), QByteArray("PN"));
    }
    QFAIL("no end");
}

void tst_OutOfMemory::operation_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<FailingAllocator::Extent>("extent");
    QTest::addColumn<bool>("hasMessages");
    QTest::addColumn<bool>("isDisposedAtOnce");

    static const QByteArray path = filePath();
    const auto check = [](void *handle) { return korrinCheckEnable(handle); };
    const auto send = [](void *handle) { return korrinSendData(handle, "data", 4); };
    const auto receive = [](void *handle) {
        const char *data = nullptr;
        int size = 0;
        return korrinRecvData(handle, &data, &size);
    };
    const auto sendFile = [](void *handle) { return korrinSendFile(handle, path.constData()); };
    const auto receiveFile = [](void *handle) { return korrinRecvFile(handle, path.constData()); };

    const Parameters s3 = {
        {"mode", "s3_upload"}, {"aws_access_key", "ACCESS"}, {"aws_secret_access_key", "SECRET"}};
    const QList<QString> ofExchange = {traceOf("createClient", "cloudmanager", 251),
                                       traceOf("createClient", "cloudmanager", 266),
                                       traceOf("HttpTask", "httptask", 47)};
    const QList<QString> ofReceiving =
        ofExchange + QList<QString>{traceOf("setToBuffer", "cloudhandle", 61)};
    const QMap<QByteArray, Operation> operations = {
        {"check, update", {"korrinCheckEnable", check, {}, ofExchange}},
        {"check, remote_access",
         {"korrinCheckEnable", check, {{"mode", "remote_access"}}, ofExchange}},
        {"check, proxy",
         {"korrinCheckEnable",
          check,
          {{"mode", "remote_access"}, {"http_proxy", proxy.url("user", "password")}},
          ofExchange}},
        {"send result",
         {"korrinSendData", send, {{"send_data_type", "result"}, {"result", "1"}}, ofExchange}},
        {"send log", {"korrinSendData", send, {{"send_data_type", "update_log"}}, ofExchange}},
        {"send, s3_upload", {"korrinSendData", send, s3, ofExchange}},
        {"receive, update", {"korrinRecvData", receive, {}, ofReceiving}},
        {"receive, submit_info",
         {"korrinRecvData", receive, {{"mode", "submit_info"}}, ofReceiving}},
        {"send file, update",
         {"korrinSendFile", sendFile, {{"send_data_type", "update_log"}}, ofExchange}},
        {"send file, s3_upload", {"korrinSendFile", sendFile, s3, ofExchange}},
        {"receive file", {"korrinRecvFile", receiveFile, {{"mode", "remote_access"}}, ofExchange}},
    };
    const auto addRow = [&operations](const QByteArray &name, FailingAllocator::Extent extent,
                                      bool hasMessages, bool isDisposedAtOnce) {
        const QByteArray tag = name + (extent == FailingAllocator::Once ? ", once" : ", forever")
            + (hasMessages ? ", with messages" : "")
            + (isDisposedAtOnce ? ", then disposed of" : ", then again");
        QTest::newRow(tag.constData())
            << operations.value(name) << extent << hasMessages << isDisposedAtOnce;
    };
    const QList<QByteArray> names = operations.keys();
    for (const QByteArray &name : names) {
        addRow(name, FailingAllocator::Once, false, false);
        addRow(name, FailingAllocator::Once, false, true);
        addRow(name, FailingAllocator::Forever, false, false);
    }
    addRow("check, update", FailingAllocator::Forever, false, true);
    addRow("check, remote_access", FailingAllocator::Forever, false, true);
    addRow("check, remote_access", FailingAllocator::Once, true, false);
    addRow("check, remote_access", FailingAllocator::Forever, true, false);
}

void tst_OutOfMemory::operation()
{
    QFETCH(Operation, operation);
    QFETCH(FailingAllocator::Extent, extent);
    QFETCH(bool, hasMessages);
    QFETCH(bool, isDisposedAtOnce);
    const LibraryWithRoom library;
    // What Qt makes once in a process is there from now on.
    QCOMPARE(operation.call(makeHandle(operation.parameters)), 1);

    QSet<QString> details;
    bool hasReturned = false;
    for (int position = 1; position < MAX_POSITION; ++position) {
        void *handle = makeHandle(operation.parameters);
        QScopedPointer<Messages> output(hasMessages ? new Messages : nullptr);
        const Outcome outcome =
            runOutOfMemory(position, extent, [&] { return operation.call(handle); });
        output.reset();
        const QByteArray where = "allocation " + QByteArray::number(position) + ": ";
        QVERIFY2(!outcome.hasThrown || !hasReturned, where + "thrown after the first steps");
        hasReturned = hasReturned || !outcome.hasThrown;

        if (!outcome.hasThrown && extent == FailingAllocator::Once) {
            const QByteArray number = korrinGetParameter(handle, "error_no");
            const QString detail = QString::fromLatin1(korrinGetParameter(handle, "error_detail"));
            QVERIFY2(number == (outcome.result == 1 ? "0" : "401"), where + number);
            if (outcome.result == 0)
                QVERIFY2(isTraceOf(detail, operation.function), qPrintable(detail));
            details << detail;
        }
        if (!isDisposedAtOnce)
            QVERIFY2(operation.call(handle) == 1,
                     where + korrinGetParameter(handle, "error_detail"));

        QCOMPARE(korrinDisposeHandle(handle), 1);
        QVERIFY2(FailingAllocator::libraryBlocks() == 0, where + "memory was left behind");
        if (!outcome.hasFailed) {
            QCOMPARE(outcome.result, 1);
            for (const QString &trace :
                 extent == FailingAllocator::Once ? operation.traces : QList<QString>())
                QVERIFY2(details.contains(trace), qPrintable(trace));
            return;
        }
    }
    QFAIL("no end");
}

void tst_OutOfMemory::failingExchange_data()
{
    QTest::addColumn<QByteArray>("answerBytes");
    QTest::addColumn<QByteArray>("errorNo");
    QTest::addColumn<FailingAllocator::Extent>("extent");
    const QMap<QByteArray, QPair<QByteArray, QByteArray>> answers = {
        {"404", {answer(404, "Not Found", "text/html", "gone"), "303"}},
        {"closed", {"", "301"}},
        {"no XML", {answer(200, "OK", "text/html", "hello"), "201"}},
        {"wrong is", {xmlAnswer("other"), "202"}},
        {"status 0", {xmlAnswer("chkra", "0", "9", "no"), "203"}},
    };
    for (auto it = answers.begin(); it != answers.end(); ++it) {
        QTest::newRow((it.key() + ", once").constData())
            << it->first << it->second << FailingAllocator::Once;
        QTest::newRow((it.key() + ", forever").constData())
            << it->first << it->second << FailingAllocator::Forever;
    }
}

// Running out of memory never turns a failure into a success.
void tst_OutOfMemory::failingExchange()
{
    QFETCH(QByteArray, answerBytes);
    QFETCH(QByteArray, errorNo);
    QFETCH(FailingAllocator::Extent, extent);
    const LibraryWithRoom library;
    const ScriptedServer failing([answerBytes](Connection &connection, const HttpRequest &) {
        connection.send(answerBytes);
    });
    const Parameters parameters = {{"server_url", failing.url()}, {"mode", "remote_access"}};
    korrinCheckEnable(makeHandle(parameters));
    for (int position = 1; position < MAX_POSITION; ++position) {
        void *handle = makeHandle(parameters);
        const Outcome outcome =
            runOutOfMemory(position, extent, [handle] { return korrinCheckEnable(handle); });
        if (!outcome.hasThrown)
            QCOMPARE(outcome.result, 0);
        if (!outcome.hasThrown && extent == FailingAllocator::Once) {
            const QByteArray number = korrinGetParameter(handle, "error_no");
            QVERIFY2(number == errorNo || number == "401", number);
            if (!outcome.hasFailed)
                QCOMPARE(number, errorNo);
        }
        QCOMPARE(korrinDisposeHandle(handle), 1);
        QCOMPARE(FailingAllocator::libraryBlocks(), 0);
        if (!outcome.hasFailed)
            return;
    }
    QFAIL("no end");
}

void tst_OutOfMemory::receivedDataAreAllThereOrNone()
{
    QFETCH(FailingAllocator::Extent, extent);
    const LibraryWithRoom library;
    for (int position = 1; position < MAX_POSITION; ++position) {
        void *handle = makeHandle({{"mode", "remote_access"}});
        const char *data = nullptr;
        int size = 0;
        const Outcome outcome =
            runOutOfMemory(position, extent, [&] { return korrinRecvData(handle, &data, &size); });
        if (outcome.result == 1) {
            QCOMPARE(QByteArray(data, size + 1), BODY + '\0');
        } else {
            QVERIFY(!data);
            QCOMPARE(size, 0);
        }
        korrinDisposeHandle(handle);
        QCOMPARE(FailingAllocator::libraryBlocks(), 0);
        if (!outcome.hasFailed) {
            QCOMPARE(outcome.result, 1);
            return;
        }
    }
    QFAIL("no end");
}

void tst_OutOfMemory::cloudLogTellsWhere()
{
    const QString clone = traceOf("cloneHandle", "handlemanager", 62);
    const QString sender = traceOf("CloudLogSender", "cloudlogsender", 88);
    const LibraryWithRoom library;
    QStringList seen;
    for (int position = 1; position < MAX_POSITION; ++position) {
        void *handle = makeHandle({});
        const Messages output;
        const Outcome outcome = runOutOfMemory(position, FailingAllocator::Once,
                                               [handle] { return korrinCheckEnable(handle); });
        const auto logBegin = messages.indexOf(QStringLiteral("@::sendCloudLog() "));
        const QStringList ofLog = logBegin < 0 ? QStringList() : messages.mid(logBegin);
        // What happens to the log does not change the call's outcome.
        for (const QString &trace : {clone, sender}) {
            if (!ofLog.contains(QLatin1Char('"') + trace + QStringLiteral("\" ")))
                continue;
            seen << trace;
            QCOMPARE(outcome.result, 1);
            QCOMPARE(korrinGetParameter(handle, "error_no"), "0");
        }
        if (ofLog.contains(QLatin1Char('"') + clone + QStringLiteral("\" ")))
            QVERIFY(ofLog.contains(QStringLiteral("\"401:memory allocation error.\" ")));
        korrinDisposeHandle(handle);
        if (!outcome.hasFailed) {
            QVERIFY(seen.contains(clone));
            QVERIFY(seen.contains(sender));
            return;
        }
    }
    QFAIL("no end");
}

void tst_OutOfMemory::keptRecordsAreNotLost()
{
    QFETCH(FailingAllocator::Extent, extent);
    const QByteArray kept = "is=cloudlog&rec=1\nis=cloudlog&rec=2\nis=cloudlog&rec=3\n";
    const LibraryWithRoom library;
    const ScriptedServer failing([](Connection &connection, const HttpRequest &) {
        connection.send(answer(404, "Not Found", "text/html", "gone"));
    });
    korrinCheckEnable(makeHandle({{"server_url", failing.url()}}));
    for (int position = 1; position < MAX_POSITION; ++position) {
        QFile::remove(logFile() + QLatin1Char('_'));
        QFile file(logFile());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(kept);
        file.close();

        void *handle = makeHandle({{"server_url", failing.url()}});
        const Outcome outcome =
            runOutOfMemory(position, extent, [handle] { return korrinCheckEnable(handle); });
        // A rest that could not be put in place waits in the temporary file.
        const QByteArray content = contentOf(logFile() + QLatin1Char('_')) + contentOf(logFile());
        for (const char *record : {"rec=1\n", "rec=2\n", "rec=3\n"})
            QVERIFY2(content.contains(record), record);
        korrinDisposeHandle(handle);
        QCOMPARE(FailingAllocator::libraryBlocks(), 0);
        if (!outcome.hasFailed) {
            QVERIFY2(content.count('\n') == 4, content);
            QFile::remove(logFile());
            return;
        }
    }
    QFAIL("no end");
}

QTEST_APPLESS_MAIN(tst_OutOfMemory)
#include "tst_outofmemory.moc"
