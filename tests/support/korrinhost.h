#ifndef KORRIN_TESTS_KORRINHOST_H
#define KORRIN_TESTS_KORRINHOST_H

#include "korrin.h"

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>

#include <initializer_list>

namespace korrintest
{

/// The library, open for the length of a scope.
class OpenLibrary
{
public:
    OpenLibrary() { korrinOpen(); }
    ~OpenLibrary() { korrinClose(); }
    Q_DISABLE_COPY(OpenLibrary)
};

using Parameters = QList<QPair<QByteArray, QByteArray>>;

/// A handle for the length of a scope, seen through korrin.h only.
class Handle
{
public:
    explicit Handle(const Parameters &parameters = Parameters());
    Handle(std::initializer_list<Parameters::value_type> parameters)
        : Handle(Parameters(parameters))
    {
    }
    ~Handle();
    Q_DISABLE_COPY(Handle)

    void *get() const { return handle; }
    int set(const QByteArray &key, const QByteArray &value);
    QByteArray get(const QByteArray &key) const;

    int checkEnable() { return korrinCheckEnable(handle); }
    int sendData(const QByteArray &data);
    /// Receives into @p data, which is null after a failure.
    int recvData(QByteArray *data = nullptr);
    int sendFile(const QByteArray &path) { return korrinSendFile(handle, path.constData()); }
    int recvFile(const QByteArray &path) { return korrinRecvFile(handle, path.constData()); }

    QByteArray errorNo() const { return get("error_no"); }
    QByteArray errorText() const { return get("error_text"); }
    QByteArray errorDetail() const { return get("error_detail"); }

private:
    void *const handle;
};

/// What an exchange needs: server, product, mode, and a time-out that fails a hanging test early.
Parameters baseParameters(const QByteArray &serverUrl, const QByteArray &mode);

} // namespace korrintest

#endif
