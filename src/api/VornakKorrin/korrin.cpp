#include "korrin.h"

#include "apiproperties.h"
#include "applicationobject.h"
#include "callscope.h"
#include "clouderror.h"
#include "cloudhandle.h"
#include "cloudmanager.h"
#include "debugoutput.h"
#include "fileaccess.h"
#include "handlemanager.h"
#include "textconversion.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QFileInfo>

#include <atomic>
#include <cstdio>
#include <limits>
#include <mutex>
#include <new>

#include <fcntl.h>
#include <sys/stat.h>

namespace
{

const QString SOURCE_NAME = QStringLiteral("korrin");
const QString NO_ARGUMENTS = QStringLiteral("-");
const QString FILE_PATH_LABEL = QStringLiteral("filePath");
constexpr int MAX_RECORDED_DATA_CHARACTERS = 32;
// Longer than a cancelled call takes to leave the library.
constexpr int CLOSE_WAIT_MS = 1000;
constexpr int CLOSE_POLL_MS = 10;

std::atomic<bool> cloudOpened{false};
// Recursive, since the host's message handler may open or close the library.
std::recursive_mutex openCloseMutex;

bool isCloudOpened()
{
    if (cloudOpened)
        return true;
    traceError(errors::NOT_OPENED);
    return false;
}

void traceEntry(const char *function)
{
    if (!DebugOutput::enabled)
        return;
    DebugOutput::writeMarker("");
    DebugOutput::writeMarker((QByteArrayLiteral("@::") + function + "()").constData());
}

HandleManager *registry()
{
    return HandleManager::getInstance();
}

const char *orEmpty(const char *text)
{
    return text ? text : "";
}

QString toText(const char *text)
{
    return QString::fromLatin1(orEmpty(text));
}

void recordCall(void *handle, const char *function, const QString &arguments)
{
    registry()->setParameter(handle, clouddefs::PKEY_FUNC_NAME, toText(function));
    registry()->setParameter(handle, clouddefs::PKEY_FUNC_ARGS, arguments);
}

void trimErrorText(void *handle)
{
    if (registry()->getParameter(handle, clouddefs::PKEY_STATUS_CODE).toInt() == 0)
        registry()->clearParameter(handle, clouddefs::PKEY_ERROR_TEXT);
}

/// Stores error 401, unless there is no memory left even for that.
void saveOutOfMemory(void *handle, const std::bad_alloc &exception, const char *function, int line)
{
    try {
        CloudError(errors::OUT_OF_MEMORY, QString(),
                   makeOutOfMemoryTrace(exception, toText(function), SOURCE_NAME, line))
            .saveToHandle(handle);
    } catch (const std::bad_alloc &) {
    }
}

/// The outcome of the call is settled when its log is sent; the log never changes it.
void sendCloudLog(CloudManager &manager)
{
    try {
        manager.sendCloudLog();
    } catch (const std::bad_alloc &) {
    }
}

/// One service or file call on one handle.
struct ServiceCall {
    void *const handle;
    /// Keeps the handle's address from being given out again while the call runs; null if unknown.
    const QSharedPointer<CloudHandle> record;
    CloudManager manager;
};

/// What all service and file calls share. @p operation takes the ServiceCall.
template <typename Operation>
int runOperation(void *handle, const char *function, const QString &arguments, Operation operation)
{
    ServiceCall call{handle, registry()->acquire(handle), CloudManager(handle)};
    CloudError(errors::NONE).saveToHandle(handle);
    recordCall(handle, function, arguments);

    int result = 0;
    try {
        if (operation(call)) {
            trimErrorText(handle);
            result = 1;
        }
    } catch (const std::bad_alloc &exception) {
        saveOutOfMemory(handle, exception, function, __LINE__);
    } catch (...) {
        sendCloudLog(call.manager);
        throw;
    }
    sendCloudLog(call.manager);
    return result;
}

/// Receives, and hands out the data in the return buffer; false also when the handle has been
/// disposed of meanwhile, or when there is no memory for the buffer, which stores an error.
bool receive(ServiceCall &call, const char **data, int *dataSize)
{
    *data = nullptr;
    *dataSize = 0;
    if (!call.manager.recvData())
        return false;
    const QByteArray received = call.record->getRecvData();
    if (received.size() > std::numeric_limits<int>::max())
        throw std::bad_alloc(); // more than the interface can hand over
    const char *buffer = call.record->getRecvDataChar();
    if (call.record->isCancelled() || buffer == CloudHandle::empty)
        return false;
    *data = buffer;
    *dataSize = static_cast<int>(received.size());
    return true;
}

bool refuseNullPointer(void *handle, const char **data, const int *dataSize)
{
    const QString detail = (data ? QStringLiteral("data:not0") : QStringLiteral("data:0"))
        + (dataSize ? QStringLiteral(",dataSize:not0") : QStringLiteral(",dataSize:0"));
    CloudError(errors::NULL_POINTER, QString(), detail).saveToHandle(handle);
    return false;
}

bool saveFileOpenError(void *handle, const QString &path)
{
    CloudError(errors::FILE_OPEN_FAILED, QString(), makeDetail(FILE_PATH_LABEL, path))
        .saveToHandle(handle);
    return false;
}

bool sendFile(ServiceCall &call, const QString &path)
{
    const FileDescriptor file(openFile(QFile::encodeName(path).constData(), O_RDONLY));
    if (!file.isOpen())
        return saveFileOpenError(call.handle, path);
    registry()->setSendFileName(call.handle, QFileInfo(path).fileName());
    return call.manager.sendData(readToEnd(file.get()));
}

/// Removes an incomplete file; a device or a pipe is left where it is.
void removeIncompleteFile(const char *filePath)
{
    struct stat status;
    if (lstat(filePath, &status) == 0 && (S_ISREG(status.st_mode) || S_ISLNK(status.st_mode)))
        std::remove(filePath);
}

bool receiveFile(ServiceCall &call, const char *filePath)
{
    // Of a handle that has been disposed of there is nothing to write.
    if (!call.manager.recvData() || call.record->isCancelled())
        return false;
    const QString path = toText(filePath);
    const FileDescriptor file(
        openFile(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_TRUNC));
    if (!file.isOpen())
        return saveFileOpenError(call.handle, path);

    const QByteArray received = call.record->getRecvData();
    const ssize_t written =
        writeBytes(file.get(), received.constData(), static_cast<size_t>(received.size()));
    if (written == received.size())
        return true;

    removeIncompleteFile(filePath);
    const QString sizes =
        QStringLiteral("%1/%2").arg(QString::number(written), QString::number(received.size()));
    CloudError(errors::FILE_WRITE_FAILED, QString(),
               makeDetail(QStringLiteral("(file size)"), sizes))
        .saveToHandle(call.handle);
    return false;
}

/// Disposes of all handles until no other thread is inside a call: one that is on its way out may
/// still clone its handle for the log.
/// @return true when no call is left at all
bool stopAllCalls()
{
    const QDeadlineTimer deadline(CLOSE_WAIT_MS);
    bool othersHaveLeft = false;
    do {
        registry()->disposeAllHandles();
        othersHaveLeft = CallScope::waitForOtherThreads(CLOSE_POLL_MS);
    } while (!othersHaveLeft && !deadline.hasExpired());
    return othersHaveLeft && !CallScope::isActiveOnThisThread();
}

} // namespace

int korrinOpen(void)
{
    traceEntry("korrinOpen");
    const std::lock_guard<std::recursive_mutex> lock(openCloseMutex);
    if (cloudOpened)
        return 1;
    try {
        ApplicationObject::create();
        ApiProperties::getInstance();
        registry();
    } catch (const std::bad_alloc &exception) {
        traceOutOfMemory(exception, QStringLiteral("korrinOpen"), SOURCE_NAME, __LINE__);
        return 0;
    }
    cloudOpened = true;
    return 1;
}

int korrinClose(void)
{
    traceEntry("korrinClose");
    const std::lock_guard<std::recursive_mutex> lock(openCloseMutex);
    cloudOpened = false;
    // A call that is still running, here in a nested event loop, goes on using what it has.
    if (stopAllCalls()) {
        ApiProperties::destroyInstance();
        HandleManager::destroyInstance();
        ApplicationObject::destroy();
    }
    return 1;
}

const char *korrinGetSoftVersion(void)
{
    return ApiProperties::API_SOFT_VERSION;
}

int korrinEnableDebugOutput(int enable)
{
    DebugOutput::enabled = enable != 0;
    return 1;
}

void *korrinCreateHandle(void)
{
    const CallScope scope;
    traceEntry("korrinCreateHandle");
    if (!isCloudOpened())
        return nullptr;
    void *handle = registry()->createHandle();
    if (!handle)
        return nullptr;
    try {
        recordCall(handle, "korrinCreateHandle", NO_ARGUMENTS);
    } catch (...) {
        registry()->disposeHandle(handle);
        throw;
    }
    return handle;
}

int korrinDisposeHandle(void *handle)
{
    const CallScope scope;
    traceEntry("korrinDisposeHandle");
    if (!isCloudOpened())
        return 0;
    return registry()->disposeHandle(handle) ? 1 : 0;
}

int korrinSetParameter(void *handle, const char *key, const char *value)
{
    const CallScope scope;
    traceEntry("korrinSetParameter");
    if (!isCloudOpened())
        return 0;
    CloudError(errors::NONE).saveToHandle(handle);
    recordCall(handle, "korrinSetParameter",
               QStringLiteral("%1:%2,%3:%4")
                   .arg(QStringLiteral("key"), toText(key), QStringLiteral("data"), toText(value)));
    try {
        const QString trimmedKey = toText(key).trimmed();
        if (!CloudManager::isSettableParameter(trimmedKey)) {
            CloudError(errors::INVALID_PARAMETER_KEY).saveToHandle(handle);
            return 0;
        }
        registry()->setParameter(handle, trimmedKey, toText(value).trimmed());
        DebugOutput() << QStringLiteral("(%1) %2").arg(toText(key), toText(value));
        return 1;
    } catch (const std::bad_alloc &exception) {
        saveOutOfMemory(handle, exception, "korrinSetParameter", __LINE__);
        return 0;
    }
}

const char *korrinGetParameter(void *handle, const char *key)
{
    const CallScope scope;
    traceEntry("korrinGetParameter");
    static const char empty[1] = "";
    if (!isCloudOpened())
        return empty;
    try {
        return registry()->getParameterChar(handle, toText(key));
    } catch (const std::bad_alloc &exception) {
        saveOutOfMemory(handle, exception, "korrinGetParameter", __LINE__);
        return empty;
    }
}

int korrinCheckEnable(void *handle)
{
    const CallScope scope;
    traceEntry("korrinCheckEnable");
    if (!isCloudOpened())
        return 0;
    return runOperation(handle, "korrinCheckEnable", NO_ARGUMENTS,
                        [](ServiceCall &call) { return call.manager.checkEnable(); });
}

int korrinSendData(void *handle, const char *data, int dataSize)
{
    const CallScope scope;
    traceEntry("korrinSendData");
    if (!isCloudOpened())
        return 0;
    const QByteArray bytes = QByteArray::fromRawData(orEmpty(data), data ? qMax(dataSize, 0) : 0);
    const QString arguments =
        QStringLiteral("%1:%2,%3:%4")
            .arg(QStringLiteral("data"), textBeforeNul(bytes, MAX_RECORDED_DATA_CHARACTERS),
                 QStringLiteral("dataSize"), QString::number(dataSize));
    return runOperation(handle, "korrinSendData", arguments, [&bytes](ServiceCall &call) {
        return call.manager.sendData(QByteArray(bytes.constData(), bytes.size()));
    });
}

int korrinRecvData(void *handle, const char **data, int *dataSize)
{
    const CallScope scope;
    traceEntry("korrinRecvData");
    if (!isCloudOpened())
        return 0;
    return runOperation(handle, "korrinRecvData", NO_ARGUMENTS, [=](ServiceCall &call) {
        return data && dataSize ? receive(call, data, dataSize)
                                : refuseNullPointer(call.handle, data, dataSize);
    });
}

int korrinSendFile(void *handle, const char *filePath)
{
    const CallScope scope;
    traceEntry("korrinSendFile");
    if (!isCloudOpened())
        return 0;
    const QString path = toText(filePath);
    return runOperation(handle, "korrinSendFile", makeDetail(FILE_PATH_LABEL, path),
                        [&](ServiceCall &call) { return sendFile(call, path); });
}

int korrinRecvFile(void *handle, const char *filePath)
{
    const CallScope scope;
    traceEntry("korrinRecvFile");
    if (!isCloudOpened())
        return 0;
    return runOperation(handle, "korrinRecvFile", makeDetail(FILE_PATH_LABEL, toText(filePath)),
                        [=](ServiceCall &call) { return receiveFile(call, orEmpty(filePath)); });
}
