#include "remoteaccessclient.h"

#include "requestquery.h"

QString RemoteAccessClient::getModeName() const
{
    return clouddefs::PVAL_MODE_REMOTE_ACCESS;
}

QString RemoteAccessClient::getModePath() const
{
    return clouddefs::PATH_MODE_REMOTE_ACCESS;
}

bool RemoteAccessClient::makeCheckEnableRequestData()
{
    RequestQuery query;
    query.add(clouddefs::QKEY_IS, clouddefs::QVAL_IS_CHKRA)
        .add(clouddefs::QKEY_LANG, getParameter(clouddefs::PKEY_LANGUAGE_CODE))
        .add(clouddefs::QKEY_PN, getParameter(clouddefs::PKEY_PRODUCT_NO))
        .add(clouddefs::QKEY_SV, getParameter(clouddefs::PKEY_SOFT_VER));
    setRequestData(query);
    return true;
}
