#include "xmldocument.h"

#include <QDomDocument>
#include <QIODevice>
#include <QXmlDefaultHandler>
#include <QXmlInputSource>
#include <QXmlSimpleReader>

namespace Velmar::Firmware::Internal {

namespace {

// Packages need 3. A document is parsed and destroyed by recursion, and takes a time that grows
// with the square of its depth to build: at some ten thousand levels the stack overflows.
constexpr int MaxNesting = 256;

QT_WARNING_PUSH
QT_WARNING_DISABLE_DEPRECATED // QDomDocument has no other parser with these messages

    /*! Breaks a parse off at the first element that is nested too deep. */
    class NestingGuard : public QXmlDefaultHandler
{
public:
    bool startElement(const QString & /*uri*/, const QString & /*localName*/,
                      const QString & /*name*/, const QXmlAttributes & /*attributes*/) override
    {
        m_isTooDeep = ++m_depth > MaxNesting;
        return !m_isTooDeep;
    }

    bool endElement(const QString & /*uri*/, const QString & /*localName*/,
                    const QString & /*name*/) override
    {
        --m_depth;
        return true;
    }

    bool isTooDeep() const { return m_isTooDeep; }

private:
    int m_depth = 0;
    bool m_isTooDeep = false;
};

// The parser reads the groups of a document type by recursion, too, and tells nobody of them.
bool mayHaveDeepGroups(const QString &text)
{
    return text.contains(QLatin1String("<!DOCTYPE")) && text.count(QLatin1Char('(')) > MaxNesting;
}

// Looked at with QDomDocument's own parser: it alone knows which elements it opens, whatever the
// encoding and the entities of the text. Other faults are left to the parse itself.
bool isTooDeep(const QByteArray &xml)
{
    QXmlInputSource source;
    source.setData(xml);
    if (mayHaveDeepGroups(source.data()))
        return true;
    NestingGuard guard;
    QXmlSimpleReader reader;
    reader.setContentHandler(&guard);
    reader.parse(source);
    return guard.isTooDeep();
}

QT_WARNING_POP

} // namespace

bool parseXml(QIODevice &device, bool namespaceProcessing, QDomDocument &document,
              QString &errorText)
{
    const QByteArray xml = device.readAll();
    if (isTooDeep(xml)) {
        errorText = QStringLiteral("elements are nested more than %1 deep").arg(MaxNesting);
        return false;
    }
    return document.setContent(xml, namespaceProcessing, &errorText);
}

} // namespace Velmar::Firmware::Internal
