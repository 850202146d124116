#ifndef KORRIN_UPDATECLIENT_H
#define KORRIN_UPDATECLIENT_H

#include "client.h"

/// Client of the mode "update": asks for a newer version, downloads it, reports result and log.
class UpdateClient : public Client
{
public:
    using Client::Client;

    QString getModeName() const override;
    QString getModePath() const override;
    bool makeCheckEnableRequestData() override;
    bool makeSendRequestData(const QByteArray &data) override;
    bool makeRecvRequestData() override;
    QStringList getCheckEnableResponseList() const override;

private:
    bool makeResultRequestData();
    bool makeUpdateLogRequestData(const QByteArray &data);
    bool refuse(int errorNumber, const QString &key);
};

#endif
