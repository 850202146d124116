#include "simulator.h"

#include "curl.h"

#include <QJsonDocument>

namespace korrintest
{

namespace
{

const int START_TIMEOUT_MS = 20000;
const int STOP_TIMEOUT_MS = 10000;

} // namespace

Simulator::~Simulator()
{
    stop();
}

bool Simulator::start(const QStringList &arguments)
{
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QStringLiteral(KORRIN_CLOUDSIM),
                  QStringList{QStringLiteral("--port"), QStringLiteral("0")} + arguments);
    while (!process.canReadLine()) {
        if (!process.waitForReadyRead(START_TIMEOUT_MS))
            return false;
    }
    address = process.readLine().trimmed();
    return address.startsWith("http");
}

int Simulator::stop()
{
    if (process.state() != QProcess::NotRunning)
        process.terminate();
    return wait();
}

int Simulator::wait()
{
    if (process.state() == QProcess::NotRunning)
        return process.exitCode();
    if (process.waitForFinished(STOP_TIMEOUT_MS))
        return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    process.kill();
    process.waitForFinished();
    return -1;
}

QJsonObject Simulator::api(const QByteArray &what)
{
    return api("GET", what, QByteArray());
}

QJsonObject Simulator::api(const QByteArray &method, const QByteArray &what, const QByteArray &body,
                           int *status)
{
    QList<QByteArray> arguments = {"-X", method, "-H", "Content-Type: application/json"};
    if (!body.isEmpty())
        arguments << "--data-binary" << body;
    const CurlResult result = curl(arguments << address + "_sim/api/" + what);
    if (status)
        *status = result.status;
    return QJsonDocument::fromJson(result.body).object();
}

int Simulator::addFault(const QByteArray &rule)
{
    return api("POST", "faults", rule).value(QLatin1String("id")).toInt();
}

void Simulator::clearFaults()
{
    api("DELETE", "faults", QByteArray());
}

} // namespace korrintest
