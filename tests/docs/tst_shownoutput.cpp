#include "curl.h"
#include "documentblocks.h"
#include "scriptedserver.h"
#include "simulator.h"
#include "toolrun.h"

#include <QJsonDocument>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>

using namespace korrintest;

namespace
{

/// Of "12:00:00.000 " before each message of a trace.
constexpr int MOMENT_SIZE = 13;

QString text(const char *ascii)
{
    return QString::fromLatin1(ascii);
}

/// As the manual shows it: with one port, moment and duration.
QByteArray block(const QByteArray &output, const QByteArray &language = "text",
                 const char *server = "127.0.0.1:8080")
{
    const QList<QPair<QString, QString>> replacements = {
        {text("127\\.0\\.0\\.1:\\d+"), text(server)},
        {text("(Z |\"client\": \")127\\.0\\.0\\.1:\\K\\d+"), text("40000")},
        {text("\\d{4}-\\d\\d-\\d\\dT[\\d:.]*Z"), text("2026-01-31T12:00:00.000Z")},
        {text("(?m)^\\d\\d:\\d\\d:\\d\\d\\.\\d{3} "), text("12:00:00.000 ")},
        {text("[\\d.]+ms"), text("0.6ms")},
        {text("\\(session time\\) \\d+"), text("(session time) 12")},
    };
    return "```" + language + '\n' + withoutTheMoment(output, replacements) + "```\n";
}

} // namespace

/// What the tools print and take is what their pages show.
class tst_ShownOutput : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void outcome();
    void mistypedKey();
    void trace();
    void failure();

    void addressAndLogLine();
    void exchange();
    void configurationIsAccepted();

    void everyRecordedPartIsCompared();

private:
    ToolResult check(const QStringList &more = {}, const QByteArray &url = {});
    void compare(DocumentBlocks &page, const QByteArray &name, const QByteArray &seen);

    QTemporaryDir directory;
    Simulator simulator;
    DocumentBlocks toolPage{text("tool.md")};
    DocumentBlocks simulatorPage{text("simulator.md")};
    QList<QByteArray> compared;
};

void tst_ShownOutput::initTestCase()
{
    QVERIFY(simulator.start());
}

ToolResult tst_ShownOutput::check(const QStringList &more, const QByteArray &url)
{
    const QByteArray address = url.isEmpty() ? simulator.url() : url;
    const QString parameters = text("check -p mode=update -p product_no=KX-100 -p soft_ver=1.0"
                                    " -p cloud_log_file_max_size=0 -p server_url=")
        + QString::fromLatin1(address);
    return runTool(parameters.split(QLatin1Char(' ')) + more, directory.path());
}

void tst_ShownOutput::compare(DocumentBlocks &page, const QByteArray &name, const QByteArray &seen)
{
    const QByteArray difference = page.compare(name, seen);
    compared << name;
    QVERIFY2(difference.isEmpty(), difference.constData());
}

void tst_ShownOutput::outcome()
{
    compare(toolPage, "outcome", block(check().out));
}

void tst_ShownOutput::mistypedKey()
{
    compare(toolPage, "mistyped key", block(check({text("-p"), text("produkt_no=KX-100")}).err));
}

/// The first exchange, but for progress, whose number differs from run to run.
void tst_ShownOutput::trace()
{
    const QByteArray all = check({text("--trace")}).err;
    QByteArray exchange;
    for (const QByteArray &line : all.mid(all.indexOf("-- GET") - MOMENT_SIZE).split('\n')) {
        if (!line.contains("ing...) "))
            exchange += line.trimmed() + '\n';
        if (line.endsWith("-- request end --"))
            break;
    }
    compare(toolPage, "trace", block(exchange));
}

void tst_ShownOutput::failure()
{
    const RefusingPort port;
    compare(toolPage, "failure", block(check({}, "http://" + port.authority() + '/').err));
}

void tst_ShownOutput::addressAndLogLine()
{
    Simulator talkative;
    QVERIFY(talkative.start({text("--log")}));
    compare(simulatorPage, "address", block(talkative.url() + '\n', "text", "127.0.0.1:40123"));

    check({}, talkative.url());
    QByteArray line;
    QVERIFY(QTest::qWaitFor([&] {
        line += talkative.output();
        return line.contains('\n');
    }));
    compare(simulatorPage, "log line", block(line.left(line.indexOf('\n') + 1)));
}

void tst_ShownOutput::exchange()
{
    check();
    const QJsonArray newest =
        simulator.api("exchanges?limit=1&is=chkud").value(text("exchanges")).toArray();
    QCOMPARE(newest.size(), 1);
    QJsonObject seen = newest.at(0).toObject();
    // What differs from run to run, or with Qt's version.
    const QList<QPair<QString, double>> momentary = {
        {text("id"), 7}, {text("request_bytes"), 210}, {text("duration_ms"), 1.25}};
    for (const auto &[name, shown] : momentary) {
        QVERIFY(seen.value(name).toDouble() > 0);
        seen.insert(name, shown);
    }
    compare(simulatorPage, "exchange", block(QJsonDocument(seen).toJson(), "json"));
}

void tst_ShownOutput::configurationIsAccepted()
{
    QVERIFY(QDir(directory.path()).mkdir(text("files")));
    QFile file(directory.filePath(text("files/kx-100-1.0.zip")));
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write("PK") == 2);
    file.close();
    const QString path = directory.filePath(text("cloud.json"));
    QVERIFY(QFile::copy(text(KORRIN_CLOUD_JSON), path));
    Simulator configured;
    QVERIFY(configured.start({text("--config"), path}));
    QCOMPARE(curl({configured.url() + "su/download?is=dludf&file=kx-100-1.0.zip"}).body,
             QByteArray("PK"));
    QCOMPARE(configured.api("faults").value(text("faults")).toArray().size(), 1);
}

void tst_ShownOutput::everyRecordedPartIsCompared()
{
    QList<QByteArray> names = toolPage.names() + simulatorPage.names();
    QVERIFY(names.removeOne("faults")); // by tst_faults
    std::sort(names.begin(), names.end());
    std::sort(compared.begin(), compared.end());
    QCOMPARE(names, compared);
}

QTEST_GUILESS_MAIN(tst_ShownOutput)
#include "tst_shownoutput.moc"
