#include "client.h"
#include "cloudhandle.h"
#include "debugcapture.h"
#include "handlemanager.h"
#include "remoteaccessclient.h"

#include <QtTest>

using namespace korrintest;

namespace
{

const QString KEY = QStringLiteral("mode");

/// Tells when it is deleted.
class WatchedClient : public RemoteAccessClient
{
public:
    explicit WatchedClient(bool *isAlive) : RemoteAccessClient(nullptr), alive(isAlive)
    {
        *alive = true;
    }
    ~WatchedClient() override { *alive = false; }

private:
    bool *const alive;
};

} // namespace

/// The registry, and through it the record behind a handle.
class tst_HandleManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { handle = manager.createHandle(); }
    void cleanup() { manager.disposeAllHandles(); }

    void freshHandleHoldsNoError();
    void unknownHandleGivesFixedResults_data();
    void unknownHandleGivesFixedResults();
    void parametersAreStoredAndCleared();
    void clearingAListKeepsTheOthers();
    void fieldsAreStored();
    void charStringsShareOneBuffer();
    void charStringsKeepBinaryData();
    void charStringIsInTheLocalEncoding();
    void disposingTwiceFails();
    void disposalReleasesTheClient();
    void cloneIsAHandleOfItsOwn();
    void cloneSharesTheClient();
    void cloneOfAnUnknownHandleIsNull();
    void disposalCancelsTheClones();
    void disposeAllOnAnEmptyRegistry();
    void recordOutlivesItsDisposalWhileItIsUsed();

private:
    HandleManager manager;
    void *handle = nullptr;
};

void tst_HandleManager::freshHandleHoldsNoError()
{
    // Errors go to the one instance, so a handle of it is looked at.
    HandleManager *instance = HandleManager::getInstance();
    void *fresh = instance->createHandle();
    QCOMPARE(instance->getParameter(fresh, clouddefs::PKEY_ERROR_NO), QStringLiteral("0"));
    QCOMPARE(instance->getParameter(fresh, clouddefs::PKEY_ERROR_TEXT),
             QStringLiteral("no error."));
    QCOMPARE(instance->getParameter(fresh, clouddefs::PKEY_ERROR_DETAIL),
             QStringLiteral("no error."));
    QVERIFY(!instance->getClient(fresh));
    QVERIFY(!instance->getCurrentHttpTask(fresh));
    QVERIFY(instance->disposeHandle(fresh));
    HandleManager::destroyInstance();
}

void tst_HandleManager::unknownHandleGivesFixedResults_data()
{
    QTest::addColumn<void *>("unknown");
    static int local;
    QTest::newRow("null") << static_cast<void *>(nullptr);
    QTest::newRow("some address") << static_cast<void *>(&local);
    QTest::newRow("small number") << reinterpret_cast<void *>(quintptr(1));
}

void tst_HandleManager::unknownHandleGivesFixedResults()
{
    QFETCH(void *, unknown);
    const DebugCapture capture;
    int calls = 0;
    const auto count = [&calls](const auto &value) {
        ++calls;
        return value;
    };
    QVERIFY(!count(manager.containsHandle(static_cast<CloudHandle *>(unknown))));
    QVERIFY(!count(manager.disposeHandle(unknown)));
    QVERIFY(!count(manager.cloneHandle(unknown)));
    const QString value = count(manager.getParameter(unknown, KEY));
    QVERIFY(value.isEmpty() && !value.isNull());
    QVERIFY(!count(manager.setParameter(unknown, KEY, QStringLiteral("x"))));
    QVERIFY(!count(manager.isParameterEmpty(unknown, KEY)));
    QVERIFY(!count(manager.clearParameter(unknown, KEY)));
    QVERIFY(!count(manager.clearParameter(unknown, QStringList({KEY, KEY}))));
    QCOMPARE(QByteArray(count(manager.getParameterChar(unknown, KEY))), QByteArray());
    QCOMPARE(QByteArray(count(manager.getSendDataChar(unknown))), QByteArray());
    QCOMPARE(QByteArray(count(manager.getRecvDataChar(unknown))), QByteArray());
    QVERIFY(count(manager.getSendData(unknown)).isEmpty());
    QVERIFY(count(manager.getRecvData(unknown)).isEmpty());
    QVERIFY(!count(manager.setSendData(unknown, "x")));
    QVERIFY(!count(manager.setRecvData(unknown, "x")));
    QVERIFY(count(manager.getSendFileName(unknown)).isEmpty());
    QVERIFY(!count(manager.setSendFileName(unknown, KEY)));
    QVERIFY(!count(manager.getClient(unknown)));
    QVERIFY(!count(manager.setClient(unknown, QSharedPointer<Client>())));
    QVERIFY(!count(manager.getCurrentHttpTask(unknown)));
    QVERIFY(!count(manager.setCurrentHttpTask(unknown, nullptr)));
    QCOMPARE(capture.messages().size(), calls);
    QCOMPARE(capture.messages().count(QStringLiteral("\"102:invalid handle.\" ")), calls);
    QVERIFY(!manager.acquire(unknown));
    QCOMPARE(capture.messages().size(), calls);
}

void tst_HandleManager::parametersAreStoredAndCleared()
{
    QVERIFY(manager.getParameter(handle, KEY).isNull());
    QVERIFY(manager.isParameterEmpty(handle, KEY));
    QVERIFY(manager.setParameter(handle, KEY, QStringLiteral("update")));
    QCOMPARE(manager.getParameter(handle, KEY), QStringLiteral("update"));
    QVERIFY(!manager.isParameterEmpty(handle, KEY));
    QVERIFY(manager.setParameter(handle, KEY, QStringLiteral("")));
    QVERIFY(manager.isParameterEmpty(handle, KEY));
    QVERIFY(manager.clearParameter(handle, KEY));
    QVERIFY(manager.isParameterEmpty(handle, KEY));
    QVERIFY(manager.acquire(handle)->parameters.contains(KEY));
    QVERIFY(manager.getParameter(handle, QStringLiteral("Mode")).isNull());
}

void tst_HandleManager::clearingAListKeepsTheOthers()
{
    const QStringList keys = {QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")};
    for (const QString &key : keys)
        manager.setParameter(handle, key, QStringLiteral("x"));
    QVERIFY(manager.clearParameter(handle, keys.mid(1)));
    QCOMPARE(manager.getParameter(handle, keys.at(0)), QStringLiteral("x"));
    QVERIFY(manager.isParameterEmpty(handle, keys.at(1)));
    QVERIFY(manager.isParameterEmpty(handle, keys.at(2)));
}

void tst_HandleManager::fieldsAreStored()
{
    QVERIFY(manager.setSendData(handle, "send"));
    QVERIFY(manager.setRecvData(handle, "recv"));
    QVERIFY(manager.setSendFileName(handle, QStringLiteral("name")));
    QCOMPARE(manager.getSendData(handle), QByteArray("send"));
    QCOMPARE(manager.getRecvData(handle), QByteArray("recv"));
    QCOMPARE(manager.getSendFileName(handle), QStringLiteral("name"));
}

void tst_HandleManager::charStringsShareOneBuffer()
{
    manager.setParameter(handle, KEY, QStringLiteral("update"));
    manager.setSendData(handle, "send");
    QCOMPARE(manager.getParameterChar(handle, KEY), "update");
    QCOMPARE(manager.getSendDataChar(handle), "send");
    const CloudHandle *record = static_cast<CloudHandle *>(handle);
    QCOMPARE(record->buffer, "send");
    QCOMPARE(manager.getRecvDataChar(handle), "");
    QCOMPARE(manager.getParameterChar(handle, QStringLiteral("never set")), "");
    QVERIFY(record->buffer != CloudHandle::empty);
}

void tst_HandleManager::charStringsKeepBinaryData()
{
    const QByteArray data("a\0b\xff\0", 5);
    manager.setRecvData(handle, data);
    const char *text = manager.getRecvDataChar(handle);
    QCOMPARE(QByteArray(text, 6), data + '\0');
}

void tst_HandleManager::charStringIsInTheLocalEncoding()
{
    const QString value = QString::fromLatin1("caf\xe9");
    manager.setParameter(handle, KEY, value);
    QCOMPARE(QByteArray(manager.getParameterChar(handle, KEY)), value.toLocal8Bit());
}

void tst_HandleManager::disposingTwiceFails()
{
    QVERIFY(manager.disposeHandle(handle));
    QVERIFY(!manager.disposeHandle(handle));
    QVERIFY(!manager.containsHandle(static_cast<CloudHandle *>(handle)));
}

void tst_HandleManager::disposalReleasesTheClient()
{
    bool alive = false;
    manager.setClient(handle, QSharedPointer<WatchedClient>::create(&alive));
    QVERIFY(alive);
    manager.disposeHandle(handle);
    QVERIFY(!alive);

    handle = manager.createHandle();
    manager.setClient(handle, QSharedPointer<WatchedClient>::create(&alive));
    manager.setClient(handle, QSharedPointer<RemoteAccessClient>::create(handle));
    QVERIFY(!alive);
}

void tst_HandleManager::cloneIsAHandleOfItsOwn()
{
    manager.setParameter(handle, KEY, QStringLiteral("update"));
    manager.setSendData(handle, "send");
    manager.setRecvData(handle, "recv");
    manager.setSendFileName(handle, QStringLiteral("name"));
    manager.getParameterChar(handle, KEY);

    void *clone = manager.cloneHandle(handle);
    QVERIFY(clone && clone != handle);
    QCOMPARE(manager.getParameter(clone, KEY), QStringLiteral("update"));
    QCOMPARE(manager.getSendData(clone), QByteArray("send"));
    QCOMPARE(manager.getRecvData(clone), QByteArray("recv"));
    QCOMPARE(manager.getSendFileName(clone), QStringLiteral("name"));
    QVERIFY(!static_cast<CloudHandle *>(clone)->buffer);

    manager.setParameter(clone, KEY, QStringLiteral("changed"));
    QCOMPARE(manager.getParameter(handle, KEY), QStringLiteral("update"));
    QVERIFY(manager.disposeHandle(handle));
    QCOMPARE(manager.getParameter(clone, KEY), QStringLiteral("changed"));
    QVERIFY(manager.disposeHandle(clone));
}

void tst_HandleManager::cloneSharesTheClient()
{
    bool alive = false;
    manager.setClient(handle, QSharedPointer<WatchedClient>::create(&alive));
    void *clone = manager.cloneHandle(handle);
    QCOMPARE(manager.getClient(clone), manager.getClient(handle));
    manager.disposeHandle(handle);
    QVERIFY(alive);
    manager.disposeHandle(clone);
    QVERIFY(!alive);
}

void tst_HandleManager::cloneOfAnUnknownHandleIsNull()
{
    manager.disposeHandle(handle);
    QVERIFY(!manager.cloneHandle(handle));
}

void tst_HandleManager::disposalCancelsTheClones()
{
    void *other = manager.createHandle();
    void *clone = manager.cloneHandle(handle);
    void *otherClone = manager.cloneHandle(other);
    manager.disposeHandle(handle);
    QVERIFY(static_cast<CloudHandle *>(clone)->cancelled);
    QVERIFY(!static_cast<CloudHandle *>(otherClone)->cancelled);
    QVERIFY(manager.containsHandle(static_cast<CloudHandle *>(clone)));
}

void tst_HandleManager::disposeAllOnAnEmptyRegistry()
{
    manager.disposeAllHandles();
    QVERIFY(!manager.containsHandle(static_cast<CloudHandle *>(handle)));
    manager.disposeAllHandles();
    QVERIFY(manager.createHandle());
}

void tst_HandleManager::recordOutlivesItsDisposalWhileItIsUsed()
{
    const QSharedPointer<CloudHandle> user = manager.acquire(handle);
    manager.setParameter(handle, KEY, QStringLiteral("update"));
    manager.disposeHandle(handle);
    QCOMPARE(user->parameters.value(KEY), QStringLiteral("update"));
    QVERIFY(user->cancelled);
    // Its address is not given out again meanwhile.
    for (int i = 0; i < 100; ++i)
        QVERIFY(manager.createHandle() != handle);
}

QTEST_APPLESS_MAIN(tst_HandleManager)
#include "tst_handlemanager.moc"
