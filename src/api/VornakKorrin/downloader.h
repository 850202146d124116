#ifndef KORRIN_DOWNLOADER_H
#define KORRIN_DOWNLOADER_H

#include "httptask.h"

/// Receives with a GET; whatever arrives is the data.
class Downloader : public HttpTask
{
    Q_OBJECT

public:
    using HttpTask::HttpTask;

    bool start() override;

protected:
    QNetworkReply *getFunc() override;
};

#endif
