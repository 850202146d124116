#include "fileaccess.h"

#include <QTemporaryDir>
#include <QtTest>

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace
{

constexpr suseconds_t INTERVAL_US = 100;
constexpr int MANY = 1000;
constexpr int FEW_BYTES = 50000;
constexpr int MANY_BYTES = 300000; // more than a pipe holds

std::atomic<int> interruptions(0);

void count(int /*signal*/)
{
    ++interruptions;
}

/// A host's timer: a signal again and again, which interrupts what waits.
class Timer
{
public:
    Timer()
    {
        interruptions = 0;
        struct sigaction action = {};
        action.sa_handler = count; // without SA_RESTART
        sigaction(SIGALRM, &action, &originalAction);
        const itimerval interval = {{0, INTERVAL_US}, {0, INTERVAL_US}};
        setitimer(ITIMER_REAL, &interval, nullptr);
    }
    ~Timer()
    {
        const itimerval none = {};
        setitimer(ITIMER_REAL, &none, nullptr);
        sigaction(SIGALRM, &originalAction, nullptr);
    }
    Timer(const Timer &) = delete;
    Timer &operator=(const Timer &) = delete;

private:
    struct sigaction originalAction = {};
};

/// The other side of a pipe, in a thread that the timer does not interrupt. It begins once this
/// thread has been interrupted many times.
template <typename Function>
std::thread afterManyInterruptions(Function function)
{
    sigset_t timer;
    sigset_t before;
    sigemptyset(&timer);
    sigaddset(&timer, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &timer, &before);
    std::thread thread([function] {
        while (interruptions < MANY)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        function();
    });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
}

} // namespace

/// A host may have a timer whose signal interrupts what the library waits for.
class tst_FileAccess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void interruptedReadingGetsAll();
    void interruptedWritingPassesAll();
    void interruptedOpeningWaitsForTheOtherSide();
    void readingThatIsInterruptedForEverEnds();

private:
    const QByteArray content = QByteArray("0123456789").repeated(MANY_BYTES / 10);
    int reading = -1;
    int writing = -1;
};

void tst_FileAccess::init()
{
    int ends[2] = {};
    QCOMPARE(pipe2(ends, O_CLOEXEC), 0);
    reading = ends[0];
    writing = ends[1];
}

void tst_FileAccess::cleanup()
{
    close(reading);
    close(writing);
}

void tst_FileAccess::interruptedReadingGetsAll()
{
    const Timer timer;
    std::thread writer = afterManyInterruptions([this] {
        writeAll(writing, content.constData(), FEW_BYTES);
        close(writing);
    });
    const QByteArray bytes = readToEnd(reading);
    writer.join();
    writing = -1;
    QVERIFY(interruptions >= MANY);
    QCOMPARE(bytes, content.left(FEW_BYTES));
}

void tst_FileAccess::interruptedWritingPassesAll()
{
    const Timer timer;
    QByteArray bytes;
    std::thread reader = afterManyInterruptions([&] { bytes = readToEnd(reading); });
    const bool isWritten = writeAll(writing, content.constData(), MANY_BYTES);
    close(writing);
    reader.join();
    writing = -1;
    QVERIFY(interruptions >= MANY);
    QVERIFY(isWritten);
    QCOMPARE(bytes, content);
}

void tst_FileAccess::interruptedOpeningWaitsForTheOtherSide()
{
    const QTemporaryDir directory;
    const QByteArray path = directory.filePath(QStringLiteral("pipe")).toLocal8Bit();
    QCOMPARE(mkfifo(path.constData(), 0600), 0);
    const Timer timer;
    int other = -1;
    // For both, which does not wait.
    std::thread writer =
        afterManyInterruptions([&] { other = open(path.constData(), O_RDWR | O_CLOEXEC); });
    const int fd = openFile(path.constData(), O_RDONLY);
    writer.join();
    close(fd);
    close(other);
    QVERIFY(interruptions >= MANY);
    QVERIFY(fd >= 0);
}

void tst_FileAccess::readingThatIsInterruptedForEverEnds()
{
    const Timer timer;
    const QByteArray bytes = readToEnd(reading);
    QVERIFY(interruptions >= MANY);
    QCOMPARE(bytes, QByteArray());
}

QTEST_APPLESS_MAIN(tst_FileAccess)
#include "tst_fileaccess.moc"
