#ifndef KORRIN_BYTEARRAYSIZE_H
#define KORRIN_BYTEARRAYSIZE_H

#include <QByteArray>

#include <limits>
#include <new>
#include <utility>

/// What QByteArray counts its bytes with: int in Qt 5, qsizetype in Qt 6.
using ByteArraySize = decltype(std::declval<QByteArray>().size());

/// @p bytes as a size of a QByteArray; throws std::bad_alloc when none can be so large.
inline ByteArraySize toByteArraySize(qint64 bytes)
{
    constexpr qint64 ALLOCATION_OVERHEAD_BYTES = 64;
    if (bytes > std::numeric_limits<ByteArraySize>::max() - ALLOCATION_OVERHEAD_BYTES)
        throw std::bad_alloc();
    return static_cast<ByteArraySize>(bytes);
}

#endif
