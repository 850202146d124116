#include "requesturl.h"

#include "textconversion.h"

namespace
{

// Qt's own schemes for connecting ahead of a request: nothing would be asked, and all be well.
const QString PRECONNECT_SCHEMES = QStringLiteral("preconnect-");

} // namespace

QUrl RequestUrl::parse(const QString &text)
{
    QUrl url;
    url.setUrl(text, QUrl::TolerantMode);
    return url;
}

QUrl RequestUrl::fromText(const QString &text)
{
    QString encoded = text;
    encoded.replace(QLatin1String("%20"), QLatin1String(" "));
    encoded.replace(QLatin1Char('%'), QLatin1String("%25"));
    QUrl url = parse(encoded);
    if (!url.isValid() || url.scheme().startsWith(PRECONNECT_SCHEMES))
        return QUrl();
    // Qt writes the user's name as it is into the answer to a challenge.
    const QString user = url.userName(QUrl::FullyDecoded);
    if (user != withoutLineBreaks(user))
        url.setUserName(withoutLineBreaks(user), QUrl::DecodedMode);
    return url;
}

QString RequestUrl::toText(const QUrl &url)
{
    const QByteArray decoded = QByteArray::fromPercentEncoding(url.toEncoded());
    return QString::fromUtf8(decoded.constData(), decoded.size());
}
