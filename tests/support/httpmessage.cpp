#include "httpmessage.h"

namespace korrintest
{

QByteArray HttpRequest::header(const QByteArray &name) const
{
    for (const auto &line : headers) {
        if (line.first.toLower() == name.toLower())
            return line.second;
    }
    return {};
}

bool HttpRequest::hasHeader(const QByteArray &name) const
{
    for (const auto &line : headers) {
        if (line.first.toLower() == name.toLower())
            return true;
    }
    return false;
}

QByteArray HttpRequest::path() const
{
    return target.left(target.contains('?') ? target.indexOf('?') : target.size());
}

QByteArray HttpRequest::query() const
{
    return target.contains('?') ? target.mid(target.indexOf('?') + 1) : QByteArray();
}

HttpRequest parseHead(const QByteArray &head)
{
    HttpRequest request;
    request.head = head;
    QList<QByteArray> lines = head.split('\n');
    request.startLine = lines.takeFirst().trimmed();
    const QList<QByteArray> words = request.startLine.split(' ');
    request.method = words.value(0);
    request.target = words.value(1);
    request.version = words.value(2);
    for (const QByteArray &line : lines) {
        const auto colon = line.indexOf(':');
        if (colon > 0)
            request.headers.append({line.left(colon).trimmed(), line.mid(colon + 1).trimmed()});
    }
    return request;
}

QByteArray formValue(const QByteArray &data, const QByteArray &key)
{
    const QList<QByteArray> items = data.split('&');
    for (const QByteArray &item : items) {
        if (item.startsWith(key + '='))
            return item.mid(key.size() + 1);
    }
    return {};
}

QByteArray answer(int status, const QByteArray &reason, const QByteArray &contentType,
                  const QByteArray &body, const QList<QByteArray> &extraHeaderLines)
{
    QByteArray bytes = "HTTP/1.1 " + QByteArray::number(status) + ' ' + reason + "\r\n";
    if (!contentType.isNull())
        bytes += "Content-Type: " + contentType + "\r\n";
    for (const QByteArray &line : extraHeaderLines)
        bytes += line + "\r\n";
    return bytes + "Content-Length: " + QByteArray::number(body.size())
        + "\r\nConnection: close\r\n\r\n" + body;
}

QByteArray chunkedAnswer(const QByteArray &contentType, const QList<QByteArray> &pieces)
{
    QByteArray bytes = "HTTP/1.1 200 OK\r\nContent-Type: " + contentType
        + "\r\nTransfer-Encoding: chunked\r\nConnection: close\r\n\r\n";
    for (const QByteArray &piece : pieces)
        bytes += QByteArray::number(piece.size(), 16) + "\r\n" + piece + "\r\n";
    return bytes + "0\r\n\r\n";
}

namespace
{
QByteArray element(const QByteArray &name, const QByteArray &text)
{
    return text.isNull() ? QByteArray() : '<' + name + '>' + text + "</" + name + '>';
}
} // namespace

QByteArray xmlBody(const QByteArray &is, const QByteArray &status, const QByteArray &statusCode,
                   const QByteArray &message, const QByteArray &more)
{
    return "<r>" + element("is", is) + element("status", status)
        + element("status_code", statusCode) + element("message", message) + more + "</r>";
}

QByteArray xmlAnswer(const QByteArray &is, const QByteArray &status, const QByteArray &statusCode,
                     const QByteArray &message, const QByteArray &more)
{
    return answer(200, "OK", "text/xml", xmlBody(is, status, statusCode, message, more));
}

} // namespace korrintest
