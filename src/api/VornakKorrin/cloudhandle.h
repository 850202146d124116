#ifndef KORRIN_CLOUDHANDLE_H
#define KORRIN_CLOUDHANDLE_H

#include "clouddefs.h"

#include <QByteArray>
#include <QMap>
#include <QMutex>
#include <QSharedPointer>

class Client;
class HttpTask;

/// The state behind one opaque handle. Only HandleManager creates, lists and copies it.
class CloudHandle
{
public:
    CloudHandle() = default;
    ~CloudHandle();
    Q_DISABLE_COPY(CloudHandle)

    /// The value of @p key, "" when it was never set. The text is valid until the next call of
    /// one of the three char functions on this handle, or until the handle is destroyed.
    const char *getParameterChar(const QString &key);

    /// The send data followed by a NUL; lifetime as for getParameterChar.
    const char *getSendDataChar();

    /// The received data followed by a NUL; lifetime as for getParameterChar.
    const char *getRecvDataChar();

    QByteArray getRecvData() const;
    bool isCancelled() const;

    /// Copies @p size bytes into a fresh buffer; called with the mutex held, which is released
    /// for a moment when memory has run out.
    void setToBuffer(const char *data, qsizetype size);

    QSharedPointer<Client> client;       ///< shared with clones
    HttpTask *currentHttpTask = nullptr; ///< not owned
    QMap<QString, QString> parameters;
    QString sendFileName;
    QByteArray sendData;
    QByteArray recvData;
    char *buffer = nullptr;       ///< owned, unless it is @c empty
    const void *origin = nullptr; ///< the handle this one was cloned from; an identity only
    bool cancelled = false; ///< disposed of, or cloned from a handle that was: no more exchanges

    /// Guards all the fields above; never held while the registry's mutex is taken.
    mutable QMutex mutex;

    /// Stands in for the buffer after an allocation failed.
    static char empty[1];
};

#endif
