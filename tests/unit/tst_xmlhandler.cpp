#include "debugcapture.h"
#include "recorded.h"
#include "xmlhandler.h"

#include <QCryptographicHash>
#include <QThread>
#include <QtTest>

using namespace korrintest;

namespace
{

/// Bytes that no well-formed answer holds, which each Qt reads in its own way.
const QStringList READ_DIFFERENTLY = {
    QStringLiteral("numeric entity above the BMP"), // Qt 4 and 5 cut it to 16 bits
    QStringLiteral("numeric entity out of range"),  // likewise
    QStringLiteral("Shift_JIS declared"),           // the recording Qt did not know the encoding
    QStringLiteral("overlong utf-8"),               // number of replacement characters
    QStringLiteral("utf-8 surrogates encoded"),     // likewise
    QStringLiteral("U+FFFE"),                       // not a character
};

QByteArray documentOf(const QJsonObject &recordedCase)
{
    const QString packed = recordedCase.value(QStringLiteral("document_zlib_base64")).toString();
    if (packed.isEmpty()) {
        return QByteArray::fromBase64(
            recordedCase.value(QStringLiteral("document_base64")).toString().toLatin1());
    }
    // qUncompress wants the size in front.
    const int size = recordedCase.value(QStringLiteral("document_size")).toInt();
    QByteArray bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(size >> shift);
    return qUncompress(bytes + QByteArray::fromBase64(packed.toLatin1()));
}

void compareValue(const QString &actual, const QJsonValue &expected)
{
    if (expected.isString()) {
        QCOMPARE(actual, expected.toString());
        return;
    }
    const QJsonObject summary = expected.toObject();
    QCOMPARE(actual.size(), summary.value(QStringLiteral("length")).toInt());
    QCOMPARE(QString::fromLatin1(
                 QCryptographicHash::hash(actual.toUtf8(), QCryptographicHash::Sha1).toHex()),
             summary.value(QStringLiteral("sha1_utf8")).toString());
}

} // namespace

class tst_XmlHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void recorded_data();
    void recorded();
    void anotherDocumentStartsEmpty();
    void traceOfAGoodDocument();
    void traceOfABadDocument();
    void silentWhileDebugOutputIsOff();
    void depthIsLimited();
    void depthIsLimitedByASmallStack();
    void hostileDocumentIsRefused_data();
    void hostileDocumentIsRefused();

private:
    QSharedPointer<XmlHandler> handler;
};

void tst_XmlHandler::recorded_data()
{
    QTest::addColumn<QJsonObject>("recordedCase");
    const QJsonArray cases = recordedCases(QStringLiteral("xml.json"));
    QCOMPARE(cases.size(), 162);
    for (const QJsonValue &value : cases) {
        const QString name = value.toObject().value(QStringLiteral("name")).toString();
        if (!READ_DIFFERENTLY.contains(name))
            QTest::newRow(qPrintable(name)) << value.toObject();
    }
}

void tst_XmlHandler::recorded()
{
    QFETCH(QJsonObject, recordedCase);
    if (!handler || !recordedCase.contains(QStringLiteral("same_handler_as_the_case_before")))
        handler = QSharedPointer<XmlHandler>::create();

    const bool result = handler->execute(documentOf(recordedCase));

    QCOMPARE(handler->errorMessage, recordedCase.value(QStringLiteral("errorMessage")).toString());
    QCOMPARE(result, recordedCase.value(QStringLiteral("result")).toBool());
    const QJsonObject expected = recordedCase.value(QStringLiteral("elementValues")).toObject();
    QCOMPARE(handler->elementValues.size(), expected.size());
    for (auto it = expected.begin(); it != expected.end(); ++it)
        compareValue(handler->elementValues.value(it.key()), it.value());
}

void tst_XmlHandler::anotherDocumentStartsEmpty()
{
    XmlHandler twice;
    QVERIFY(!twice.execute("<r><is>chkud</r>"));
    QVERIFY(twice.errorMessage.startsWith(QStringLiteral("error on line 1, column ")));
    QVERIFY(twice.execute("<r><b>2</b></r>"));
    QCOMPARE(twice.errorMessage, QString());
    QCOMPARE(twice.elementValues.keys(), QStringList{QStringLiteral("b")});
}

void tst_XmlHandler::traceOfAGoodDocument()
{
    const DebugCapture capture;
    XmlHandler traced;
    QVERIFY(traced.execute("<r><is>chkud</is><message>\"q\"</message></r>"));
    QCOMPARE(capture.messages(),
             QStringList({QStringLiteral("-- XML parsing start -- "),
                          QStringLiteral("\"<is> chkud\" "), QStringLiteral("\"<message> \"q\"\" "),
                          QStringLiteral("-- XML parsing end -- ")}));
}

void tst_XmlHandler::traceOfABadDocument()
{
    const DebugCapture capture;
    XmlHandler traced;
    QVERIFY(!traced.execute(""));
    QCOMPARE(capture.messages(),
             QStringList({QStringLiteral("-- XML parsing start -- "),
                          QStringLiteral("-- XML parsing cancel -- ")}));
}

void tst_XmlHandler::silentWhileDebugOutputIsOff()
{
    const DebugCapture capture(false);
    XmlHandler quiet;
    QVERIFY(quiet.execute("<r><is>chkud</is></r>"));
    QVERIFY(!quiet.execute("<r>"));
    QCOMPARE(capture.messages(), QStringList());
}

void tst_XmlHandler::depthIsLimited()
{
    const auto nested = [](int depth) {
        return QByteArray("<a>").repeated(depth) + "text" + QByteArray("</a>").repeated(depth);
    };
    XmlHandler tested;
    QVERIFY(tested.execute(nested(2500)));
    QCOMPARE(tested.elementValues.value(QStringLiteral("a")), QStringLiteral("text"));
    QVERIFY(!tested.execute(nested(2501)));
    QCOMPARE(tested.errorMessage,
             QStringLiteral("error on line 1, column 7503: elements are nested too deeply"));
    QVERIFY(tested.execute(QByteArray("<r>") + QByteArray("<a>1</a>").repeated(3000) + "</r>"));
}

void tst_XmlHandler::depthIsLimitedByASmallStack()
{
    bool parsedDeep = true;
    bool parsedFlat = false;
    QScopedPointer<QThread> thread(QThread::create([&] {
        XmlHandler tested;
        parsedDeep = tested.execute(QByteArray("<a>").repeated(2000) + "text"
                                    + QByteArray("</a>").repeated(2000));
        parsedFlat = tested.execute("<a><b>text</b></a>");
    }));
    thread->setStackSize(256 * 1024);
    thread->start();
    thread->wait();
    QVERIFY(!parsedDeep);
    QVERIFY(parsedFlat);
}

void tst_XmlHandler::hostileDocumentIsRefused_data()
{
    QTest::addColumn<QByteArray>("document");
    const QByteArray head = "<!DOCTYPE a [";
    QTest::newRow("deep elements") << QByteArray("<a>").repeated(200000);
    QTest::newRow("deep elements with name spaces")
        << QByteArray("<a xmlns:n=\"u\" xmlns:m=\"v\">").repeated(50000);
    QTest::newRow("deep content model") << head + "<!ELEMENT a " + QByteArray("(").repeated(200000);
    QTest::newRow("deep sequence") << head + "<!ELEMENT a (b" + QByteArray(",(b").repeated(200000);
    QByteArray chain = head;
    for (int i = 0; i < 100000; ++i) {
        chain +=
            "<!ENTITY e" + QByteArray::number(i) + " \"&e" + QByteArray::number(i + 1) + ";\">";
    }
    QTest::newRow("chain of entities") << chain + "]><a>&e0;</a>";
    QTest::newRow("entities within entities") << head + "<!ENTITY b \""
            + QByteArray("b").repeated(100) + "\"><!ENTITY c \"" + QByteArray("&b;").repeated(100)
            + "\"><!ENTITY d \"" + QByteArray("&c;").repeated(100) + "\">]><a>&d;</a>";
    QTest::newRow("parameter entities within each other") << head
            + "<!ENTITY % p \"((((((((((\"><!ENTITY % q \"%p;%p;%p;%p;\"><!ELEMENT a %q;>]><a/>";
    QTest::newRow("document type in UTF-16") << "\xff\xfe"
            + QByteArray(reinterpret_cast<const char *>(u"<!DOCTYPE a [<!ELEMENT a "), 50)
            + QByteArray("(\0", 2).repeated(200000);
}

/// Neither does the stack end nor the time.
void tst_XmlHandler::hostileDocumentIsRefused()
{
    QFETCH(QByteArray, document);
    XmlHandler tested;
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!tested.execute(document));
    QVERIFY(tested.errorMessage.startsWith(QStringLiteral("error on line 1, column ")));
    QVERIFY2(timer.elapsed() < 2000, QByteArray::number(timer.elapsed()).constData());
}

QTEST_GUILESS_MAIN(tst_XmlHandler)
#include "tst_xmlhandler.moc"
