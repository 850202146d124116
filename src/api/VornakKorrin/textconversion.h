#ifndef KORRIN_TEXTCONVERSION_H
#define KORRIN_TEXTCONVERSION_H

#include <QByteArray>
#include <QString>

/// The bytes up to the first NUL, or to the end, as Latin-1 text.
QString textBeforeNul(const QByteArray &data);

/// As above, reading no more than @p maxBytes.
QString textBeforeNul(const QByteArray &data, qsizetype maxBytes);

/// @p text with a blank for every line break, which would begin another header of a request.
QString withoutLineBreaks(QString text);

#endif
