#ifndef KORRIN_CLIENT_H
#define KORRIN_CLIENT_H

#include "clouddefs.h"

#include <QByteArray>
#include <QStringList>
#include <QUrl>

class RequestQuery;
class XmlHandler;

/// Base of the service clients: runs the three exchanges of a handle and judges their answers.
/// A service adds its URL path and request data. The outcome is left on the handle.
class Client
{
public:
    explicit Client(void *clientHandle);
    virtual ~Client() = default;
    Q_DISABLE_COPY(Client)

    /// Each returns true when the exchange succeeded and the server granted it; otherwise the
    /// reason is stored on the handle as an error.
    virtual bool checkEnable();
    virtual bool send(const QByteArray &data);
    virtual bool recv();

    virtual QString getModeName() const = 0;
    virtual QString getModePath() const = 0;

    /// The makers put their request data on the handle; false stops the exchange.
    virtual bool makeCheckEnableRequestData();
    virtual bool makeSendRequestData(const QByteArray &data);
    virtual bool makeRecvRequestData();

    virtual QStringList getCheckEnableResponseList() const;
    virtual QStringList getSendResponseList() const;

protected:
    QString getParameter(const QString &key) const;
    void setRequestData(const RequestQuery &query);

    void *const handle; ///< not owned

private:
    QUrl makeUrl(const QString &functionPath) const;
    void takeOverResponse(const XmlHandler &response, const QStringList &keys);
    bool judgeStatus();
};

#endif
