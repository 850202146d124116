#ifndef KORRIN_HANDLEMANAGER_H
#define KORRIN_HANDLEMANAGER_H

#include "clouddefs.h"

#include <QByteArray>
#include <QList>
#include <QMutex>
#include <QSharedPointer>
#include <QStringList>

class Client;
class CloudHandle;
class HttpTask;

/// The one registry of all live handles.
///
/// Every operation first looks its handle up, so a stale or foreign pointer is never followed: it
/// gives the result for an unknown handle, and a debug message of error 102. A record that is
/// disposed of is unknown at once, and freed when its last user has left it.
///
/// Locks: the registry's mutex guards the list, each record's own mutex its fields; the registry's
/// mutex is never taken while a record's is held.
class HandleManager
{
public:
    /// The single instance, created on first use.
    static HandleManager *getInstance();
    static void destroyInstance();

    HandleManager() = default;
    virtual ~HandleManager() = default;
    Q_DISABLE_COPY(HandleManager)

    /// A new handle that holds error 0; null when memory runs out.
    void *createHandle();

    /// A new handle with a copy of @p handle's fields, sharing its client, to be disposed of like
    /// any other; null for an unknown handle or when memory runs out. Exchanges on it are also
    /// cancelled when @p handle is disposed of.
    void *cloneHandle(void *handle);

    bool containsHandle(const CloudHandle *handle) const;

    /// Forgets the handle and cancels the exchange that runs on it or on a clone of it.
    bool disposeHandle(void *handle);
    void disposeAllHandles();

    /// The record itself, which lives while the pointer is held; null, without a debug message,
    /// for an unknown handle.
    QSharedPointer<CloudHandle> acquire(const void *handle) const;

    QString getParameter(void *handle, const QString &key) const;
    bool setParameter(void *handle, const QString &key, const QString &value);
    bool isParameterEmpty(void *handle, const QString &key) const;
    bool clearParameter(void *handle, const QString &key);
    bool clearParameter(void *handle, const QStringList &keys);

    QByteArray getSendData(void *handle) const;
    bool setSendData(void *handle, const QByteArray &data);
    QByteArray getRecvData(void *handle) const;
    bool setRecvData(void *handle, const QByteArray &data);
    QString getSendFileName(void *handle) const;
    bool setSendFileName(void *handle, const QString &name);
    QSharedPointer<Client> getClient(void *handle) const;
    bool setClient(void *handle, const QSharedPointer<Client> &client);
    HttpTask *getCurrentHttpTask(void *handle) const;
    bool setCurrentHttpTask(void *handle, HttpTask *task);

    /// C strings in the handle's return buffer; see CloudHandle for their lifetime.
    const char *getParameterChar(void *handle, const QString &key) const;
    const char *getSendDataChar(void *handle) const;
    const char *getRecvDataChar(void *handle) const;

private:
    /// As acquire(), with the debug message of error 102 for an unknown handle.
    QSharedPointer<CloudHandle> find(const void *handle) const;
    void append(const QSharedPointer<CloudHandle> &record);
    QSharedPointer<CloudHandle> take(const void *handle);
    void cancelExchanges(const QSharedPointer<CloudHandle> &record) const;

    static HandleManager *instance;

    QList<QSharedPointer<CloudHandle>> handleList; ///< in the order of creation
    mutable QMutex mutex;                          ///< guards handleList
};

#endif
