#include "downloader.h"

#include <QMetaObject>

bool Downloader::start()
{
    return startGetRequest();
}

QNetworkReply *Downloader::getFunc()
{
    QNetworkReply *reply = HttpTask::getFunc();
    // Not when the headers are seen here: Qt's HTTP thread goes on reading until then. Queued,
    // since Qt forgets a size that comes before it has passed the request on.
    QMetaObject::invokeMethod(
        reply, [reply] { reply->setReadBufferSize(READ_BUFFER_BYTES); }, Qt::QueuedConnection);
    return reply;
}
