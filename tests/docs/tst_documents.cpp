#include "markdown.h"

#include <QFileInfo>
#include <QtTest>

using namespace korrintest;

namespace
{

/// Whether such code has to be an excerpt of what the tests compile or run.
bool needsSource(const QString &file, const QByteArray &language, const QByteArray &code)
{
    static const QStringList runDocuments =
        QStringLiteral(KORRIN_RUN_DOCUMENTS).split(QLatin1Char(','));
    if (language != "sh")
        return QList<QByteArray>{"c", "cpp", "cmake"}.contains(language);
    // Building and the repository's scripts are what CI does.
    return file.startsWith(QLatin1String("docs/")) && !runDocuments.contains(file)
        && !code.startsWith("scripts/") && !code.startsWith("cmake ");
}

QString pathIn(const QByteArray &source)
{
    return QString::fromUtf8(source).section(QLatin1Char(' '), 0, 0);
}

QByteArray nameIn(const QByteArray &source)
{
    const auto blank = source.indexOf(' ');
    return blank < 0 ? QByteArray() : source.mid(blank + 1);
}

void addFiles()
{
    QTest::addColumn<QString>("file");
    for (const QString &file : Markdown::files())
        QTest::newRow(qPrintable(file)) << file;
}

} // namespace

/// What the documents show and name is there.
class tst_Documents : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void codeIsAnExcerpt_data() { addFiles(); }
    void codeIsAnExcerpt();
    void headersExampleIsAnExcerpt();
    void linksLeadSomewhere_data() { addFiles(); }
    void linksLeadSomewhere();
    void pagesAreReachable();
    void examplesAreShort();
};

void tst_Documents::codeIsAnExcerpt()
{
    QFETCH(QString, file);
    static const QStringList sources =
        QStringLiteral(KORRIN_DOCUMENTED_SOURCES).split(QLatin1Char(','));
    Markdown document(file);
    for (int i = 0; i < document.blocks().size(); ++i) {
        const Markdown::Block block = document.blocks().at(i);
        const QByteArray shown = document.text().mid(block.begin, block.end - block.begin);
        if (block.source.isEmpty()) {
            QVERIFY2(!needsSource(file, block.language, shown),
                     "code without a line \"<!-- snippet: PATH NAME -->\" above it:\n" + shown);
            continue;
        }
        QVERIFY2(sources.contains(pathIn(block.source)),
                 block.source + " is not among what the tests compile and run");
        const QByteArray code = excerpt(pathIn(block.source), nameIn(block.source));
        QVERIFY2(!code.isEmpty(), "there is no " + block.source);
        if (shown == code)
            continue;
        QVERIFY2(qEnvironmentVariableIsSet("KORRIN_UPDATE_DOCS"),
                 "KORRIN_UPDATE_DOCS=1 brings it up to date: " + block.source);
        QVERIFY(document.replace(block, code));
    }
}

void tst_Documents::headersExampleIsAnExcerpt()
{
    const QByteArray header =
        excerpt(QStringLiteral("src/api/VornakKorrin/korrin.h"), QByteArray());
    const auto begin = header.indexOf("@code\n") + 6;
    QVERIFY(begin > 6);
    QByteArray example = header.mid(begin, header.indexOf(" * @endcode") - begin);
    example.replace("\n * ", "\n");
    QCOMPARE(example.mid(3), excerpt(QStringLiteral("examples/quickstart.c"), "check"));
}

void tst_Documents::linksLeadSomewhere()
{
    QFETCH(QString, file);
    const Markdown document(file);
    for (const QString &link : document.links()) {
        if (link.contains(QLatin1String("://")) || link.startsWith(QLatin1String("mailto:")))
            continue;
        const QString target = link.section(QLatin1Char('#'), 0, 0);
        const QString path = target.isEmpty()
            ? file
            : QDir::cleanPath(QFileInfo(file).path() + QLatin1Char('/') + target);
        QVERIFY2(QFileInfo::exists(Markdown::pathOf(path)), qPrintable(link));
        const QString anchor = link.section(QLatin1Char('#'), 1);
        QVERIFY2(anchor.isEmpty() || Markdown(path).anchors().contains(anchor), qPrintable(link));
    }
}

/// Each page can be found by links from README.md.
void tst_Documents::pagesAreReachable()
{
    QStringList reached = {QStringLiteral("README.md")};
    for (int i = 0; i < reached.size(); ++i) {
        for (const QString &link : Markdown(reached.at(i)).links()) {
            const QString path = QDir::cleanPath(QFileInfo(reached.at(i)).path() + QLatin1Char('/')
                                                 + link.section(QLatin1Char('#'), 0, 0));
            if (path.endsWith(QLatin1String(".md")) && !reached.contains(path))
                reached << path;
        }
    }
    for (const QString &file : Markdown::files())
        QVERIFY2(reached.contains(file), qPrintable(file));
}

void tst_Documents::examplesAreShort()
{
    constexpr int MAX_LINES = 120;
    const QDir examples(Markdown::pathOf(QStringLiteral("examples")));
    const QStringList sources =
        examples.entryList({QStringLiteral("*.c"), QStringLiteral("*.cpp")});
    QVERIFY(sources.size() >= 6);
    const Markdown list(QStringLiteral("examples/README.md"));
    for (const QString &source : sources) {
        const QByteArray code = excerpt(QStringLiteral("examples/") + source, QByteArray());
        QVERIFY2(code.count('\n') < MAX_LINES, qPrintable(source));
        QVERIFY2(list.links().contains(source), qPrintable(source));
    }
}

QTEST_GUILESS_MAIN(tst_Documents)
#include "tst_documents.moc"
