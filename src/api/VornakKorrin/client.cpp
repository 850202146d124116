#include "client.h"

#include "clouderror.h"
#include "downloader.h"
#include "enablechecker.h"
#include "handlemanager.h"
#include "requestquery.h"
#include "requesturl.h"
#include "uploader.h"

namespace
{

const QStringList responseList = {
    clouddefs::PKEY_IS,
    clouddefs::PKEY_STATUS,
    clouddefs::PKEY_STATUS_CODE,
    clouddefs::PKEY_MESSAGE,
};
const QString RESPONSE_YES = QStringLiteral("1");

} // namespace

Client::Client(void *clientHandle) : handle(clientHandle) { }

bool Client::checkEnable()
{
    HandleManager::getInstance()->clearParameter(handle, getCheckEnableResponseList());
    EnableChecker task(handle);
    if (!task.ready)
        return false;
    task.request.setUrl(makeUrl(clouddefs::PATH_FUNC_SEARCH));
    if (!makeCheckEnableRequestData())
        return false;
    if (!task.start())
        return false;
    takeOverResponse(task.xmlHandler, getCheckEnableResponseList());
    return judgeStatus();
}

bool Client::send(const QByteArray &data)
{
    HandleManager::getInstance()->clearParameter(handle, getSendResponseList());
    Uploader task(handle);
    if (!task.ready)
        return false;
    task.request.setUrl(makeUrl(clouddefs::PATH_FUNC_UPLOAD));
    if (!makeSendRequestData(data))
        return false;
    if (!task.start())
        return false;
    takeOverResponse(task.xmlHandler, getSendResponseList());
    return judgeStatus();
}

bool Client::recv()
{
    HandleManager *manager = HandleManager::getInstance();
    manager->clearParameter(handle, responseList);
    Downloader task(handle);
    if (!task.ready)
        return false;
    task.request.setUrl(makeUrl(clouddefs::PATH_FUNC_DOWNLOAD));
    makeRecvRequestData(); // a download goes on without request data of its own
    if (!task.start())
        return false;
    const QString size = QString::number(manager->getRecvData(handle).size());
    CloudError(errors::NONE, QString(), makeDetail(QStringLiteral("(data size)"), size))
        .saveToHandle(handle);
    return true;
}

bool Client::makeCheckEnableRequestData()
{
    return true;
}

bool Client::makeSendRequestData(const QByteArray &)
{
    return true;
}

bool Client::makeRecvRequestData()
{
    return true;
}

QStringList Client::getCheckEnableResponseList() const
{
    return responseList;
}

QStringList Client::getSendResponseList() const
{
    return responseList;
}

QString Client::getParameter(const QString &key) const
{
    return HandleManager::getInstance()->getParameter(handle, key);
}

void Client::setRequestData(const RequestQuery &query)
{
    HandleManager::getInstance()->setSendData(handle, query.toEncoded());
}

QUrl Client::makeUrl(const QString &functionPath) const
{
    QUrl url = RequestUrl::fromText(getParameter(clouddefs::PKEY_SERVER_URL));
    url.setPath(getModePath() + functionPath);
    return url;
}

void Client::takeOverResponse(const XmlHandler &response, const QStringList &keys)
{
    for (const QString &key : keys) {
        HandleManager::getInstance()->setParameter(handle, key, response.elementValues.value(key));
    }
}

bool Client::judgeStatus()
{
    const QString status = getParameter(clouddefs::PKEY_STATUS);
    const QString statusCode = getParameter(clouddefs::PKEY_STATUS_CODE);
    const QString message = getParameter(clouddefs::PKEY_MESSAGE);
    const bool granted = status == RESPONSE_YES;
    CloudError(granted ? errors::NONE : errors::STATUS, message, makeDetail(statusCode, message))
        .saveToHandle(handle);
    return granted;
}
