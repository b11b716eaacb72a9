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

/*! What the XML files of one package may have together. */
struct XmlAllowance {
    qint64 bytes = 32 * 1024 * 1024;
    int elements = 250'000;
};

/*! Counts the XML files of one package. What a package says is kept in memory, each element of a
    few bytes as some hundred. */
class XmlAccount
{
public:
    explicit XmlAccount(const XmlAllowance &allowance)
        : m_allowance(allowance)
    {
    }

    /*! False if that is more than allowed, now or before. */
    bool addBytes(qint64 count)
    {
        m_bytes += count;
        return !isOverdrawn();
    }
    bool addElement()
    {
        ++m_elements;
        return !isOverdrawn();
    }

    bool isOverdrawn() const
    {
        return m_bytes > m_allowance.bytes || m_elements > m_allowance.elements;
    }
    const XmlAllowance &allowance() const { return m_allowance; }

private:
    const XmlAllowance m_allowance;
    qint64 m_bytes = 0;
    int m_elements = 0;
};

/*! Called for each start, text, end and processing instruction, with the depth of its element: 1
    for the root. May add faults of its own; the reading goes on. */
using XmlTokenReader = std::function<void(const QXmlStreamReader &xml, int depth)>;

/*!
    Reads the XML file \a file, relative to the folder \a package: at most 16 MiB of UTF-8 without
    a document type, with elements nested at most 16 deep, without what findXmlTrap() finds, and
    within what \a account allows. Returns why the reading ended before the end of the file; nothing
    if it did not.
*/
std::optional<ListedFault> readStrictXml(const QString &package, const QString &file,
                                         XmlAccount &account, const XmlTokenReader &readToken);

/*! \a fault in a line, with the whole path of its file below \a package. */
QString faultLine(const QString &package, const ListedFault &fault);

} // namespace Velmar::Host

#endif // VELMARHOST_STRICTXML_H
