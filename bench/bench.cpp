// Prints what the library adds to a bare exchange of Qt, against a local server.
//
// Usage: korrin_bench            (a few seconds; figures are medians)

#include "korrinhost.h"
#include "scriptedserver.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

using namespace korrintest;

namespace
{

constexpr int BODY_BYTES = 256 * 1024 * 1024;
constexpr int KEPT_RECORDS = 1000;

void require(bool condition, const char *what)
{
    if (condition)
        return;
    std::fprintf(stderr, "failed: %s\n", what);
    std::exit(1);
}

double secondsOf(const std::function<void()> &work)
{
    QElapsedTimer timer;
    timer.start();
    work();
    return static_cast<double>(timer.nsecsElapsed()) / 1e9;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

/// The same GET with nothing but Qt, on an access manager made for it.
QByteArray bareGet(const QByteArray &url)
{
    QNetworkAccessManager manager;
    manager.setProxy(QNetworkProxy::NoProxy);
    QEventLoop loop;
    QNetworkReply *reply = manager.get(QNetworkRequest(QUrl(QString::fromLatin1(url))));
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    loop.exec();
    return reply->readAll();
}

struct Comparison {
    double library; ///< seconds
    double bare;    ///< seconds
    double ratio;   ///< library to bare, of pairs that ran one after the other
};

Comparison compare(int rounds, const std::function<void()> &library,
                   const std::function<void()> &bare)
{
    std::vector<double> librarySeconds;
    std::vector<double> bareSeconds;
    std::vector<double> ratios;
    for (int i = 0; i < rounds; ++i) {
        librarySeconds.push_back(secondsOf(library));
        bareSeconds.push_back(secondsOf(bare));
        ratios.push_back(librarySeconds.back() / bareSeconds.back());
    }
    return {median(librarySeconds), median(bareSeconds), median(ratios)};
}

void checkEnable()
{
    ScriptedServer server;
    Handle handle(baseParameters(server.url(), "remote_access"));
    const QByteArray url = server.url("/ra/search?is=chkra&lang=en&pn=PN&sv=1.0");
    const Comparison result = compare(
        1500, [&] { require(handle.checkEnable() == 1, "check"); },
        [&] { require(!bareGet(url).isEmpty(), "bare check"); });
    std::printf("korrinCheckEnable         %8.0f us   bare %8.0f us   ratio %.2f\n",
                result.library * 1e6, result.bare * 1e6, result.ratio);
}

void parameters()
{
    constexpr int COUNT = 200000;
    Handle handle(baseParameters("http://127.0.0.1/", "update"));
    void *raw = handle.get();
    const double set = secondsOf([raw] {
        for (int i = 0; i < COUNT; ++i)
            korrinSetParameter(raw, KORRIN_KEY_PRODUCT_NO, "PN-1");
    });
    const double get = secondsOf([raw] {
        for (int i = 0; i < COUNT; ++i)
            korrinGetParameter(raw, KORRIN_KEY_PRODUCT_NO);
    });
    std::printf("korrinSetParameter        %8.0f ns\n", set / COUNT * 1e9);
    std::printf("korrinGetParameter        %8.0f ns\n", get / COUNT * 1e9);
}

void receive()
{
    const QByteArray whole = answer(200, "OK", "application/zip", QByteArray(BODY_BYTES, 'x'));
    ScriptedServer server(
        [&whole](Connection &connection, const HttpRequest &) { connection.send(whole); });
    Handle handle(baseParameters(server.url(), "remote_access"));
    const QByteArray url = server.url("/ra/download");
    const Comparison result = compare(
        5,
        [&] {
            const char *data = nullptr;
            int size = 0;
            require(korrinRecvData(handle.get(), &data, &size) && size == BODY_BYTES, "receive");
        },
        [&] { require(bareGet(url).size() == BODY_BYTES, "bare receive"); });
    constexpr double MEGABYTES = BODY_BYTES / 1e6;
    std::printf("korrinRecvData 256 MiB    %8.0f MB/s bare %8.0f MB/s ratio %.2f (of the speeds)\n",
                MEGABYTES / result.library, MEGABYTES / result.bare, 1 / result.ratio);
}

void keptRecords()
{
    ScriptedServer server([](Connection &connection, const HttpRequest &request) {
        const QByteArray body = xmlBody(requestedIs(request));
        connection.send("HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\nContent-Length: "
                        + QByteArray::number(body.size()) + "\r\n\r\n" + body);
        connection.keepAlive = true;
    });
    std::vector<double> seconds;
    for (int i = 0; i < 5; ++i) {
        QTemporaryDir directory;
        QFile file(directory.filePath(QStringLiteral("cloudlog.txt")));
        require(file.open(QIODevice::WriteOnly), "log file");
        const QByteArray record = "is=cloudlog&lang=en&pn=PN&" + QByteArray(400, 'r') + '\n';
        file.write(record.repeated(KEPT_RECORDS));
        file.close();
        Handle handle(baseParameters(server.url(), "update"));
        handle.set("cloud_log_file_save_dir", QFile::encodeName(directory.path()));
        server.clear();
        seconds.push_back(
            secondsOf([&] { require(handle.checkEnable() == 1, "check with kept records"); }));
        require(server.requestCount() == KEPT_RECORDS + 2, "every record arrives");
    }
    std::printf("1000 kept records         %8.2f s\n", median(seconds));
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const OpenLibrary library;
    std::printf("Qt %s\n", qVersion());
    checkEnable();
    parameters();
    receive();
    keptRecords();
    return 0;
}
