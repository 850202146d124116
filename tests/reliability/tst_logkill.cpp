#include "killedrun.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace korrintest;

namespace
{

constexpr int NOT_PERMITTED = 77; // exit status of syscallkill
constexpr int FEWEST_CALLS = 500;
constexpr int MOST_CALLS = 20000;

// From one kill to the next: prime, so as not to keep step with the exchanges.
constexpr int STEP = 23;

QStringList killerAt(int number)
{
    return {QStringLiteral(KORRIN_TEST_SYSCALLKILL), QString::number(number)};
}

} // namespace

/// A kill at any moment takes no record that a call has kept.
class tst_LogKill : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void beforeAnySystemCall_data();
    void beforeAnySystemCall();
};

void tst_LogKill::initTestCase()
{
    const QStringList killer = killerAt(0) + QStringList(QStringLiteral("/bin/true"));
    const int status = QProcess::execute(killer.first(), killer.mid(1));
    if (status == NOT_PERMITTED)
        QSKIP("ptrace is not permitted here");
    QCOMPARE(status, 0);
}

/// Each row is the first kill's number; the long form's rows leave out none.
void tst_LogKill::beforeAnySystemCall_data()
{
    QTest::addColumn<int>("number");
    const int rows = qEnvironmentVariableIsSet("KORRIN_LONG") ? STEP : 1;
    for (int number = 1; number <= rows; ++number)
        QTest::addRow("from %d on", number) << number;
}

void tst_LogKill::beforeAnySystemCall()
{
    QFETCH(int, number);
    bool survived = false;
    for (; !survived && number < MOST_CALLS; number += STEP) {
        const QTemporaryDir directory;
        // A sanitizer's search for leaks needs ptrace(2) for itself.
        const KilledRun run = killAndRestart(
            directory.path(), {{QStringLiteral("ASAN_OPTIONS"), QStringLiteral("detect_leaks=0")}},
            killerAt(number));
        QVERIFY2(run.complaint.isEmpty(),
                 ("killed before call " + QByteArray::number(number) + ": " + run.complaint)
                     .constData());
        survived = run.survived;
    }
    qInfo("ended at %d, in steps of %d", number, STEP);
    QVERIFY(survived);
    QVERIFY(number > FEWEST_CALLS);
}

QTEST_GUILESS_MAIN(tst_LogKill)
#include "tst_logkill.moc"
