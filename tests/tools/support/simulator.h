#ifndef KORRIN_TESTS_SIMULATOR_H
#define KORRIN_TESTS_SIMULATOR_H

#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>

namespace korrintest
{

/// A local cloud of its own, on a free port, for the length of a scope.
class Simulator
{
public:
    ~Simulator();

    /// Starts the program with "--port 0" and these arguments, and waits for its address.
    bool start(const QStringList &arguments = {});
    /// Ends it with SIGTERM. @return its exit status, -1 when it had to be killed
    int stop();
    /// Waits for its end. @return as stop()
    int wait();

    /// "http://127.0.0.1:40123/"
    QByteArray url() const { return address; }
    qint64 processId() const { return process.processId(); }
    /// What it has written to standard output since it was last asked.
    QByteArray output() { return process.readAllStandardOutput(); }

    /// GET of the JSON interface, e.g. "exchanges?limit=1".
    QJsonObject api(const QByteArray &what);
    /// Any method; an empty body sends none. @param status  takes the HTTP status, if not null
    QJsonObject api(const QByteArray &method, const QByteArray &what, const QByteArray &body,
                    int *status = nullptr);
    /// Adds a fault rule in its JSON form. @return its id
    int addFault(const QByteArray &rule);
    void clearFaults();

private:
    QProcess process;
    QByteArray address;
};

} // namespace korrintest

#endif
