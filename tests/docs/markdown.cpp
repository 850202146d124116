#include "markdown.h"

#include <QDir>
#include <QDirIterator>
#include <QRegularExpression>

#include <algorithm>

namespace korrintest
{

namespace
{

const QByteArray SNIPPET_HEAD = "<!-- snippet: ";
const QByteArray SNIPPET_TAIL = " -->";
const QByteArray RECORDED_HEAD = "<!-- recorded: ";
const QByteArray RECORDED_END = "<!-- end -->";
const QByteArray FENCE = "```";

QByteArray contentsOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// As GitHub makes them: lower case, blanks as hyphens, other signs left out.
QString anchorOf(QString heading)
{
    static const QRegularExpression link(QStringLiteral("\\[([^\\]]*)\\]\\([^)]*\\)"));
    static const QRegularExpression sign(QStringLiteral("[^\\w\\- ]"),
                                         QRegularExpression::UseUnicodePropertiesOption);
    return heading.replace(link, QStringLiteral("\\1"))
        .remove(sign)
        .trimmed()
        .toLower()
        .replace(QLatin1Char(' '), QLatin1Char('-'));
}

QByteArray withoutIndentation(const QList<QByteArray> &lines)
{
    qsizetype indentation = -1;
    for (const QByteArray &line : lines) {
        const auto text = std::find_if(line.begin(), line.end(), [](char c) { return c != ' '; });
        const qsizetype width = text - line.begin();
        if (text != line.end() && (indentation < 0 || width < indentation))
            indentation = width;
    }
    QByteArray result;
    for (const QByteArray &line : lines)
        result += line.mid(static_cast<int>(indentation)) + '\n';
    return result;
}

} // namespace

Markdown::Markdown(const QString &filePath) : path(pathOf(filePath)), contents(contentsOf(path)) { }

QString Markdown::pathOf(const QString &filePath)
{
    return QDir(QStringLiteral(KORRIN_REPOSITORY)).filePath(filePath);
}

QStringList Markdown::files()
{
    const QDir repository(QStringLiteral(KORRIN_REPOSITORY));
    QStringList result;
    QDirIterator all(repository.path(), {QStringLiteral("*.md")}, QDir::Files,
                     QDirIterator::Subdirectories);
    while (all.hasNext()) {
        const QString file = repository.relativeFilePath(all.next());
        if (!file.startsWith(QLatin1String("build"))
            && !file.contains(QLatin1String("node_modules")))
            result << file;
    }
    result.sort();
    return result;
}

QList<Markdown::Block> Markdown::blocks() const
{
    QList<Block> result;
    QByteArray lastLine;
    bool inside = false;
    bool isRecorded = false;
    int offset = 0;
    for (const QByteArray &line : contents.split('\n')) {
        const int next = offset + static_cast<int>(line.size()) + 1;
        if (line.startsWith(RECORDED_HEAD) || line == RECORDED_END)
            isRecorded = line != RECORDED_END;
        if (line.startsWith(FENCE)) {
            if (inside) {
                result.last().end = offset;
            } else {
                const bool isSnippet = lastLine.startsWith(SNIPPET_HEAD);
                const QByteArray source = lastLine.mid(SNIPPET_HEAD.size());
                result << Block{line.mid(FENCE.size()),
                                isSnippet ? source.left(source.indexOf(SNIPPET_TAIL))
                                          : QByteArray(),
                                next, next, isRecorded};
            }
            inside = !inside;
        }
        lastLine = line;
        offset = next;
    }
    return result;
}

QByteArray Markdown::withoutCode() const
{
    QByteArray result = contents;
    const QList<Block> all = blocks();
    for (auto block = all.rbegin(); block != all.rend(); ++block)
        result.remove(block->begin, block->end - block->begin);
    return result;
}

QStringList Markdown::links() const
{
    static const QRegularExpression span(QStringLiteral("`[^`]*`"));
    static const QRegularExpression link(QStringLiteral("\\]\\(([^)\\s]+)\\)"));
    const QString text = QString::fromUtf8(withoutCode()).remove(span);
    QStringList result;
    for (auto links = link.globalMatch(text); links.hasNext();)
        result << links.next().captured(1);
    return result;
}

QStringList Markdown::anchors() const
{
    static const QRegularExpression heading(QStringLiteral("^#+ +(.*)$"),
                                            QRegularExpression::MultilineOption);
    QStringList result;
    for (auto all = heading.globalMatch(QString::fromUtf8(withoutCode())); all.hasNext();) {
        const QString anchor = anchorOf(all.next().captured(1));
        const int count = static_cast<int>(result.count(anchor));
        result << (count == 0 ? anchor : QStringLiteral("%1-%2").arg(anchor).arg(count));
    }
    return result;
}

bool Markdown::replace(const Block &block, const QByteArray &code)
{
    contents.replace(block.begin, block.end - block.begin, code);
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size();
}

QByteArray excerpt(const QString &filePath, const QByteArray &name)
{
    const QByteArray source = contentsOf(Markdown::pathOf(filePath));
    if (name.isEmpty())
        return source;
    const QRegularExpression marker(QStringLiteral("^\\s*(/\\*|//|#) \\[%1\\]( \\*/)?$")
                                        .arg(QRegularExpression::escape(QString::fromUtf8(name))));
    QList<QByteArray> lines;
    int markers = 0;
    for (const QByteArray &line : source.split('\n')) {
        if (marker.match(QString::fromUtf8(line)).hasMatch())
            ++markers;
        else if (markers % 2 == 1)
            lines << line;
    }
    return markers > 0 && markers % 2 == 0 ? withoutIndentation(lines) : QByteArray();
}

} // namespace korrintest
