#include "korrinhost.h"
#include "runningcall.h"
#include "scriptedserver.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <chrono>
#include <functional>
#include <future>
#include <random>
#include <thread>
#include <vector>

using namespace korrintest;

namespace
{

using Call = std::function<int(void *handle)>;
using Clock = std::chrono::steady_clock;

constexpr int LATEST_MOMENT_US = 5000;

/// What happens on the server's side of a call that is to be cancelled.
enum class Scene { Silence, HalfAnswer, Dripping, Answer, Refusal, SilentLog, UnreadUpload };

ScriptedServer::Handler handlerOf(Scene scene)
{
    return [scene](Connection &connection, const HttpRequest &request) {
        const bool isLog = requestedIs(request) == "cloudlog";
        const QByteArray whole = xmlAnswer(requestedIs(request));
        switch (scene) {
        case Scene::Silence:
        case Scene::UnreadUpload:
            connection.stall();
            return;
        case Scene::HalfAnswer:
            connection.send(whole.left(whole.size() - 20));
            connection.stall();
            return;
        case Scene::Dripping:
            connection.sendInPieces(whole, 1, 5);
            return;
        case Scene::SilentLog:
            if (isLog)
                connection.stall();
            else
                connection.send(whole);
            return;
        case Scene::Answer:
        case Scene::Refusal:
            connection.send(whole);
            return;
        }
    };
}

/// A handle whose calls would wait for a minute.
void *createPatientHandle(const QByteArray &serverUrl, const QByteArray &mode)
{
    void *handle = korrinCreateHandle();
    for (const auto &parameter : baseParameters(serverUrl, mode))
        korrinSetParameter(handle, parameter.first.constData(), parameter.second.constData());
    korrinSetParameter(handle, "recv_timeout", "60");
    korrinSetParameter(handle, "cloud_log_file_max_size", "0");
    return handle;
}

struct Outcome {
    int result;
    Clock::time_point end;
};

std::future<Outcome> callOnAnotherThread(const std::function<int()> &call)
{
    return std::async(std::launch::async, [call] {
        const int result = call();
        return Outcome{result, Clock::now()};
    });
}

qint64 millisecondsBetween(Clock::time_point begin, Clock::time_point end)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(end - begin).count();
}

bool isUntouched(void *handle)
{
    const auto get = [handle](const char *key) {
        return QByteArray(korrinGetParameter(handle, key));
    };
    return get("error_no") == "0" && get("error_text") == "no error."
        && get("func_name") == "korrinCreateHandle" && get("status").isEmpty()
        && get("is").isEmpty();
}

/// One thread's share; returns what went wrong.
QByteArray useOwnHandle(const QByteArray &url, const QByteArray &name)
{
    for (int i = 0; i < 15; ++i) {
        const QByteArray number = name + '-' + QByteArray::number(i);
        Handle handle(baseParameters(url, i % 2 ? "update" : "remote_access"));
        handle.set("cloud_log_file_max_size", "0");
        handle.set("product_no", number);
        handle.set("send_data_type", "update_log");
        if (handle.checkEnable() != 1 || handle.get("message") != number)
            return number + ": check, " + handle.errorDetail();
        const int sent = handle.sendData("data of " + number);
        if (i % 2 && (sent != 1 || handle.get("message") != number))
            return number + ": send, " + handle.errorDetail();
        handle.set("download_file_path", number);
        QByteArray data;
        if (handle.recvData(&data) != 1 || (i % 2 && !data.contains(number)))
            return number + ": receive, " + handle.errorDetail();
        if (handle.set("error_no", "1") != 0 || handle.errorNo() != "104")
            return number + ": refused key";
        if (handle.get("product_no") != number)
            return number + ": parameter";
        const Handle other;
        if (!isUntouched(other.get()))
            return number + ": new handle";
    }
    return {};
}

/// One thread's share: calls until the library is closed.
void callUntilClosed(const QByteArray &url)
{
    while (void *handle = createPatientHandle(url, "update")) {
        korrinCheckEnable(handle);
        korrinGetParameter(handle, "status");
        korrinDisposeHandle(handle);
    }
}

/// Does something once, when the library has written a number of debug messages, on the thread that
/// writes them.
class ActionAtMessage
{
public:
    ActionAtMessage(int messagesBefore, const std::function<void()> &action)
    {
        handler = [this, messagesBefore, action] {
            if (done || seen++ < messagesBefore)
                return;
            done = true;
            // Qt would write messages from inside a handler to standard error.
            korrinEnableDebugOutput(0);
            action();
            korrinEnableDebugOutput(1);
        };
        previous = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext &, const QString &) { handler(); });
        korrinEnableDebugOutput(1);
    }
    ~ActionAtMessage()
    {
        korrinEnableDebugOutput(0);
        qInstallMessageHandler(previous);
    }
    Q_DISABLE_COPY(ActionAtMessage)

    bool isDone() const { return done; }

private:
    static std::function<void()> handler;
    QtMessageHandler previous;
    int seen = 0;
    bool done = false;
};

std::function<void()> ActionAtMessage::handler;

} // namespace

Q_DECLARE_METATYPE(Call)
Q_DECLARE_METATYPE(Scene)

/// Several threads in the library at once, and calls that are ended from outside.
class tst_Threads : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void threadsWithHandlesOfTheirOwnDoNotMix();
    void disposalEndsARunningCall_data();
    void disposalEndsARunningCall();
    void disposalAtAnyPointOfACall_data();
    void disposalAtAnyPointOfACall();
    void disposalAtAnyPointOfReceivingAFile();
    void closingEndsRunningCalls();
    void closingWhileTheLogIsPosted_data();
    void closingWhileTheLogIsPosted();
    void closingAtAnyPointOfACall();
    void closingWhileOthersKeepCalling();

private:
    std::mt19937 random;
};

void tst_Threads::init()
{
    random.seed(20240229);
    QCOMPARE(korrinOpen(), 1);
}

void tst_Threads::cleanup()
{
    korrinClose();
}

void tst_Threads::threadsWithHandlesOfTheirOwnDoNotMix()
{
    // The answer's message is the request's product number or file.
    ScriptedServer server([](Connection &connection, const HttpRequest &request) {
        const QByteArray data = request.query().isEmpty() ? request.body : request.query();
        const QByteArray name = formValue(data, "pn") + formValue(data, "file");
        connection.send(xmlAnswer(requestedIs(request), "1", "0", name));
    });
    std::vector<std::future<QByteArray>> threads;
    for (int i = 0; i < 8; ++i) {
        threads.push_back(std::async(std::launch::async, useOwnHandle, server.url(),
                                     "thread" + QByteArray::number(i)));
    }
    for (auto &thread : threads)
        QCOMPARE(thread.get(), QByteArray());
}

void tst_Threads::disposalEndsARunningCall_data()
{
    QTest::addColumn<Scene>("scene");
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<int>("rounds");
    QTest::newRow("server silent") << Scene::Silence << QByteArray("remote_access") << 250;
    QTest::newRow("answer half sent") << Scene::HalfAnswer << QByteArray("update") << 250;
    QTest::newRow("answer dripping") << Scene::Dripping << QByteArray("update") << 100;
    QTest::newRow("server answers") << Scene::Answer << QByteArray("update") << 150;
    QTest::newRow("connection refused") << Scene::Refusal << QByteArray("remote_access") << 100;
    QTest::newRow("log posted") << Scene::SilentLog << QByteArray("update") << 75;
    QTest::newRow("upload not read") << Scene::UnreadUpload << QByteArray("s3_upload") << 75;
}

void tst_Threads::disposalEndsARunningCall()
{
    QFETCH(Scene, scene);
    QFETCH(QByteArray, mode);
    QFETCH(int, rounds);
    ScriptedServer server(handlerOf(scene));
    server.setReadsBody(scene != Scene::UnreadUpload);
    const QByteArray url = server.url();
    if (scene == Scene::Refusal)
        server.stop();
    const bool canSucceed = scene == Scene::Answer || scene == Scene::SilentLog;
    const QByteArray upload(scene == Scene::UnreadUpload ? 8 * 1024 * 1024 : 0, 'u');
    std::uniform_int_distribution<int> moment(0, LATEST_MOMENT_US);

    Delays delays;
    for (int round = 0; round < rounds; ++round) {
        void *handle = createPatientHandle(url, mode);
        std::future<Outcome> call = callOnAnotherThread([handle, &upload] {
            return upload.isEmpty() ? korrinCheckEnable(handle)
                                    : korrinSendData(handle, upload.constData(), upload.size());
        });
        std::this_thread::sleep_for(std::chrono::microseconds(moment(random)));

        const Clock::time_point disposal = Clock::now();
        QCOMPARE(korrinDisposeHandle(handle), 1);
        const Handle newcomer;
        const Outcome outcome = call.get();
        if (!canSucceed)
            QCOMPARE(outcome.result, 0);
        delays.add(millisecondsBetween(disposal, outcome.end));
        // A call that begins after the disposal cannot tell a newcomer at the same address.
        if (newcomer.get() != handle) {
            QVERIFY(isUntouched(newcomer.get()));
            QCOMPARE(korrinDisposeHandle(handle), 0);
        }
    }
    QVERIFY2(delays.areFine(), delays.text().constData());
}

void tst_Threads::disposalAtAnyPointOfACall_data()
{
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<Call>("call");
    const auto row = [](const char *name, const char *mode, const Call &call) {
        QTest::newRow(name) << QByteArray(mode) << call;
    };
    row("check without log", "remote_access", korrinCheckEnable);
    row("check", "update", korrinCheckEnable);
    row("send", "update", [](void *handle) { return korrinSendData(handle, "x", 1); });
    row("send to s3", "s3_upload", [](void *handle) { return korrinSendData(handle, "x", 1); });
    row("receive", "update", [](void *handle) {
        const char *data = "untouched";
        int size = -1;
        const int result = korrinRecvData(handle, &data, &size);
        // The data themselves are gone with the handle.
        if (result)
            return size > 1000 ? 1 : -1;
        return !data && size == 0 ? 0 : -1;
    });
}

/// The host's message handler disposes of the handle at the first message, at the second …; each
/// newcomer that it makes then must not be taken for the disposed handle.
void tst_Threads::disposalAtAnyPointOfACall()
{
    constexpr int FIRST_MESSAGE_ON_THE_HANDLE = 2; // the entry trace comes before any look at it
    constexpr int NEWCOMERS = 32;                  // enough to be given any block that was freed
    QFETCH(QByteArray, mode);
    QFETCH(Call, call);
    ScriptedServer server([](Connection &connection, const HttpRequest &request) {
        connection.send(xmlAnswer(requestedIs(request), "1", "0", QByteArray(1000, 'm')));
    });

    bool disposed = true;
    for (int message = 0; disposed; ++message) {
        void *handle = createPatientHandle(server.url(), mode);
        korrinSetParameter(handle, "send_data_type", "update_log");
        std::vector<void *> newcomers;
        int result;
        {
            const ActionAtMessage disposal(message, [&] {
                korrinDisposeHandle(handle);
                for (int i = 0; i < NEWCOMERS; ++i)
                    newcomers.push_back(korrinCreateHandle());
            });
            result = call(handle);
            disposed = disposal.isDone();
        }
        // A call that has succeeded, and posts its log, does not fail any more.
        const QByteArray place = "disposal at message " + QByteArray::number(message);
        QVERIFY2(result == 1 || (disposed && result == 0), place.constData());
        for (void *newcomer : newcomers) {
            if (message >= FIRST_MESSAGE_ON_THE_HANDLE)
                QVERIFY2(newcomer != handle && isUntouched(newcomer), place.constData());
            korrinDisposeHandle(newcomer);
        }
        QCOMPARE(korrinDisposeHandle(handle), disposed ? 0 : 1);
    }
}

void tst_Threads::disposalAtAnyPointOfReceivingAFile()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("received"));
    const QByteArray content(1000, 'c');
    ScriptedServer server([&content](Connection &connection, const HttpRequest &) {
        connection.send(answer(200, "OK", "application/zip", content));
    });

    bool disposed = true;
    for (int message = 0; disposed; ++message) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("old");
        file.close();
        void *handle = createPatientHandle(server.url(), "remote_access");
        int result;
        {
            const ActionAtMessage disposal(message, [handle] { korrinDisposeHandle(handle); });
            result = korrinRecvFile(handle, QFile::encodeName(path).constData());
            disposed = disposal.isDone();
        }
        korrinDisposeHandle(handle);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray place = "disposal at message " + QByteArray::number(message);
        QVERIFY2(file.readAll() == (result ? content : QByteArray("old")), place.constData());
        QVERIFY2(disposed || result, place.constData());
    }
}

void tst_Threads::closingEndsRunningCalls()
{
    constexpr int ROUNDS = 30;
    constexpr int CALLS = 4;
    ScriptedServer server(handlerOf(Scene::Silence));
    std::uniform_int_distribution<int> moment(0, LATEST_MOMENT_US);
    Delays delays;
    for (int round = 0; round < ROUNDS; ++round) {
        std::vector<void *> handles;
        std::vector<std::future<Outcome>> calls;
        for (int i = 0; i < CALLS; ++i) {
            void *handle = createPatientHandle(server.url(), "update");
            handles.push_back(handle);
            calls.push_back(callOnAnotherThread([handle] { return korrinCheckEnable(handle); }));
        }
        std::this_thread::sleep_for(std::chrono::microseconds(moment(random)));

        const Clock::time_point closing = Clock::now();
        QCOMPARE(korrinClose(), 1);
        for (std::future<Outcome> &call : calls) {
            QVERIFY(call.wait_for(std::chrono::seconds(5)) == std::future_status::ready);
            const Outcome outcome = call.get();
            QCOMPARE(outcome.result, 0);
            delays.add(millisecondsBetween(closing, outcome.end));
        }
        QVERIFY(!korrinCreateHandle());
        QCOMPARE(korrinOpen(), 1);
        for (void *handle : handles)
            QCOMPARE(korrinDisposeHandle(handle), 0);
    }
    QVERIFY2(delays.areFine(), delays.text().constData());
}

void tst_Threads::closingWhileTheLogIsPosted_data()
{
    QTest::addColumn<QByteArray>("maxSizeBytes");
    QTest::addColumn<int>("keptRecords");
    QTest::newRow("no limit") << QByteArray() << 1;
    QTest::newRow("nothing is kept") << QByteArray("0") << 0;
}

void tst_Threads::closingWhileTheLogIsPosted()
{
    QFETCH(QByteArray, maxSizeBytes);
    QFETCH(int, keptRecords);
    const QTemporaryDir directory;
    ScriptedServer server(handlerOf(Scene::SilentLog));
    void *handle = createPatientHandle(server.url(), "update");
    korrinSetParameter(handle, "cloud_log_file_save_dir",
                       QFile::encodeName(directory.path()).constData());
    korrinSetParameter(handle, "cloud_log_file_max_size", maxSizeBytes.constData());
    std::future<Outcome> call = callOnAnotherThread([=] { return korrinCheckEnable(handle); });
    const bool posting = server.waitForRequests(2);
    QCOMPARE(korrinClose(), 1);
    QVERIFY(call.wait_for(std::chrono::seconds(5)) == std::future_status::ready);
    QVERIFY(posting);

    QFile file(directory.filePath(QStringLiteral("cloudlog.txt")));
    const QByteArray records = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    QCOMPARE(records.count('\n'), keptRecords);
}

void tst_Threads::closingAtAnyPointOfACall()
{
    ScriptedServer server;
    bool closed = true;
    for (int message = 0; closed; ++message) {
        void *handle = createPatientHandle(server.url(), "update");
        {
            const ActionAtMessage closing(message, [] {
                korrinClose();
                korrinOpen();
            });
            korrinCheckEnable(handle);
            closed = closing.isDone();
        }
        QCOMPARE(korrinDisposeHandle(handle), closed ? 0 : 1);
        Handle next(baseParameters(server.url(), "remote_access"));
        QVERIFY2(next.checkEnable() == 1, next.errorDetail().constData());
    }
}

void tst_Threads::closingWhileOthersKeepCalling()
{
    ScriptedServer server;
    std::uniform_int_distribution<int> moment(0, 20000);
    for (int round = 0; round < 30; ++round) {
        std::vector<std::future<void>> callers;
        for (int i = 0; i < 4; ++i)
            callers.push_back(std::async(std::launch::async, callUntilClosed, server.url()));
        std::this_thread::sleep_for(std::chrono::microseconds(moment(random)));
        QCOMPARE(korrinClose(), 1);
        for (std::future<void> &caller : callers)
            QVERIFY(caller.wait_for(std::chrono::seconds(5)) == std::future_status::ready);
        QCOMPARE(korrinOpen(), 1);
    }
}

QTEST_GUILESS_MAIN(tst_Threads)
#include "tst_threads.moc"
