#ifndef KORRIN_QTCOMPAT_H
#define KORRIN_QTCOMPAT_H

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

/// What has to be written differently for Qt 5 and Qt 6.
namespace qtcompat
{

/// Keeps Qt 5's guess that the network is "not accessible" from refusing exchanges.
inline void ignoreNetworkState(QNetworkAccessManager *manager)
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    QT_WARNING_PUSH
    QT_WARNING_DISABLE_DEPRECATED
    manager->setNetworkAccessible(QNetworkAccessManager::Accessible);
    QT_WARNING_POP
#else
    Q_UNUSED(manager)
#endif
}

/// Raises Qt 6's bound on how far an answer may grow when it is decompressed: a log or an image
/// full of zeros is no attack, and Qt 5 takes it.
inline void allowHighCompression(QNetworkRequest *request)
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    Q_UNUSED(request)
#else
    const qint64 uncheckedBytes = 256 * 1024 * 1024;
    request->setDecompressedSafetyCheckThreshold(uncheckedBytes);
#endif
}

/// The reason phrase of the answer's status line; Qt 5 takes the whole line for it when the line
/// ends with the status.
inline QString reasonPhrase(const QNetworkReply *reply)
{
    const QString reason = reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString();
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    if (reason.startsWith(QLatin1String("HTTP/")))
        return QString();
#endif
    return reason;
}

/// Closes kept-alive connections where a further POST on one would wait 40 ms: Qt 5 writes head and
/// body apart, and holds the body back until the server's delayed acknowledgement of the head.
inline void closeSlowConnections(QNetworkAccessManager *manager)
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    manager->clearConnectionCache();
#else
    Q_UNUSED(manager)
#endif
}

} // namespace qtcompat

#endif
