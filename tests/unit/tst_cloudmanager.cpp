#include "client.h"
#include "clouderror.h"
#include "cloudmanager.h"
#include "factory.h"
#include "handlemanager.h"
#include "remoteaccessclient.h"
#include "s3uploadclient.h"
#include "updateclient.h"

#include <QtTest>

/// Parameter rules, the choice of the client, and the clients' request data.
class tst_CloudManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { HandleManager::destroyInstance(); }

    void onlyTheFirstMissingEssentialParameterIsReported();
    void clientOfTheMode_data();
    void clientOfTheMode();
    void badMode_data();
    void badMode();
    void clientIsKeptWhileTheModeStays();
    void clientIsReplacedWhenTheModeChanges();
    void submitInfoGetsAFreshClientEveryTime();
    void failedCreationKeepsTheOldClient();

    void updateRequestData_data();
    void updateRequestData();
    void refusedUpdateSends_data();
    void refusedUpdateSends();
    void remoteAccessRequestData();
    void s3RequestData();
    void responseLists();

private:
    void set(const char *key, const char *value);
    QString get(const QString &key) const { return handles->getParameter(handle, key); }
    QString modeOfClient() const { return handles->getClient(handle)->getModeName(); }

    HandleManager *handles = nullptr;
    void *handle = nullptr;
};

void tst_CloudManager::init()
{
    handles = HandleManager::getInstance();
    handle = handles->createHandle();
}

void tst_CloudManager::set(const char *key, const char *value)
{
    handles->setParameter(handle, QString::fromLatin1(key), QString::fromLatin1(value));
}

void tst_CloudManager::onlyTheFirstMissingEssentialParameterIsReported()
{
    CloudManager manager(handle);
    QVERIFY(!manager.initialCheck());
    QCOMPARE(get(clouddefs::PKEY_ERROR_NO), QStringLiteral("103"));
    QCOMPARE(get(clouddefs::PKEY_ERROR_TEXT), QStringLiteral("parameter not set."));
    QCOMPARE(get(clouddefs::PKEY_ERROR_DETAIL), QStringLiteral("product_no:"));
    set("product_no", "PN");
    QVERIFY(!manager.initialCheck());
    QCOMPARE(get(clouddefs::PKEY_ERROR_DETAIL), QStringLiteral("mode:"));
    QVERIFY(!manager.createClient());
    QCOMPARE(get(clouddefs::PKEY_ERROR_DETAIL), QStringLiteral("mode:"));
    set("mode", "update");
    QVERIFY(manager.initialCheck());
}

void tst_CloudManager::clientOfTheMode_data()
{
    QTest::addColumn<QString>("modeName");
    QTest::addColumn<QString>("modePath");
    QTest::newRow("update") << QStringLiteral("update") << QStringLiteral("/su");
    QTest::newRow("remote_access") << QStringLiteral("remote_access") << QStringLiteral("/ra");
    QTest::newRow("submit_info") << QStringLiteral("remote_access") << QStringLiteral("/ra");
    QTest::newRow("s3_upload") << QStringLiteral("s3_upload") << QString();
}

void tst_CloudManager::clientOfTheMode()
{
    QFETCH(QString, modeName);
    QFETCH(QString, modePath);
    set("mode", QTest::currentDataTag());
    QVERIFY(CloudManager(handle).createClient());
    QCOMPARE(modeOfClient(), modeName);
    QCOMPARE(handles->getClient(handle)->getModePath(), modePath);
}

void tst_CloudManager::badMode_data()
{
    QTest::addColumn<QString>("detail");
    QTest::newRow("upload") << QStringLiteral("mode:upload");
    QTest::newRow("S3_UPLOAD") << QStringLiteral("mode:S3_UPLOAD");
    QTest::newRow("update ") << QStringLiteral("mode:update ");
}

void tst_CloudManager::badMode()
{
    QFETCH(QString, detail);
    set("product_no", "PN");
    set("mode", QTest::currentDataTag());
    QVERIFY(!CloudManager(handle).initialCheck());
    QCOMPARE(get(clouddefs::PKEY_ERROR_NO), QStringLiteral("105"));
    QCOMPARE(get(clouddefs::PKEY_ERROR_TEXT), QStringLiteral("invalid parameter value."));
    QCOMPARE(get(clouddefs::PKEY_ERROR_DETAIL), detail);
}

void tst_CloudManager::clientIsKeptWhileTheModeStays()
{
    set("product_no", "PN");
    set("mode", "update");
    CloudManager manager(handle);
    QVERIFY(manager.initialCheck());
    const QSharedPointer<Client> first = handles->getClient(handle);
    QVERIFY(manager.initialCheck());
    QCOMPARE(handles->getClient(handle), first);
}

void tst_CloudManager::clientIsReplacedWhenTheModeChanges()
{
    set("product_no", "PN");
    set("mode", "update");
    CloudManager manager(handle);
    QVERIFY(manager.initialCheck());
    set("mode", "s3_upload");
    QVERIFY(manager.initialCheck());
    QCOMPARE(modeOfClient(), QStringLiteral("s3_upload"));
}

void tst_CloudManager::submitInfoGetsAFreshClientEveryTime()
{
    set("product_no", "PN");
    set("mode", "submit_info");
    CloudManager manager(handle);
    QVERIFY(manager.initialCheck());
    const QSharedPointer<Client> first = handles->getClient(handle);
    QVERIFY(manager.initialCheck());
    QVERIFY(handles->getClient(handle) != first);
}

void tst_CloudManager::failedCreationKeepsTheOldClient()
{
    set("product_no", "PN");
    set("mode", "update");
    CloudManager manager(handle);
    QVERIFY(manager.initialCheck());
    set("mode", "bogus");
    QVERIFY(!manager.initialCheck());
    QCOMPARE(modeOfClient(), QStringLiteral("update"));
}

void tst_CloudManager::updateRequestData_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QByteArray>("expected");
    const auto row = [](const char *request, const QByteArray &data, const QByteArray &expected) {
        QTest::newRow((request + QByteArray(" ") + data.left(10)).constData())
            << QByteArray(request) << data << expected;
    };
    row("check", "", "is=chkud&lang=e%20n%26&pn=P%25N&sv=1.0");
    row("recv", "", "is=dludf&lang=e%20n%26&nsv=2.0&file=/a%20b.zip");
    row("result", "ignored", "is=nsv&lang=e%20n%26&pn=P%25N&st=1&nsv=1.0");
    row("update_log", QByteArray("abc\0def", 7), "is=udlog&lang=e%20n%26&pn=P%25N&data=abc");
    row("update_log", "", "is=udlog&lang=e%20n%26&pn=P%25N&data=");
    row("update_log", "\xe9 &=", "is=udlog&lang=e%20n%26&pn=P%25N&data=%C3%A9%20%26%3D");
}

void tst_CloudManager::updateRequestData()
{
    QFETCH(QByteArray, request);
    QFETCH(QByteArray, data);
    QFETCH(QByteArray, expected);
    set("language_code", "e n&");
    set("product_no", "P%N");
    set("soft_ver", "1.0");
    set("new_soft_ver", "2.0");
    set("download_file_path", "/a b.zip");
    set("result", "1");
    UpdateClient client(handle);
    if (request == "check")
        QVERIFY(client.makeCheckEnableRequestData());
    else if (request == "recv")
        QVERIFY(client.makeRecvRequestData());
    else {
        set("send_data_type", request.constData());
        QVERIFY(client.makeSendRequestData(data));
    }
    QCOMPARE(handles->getSendData(handle), expected);
}

void tst_CloudManager::refusedUpdateSends_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QByteArray>("result");
    QTest::addColumn<QString>("error");
    const auto row = [](const char *type, const char *result, const char *error) {
        QTest::newRow(error) << QByteArray(type) << QByteArray(result)
                             << QString::fromLatin1(error);
    };
    row("", "1", "103 send_data_type:");
    row("result", "", "103 result:");
    row("result", "true", "105 result:true");
    row("result", "01", "105 result:01");
    row("result", " 1", "105 result: 1");
    row("RESULT", "1", "105 send_data_type:RESULT");
    row("log", "1", "105 send_data_type:log");
}

void tst_CloudManager::refusedUpdateSends()
{
    QFETCH(QByteArray, type);
    QFETCH(QByteArray, result);
    QFETCH(QString, error);
    set("send_data_type", type.constData());
    set("result", result.constData());
    handles->setSendData(handle, "left");
    UpdateClient client(handle);
    QVERIFY(!client.makeSendRequestData("data"));
    QCOMPARE(QStringLiteral("%1 %2").arg(get(clouddefs::PKEY_ERROR_NO),
                                         get(clouddefs::PKEY_ERROR_DETAIL)),
             error);
    QCOMPARE(handles->getSendData(handle), QByteArray("left"));
}

void tst_CloudManager::remoteAccessRequestData()
{
    set("product_no", "PN");
    RemoteAccessClient client(handle);
    QVERIFY(client.makeCheckEnableRequestData());
    QCOMPARE(handles->getSendData(handle), QByteArray("is=chkra&lang=&pn=PN&sv="));
    handles->setSendData(handle, "left");
    QVERIFY(client.makeSendRequestData("data"));
    QVERIFY(client.makeRecvRequestData());
    QCOMPARE(handles->getSendData(handle), QByteArray("left"));
}

void tst_CloudManager::s3RequestData()
{
    S3UploadClient client(handle);
    const QByteArray data("PK\0\xff", 4);
    QVERIFY(client.makeSendRequestData(data));
    QCOMPARE(handles->getSendData(handle), data);
    QVERIFY(client.makeCheckEnableRequestData());
    QVERIFY(client.makeRecvRequestData());
    QCOMPARE(handles->getSendData(handle), data);
}

void tst_CloudManager::responseLists()
{
    const QStringList base = {QStringLiteral("is"), QStringLiteral("status"),
                              QStringLiteral("status_code"), QStringLiteral("message")};
    QCOMPARE(RemoteAccessClient(handle).getCheckEnableResponseList(), base);
    QCOMPARE(S3UploadClient(handle).getCheckEnableResponseList(), base);
    QCOMPARE(UpdateClient(handle).getSendResponseList(), base);
    QCOMPARE(UpdateClient(handle).getCheckEnableResponseList(),
             base + QStringList(QStringLiteral("new_soft_ver")));
}

QTEST_APPLESS_MAIN(tst_CloudManager)
#include "tst_cloudmanager.moc"
