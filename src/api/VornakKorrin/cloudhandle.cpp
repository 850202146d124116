#include "cloudhandle.h"

#include "clouderror.h"

#include <QMutexLocker>

#include <cstring>
#include <new>

namespace
{

constexpr int SET_TO_BUFFER_LINE = 61;

/// Releases a held mutex for the length of a scope.
class Unlocked
{
public:
    explicit Unlocked(QMutex *heldMutex) : mutex(heldMutex) { mutex->unlock(); }
    ~Unlocked() { mutex->lock(); }
    Q_DISABLE_COPY(Unlocked)

private:
    QMutex *const mutex;
};

} // namespace

char CloudHandle::empty[1] = "";

CloudHandle::~CloudHandle()
{
    if (buffer != empty)
        delete[] buffer;
}

const char *CloudHandle::getParameterChar(const QString &key)
{
    QMutexLocker locker(&mutex);
    const QByteArray value = parameters.value(key).toLocal8Bit();
    setToBuffer(value.constData(), value.size() + 1);
    return buffer;
}

const char *CloudHandle::getSendDataChar()
{
    QMutexLocker locker(&mutex);
    setToBuffer(sendData.constData(), sendData.size() + 1);
    return buffer;
}

const char *CloudHandle::getRecvDataChar()
{
    QMutexLocker locker(&mutex);
    setToBuffer(recvData.constData(), recvData.size() + 1);
    return buffer;
}

QByteArray CloudHandle::getRecvData() const
{
    QMutexLocker locker(&mutex);
    return recvData;
}

bool CloudHandle::isCancelled() const
{
    QMutexLocker locker(&mutex);
    return cancelled;
}

void CloudHandle::setToBuffer(const char *data, qsizetype size)
{
    if (buffer != empty)
        delete[] buffer;
    buffer = nullptr;

    try {
        buffer = new char[static_cast<std::size_t>(size)];
        std::memcpy(buffer, data, static_cast<std::size_t>(size));
    } catch (const std::bad_alloc &exception) {
        buffer = empty;
        const CloudError error(errors::OUT_OF_MEMORY, QString(),
                               makeOutOfMemoryTrace(exception, QStringLiteral("setToBuffer"),
                                                    QStringLiteral("cloudhandle"),
                                                    SET_TO_BUFFER_LINE));
        const Unlocked unlocked(&mutex); // storing the error takes the same mutex
        error.saveToHandle(this);
    }
}
