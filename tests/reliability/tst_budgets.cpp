#include "documentblocks.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace korrintest;

namespace
{

constexpr int BODY_BYTES = 8 * 1024 * 1024;
constexpr int FEW = 2;
constexpr int MANY = 10;
constexpr int NOT_PERMITTED = 77; // exit status of syscallcount
constexpr int ATTEMPTS = 3;
const QList<double> NO_CALLS = {0};

/// What an exchange takes of the machine, on average.
struct Cost {
    double blocks = 0;      ///< allocated
    double bodyBlocks = 0;  ///< of them as large as half the body: its copies
    double systemCalls = 0; ///< but for those that only wait for a thread or wake one
};

/// What the library may take beyond what Qt alone takes.
struct Budget {
    QByteArray operation; ///< as the benchmark's programs name it
    QByteArray description;
    int blocks;
    int bodyBlocks;
    int systemCalls;
};

const QList<Budget> BUDGETS = {
    {"check", "check", 60, 0, 20},
    {"log", "check with its log record", 160, 0, 40},
    {"receive", "receive 8 MiB to a file", 400, 1, 300},
    {"upload", "put 8 MiB, signed", 50, 0, 50},
};

QList<double> numbersIn(const QString &path)
{
    QFile file(path);
    QList<double> numbers;
    if (file.open(QIODevice::ReadOnly)) {
        for (const QByteArray &number : file.readAll().simplified().split(' '))
            numbers << number.toDouble();
    }
    return numbers;
}

} // namespace

/// The library next to a program with QNetworkAccessManager alone, counted instead of timed.
class tst_Budgets : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void libraryAddsNoMoreThan_data();
    void libraryAddsNoMoreThan();
    void tableIsWhatIsTested();

private:
    QList<double> count(const QString &program, const QStringList &arguments, bool systemCalls);
    QList<double> countsOf(const QString &program, const QByteArray &operation, int exchanges);
    /// Of one exchange: the difference between many and few, so that starting does not count.
    Cost costOf(const QString &program, const QByteArray &operation);

    QTemporaryDir directory;
    QProcess server;
    QString url;
    int runs = 0;
    bool countsSystemCalls = false;
};

void tst_Budgets::initTestCase()
{
    server.start(QStringLiteral(KORRIN_BENCH_SERVER), {QString::number(BODY_BYTES)});
    QVERIFY(server.waitForStarted());
    while (!server.canReadLine())
        QVERIFY(server.waitForReadyRead());
    url = QStringLiteral("http://127.0.0.1:") + QString::fromLatin1(server.readLine().trimmed());

    const int status = QProcess::execute(
        QStringLiteral(KORRIN_TEST_SYSCALLCOUNT),
        {directory.filePath(QStringLiteral("counts")), QStringLiteral("/bin/true")});
    QVERIFY(status == 0 || status == NOT_PERMITTED);
    countsSystemCalls = status == 0;
    if (!countsSystemCalls)
        qWarning("ptrace is not permitted here: system calls are not counted");
}

void tst_Budgets::cleanupTestCase()
{
    server.closeWriteChannel();
    QVERIFY(server.waitForFinished());
}

QList<double> tst_Budgets::count(const QString &program, const QStringList &arguments,
                                 bool systemCalls)
{
    const QString counts = directory.filePath(QStringLiteral("counts"));
    QFile::remove(counts);
    QProcess process;
    if (systemCalls) {
        process.start(QStringLiteral(KORRIN_TEST_SYSCALLCOUNT),
                      QStringList{counts, program} + arguments);
    } else {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(KORRIN_TEST_ALLOCCOUNT));
        environment.insert(QStringLiteral("KORRIN_COUNT_FILE"), counts);
        environment.insert(QStringLiteral("KORRIN_COUNT_LARGE"), QString::number(BODY_BYTES / 2));
        process.setProcessEnvironment(environment);
        process.start(program, arguments);
    }
    const bool ended = process.waitForFinished(60000) && process.exitCode() == 0;
    return ended ? numbersIn(counts) : QList<double>();
}

/// Blocks, large blocks, system calls; empty when the program failed.
QList<double> tst_Budgets::countsOf(const QString &program, const QByteArray &operation,
                                    int exchanges)
{
    // Each run has a place of its own: a directory for the log's file, or the body's file.
    const QString path = directory.filePath(QString::number(runs++));
    if (operation == "upload") {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || !file.resize(BODY_BYTES))
            return {};
    } else if (operation != "receive" && !QDir().mkdir(path)) {
        return {};
    }
    const QStringList arguments = {QString::fromLatin1(operation), url, QString::number(exchanges),
                                   path};
    const QList<double> memory = count(program, arguments, false);
    const QList<double> calls = countsSystemCalls ? count(program, arguments, true) : NO_CALLS;
    return memory.size() == 2 && calls.size() == 1 ? memory + calls : QList<double>();
}

Cost tst_Budgets::costOf(const QString &program, const QByteArray &operation)
{
    const QList<double> few = countsOf(program, operation, FEW);
    const QList<double> many = countsOf(program, operation, MANY);
    if (few.isEmpty() || many.isEmpty())
        return {};
    const auto each = [&](int i) { return (many.at(i) - few.at(i)) / (MANY - FEW); };
    return {each(0), each(1), each(2)};
}

void tst_Budgets::libraryAddsNoMoreThan_data()
{
    QTest::addColumn<int>("row");
    for (int i = 0; i < BUDGETS.size(); ++i)
        QTest::newRow(BUDGETS.at(i).operation.constData()) << i;
}

void tst_Budgets::libraryAddsNoMoreThan()
{
    QFETCH(int, row);
    const Budget &budget = BUDGETS.at(row);
    bool isWithin = false;
    // On a busy machine a body arrives in more pieces, now for the one, now for the other.
    for (int attempt = 0; attempt < ATTEMPTS && !isWithin; ++attempt) {
        const Cost bare = costOf(QStringLiteral(KORRIN_BENCH_QT), budget.operation);
        const Cost library = costOf(QStringLiteral(KORRIN_BENCH_KORRIN), budget.operation);
        QVERIFY(bare.blocks > 0 && library.blocks > 0);
        qInfo("Qt alone: %.1f blocks, %.1f copies, %.1f system calls; "
              "the library: %.1f, %.1f, %.1f",
              bare.blocks, bare.bodyBlocks, bare.systemCalls, library.blocks, library.bodyBlocks,
              library.systemCalls);
        isWithin = library.blocks - bare.blocks <= budget.blocks
            && library.bodyBlocks - bare.bodyBlocks <= budget.bodyBlocks
            && library.systemCalls - bare.systemCalls <= budget.systemCalls;
    }
    QVERIFY(isWithin);
}

void tst_Budgets::tableIsWhatIsTested()
{
    QByteArray table = "| Call | Allocations | Copies of the body | System calls |\n"
                       "|---|---|---|---|\n";
    for (const Budget &budget : BUDGETS) {
        table += "| " + budget.description + " | " + QByteArray::number(budget.blocks) + " | "
            + QByteArray::number(budget.bodyBlocks) + " | " + QByteArray::number(budget.systemCalls)
            + " |\n";
    }
    const QByteArray difference =
        DocumentBlocks(QStringLiteral("reliability.md")).compare("budgets", table);
    QVERIFY2(difference.isEmpty(), difference.constData());
}

QTEST_GUILESS_MAIN(tst_Budgets)
#include "tst_budgets.moc"
