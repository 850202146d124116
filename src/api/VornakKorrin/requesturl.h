#ifndef KORRIN_REQUESTURL_H
#define KORRIN_REQUESTURL_H

#include "clouddefs.h"

#include <QUrl>

/// How the "server_url" parameter becomes a URL, and a URL a text.
namespace RequestUrl
{

/// What QUrl's constructor makes of @p text; that would leak when memory runs out half way.
QUrl parse(const QString &text);

/// Reads a URL that a person wrote: characters that may not stand in a URL are percent-encoded,
/// and so is every "%", save in "%20". An invalid text (a bad port, an unclosed bracket) gives an
/// empty URL, which no exchange is ever made for.
QUrl fromText(const QString &text);

/// The URL with every escape decoded; fromText() reads it back.
QString toText(const QUrl &url);

} // namespace RequestUrl

#endif
