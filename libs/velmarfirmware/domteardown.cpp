#include "domteardown.h"

#include <QDomDocument>

namespace Velmar::Firmware::Internal {

DomTeardown::DomTeardown(QDomDocument &document)
    : m_document(document)
{
}

DomTeardown::~DomTeardown()
{
    const QDomNode root = m_document.documentElement();
    QDomNode node = root;
    while (!node.isNull()) {
        const QDomNode child = node.firstChild();
        if (!child.isNull()) {
            node = child;
            continue;
        }
        if (node == root)
            break;
        QDomNode parent = node.parentNode();
        parent.removeChild(node);
        node = parent;
    }
}

QString domText(const QDomNode &node)
{
    QString text = QStringLiteral("");
    QDomNode current = node.firstChild();
    while (!current.isNull()) {
        if (current.isText() || current.isCDATASection())
            text += current.nodeValue();
        QDomNode next = current.isElement() ? current.firstChild() : QDomNode();
        while (next.isNull() && current != node) {
            next = current.nextSibling();
            current = current.parentNode();
        }
        current = next;
    }
    return text;
}

} // namespace Velmar::Firmware::Internal
