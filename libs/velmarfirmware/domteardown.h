#ifndef VELMARFIRMWARE_DOMTEARDOWN_H
#define VELMARFIRMWARE_DOMTEARDOWN_H

#include <QString>

class QDomDocument;
class QDomNode;

namespace Velmar::Firmware::Internal {

/*!
    Takes a document apart at the end of its scope, node by node.

    QDomDocument parses a file of any depth, but destroys its tree by recursion: elements nested
    some ten thousand levels deep would overflow the stack. Stands right behind its document.
*/
class DomTeardown {
public:
    explicit DomTeardown(QDomDocument &document);
    ~DomTeardown();

private:
    Q_DISABLE_COPY_MOVE(DomTeardown)

    QDomDocument &m_document;
};

/*! The text of \a node as QDomElement::text() gives it, but without its recursion. */
QString domText(const QDomNode &node);

} // namespace Velmar::Firmware::Internal

#endif // VELMARFIRMWARE_DOMTEARDOWN_H
