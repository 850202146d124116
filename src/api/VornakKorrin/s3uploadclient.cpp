#include "s3uploadclient.h"

#include "clouderror.h"
#include "handlemanager.h"
#include "requesturl.h"
#include "s3uploader.h"

bool S3UploadClient::send(const QByteArray &data)
{
    S3Uploader task(handle);
    if (!task.ready)
        return false;
    task.request.setUrl(makeObjectUrl());
    if (!makeSendRequestData(data))
        return false;
    if (!task.start())
        return false;
    CloudError(errors::NONE).saveToHandle(handle);
    return true;
}

QString S3UploadClient::getModeName() const
{
    return clouddefs::PVAL_MODE_S3_UPLOAD;
}

QString S3UploadClient::getModePath() const
{
    return clouddefs::PATH_MODE_S3_UPLOAD;
}

bool S3UploadClient::makeSendRequestData(const QByteArray &data)
{
    HandleManager::getInstance()->setSendData(handle, data);
    return true;
}

QUrl S3UploadClient::makeObjectUrl() const
{
    const QUrl bucket = RequestUrl::fromText(getParameter(clouddefs::PKEY_SERVER_URL));
    const QString fileName = HandleManager::getInstance()->getSendFileName(handle);
    return RequestUrl::fromText(RequestUrl::toText(bucket) + fileName);
}
