#include "updateclient.h"

#include "clouderror.h"
#include "requestquery.h"
#include "textconversion.h"

namespace
{

const QStringList checkEnableResponseList = {
    clouddefs::PKEY_IS,      clouddefs::PKEY_STATUS,       clouddefs::PKEY_STATUS_CODE,
    clouddefs::PKEY_MESSAGE, clouddefs::PKEY_NEW_SOFT_VER,
};
const QString UPDATE_SUCCEEDED = QStringLiteral("1");
const QString UPDATE_FAILED = QStringLiteral("0");
const QStringList sendResultValueList = {UPDATE_SUCCEEDED, UPDATE_FAILED};

} // namespace

QString UpdateClient::getModeName() const
{
    return clouddefs::PVAL_MODE_UPDATE;
}

QString UpdateClient::getModePath() const
{
    return clouddefs::PATH_MODE_UPDATE;
}

bool UpdateClient::makeCheckEnableRequestData()
{
    RequestQuery query;
    query.add(clouddefs::QKEY_IS, clouddefs::QVAL_IS_CHKUD)
        .add(clouddefs::QKEY_LANG, getParameter(clouddefs::PKEY_LANGUAGE_CODE))
        .add(clouddefs::QKEY_PN, getParameter(clouddefs::PKEY_PRODUCT_NO))
        .add(clouddefs::QKEY_SV, getParameter(clouddefs::PKEY_SOFT_VER));
    setRequestData(query);
    return true;
}

bool UpdateClient::makeRecvRequestData()
{
    RequestQuery query;
    query.add(clouddefs::QKEY_IS, clouddefs::QVAL_IS_DLUDF)
        .add(clouddefs::QKEY_LANG, getParameter(clouddefs::PKEY_LANGUAGE_CODE))
        .add(clouddefs::QKEY_NSV, getParameter(clouddefs::PKEY_NEW_SOFT_VER))
        .add(clouddefs::QKEY_FILE, getParameter(clouddefs::PKEY_DOWNLOAD_FILE_PATH));
    setRequestData(query);
    return true;
}

bool UpdateClient::makeSendRequestData(const QByteArray &data)
{
    const QString type = getParameter(clouddefs::PKEY_SEND_DATA_TYPE);
    if (type.isEmpty())
        return refuse(errors::PARAMETER_NOT_SET, clouddefs::PKEY_SEND_DATA_TYPE);
    if (type == clouddefs::PVAL_SEND_RESULT)
        return makeResultRequestData();
    if (type == clouddefs::PVAL_SEND_UPDATE_LOG)
        return makeUpdateLogRequestData(data);
    return refuse(errors::INVALID_PARAMETER_VALUE, clouddefs::PKEY_SEND_DATA_TYPE);
}

QStringList UpdateClient::getCheckEnableResponseList() const
{
    return checkEnableResponseList;
}

bool UpdateClient::makeResultRequestData()
{
    const QString result = getParameter(clouddefs::PKEY_RESULT);
    if (result.isEmpty())
        return refuse(errors::PARAMETER_NOT_SET, clouddefs::PKEY_RESULT);
    if (!sendResultValueList.contains(result))
        return refuse(errors::INVALID_PARAMETER_VALUE, clouddefs::PKEY_RESULT);

    // "nsv" carries the version that is now installed.
    RequestQuery query;
    query.add(clouddefs::QKEY_IS, clouddefs::QVAL_IS_NSV)
        .add(clouddefs::QKEY_LANG, getParameter(clouddefs::PKEY_LANGUAGE_CODE))
        .add(clouddefs::QKEY_PN, getParameter(clouddefs::PKEY_PRODUCT_NO))
        .add(clouddefs::QKEY_ST, result)
        .add(clouddefs::QKEY_NSV, getParameter(clouddefs::PKEY_SOFT_VER));
    setRequestData(query);
    return true;
}

bool UpdateClient::makeUpdateLogRequestData(const QByteArray &data)
{
    RequestQuery query;
    query.add(clouddefs::QKEY_IS, clouddefs::QVAL_IS_UDLOG)
        .add(clouddefs::QKEY_LANG, getParameter(clouddefs::PKEY_LANGUAGE_CODE))
        .add(clouddefs::QKEY_PN, getParameter(clouddefs::PKEY_PRODUCT_NO))
        .add(clouddefs::QKEY_DATA, textBeforeNul(data));
    setRequestData(query);
    return true;
}

bool UpdateClient::refuse(int errorNumber, const QString &key)
{
    CloudError(errorNumber, QString(), makeDetail(key, getParameter(key))).saveToHandle(handle);
    return false;
}
