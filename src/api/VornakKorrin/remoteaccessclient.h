#ifndef KORRIN_REMOTEACCESSCLIENT_H
#define KORRIN_REMOTEACCESSCLIENT_H

#include "client.h"

/// Client of the modes "remote_access" and "submit_info": asks whether remote access is enabled.
/// Sends and receives carry no request data of their own.
class RemoteAccessClient : public Client
{
public:
    using Client::Client;

    QString getModeName() const override;
    QString getModePath() const override;
    bool makeCheckEnableRequestData() override;
};

#endif
