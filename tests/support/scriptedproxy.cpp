#include "scriptedproxy.h"

#include <poll.h>

namespace korrintest
{

namespace
{

quint16 portIn(const QByteArray &authority)
{
    return authority.mid(authority.lastIndexOf(':') + 1).toUShort();
}

} // namespace

ScriptedProxy::ScriptedProxy()
    : server(
        [this](Connection &connection, const HttpRequest &request) { handle(connection, request); })
{
}

QByteArray ScriptedProxy::url(const QByteArray &user, const QByteArray &password) const
{
    const QByteArray credentials = user.isEmpty() ? QByteArray() : user + ':' + password + '@';
    return "http://" + credentials + "127.0.0.1:" + QByteArray::number(port());
}

void ScriptedProxy::requireCredentials(const QByteArray &user, const QByteArray &password)
{
    expectedAuthorization = "Basic " + (user + ':' + password).toBase64();
}

void ScriptedProxy::setChallenges(int count)
{
    challengesLeft = count;
}

bool ScriptedProxy::isLetThrough(const HttpRequest &request)
{
    if (challengesLeft < 0)
        return false;
    if (challengesLeft > 0) {
        --challengesLeft;
        return false;
    }
    return expectedAuthorization.isEmpty()
        || request.header("Proxy-Authorization") == expectedAuthorization;
}

void ScriptedProxy::handle(Connection &connection, const HttpRequest &request)
{
    if (!isLetThrough(request)) {
        ++challenged;
        connection.send(answer(407, "Proxy Authentication Required", "text/plain", "who are you?",
                               {"Proxy-Authenticate: Basic realm=\"test\""}));
        return;
    }
    if (refusal != 0)
        connection.send(answer(refusal, "Refused", "text/plain", "not here"));
    else if (request.method == "CONNECT")
        tunnel(connection, request);
    else
        forward(connection, request);
}

void ScriptedProxy::forward(Connection &connection, const HttpRequest &request)
{
    const QByteArray afterScheme = request.target.mid(request.target.indexOf("://") + 3);
    const auto slash = afterScheme.indexOf('/');
    const int fd = connectTo(portIn(afterScheme.left(slash)));
    if (fd < 0) {
        connection.send(answer(502, "Bad Gateway", "text/plain", "origin refused"));
        return;
    }
    RawSocket origin(fd);
    QByteArray head = request.head;
    head.replace(request.target, afterScheme.mid(slash));
    origin.send(head + request.body);
    for (QByteArray bytes = origin.readSome(); !bytes.isEmpty(); bytes = origin.readSome())
        connection.send(bytes);
}

void ScriptedProxy::tunnel(Connection &connection, const HttpRequest &request)
{
    const int fd = connectTo(portIn(request.target));
    if (fd < 0) {
        connection.send(answer(502, "Bad Gateway", "text/plain", "origin refused"));
        return;
    }
    RawSocket origin(fd);
    connection.send("HTTP/1.1 200 Connection established\r\n\r\n");
    for (;;) {
        pollfd ends[2] = {{connection.descriptor(), POLLIN, 0}, {fd, POLLIN, 0}};
        if (poll(ends, 2, -1) < 0)
            return;
        if (ends[0].revents) {
            const QByteArray bytes = connection.readSome();
            if (bytes.isEmpty() || !origin.send(bytes))
                return;
        }
        if (ends[1].revents) {
            const QByteArray bytes = origin.readSome();
            if (bytes.isEmpty() || !connection.send(bytes))
                return;
        }
    }
}

} // namespace korrintest
