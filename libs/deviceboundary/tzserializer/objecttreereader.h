#ifndef TZSERIALIZER_OBJECTTREEREADER_H
#define TZSERIALIZER_OBJECTTREEREADER_H

#include "propertytable.h"
#include <tzserializer/serializetoxml.h>

#include <QXmlStreamReader>

#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

namespace TZ::Internal {

/*!
    Reads one XML text into objects, beside the root and not yet under it.

    The root is first touched by apply(), so that a text that turns out malformed at its end leaves
    nothing behind. For one text only.
*/
class ObjectTreeReader
{
public:
    ObjectTreeReader(const QMetaObject *rootClass, const Serializer::ObjectFactory &factory,
                     const QString &path);

    /*! False if \a xml is malformed; the log names the cause and the line. */
    bool read(const QByteArray &xml);

    /*! Sets the properties of \a root and gives it the objects that were read. */
    void apply(QObject *root);

private:
    bool readStart();
    bool readRoot();
    bool readObject();
    void readProperties(const QMetaObject *metaObject, QObject *object);
    void ignore(const char *kind, const QStringRef &name) const;
    QString place() const;

    const QMetaObject *const m_rootClass;
    const Serializer::ObjectFactory &m_factory;
    const QString m_path; // for the log

    QXmlStreamReader m_xml;
    int m_depth = 0; // open elements, the ignored ones too
    int m_ignoredFrom = 0; // depth of the outermost ignored element; 0: none is open
    std::vector<QObject *> m_open; // the objects around the next element; null stands for the root
    std::unordered_map<const QMetaObject *, PropertyTable> m_tables;

    std::vector<std::pair<PropertyTable::Property, PropertyTable::Value>> m_rootValues;
    std::vector<std::unique_ptr<QObject>> m_rootChildren;
};

} // namespace TZ::Internal

#endif // TZSERIALIZER_OBJECTTREEREADER_H
