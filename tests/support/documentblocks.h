#ifndef KORRIN_TESTS_DOCUMENTBLOCKS_H
#define KORRIN_TESTS_DOCUMENTBLOCKS_H

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>

namespace korrintest
{

/// What a document shows of bytes that a test has seen: the time and directory of a log record do
/// not differ from run to run, and each regular expression of @p others is replaced by its text.
QByteArray withoutTheMoment(const QByteArray &bytes, const QList<QPair<QString, QString>> &others);

/// The parts of a document in docs/ that are recorded, so that a test can compare them with what it
/// sees. Each follows a line "<!-- recorded: NAME -->" and ends before the first line "<!-- end
/// -->".
///
/// With KORRIN_UPDATE_DOCS set in the environment, parts that differ are replaced in the document.
class DocumentBlocks
{
public:
    /// @param fileName  below docs/
    explicit DocumentBlocks(const QString &fileName);

    QList<QByteArray> names() const;
    /// The block's text, null when there is none.
    QByteArray text(const QByteArray &name) const;
    /// Compares (or replaces) a block. @return what is wrong, empty when nothing is
    QByteArray compare(const QByteArray &name, const QByteArray &seen);

private:
    /// Begin and end of the block's text, -1 when there is no such block.
    QPair<int, int> find(const QByteArray &name) const;

    const QString path;
    QByteArray document;
};

} // namespace korrintest

#endif
