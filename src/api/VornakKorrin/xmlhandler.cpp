#include "xmlhandler.h"

#include "debugoutput.h"

#include <QXmlInputSource>
#include <QXmlSimpleReader>

#include <cstddef>

#include <pthread.h>

namespace
{

// Qt's reader takes some 420 bytes of stack for a level of elements, and time and memory that grow
// with the square of the levels that declare name spaces.
constexpr int MAX_DEPTH = 2500;
constexpr int HARMLESS_DEPTH = 100;
constexpr std::size_t RESERVED_STACK_BYTES = 64 * 1024;
// An answer needs no document type at all; these let those through that somebody may have written.
constexpr int MAX_ENTITY_DECLARATIONS = 64;
constexpr int MAX_GROUPS = 64;
constexpr int MAX_PARAMETER_ENTITY_MARKS = 16;

const QString TOO_DEEP = QStringLiteral("elements are nested too deeply");
const QString TOO_COMPLEX = QStringLiteral("document type is too complex");

/// Counts over the whole text, since a scanner of our own could be led astray about where the
/// document type ends.
bool isDocumentTypeHarmless(const QString &text)
{
    return !text.contains(QLatin1String("<!DOCTYPE"))
        || (text.count(QLatin1String("<!ENTITY")) <= MAX_ENTITY_DECLARATIONS
            && text.count(QLatin1Char('(')) <= MAX_GROUPS
            && text.count(QLatin1Char('%')) <= MAX_PARAMETER_ENTITY_MARKS);
}

/// The address that the calling thread's stack must not grow below; null when it is not known.
const char *lowestStackAddress()
{
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0)
        return nullptr;
    void *address = nullptr;
    std::size_t size = 0;
    const bool isKnown = pthread_attr_getstack(&attributes, &address, &size) == 0;
    pthread_attr_destroy(&attributes);
    return isKnown ? static_cast<const char *>(address) + RESERVED_STACK_BYTES : nullptr;
}

} // namespace

bool XmlHandler::execute(const QByteArray &data)
{
    errorMessage.clear();

    QXmlSimpleReader reader;
    reader.setContentHandler(this);
    reader.setErrorHandler(this);
    QXmlInputSource source;
    source.setData(data);

    DebugOutput::writeMarker("-- XML parsing start --");
    const bool parsed = isDocumentTypeHarmless(source.data())
        ? reader.parse(source)
        : fatalError(QXmlParseException(TOO_COMPLEX, 1, 1));
    DebugOutput::writeMarker(parsed ? "-- XML parsing end --" : "-- XML parsing cancel --");
    return parsed;
}

bool XmlHandler::startDocument()
{
    elementValues.clear();
    depth = 0;
    return true;
}

bool XmlHandler::startElement(const QString &, const QString &, const QString &qName,
                              const QXmlAttributes &)
{
    currentElement = qName;
    if (++depth == HARMLESS_DEPTH)
        lowestAddress = lowestStackAddress();
    return depth < HARMLESS_DEPTH
        || (depth <= MAX_DEPTH
            && static_cast<const char *>(__builtin_frame_address(0)) > lowestAddress);
}

bool XmlHandler::endElement(const QString &, const QString &, const QString &)
{
    --depth;
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

QString XmlHandler::errorString() const
{
    return TOO_DEEP;
}
