#include "korrinhost.h"

namespace korrintest
{

Handle::Handle(const Parameters &parameters) : handle(korrinCreateHandle())
{
    for (const auto &parameter : parameters)
        set(parameter.first, parameter.second);
}

Handle::~Handle()
{
    korrinDisposeHandle(handle);
}

int Handle::set(const QByteArray &key, const QByteArray &value)
{
    return korrinSetParameter(handle, key.constData(), value.constData());
}

QByteArray Handle::get(const QByteArray &key) const
{
    return korrinGetParameter(handle, key.constData());
}

int Handle::sendData(const QByteArray &data)
{
    return korrinSendData(handle, data.constData(), static_cast<int>(data.size()));
}

int Handle::recvData(QByteArray *data)
{
    const char *bytes = nullptr;
    int size = 0;
    const int result = korrinRecvData(handle, &bytes, &size);
    if (data)
        *data = bytes ? QByteArray(bytes, size) : QByteArray();
    return result;
}

Parameters baseParameters(const QByteArray &serverUrl, const QByteArray &mode)
{
    // No log file: the tests run side by side in one directory.
    return {
        {"server_url", serverUrl},        {"product_no", "PN"}, {"mode", mode},
        {"language_code", "en"},          {"soft_ver", "1.0"},  {"recv_timeout", "10"},
        {"cloud_log_file_max_size", "0"},
    };
}

} // namespace korrintest
