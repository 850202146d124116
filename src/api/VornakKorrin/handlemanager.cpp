#include "handlemanager.h"

#include "client.h"
#include "clouderror.h"
#include "cloudhandle.h"
#include "debugoutput.h"
#include "httptask.h"
#include "makeshared.h"

#include <QMutexLocker>

#include <new>
#include <utility>

HandleManager *HandleManager::instance = nullptr;

namespace
{

const QString SOURCE_NAME = QStringLiteral("handlemanager");
constexpr int CREATE_HANDLE_LINE = 26;
constexpr int CLONE_HANDLE_LINE = 62;

void cancel(CloudHandle *record)
{
    QMutexLocker locker(&record->mutex);
    record->cancelled = true;
    // Not virtual: the task may be in its destructor, waiting to take itself off the record.
    if (record->currentHttpTask)
        record->currentHttpTask->HttpTask::quit();
}

template <typename Field>
bool store(const QSharedPointer<CloudHandle> &record, Field CloudHandle::*field, const Field &value)
{
    if (!record)
        return false;
    // The old value dies after the mutex is released: a client's end may be somebody else's code.
    Field newValue = value;
    QMutexLocker locker(&record->mutex);
    qSwap(record.data()->*field, newValue);
    locker.unlock();
    return true;
}

template <typename Field>
Field load(const QSharedPointer<CloudHandle> &record, Field CloudHandle::*field)
{
    if (!record)
        return Field();
    QMutexLocker locker(&record->mutex);
    return record.data()->*field;
}

} // namespace

HandleManager *HandleManager::getInstance()
{
    if (!instance)
        instance = new HandleManager;
    return instance;
}

void HandleManager::destroyInstance()
{
    delete instance;
    instance = nullptr;
}

void *HandleManager::createHandle()
{
    QSharedPointer<CloudHandle> record;
    try {
        record = makeShared<CloudHandle>();
        append(record);
        CloudError(errors::NONE).saveToHandle(record.data());
        return record.data();
    } catch (const std::bad_alloc &exception) {
        take(record.data());
        traceOutOfMemory(exception, QStringLiteral("createHandle"), SOURCE_NAME,
                         CREATE_HANDLE_LINE);
        return nullptr;
    }
}

void *HandleManager::cloneHandle(void *handle)
{
    const QSharedPointer<CloudHandle> source = find(handle);
    if (!source)
        return nullptr;

    try {
        const auto clone = makeShared<CloudHandle>();
        QMutexLocker locker(&source->mutex);
        clone->client = source->client;
        // One by one: Qt 5 would leak a shared map's copy when memory runs out half way.
        const auto &parameters = source->parameters;
        for (auto it = parameters.cbegin(); it != parameters.cend(); ++it)
            clone->parameters.insert(it.key(), it.value());
        clone->sendFileName = source->sendFileName;
        clone->sendData = source->sendData;
        clone->recvData = source->recvData;
        clone->origin = source.data();
        locker.unlock();

        append(clone);
        // A disposal of the source from now on finds the clone; one before this line does not.
        if (source->isCancelled())
            cancel(clone.data());
        return clone.data();
    } catch (const std::bad_alloc &exception) {
        traceOutOfMemory(exception, QStringLiteral("cloneHandle"), SOURCE_NAME, CLONE_HANDLE_LINE);
        return nullptr;
    }
}

bool HandleManager::containsHandle(const CloudHandle *handle) const
{
    return !find(handle).isNull();
}

bool HandleManager::disposeHandle(void *handle)
{
    const QSharedPointer<CloudHandle> record = find(handle);
    if (!record)
        return false;
    // Cancelled before it is unknown: whoever finds it unknown can tell why from the record.
    cancelExchanges(record);
    return !take(handle).isNull();
}

void HandleManager::disposeAllHandles()
{
    // Taken out as a whole, which needs no memory.
    QList<QSharedPointer<CloudHandle>> handles;
    QMutexLocker locker(&mutex);
    for (const QSharedPointer<CloudHandle> &handle : std::as_const(handleList))
        cancel(handle.data());
    handles.swap(handleList);
}

QSharedPointer<CloudHandle> HandleManager::acquire(const void *handle) const
{
    QMutexLocker locker(&mutex);
    for (const QSharedPointer<CloudHandle> &record : handleList) {
        if (record.data() == handle)
            return record;
    }
    return {};
}

QSharedPointer<CloudHandle> HandleManager::find(const void *handle) const
{
    const QSharedPointer<CloudHandle> record = acquire(handle);
    // Written with no lock held: the host's message handler may call the library.
    if (!record)
        traceError(errors::INVALID_HANDLE);
    return record;
}

void HandleManager::append(const QSharedPointer<CloudHandle> &record)
{
    QMutexLocker locker(&mutex);
    handleList.append(record);
}

QSharedPointer<CloudHandle> HandleManager::take(const void *handle)
{
    QMutexLocker locker(&mutex);
    for (int i = 0; i < handleList.size(); ++i) {
        if (handleList.at(i).data() == handle)
            return handleList.takeAt(i);
    }
    return {};
}

void HandleManager::cancelExchanges(const QSharedPointer<CloudHandle> &record) const
{
    cancel(record.data());
    QMutexLocker locker(&mutex);
    for (const QSharedPointer<CloudHandle> &other : handleList) {
        if (load(other, &CloudHandle::origin) == record.data())
            cancel(other.data());
    }
}

QString HandleManager::getParameter(void *handle, const QString &key) const
{
    const QSharedPointer<CloudHandle> record = find(handle);
    if (!record)
        return QStringLiteral("");
    QMutexLocker locker(&record->mutex);
    return record->parameters.value(key);
}

bool HandleManager::setParameter(void *handle, const QString &key, const QString &value)
{
    const QSharedPointer<CloudHandle> record = find(handle);
    if (!record)
        return false;
    QMutexLocker locker(&record->mutex);
    record->parameters.insert(key, value);
    return true;
}

bool HandleManager::isParameterEmpty(void *handle, const QString &key) const
{
    const QSharedPointer<CloudHandle> record = find(handle);
    if (!record)
        return false;
    QMutexLocker locker(&record->mutex);
    return record->parameters.value(key).isEmpty();
}

bool HandleManager::clearParameter(void *handle, const QString &key)
{
    return setParameter(handle, key, QString());
}

bool HandleManager::clearParameter(void *handle, const QStringList &keys)
{
    if (!containsHandle(static_cast<CloudHandle *>(handle)))
        return false;
    for (const QString &key : keys)
        clearParameter(handle, key);
    return true;
}

QByteArray HandleManager::getSendData(void *handle) const
{
    return load(find(handle), &CloudHandle::sendData);
}

bool HandleManager::setSendData(void *handle, const QByteArray &data)
{
    return store(find(handle), &CloudHandle::sendData, data);
}

QByteArray HandleManager::getRecvData(void *handle) const
{
    return load(find(handle), &CloudHandle::recvData);
}

bool HandleManager::setRecvData(void *handle, const QByteArray &data)
{
    return store(find(handle), &CloudHandle::recvData, data);
}

QString HandleManager::getSendFileName(void *handle) const
{
    return load(find(handle), &CloudHandle::sendFileName);
}

bool HandleManager::setSendFileName(void *handle, const QString &name)
{
    return store(find(handle), &CloudHandle::sendFileName, name);
}

QSharedPointer<Client> HandleManager::getClient(void *handle) const
{
    return load(find(handle), &CloudHandle::client);
}

bool HandleManager::setClient(void *handle, const QSharedPointer<Client> &client)
{
    return store(find(handle), &CloudHandle::client, client);
}

HttpTask *HandleManager::getCurrentHttpTask(void *handle) const
{
    return load(find(handle), &CloudHandle::currentHttpTask);
}

bool HandleManager::setCurrentHttpTask(void *handle, HttpTask *task)
{
    return store(find(handle), &CloudHandle::currentHttpTask, task);
}

const char *HandleManager::getParameterChar(void *handle, const QString &key) const
{
    static char empty[1] = "";
    const QSharedPointer<CloudHandle> record = find(handle);
    return record ? record->getParameterChar(key) : empty;
}

const char *HandleManager::getSendDataChar(void *handle) const
{
    static char empty[1] = "";
    const QSharedPointer<CloudHandle> record = find(handle);
    return record ? record->getSendDataChar() : empty;
}

const char *HandleManager::getRecvDataChar(void *handle) const
{
    static char empty[1] = "";
    const QSharedPointer<CloudHandle> record = find(handle);
    return record ? record->getRecvDataChar() : empty;
}
