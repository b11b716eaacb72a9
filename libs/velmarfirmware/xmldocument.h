#ifndef VELMARFIRMWARE_XMLDOCUMENT_H
#define VELMARFIRMWARE_XMLDOCUMENT_H

#include <QString>

class QDomDocument;
class QIODevice;

namespace Velmar::Firmware::Internal {

/*!
    Parses all that \a device has to give into \a document.

    False if that is no well-formed XML or nests elements deeper than any package does; \a errorText
    then has the parser's message and is left alone otherwise.
*/
bool parseXml(QIODevice &device, bool namespaceProcessing, QDomDocument &document,
              QString &errorText);

} // namespace Velmar::Firmware::Internal

#endif // VELMARFIRMWARE_XMLDOCUMENT_H
