#include "requestquery.h"

#include <QList>
#include <QUrl>

namespace
{

const QByteArray UNENCODED_IN_VALUE = QByteArrayLiteral("!$'()*+,;:@/?");
const QByteArray LEGAL_MARKS_IN_QUERY = UNENCODED_IN_VALUE + "&=-._~";

QByteArray encode(const QString &text)
{
    return QUrl::toPercentEncoding(text, UNENCODED_IN_VALUE);
}

bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}

bool isHexDigit(char character)
{
    return isDigit(character) || (character >= 'A' && character <= 'F')
        || (character >= 'a' && character <= 'f');
}

/// RFC 3986, section 3.4: pchar without escapes, "/" and "?".
bool isLegalInQuery(char character)
{
    return isDigit(character) || (character >= 'A' && character <= 'Z')
        || (character >= 'a' && character <= 'z') || LEGAL_MARKS_IN_QUERY.contains(character);
}

/// Whether the "%" at @p position begins an escape.
bool isEscape(const QByteArray &data, qsizetype position)
{
    return position + 2 < data.size() && isHexDigit(data.at(position + 1))
        && isHexDigit(data.at(position + 2));
}

} // namespace

RequestQuery &RequestQuery::add(const QString &key, const QString &value)
{
    if (!encoded.isEmpty())
        encoded += '&';
    encoded += encode(key) + '=' + encode(value);
    return *this;
}

QString RequestQuery::itemValue(const QByteArray &query, const QString &key)
{
    const QByteArray encodedKey = encode(key);
    const QList<QByteArray> items = query.split('&');
    for (const QByteArray &item : items) {
        if (item == encodedKey)
            return QString();
        if (item.startsWith(encodedKey + '=')) {
            const QByteArray value =
                QByteArray::fromPercentEncoding(item.mid(encodedKey.size() + 1));
            return QString::fromUtf8(value.constData(), value.size());
        }
    }
    return QString();
}

QByteArray RequestQuery::fromRawData(const QByteArray &data)
{
    QByteArray query;
    query.reserve(data.size());
    for (qsizetype i = 0; i < data.size(); ++i) {
        const char byte = data.at(i);
        if (isLegalInQuery(byte) || (byte == '%' && isEscape(data, i)))
            query += byte;
        else
            query += '%' + QByteArray(1, byte).toHex().toUpper();
    }
    return query;
}
