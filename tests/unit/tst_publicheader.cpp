#include "clouderror.h"
#include "korrin.h"

#include <QtTest>

/// The numbers that korrin.h gives to hosts are those that the library stores.
class tst_PublicHeader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void errorNumbers_data();
    void errorNumbers();
};

void tst_PublicHeader::errorNumbers_data()
{
    QTest::addColumn<int>("macro");
    QTest::addColumn<int>("constant");
    using namespace errors;
    QTest::newRow("NONE") << KORRIN_ERROR_NONE << int(NONE);
    QTest::newRow("CLIENT_APPLICATION")
        << KORRIN_ERROR_CLIENT_APPLICATION << int(CLIENT_APPLICATION);
    QTest::newRow("NOT_OPENED") << KORRIN_ERROR_NOT_OPENED << int(NOT_OPENED);
    QTest::newRow("INVALID_HANDLE") << KORRIN_ERROR_INVALID_HANDLE << int(INVALID_HANDLE);
    QTest::newRow("PARAMETER_NOT_SET") << KORRIN_ERROR_PARAMETER_NOT_SET << int(PARAMETER_NOT_SET);
    QTest::newRow("INVALID_PARAMETER_KEY")
        << KORRIN_ERROR_INVALID_PARAMETER_KEY << int(INVALID_PARAMETER_KEY);
    QTest::newRow("INVALID_PARAMETER_VALUE")
        << KORRIN_ERROR_INVALID_PARAMETER_VALUE << int(INVALID_PARAMETER_VALUE);
    QTest::newRow("SERVER") << KORRIN_ERROR_SERVER << int(SERVER);
    QTest::newRow("XML_PARSE_FAILED") << KORRIN_ERROR_XML_PARSE_FAILED << int(XML_PARSE_FAILED);
    QTest::newRow("ILLEGAL_RESPONSE") << KORRIN_ERROR_ILLEGAL_RESPONSE << int(ILLEGAL_RESPONSE);
    QTest::newRow("STATUS") << KORRIN_ERROR_STATUS << int(STATUS);
    QTest::newRow("NETWORK") << KORRIN_ERROR_NETWORK << int(NETWORK);
    QTest::newRow("CONNECTION") << KORRIN_ERROR_CONNECTION << int(CONNECTION);
    QTest::newRow("PROXY") << KORRIN_ERROR_PROXY << int(PROXY);
    QTest::newRow("CONTENT") << KORRIN_ERROR_CONTENT << int(CONTENT);
    QTest::newRow("PROTOCOL") << KORRIN_ERROR_PROTOCOL << int(PROTOCOL);
    QTest::newRow("TIMEOUT") << KORRIN_ERROR_TIMEOUT << int(TIMEOUT);
    QTest::newRow("SYSTEM") << KORRIN_ERROR_SYSTEM << int(SYSTEM);
    QTest::newRow("OUT_OF_MEMORY") << KORRIN_ERROR_OUT_OF_MEMORY << int(OUT_OF_MEMORY);
    QTest::newRow("FILE_OPEN_FAILED") << KORRIN_ERROR_FILE_OPEN_FAILED << int(FILE_OPEN_FAILED);
    QTest::newRow("FILE_WRITE_FAILED") << KORRIN_ERROR_FILE_WRITE_FAILED << int(FILE_WRITE_FAILED);
    QTest::newRow("NULL_POINTER") << KORRIN_ERROR_NULL_POINTER << int(NULL_POINTER);
}

void tst_PublicHeader::errorNumbers()
{
    QFETCH(int, macro);
    QFETCH(int, constant);
    QCOMPARE(macro, constant);
}

QTEST_APPLESS_MAIN(tst_PublicHeader)
#include "tst_publicheader.moc"
