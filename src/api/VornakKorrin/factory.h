#ifndef KORRIN_FACTORY_H
#define KORRIN_FACTORY_H

#include "clouddefs.h"

#include <QSharedPointer>

class Client;

/// Makes service clients of one kind.
class Factory
{
public:
    Factory() = default;
    virtual ~Factory() = default;
    Q_DISABLE_COPY(Factory)

    /// A new client that works for @p handle, which it does not own.
    virtual QSharedPointer<Client> create(void *handle) const = 0;

    /// The factory for a handle's "mode"; null for an unknown mode.
    static QSharedPointer<Factory> forMode(const QString &mode);
};

class UpdateFactory : public Factory
{
public:
    QSharedPointer<Client> create(void *handle) const override;
};

class RemoteAccessFactory : public Factory
{
public:
    QSharedPointer<Client> create(void *handle) const override;
};

class S3UploadFactory : public Factory
{
public:
    QSharedPointer<Client> create(void *handle) const override;
};

#endif
