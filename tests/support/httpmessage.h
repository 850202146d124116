#ifndef KORRIN_TESTS_HTTPMESSAGE_H
#define KORRIN_TESTS_HTTPMESSAGE_H

#include <QByteArray>
#include <QList>
#include <QPair>

namespace korrintest
{

/// A request as it arrived, byte for byte.
struct HttpRequest {
    QByteArray startLine;
    QByteArray method;
    QByteArray target;
    QByteArray version;
    QList<QPair<QByteArray, QByteArray>> headers;
    QByteArray head; ///< raw, up to and including the blank line
    QByteArray body;
    int connection = 0; ///< 0, 1, 2 … in the order of accepted connections

    QByteArray header(const QByteArray &name) const; ///< case-insensitive; empty if absent
    bool hasHeader(const QByteArray &name) const;
    QByteArray path() const;
    QByteArray query() const;
};

/// Parses the head of a request.
HttpRequest parseHead(const QByteArray &head);

/// The first value of @p key in form data or a query, not decoded.
QByteArray formValue(const QByteArray &data, const QByteArray &key);

/// A whole answer with Content-Length and "Connection: close". A null content type is left out.
QByteArray answer(int status, const QByteArray &reason, const QByteArray &contentType,
                  const QByteArray &body, const QList<QByteArray> &extraHeaderLines = {});

QByteArray chunkedAnswer(const QByteArray &contentType, const QList<QByteArray> &pieces);

/// The XML of an answer of the cloud; an element whose text is null is left out.
QByteArray xmlBody(const QByteArray &is, const QByteArray &status = "1",
                   const QByteArray &statusCode = "0", const QByteArray &message = "fine",
                   const QByteArray &more = {});

/// An answer 200 text/xml with xmlBody().
QByteArray xmlAnswer(const QByteArray &is, const QByteArray &status = "1",
                     const QByteArray &statusCode = "0", const QByteArray &message = "fine",
                     const QByteArray &more = {});

} // namespace korrintest

#endif
