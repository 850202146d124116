// What a program with QNetworkAccessManager alone would do, with a new manager for each exchange.

#include "client.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDateTime>
#include <QEventLoop>
#include <QFile>
#include <QLocale>
#include <QMap>
#include <QMessageAuthenticationCode>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QUrlQuery>
#include <QXmlStreamReader>

#include <cstdio>
#include <functional>

namespace
{

QUrl urlOf(const Job &job, const QString &path)
{
    return QUrl(QString::fromStdString(job.url) + path);
}

QNetworkRequest requestOf(const QUrl &url)
{
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    request.setTransferTimeout(TIMEOUT_S * 1000);
    return request;
}

/// Sends with a manager of its own and waits. @p receive is called whenever bytes have arrived.
bool exchange(const std::function<QNetworkReply *(QNetworkAccessManager &)> &send,
              const std::function<void(QNetworkReply *)> &receive)
{
    QNetworkAccessManager manager;
    manager.setProxy(QNetworkProxy::NoProxy);
    QEventLoop loop;
    QNetworkReply *reply = send(manager);
    QObject::connect(reply, &QNetworkReply::readyRead, reply, [&] { receive(reply); });
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    loop.exec();
    receive(reply);
    if (reply->error() != QNetworkReply::NoError)
        std::fprintf(stderr, "%s\n", qPrintable(reply->errorString()));
    return reply->error() == QNetworkReply::NoError;
}

bool isGranted(const QByteArray &xml, const QString &is)
{
    QMap<QString, QString> values;
    QXmlStreamReader reader(xml);
    QString element;
    while (!reader.atEnd()) {
        reader.readNext();
        if (reader.isStartElement())
            element = reader.name().toString();
        else if (reader.isCharacters())
            values.insert(element, reader.text().toString());
    }
    return !reader.hasError() && values.value(QStringLiteral("is")) == is
        && values.value(QStringLiteral("status")) == QLatin1String("1");
}

QUrlQuery checkQuery(const QString &is)
{
    return {{QStringLiteral("is"), is},
            {QStringLiteral("lang"), QString::fromLatin1(LANGUAGE)},
            {QStringLiteral("pn"), QString::fromLatin1(PRODUCT_NO)},
            {QStringLiteral("sv"), QString::fromLatin1(SOFT_VERSION)}};
}

bool check(const Job &job, const QString &path, const QString &is)
{
    QUrl url = urlOf(job, path);
    url.setQuery(checkQuery(is));
    QByteArray answer;
    return exchange([&](QNetworkAccessManager &manager) { return manager.get(requestOf(url)); },
                    [&](QNetworkReply *reply) { answer += reply->readAll(); })
        && isGranted(answer, is);
}

QByteArray logRecord(const Job &job)
{
    const QString time =
        QDateTime::currentDateTime().toString(QStringLiteral("yyyy/MM/dd hh:mm:ss.zzz"));
    const QString settings =
        QStringLiteral("http_proxy:,https_proxy:,server_url:%1%2,recv_timeout:%3,language_code:%4,"
                       "product_name:,result:,soft_ver:%5,send_data_type:,download_file_path:,"
                       "cloud_log_file_save_dir:%6,cloud_log_file_max_size:")
            .arg(QString::fromStdString(job.url), QString::fromLatin1(BUCKET_PATH),
                 QString::number(TIMEOUT_S), QString::fromLatin1(LANGUAGE),
                 QString::fromLatin1(SOFT_VERSION), QString::fromStdString(job.file));
    const QUrlQuery query{{QStringLiteral("is"), QStringLiteral("cloudlog")},
                          {QStringLiteral("lang"), QString::fromLatin1(LANGUAGE)},
                          {QStringLiteral("pn"), QString::fromLatin1(PRODUCT_NO)},
                          {QStringLiteral("ldt"), time},
                          {QStringLiteral("mode"), QStringLiteral("update")},
                          {QStringLiteral("fn"), QStringLiteral("korrinCheckEnable")},
                          {QStringLiteral("fa"), QStringLiteral("-")},
                          {QStringLiteral("en"), QStringLiteral("0")},
                          {QStringLiteral("ed"), QStringLiteral("0:Version 2.0 is ready.")},
                          {QStringLiteral("pr"), settings}};
    return query.toString(QUrl::FullyEncoded).toLatin1();
}

bool postLog(const Job &job)
{
    QNetworkRequest request = requestOf(urlOf(job, QStringLiteral("/su/upload")));
    request.setHeader(QNetworkRequest::ContentTypeHeader,
                      QByteArrayLiteral("application/x-www-form-urlencoded"));
    const QByteArray record = logRecord(job);
    QByteArray answer;
    return exchange([&](QNetworkAccessManager &manager) { return manager.post(request, record); },
                    [&](QNetworkReply *reply) { answer += reply->readAll(); })
        && isGranted(answer, QStringLiteral("cloudlog"));
}

QNetworkReply *startDownload(QNetworkAccessManager &manager, const Job &job)
{
    return manager.get(requestOf(urlOf(job, QStringLiteral("/ra/download"))));
}

bool receive(const Job &job)
{
    QByteArray body;
    const bool received =
        exchange([&](QNetworkAccessManager &manager) { return startDownload(manager, job); },
                 [&](QNetworkReply *reply) {
                     const auto size = reply->header(QNetworkRequest::ContentLengthHeader).toInt();
                     if (body.isEmpty())
                         body.reserve(size);
                     body += reply->readAll();
                 });
    QFile file(QString::fromStdString(job.file));
    return received && file.open(QIODevice::WriteOnly) && file.write(body) == body.size();
}

bool receiveStreamed(const Job &job)
{
    QFile file(QString::fromStdString(job.file));
    bool written = file.open(QIODevice::WriteOnly);
    return exchange([&](QNetworkAccessManager &manager) { return startDownload(manager, job); },
                    [&](QNetworkReply *reply) {
                        const QByteArray piece = reply->readAll();
                        written = written && file.write(piece) == piece.size();
                    })
        && written;
}

QNetworkRequest signedRequest(const Job &job)
{
    const QString path =
        QString::fromLatin1(BUCKET_PATH) + QString::fromStdString(job.file).section(u'/', -1);
    const QByteArray date = QLocale::c()
                                .toString(QDateTime::currentDateTimeUtc(),
                                          QStringLiteral("ddd, d MMM yyyy hh:mm:ss 'GMT'"))
                                .toLatin1();
    const QByteArray signature =
        QMessageAuthenticationCode::hash("PUT\n\napplication/zip\n" + date + '\n' + path.toLatin1(),
                                         SECRET_KEY, QCryptographicHash::Sha1)
            .toBase64();
    QNetworkRequest request = requestOf(urlOf(job, path));
    request.setRawHeader("Date", date);
    request.setRawHeader("Authorization", QByteArray("AWS ") + ACCESS_KEY + ':' + signature);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/zip"));
    return request;
}

bool upload(const Job &job)
{
    QFile file(QString::fromStdString(job.file));
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray body = file.readAll();
    return exchange(
        [&](QNetworkAccessManager &manager) { return manager.put(signedRequest(job), body); },
        [](QNetworkReply *) {});
}

bool uploadStreamed(const Job &job)
{
    QFile file(QString::fromStdString(job.file));
    return file.open(QIODevice::ReadOnly)
        && exchange(
               [&](QNetworkAccessManager &manager) {
                   return manager.put(signedRequest(job), &file);
               },
               [](QNetworkReply *) {});
}

bool checkService(const Job &job)
{
    return check(job, QStringLiteral("/ra/search"), QStringLiteral("chkra"));
}

bool checkAndLog(const Job &job)
{
    return check(job, QStringLiteral("/su/search"), QStringLiteral("chkud")) && postLog(job);
}

} // namespace

Exchange exchangeFor(const Job &job)
{
    static const QMap<QString, bool (*)(const Job &)> operations = {
        {QStringLiteral("check"), checkService},
        {QStringLiteral("log"), checkAndLog},
        {QStringLiteral("receive"), receive},
        {QStringLiteral("receive-streamed"), receiveStreamed},
        {QStringLiteral("upload"), upload},
        {QStringLiteral("upload-streamed"), uploadStreamed},
    };
    const auto operation = operations.value(QString::fromStdString(job.operation));
    return operation ? [=] { return operation(job); } : Exchange();
}

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    return runClient(argc, argv);
}
