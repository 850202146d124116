#include "enablechecker.h"

#include "requestquery.h"
#include "xmlresponse.h"

#include <QUrl>

bool EnableChecker::start()
{
    return startGetRequest();
}

bool EnableChecker::processResponse()
{
    const QByteArray query = request.url().query(QUrl::FullyEncoded).toLatin1();
    return XmlResponse::parse(handle, xmlHandler)
        && XmlResponse::checkEcho(handle, xmlHandler,
                                  RequestQuery::itemValue(query, clouddefs::QKEY_IS),
                                  QStringLiteral("%1: request %2, response %3"));
}
