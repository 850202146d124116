#include "curl.h"

#include <QProcess>

namespace korrintest
{

namespace
{

const int TIMEOUT_MS = 30000;

/// Takes the heads of interim answers and of the last one off the front of @p output.
QByteArray takeHead(QByteArray &output)
{
    QByteArray head;
    while (output.startsWith("HTTP/")) {
        const int end = static_cast<int>(output.indexOf("\r\n\r\n"));
        head = output.left(end);
        output.remove(0, end < 0 ? output.size() : end + 4);
        if (!head.startsWith("HTTP/1.1 1"))
            break;
    }
    return head;
}

} // namespace

QByteArray CurlResult::header(const QByteArray &name) const
{
    for (const QByteArray &line : head.split('\n')) {
        const int colon = static_cast<int>(line.indexOf(':'));
        if (line.left(colon).toLower() == name.toLower())
            return line.mid(colon + 1).trimmed();
    }
    return QByteArray();
}

CurlResult curl(const QList<QByteArray> &arguments)
{
    QStringList all = {QStringLiteral("-q"), QStringLiteral("-s"), QStringLiteral("-i"),
                       QStringLiteral("--noproxy"), QStringLiteral("*")};
    for (const QByteArray &argument : arguments)
        all << QString::fromUtf8(argument);
    QProcess process;
    process.start(QStringLiteral("curl"), all);
    CurlResult result;
    if (!process.waitForFinished(TIMEOUT_MS)) {
        process.kill();
        process.waitForFinished();
        return result;
    }
    result.exitStatus = process.exitCode();
    result.body = process.readAllStandardOutput();
    result.head = takeHead(result.body);
    result.status = result.head.mid(9, 3).toInt();
    return result;
}

} // namespace korrintest
