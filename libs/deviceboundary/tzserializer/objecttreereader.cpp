#include "objecttreereader.h"

#include <QDebug>

namespace TZ::Internal {

namespace {

constexpr int MaxNesting = 16;

QString shortName(const QMetaObject *metaObject)
{
    const QString qualified = QString::fromLatin1(metaObject->className());
    return qualified.mid(qualified.lastIndexOf(QLatin1Char(':')) + 1);
}

} // namespace

ObjectTreeReader::ObjectTreeReader(const QMetaObject *rootClass,
                                   const Serializer::ObjectFactory &factory, const QString &path)
    : m_rootClass(rootClass)
    , m_factory(factory)
    , m_path(path)
{
}

bool ObjectTreeReader::read(const QByteArray &xml)
{
    m_xml.addData(xml);
    m_xml.setNamespaceProcessing(false);
    while (!m_xml.atEnd()) {
        switch (m_xml.readNext()) {
        case QXmlStreamReader::DTD:
            m_xml.raiseError(QStringLiteral("A document type is not allowed."));
            break;
        case QXmlStreamReader::StartElement:
            if (++m_depth > MaxNesting)
                m_xml.raiseError(
                    QStringLiteral("Elements are nested more than %1 deep.").arg(MaxNesting));
            else if (m_ignoredFrom == 0 && !readStart())
                m_ignoredFrom = m_depth;
            break;
        case QXmlStreamReader::EndElement:
            if (m_ignoredFrom == 0)
                m_open.pop_back();
            else if (m_ignoredFrom == m_depth)
                m_ignoredFrom = 0;
            --m_depth;
            break;
        default:
            break;
        }
    }
    if (!m_xml.hasError())
        return true;
    qWarning().noquote()
        << QStringLiteral("Failed to load %1: %2").arg(place(), m_xml.errorString());
    return false;
}

void ObjectTreeReader::apply(QObject *root)
{
    for (auto &[property, value] : m_rootValues)
        PropertyTable::write(root, property, value);
    for (std::unique_ptr<QObject> &child : m_rootChildren)
        child.release()->setParent(root);
    m_rootChildren.clear();
}

// False if the element, with all below it, is to be passed over.
bool ObjectTreeReader::readStart()
{
    return m_open.empty() ? readRoot() : readObject();
}

bool ObjectTreeReader::readRoot()
{
    const QString expected = shortName(m_rootClass);
    if (m_xml.qualifiedName() != expected) {
        m_xml.raiseError(QStringLiteral("The root element is \"%1\" instead of \"%2\".")
                             .arg(m_xml.qualifiedName(), expected));
        return false;
    }
    m_open.push_back(nullptr);
    readProperties(m_rootClass, nullptr);
    return true;
}

bool ObjectTreeReader::readObject()
{
    const auto creator = m_factory.constFind(m_xml.qualifiedName().toString());
    if (creator == m_factory.constEnd()) {
        ignore("element", m_xml.qualifiedName());
        return false;
    }
    std::unique_ptr<QObject> object(*creator ? (*creator)() : nullptr);
    if (!object) {
        qWarning().noquote() << QStringLiteral("No object could be made for %1: %2")
                                    .arg(place(), m_xml.qualifiedName());
        return false;
    }
    QObject *const made = object.get();
    if (QObject *const parent = m_open.back())
        object.release()->setParent(parent);
    else
        m_rootChildren.push_back(std::move(object));
    m_open.push_back(made);
    readProperties(made->metaObject(), made);
    return true;
}

// Writes into object, or keeps the values for the root if that is null.
void ObjectTreeReader::readProperties(const QMetaObject *metaObject, QObject *object)
{
    const QXmlStreamAttributes attributes = m_xml.attributes();
    if (attributes.isEmpty())
        return;
    PropertyTable &table = m_tables.try_emplace(metaObject, metaObject).first->second;
    for (const QXmlStreamAttribute &attribute : attributes) {
        const PropertyTable::Property *const property = table.find(attribute.qualifiedName());
        if (!property) {
            ignore("attribute", attribute.qualifiedName());
            continue;
        }
        auto value = PropertyTable::convert(*property, attribute.value());
        if (!value) {
            m_xml.raiseError(QStringLiteral("\"%1\" is no %2 for %3.")
                                 .arg(attribute.value(),
                                      QLatin1String(QMetaType::typeName(property->type)),
                                      attribute.qualifiedName()));
            return;
        }
        if (object)
            PropertyTable::write(object, *property, *value);
        else
            m_rootValues.emplace_back(*property, std::move(*value));
    }
}

void ObjectTreeReader::ignore(const char *kind, const QStringRef &name) const
{
    qDebug().noquote()
        << QStringLiteral("Ignored in %1: unknown %2 %3").arg(place(), QLatin1String(kind), name);
}

QString ObjectTreeReader::place() const
{
    return QStringLiteral("%1, line %2").arg(m_path, QString::number(m_xml.lineNumber()));
}

} // namespace TZ::Internal
