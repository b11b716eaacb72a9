#include <tinyboundary/calls.h>
#include <tzserializer/serializetoxml.h>

#include <QFile>
#include <QVariant>
#include <QXmlStreamReader>

namespace TZ {

SerializeToXML::SerializeToXML() = default;

SerializeToXML::~SerializeToXML() = default;

// This maker's mapping: <object class="FileInfo"> for an object, <set FileName="..."/> within it.
void SerializeToXML::loadXml(QObject *root, const QString &path,
                             const Serializer::ObjectFactory &factory)
{
    TinyBoundary::note(QStringLiteral("loadXml"));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    QXmlStreamReader xml(&file);
    xml.readNextStartElement();
    QObject *object = root;
    while (!xml.atEnd()) {
        xml.readNext();
        if (xml.isStartElement() && xml.name() == QLatin1String("object")) {
            QObject *const child =
                factory.value(xml.attributes().value(QLatin1String("class")).toString())();
            child->setParent(object);
            object = child;
        } else if (xml.isStartElement()) {
            for (const QXmlStreamAttribute &attribute : xml.attributes())
                object->setProperty(attribute.name().toLatin1(), attribute.value().toString());
        } else if (xml.isEndElement() && xml.name() == QLatin1String("object")) {
            object = object->parent();
        }
    }
}

} // namespace TZ
