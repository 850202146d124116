// A "server_url" as a host may set it.
#include "requesturl.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QUrl url = RequestUrl::fromText(
        QString::fromLatin1(reinterpret_cast<const char *>(data), static_cast<int>(size)));
    if (!url.isEmpty() && !url.isValid())
        std::abort();
    RequestUrl::toText(url);
    return 0;
}
