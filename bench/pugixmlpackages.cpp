#include "pugixmlpackages.h"

#include "packageconfig.h"

#include <tzserializer/serializetoxml.h>

#include <QFile>
#include <QFileInfo>
#include <QMetaProperty>

#include <pugixml.hpp>

#include <cstring>
#include <unordered_map>
#include <vector>

namespace {

using TZ::Serializer::ObjectFactory;

struct Property {
    const char *name;
    int index;
    int type; // a QMetaType::Type
};

// In the order of the class, in which files mostly name them.
const std::vector<Property> &propertiesOf(const QMetaObject *metaObject)
{
    static std::unordered_map<const QMetaObject *, std::vector<Property>> known;
    const auto found = known.find(metaObject);
    if (found != known.end())
        return found->second;
    std::vector<Property> &properties = known[metaObject];
    for (int i = QObject::staticMetaObject.propertyCount(); i < metaObject->propertyCount(); ++i) {
        const QMetaProperty property = metaObject->property(i);
        properties.push_back({ property.name(), i, property.userType() });
    }
    return properties;
}

void write(QObject *object, const Property &property, void *value)
{
    int status = -1;
    int flags = 0;
    void *arguments[] = { value, nullptr, &status, &flags };
    QMetaObject::metacall(object, QMetaObject::WriteProperty, property.index, arguments);
}

void setProperty(QObject *object, const Property &property, const pugi::xml_attribute &attribute)
{
    switch (property.type) {
    case QMetaType::Bool: {
        bool flag = attribute.as_bool();
        write(object, property, &flag);
        break;
    }
    case QMetaType::Int: {
        int number = attribute.as_int();
        write(object, property, &number);
        break;
    }
    default: {
        QString text = QString::fromUtf8(attribute.value());
        write(object, property, &text);
    }
    }
}

void fill(QObject *object, const pugi::xml_node &node, const ObjectFactory &factory)
{
    const std::vector<Property> &properties = propertiesOf(object->metaObject());
    std::size_t next = 0;
    for (const pugi::xml_attribute attribute : node.attributes()) {
        for (std::size_t i = 0; i < properties.size(); ++i) {
            if (next >= properties.size())
                next = 0;
            const Property &property = properties[next++];
            if (std::strcmp(property.name, attribute.name()) == 0) {
                setProperty(object, property, attribute);
                break;
            }
        }
    }
    for (const pugi::xml_node child : node.children()) {
        const auto creator = factory.constFind(QString::fromUtf8(child.name()));
        if (creator == factory.constEnd())
            continue;
        QObject *const made = (*creator)();
        made->setParent(object);
        fill(made, child, factory);
    }
}

} // namespace

namespace TZ {

SerializeToXML::SerializeToXML() = default;

SerializeToXML::~SerializeToXML() = default;

void SerializeToXML::loadXml(QObject *root, const QString &path, const ObjectFactory &factory)
{
    const QFileInfo info(path);
    QFile file(path);
    if (!info.isFile() || !file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return;
    QByteArray xml(int(info.size()), Qt::Uninitialized);
    if (file.read(xml.data(), xml.size()) != xml.size())
        return;
    pugi::xml_document document;
    if (document.load_buffer_inplace(xml.data(), std::size_t(xml.size())))
        fill(root, document.document_element(), factory);
}

} // namespace TZ

bool PugixmlPackages::read(const QString &path, QString &errorText)
{
    return Velmar::Firmware::PackageConfig::instance()->readConfig(path, errorText);
}

QVector<Velmar::Firmware::UpgradeCfg> PugixmlPackages::upgradeCfgs()
{
    return Velmar::Firmware::PackageConfig::instance()->upgradeCfgs();
}
