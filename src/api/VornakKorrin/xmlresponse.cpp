#include "xmlresponse.h"

#include "clouderror.h"
#include "handlemanager.h"
#include "xmlhandler.h"

bool XmlResponse::parse(void *handle, XmlHandler &handler)
{
    if (handler.execute(HandleManager::getInstance()->getRecvData(handle)))
        return true;
    CloudError(errors::XML_PARSE_FAILED, QString(), handler.errorMessage).saveToHandle(handle);
    return false;
}

bool XmlResponse::checkEcho(void *handle, const XmlHandler &handler, const QString &requestValue,
                            const QString &detailFormat)
{
    const QString responseValue = handler.elementValues.value(clouddefs::QKEY_IS);
    if (requestValue == responseValue)
        return true;
    CloudError(errors::ILLEGAL_RESPONSE, QString(),
               detailFormat.arg(clouddefs::QKEY_IS, requestValue, responseValue))
        .saveToHandle(handle);
    return false;
}
