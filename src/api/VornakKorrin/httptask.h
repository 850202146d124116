#ifndef KORRIN_HTTPTASK_H
#define KORRIN_HTTPTASK_H

#include "clouderror.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QObject>
#include <QSharedPointer>

#include <exception>

class CloudHandle;
class QAuthenticator;
class QEventLoop;
class QNetworkAccessManager;
class QNetworkProxy;
class QTimer;

/// Runs one blocking HTTP exchange for a handle.
///
/// The user sets the URL of @c request and calls start(), which waits in a nested event loop until
/// the exchange has finished, failed, fallen silent for longer than the time-out or been cancelled.
/// The request data come from the handle's send data; what arrived is left in its received data,
/// and a failure as an error on the handle.
///
/// All of it runs on the thread that made the task, except quit().
class HttpTask : public QObject
{
    Q_OBJECT

public:
    explicit HttpTask(void *taskHandle, QObject *parent = nullptr);
    ~HttpTask() override;

    /// Runs the exchange; true when the answer arrived and was accepted.
    virtual bool start() = 0;

    /// Cancels the exchange, now or as soon as it begins; may be called from any thread while the
    /// task is the handle's current one.
    virtual bool quit();

    QNetworkRequest request;
    bool ready = false; ///< construction has completed; start() fails at once otherwise
    /// The next exchange may use the same connection. Otherwise Qt's HTTP thread ends before the
    /// answer is judged, while it is still awake.
    bool keepsConnection = false;

protected:
    /// Bounds what waits between Qt's HTTP thread and the task, when the network is the faster.
    static constexpr qint64 READ_BUFFER_BYTES = 2 * 1024 * 1024;

    bool startGetRequest();
    bool startPostRequest();
    bool startPutRequest();
    bool startRequest(QNetworkReply *(HttpTask::*send)());

    virtual QNetworkReply *getFunc();
    virtual QNetworkReply *postFunc();
    virtual QNetworkReply *putFunc();

    /// Resets the task for an exchange.
    virtual bool init();

    /// Judges the answer of a successful transfer.
    virtual bool processResponse();

    /// quit() has arrived on the task's own thread.
    void customEvent(QEvent *event) override;

    void *const handle; ///< not owned

private Q_SLOTS:
    virtual void httpUploadProgress(qint64 bytesSend, qint64 bytesTotal);
    virtual void httpDownloadProgress(qint64 bytesRecv, qint64 bytesTotal);
    virtual void httpFinished();
    void httpError(QNetworkReply::NetworkError networkError);
    void timeoutError();
    void proxyAuthenication(const QNetworkProxy &proxy, QAuthenticator *auth);

private:
    void configureHttpTask();
    void configureProxy();
    void configureTimeout();
    void configureRequest();
    void sendRequest();
    void waitForEnd();
    void connectReply();

    /// Connects a slot that Qt calls from the nested event loop, which no exception may pass: when
    /// memory runs out the loop ends, and startRequest() throws on.
    template <typename Sender, typename Signal, typename... Arguments>
    QMetaObject::Connection connectGuarded(Sender *sender, Signal signal,
                                           void (HttpTask::*slot)(Arguments...));

    void repeatWithTunnelCredentials();
    void refuseEndlessChallenges();
    void traceRequest() const;
    void traceProgress(const QString &label, qint64 bytes, qint64 bytesTotal);
    void httpHeadersReceived();
    void checkCompleteness();
    void setNetworkError(int code, const QString &message);
    int httpStatus() const;
    void restartTimer();
    void readReply();
    void abandonReply();
    QByteArray getSendData() const;
    bool isCancelled() const;
    void setCurrent(HttpTask *task);

    const QSharedPointer<CloudHandle> record; ///< keeps the handle's memory while the task lives
    CloudError error;                         ///< of this exchange; number 0 while there is none
    std::exception_ptr outOfMemory;           ///< thrown by a slot of this exchange
    QByteArray receivedData;
    QElapsedTimer sessionTime;
    int timeoutMs;
    QString proxyUser;
    QString proxyPassword;
    QMetaObject::Connection proxyConnection;
    bool isTunnelChallenged = false; ///< by the proxy, with the credentials still to be sent
    QNetworkReply *(HttpTask::*sendFunc)() = nullptr; ///< of this exchange
    qint64 uploadedBytes = 0;                         ///< at the last progress of the upload
    int uploadStarts = 0;                             ///< how often the upload has begun

    QNetworkAccessManager *manager = nullptr; ///< children of the task
    QEventLoop *eventLoop = nullptr;
    QTimer *timer = nullptr;
    QNetworkReply *reply = nullptr; ///< the reply in flight; owned by the manager
};

#endif
