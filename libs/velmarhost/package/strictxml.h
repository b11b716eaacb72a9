#ifndef VELMARHOST_STRICTXML_H
#define VELMARHOST_STRICTXML_H

#include <QString>

#include <functional>
#include <optional>

class QXmlStreamReader;

namespace Velmar::Host {

/*! What is wrong with a package's text, and where. */
struct ListedFault {
    QString code; //!< stable word, as in "document-type"
    QString file; //!< relative to the package
    int line = 0; //!< 0: the file as a whole
    QString text; //!< for people
};

/*! Called for each start, text, end and processing instruction, with the depth of its element: 1
    for the root. May add faults of its own; the reading goes on. */
using XmlTokenReader = std::function<void(const QXmlStreamReader &xml, int depth)>;

/*!
    Reads the XML file \a file, relative to the folder \a package: at most 16 MiB of UTF-8 without
    a document type, with elements nested at most 16 deep. Returns why the reading ended before the
    end of the file; nothing if it did not.
*/
std::optional<ListedFault> readStrictXml(const QString &package, const QString &file,
                                         const XmlTokenReader &readToken);

/*! \a fault in a line, with the whole path of its file below \a package. */
QString faultLine(const QString &package, const ListedFault &fault);

} // namespace Velmar::Host

#endif // VELMARHOST_STRICTXML_H
