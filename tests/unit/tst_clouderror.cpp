#include "clouderror.h"
#include "debugcapture.h"
#include "handlemanager.h"
#include "korrin.h"

#include <QtTest>

#include <new>

using namespace korrintest;

class tst_CloudError : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaultTexts_data();
    void defaultTexts();
    void savedParameters_data();
    void savedParameters();
    void savingIsTracedFromTheHandle();
    void savingToAnUnknownHandleStoresNothing();
    void assignmentCopiesAllFields();
    void outOfMemoryTraceNamesThePlace();
};

void tst_CloudError::defaultTexts_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<int>("macro");
    QTest::addColumn<QString>("text");
    const auto row = [](int number, int macro, const char *text) {
        QTest::newRow(QByteArray::number(number).constData())
            << number << macro << QString::fromLatin1(text);
    };
    row(0, KORRIN_ERROR_NONE, "no error.");
    row(100, KORRIN_ERROR_CLIENT_APPLICATION, "client application error.");
    row(101, KORRIN_ERROR_NOT_OPENED, "cloud not opened.");
    row(102, KORRIN_ERROR_INVALID_HANDLE, "invalid handle.");
    row(103, KORRIN_ERROR_PARAMETER_NOT_SET, "parameter not set.");
    row(104, KORRIN_ERROR_INVALID_PARAMETER_KEY, "invalid parameter key.");
    row(105, KORRIN_ERROR_INVALID_PARAMETER_VALUE, "invalid parameter value.");
    row(200, KORRIN_ERROR_SERVER, "server error.");
    row(201, KORRIN_ERROR_XML_PARSE_FAILED, "xml parse failed.");
    row(202, KORRIN_ERROR_ILLEGAL_RESPONSE, "illegal response received.");
    row(203, KORRIN_ERROR_STATUS, "status error.");
    row(300, KORRIN_ERROR_NETWORK, "network error.");
    row(301, KORRIN_ERROR_CONNECTION, "network connection error.");
    row(302, KORRIN_ERROR_PROXY, "network proxy error.");
    row(303, KORRIN_ERROR_CONTENT, "network content error.");
    row(304, KORRIN_ERROR_PROTOCOL, "network protocol error");
    row(305, KORRIN_ERROR_TIMEOUT, "timeout occurred.");
    row(400, KORRIN_ERROR_SYSTEM, "system error.");
    row(401, KORRIN_ERROR_OUT_OF_MEMORY, "memory allocation error.");
    row(402, KORRIN_ERROR_FILE_OPEN_FAILED, "file open failed.");
    row(403, KORRIN_ERROR_FILE_WRITE_FAILED, "file write failed.");
    row(404, KORRIN_ERROR_NULL_POINTER, "null pointer assigned.");
    row(999, 999, "exceptional error.");
    row(-1, -1, "exceptional error.");
}

void tst_CloudError::defaultTexts()
{
    QFETCH(int, number);
    QFETCH(int, macro);
    QFETCH(QString, text);
    QCOMPARE(macro, number);
    QCOMPARE(Error(number).getDefaultErrorText(), text);
}

void tst_CloudError::savedParameters_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("detail");
    QTest::addColumn<QStringList>("saved");
    const auto row = [](int number, const char *text, const char *detail,
                        const QStringList &saved) {
        QTest::newRow(qPrintable(saved.join(QLatin1Char('|'))))
            << number << QString::fromLatin1(text) << QString::fromLatin1(detail) << saved;
    };
    row(0, "", "", {QStringLiteral("0"), QStringLiteral("no error."), QStringLiteral("no error.")});
    row(103, "", "mode:",
        {QStringLiteral("103"), QStringLiteral("parameter not set."), QStringLiteral("mode:")});
    row(203, "abc", "", {QStringLiteral("203"), QStringLiteral("abc"), QStringLiteral("abc")});
    row(203, "abc", "5:abc",
        {QStringLiteral("203"), QStringLiteral("abc"), QStringLiteral("5:abc")});
    row(999, "", "",
        {QStringLiteral("999"), QStringLiteral("exceptional error."),
         QStringLiteral("exceptional error.")});
    row(304, "", "",
        {QStringLiteral("304"), QStringLiteral("network protocol error"),
         QStringLiteral("network protocol error")});
}

void tst_CloudError::savedParameters()
{
    QFETCH(int, number);
    QFETCH(QString, text);
    QFETCH(QString, detail);
    QFETCH(QStringList, saved);
    HandleManager *manager = HandleManager::getInstance();
    void *handle = manager->createHandle();
    CloudError(number, text, detail).saveToHandle(handle);
    QCOMPARE(manager->getParameter(handle, clouddefs::PKEY_ERROR_NO), saved.at(0));
    QCOMPARE(manager->getParameter(handle, clouddefs::PKEY_ERROR_TEXT), saved.at(1));
    QCOMPARE(manager->getParameter(handle, clouddefs::PKEY_ERROR_DETAIL), saved.at(2));
    manager->disposeHandle(handle);
}

void tst_CloudError::savingIsTracedFromTheHandle()
{
    void *handle = HandleManager::getInstance()->createHandle();
    const DebugCapture capture;
    CloudError(103, QString(), QStringLiteral("mode:")).saveToHandle(handle);
    QCOMPARE(
        capture.messages(),
        QStringList({QStringLiteral("-- error info -- "), QStringLiteral("\"(error_no) 103\" "),
                     QStringLiteral("\"(error_text) parameter not set.\" "),
                     QStringLiteral("\"(error_detail) mode:\" "),
                     QStringLiteral("---------------- ")}));
    HandleManager::getInstance()->disposeHandle(handle);
}

void tst_CloudError::savingToAnUnknownHandleStoresNothing()
{
    const DebugCapture capture;
    CloudError(103).saveToHandle(nullptr);
    QCOMPARE(capture.messages().count(QStringLiteral("\"102:invalid handle.\" ")), 6);
    QVERIFY(capture.messages().contains(QStringLiteral("\"(error_no) \" ")));
}

void tst_CloudError::assignmentCopiesAllFields()
{
    const CloudError source(5, QStringLiteral("text"), QStringLiteral("detail"));
    CloudError target;
    target = source;
    QCOMPARE(target.number, 5);
    QCOMPARE(target.text, source.text);
    QCOMPARE(target.detail, source.detail);
}

void tst_CloudError::outOfMemoryTraceNamesThePlace()
{
    QCOMPARE(makeOutOfMemoryTrace(std::bad_alloc(), QStringLiteral("HttpTask"),
                                  QStringLiteral("httptask"), 47),
             QStringLiteral("std::bad_alloc at HttpTask "
                            "(file:../../../src/api/VornakKorrin/httptask, line:47)"));
}

QTEST_APPLESS_MAIN(tst_CloudError)
#include "tst_clouderror.moc"
