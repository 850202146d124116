#include "httptask.h"

#include "bytearraysize.h"
#include "cloudhandle.h"
#include "debugoutput.h"
#include "descriptors.h"
#include "handlemanager.h"
#include "qtcompat.h"
#include "requestquery.h"
#include "requesturl.h"
#include "textconversion.h"

#include <QAuthenticator>
#include <QCoreApplication>
#include <QEvent>
#include <QEventLoop>
#include <QMutexLocker>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QTimer>
#include <QUrl>

#include <new>

namespace
{

constexpr int CONSTRUCTOR_LINE = 47;
constexpr int DEFAULT_TIMEOUT_MS = 30000;
constexpr quint32 MS_PER_SECOND = 1000;
constexpr qsizetype MAX_TRACED_SEND_BYTES = 1000000;
// More than connections lost on the way and a chain of challenges take.
constexpr int MAX_UPLOAD_STARTS = 20;
const QString HTTPS_SCHEME = QStringLiteral("https");
const QString TRACED_CONTENT_TYPE = QStringLiteral("text/");
const QString CONNECTION_CLOSED = QStringLiteral("Connection closed");
const QString NO_DESCRIPTORS = QStringLiteral("Too many open files");
const QString NO_APPLICATION = QStringLiteral("The QCoreApplication is gone");
const QString TOO_MANY_CHALLENGES = QStringLiteral("Authentication does not end");
const QByteArray POST_VERB = QByteArrayLiteral("POST");
const QByteArray PUT_VERB = QByteArrayLiteral("PUT");

/// Qt's code for a failed exchange, with every answer of status 400 and up among the content
/// errors: since Qt 5.3 some of them have groups or codes of their own.
int contentErrorCode(QNetworkReply::NetworkError code, int httpStatus)
{
    const bool serverError = code > 400 && code < 500;
    const bool refusedRequest =
        code == QNetworkReply::ProtocolInvalidOperationError && httpStatus >= 400;
    const bool conflictOrGone =
        code == QNetworkReply::ContentConflictError || code == QNetworkReply::ContentGoneError;
    if (serverError || refusedRequest || conflictOrGone)
        return QNetworkReply::UnknownContentError;
    // Without a status it is that of a file which may not be read.
    if (code == QNetworkReply::ContentAccessDenied && httpStatus == 403)
        return QNetworkReply::ContentOperationNotPermittedError;
    return code;
}

int errorNumberOf(int networkErrorCode)
{
    switch (networkErrorCode / 100) {
    case 0:
        return errors::CONNECTION;
    case 1:
        return errors::PROXY;
    case 2:
        return errors::CONTENT;
    case 3:
        return errors::PROTOCOL;
    default:
        return errors::NETWORK;
    }
}

/// What the process lacks, where Qt would end it or wait for ever; empty when it is fit to go.
QString missingResource()
{
    if (!QCoreApplication::instance())
        return NO_APPLICATION;
    return Descriptors::areLeft() ? QString() : NO_DESCRIPTORS;
}

/// @p seconds in milliseconds, wrapped to 32 bits.
int toMilliseconds(int seconds)
{
    return static_cast<int>(static_cast<quint32>(seconds) * MS_PER_SECOND);
}

} // namespace

HttpTask::HttpTask(void *taskHandle, QObject *parent)
    : QObject(parent), handle(taskHandle),
      record(HandleManager::getInstance()->acquire(taskHandle)), timeoutMs(DEFAULT_TIMEOUT_MS)
{
    const QString missing = missingResource();
    if (!missing.isEmpty()) {
        setNetworkError(QNetworkReply::UnknownNetworkError, missing);
        error.saveToHandle(handle);
        return;
    }
    try {
        manager = new QNetworkAccessManager(this);
        eventLoop = new QEventLoop(this);
        timer = new QTimer(this);
    } catch (const std::bad_alloc &exception) {
        qDeleteAll(children());
        error = CloudError(errors::OUT_OF_MEMORY, QString(),
                           makeOutOfMemoryTrace(exception, QStringLiteral("HttpTask"),
                                                QStringLiteral("httptask"), CONSTRUCTOR_LINE));
        error.saveToHandle(handle);
        return;
    }

    configureHttpTask();
    connect(timer, &QTimer::timeout, eventLoop, &QEventLoop::quit);
    connectGuarded(timer, &QTimer::timeout, &HttpTask::timeoutError);
    // Last, since no destructor would take it back; a disposal until here is seen by isCancelled().
    setCurrent(this);
    ready = true;
}

HttpTask::~HttpTask()
{
    setCurrent(nullptr);
}

bool HttpTask::quit()
{
    QCoreApplication::postEvent(this, new QEvent(QEvent::User));
    return true;
}

void HttpTask::customEvent(QEvent *)
{
    if (reply)
        reply->abort();
}

void HttpTask::configureHttpTask()
{
    qtcompat::ignoreNetworkState(manager);
    configureProxy();
    configureTimeout();
    configureRequest();
}

void HttpTask::configureProxy()
{
    const HandleManager *handles = HandleManager::getInstance();
    if (handles->isParameterEmpty(handle, clouddefs::PKEY_HTTP_PROXY)) {
        manager->setProxy(QNetworkProxy::NoProxy);
        return;
    }
    const QUrl server =
        RequestUrl::parse(handles->getParameter(handle, clouddefs::PKEY_SERVER_URL));
    const QUrl url = RequestUrl::parse(handles->getParameter(handle, clouddefs::PKEY_HTTP_PROXY));
    QNetworkProxy proxy(server.scheme() == HTTPS_SCHEME ? QNetworkProxy::HttpProxy
                                                        : QNetworkProxy::HttpCachingProxy);
    proxy.setHostName(url.host());
    proxy.setPort(static_cast<quint16>(url.port()));
    manager->setProxy(proxy);
    // Kept apart from the proxy: Qt would answer a tunnel's first challenge with them itself, and
    // ask for the second.
    proxyUser = withoutLineBreaks(url.userName());
    proxyPassword = url.password();
    proxyConnection = connectGuarded(manager, &QNetworkAccessManager::proxyAuthenticationRequired,
                                     &HttpTask::proxyAuthenication);
}

void HttpTask::configureTimeout()
{
    timer->setSingleShot(true);
    timer->setTimerType(Qt::PreciseTimer); // a coarse one may fire 5 % too early
    bool isNumber = false;
    const int seconds = HandleManager::getInstance()
                            ->getParameter(handle, clouddefs::PKEY_RECV_TIMEOUT)
                            .toInt(&isNumber);
    if (isNumber && seconds >= 1)
        timeoutMs = toMilliseconds(seconds);
}

// States what differs between Qt's majors or what a later Qt could change.
void HttpTask::configureRequest()
{
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    qtcompat::allowHighCompression(&request);
}

bool HttpTask::startGetRequest()
{
    const QByteArray query = RequestQuery::fromRawData(getSendData());
    QUrl url = request.url();
    url.setQuery(query.isEmpty() ? QString() : QString::fromLatin1(query));
    request.setUrl(url);
    HandleManager::getInstance()->setSendData(handle, QByteArray());
    DebugOutput::writeMarker("-- GET request start --");
    return startRequest(&HttpTask::getFunc);
}

bool HttpTask::startPostRequest()
{
    DebugOutput::writeMarker("-- POST request start --");
    return startRequest(&HttpTask::postFunc);
}

bool HttpTask::startPutRequest()
{
    DebugOutput::writeMarker("-- PUT request start --");
    return startRequest(&HttpTask::putFunc);
}

bool HttpTask::startRequest(QNetworkReply *(HttpTask::*send)())
{
    if (!ready || !init())
        return false;
    traceRequest();
    if (isCancelled()) {
        error = CloudError(errors::CONNECTION);
        error.saveToHandle(handle);
        return false;
    }

    qtcompat::closeSlowConnections(manager);
    sessionTime.start();
    sendFunc = send;
    sendRequest();
    waitForEnd();
    timer->stop();

    if (outOfMemory)
        std::rethrow_exception(outOfMemory);
    if (error.number != errors::NONE) {
        error.saveToHandle(handle);
        return false;
    }
    if (!keepsConnection)
        manager->clearConnectionCache();
    return processResponse();
}

void HttpTask::waitForEnd()
{
    eventLoop->exec(QEventLoop::ExcludeUserInputEvents);
    // QThread::quit and QCoreApplication::quit end all event loops of the host's thread, those to
    // come included; the exchange goes on.
    while (reply && !outOfMemory)
        eventLoop->processEvents(QEventLoop::ExcludeUserInputEvents
                                 | QEventLoop::WaitForMoreEvents);
}

void HttpTask::sendRequest()
{
    uploadedBytes = 0;
    uploadStarts = 0;
    reply = (this->*sendFunc)();
    connectReply();
    restartTimer();
}

void HttpTask::connectReply()
{
    connectGuarded(reply, &QNetworkReply::uploadProgress, &HttpTask::httpUploadProgress);
    connectGuarded(reply, &QNetworkReply::downloadProgress, &HttpTask::httpDownloadProgress);
    connectGuarded(reply, &QNetworkReply::finished, &HttpTask::httpFinished);
    connectGuarded(reply, &QNetworkReply::errorOccurred, &HttpTask::httpError);
    connect(reply, &QNetworkReply::finished, eventLoop, &QEventLoop::quit);

    // Qt withholds progress signals that follow each other within 100 ms, and all the body's bytes
    // would pile up in the reply.
    connectGuarded(reply, &QNetworkReply::metaDataChanged, &HttpTask::httpHeadersReceived);
    connectGuarded(reply, &QNetworkReply::readyRead, &HttpTask::readReply);
}

template <typename Sender, typename Signal, typename... Arguments>
QMetaObject::Connection HttpTask::connectGuarded(Sender *sender, Signal signal,
                                                 void (HttpTask::*slot)(Arguments...))
{
    return connect(sender, signal, this, [this, slot](Arguments... arguments) {
        try {
            if (reply)
                (this->*slot)(arguments...);
        } catch (const std::bad_alloc &) {
            outOfMemory = std::current_exception();
            if (reply)
                disconnect(reply, nullptr, this, nullptr);
            eventLoop->quit();
        }
    });
}

QNetworkReply *HttpTask::getFunc()
{
    return manager->get(request);
}

QNetworkReply *HttpTask::postFunc()
{
    // QNetworkAccessManager::post() would add a Content-Type, and warn that it was missing.
    return manager->sendCustomRequest(request, POST_VERB, getSendData());
}

QNetworkReply *HttpTask::putFunc()
{
    // QNetworkAccessManager::put() would write a local file when the URL names one.
    return manager->sendCustomRequest(request, PUT_VERB, getSendData());
}

bool HttpTask::init()
{
    error = CloudError();
    outOfMemory = nullptr;
    isTunnelChallenged = false;
    receivedData.clear();
    HandleManager::getInstance()->setRecvData(handle, QByteArray());
    return true;
}

bool HttpTask::processResponse()
{
    return true;
}

void HttpTask::httpHeadersReceived()
{
    restartTimer();
    const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
    if (!length.isValid() || length.toLongLong() > READ_BUFFER_BYTES)
        reply->setReadBufferSize(READ_BUFFER_BYTES);
}

void HttpTask::httpUploadProgress(qint64 bytesSend, qint64 bytesTotal)
{
    traceProgress(QStringLiteral("(Sending...)"), bytesSend, bytesTotal);
    if (bytesSend <= uploadedBytes && ++uploadStarts > MAX_UPLOAD_STARTS)
        refuseEndlessChallenges();
    uploadedBytes = bytesSend;
}

// Qt answers an NTLM challenge that names no challenge with its first message, however often that
// is refused; sending the body again and again would be taken for progress for ever.
void HttpTask::refuseEndlessChallenges()
{
    const bool isProxys = manager->proxy().type() != QNetworkProxy::NoProxy;
    setNetworkError(isProxys ? QNetworkReply::ProxyAuthenticationRequiredError
                             : QNetworkReply::AuthenticationRequiredError,
                    TOO_MANY_CHALLENGES);
    abandonReply();
    eventLoop->quit();
}

void HttpTask::httpDownloadProgress(qint64 bytesRecv, qint64 bytesTotal)
{
    traceProgress(QStringLiteral("(Receiving...)"), bytesRecv, bytesTotal);
}

void HttpTask::httpFinished()
{
    if (reply->isReadable())
        readReply();
    checkCompleteness();
    HandleManager::getInstance()->setRecvData(handle, receivedData);
    const QString contentType = reply->header(QNetworkRequest::ContentTypeHeader).toString();
    if (DebugOutput::enabled && contentType.contains(TRACED_CONTENT_TYPE)) {
        DebugOutput() << QStringLiteral("%1 %2").arg(QStringLiteral("(Received Data)"),
                                                     textBeforeNul(receivedData));
    }
    DebugOutput() << QStringLiteral("(session time) %1 msec").arg(sessionTime.elapsed());
    DebugOutput::writeMarker("-- request end --");
    receivedData.clear();
    reply->deleteLater();
    reply = nullptr;
}

void HttpTask::httpError(QNetworkReply::NetworkError networkError)
{
    if (isTunnelChallenged && networkError == QNetworkReply::ProxyAuthenticationRequiredError)
        repeatWithTunnelCredentials();
    else
        setNetworkError(contentErrorCode(networkError, httpStatus()), reply->errorString());
}

void HttpTask::setNetworkError(int code, const QString &message)
{
    CloudError newError(errorNumberOf(code));
    newError.text = newError.getDefaultErrorText();
    if (newError.number == errors::CONTENT && reply) {
        newError.text += QStringLiteral("(%1 %2)").arg(
            reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toString(),
            qtcompat::reasonPhrase(reply));
    }
    newError.detail =
        QStringLiteral("%1 (%2: %3 %4)")
            .arg(newError.text, QStringLiteral("QNetworkReply"), QString::number(code), message);
    error = newError;
}

int HttpTask::httpStatus() const
{
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

// Qt now and then takes a body that breaks off as complete.
void HttpTask::checkCompleteness()
{
    if (error.number != errors::NONE && error.number != errors::CONTENT)
        return;
    // Answers whose length says nothing of the bytes that arrive (RFC 9110, sections 8.6 and 15,
    // RFC 9112, section 6.3), and the one whose body Qt keeps to itself.
    const int status = httpStatus();
    if (status == 204 || status == 304 || status == 401 || reply->hasRawHeader("Content-Encoding")
        || reply->rawHeader("Transfer-Encoding").toLower().contains("chunked"))
        return;
    const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
    if (length.isValid() && receivedData.size() < length.toLongLong())
        setNetworkError(QNetworkReply::RemoteHostClosedError, CONNECTION_CLOSED);
}

void HttpTask::timeoutError()
{
    const QString value =
        HandleManager::getInstance()->getParameter(handle, clouddefs::PKEY_RECV_TIMEOUT);
    error = CloudError(errors::TIMEOUT, QString(), makeDetail(clouddefs::PKEY_RECV_TIMEOUT, value));
    abandonReply();
}

void HttpTask::proxyAuthenication(const QNetworkProxy &proxy, QAuthenticator *auth)
{
    const QByteArray challenge = reply->readAll();
    DebugOutput() << QString::fromLatin1(challenge);
    // One answer for each task: credentials that were refused once are not offered again.
    disconnect(proxyConnection);
    isTunnelChallenged = proxy.type() == QNetworkProxy::HttpProxy
        && !(proxyUser.isEmpty() && proxyPassword.isEmpty());
    if (isTunnelChallenged)
        return; // unanswered, the request fails at once
    auth->setUser(proxyUser);
    auth->setPassword(proxyPassword);
}

// Qt answers on the connection that brought the challenge, and crashes when the proxy has closed it
// without saying so. The answer goes out with a request of its own instead.
void HttpTask::repeatWithTunnelCredentials()
{
    isTunnelChallenged = false;
    disconnect(reply, nullptr, this, nullptr);
    disconnect(reply, nullptr, eventLoop, nullptr);
    reply->deleteLater();
    QNetworkProxy proxy = manager->proxy();
    const QByteArray credentials = (proxyUser + QLatin1Char(':') + proxyPassword).toLatin1();
    proxy.setRawHeader("Proxy-Authorization", "Basic " + credentials.toBase64());
    // The old manager would go on with the old proxy.
    manager = new QNetworkAccessManager(this);
    qtcompat::ignoreNetworkState(manager);
    manager->setProxy(proxy);
    sendRequest();
}

void HttpTask::traceRequest() const
{
    if (!DebugOutput::enabled)
        return;
    DebugOutput() << QStringLiteral("%1 %2").arg(QStringLiteral("(Request URL)"),
                                                 RequestUrl::toText(request.url()));
    DebugOutput() << QStringLiteral("%1 %2").arg(
        QStringLiteral("(Send Data)"), textBeforeNul(getSendData(), MAX_TRACED_SEND_BYTES));
}

void HttpTask::traceProgress(const QString &label, qint64 bytes, qint64 bytesTotal)
{
    restartTimer();
    if (!DebugOutput::enabled)
        return;
    DebugOutput() << QStringLiteral("%1 %2/%3 byte")
                         .arg(label, QString::number(bytes), QString::number(bytesTotal));
}

// A negative interval, which a large time-out wraps to, means no time-out.
void HttpTask::restartTimer()
{
    if (reply && timeoutMs >= 0)
        timer->start(timeoutMs);
}

void HttpTask::readReply()
{
    restartTimer();
    // Resizing moves the pages of a large block; appending would copy its bytes.
    const ByteArraySize oldSize = receivedData.size();
    const qint64 available = reply->bytesAvailable();
    receivedData.resize(toByteArraySize(oldSize + available));
    const qint64 read = reply->read(receivedData.data() + oldSize, available);
    receivedData.resize(oldSize + static_cast<ByteArraySize>(qMax(read, qint64(0))));
}

// The reply goes away with its deletion; until then nothing of it may reach a later exchange.
void HttpTask::abandonReply()
{
    disconnect(reply, nullptr, this, nullptr);
    disconnect(reply, nullptr, eventLoop, nullptr);
    httpFinished();
}

QByteArray HttpTask::getSendData() const
{
    return HandleManager::getInstance()->getSendData(handle);
}

bool HttpTask::isCancelled() const
{
    return record && record->isCancelled();
}

void HttpTask::setCurrent(HttpTask *task)
{
    if (!record)
        return;
    QMutexLocker locker(&record->mutex);
    record->currentHttpTask = task;
}
