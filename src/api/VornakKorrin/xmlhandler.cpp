#include "xmlhandler.h"

#include "debugoutput.h"

#include <QXmlInputSource>
#include <QXmlSimpleReader>

bool XmlHandler::execute(const QByteArray &data)
{
    errorMessage.clear();

    QXmlSimpleReader reader;
    reader.setContentHandler(this);
    reader.setErrorHandler(this);
    QXmlInputSource source;
    source.setData(data);

    DebugOutput::writeMarker("-- XML parsing start --");
    const bool parsed = reader.parse(source);
    DebugOutput::writeMarker(parsed ? "-- XML parsing end --" : "-- XML parsing cancel --");
    return parsed;
}

bool XmlHandler::startDocument()
{
    elementValues.clear();
    return true;
}

bool XmlHandler::startElement(const QString &, const QString &, const QString &qName,
                              const QXmlAttributes &)
{
    currentElement = qName;
    return true;
}

bool XmlHandler::endElement(const QString &, const QString &, const QString &)
{
    return true;
}

bool XmlHandler::characters(const QString &ch)
{
    elementValues.insert(currentElement, ch);
    if (DebugOutput::enabled)
        DebugOutput() << QStringLiteral("<%1> %2").arg(currentElement, ch);
    return true;
}

bool XmlHandler::fatalError(const QXmlParseException &exception)
{
    errorMessage = QStringLiteral("error on line %1, column %2: %3")
                       .arg(QString::number(exception.lineNumber()),
                            QString::number(exception.columnNumber()), exception.message());
    return false;
}
