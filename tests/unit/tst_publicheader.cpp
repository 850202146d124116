#include "clouddefs.h"
#include "clouderror.h"
#include "korrin.h"

#include <QtTest>

/// The numbers and texts that korrin.h gives to hosts are those that the library uses.
class tst_PublicHeader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void errorNumbers_data();
    void errorNumbers();
    void texts_data();
    void texts();
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

void tst_PublicHeader::texts_data()
{
    QTest::addColumn<QString>("macro");
    QTest::addColumn<QString>("constant");
    using namespace clouddefs;
    QTest::newRow("KEY_HTTP_PROXY") << KORRIN_KEY_HTTP_PROXY << PKEY_HTTP_PROXY;
    QTest::newRow("KEY_HTTPS_PROXY") << KORRIN_KEY_HTTPS_PROXY << PKEY_HTTPS_PROXY;
    QTest::newRow("KEY_SERVER_URL") << KORRIN_KEY_SERVER_URL << PKEY_SERVER_URL;
    QTest::newRow("KEY_RECV_TIMEOUT") << KORRIN_KEY_RECV_TIMEOUT << PKEY_RECV_TIMEOUT;
    QTest::newRow("KEY_LANGUAGE_CODE") << KORRIN_KEY_LANGUAGE_CODE << PKEY_LANGUAGE_CODE;
    QTest::newRow("KEY_PRODUCT_NAME") << KORRIN_KEY_PRODUCT_NAME << PKEY_PRODUCT_NAME;
    QTest::newRow("KEY_PRODUCT_NO") << KORRIN_KEY_PRODUCT_NO << PKEY_PRODUCT_NO;
    QTest::newRow("KEY_MODE") << KORRIN_KEY_MODE << PKEY_MODE;
    QTest::newRow("KEY_RESULT") << KORRIN_KEY_RESULT << PKEY_RESULT;
    QTest::newRow("KEY_SOFT_VER") << KORRIN_KEY_SOFT_VER << PKEY_SOFT_VER;
    QTest::newRow("KEY_DOWNLOAD_FILE_PATH")
        << KORRIN_KEY_DOWNLOAD_FILE_PATH << PKEY_DOWNLOAD_FILE_PATH;
    QTest::newRow("KEY_SEND_DATA_TYPE") << KORRIN_KEY_SEND_DATA_TYPE << PKEY_SEND_DATA_TYPE;
    QTest::newRow("KEY_CLOUD_LOG_FILE_SAVE_DIR")
        << KORRIN_KEY_CLOUD_LOG_FILE_SAVE_DIR << PKEY_CLOUD_LOG_FILE_SAVE_DIR;
    QTest::newRow("KEY_CLOUD_LOG_FILE_MAX_SIZE")
        << KORRIN_KEY_CLOUD_LOG_FILE_MAX_SIZE << PKEY_CLOUD_LOG_FILE_MAX_SIZE;
    QTest::newRow("KEY_AWS_ACCESS_KEY") << KORRIN_KEY_AWS_ACCESS_KEY << PKEY_AWS_ACCESS_KEY;
    QTest::newRow("KEY_AWS_SECRET_ACCESS_KEY")
        << KORRIN_KEY_AWS_SECRET_ACCESS_KEY << PKEY_AWS_SECRET_ACCESS_KEY;
    QTest::newRow("KEY_ERROR_NO") << KORRIN_KEY_ERROR_NO << PKEY_ERROR_NO;
    QTest::newRow("KEY_ERROR_TEXT") << KORRIN_KEY_ERROR_TEXT << PKEY_ERROR_TEXT;
    QTest::newRow("KEY_ERROR_DETAIL") << KORRIN_KEY_ERROR_DETAIL << PKEY_ERROR_DETAIL;
    QTest::newRow("KEY_IS") << KORRIN_KEY_IS << PKEY_IS;
    QTest::newRow("KEY_STATUS") << KORRIN_KEY_STATUS << PKEY_STATUS;
    QTest::newRow("KEY_STATUS_CODE") << KORRIN_KEY_STATUS_CODE << PKEY_STATUS_CODE;
    QTest::newRow("KEY_MESSAGE") << KORRIN_KEY_MESSAGE << PKEY_MESSAGE;
    QTest::newRow("KEY_NEW_SOFT_VER") << KORRIN_KEY_NEW_SOFT_VER << PKEY_NEW_SOFT_VER;
    QTest::newRow("KEY_FUNC_NAME") << KORRIN_KEY_FUNC_NAME << PKEY_FUNC_NAME;
    QTest::newRow("KEY_FUNC_ARGS") << KORRIN_KEY_FUNC_ARGS << PKEY_FUNC_ARGS;
    QTest::newRow("MODE_UPDATE") << KORRIN_MODE_UPDATE << PVAL_MODE_UPDATE;
    QTest::newRow("MODE_REMOTE_ACCESS") << KORRIN_MODE_REMOTE_ACCESS << PVAL_MODE_REMOTE_ACCESS;
    QTest::newRow("MODE_SUBMIT_INFO") << KORRIN_MODE_SUBMIT_INFO << PVAL_MODE_SUBMIT_INFO;
    QTest::newRow("MODE_S3_UPLOAD") << KORRIN_MODE_S3_UPLOAD << PVAL_MODE_S3_UPLOAD;
    QTest::newRow("SEND_DATA_TYPE_RESULT") << KORRIN_SEND_DATA_TYPE_RESULT << PVAL_SEND_RESULT;
    QTest::newRow("SEND_DATA_TYPE_UPDATE_LOG")
        << KORRIN_SEND_DATA_TYPE_UPDATE_LOG << PVAL_SEND_UPDATE_LOG;
}

void tst_PublicHeader::texts()
{
    QFETCH(QString, macro);
    QFETCH(QString, constant);
    QCOMPARE(macro, constant);
}

QTEST_APPLESS_MAIN(tst_PublicHeader)
#include "tst_publicheader.moc"
