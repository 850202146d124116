#include "factory.h"

#include "makeshared.h"
#include "remoteaccessclient.h"
#include "s3uploadclient.h"
#include "updateclient.h"

QSharedPointer<Factory> Factory::forMode(const QString &mode)
{
    if (mode == clouddefs::PVAL_MODE_UPDATE)
        return makeShared<UpdateFactory>();
    if (mode == clouddefs::PVAL_MODE_REMOTE_ACCESS || mode == clouddefs::PVAL_MODE_SUBMIT_INFO)
        return makeShared<RemoteAccessFactory>();
    if (mode == clouddefs::PVAL_MODE_S3_UPLOAD)
        return makeShared<S3UploadFactory>();
    return {};
}

QSharedPointer<Client> UpdateFactory::create(void *handle) const
{
    return makeShared<UpdateClient>(handle);
}

QSharedPointer<Client> RemoteAccessFactory::create(void *handle) const
{
    return makeShared<RemoteAccessClient>(handle);
}

QSharedPointer<Client> S3UploadFactory::create(void *handle) const
{
    return makeShared<S3UploadClient>(handle);
}
