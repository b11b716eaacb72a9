#include "xmldocument.h"

#include <QDomDocument>
#include <QIODevice>
#include <QXmlStreamReader>

namespace Velmar::Firmware::Internal {

namespace {

// Packages need 3. A document is parsed and destroyed by recursion, and takes a time that grows
// with the square of its depth to build: at some ten thousand levels the stack overflows.
constexpr int MaxNesting = 256;

// As many elements as start tags can open: no document is nested deeper than that.
int startTagCount(const QByteArray &xml)
{
    int count = 0;
    for (int i = xml.indexOf('<'); i >= 0; i = xml.indexOf('<', i + 1))
        ++count;
    return count;
}

// The look at the depth itself: it knows no recursion. False, with a text, also for a fault of the
// document, behind which nothing is known of its depth.
bool isNestingSound(const QByteArray &xml, QString &errorText)
{
    QXmlStreamReader reader(xml);
    reader.setNamespaceProcessing(false);
    int depth = 0;
    while (!reader.atEnd()) {
        const QXmlStreamReader::TokenType token = reader.readNext();
        if (token == QXmlStreamReader::EndElement)
            --depth;
        if (token == QXmlStreamReader::StartElement && ++depth > MaxNesting) {
            errorText = QStringLiteral("elements are nested more than %1 deep").arg(MaxNesting);
            return false;
        }
    }
    if (reader.hasError())
        errorText = reader.errorString();
    return !reader.hasError();
}

} // namespace

bool parseXml(QIODevice &device, bool namespaceProcessing, QDomDocument &document,
              QString &errorText)
{
    const QByteArray xml = device.readAll();
    if (startTagCount(xml) > MaxNesting && !isNestingSound(xml, errorText))
        return false;
    return document.setContent(xml, namespaceProcessing, &errorText);
}

} // namespace Velmar::Firmware::Internal
