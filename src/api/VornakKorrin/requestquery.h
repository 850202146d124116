#ifndef KORRIN_REQUESTQUERY_H
#define KORRIN_REQUESTQUERY_H

#include "clouddefs.h"

#include <QByteArray>

/// Builds and reads URL-encoded query strings, "key=value" pairs joined by "&".
///
/// Keys and values are percent-encoded as UTF-8; unreserved characters and !$'()*+,;:@/? stand as
/// they are (RFC 3986, sections 2.3 and 3.4), so "&", "=" and "%" inside a value never do.
class RequestQuery
{
public:
    /// Appends an item; a null @p value gives "key=".
    RequestQuery &add(const QString &key, const QString &value);

    const QByteArray &toEncoded() const { return encoded; }

    /// The decoded value of the first item named @p key; null when there is none, or when it has
    /// no "=". Bytes that are not valid percent-encoded UTF-8 never make another item match.
    static QString itemValue(const QByteArray &query, const QString &key);

    /// @p data as a URL's query: what may stand there as it is, everything else percent-encoded.
    static QByteArray fromRawData(const QByteArray &data);

private:
    QByteArray encoded;
};

#endif
