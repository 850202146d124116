// A query, read and written: what is written is read back.
#include "requestquery.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<int>(size));
    RequestQuery::itemValue(bytes, QStringLiteral("is"));
    RequestQuery::fromRawData(bytes);

    const QString value = QString::fromLatin1(bytes);
    RequestQuery query;
    query.add(QStringLiteral("first"), QStringLiteral("1")).add(QStringLiteral("is"), value);
    if (RequestQuery::itemValue(query.toEncoded(), QStringLiteral("is")) != value)
        std::abort();
    return 0;
}
