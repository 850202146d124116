#ifndef KORRIN_XMLHANDLER_H
#define KORRIN_XMLHANDLER_H

#include "clouddefs.h"

#include <QByteArray>
#include <QMap>
#include <QXmlDefaultHandler>

/// Turns an answer into a flat map from element name to element text.
///
/// The text kept for a name is the last piece that was read while that name was the most recently
/// started element: white space after an end tag replaces the value of the element just closed, so
/// the server writes its answers without white space between elements.
///
/// Qt's reader recurses with the depth of elements and of content models and expands entities
/// within entities: documents that would exhaust the stack or the time are refused.
class XmlHandler : public QXmlDefaultHandler
{
public:
    /// Parses @p data; false when it is not well-formed, with the reason in @c errorMessage.
    bool execute(const QByteArray &data);

    bool startDocument() override;
    bool startElement(const QString &namespaceURI, const QString &localName, const QString &qName,
                      const QXmlAttributes &atts) override;
    bool endElement(const QString &namespaceURI, const QString &localName,
                    const QString &qName) override;
    bool characters(const QString &ch) override;
    bool fatalError(const QXmlParseException &exception) override;
    /// Why a callback has stopped the reader.
    QString errorString() const override;

    QMap<QString, QString> elementValues;
    QString currentElement; ///< the most recently started element; not cleared at its end
    QString errorMessage;   ///< why the last parse failed; empty when it succeeded

private:
    int depth = 0;                       ///< of the elements that are open
    const char *lowestAddress = nullptr; ///< that the stack may grow to
};

#endif
