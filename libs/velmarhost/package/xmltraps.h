#ifndef VELMARHOST_XMLTRAPS_H
#define VELMARHOST_XMLTRAPS_H

#include <QByteArray>
#include <QString>

#include <optional>

namespace Velmar::Host {

/*! Something in an XML text that two parsers may take for two things, or that stops one. */
struct XmlTrap {
    const char *code; //!< stable word, as in "carriage-return"
    int position; //!< in the text, in bytes
    QString text; //!< one sentence
};

/*!
    The first of a kind in \a xml, which is UTF-8: UTF-16 without its mark, a carriage return without
    its line feed, the number of a character beyond U+FFFF, an element with more than 64 attributes.
    Takes a time linear in the text.
*/
std::optional<XmlTrap> findXmlTrap(const QByteArray &xml);

} // namespace Velmar::Host

#endif // VELMARHOST_XMLTRAPS_H
