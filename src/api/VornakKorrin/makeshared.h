#ifndef KORRIN_MAKESHARED_H
#define KORRIN_MAKESHARED_H

#include <QSharedPointer>

#include <memory>
#include <utility>

/// A new object in a shared pointer. QSharedPointer::create() is of no use when memory may run out:
/// it leaves a pointer half made, whose destruction crashes.
template <typename Object, typename... Arguments>
QSharedPointer<Object> makeShared(Arguments &&...arguments)
{
    auto owned = std::make_unique<Object>(std::forward<Arguments>(arguments)...);
    QSharedPointer<Object> shared(owned.get());
    static_cast<void>(owned.release());
    return shared;
}

#endif
