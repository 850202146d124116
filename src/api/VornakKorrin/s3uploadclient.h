#ifndef KORRIN_S3UPLOADCLIENT_H
#define KORRIN_S3UPLOADCLIENT_H

#include "client.h"

/// Client of the mode "s3_upload": puts the data as one object into the bucket at "server_url".
class S3UploadClient : public Client
{
public:
    using Client::Client;

    bool send(const QByteArray &data) override;
    QString getModeName() const override;
    QString getModePath() const override;
    bool makeSendRequestData(const QByteArray &data) override;

private:
    QUrl makeObjectUrl() const;
};

#endif
