#include "processusage.h"
#include "rawsocket.h"
#include "runningcall.h"
#include "scriptedserver.h"

#include <QFile>
#include <QtTest>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

#include <dlfcn.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace korrintest;

namespace
{

const char UNKNOWN_HOST[] = "resolving.test";

// One call may be late because the machine is busy; what makes the library late meets each of them.
const int REPETITIONS = 5;

// For longer than Qt keeps an idle thread for look-ups, and the thread its event descriptor.
constexpr int LOOKUP_THREAD_MS = 40000;

/// A name server that does not answer until it is released.
class SilentResolver
{
public:
    static SilentResolver &instance()
    {
        static SilentResolver resolver;
        return resolver;
    }

    int resolve()
    {
        std::unique_lock<std::mutex> locker(mutex);
        ++waiting;
        released.wait(locker, [this] { return open; });
        --waiting;
        return EAI_AGAIN;
    }
    void setOpen(bool on)
    {
        std::lock_guard<std::mutex> locker(mutex);
        open = on;
        released.notify_all();
    }
    bool isAsked()
    {
        std::lock_guard<std::mutex> locker(mutex);
        return waiting > 0;
    }

private:
    std::mutex mutex;
    std::condition_variable released;
    bool open = false;
    int waiting = 0;
};

/// A port whose queue is full: it neither takes a connection nor refuses it.
class FullPort
{
public:
    FullPort() : listener(listenOn(0)), port(portOf(listener))
    {
        ::listen(listener, 0);
        filler = connectTo(port);
    }
    ~FullPort()
    {
        ::close(filler);
        ::close(listener);
    }
    Q_DISABLE_COPY(FullPort)

    QByteArray url() const { return "http://127.0.0.1:" + QByteArray::number(port); }

    /// Whether a connection is under way, as proc(5) tells of /proc/net/tcp: SYN_SENT is 02.
    bool isBeingConnected() const
    {
        QFile table(QStringLiteral("/proc/self/net/tcp"));
        if (!table.open(QIODevice::ReadOnly))
            return false;
        return table.readAll().contains(
            "0100007F:" + QByteArray::number(port, 16).rightJustified(4, '0').toUpper() + " 02");
    }

private:
    const int listener;
    const quint16 port;
    int filler = -1;
};

QByteArray growthSince(const ProcessUsage &before)
{
    const ProcessUsage now = ProcessUsage::now();
    return QByteArray::number(now.descriptors - before.descriptors) + " descriptors and "
        + QByteArray::number(now.threads - before.threads) + " threads are left";
}

} // namespace

// The library's look-ups come here first.
extern "C" int getaddrinfo(const char *node, const char *service, const addrinfo *hints,
                           addrinfo **result)
{
    if (node && qstrcmp(node, UNKNOWN_HOST) == 0)
        return SilentResolver::instance().resolve();
    using Resolve = int (*)(const char *, const char *, const addrinfo *, addrinfo **);
    static const auto next = reinterpret_cast<Resolve>(dlsym(RTLD_NEXT, "getaddrinfo"));
    return next(node, service, hints, result);
}

/// Calls that another thread ends, at each stage of an exchange.
class tst_Cancellation : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void atEachStage_data();
    void atEachStage();

private:
    /// A library, a server and a resolver that know of no call.
    void begin();
    void end();
    /// One call, from opening the library to closing it, and how long it went on.
    void callOnce(const QByteArray &stage, bool closesLibrary, Delays *delays);
    void cancelAt(const QByteArray &stage, bool closesLibrary, Delays *delays);

    /// Where the exchange goes, and what tells that it has come to the stage.
    struct Stage {
        QByteArray url;
        std::function<bool()> isReached;
    };
    Stage prepare(const QByteArray &name);
    /// The server sends @p bytes and then nothing more; the log's post is not answered.
    Stage stallAfter(const QByteArray &bytes, int requests = 1);

    std::unique_ptr<ScriptedServer> server;
    std::unique_ptr<FullPort> fullPort;
};

void tst_Cancellation::begin()
{
    SilentResolver::instance().setOpen(false);
    server.reset(new ScriptedServer);
    fullPort.reset(new FullPort);
    QCOMPARE(korrinOpen(), 1);
}

void tst_Cancellation::end()
{
    SilentResolver::instance().setOpen(true);
    QTRY_VERIFY(!SilentResolver::instance().isAsked());
    korrinClose();
    server.reset();
    fullPort.reset();
}

tst_Cancellation::Stage tst_Cancellation::stallAfter(const QByteArray &bytes, int requests)
{
    server->setHandler([bytes](Connection &connection, const HttpRequest &request) {
        if (requestedIs(request) != "cloudlog")
            connection.send(bytes);
        connection.stall();
    });
    return {server->url(), [this, requests] { return server->requestCount() == requests; }};
}

tst_Cancellation::Stage tst_Cancellation::prepare(const QByteArray &name)
{
    if (name == "resolving")
        return {QByteArray("http://") + UNKNOWN_HOST + '/',
                [] { return SilentResolver::instance().isAsked(); }};
    if (name == "connecting")
        return {fullPort->url(), [this] { return fullPort->isBeingConnected(); }};
    if (name == "TLS handshake") {
        auto greeted = std::make_shared<std::atomic<bool>>(false);
        server->setRawHandler([greeted](Connection &connection) {
            *greeted = !connection.readSome().isEmpty();
            connection.stall();
        });
        return {server->url().replace("http:", "https:"), [greeted] { return greeted->load(); }};
    }
    if (name == "sending") {
        server->setReadsBody(false);
        server->setReceiveBufferBytes(4096);
        return stallAfter("");
    }
    if (name == "receiving the headers")
        return stallAfter("HTTP/1.1 200 OK\r\nContent-");
    if (name == "receiving the body")
        return stallAfter("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nabc");
    if (name == "posting the log")
        return stallAfter(xmlAnswer("udlog"), 2);
    return stallAfter(""); // waiting for the answer
}

void tst_Cancellation::atEachStage_data()
{
    QTest::addColumn<QByteArray>("stage");
    QTest::addColumn<bool>("closesLibrary");
    for (const char *stage :
         {"resolving", "connecting", "TLS handshake", "sending", "waiting for the answer",
          "receiving the headers", "receiving the body", "posting the log"}) {
        QTest::addRow("%s, handle disposed of", stage) << QByteArray(stage) << false;
        QTest::addRow("%s, library closed", stage) << QByteArray(stage) << true;
    }
}

void tst_Cancellation::cancelAt(const QByteArray &stage, bool closesLibrary, Delays *delays)
{
    const Stage prepared = prepare(stage);
    // More than the kernel takes on the server's behalf.
    const QByteArray data(stage == "sending" ? 8 * 1024 * 1024 : 1, 'd');
    Handle handle(patientParameters(prepared.url, "update"));
    handle.set("send_data_type", "update_log");
    RunningCall running([&] { return handle.sendData(data); });
    QTRY_VERIFY(prepared.isReached());

    const auto start = std::chrono::steady_clock::now();
    QCOMPARE(closesLibrary ? korrinClose() : korrinDisposeHandle(handle.get()), 1);
    delays->add(running.join(start));
    // What was done before the log was posted stays done.
    QCOMPARE(running.result, stage == "posting the log" ? 1 : 0);
}

void tst_Cancellation::callOnce(const QByteArray &stage, bool closesLibrary, Delays *delays)
{
    begin();
    cancelAt(stage, closesLibrary, delays);
    end();
}

/// Each call is back promptly and leaves neither a descriptor nor a thread.
void tst_Cancellation::atEachStage()
{
    QFETCH(QByteArray, stage);
    QFETCH(bool, closesLibrary);
    // The first call also starts what Qt keeps for the process.
    Delays first;
    callOnce(stage, closesLibrary, &first);
    const ProcessUsage before = ProcessUsage::now();
    Delays delays;
    for (int i = 0; i < REPETITIONS && !QTest::currentTestFailed(); ++i)
        callOnce(stage, closesLibrary, &delays);
    QVERIFY2(delays.areMostlyPrompt(), delays.text().constData());
    const auto isLetGo = [&] {
        const ProcessUsage after = ProcessUsage::now();
        return after.descriptors <= before.descriptors && after.threads <= before.threads;
    };
    QVERIFY2(QTest::qWaitFor(isLetGo, LOOKUP_THREAD_MS), growthSince(before).constData());
}

QTEST_GUILESS_MAIN(tst_Cancellation)
#include "tst_cancellation.moc"
