#include "debugcapture.h"
#include "korrinhost.h"

#include <QtTest>

using namespace korrintest;

namespace
{
const QByteArrayList SETTABLE = {"http_proxy",
                                 "https_proxy",
                                 "server_url",
                                 "recv_timeout",
                                 "language_code",
                                 "product_name",
                                 "product_no",
                                 "mode",
                                 "result",
                                 "soft_ver",
                                 "send_data_type",
                                 "download_file_path",
                                 "aws_access_key",
                                 "aws_secret_access_key",
                                 "cloud_log_file_save_dir",
                                 "cloud_log_file_max_size"};
const QByteArrayList NOT_SETTABLE = {"error_no",  "error_text",  "error_detail", "is",
                                     "status",    "status_code", "message",      "new_soft_ver",
                                     "func_name", "func_args",   "Mode",         "MODE",
                                     "",          "mode2",       "unknown"};
} // namespace

/// korrinCreateHandle, korrinDisposeHandle, korrinSetParameter and korrinGetParameter.
class tst_Parameters : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshHandleHoldsNoErrorAndNoParameter();
    void settableKeysAreStored_data();
    void settableKeysAreStored();
    void otherKeysAreRefusedWith104_data();
    void otherKeysAreRefusedWith104();
    void keyAndValueAreTrimmed();
    void callIsRecordedAsThePassedBytes();
    void refusedCallIsRecordedToo();
    void emptyValueIsStored();
    void settingResetsTheError();
    void readingKeyIsNotTrimmed();
    void readingLeavesTheErrorsAlone();
    void nullPointersAreEmptyTexts();
    void largeKeysAndValues();
    void latin1ValueComesBackInUtf8();
    void pointerIsReplacedByTheNextRead();
    void handlesDoNotShareParameters();
    void disposingTwiceFailsTheSecondTime();
    void unknownHandles_data();
    void unknownHandles();
    void unknownHandleIsTraced();
    void placeholdersInValuesAreNotFilled();

private:
    const OpenLibrary library;
};

void tst_Parameters::freshHandleHoldsNoErrorAndNoParameter()
{
    const Handle handle;
    QCOMPARE(handle.errorNo(), QByteArray("0"));
    QCOMPARE(handle.errorText(), QByteArray("no error."));
    QCOMPARE(handle.errorDetail(), QByteArray("no error."));
    for (const QByteArray &key : SETTABLE)
        QCOMPARE(handle.get(key), QByteArray());
}

void tst_Parameters::settableKeysAreStored_data()
{
    QTest::addColumn<QByteArray>("key");
    QCOMPARE(SETTABLE.size(), 16);
    for (const QByteArray &key : SETTABLE)
        QTest::newRow(key.constData()) << key;
}

void tst_Parameters::settableKeysAreStored()
{
    QFETCH(QByteArray, key);
    Handle handle;
    QCOMPARE(handle.set(key, "value of " + key), 1);
    QCOMPARE(handle.get(key), "value of " + key);
    QCOMPARE(handle.set(key, "2"), 1);
    QCOMPARE(handle.get(key), QByteArray("2"));
    QCOMPARE(handle.errorNo(), QByteArray("0"));
}

void tst_Parameters::otherKeysAreRefusedWith104_data()
{
    QTest::addColumn<QByteArray>("key");
    for (const QByteArray &key : NOT_SETTABLE)
        QTest::newRow(key.isEmpty() ? "empty" : key.constData()) << key;
}

void tst_Parameters::otherKeysAreRefusedWith104()
{
    QFETCH(QByteArray, key);
    Handle handle;
    QCOMPARE(handle.set(key, "x"), 0);
    QCOMPARE(handle.errorNo(), QByteArray("104"));
    QCOMPARE(handle.errorText(), QByteArray("invalid parameter key."));
    QCOMPARE(handle.errorDetail(), QByteArray("invalid parameter key."));
    QVERIFY(handle.get(key) != "x");
}

void tst_Parameters::keyAndValueAreTrimmed()
{
    Handle handle;
    QCOMPARE(handle.set("  mode ", " update "), 1);
    QCOMPARE(handle.get("mode"), QByteArray("update"));
    QCOMPARE(handle.get("func_args"), QByteArray("key:  mode ,data: update "));
    QCOMPARE(handle.set("\tmode\r\n", "\n a b \t"), 1);
    QCOMPARE(handle.get("mode"), QByteArray("a b"));
}

void tst_Parameters::callIsRecordedAsThePassedBytes()
{
    Handle handle;
    QCOMPARE(handle.get("func_name"), QByteArray("korrinCreateHandle"));
    QCOMPARE(handle.get("func_args"), QByteArray("-"));
    handle.set("mode", "update");
    QCOMPARE(handle.get("func_name"), QByteArray("korrinSetParameter"));
    QCOMPARE(handle.get("func_args"), QByteArray("key:mode,data:update"));
    handle.set("aws_secret_access_key", "secret");
    QCOMPARE(handle.get("func_args"), QByteArray("key:aws_secret_access_key,data:secret"));
}

void tst_Parameters::refusedCallIsRecordedToo()
{
    Handle handle;
    QCOMPARE(handle.set("error_no", "5"), 0);
    QCOMPARE(handle.get("func_name"), QByteArray("korrinSetParameter"));
    QCOMPARE(handle.get("func_args"), QByteArray("key:error_no,data:5"));
    QCOMPARE(handle.errorNo(), QByteArray("104"));
}

void tst_Parameters::emptyValueIsStored()
{
    Handle handle{{"mode", "update"}};
    QCOMPARE(handle.set("mode", ""), 1);
    QCOMPARE(handle.get("mode"), QByteArray());
}

void tst_Parameters::settingResetsTheError()
{
    Handle handle;
    handle.set("nonsense", "x");
    QCOMPARE(handle.set("mode", "update"), 1);
    QCOMPARE(handle.errorNo(), QByteArray("0"));
    QCOMPARE(handle.errorText(), QByteArray("no error."));
    QCOMPARE(handle.errorDetail(), QByteArray("no error."));
}

void tst_Parameters::readingKeyIsNotTrimmed()
{
    Handle handle{{"mode", "update"}};
    QCOMPARE(handle.get(" mode"), QByteArray());
    QCOMPARE(handle.get("mode "), QByteArray());
    QCOMPARE(handle.get("Mode"), QByteArray());
}

void tst_Parameters::readingLeavesTheErrorsAlone()
{
    Handle handle;
    handle.set("nonsense", "x");
    handle.get("mode");
    handle.get("unknown");
    QCOMPARE(handle.errorNo(), QByteArray("104"));
    QCOMPARE(handle.get("func_name"), QByteArray("korrinSetParameter"));
}

void tst_Parameters::nullPointersAreEmptyTexts()
{
    Handle handle{{"mode", "update"}};
    QCOMPARE(korrinSetParameter(handle.get(), nullptr, "x"), 0);
    QCOMPARE(handle.errorNo(), QByteArray("104"));
    QCOMPARE(korrinSetParameter(handle.get(), "mode", nullptr), 1);
    QCOMPARE(handle.get("mode"), QByteArray());
    QCOMPARE(korrinSetParameter(handle.get(), nullptr, nullptr), 0);
    QCOMPARE(korrinGetParameter(handle.get(), nullptr), "");
}

void tst_Parameters::largeKeysAndValues()
{
    const QByteArray value(1024 * 1024, 'v');
    Handle handle;
    QCOMPARE(handle.set("product_name", value), 1);
    QCOMPARE(handle.get("product_name"), value);
    QCOMPARE(handle.set(value, "x"), 0);
    QCOMPARE(handle.errorNo(), QByteArray("104"));
    QCOMPARE(handle.get("func_args"), "key:" + value + ",data:x");
    QCOMPARE(handle.get(value), QByteArray());
}

void tst_Parameters::latin1ValueComesBackInUtf8()
{
    Handle handle;
    handle.set("product_name", "\xe9\xff\x80");
    QCOMPARE(handle.get("product_name"), QByteArray("\xc3\xa9\xc3\xbf\xc2\x80"));
}

void tst_Parameters::pointerIsReplacedByTheNextRead()
{
    Handle handle{{"mode", "update"}, {"product_no", "PN"}};
    Handle other{{"mode", "other"}};
    const char *mode = korrinGetParameter(handle.get(), "mode");
    QCOMPARE(korrinGetParameter(other.get(), "mode"), "other");
    handle.set("mode", "changed");
    QCOMPARE(mode, "update");
    QCOMPARE(korrinGetParameter(handle.get(), "product_no"), "PN");
}

void tst_Parameters::handlesDoNotShareParameters()
{
    Handle first{{"mode", "update"}};
    Handle second;
    QVERIFY(first.get() != second.get());
    QCOMPARE(second.get("mode"), QByteArray());
}

void tst_Parameters::disposingTwiceFailsTheSecondTime()
{
    void *handle = korrinCreateHandle();
    QCOMPARE(korrinDisposeHandle(handle), 1);
    QCOMPARE(korrinDisposeHandle(handle), 0);
}

void tst_Parameters::unknownHandles_data()
{
    QTest::addColumn<void *>("unknown");
    static char local[16];
    void *disposed = korrinCreateHandle();
    korrinDisposeHandle(disposed);
    QTest::newRow("null") << static_cast<void *>(nullptr);
    QTest::newRow("other memory") << static_cast<void *>(local);
    for (const quintptr number : {1, 2, 3, 8, 4096}) {
        QTest::newRow(QByteArray::number(qulonglong(number)).constData())
            << reinterpret_cast<void *>(number);
    }
    QTest::newRow("all ones") << reinterpret_cast<void *>(~quintptr(0));
    QTest::newRow("disposed") << disposed;
}

void tst_Parameters::unknownHandles()
{
    QFETCH(void *, unknown);
    const char *data = "untouched";
    int size = 7;
    QCOMPARE(korrinSetParameter(unknown, "mode", "update"), 1);
    QCOMPARE(korrinSetParameter(unknown, "nonsense", "update"), 0);
    QCOMPARE(korrinGetParameter(unknown, "mode"), "");
    QCOMPARE(korrinCheckEnable(unknown), 0);
    QCOMPARE(korrinSendData(unknown, "x", 1), 0);
    QCOMPARE(korrinRecvData(unknown, &data, &size), 0);
    QVERIFY(!data);
    QCOMPARE(size, 0);
    QCOMPARE(korrinRecvData(unknown, nullptr, nullptr), 0);
    QCOMPARE(korrinSendFile(unknown, "/dev/null"), 0);
    QCOMPARE(korrinRecvFile(unknown, "/dev/null"), 0);
    QCOMPARE(korrinDisposeHandle(unknown), 0);
}

void tst_Parameters::unknownHandleIsTraced()
{
    char local = 0;
    const DebugCapture capture;
    QCOMPARE(korrinGetParameter(&local, "mode"), "");
    QCOMPARE(korrinDisposeHandle(&local), 0);
    const QString refusal = QStringLiteral("\"102:invalid handle.\" ");
    const QStringList expected = {
        QStringLiteral(" "), QStringLiteral("@::korrinGetParameter() "),  refusal,
        QStringLiteral(" "), QStringLiteral("@::korrinDisposeHandle() "), refusal,
    };
    QCOMPARE(capture.messages(), expected);
}

void tst_Parameters::placeholdersInValuesAreNotFilled()
{
    const DebugCapture capture;
    Handle handle;
    handle.set("product_name", "%1 %2 %4");
    QCOMPARE(handle.get("func_args"), QByteArray("key:product_name,data:%1 %2 %4"));
    QVERIFY(capture.messages().contains(QStringLiteral("\"(product_name) %1 %2 %4\" ")));
}

QTEST_GUILESS_MAIN(tst_Parameters)
#include "tst_parameters.moc"
