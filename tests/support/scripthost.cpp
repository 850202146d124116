#include "scripthost.h"

#include <QFile>
#include <QtTest>

#include <csignal>

namespace korrintest
{

namespace
{
constexpr int PATIENCE_MS = 20000;
constexpr int KILLED = 128 + SIGKILL; // what a runner exits with, as a shell does
} // namespace

ScriptHost::ScriptHost(const QString &workingDirectory, const QHash<QString, QString> &environment,
                       const QStringList &runner)
{
    QProcessEnvironment variables = QProcessEnvironment::systemEnvironment();
    // The fixed clock is preloaded before the sanitizer of a build that has one.
    variables.insert(QStringLiteral("ASAN_OPTIONS"), QStringLiteral("verify_asan_link_order=0"));
    for (auto it = environment.cbegin(); it != environment.cend(); ++it)
        variables.insert(it.key(), it.value());
    process.setProcessEnvironment(variables);
    if (!workingDirectory.isEmpty())
        process.setWorkingDirectory(workingDirectory);
    const QStringList command = runner + QStringList(QStringLiteral(KORRIN_TEST_SCRIPTHOST));
    process.start(command.first(), command.mid(1));
    process.waitForStarted(PATIENCE_MS);
}

ScriptHost::~ScriptHost()
{
    const QByteArray errors = finish();
    QVERIFY2(hasEndedWell(), errors.constData());
}

/// Neither has it crashed, nor has a sanitizer anything to say at its end.
bool ScriptHost::hasEndedWell() const
{
    // After a crash, the exit code is the signal's number.
    const bool wasKilled = process.exitStatus() == QProcess::CrashExit
        ? process.exitCode() == SIGKILL && !isStuck
        : process.exitCode() == KILLED;
    return wasKilled || (process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0);
}

ScriptHost::Answer ScriptHost::call(const QByteArray &command)
{
    process.write(command + '\n');
    while (!process.canReadLine()) {
        if (!process.waitForReadyRead(PATIENCE_MS))
            return {};
    }
    const QList<QByteArray> words = process.readLine().trimmed().split(' ');
    return {words.value(0).toInt(), QByteArray::fromHex(words.value(1))};
}

int ScriptHost::set(const QByteArray &handle, const QByteArray &key, const QByteArray &value)
{
    return call("set " + handle + ' ' + word(key) + ' ' + word(value)).result;
}

QByteArray ScriptHost::get(const QByteArray &handle, const QByteArray &key)
{
    return call("get " + handle + ' ' + word(key)).bytes;
}

int ScriptHost::send(const QByteArray &handle, const QByteArray &data)
{
    return call("send " + handle + ' ' + word(data) + ' ' + QByteArray::number(data.size())).result;
}

int ScriptHost::sendFile(const QByteArray &handle, const QByteArray &path)
{
    return call("sendfile " + handle + ' ' + word(path)).result;
}

int ScriptHost::recvFile(const QByteArray &handle, const QByteArray &path)
{
    return call("recvfile " + handle + ' ' + word(path)).result;
}

void ScriptHost::redirectErrors(const QString &path)
{
    call("stderr " + word(QFile::encodeName(path)));
}

QByteArray ScriptHost::word(const QByteArray &bytes)
{
    return bytes.isEmpty() ? QByteArray("-") : bytes.toHex();
}

QByteArray ScriptHost::finish()
{
    process.closeWriteChannel();
    if (process.state() != QProcess::NotRunning && !process.waitForFinished(PATIENCE_MS)) {
        isStuck = true;
        process.kill();
        process.waitForFinished(PATIENCE_MS);
    }
    return process.readAllStandardError();
}

} // namespace korrintest
