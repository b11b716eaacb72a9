#ifndef TINY_TZSERIALIZER_SERIALIZETOXML_H
#define TINY_TZSERIALIZER_SERIALIZETOXML_H

#include <QMap>
#include <QObject>
#include <QString>

#include <functional>

namespace TZ {

namespace Serializer {

using ObjectFactory = QMap<QString, std::function<QObject *()>>;

} // namespace Serializer

class SerializeToXML
{
public:
    SerializeToXML();
    ~SerializeToXML();

    void loadXml(QObject *root, const QString &path, const Serializer::ObjectFactory &factory);
};

} // namespace TZ

#endif // TINY_TZSERIALIZER_SERIALIZETOXML_H
