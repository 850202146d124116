#include "cloudlogsender.h"

#include "client.h"
#include "clouderror.h"
#include "cloudlogfile.h"
#include "debugoutput.h"
#include "handlemanager.h"
#include "requestquery.h"
#include "requesturl.h"
#include "uploader.h"

#include <QDateTime>
#include <QFileInfo>
#include <QLocale>
#include <QStringList>
#include <QUrl>

#include <new>

namespace
{

const QString FILE_NAME = QStringLiteral("cloudlog.txt");
const QString DATE_TIME_FORMAT = QStringLiteral("yyyy/MM/dd hh:mm:ss.zzz");
constexpr qint64 NO_LIMIT = -1;
constexpr int CONSTRUCTOR_LINE = 88;
constexpr int SERVER_ERROR_GROUP = 2;

const QStringList logEnabledModeList = {clouddefs::PVAL_MODE_UPDATE};

// The settings that a record reports; the AWS keys never enter it.
const QStringList logParamList = {
    clouddefs::PKEY_HTTP_PROXY,
    clouddefs::PKEY_HTTPS_PROXY,
    clouddefs::PKEY_SERVER_URL,
    clouddefs::PKEY_RECV_TIMEOUT,
    clouddefs::PKEY_LANGUAGE_CODE,
    clouddefs::PKEY_PRODUCT_NAME,
    clouddefs::PKEY_RESULT,
    clouddefs::PKEY_SOFT_VER,
    clouddefs::PKEY_SEND_DATA_TYPE,
    clouddefs::PKEY_DOWNLOAD_FILE_PATH,
    clouddefs::PKEY_CLOUD_LOG_FILE_SAVE_DIR,
    clouddefs::PKEY_CLOUD_LOG_FILE_MAX_SIZE,
};

void reportOutOfMemory(void *handle, const std::bad_alloc &exception)
{
    try {
        CloudError(errors::OUT_OF_MEMORY).saveToHandle(handle);
        if (DebugOutput::enabled) {
            DebugOutput() << makeOutOfMemoryTrace(exception, QStringLiteral("CloudLogSender"),
                                                  QStringLiteral("cloudlogsender"),
                                                  CONSTRUCTOR_LINE);
        }
    } catch (const std::bad_alloc &) {
        // The record is lost either way.
    }
}

} // namespace

CloudLogSender::CloudLogSender(void *callerHandle)
    : handle(HandleManager::getInstance()->cloneHandle(callerHandle))
{
    try {
        setUp();
    } catch (const std::bad_alloc &exception) {
        reportOutOfMemory(handle, exception);
    }
}

CloudLogSender::~CloudLogSender()
{
    uploader.reset();
    HandleManager::getInstance()->disposeHandle(handle);
}

void CloudLogSender::setUp()
{
    if (!isLogEnabled())
        return;
    uploader.reset(new Uploader(handle));
    if (!uploader->ready) {
        uploader.reset();
        return;
    }
    const QSharedPointer<Client> client = HandleManager::getInstance()->getClient(handle);
    if (!client)
        return;

    QUrl url = RequestUrl::fromText(getParameter(clouddefs::PKEY_SERVER_URL));
    url.setPath(client->getModePath() + clouddefs::PATH_FUNC_UPLOAD);
    uploader->request.setUrl(url);
    makeFileNames();
    maxFileSize = getParameter(clouddefs::PKEY_CLOUD_LOG_FILE_MAX_SIZE);
    makeSendData(); // last: start() does nothing without a record
}

bool CloudLogSender::isLogEnabled() const
{
    return logEnabledModeList.contains(getParameter(clouddefs::PKEY_MODE));
}

QString CloudLogSender::getLogParameterData() const
{
    QStringList settings;
    for (const QString &key : logParamList)
        settings += makeDetail(key, getParameter(key));
    return settings.join(QLatin1Char(','));
}

QString CloudLogSender::getDateTime() const
{
    // QDateTime::toString of Qt 5 writes the digits of the environment's locale.
    return QLocale::c().toString(QDateTime::currentDateTime(), DATE_TIME_FORMAT);
}

void CloudLogSender::makeSendData()
{
    RequestQuery query;
    query.add(clouddefs::QKEY_IS, clouddefs::QVAL_IS_CLOUDLOG)
        .add(clouddefs::QKEY_LANG, getParameter(clouddefs::PKEY_LANGUAGE_CODE))
        .add(clouddefs::QKEY_PN, getParameter(clouddefs::PKEY_PRODUCT_NO))
        .add(clouddefs::QKEY_LDT, getDateTime())
        .add(clouddefs::QKEY_MODE, getParameter(clouddefs::PKEY_MODE))
        .add(clouddefs::QKEY_FN, getParameter(clouddefs::PKEY_FUNC_NAME))
        .add(clouddefs::QKEY_FA, getParameter(clouddefs::PKEY_FUNC_ARGS))
        .add(clouddefs::QKEY_EN, getParameter(clouddefs::PKEY_ERROR_NO))
        .add(clouddefs::QKEY_ED, getParameter(clouddefs::PKEY_ERROR_DETAIL))
        .add(clouddefs::QKEY_PR, getLogParameterData());
    sendData = query.toEncoded();
}

void CloudLogSender::makeFileNames()
{
    fileName = FILE_NAME;
    QString directory = getParameter(clouddefs::PKEY_CLOUD_LOG_FILE_SAVE_DIR);
    if (!directory.isEmpty()) {
        if (!QFileInfo(directory).isDir())
            directory = QStringLiteral(".");
        if (!directory.endsWith(QLatin1Char('/')))
            directory += QLatin1Char('/');
        fileName.prepend(directory);
    }
    tempFileName = fileName + QLatin1Char('_');
}

bool CloudLogSender::start()
{
    if (!isLogEnabled() || sendData.isEmpty())
        return false;
    if (uploader) {
        sendFromFile();
        if (sendThisData())
            return true;
    }
    saveToFile();
    return false;
}

bool CloudLogSender::sendThisData()
{
    uploader->keepsConnection = false;
    return post(sendData);
}

bool CloudLogSender::saveToFile() const
{
    bool isNumber = false;
    const int maxSizeBytes = maxFileSize.toInt(&isNumber);
    if (isNumber && maxSizeBytes <= 0)
        return false;
    return CloudLogFile(fileName, tempFileName)
        .append(sendData, isNumber ? maxSizeBytes : NO_LIMIT);
}

bool CloudLogSender::sendFromFile()
{
    CloudLogFile file(fileName, tempFileName);
    if (!file.openForSending())
        return false;
    QByteArray record;
    uploader->keepsConnection = true;
    while (file.readRecord(&record)) {
        if (!post(record) && !isRefusedByServer())
            return file.keepRest();
        file.dropRecord();
    }
    return file.finish();
}

bool CloudLogSender::post(const QByteArray &record)
{
    HandleManager::getInstance()->setSendData(handle, record);
    return uploader->start();
}

bool CloudLogSender::isRefusedByServer() const
{
    return getParameter(clouddefs::PKEY_ERROR_NO).toInt() / 100 == SERVER_ERROR_GROUP;
}

QString CloudLogSender::getParameter(const QString &key) const
{
    return HandleManager::getInstance()->getParameter(handle, key);
}
