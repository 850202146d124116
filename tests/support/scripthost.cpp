#include "scripthost.h"

#include <QFile>

namespace korrintest
{

namespace
{
constexpr int PATIENCE_MS = 20000;
}

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
    finish();
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
    if (!process.waitForFinished(PATIENCE_MS))
        process.kill();
    return process.readAllStandardError();
}

} // namespace korrintest
