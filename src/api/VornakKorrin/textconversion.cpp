#include "textconversion.h"

QString textBeforeNul(const QByteArray &data)
{
    return textBeforeNul(data, data.size());
}

QString textBeforeNul(const QByteArray &data, qsizetype maxBytes)
{
    const QByteArray readable =
        QByteArray::fromRawData(data.constData(), qMin(maxBytes, qsizetype(data.size())));
    const qsizetype nul = readable.indexOf('\0');
    return QString::fromLatin1(nul < 0 ? readable : readable.left(nul));
}

QString withoutLineBreaks(QString text)
{
    return text.replace(QLatin1Char('\r'), QLatin1Char(' '))
        .replace(QLatin1Char('\n'), QLatin1Char(' '));
}
