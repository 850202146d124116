#include "uploader.h"

#include "handlemanager.h"
#include "requestquery.h"
#include "xmlresponse.h"

bool Uploader::start()
{
    return startPostRequest();
}

bool Uploader::processResponse()
{
    const QByteArray formData = HandleManager::getInstance()->getSendData(handle);
    return XmlResponse::parse(handle, xmlHandler)
        && XmlResponse::checkEcho(handle, xmlHandler,
                                  RequestQuery::itemValue(formData, clouddefs::QKEY_IS),
                                  QStringLiteral("<%1> request:%2, response:%3"));
}
