#ifndef KORRIN_TESTS_SERVICETEST_H
#define KORRIN_TESTS_SERVICETEST_H

#include "korrinhost.h"
#include "rawsocket.h"
#include "scriptedserver.h"

#include <algorithm>

namespace korrintest
{

/// Answers every request of @p server with these bytes, then closes the connection.
inline void answerWith(ScriptedServer &server, const QByteArray &bytes)
{
    server.setHandler(
        [bytes](Connection &connection, const HttpRequest &) { connection.send(bytes); });
}

/// As answerWith(), with an HTTP 200 of this body.
inline void answerBody(ScriptedServer &server, const QByteArray &body,
                       const QByteArray &contentType = "application/zip")
{
    answerWith(server, answer(200, "OK", contentType, body));
}

/// "number|text|detail" of the handle's last error.
inline QByteArray errorOf(const Handle &handle)
{
    return handle.errorNo() + '|' + handle.errorText() + '|' + handle.errorDetail();
}

/// The names of a request's headers in lower case, sorted, joined by blanks.
inline QByteArray headerNames(const HttpRequest &request)
{
    QList<QByteArray> names;
    for (const auto &header : request.headers)
        names << header.first.toLower();
    std::sort(names.begin(), names.end());
    return names.join(' ');
}

inline bool isLogPost(const HttpRequest &request)
{
    return request.method == "POST" && formValue(request.body, "is") == "cloudlog";
}

/// "function|arguments|number|detail" of each cloud log record that arrived, percent-decoded.
inline QList<QByteArray> logRecords(const ScriptedServer &server)
{
    QList<QByteArray> records;
    for (const HttpRequest &request : server.requests()) {
        if (!isLogPost(request))
            continue;
        QList<QByteArray> values;
        for (const char *key : {"fn", "fa", "en", "ed"})
            values << QByteArray::fromPercentEncoding(formValue(request.body, key));
        records << values.join('|');
    }
    return records;
}

/// The requests that are no posts of the cloud log.
inline QList<HttpRequest> serviceRequests(const ScriptedServer &server)
{
    QList<HttpRequest> requests;
    for (const HttpRequest &request : server.requests()) {
        if (!isLogPost(request))
            requests << request;
    }
    return requests;
}

} // namespace korrintest

#endif
