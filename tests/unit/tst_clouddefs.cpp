#include "apiproperties.h"
#include "clouddefs.h"
#include "cloudmanager.h"
#include "korrin.h"

#include <QtTest>

/// The vocabulary as servers, hosts and support staff know it, and korrin.h's copy of it.
class tst_CloudDefs : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void parameterKeys_data();
    void parameterKeys();
    void otherConstants_data();
    void otherConstants();
    void softVersion();
};

void tst_CloudDefs::parameterKeys_data()
{
    QTest::addColumn<QString>("constant");
    QTest::addColumn<QByteArray>("macro");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("settable");
    const auto row = [](const QString &constant, const char *macro, const char *text,
                        bool settable) {
        QTest::newRow(text) << constant << QByteArray(macro) << QByteArray(text) << settable;
    };
    using namespace clouddefs;
    row(PKEY_HTTP_PROXY, KORRIN_KEY_HTTP_PROXY, "http_proxy", true);
    row(PKEY_HTTPS_PROXY, KORRIN_KEY_HTTPS_PROXY, "https_proxy", true);
    row(PKEY_SERVER_URL, KORRIN_KEY_SERVER_URL, "server_url", true);
    row(PKEY_RECV_TIMEOUT, KORRIN_KEY_RECV_TIMEOUT, "recv_timeout", true);
    row(PKEY_LANGUAGE_CODE, KORRIN_KEY_LANGUAGE_CODE, "language_code", true);
    row(PKEY_PRODUCT_NAME, KORRIN_KEY_PRODUCT_NAME, "product_name", true);
    row(PKEY_PRODUCT_NO, KORRIN_KEY_PRODUCT_NO, "product_no", true);
    row(PKEY_MODE, KORRIN_KEY_MODE, "mode", true);
    row(PKEY_RESULT, KORRIN_KEY_RESULT, "result", true);
    row(PKEY_CLOUD_LOG_FILE_SAVE_DIR, KORRIN_KEY_CLOUD_LOG_FILE_SAVE_DIR, "cloud_log_file_save_dir",
        true);
    row(PKEY_CLOUD_LOG_FILE_MAX_SIZE, KORRIN_KEY_CLOUD_LOG_FILE_MAX_SIZE, "cloud_log_file_max_size",
        true);
    row(PKEY_SOFT_VER, KORRIN_KEY_SOFT_VER, "soft_ver", true);
    row(PKEY_DOWNLOAD_FILE_PATH, KORRIN_KEY_DOWNLOAD_FILE_PATH, "download_file_path", true);
    row(PKEY_SEND_DATA_TYPE, KORRIN_KEY_SEND_DATA_TYPE, "send_data_type", true);
    row(PKEY_AWS_ACCESS_KEY, KORRIN_KEY_AWS_ACCESS_KEY, "aws_access_key", true);
    row(PKEY_AWS_SECRET_ACCESS_KEY, KORRIN_KEY_AWS_SECRET_ACCESS_KEY, "aws_secret_access_key",
        true);
    row(PKEY_ERROR_NO, KORRIN_KEY_ERROR_NO, "error_no", false);
    row(PKEY_ERROR_TEXT, KORRIN_KEY_ERROR_TEXT, "error_text", false);
    row(PKEY_ERROR_DETAIL, KORRIN_KEY_ERROR_DETAIL, "error_detail", false);
    row(PKEY_IS, KORRIN_KEY_IS, "is", false);
    row(PKEY_STATUS, KORRIN_KEY_STATUS, "status", false);
    row(PKEY_STATUS_CODE, KORRIN_KEY_STATUS_CODE, "status_code", false);
    row(PKEY_MESSAGE, KORRIN_KEY_MESSAGE, "message", false);
    row(PKEY_NEW_SOFT_VER, KORRIN_KEY_NEW_SOFT_VER, "new_soft_ver", false);
    row(PKEY_FUNC_NAME, KORRIN_KEY_FUNC_NAME, "func_name", false);
    row(PKEY_FUNC_ARGS, KORRIN_KEY_FUNC_ARGS, "func_args", false);
}

void tst_CloudDefs::parameterKeys()
{
    QFETCH(QString, constant);
    QFETCH(QByteArray, macro);
    QFETCH(QByteArray, text);
    QFETCH(bool, settable);
    QCOMPARE(constant, QString::fromLatin1(text));
    QCOMPARE(macro, text);
    QCOMPARE(CloudManager::isSettableParameter(constant), settable);
    QVERIFY(!CloudManager::isSettableParameter(constant.toUpper()));
    QVERIFY(!CloudManager::isSettableParameter(QLatin1Char(' ') + constant));
}

void tst_CloudDefs::otherConstants_data()
{
    QTest::addColumn<QString>("constant");
    QTest::addColumn<QByteArray>("text");
    const auto row = [](const char *name, const QString &constant, const char *text) {
        QTest::newRow(name) << constant << QByteArray(text);
    };
    using namespace clouddefs;
    row("PVAL_MODE_UPDATE", PVAL_MODE_UPDATE, "update");
    row("PVAL_MODE_REMOTE_ACCESS", PVAL_MODE_REMOTE_ACCESS, "remote_access");
    row("PVAL_MODE_SUBMIT_INFO", PVAL_MODE_SUBMIT_INFO, "submit_info");
    row("PVAL_MODE_S3_UPLOAD", PVAL_MODE_S3_UPLOAD, "s3_upload");
    row("PVAL_SEND_RESULT", PVAL_SEND_RESULT, "result");
    row("PVAL_SEND_UPDATE_LOG", PVAL_SEND_UPDATE_LOG, "update_log");
    row("KORRIN_MODE_UPDATE", PVAL_MODE_UPDATE, KORRIN_MODE_UPDATE);
    row("KORRIN_MODE_REMOTE_ACCESS", PVAL_MODE_REMOTE_ACCESS, KORRIN_MODE_REMOTE_ACCESS);
    row("KORRIN_MODE_SUBMIT_INFO", PVAL_MODE_SUBMIT_INFO, KORRIN_MODE_SUBMIT_INFO);
    row("KORRIN_MODE_S3_UPLOAD", PVAL_MODE_S3_UPLOAD, KORRIN_MODE_S3_UPLOAD);
    row("KORRIN_SEND_DATA_TYPE_RESULT", PVAL_SEND_RESULT, KORRIN_SEND_DATA_TYPE_RESULT);
    row("KORRIN_SEND_DATA_TYPE_UPDATE_LOG", PVAL_SEND_UPDATE_LOG, KORRIN_SEND_DATA_TYPE_UPDATE_LOG);
    row("PATH_MODE_UPDATE", PATH_MODE_UPDATE, "/su");
    row("PATH_MODE_REMOTE_ACCESS", PATH_MODE_REMOTE_ACCESS, "/ra");
    row("PATH_MODE_SUBMIT_INFO", PATH_MODE_SUBMIT_INFO, "/si");
    row("PATH_MODE_S3_UPLOAD", PATH_MODE_S3_UPLOAD, "");
    row("PATH_FUNC_SEARCH", PATH_FUNC_SEARCH, "/search");
    row("PATH_FUNC_UPLOAD", PATH_FUNC_UPLOAD, "/upload");
    row("PATH_FUNC_DOWNLOAD", PATH_FUNC_DOWNLOAD, "/download");
    row("QKEY_IS", QKEY_IS, "is");
    row("QKEY_LANG", QKEY_LANG, "lang");
    row("QKEY_PN", QKEY_PN, "pn");
    row("QKEY_SV", QKEY_SV, "sv");
    row("QKEY_NSV", QKEY_NSV, "nsv");
    row("QKEY_ST", QKEY_ST, "st");
    row("QKEY_FILE", QKEY_FILE, "file");
    row("QKEY_DATA", QKEY_DATA, "data");
    row("QKEY_LDT", QKEY_LDT, "ldt");
    row("QKEY_MODE", QKEY_MODE, "mode");
    row("QKEY_FN", QKEY_FN, "fn");
    row("QKEY_FA", QKEY_FA, "fa");
    row("QKEY_EN", QKEY_EN, "en");
    row("QKEY_ED", QKEY_ED, "ed");
    row("QKEY_PR", QKEY_PR, "pr");
    row("QVAL_IS_CHKUD", QVAL_IS_CHKUD, "chkud");
    row("QVAL_IS_DLUDF", QVAL_IS_DLUDF, "dludf");
    row("QVAL_IS_NSV", QVAL_IS_NSV, "nsv");
    row("QVAL_IS_UDLOG", QVAL_IS_UDLOG, "udlog");
    row("QVAL_IS_CHKRA", QVAL_IS_CHKRA, "chkra");
    row("QVAL_IS_CLOUDLOG", QVAL_IS_CLOUDLOG, "cloudlog");
}

void tst_CloudDefs::otherConstants()
{
    QFETCH(QString, constant);
    QFETCH(QByteArray, text);
    QCOMPARE(constant, QString::fromLatin1(text));
}

void tst_CloudDefs::softVersion()
{
    QCOMPARE(ApiProperties::getInstance()->getSoftVersion(), QStringLiteral("R7204B"));
    QCOMPARE(ApiProperties::getInstance(), ApiProperties::getInstance());
    ApiProperties::destroyInstance();
}

QTEST_APPLESS_MAIN(tst_CloudDefs)
#include "tst_clouddefs.moc"
