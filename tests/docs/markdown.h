#ifndef KORRIN_TESTS_MARKDOWN_H
#define KORRIN_TESTS_MARKDOWN_H

#include <QByteArray>
#include <QList>
#include <QStringList>

namespace korrintest
{

/// What the tests need to know of a Markdown file of the repository.
class Markdown
{
public:
    /// A fenced block of code.
    struct Block {
        QByteArray language;
        QByteArray
            source; ///< "PATH NAME" of the line "<!-- snippet: PATH NAME -->" above, or empty
        int begin;  ///< of the code, an offset in the text
        int end;
        bool isRecorded; ///< between the lines "<!-- recorded: NAME -->" and "<!-- end -->"
    };

    /// @param filePath  relative to the repository
    explicit Markdown(const QString &filePath);

    const QByteArray &text() const { return contents; }
    QList<Block> blocks() const;
    /// Targets of all links and images, code left out.
    QStringList links() const;
    /// What a link can name behind "#", one for each heading.
    QStringList anchors() const;
    /// Replaces the code of a block and writes the file.
    bool replace(const Block &block, const QByteArray &code);

    /// All of the repository, relative to it.
    static QStringList files();
    static QString pathOf(const QString &filePath);

private:
    QByteArray withoutCode() const;

    const QString path;
    QByteArray contents;
};

/// The lines between each two that hold "[NAME]" in a comment, less their common indentation; all
/// of the file when the name is empty. Null when there is no such part.
QByteArray excerpt(const QString &filePath, const QByteArray &name);

} // namespace korrintest

#endif
