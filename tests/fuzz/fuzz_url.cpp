// A "server_url" as a host may set it, as it is and behind a scheme: what the library makes of it,
// and a check with it through the C functions, which fails at a proxy that refuses connections.
#include "korrinhost.h"
#include "rawsocket.h"
#include "requesturl.h"

#include <QUrl>

#include <cstdint>
#include <cstdlib>

using namespace korrintest;

namespace
{

void require(bool condition)
{
    if (!condition)
        std::abort();
}

/// Whether a request goes through the proxy. Qt's backends for other schemes may know none, or read
/// local files.
bool isProxied(const QUrl &url)
{
    return url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https");
}

/// A check with @p serverUrl fails with error @p errorNo.
void requireFailure(const QByteArray &serverUrl, const QByteArray &errorNo)
{
    static const RefusingPort proxy;
    static const OpenLibrary library;
    Handle handle(baseParameters(serverUrl, "remote_access"));
    handle.set("http_proxy", "http://" + proxy.authority());
    require(handle.checkEnable() == 0);
    require(handle.errorNo() == errorNo);
}

void tryUrl(const QByteArray &text)
{
    const QUrl url = RequestUrl::fromText(QString::fromLatin1(text).trimmed());
    require(url.isEmpty() || url.isValid());
    RequestUrl::toText(url);
    if (url.scheme().isEmpty())
        requireFailure(text, "304");
    else if (isProxied(url))
        requireFailure(text, "301");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // Up to the first NUL, as the C functions see a text.
    const QByteArray text(
        QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size)).constData());
    // Few inputs of their own are URLs that can be asked.
    for (const char *begin : {"", "http://", "https://"})
        tryUrl(begin + text);
    return 0;
}
