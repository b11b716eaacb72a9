#ifndef TZSERIALIZER_SERIALIZETOXML_H
#define TZSERIALIZER_SERIALIZETOXML_H

#include "tzserializer_export.h"

#include <QMap>
#include <QObject>
#include <QString>

#include <functional>

namespace TZ {

namespace Serializer {

/*! Class name to the function that makes a new object of that class, or null. */
using ObjectFactory = QMap<QString, std::function<QObject *()>>;

} // namespace Serializer

/*! Loads trees of QObjects from XML, by the names of their classes and properties. */
class TZSERIALIZER_EXPORT SerializeToXML
{
public:
    SerializeToXML();
    // Exported, as other makers of this library do.
    ~SerializeToXML(); // NOLINT(performance-trivially-destructible)

    /*!
        Fills \a root from the file at \a path.

        Nested objects are made through \a factory and become children of the object around them, in
        file order. A missing or malformed file leaves \a root wholly as it was; the log names the
        cause.
    */
    void loadXml(QObject *root, const QString &path, const Serializer::ObjectFactory &factory);
};

} // namespace TZ

#endif // TZSERIALIZER_SERIALIZETOXML_H
