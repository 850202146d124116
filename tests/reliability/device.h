#ifndef KORRIN_TESTS_DEVICE_H
#define KORRIN_TESTS_DEVICE_H

#include "logcloud.h"
#include "scripthost.h"

#include <QFile>

namespace korrintest
{

/// A device in a process of its own that keeps its log in a directory. Two of its records are more
/// than the library reads at once.
class Device
{
public:
    Device(const LogCloud &cloud, const QString &directory,
           const QHash<QString, QString> &environment = {}, const QStringList &runner = {})
        : host(directory, environment, runner)
    {
        host.call("open");
        handle = host.create();
        for (const auto &[key, value] : QList<std::pair<QByteArray, QByteArray>>{
                 {"server_url", cloud.url()},
                 {"mode", "update"},
                 {"recv_timeout", "10"},
                 {"download_file_path", QByteArray(RECORD_BYTES, 'f')},
                 {"cloud_log_file_save_dir", QFile::encodeName(directory)}})
            host.set(handle, key, value);
    }

    /// From here on, its system calls are counted.
    void mark() { host.call("mark"); }

    /// @return true when the call succeeded, and with it the promise that the record is safe
    bool call(const QByteArray &product)
    {
        return host.set(handle, "product_no", product) == 1 && host.check(handle) == 1;
    }

private:
    static constexpr int RECORD_BYTES = 9000;

    ScriptHost host;
    QByteArray handle;
};

} // namespace korrintest

#endif
