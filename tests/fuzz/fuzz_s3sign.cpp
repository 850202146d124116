// Secret, access key and object name, parted by line breaks: the signature that a server receives
// is the one that Qt's own HMAC gives for the request as it arrived.
#include "korrinhost.h"
#include "scriptedserver.h"

#include <QMessageAuthenticationCode>
#include <QUrl>

#include <cstdint>
#include <cstdlib>

using namespace korrintest;

namespace
{

/// Up to the first NUL, as the C functions see a text.
QByteArray text(const QList<QByteArray> &lines, int index)
{
    return QByteArray(lines.value(index).constData());
}

QByteArray expectedSignature(const HttpRequest &request, const QByteArray &secret)
{
    const QString path = QString::fromUtf8(QByteArray::fromPercentEncoding(request.path()));
    const QByteArray message = request.method + "\n\n" + request.header("Content-Type") + '\n'
        + request.header("Date") + '\n' + path.toLatin1();
    // Blanks around a parameter do not count.
    const QByteArray key = QString::fromLatin1(secret).trimmed().toLocal8Bit();
    return QMessageAuthenticationCode::hash(message, key, QCryptographicHash::Sha1).toBase64();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static ScriptedServer server([](Connection &connection, const HttpRequest &) {
        connection.send(answer(200, "OK", QByteArray(), ""));
    });
    static const OpenLibrary library;
    const QList<QByteArray> lines =
        QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size)).split('\n');
    const QByteArray secret = text(lines, 0);

    const QByteArray url = server.url("/bucket/") + text(lines, 2);
    Handle handle(baseParameters(url, "s3_upload"));
    handle.set("aws_secret_access_key", secret);
    handle.set("aws_access_key", text(lines, 1));
    const int result = handle.sendData("archive");
    const QList<HttpRequest> requests = server.requests();
    server.clear();
    const int expected = QUrl(QString::fromLocal8Bit(url).trimmed()).isValid() ? 1 : 0;
    if (result != expected || requests.size() != expected)
        std::abort();
    if (result == 0)
        return 0;
    const QByteArray authorization = requests.at(0).header("Authorization");
    if (!authorization.startsWith("AWS ")
        || !authorization.endsWith(':' + expectedSignature(requests.at(0), secret)))
        std::abort();
    return 0;
}
