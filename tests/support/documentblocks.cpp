#include "documentblocks.h"

#include <QFile>
#include <QRegularExpression>

namespace korrintest
{

namespace
{

const QByteArray HEAD = "<!-- recorded: ";
const QByteArray TAIL = " -->\n";
const QByteArray END = "<!-- end -->\n";

QByteArray contentsOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

QByteArray withoutTheMoment(const QByteArray &bytes, const QList<QPair<QString, QString>> &others)
{
    const QList<QPair<QString, QString>> ofRecords = {
        {QStringLiteral("ldt=[^&]*"), QStringLiteral("ldt=2026/01/31%2012:00:00.000")},
        {QStringLiteral("cloud_log_file_save_dir:[^,&]*"),
         QStringLiteral("cloud_log_file_save_dir:/var/lib/device")},
    };
    QString text = QString::fromUtf8(bytes);
    for (const auto &replacement : others + ofRecords)
        text.replace(QRegularExpression(replacement.first), replacement.second);
    return text.toUtf8();
}

DocumentBlocks::DocumentBlocks(const QString &fileName)
    : path(QStringLiteral(KORRIN_TEST_DOCS_DIR "/") + fileName), document(contentsOf(path))
{
}

QList<QByteArray> DocumentBlocks::names() const
{
    QList<QByteArray> result;
    for (const QByteArray &line : document.split('\n')) {
        if (line.startsWith(HEAD))
            result << line.mid(HEAD.size(), line.indexOf(" -->") - HEAD.size());
    }
    return result;
}

QPair<int, int> DocumentBlocks::find(const QByteArray &name) const
{
    const QByteArray head = HEAD + name + TAIL;
    const int at = static_cast<int>(document.indexOf(head));
    const int begin = at + static_cast<int>(head.size());
    const int end = at < 0 ? -1 : static_cast<int>(document.indexOf(END, begin));
    return end < 0 ? qMakePair(-1, -1) : qMakePair(begin, end);
}

QByteArray DocumentBlocks::text(const QByteArray &name) const
{
    const auto [begin, end] = find(name);
    return begin < 0 ? QByteArray() : document.mid(begin, end - begin);
}

QByteArray DocumentBlocks::compare(const QByteArray &name, const QByteArray &seen)
{
    const auto [begin, end] = find(name);
    if (begin < 0)
        return path.toLocal8Bit() + " has no recorded part \"" + name + '"';
    if (document.mid(begin, end - begin) == seen)
        return QByteArray();
    if (!qEnvironmentVariableIsSet("KORRIN_UPDATE_DOCS"))
        return path.toLocal8Bit() + ": the recorded part \"" + name + "\" should read\n" + seen;
    document.replace(begin, end - begin, seen);
    QFile file(path);
    const bool written = file.open(QIODevice::WriteOnly) && file.write(document) == document.size();
    return written ? QByteArray() : path.toLocal8Bit() + " cannot be written";
}

} // namespace korrintest
