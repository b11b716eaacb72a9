#include "xmldocument.h"

#include <QDomDocument>
#include <QIODevice>
#include <QXmlStreamReader>

namespace Velmar::Firmware::Internal {

namespace {

// Packages need 3. A document takes a time that grows with the square of its depth to build, and is
// read and destroyed by recursion: at some ten thousand levels the stack overflows.
constexpr int MaxNesting = 256;

bool isTooDeep(const QByteArray &xml)
{
    QXmlStreamReader reader(xml);
    reader.setNamespaceProcessing(false);
    int depth = 0;
    while (!reader.atEnd()) {
        const QXmlStreamReader::TokenType token = reader.readNext();
        if (token == QXmlStreamReader::StartElement && ++depth > MaxNesting)
            return true;
        if (token == QXmlStreamReader::EndElement)
            --depth;
    }
    return false;
}

} // namespace

bool parseXml(QIODevice &device, bool namespaceProcessing, QDomDocument &document,
              QString &errorText)
{
    const QByteArray xml = device.readAll();
    if (isTooDeep(xml)) {
        errorText = QStringLiteral("elements are nested more than %1 deep").arg(MaxNesting);
        return false;
    }
    // QDomDocument's own reader is recursive; this one also stops at the same faults as the look at
    // the depth did.
    QXmlStreamReader reader(xml);
    reader.setNamespaceProcessing(namespaceProcessing);
    return document.setContent(&reader, namespaceProcessing, &errorText);
}

} // namespace Velmar::Firmware::Internal
