#include "cloudmanager.h"

#include "client.h"
#include "clouderror.h"
#include "cloudlogsender.h"
#include "debugoutput.h"
#include "factory.h"
#include "handlemanager.h"

#include <QStringList>

#include <new>

namespace
{

const QStringList settableParamList = {
    clouddefs::PKEY_HTTP_PROXY,
    clouddefs::PKEY_HTTPS_PROXY,
    clouddefs::PKEY_SERVER_URL,
    clouddefs::PKEY_RECV_TIMEOUT,
    clouddefs::PKEY_LANGUAGE_CODE,
    clouddefs::PKEY_PRODUCT_NAME,
    clouddefs::PKEY_PRODUCT_NO,
    clouddefs::PKEY_MODE,
    clouddefs::PKEY_RESULT,
    clouddefs::PKEY_SOFT_VER,
    clouddefs::PKEY_DOWNLOAD_FILE_PATH,
    clouddefs::PKEY_SEND_DATA_TYPE,
    clouddefs::PKEY_CLOUD_LOG_FILE_SAVE_DIR,
    clouddefs::PKEY_CLOUD_LOG_FILE_MAX_SIZE,
    clouddefs::PKEY_AWS_ACCESS_KEY,
    clouddefs::PKEY_AWS_SECRET_ACCESS_KEY,
};

const QStringList essentialParamList = {
    clouddefs::PKEY_PRODUCT_NO,
    clouddefs::PKEY_MODE,
};

const QString SOURCE_NAME = QStringLiteral("cloudmanager");
constexpr int MAKE_FACTORY_LINE = 251;
constexpr int MAKE_CLIENT_LINE = 266;

/// Stores @p errorNumber with the key and its current value as detail.
void saveParameterError(void *handle, int errorNumber, const QString &key)
{
    const QString value = HandleManager::getInstance()->getParameter(handle, key);
    CloudError(errorNumber, QString(), makeDetail(key, value)).saveToHandle(handle);
}

} // namespace

CloudManager::CloudManager(void *callHandle) : handle(callHandle) { }

bool CloudManager::isSettableParameter(const QString &key)
{
    return settableParamList.contains(key);
}

bool CloudManager::isEssentialParameterEmpty()
{
    HandleManager *manager = HandleManager::getInstance();
    for (const QString &key : essentialParamList) {
        if (!manager->isParameterEmpty(handle, key))
            continue;
        saveParameterError(handle, errors::PARAMETER_NOT_SET, key);
        return true;
    }
    return false;
}

bool CloudManager::initialCheck()
{
    if (isEssentialParameterEmpty())
        return false;

    HandleManager *manager = HandleManager::getInstance();
    QSharedPointer<Client> client = manager->getClient(handle);
    if (!client) {
        if (!createClient())
            return false;
        client = manager->getClient(handle);
    }
    const QString mode = manager->getParameter(handle, clouddefs::PKEY_MODE);
    return (client && client->getModeName() == mode) || createClient();
}

bool CloudManager::createClient()
{
    HandleManager *manager = HandleManager::getInstance();
    if (manager->isParameterEmpty(handle, clouddefs::PKEY_MODE)) {
        saveParameterError(handle, errors::PARAMETER_NOT_SET, clouddefs::PKEY_MODE);
        return false;
    }

    int line = MAKE_FACTORY_LINE;
    try {
        const QSharedPointer<Factory> factory =
            Factory::forMode(manager->getParameter(handle, clouddefs::PKEY_MODE));
        if (!factory) {
            saveParameterError(handle, errors::INVALID_PARAMETER_VALUE, clouddefs::PKEY_MODE);
            return false;
        }
        line = MAKE_CLIENT_LINE;
        manager->setClient(handle, factory->create(handle));
    } catch (const std::bad_alloc &exception) {
        CloudError(
            errors::OUT_OF_MEMORY, QString(),
            makeOutOfMemoryTrace(exception, QStringLiteral("createClient"), SOURCE_NAME, line))
            .saveToHandle(handle);
        return false;
    }
    return true;
}

bool CloudManager::checkEnable()
{
    if (!initialCheck())
        return false;
    const QSharedPointer<Client> client = HandleManager::getInstance()->getClient(handle);
    return client && client->checkEnable();
}

bool CloudManager::sendData(const QByteArray &data)
{
    if (!initialCheck())
        return false;
    const QSharedPointer<Client> client = HandleManager::getInstance()->getClient(handle);
    return client && client->send(data);
}

bool CloudManager::recvData()
{
    if (!initialCheck())
        return false;
    const QSharedPointer<Client> client = HandleManager::getInstance()->getClient(handle);
    return client && client->recv();
}

bool CloudManager::sendCloudLog()
{
    DebugOutput::writeMarker("");
    DebugOutput::writeMarker("@::sendCloudLog()");
    return CloudLogSender(handle).start();
}
