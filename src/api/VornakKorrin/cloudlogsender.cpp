#include "cloudlogsender.h"

#include "client.h"
#include "clouderror.h"
#include "debugoutput.h"
#include "handlemanager.h"
#include "requestquery.h"
#include "requesturl.h"
#include "uploader.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <QUrl>

#include <cstdio>
#include <new>

namespace
{

const QString FILE_NAME = QStringLiteral("cloudlog.txt");
const QString DATE_TIME_FORMAT = QStringLiteral("yyyy/MM/dd hh:mm:ss.zzz");
constexpr QIODevice::OpenMode READ_MODE = QIODevice::ReadOnly | QIODevice::Text;
constexpr QIODevice::OpenMode WRITE_AND_APPEND_MODE =
    QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text;
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
    return QDateTime::currentDateTime().toString(DATE_TIME_FORMAT);
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
    return post(sendData);
}

bool CloudLogSender::saveToFile() const
{
    if (!fitsIntoFile())
        return false;
    QFile file(fileName);
    if (!file.open(WRITE_AND_APPEND_MODE))
        return false;
    file.write(sendData + '\n');
    return true;
}

bool CloudLogSender::fitsIntoFile() const
{
    bool isNumber = false;
    const int maxSizeBytes = maxFileSize.toInt(&isNumber);
    // The line break after the record is not counted.
    return !isNumber
        || (maxSizeBytes > 0 && QFileInfo(fileName).size() + sendData.size() <= maxSizeBytes);
}

bool CloudLogSender::sendFromFile()
{
    QFile file(fileName);
    if (!file.open(READ_MODE))
        return false;
    while (!file.atEnd()) {
        const QByteArray record = file.readLine();
        if (post(record) || isRefusedByServer())
            continue;
        if (!keepRest(record, file))
            return false;
        break;
    }
    file.close();

    // The temporary file, if there is one, holds the rest; both paths are made before anything
    // goes.
    const QByteArray path = fileName.toLocal8Bit();
    const QByteArray tempPath = tempFileName.toLocal8Bit();
    std::remove(path.constData());
    std::rename(tempPath.constData(), path.constData());
    return true;
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

bool CloudLogSender::keepRest(const QByteArray &failedRecord, QFile &file) const
{
    QFile rest(tempFileName);
    if (!rest.open(WRITE_AND_APPEND_MODE))
        return false;
    rest.write(failedRecord);
    rest.write(file.readAll());
    return true;
}

QString CloudLogSender::getParameter(const QString &key) const
{
    return HandleManager::getInstance()->getParameter(handle, key);
}
