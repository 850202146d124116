#include "s3uploader.h"

#include "handlemanager.h"
#include "textconversion.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QLocale>
#include <QUrl>

namespace
{

const QByteArray HTTP_VERB = QByteArrayLiteral("PUT");
const QByteArray CONTENT_TYPE = QByteArrayLiteral("application/zip");
const QString DATE_FORMAT = QStringLiteral("ddd, d MMM yyyy hh:mm:ss");
constexpr int HMAC_BLOCK_BYTES = 64;
constexpr char INNER_PAD = 0x36;
constexpr char OUTER_PAD = 0x5c;

QByteArray sha1(const QByteArray &data)
{
    return QCryptographicHash::hash(data, QCryptographicHash::Sha1);
}

QByteArray pad(const QByteArray &key, char padding)
{
    QByteArray padded(HMAC_BLOCK_BYTES, padding);
    for (int i = 0; i < key.size(); ++i)
        padded[i] = static_cast<char>(padding ^ key.at(i));
    return padded;
}

/// RFC 2104, with SHA-1.
QByteArray hmacSha1(const QByteArray &secret, const QByteArray &message)
{
    const QByteArray key = secret.size() > HMAC_BLOCK_BYTES ? sha1(secret) : secret;
    return sha1(pad(key, OUTER_PAD) + sha1(pad(key, INNER_PAD) + message));
}

QString currentDate()
{
    // English names whatever the system's locale is.
    const QLocale english(QLocale::English, QLocale::AnyCountry);
    return english.toString(QDateTime::currentDateTimeUtc(), DATE_FORMAT) + QLatin1String(" GMT");
}

} // namespace

bool S3Uploader::start()
{
    return makeRequest() && startPutRequest();
}

bool S3Uploader::makeRequest()
{
    const HandleManager *handles = HandleManager::getInstance();
    const QUrl url = request.url();
    // Qt resolves "." and ".." before it sends.
    const QString path = url.adjusted(QUrl::NormalizePathSegments).path(QUrl::FullyDecoded);
    const QString date = currentDate();
    const QByteArray stringToSign =
        HTTP_VERB + "\n\n" + CONTENT_TYPE + '\n' + date.toLatin1() + '\n' + path.toLatin1();

    const QByteArray secret =
        handles->getParameter(handle, clouddefs::PKEY_AWS_SECRET_ACCESS_KEY).toLocal8Bit();
    const QByteArray signature = hmacSha1(secret, stringToSign).toBase64();
    const QString accessKey = handles->getParameter(handle, clouddefs::PKEY_AWS_ACCESS_KEY);
    const QString authorization =
        QStringLiteral("AWS %1:%2")
            .arg(withoutLineBreaks(accessKey), QString::fromLatin1(signature));

    request.setRawHeader("Host", url.host().toLocal8Bit());
    request.setRawHeader("Date", date.toLocal8Bit());
    request.setRawHeader("Authorization", authorization.toLocal8Bit());
    request.setHeader(QNetworkRequest::ContentTypeHeader, CONTENT_TYPE);
    request.setHeader(QNetworkRequest::ContentLengthHeader, handles->getSendData(handle).size());
    return true;
}
