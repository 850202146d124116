#include "clouderror.h"

#include "debugoutput.h"
#include "handlemanager.h"

#include <QHash>

#include <new>

namespace
{

const QString SOURCE_DIRECTORY = QStringLiteral("../../../src/api/VornakKorrin/");
const QString UNKNOWN_ERROR_TEXT = QStringLiteral("exceptional error.");

const QHash<int, QString> defaultTexts = {
    {errors::NONE, QStringLiteral("no error.")},
    {errors::CLIENT_APPLICATION, QStringLiteral("client application error.")},
    {errors::NOT_OPENED, QStringLiteral("cloud not opened.")},
    {errors::INVALID_HANDLE, QStringLiteral("invalid handle.")},
    {errors::PARAMETER_NOT_SET, QStringLiteral("parameter not set.")},
    {errors::INVALID_PARAMETER_KEY, QStringLiteral("invalid parameter key.")},
    {errors::INVALID_PARAMETER_VALUE, QStringLiteral("invalid parameter value.")},
    {errors::SERVER, QStringLiteral("server error.")},
    {errors::XML_PARSE_FAILED, QStringLiteral("xml parse failed.")},
    {errors::ILLEGAL_RESPONSE, QStringLiteral("illegal response received.")},
    {errors::STATUS, QStringLiteral("status error.")},
    {errors::NETWORK, QStringLiteral("network error.")},
    {errors::CONNECTION, QStringLiteral("network connection error.")},
    {errors::PROXY, QStringLiteral("network proxy error.")},
    {errors::CONTENT, QStringLiteral("network content error.")},
    {errors::PROTOCOL, QStringLiteral("network protocol error")},
    {errors::TIMEOUT, QStringLiteral("timeout occurred.")},
    {errors::SYSTEM, QStringLiteral("system error.")},
    {errors::OUT_OF_MEMORY, QStringLiteral("memory allocation error.")},
    {errors::FILE_OPEN_FAILED, QStringLiteral("file open failed.")},
    {errors::FILE_WRITE_FAILED, QStringLiteral("file write failed.")},
    {errors::NULL_POINTER, QStringLiteral("null pointer assigned.")},
};

void traceErrorParameter(void *handle, const QString &key)
{
    const QString value = HandleManager::getInstance()->getParameter(handle, key);
    DebugOutput() << QStringLiteral("(%1) %2").arg(key, value);
}

} // namespace

Error::Error(int errorNumber, const QString &errorText, const QString &errorDetail)
    : number(errorNumber), text(errorText), detail(errorDetail)
{
}

QString Error::getDefaultErrorText() const
{
    return defaultTexts.value(number, UNKNOWN_ERROR_TEXT);
}

QString Error::getText() const
{
    return text.isEmpty() ? getDefaultErrorText() : text;
}

QString Error::getSummary() const
{
    return makeDetail(QString::number(number), getText());
}

void CloudError::saveToHandle(void *handle) const
{
    HandleManager *manager = HandleManager::getInstance();
    manager->setParameter(handle, clouddefs::PKEY_ERROR_NO, QString::number(number));
    manager->setParameter(handle, clouddefs::PKEY_ERROR_TEXT, getText());
    manager->setParameter(handle, clouddefs::PKEY_ERROR_DETAIL,
                          detail.isEmpty() ? getText() : detail);

    if (!DebugOutput::enabled)
        return;
    DebugOutput::writeMarker("-- error info --");
    traceErrorParameter(handle, clouddefs::PKEY_ERROR_NO);
    traceErrorParameter(handle, clouddefs::PKEY_ERROR_TEXT);
    traceErrorParameter(handle, clouddefs::PKEY_ERROR_DETAIL);
    DebugOutput::writeMarker("----------------");
}

QString makeDetail(const QString &key, const QString &value)
{
    return QStringLiteral("%1:%2").arg(key, value);
}

QString makeOutOfMemoryTrace(const std::exception &exception, const QString &function,
                             const QString &sourceName, int line)
{
    return QStringLiteral("%1 at %2 (file:%3, line:%4)")
        .arg(QString::fromLatin1(exception.what()), function, SOURCE_DIRECTORY + sourceName,
             QString::number(line));
}

void traceError(int number)
{
    if (!DebugOutput::enabled)
        return;
    try {
        DebugOutput() << Error(number).getSummary();
    } catch (const std::bad_alloc &) {
        // Not even enough for a message.
    }
}

void traceOutOfMemory(const std::exception &exception, const QString &function,
                      const QString &sourceName, int line)
{
    traceError(errors::OUT_OF_MEMORY);
    if (!DebugOutput::enabled)
        return;
    try {
        DebugOutput() << makeOutOfMemoryTrace(exception, function, sourceName, line);
    } catch (const std::bad_alloc &) {
        // As above.
    }
}
