#include "logcloud.h"

namespace korrintest
{

LogCloud::LogCloud()
    : server(
        [this](Connection &connection, const HttpRequest &request) { serve(connection, request); })
{
}

void LogCloud::take(int records)
{
    std::lock_guard<std::mutex> locker(mutex);
    left = records;
    turn = 0;
    last.clear();
}

void LogCloud::takeInTurns(int records)
{
    std::lock_guard<std::mutex> locker(mutex);
    turn = records;
}

QHash<QByteArray, int> LogCloud::taken() const
{
    std::lock_guard<std::mutex> locker(mutex);
    return takenByProduct;
}

QByteArray LogCloud::lastTaken() const
{
    std::lock_guard<std::mutex> locker(mutex);
    return last;
}

QList<QByteArray> LogCloud::broken() const
{
    std::lock_guard<std::mutex> locker(mutex);
    return brokenRecords;
}

bool LogCloud::mayTake()
{
    if (turn > 0)
        return posts++ / turn % 2 == 0;
    if (left > 0)
        --left;
    else if (left == 0)
        return false;
    return true;
}

void LogCloud::serve(Connection &connection, const HttpRequest &request)
{
    if (formValue(request.body, "is") != "cloudlog") {
        connection.send(xmlAnswer("chkud"));
        return;
    }
    {
        std::lock_guard<std::mutex> locker(mutex);
        if (!mayTake())
            return; // closes the connection without an answer
        last = formValue(request.body, "pn");
        ++takenByProduct[last];
        const QByteArray record = request.body.trimmed();
        if (!record.startsWith("is=cloudlog&lang=") || !record.contains(",cloud_log_file_max_size:")
            || record.count("is=cloudlog") != 1)
            brokenRecords << record;
    }
    connection.send(xmlAnswer("cloudlog"));
}

} // namespace korrintest
