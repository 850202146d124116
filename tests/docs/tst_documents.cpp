#include "markdown.h"

#include <QFileInfo>
#include <QtTest>

#include <algorithm>

using namespace korrintest;

namespace
{

/// Commands that no test can run.
struct NotRun {
    QByteArray file;
    QByteArray firstLine;
};
const NotRun NOT_RUN[] = {
    // Installs packages; the test "demo" runs its steps.
    {"README.md", "scripts/demo"},
    // Runs this test.
    {"README.md", "scripts/test"},
    // Installs packages; `scripts/package --test` does so in a fresh system.
    {"README.md", "scripts/package"},
    // Builds and runs this test.
    {"CONTRIBUTING.md", "cmake --preset dev-qt6"},
    // Builds all anew; "package_install" installs a build, `scripts/cross` does both.
    {"docs/packaging.md", "cmake --preset release"},
    // Measures for minutes on an idle machine; the label "bench" does so with little.
    {"docs/performance.md", "scripts/bench"},
};

bool isCommand(const NotRun &command, const QString &file, const QByteArray &code)
{
    return file.toUtf8() == command.file && code.startsWith(command.firstLine);
}

/// Whether a test runs or sees such a block that is no excerpt.
bool isTested(const QString &file, const Markdown::Block &block)
{
    static const QStringList run = QStringLiteral(KORRIN_RUN_DOCUMENTS).split(QLatin1Char(','));
    // The tests of these pages compare each part that is recorded.
    static const QStringList recorded = {
        QStringLiteral("docs/cloud-log.md"), QStringLiteral("docs/debugging.md"),
        QStringLiteral("docs/server-interface.md"), QStringLiteral("docs/simulator.md"),
        QStringLiteral("docs/tool.md")};
    const bool isRun = QList<QByteArray>{"sh", "ini"}.contains(block.language);
    return (block.isRecorded && recorded.contains(file)) || (isRun && run.contains(file));
}

/// Drawings are no code.
bool needsSource(const QString &file, const Markdown::Block &block, const QByteArray &code)
{
    return block.language != "mermaid" && !isTested(file, block)
        && std::none_of(std::begin(NOT_RUN), std::end(NOT_RUN),
                        [&](const NotRun &command) { return isCommand(command, file, code); });
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
    void commandsNotRunAreShown();
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
            QVERIFY2(!needsSource(file, block, shown),
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

/// The list of them holds nothing that is gone.
void tst_Documents::commandsNotRunAreShown()
{
    for (const NotRun &command : NOT_RUN) {
        const QString file = QString::fromUtf8(command.file);
        const Markdown document(file);
        const QList<Markdown::Block> blocks = document.blocks();
        QVERIFY2(std::any_of(blocks.begin(), blocks.end(),
                             [&](const Markdown::Block &block) {
                                 return isCommand(command, file, document.text().mid(block.begin));
                             }),
                 command.firstLine + " in " + command.file);
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
