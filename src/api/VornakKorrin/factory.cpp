#include "factory.h"

#include "remoteaccessclient.h"
#include "s3uploadclient.h"
#include "updateclient.h"

QSharedPointer<Factory> Factory::forMode(const QString &mode)
{
    if (mode == clouddefs::PVAL_MODE_UPDATE)
        return QSharedPointer<UpdateFactory>::create();
    if (mode == clouddefs::PVAL_MODE_REMOTE_ACCESS || mode == clouddefs::PVAL_MODE_SUBMIT_INFO)
        return QSharedPointer<RemoteAccessFactory>::create();
    if (mode == clouddefs::PVAL_MODE_S3_UPLOAD)
        return QSharedPointer<S3UploadFactory>::create();
    return {};
}

QSharedPointer<Client> UpdateFactory::create(void *handle) const
{
    return QSharedPointer<UpdateClient>::create(handle);
}

QSharedPointer<Client> RemoteAccessFactory::create(void *handle) const
{
    return QSharedPointer<RemoteAccessClient>::create(handle);
}

QSharedPointer<Client> S3UploadFactory::create(void *handle) const
{
    return QSharedPointer<S3UploadClient>::create(handle);
}
